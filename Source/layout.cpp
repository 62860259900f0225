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

#include <cstdint>

namespace qv {

namespace {

// wchar_t is signed on x86 and unsigned on ARM: compare its value as unsigned.
bool is_control(wchar_t ch) {
    const auto u = static_cast<uint32_t>(ch);
    return u < 32 || u == 127;
}

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

LineSpan layout_line_at(const LayoutText &t, int cursor) {
    LineSpan l{0, 0, 0, 1, 0};
    for (;;) {
        int o = l.start;
        for (;;) {
            if (l.brk < t.nbreaks && t.breaks[l.brk].offset <= o) {
                // A cursor on a continuation stands at the start of the new line.
                l.end = o;
                l.backslash = t.breaks[l.brk].kind == kBackslashJoin;
                if (cursor < o) return l;
                l = LineSpan{o, o, l.brk + 1, 0, 0};
                break;
            }
            if (o >= t.len) {
                l.end = o;
                return l;
            }
            if (t.text[o] == L'\n') {
                l.end = o;
                if (cursor <= o) return l;
                l = LineSpan{o + 1, o + 1, l.brk, 0, 0};
                break;
            }
            o++;
        }
    }
}

int layout_line_bound(const LayoutText &t, const LineSpan &l) {
    const int lead = l.first ? t.prompt_cells : t.indent;
    return lead + 2 * (l.end - l.start) + 1;
}

int layout_line_cells(const LayoutText &t, const LineSpan &l, int cursor, termchar *cells,
                      int cap, int *cursor_col) {
    LayoutText wide = t;
    wide.cols = cap;
    int col = 0;
    if (l.first) {
        for (; col < t.prompt_cells && col < cap; col++) cells[col] = termchar{t.prompt[col], 0};
    } else {
        for (; col < t.indent && col < cap; col++) cells[col] = termchar{L' ', 0};
    }
    *cursor_col = col;
    for (int o = l.start; o < l.end && col + unit_cells(t, t.text[o]) <= cap; o++) {
        put_unit(wide, t.text[o], cells, col);
        if (o + 1 <= cursor) *cursor_col = col;
    }
    if (l.backslash && col < cap) cells[col++] = termchar{L'\\', 0};
    return col;
}

} // namespace qv
