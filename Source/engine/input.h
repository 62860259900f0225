/* Key input: the line-reading entry, the interactive input loop with key
   decoding, and single key reads. */
#ifndef QUORVEL_INPUT_H
#define QUORVEL_INPUT_H

#include "keymap.h"
#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

QV_API void console_read_line(struct console *c, const char *prompt);
QV_API void read_input_noninteractive(struct console *c);
QV_API void console_get_cursor(struct console *c, int *row, int *col);
QV_API void read_input(struct console *c);
QV_API int GetChar(struct console *c);
QV_API action_fn process_keyboard_events(struct console *c, const keymap_entry *map);
QV_API void console_get_char(struct console *c, int unused);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
/* An edit: one line read, driven by term_getLine's own wait or by the
   host's loop. Begin takes the terminal (raw mode, signals, the print
   queue) and draws the prompt; false when an edit runs already or memory
   ran out (the status says so). Feed takes what is ready without waiting;
   true once the read is over. End gives everything back. */
bool edit_begin(struct console *c, const char *prompt);
bool edit_feed(struct console *c);
void edit_end(struct console *c);
/* Queues bytes ahead of the terminal's; answers how many fitted. */
size_t input_push(const char *bytes, size_t n);
/* Puts bytes before every byte waiting (a macro's keys); answers how many
   fitted. */
size_t input_unread(const char *bytes, size_t n);
/* Draws what changed since the last render; fresh: the host left the
   cursor at the start of an empty row, where everything is drawn again. */
void edit_redraw(struct console *c, bool fresh);
/* The descriptor that becomes readable when the edit has something to
   feed on; -1 without an edit. */
int edit_fd();
/* Milliseconds until the edit wants feeding without input (an idle period
   for onIdle, a key cut short); -1: none. */
int edit_timeout(const struct console *c);
/* Another session's input, read from fd. */
struct InputState;
InputState *input_new(int fd);
void input_free(InputState *i);
} // namespace qv
#endif
#endif

#endif
