/* Whole writes to a file descriptor, shared by the history file code of both
   libraries. Library-internal. */
#ifndef QUORVEL_FDIO_H
#define QUORVEL_FDIO_H

#ifdef __cplusplus
#include <cerrno>
#include <cstddef>

#include <unistd.h>

namespace qv {

// Writes all n bytes, resuming after interruptions and short writes; false
// when the descriptor refused (errno tells why).
inline bool write_all(int fd, const char *p, size_t n) {
    while (n > 0) {
        const ssize_t w = write(fd, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        p += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

} // namespace qv
#endif

#endif
