/* Terminal output: the terminfo set-up and capability cache, cursor motion,
   drawing and character output. Nothing here flushes standard output: the
   painter flushes once per paint. */
#ifndef QUORVEL_OUTPUT_H
#define QUORVEL_OUTPUT_H

#include <stdio.h>
#include <wchar.h>

#include "quorvel.h"
#include "termline.h"

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

QV_API int console_get_width(struct console *c);
QV_API int console_get_height(struct console *c);
QV_API int getConsoleType(void *unused);

QV_API int char_to_terminal(int ch);
QV_API void screen_cursor_move_y(struct console *c, int dy);
QV_API void screen_cursor_move_x(struct console *c, int dx);
QV_API void screen_cursor_backspace(struct console *c, int n);
QV_API void screen_cursor_move_bol(struct console *c);
QV_API void screen_cursor_move_to_col(struct console *c, int column);
QV_API void screen_set_cursor(struct console *c, cursor_pos p);
QV_API int console_put_wchar(struct console *c, int ch);
QV_API int console_put_wstring(struct console *c, const wchar_t *s, int n);
QV_API int console_put_string(struct console *c, const char *s);
QV_API void console_newline(struct console *c);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
// A session's terminal: where its output goes (a null stream: standard
// output) and its type (null: $TERM, as the session keeps it).
struct OutputState;
OutputState *output_new(FILE *stream, int fd, const char *type);
void output_free(OutputState *o);
// The stream the calling thread's session writes to.
FILE *terminal_stream();
// A size the host gives, for a terminal the kernel knows none of (0: the
// kernel's again).
void terminal_set_size(int rows, int cols);
// "am" with "xenl": a full row flows into the next.
bool rows_flow();
// Loads the session's terminal description, its capabilities and its size.
// Never changes the terminal's mode.
void terminal_setup(int *rows, int *cols);
// The key string the terminal's description gives for a capability such as
// "kcuu1", or NULL when it has none.
const char *terminal_key(const char *name);
// The terminal can move the cursor up, left and to a column, as the painter
// of several rows needs.
bool terminal_can_paint();
// Whether the cursor stands at the start of a row a line feed reached (a
// read's end, a printed line, or the shell's before the library's first
// output) with nothing written since: such a row is taken to be blank, as
// line editors take it. Any other output through the library ends it.
bool terminal_row_fresh();
void terminal_row_used();
// The window's size as the kernel has it now; false when it has none.
bool terminal_size(int *rows, int *cols);
// Clears from the cursor to the end of the screen, or of the line; false
// when the terminal cannot.
bool clear_to_end_of_screen();
bool clear_to_end_of_line();
bool can_clear_to_end_of_line();
// The terminal rewraps its rows when the window narrows (tmux, VTE, kitty,
// iTerm2, ...): known from the environment these terminals set.
bool terminal_reflows();
// Turns the terminal's bracketed paste on or off, when its description has
// the four extended capabilities it takes (BE, BD, PS, PE); false when not.
bool paste_bracketing(bool on);
// Takes the terminal's pen from style from to style to with the fewest
// changes its capabilities allow: attributes are only added, or all reset
// first. Answers the style the pen then has (what the terminal could show).
uint32_t terminal_style(uint32_t from, uint32_t to);
// Moves the cursor from column from (unknown unless from_known: the column
// after a wrap waits, say) to column to on its row, the cheapest way the
// terminal offers: a column address, a relative move, or a carriage return.
void cursor_to_column(struct console *c, int from, int to, bool from_known);
// Opens n blank cells at the cursor, the rest of the row moving right and
// off its end; deletes n cells there, the rest moving left and blanks coming
// in at the end. False (and nothing written) when the terminal cannot.
bool insert_cells(int n);
bool delete_cells(int n);
// Clears the screen, the cursor at its top left; false when the terminal
// cannot.
bool erase_screen();
// Sets the cursor's shape through the terminal's Ss capability (2: a block,
// 6: a bar, as DECSCUSR numbers them), or with 0 gives it back (Se); writes
// nothing when it is already so, or when the terminal cannot.
void cursor_shape(int shape);
} // namespace qv
#endif
#endif

#endif
