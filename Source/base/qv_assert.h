// Always-on invariant checks. A broken invariant ends the process in release
// builds too, with the tested expression as the message, as assert() words it.
#ifndef QUORVEL_QV_ASSERT_H
#define QUORVEL_QV_ASSERT_H

#include <cstdio>
#include <cstdlib>

[[noreturn]] inline void qv_assert_fail(const char *expr, const char *file, unsigned line,
                                        const char *func) {
    fflush(stdout);
    fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", file, line, func, expr);
    abort();
}

#define QV_ASSERT(expr)                                                                            \
    (static_cast<bool>(expr) ? void(0) : qv_assert_fail(#expr, __FILE__, __LINE__, __func__))

#endif
