/* Terminal modes: saving, switching to raw mode for a read, and restoring. */
#ifndef QUORVEL_TTYMODE_H
#define QUORVEL_TTYMODE_H

#include <termios.h>

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* 1 when the mode of the terminal on standard output was read into t. */
QV_API int console_get_mode(struct console *c, struct termios *t);
QV_API void console_set_mode(struct console *c, const struct termios *t);
/* Raw mode derived from t, applied to standard input. */
QV_API void console_set_raw_mode(struct console *c, const struct termios *t);
/* Marks the read as interrupted (Ctrl-C with the sigint option); the input
   loop raises the signal once the read has ended. */
QV_API void signal_interrupt(struct console *c);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {

// Raw mode for the length of one read, given back on every path out. A mode
// that could not be read is neither changed nor restored.
class RawMode {
  public:
    explicit RawMode(struct console *c);
    ~RawMode() { restore(); }
    void restore();
    RawMode(const RawMode &) = delete;
    RawMode &operator=(const RawMode &) = delete;

  private:
    struct console *c_;
    struct termios saved_;
    bool have_;
};

} // namespace qv
#endif
#endif

#endif
