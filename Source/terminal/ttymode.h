/* Terminal modes: saving, switching to raw mode for a read, and restoring;
   the signal handling that gives the terminal back while a read runs. */
#ifndef QUORVEL_TTYMODE_H
#define QUORVEL_TTYMODE_H

#include <termios.h>

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* 1 when the mode of the session's terminal (the default session's: on
   standard output) was read into t. */
QV_API int console_get_mode(struct console *c, struct termios *t);
QV_API void console_set_mode(struct console *c, const struct termios *t);
/* Raw mode derived from t, applied to the session's terminal (the default
   session's: standard input). */
QV_API void console_set_raw_mode(struct console *c, const struct termios *t);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {

// One read's hold on the terminal: raw mode, handlers for the signals that
// would otherwise leave the terminal raw behind a dead or stopped process,
// and one for window-size changes (chained to the host's). Everything is given back on every path out. A mode that could not
// be read is neither changed nor restored.
class ReadSession {
  public:
    explicit ReadSession(struct console *c);
    ~ReadSession() { end(); }
    void end();
    ReadSession(const ReadSession &) = delete;
    ReadSession &operator=(const ReadSession &) = delete;

  private:
    bool active_;
    bool ended_ = false;
};

// Another session's terminal: fd is the one a read sets raw, or -1 for a
// stream whose peer is in character mode already.
struct ModeState;
ModeState *mode_new(int fd);
void mode_free(ModeState *m);

// Bytes to write to the terminal whenever the read gives it back on a path
// that does not return (a signal, exit()): they undo what the read turned on.
void session_on_exit(const char *bytes);

// The descriptor a signal handler writes to while a read runs, for the input
// wait to watch; -1 when there is none.
int session_wake_fd();

enum SessionEvent : int {
    kNothing = 0,
    kRearmed = 1,   // a signal the host handled has passed; raw mode is back
    kContinued = 2, // the process was stopped and has continued: repaint
    kResized = 4,   // the window changed size
};

// Takes back the terminal after a signal has passed: raw mode and the
// library's handlers again. Cheap when nothing happened.
int session_resume();

// The window's size changed by the host's word, not the kernel's: the next
// session_resume() tells the read.
void session_note_resize();

} // namespace qv
#endif
#endif

#endif
