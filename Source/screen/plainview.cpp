// The one-row painter.
//
// The row is compared with what the terminal shows, and only the tail from
// the first difference is written again: typing at the end writes just the
// character, and a backspace there writes backspace, space, backspace. The
// last column is never written, so no terminal's automatic margin can move
// the cursor to a row the painter does not know about.
#include "plainview.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "console_record.h"
#include "layout.h"
#include "output.h"
#include "view.h"

struct qv::PlainState {
    bool on;
    termchar *shown; // what the row shows, from column 0
    int nshown;
    int capshown;
    int shown_cur; // the terminal cursor's column on it
    int scroll;    // the line's cell shown in column 0
};

namespace {

bool reserve(qv::PlainState *st, int n) {
    if (n <= st->capshown) return true;
    auto *grown = static_cast<termchar *>(realloc(st->shown, sizeof(termchar) * static_cast<size_t>(n)));
    if (!grown) return false;
    st->shown = grown;
    st->capshown = n;
    return true;
}

bool is_tail(const termchar &t) { return (t.attr & ATTR_WIDE_TAIL) != 0; }

// Output collected for one paint and sent at once.
class Out {
  public:
    Out(console *c, const qv::LayoutText &t) : c_(c), t_(t) {}
    ~Out() { flush(); }
    Out(const Out &) = delete;
    Out &operator=(const Out &) = delete;
    void put(wchar_t ch) {
        if (n_ == kSize) flush();
        buf_[n_++] = ch;
    }
    // A cell as the terminal draws it: a wide character covers its right
    // half, a cluster brings its marks.
    void cell(const termchar &cell) {
        wchar_t chars[64];
        const int n = qv::layout_cell_text(t_, cell, chars, 64);
        for (int k = 0; k < n; k++) put(chars[k]);
    }
    void flush() {
        if (n_ > 0) console_put_wstring(c_, buf_, n_);
        n_ = 0;
    }

  private:
    static constexpr int kSize = 256;
    console *c_;
    const qv::LayoutText &t_;
    wchar_t buf_[kSize];
    int n_ = 0;
};

} // namespace

namespace qv {

PlainState *plain_new(bool on) {
    auto *p = static_cast<PlainState *>(calloc(1, sizeof(PlainState)));
    if (p) p->on = on;
    return p;
}

void plain_free(PlainState *p) {
    if (!p) return;
    free(p->shown);
    free(p);
}

bool plain_active(const console *c) { return c->state && c->state->plain && c->state->plain->on; }

void plain_start(console *c) {
    PlainState *st = c->state->plain;
    st->nshown = st->shown_cur = st->scroll = 0;
}

void plain_refresh(console *c) {
    PlainState *st = c->state->plain;
    if (!c->editor.buffer) return;
    const LayoutText t = layout_text(c, 1 << 20); // the prompt scrolls, never cut
    const int cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    const LineSpan line = layout_line_at(t, cursor);
    const int bound = layout_line_bound(t, line);
    std::unique_ptr<termchar, decltype(&free)> cells(
        static_cast<termchar *>(calloc(static_cast<size_t>(bound), sizeof(termchar))), &free);
    if (!cells) return; // nothing written: the next paint compares again
    int cursor_col = 0;
    const int n = layout_line_cells(t, line, cursor, cells.get(), bound, &cursor_col);

    // The window moves in steps of half its width, so typing on does not
    // scroll at every key; and it depends on the cursor alone, so a burst of
    // keys shows what the same keys one by one show.
    const int width = c->screen.cols > 1 ? c->screen.cols - 1 : 1;
    const int half = width > 1 ? width / 2 : 1;
    st->scroll = cursor_col < width ? 0 : ((cursor_col - width) / half + 1) * half;
    const int view = n - st->scroll < width ? n - st->scroll : width;
    if (!reserve(st, view > st->nshown ? view : st->nshown)) return;
    termchar *want = cells.get() + st->scroll;
    // Half a wide character at either edge of the window shows as a blank.
    if (view > 0 && is_tail(want[0])) want[0] = termchar{L' ', 0, 0};
    if (view > 0 && view < n - st->scroll && is_tail(want[view])) want[view - 1] = termchar{L' ', 0, 0};

    // Clusters are always written again: their marks are not in the cell.
    const termchar *old = st->shown;
    int d = 0;
    while (d < view && d < st->nshown && old[d].ch == want[d].ch && old[d].attr == want[d].attr &&
           !(want[d].attr & ATTR_CLUSTER))
        d++;
    if (d > 0 && d < view && is_tail(want[d])) d--;
    Out out(c, t);
    int at = st->shown_cur;
    // Right by writing what the cells hold, left by backspaces.
    auto move_to = [&](int col, const termchar *row) {
        for (; at > col; at--) out.put(L'\b');
        for (; at < col; at++) out.cell(row[at]);
    };
    if (d < view || d < st->nshown) {
        move_to(d, old); // d never passes the old text, so the old cells lead there
        for (int j = d; j < view; j++, at++) {
            out.cell(want[j]);
            st->shown[j] = want[j];
        }
        for (; at < st->nshown; at++) out.put(L' ');
        st->nshown = view;
    }
    move_to(cursor_col - st->scroll, st->shown);
    st->shown_cur = at;
    out.flush();
    fflush(qv::terminal_stream());
}

} // namespace qv
