/* The Unix terminal driver: terminfo set-up and capabilities, terminal
   modes, cursor motion and drawing, UTF-8 conversion, key input and the
   default key bindings. */
#ifndef QUORVEL_OS_UNIX_H
#define QUORVEL_OS_UNIX_H

#include <termios.h>
#include <wchar.h>

#include "quorvel.h"
#include "keymap.h"
#include "screen.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* Sentinels compared with cached capability strings: UNDEF (all bits set)
   for a name that is not a string capability or no description at all,
   MISSING (0) for a capability the terminal lacks. */
QV_API extern int UNDEF;
QV_API extern int MISSING;
/* "am" with "xenl"; "km". Published for the host. */
QV_API extern int t_auto_right_margin;
QV_API extern int t_has_meta_key;

/* Set-up and modes. */
QV_API void do_init_screen(struct console *c);
QV_API int console_get_mode(struct console *c, struct termios *t);
QV_API void console_set_mode(struct console *c, const struct termios *t);
QV_API void console_set_raw_mode(struct console *c, const struct termios *t);
QV_API int console_get_width(struct console *c);
QV_API int console_get_height(struct console *c);
QV_API int getConsoleType(void *unused);

/* Output. Nothing here flushes standard output. */
QV_API int char_to_terminal(int ch);
QV_API void screen_cursor_move_y(struct console *c, int dy);
QV_API void screen_cursor_move_x(struct console *c, int dx);
QV_API void screen_cursor_backspace(struct console *c, int n);
QV_API void screen_cursor_move_bol(struct console *c);
QV_API void screen_cursor_move_eol(struct console *c);
QV_API void screen_cursor_move_to_col(struct console *c, int column);
QV_API void screen_set_cursor(struct console *c, cursor_pos p);
QV_API void screen_draw_string(struct console *c, int column, const char *s, int *written);
QV_API void screen_draw_wstring(struct console *c, int column, const wchar_t *s, int n,
                                int *written);
QV_API int console_put_wchar(struct console *c, int ch);
QV_API int console_put_wstring(struct console *c, const wchar_t *s, int n);
QV_API int console_put_string(struct console *c, const char *s);
QV_API void console_newline(struct console *c);

/* UTF-8 conversion, whatever the host's locale. New malloc'ed strings, NULL
   for empty or invalid input and when memory runs out. */
QV_API wchar_t *cp2wchar(struct console *c, const char *s, int *count);
QV_API char *wchar2cp(struct console *c, const wchar_t *s, int count);
QV_API void get_os_encoding(struct console *c);
QV_API int file_exists(const char *path);
QV_API void signal_interrupt(struct console *c);

/* Input. */
QV_API void console_read_line(struct console *c, const char *prompt);
QV_API void read_input_noninteractive(struct console *c);
QV_API void console_get_cursor(struct console *c, int *row, int *col);
QV_API void read_input(struct console *c);
QV_API int GetChar(struct console *c);
QV_API action_fn process_keyboard_events(struct console *c, const keymap_entry *map);
QV_API void console_get_char(struct console *c, int unused);

/* The default bindings of the console's active key map. */
QV_API void keymap_set_defaults(struct console *c);

#ifdef __cplusplus
}
#endif

#endif
