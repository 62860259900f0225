// Tests of features a build may leave out (term_features()).
#ifndef QV_TEST_NEEDS_H
#define QV_TEST_NEEDS_H

#include <gtest/gtest.h>

#include "quorvel.h"

// Skips a test of a feature the build left out; what the build answers
// instead is tested on its own.
#define QV_NEEDS(features)                                                                                    \
    do {                                                                                                       \
        if ((term_features() & (features)) != (features)) GTEST_SKIP() << "left out of this build";         \
    } while (0)

#endif
