/* The wide-character edit buffer of the line being read, and the encoding of
   the finished line for the host. */
#ifndef QUORVEL_EDITOR_H
#define QUORVEL_EDITOR_H

#include <stdint.h>
#include <wchar.h>

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* All five point into one block; distances count wide characters. */
typedef struct editor_t {
    wchar_t *buffer;   /* start of storage and text; NULL without storage */
    wchar_t *cursor;   /* insertion point */
    wchar_t *lastchar; /* one past the last character */
    wchar_t *limit;    /* one past the storage */
    wchar_t *editable; /* start of the current continuation line */
} editor_t;

/* A fresh, empty edit buffer for the console (the old one released); 0 when
   memory ran out. */
QV_API int console_init_editor(struct console *c);
QV_API void console_free_editor(struct console *c);

/* Growth may move the storage: re-read the editor fields after any call that
   can grow it. On allocation failure the storage is released, the console's
   status becomes ST_NOMEMORY with error 1, and the call answers 0. */
QV_API uint32_t buffer_resize(struct console *c, uint32_t n);
QV_API uint32_t shift_buffer(struct console *c, int32_t delta);
QV_API uint32_t buffer_insert_bytes(struct console *c, const wchar_t *chars, uint32_t n);
QV_API uint32_t buffer_insert_string(struct console *c, const wchar_t *chars, uint32_t n);
QV_API uint32_t buffer_insert_char(struct console *c, wchar_t ch);
QV_API void buffer_delete_before(struct console *c, uint32_t n);
QV_API void buffer_delete_after(struct console *c, uint32_t n);
QV_API void buffer_clear(struct console *c);
QV_API void buffer_replace(struct console *c, const wchar_t *chars, uint32_t n);
QV_API uint32_t buffer_cursor_move_left(struct console *c, uint32_t n);
QV_API uint32_t buffer_cursor_move_right(struct console *c, uint32_t n);
/* To the start of the editable part, never past the end of the text. */
QV_API void buffer_cursor_move_home(struct console *c);
QV_API void buffer_cursor_move_end(struct console *c);
QV_API void buffer_reset_editable_offset(struct console *c);
/* The character before the cursor; 0 at the start of the buffer. */
QV_API wchar_t buffer_peek_before_cursor(struct console *c);
/* 1 for a byte 0..127 that the locale counts as printable. */
QV_API int printable_char(int ch);

/* The text from buffer to lastchar as 7-bit ASCII, characters above 127 as
   "\:XXXX". A new malloc'ed string, or NULL when memory ran out. */
QV_API char *encode_input(struct console *c);
QV_API char hexchar(short v);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {

// A continuation line that starts without a line break character in the
// text: the host declined to keep the line break. A backslash join still
// shows the backslash the user typed at the end of the earlier line, although
// the text no longer holds it.
enum BreakKind : int { kJoin = 0, kBackslashJoin = 1 };

struct TextBreak {
    int offset; // the continuation line starts before this character
    int kind;
};

/* What the edit buffer keeps besides the text: where continuation lines
   start without a line feed, the lowest offset changed since the view last
   asked, and the one listener told of every change. */
struct EditState;
EditState *edit_state_new();
void edit_state_free(EditState *e);

/* Called after characters were put in at pos (removed NULL), or before
   n characters at pos, removed, are taken out. */
using ChangeHook = void (*)(struct console *c, int pos, const wchar_t *removed, int n);
void buffer_set_change_hook(struct console *c, ChangeHook hook);

/* The start of the line the cursor is on, as the user sees it: after the last
   line feed or continuation before the cursor. */
int buffer_line_start(struct console *c);
/* Starts a continuation line at the end of the text without a line feed. */
int buffer_add_break(struct console *c, int kind);
/* Drops the text from the cursor to the end, continuation lines included. */
void buffer_kill_to_end(struct console *c);
/* The continuation breaks, in ascending order; good until the next edit. */
const TextBreak *buffer_breaks(const struct console *c, int *n);
/* Puts back breaks saved from an earlier text of the same lines. */
void buffer_set_breaks(struct console *c, const TextBreak *breaks, int n);
/* The text is new: no breaks, and all of it changed. */
void buffer_forget_breaks(struct console *c);
/* The lowest offset changed since the last call (INT_MAX: none). */
int buffer_take_changed(struct console *c);

} // namespace qv
#endif
#endif

#endif
