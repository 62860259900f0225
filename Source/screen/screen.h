/* The two-copy model of the input area (what should be shown, what is shown)
   and the painter that writes the difference. */
#ifndef QUORVEL_SCREEN_H
#define QUORVEL_SCREEN_H

#include <stdint.h>
#include <wchar.h>

#include "quorvel.h"
#include "termline.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;


/* Rows must be changed through these operations: the painter only compares
   the rows they report as touched since the last paint. The library's own
   reads draw from the edit buffer and do not use the row operations. */
QV_API void screen_buffer_initialize(struct console *c);
QV_API void screen_buffer_reset(struct console *c);
QV_API void screen_buffer_clear(struct console *c);
QV_API void screen_buffer_add_line(struct console *c, int n);
QV_API void screen_buffer_delete(struct console *c);
QV_API void input_replace(struct console *c, const wchar_t *text, uint32_t n);
QV_API void input_clear_from_cursor(struct console *c);
QV_API void cursor_reset(struct console *c);
QV_API void cursor_save(struct console *c, cursor_pos *p);
QV_API void cursor_update(struct console *c, cursor_pos p);
QV_API int cursor_move_left(struct console *c);
QV_API int cursor_move_right(struct console *c);
QV_API void termchar_insert(struct console *c, wchar_t ch);
QV_API void termchar_delete_1(struct console *c, termline *line, int x, termchar *removed);
QV_API void termchar_delete_before(struct console *c);
QV_API void termchar_delete_at(struct console *c);
QV_API void screen_put_prompt(struct console *c, const wchar_t *text, int n);
QV_API void screen_put_blanks(struct console *c, int n);
QV_API void screen_put_wstring(struct console *c, const wchar_t *text, int n);
QV_API void screen_put_char(struct console *c, wchar_t ch);
QV_API void screen_cursor_move_00(struct console *c);
QV_API void screen_cursor_move_home(struct console *c);
QV_API void screen_cursor_move_end(struct console *c);

/* Painting. */
QV_API void repaint(struct console *c, int immediate);
/* Drawing at a column of the cursor's row, the cursor going back where the
   model has it; the end of the row. */
QV_API void screen_draw_string(struct console *c, int column, const char *s, int *written);
QV_API void screen_draw_wstring(struct console *c, int column, const wchar_t *s, int n,
                                int *written);
QV_API void screen_cursor_move_eol(struct console *c);
QV_API void invalidate_line(struct console *c, termline *line);
QV_API void invalidate_rectangle(struct console *c, unsigned left, unsigned top, unsigned right,
                                 unsigned bottom);
QV_API void insert_termline(struct console *c, int unused);
QV_API void delete_termline(struct console *c, int unused);

#ifdef __cplusplus
}

#endif

#endif
