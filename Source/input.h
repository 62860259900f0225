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

#endif

#endif
