/* Always-on invariant checks. The library's invariants end the process when
   broken, in release builds too, with the tested expression as the message. */
#ifndef QUORVEL_QV_ASSERT_H
#define QUORVEL_QV_ASSERT_H

#include <assert.h>

#ifdef __cplusplus
#define QV_ASSERT(expr)                                                                            \
    (static_cast<bool>(expr) ? void(0) : __assert_fail(#expr, __FILE__, __LINE__, __func__))
#else
#define QV_ASSERT(expr) ((expr) ? (void)0 : __assert_fail(#expr, __FILE__, __LINE__, __func__))
#endif

#endif
