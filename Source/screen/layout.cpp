// The layout of the input area.
//
// A logical line (the prompt or the continuation indent, then the text up to
// a line break) fills rows left to right and goes on at column 0 of the next
// row. A row that becomes exactly full always gets the next row, even when no
// text follows, so the cursor behind the last character has a cell to stand
// in. A line feed in the text ends its line without taking a cell.
//
// Text is laid out in units: an extended grapheme cluster, a character and
// what Unicode draws with it (combining marks, joined emoji, a Hangul
// syllable's jamo, a variation selector), which is one thing to the reader.
// A unit takes the cells the C library's wcwidth gives its first character,
// as terminals draw a character with its marks; a flag (two regional
// indicators) takes two. A wide one that does not fit in a row's last column
// leaves it blank and starts the next row, as terminals do, and no unit is
// ever split across rows. Control characters are shown in
// caret notation (two cells), and C1 controls as \x9b (four), so no raw
// control character ever reaches the terminal; a mark with nothing to
// combine with gets a cell of its own.
#include "layout.h"

#include <cstdint>

#include "text.h"

namespace qv {

namespace {

// The cells of a character that starts a unit.
int lead_cells(wchar_t mask, wchar_t ch) {
    if (mask) return 1;
    wchar_t form[4];
    if (const int n = control_form(ch, form)) return n;
    const int w = display_width(ch);
    return w == 2 ? 2 : 1;
}

// The end of the unit that starts at o, within [o, end). A control
// character, shown in caret notation, is a unit of its own; masked text is
// a mask character per character.
int unit_end(wchar_t mask, const wchar_t *s, int o, int end) { return mask ? o + 1 : cluster_end(s, o, end); }

// The cells of the unit s[o..e).
int unit_cells(wchar_t mask, const wchar_t *s, int o, int e) {
    if (!mask && e > o + 1 && regional_indicator(s[o]) && regional_indicator(s[o + 1])) return 2;
    return lead_cells(mask, s[o]);
}

// Draws the unit of s[o] (ending at e) at col. in_prompt: s is the prompt.
void put_unit(wchar_t mask, const wchar_t *s, int o, int e, bool in_prompt, termchar *cells,
              int &col, int cols) {
    const wchar_t ch = s[o];
    if (mask) {
        cells[col++] = termchar{mask, 0, 0};
    } else if (wchar_t form[4]; const int n = control_form(ch, form)) {
        for (int k = 0; k < n && col < cols; k++) cells[col++] = termchar{form[k], 0, 0};
    } else {
        uint32_t attr = 0;
        // Marks (or a lone mark) are fetched from the text when drawn.
        const bool lone_mark = display_width(ch) == 0;
        if ((e > o + 1 || lone_mark) && static_cast<uint32_t>(o) <= ATTR_OFFSET_MASK)
            attr = ATTR_CLUSTER | (in_prompt ? ATTR_IN_PROMPT : 0u) | static_cast<uint32_t>(o);
        cells[col++] = termchar{ch, attr, 0};
        if (unit_cells(0, s, o, e) == 2 && col < cols) cells[col++] = termchar{0, ATTR_WIDE_TAIL, 0};
    }
}

// Draws the prompt's units into at most limit cells.
int put_prompt(const LayoutText &t, termchar *cells, int limit) {
    int col = 0;
    const wchar_t *p = t.prompt;
    int n = 0;
    while (p && p[n]) n++;
    for (int o = 0; o < n;) {
        const int e = unit_end(0, p, o, n);
        if (col + unit_cells(0, p, o, e) > limit) break;
        const int from = col;
        put_unit(0, p, o, e, true, cells, col, limit);
        if (t.prompt_styles)
            for (int j = from; j < col; j++) cells[j].style = t.prompt_styles[o];
        o = e;
    }
    return col;
}

// A row of what is shown below the input, from o on: up to its line feed,
// cut where it does not fit.
int below_row(const LayoutText &t, int o, termchar *cells, int col, int *last, RowStart *next) {
    const int base = t.len + t.hint_len + 1;
    int k = o - base;
    while (k < t.below_len && t.below[k] != L'\n') {
        const int e = cluster_end(t.below, k, t.below_len);
        const int w = unit_cells(0, t.below, k, e);
        if (col + w > t.cols) break;
        const int from = col;
        put_unit(0, t.below, k, e, false, cells, col, t.cols);
        // Marks are fetched from the rows below, past the text and the hint.
        if (cells[from].attr & ATTR_CLUSTER)
            cells[from].attr = ATTR_CLUSTER | static_cast<uint32_t>(base + k);
        for (int j = from; j < col; j++) cells[j].style = t.below_styles ? t.below_styles[k] : 0;
        k = e;
    }
    while (k < t.below_len && t.below[k] != L'\n') k++;
    *last = col;
    if (k + 1 >= t.below_len) return 0;
    *next = RowStart{base + k + 1, 0, kBelowRow, 0};
    return 1;
}

} // namespace

int layout_unit_end(const wchar_t *s, int o, int end) { return unit_end(0, s, o, end); }

int layout_unit_start(const wchar_t *s, int o) { return cluster_start(s, o); }

int layout_cell_text(const LayoutText &t, const termchar &cell, wchar_t *out, int cap) {
    if (cell.attr & ATTR_WIDE_TAIL) return 0;
    if (cap < 1) return 0;
    if (!(cell.attr & ATTR_CLUSTER)) {
        out[0] = cell.ch;
        return 1;
    }
    const bool in_prompt = (cell.attr & ATTR_IN_PROMPT) != 0;
    const wchar_t *src = in_prompt ? t.prompt : t.text;
    int len = in_prompt ? 0 : t.len;
    if (in_prompt)
        while (src && src[len]) len++;
    int o = static_cast<int>(cell.attr & ATTR_OFFSET_MASK);
    if (!in_prompt && o > t.len + t.hint_len) {
        o -= t.len + t.hint_len + 1;
        src = t.below;
        len = t.below_len;
    }
    if (!src || o >= len || src[o] != cell.ch) {
        out[0] = cell.ch;
        return 1;
    }
    int n = 0;
    if (display_width(src[o]) == 0) out[n++] = L' '; // a lone mark combines with a blank
    for (int e = unit_end(0, src, o, len), k = o; k < e && n < cap; k++) out[n++] = src[k];
    return n;
}

int prompt_cells(const wchar_t *prompt, int cols) {
    int n = 0;
    while (prompt && prompt[n]) n++;
    int total = 0;
    for (int o = 0; o < n;) {
        const int e = unit_end(0, prompt, o, n);
        total += unit_cells(0, prompt, o, e);
        o = e;
    }
    if (total <= cols) return total;
    // Too wide: cut one column short of the width, never inside a unit.
    const int limit = cols > 0 ? cols - 1 : 0;
    int col = 0;
    for (int o = 0; o < n;) {
        const int e = unit_end(0, prompt, o, n);
        const int w = unit_cells(0, prompt, o, e);
        if (col + w > limit) break;
        col += w;
        o = e;
    }
    return col;
}

namespace {

int text_row(const LayoutText &t, const RowStart &s, termchar *cells, int *last, RowStart *next);

} // namespace

// The first row takes the right prompt at its end while a blank cell still
// parts it from the input; a row the input fills, or wraps, has none.
int layout_row(const LayoutText &t, const RowStart &s, termchar *cells, int *last, RowStart *next) {
    const int more = text_row(t, s, cells, last, next);
    if (s.kind != kFirstRow || !t.right || t.right_cells <= 0 || (more && next->kind == kWrapRow)) return more;
    const int at = t.cols - t.right_cells;
    if (*last + 1 > at) return more;
    int col = at, n = 0;
    while (t.right[n]) n++;
    for (int o = 0; o < n && col < t.cols;) {
        const int e = unit_end(0, t.right, o, n);
        const int from = col;
        put_unit(0, t.right, o, e, false, cells, col, t.cols);
        for (int j = from; j < col; j++) {
            cells[j].attr &= ATTR_WIDE_TAIL; // marks are not fetched from the text
            cells[j].style = t.right_styles ? t.right_styles[o] : 0;
        }
        o = e;
    }
    return more;
}

namespace {

int text_row(const LayoutText &t, const RowStart &s, termchar *cells, int *last, RowStart *next) {
    for (int j = 0; j < t.cols; j++) cells[j] = termchar{L' ', 0, 0};
    int col = 0;
    if (s.kind == kFirstRow) {
        col = put_prompt(t, cells, t.prompt_cells < t.cols ? t.prompt_cells : t.cols);
        // A prompt cut short of a wide unit keeps the cells it was given.
        col = t.prompt_cells < t.cols ? t.prompt_cells : t.cols;
    } else if (s.kind == kLineRow) {
        col = t.indent < t.cols ? t.indent : t.cols;
    }
    int o = s.offset, brk = s.brk, deco = s.deco;
    auto wrap = [&](int at) {
        *last = col;
        *next = RowStart{at, brk, kWrapRow, deco};
        return 1;
    };
    if (s.kind == kBelowRow) return below_row(t, o, cells, 0, last, next);
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
            if (o >= t.len + t.hint_len) {
                *last = col;
                if (t.below_len <= 0) return 0;
                *next = RowStart{t.len + t.hint_len + 1, brk, kBelowRow, 0};
                return 1;
            }
            // The hint goes on where the text ends, in units of its own.
            const int h = o - t.len;
            const int e = unit_end(0, t.hint, h, t.hint_len);
            if (col + unit_cells(0, t.hint, h, e) > t.cols && col > 0) return wrap(o);
            const int from = col;
            put_unit(0, t.hint, h, e, false, cells, col, t.cols);
            for (int j = from; j < col; j++) {
                cells[j].attr = (cells[j].attr & ATTR_WIDE_TAIL) | ATTR_HINT;
                cells[j].style = t.hint_style;
            }
            o = t.len + e;
            if (col >= t.cols) return wrap(o);
            continue;
        }
        const wchar_t ch = t.text[o];
        if (ch == L'\n') {
            *last = col;
            *next = RowStart{o + 1, brk, kLineRow, 0};
            return 1;
        }
        // A unit that does not fit starts the next row; a row too narrow for
        // it at all shows what fits rather than never ending.
        const int stop = brk < t.nbreaks && t.breaks[brk].offset < t.len ? t.breaks[brk].offset : t.len;
        const int e = unit_end(t.mask, t.text, o, stop);
        if (col + unit_cells(t.mask, t.text, o, e) > t.cols && col > 0) return wrap(o);
        const int from = col;
        put_unit(t.mask, t.text, o, e, false, cells, col, t.cols);
        if (t.text_styles)
            for (int j = from; j < col; j++) cells[j].style = t.text_styles[o];
        o = e;
        if (col >= t.cols) return wrap(o);
    }
}

} // namespace

int layout_cursor_column(const LayoutText &t, const RowStart &s, int cursor) {
    int col = 0;
    if (s.kind == kFirstRow)
        col = t.prompt_cells;
    else if (s.kind == kLineRow)
        col = t.indent;
    // A unit the cursor stands inside counts whole: the cursor goes after it.
    int brk = s.brk;
    for (int o = s.offset; o < cursor && o < t.len;) {
        if (t.text[o] == L'\n') break;
        while (brk < t.nbreaks && t.breaks[brk].offset <= o) brk++;
        const int stop = brk < t.nbreaks && t.breaks[brk].offset < t.len ? t.breaks[brk].offset : t.len;
        const int e = unit_end(t.mask, t.text, o, stop);
        col += unit_cells(t.mask, t.text, o, e);
        o = e;
    }
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
    return lead + 4 * (l.end - l.start) + 1; // a C1 control takes the most cells
}

int layout_line_cells(const LayoutText &t, const LineSpan &l, int cursor, termchar *cells,
                      int cap, int *cursor_col) {
    int col = 0;
    if (l.first) {
        col = put_prompt(t, cells, t.prompt_cells < cap ? t.prompt_cells : cap);
    } else {
        for (; col < t.indent && col < cap; col++) cells[col] = termchar{L' ', 0, 0};
    }
    *cursor_col = col;
    for (int o = l.start; o < l.end;) {
        const int e = unit_end(t.mask, t.text, o, l.end);
        if (col + unit_cells(t.mask, t.text, o, e) > cap) break;
        put_unit(t.mask, t.text, o, e, false, cells, col, cap);
        if (o < cursor) *cursor_col = col;
        o = e;
    }
    if (l.backslash && col < cap) cells[col++] = termchar{L'\\', 0, 0};
    return col;
}

} // namespace qv
