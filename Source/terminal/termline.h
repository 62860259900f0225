/* Cells and rows of the screen model, and the record of the input area
   that holds them. */
#ifndef QUORVEL_TERMLINE_H
#define QUORVEL_TERMLINE_H

#include <stdint.h>
#include <wchar.h>

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Set on a cell of the shown copy that must be redrawn at the next paint. */
#define ATTR_INVALID 0x01000000u
/* The right half of a double-width character: the terminal draws it with
   the left half, so nothing is written for it. */
#define ATTR_WIDE_TAIL 0x02000000u
/* Zero-width characters (combining marks) follow the cell's character in the
   text and are drawn with it; the low 24 bits hold the character's offset in
   the edit buffer. */
#define ATTR_CLUSTER 0x04000000u
/* With ATTR_CLUSTER: the offset is in the prompt, not the edit buffer. */
#define ATTR_IN_PROMPT 0x08000000u
#define ATTR_OFFSET_MASK 0x00FFFFFFu
/* A cell of the history hint after the text, drawn dim. */
#define ATTR_HINT 0x10000000u
/* The row is full and the logical line goes on in the next row. */
#define LINE_WRAPS 0x30u
/* The row continues the logical line of the previous row. */
#define LINE_CONTINUED 0x40u

typedef struct termchar {
    wchar_t ch;
    uint32_t attr;
    uint32_t style; /* colours and attributes: TERM_FG, TERM_BG, TERM_BOLD... */
} termchar;

typedef struct termline {
    uint32_t lflags;
    int cols;       /* width in cells */
    int size;       /* cells allocated */
    termchar *chars;
    int last;       /* cells 0 .. last-1 hold text */
    int firstcol;   /* first editable column (after a prompt) */
} termline;

/* The input area as rows: what the terminal shows and what it should show,
   and where the cursor is and goes. Embedded in the console record. */
typedef struct cursor_pos {
    struct {
        int x; /* column */
        int y; /* model row, 0 = the row the prompt starts on */
    } pos;
} cursor_pos;

typedef struct input_t {
    int numlines;
    int maxlines;
    termline **vbuf;  /* rows as the terminal shows them */
    termline **lines; /* rows as they should be shown */
    cursor_pos cur;   /* where the terminal cursor is */
    cursor_pos newcur; /* where it goes at the next paint */
} input_t;

typedef struct screen_t {
    int rows;
    int cols;
    termchar blank;
    input_t input;
    uint32_t curattr;
    int insert;
} screen_t;

/* A new row of n copies of fill; NULL when memory ran out. */
QV_API termline *termline_new(int n, const termchar *fill);
QV_API void termline_free(termline *line);
/* Every cell becomes fill; last, firstcol and lflags become 0. */
QV_API void termline_erase(termline *line, const termchar *fill);
/* Cells k.. become fill; last = k; lflags = 0; firstcol is kept. */
QV_API void termline_erase_after(termline *line, const termchar *fill, int k);
/* Changes the width to n; new cells are fill. Keeps the row as it was when
   memory runs out. */
QV_API void termline_resize(termline *line, int n, const termchar *fill);
QV_API termchar *termchar_copy(termchar *dst, const termchar *src);
QV_API int termchars_equal(const termchar *a, const termchar *b);
/* a equals (ch, attr) and b's style, ignoring attribute bits 28 to 31. */
QV_API int termchars_equal_override(const termchar *a, const termchar *b, wchar_t ch,
                                    uint32_t attr);
/* The cells a character takes on its own: 2 for a wide character, 0 for a
   combining mark, 2 for a control character (shown as ^X), 4 for a C1
   control (shown as \x9b), 1 otherwise. */
QV_API int char_width(wchar_t ch);

#ifdef __cplusplus
}
#endif

#endif
