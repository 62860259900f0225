/* The layout of the input area: prompt and text in, rows of cells out. Pure
   functions of their arguments, so the screen can always be rebuilt from the
   edit buffer. Library-internal. */
#ifndef QUORVEL_LAYOUT_H
#define QUORVEL_LAYOUT_H

#include <wchar.h>

#include "editor.h"
#include "termline.h"

#ifdef __cplusplus
namespace qv {

enum RowKind : int {
    kFirstRow = 0, // starts with the prompt
    kWrapRow = 1,  // continues the row above
    kLineRow = 2,  // starts a continuation line with the blank indent
    kBelowRow = 3, // a row of what is shown below the input (a listing)
};

// Where a row starts: everything needed to lay out the rows from it on.
struct RowStart {
    int offset; // first text character of the row
    int brk;    // the next break to honour
    int kind;
    int deco;   // the backslash of break brk has been drawn
};

struct LayoutText {
    const wchar_t *prompt;
    int prompt_cells; // already cut to fit the row
    int indent;       // width of the continuation prompt
    const wchar_t *text;
    int len;
    const TextBreak *breaks;
    int nbreaks;
    wchar_t mask; // 0: show the text itself
    int cols;
    const wchar_t *hint; // drawn dim after the text; no part of it
    int hint_len;
    const uint32_t *prompt_styles; // a style for each prompt character, or NULL
    const uint32_t *text_styles;   // a style for each text character, or NULL
    uint32_t hint_style;
    // Rows below the input, a line feed ending each; a row too wide is cut.
    // Their rows start past every offset the cursor can have: at
    // len + hint_len + 1 + the index of their first character.
    const wchar_t *below;
    int below_len;
    const uint32_t *below_styles;
    // The right prompt, at the end of the first row; NULL for none.
    const wchar_t *right;
    int right_cells;
    const uint32_t *right_styles;
};

// Cells of the prompt actually shown: a prompt wider than the terminal is cut
// one column short of the width.
int prompt_cells(const wchar_t *prompt, int cols);

// Lays out one row from s into cols cells. *last receives the cells in use
// (prompt and indent included). Answers 1 and fills *next when another row
// follows, 0 for the last row of the input.
int layout_row(const LayoutText &t, const RowStart &s, termchar *cells, int *last,
               RowStart *next);

// The column of the cursor at text offset cursor, on the row that starts at s.
int layout_cursor_column(const LayoutText &t, const RowStart &s, int cursor);

// The end of the unit that starts at s[o]: the character and the zero-width
// characters after it that are drawn into its cell, up to end.
int layout_unit_end(const wchar_t *s, int o, int end);
// The start of the unit that holds s[o - 1], for o > 0.
int layout_unit_start(const wchar_t *s, int o);

// The characters that draw a laid-out cell, into out (room for cap): none for
// a wide character's right half, the character and its marks for a cluster
// (a lone mark on a blank). Answers how many there are.
int layout_cell_text(const LayoutText &t, const termchar &cell, wchar_t *out, int cap);

// A logical line: the prompt or the indent, then the text from start up to
// end, where a line feed or a continuation ends it.
struct LineSpan {
    int start;
    int end;
    int brk;       // the break to honour from start on
    int first;     // the line that starts with the prompt
    int backslash; // ends in a backslash join, whose backslash stays drawn
};

// The logical line the cursor at text offset cursor stands in.
LineSpan layout_line_at(const LayoutText &t, int cursor);

// Lays out line l unbroken, as one row as wide as it needs, into cells
// (room for cap). Answers the cells in use; *cursor_col receives the column
// of text offset cursor.
int layout_line_cells(const LayoutText &t, const LineSpan &l, int cursor, termchar *cells,
                      int cap, int *cursor_col);

// The most cells line l can take.
int layout_line_bound(const LayoutText &t, const LineSpan &l);

} // namespace qv
#endif

#endif
