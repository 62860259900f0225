// The layout of the input area.
//
// A logical line (the prompt or the continuation indent, then the text up to
// a line break) fills rows left to right and goes on at column 0 of the next
// row. A row that becomes exactly full always gets the next row, even when no
// text follows, so the cursor behind the last character has a cell to stand
// in: a line of L cells takes L / cols + 1 rows. A line feed in the text ends
// its line without taking a cell. Control characters are shown in caret
// notation (two cells), so no raw control byte ever reaches the terminal.
#include "layout.h"

namespace qv {

namespace {

bool is_control(wchar_t ch) { return (ch >= 0 && ch < 32) || ch == 127; }

// The cells a character takes.
int unit_cells(const LayoutText &t, wchar_t ch) {
    if (t.mask) return 1;
    return is_control(ch) ? 2 : 1;
}

void put_unit(const LayoutText &t, wchar_t ch, termchar *cells, int &col) {
    if (t.mask) {
        cells[col++].ch = t.mask;
    } else if (is_control(ch)) {
        cells[col++].ch = L'^';
        if (col < t.cols) cells[col++].ch = ch ^ 0x40;
    } else {
        cells[col++].ch = ch;
    }
}

} // namespace

int prompt_cells(const wchar_t *prompt, int cols) {
    int n = 0;
    while (prompt && prompt[n]) n++;
    return n > cols ? (cols > 0 ? cols - 1 : 0) : n;
}

int layout_row(const LayoutText &t, const RowStart &s, termchar *cells, int *last,
               RowStart *next) {
    for (int j = 0; j < t.cols; j++) cells[j] = termchar{L' ', 0};
    int col = 0;
    if (s.kind == kFirstRow) {
        for (; col < t.prompt_cells && col < t.cols; col++) cells[col].ch = t.prompt[col];
    } else if (s.kind == kLineRow) {
        col = t.indent < t.cols ? t.indent : t.cols;
    }
    int o = s.offset, brk = s.brk, deco = s.deco;
    auto wrap = [&](int at) {
        *last = col;
        *next = RowStart{at, brk, kWrapRow, deco};
        return 1;
    };
    if (col >= t.cols && t.cols > 0) return wrap(o);
    for (;;) {
        if (brk < t.nbreaks && t.breaks[brk].offset <= o) {
            if (t.breaks[brk].kind == kBackslashJoin && !deco) {
                cells[col++].ch = L'\\';
                deco = 1;
                if (col >= t.cols) return wrap(o);
            }
            *last = col;
            *next = RowStart{o, brk + 1, kLineRow, 0};
            return 1;
        }
        if (o >= t.len) {
            *last = col;
            return 0;
        }
        const wchar_t ch = t.text[o];
        if (ch == L'\n') {
            *last = col;
            *next = RowStart{o + 1, brk, kLineRow, 0};
            return 1;
        }
        // A unit that does not fit starts the next row; a row too narrow for
        // it at all shows what fits rather than never ending.
        if (col + unit_cells(t, ch) > t.cols && col > 0) return wrap(o);
        put_unit(t, ch, cells, col);
        o++;
        if (col >= t.cols) return wrap(o);
    }
}

int layout_cursor_column(const LayoutText &t, const RowStart &s, int cursor) {
    int col = 0;
    if (s.kind == kFirstRow)
        col = t.prompt_cells;
    else if (s.kind == kLineRow)
        col = t.indent;
    for (int o = s.offset; o < cursor && o < t.len; o++)
        if (t.text[o] != L'\n') col += unit_cells(t, t.text[o]);
    return col < t.cols ? col : (t.cols > 0 ? t.cols - 1 : 0);
}

} // namespace qv
