// The view: the state laid out into the model's rows.
#include "view.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <utility>

#include "console_record.h"
#include "highlight.h"
#include "below.h"
#include "sgr.h"
#include "text.h"
#include "hints.h"
#include "model.h"

struct qv::ViewState {
    // Where each row of the last layout starts.
    RowStart *rows;
    int nrows, caprows;
    // The lowest text offset changed since the last layout; INT_MAX: none.
    int dirty_from;
    // What the last layout drew besides the text, to notice a change.
    wchar_t *prompt;
    int prompt_len, prompt_cap;
    unsigned hint_version, below_version;
    bool finished; // the input is left: no brace match, for the scrollback's copy
    // The host's transient prompt, and whether the finished input shows it
    // (with the continuation rows' indent of the read's own prompt).
    wchar_t *transient;
    uint32_t *transient_styles;
    bool transient_shown;
    // The host's right prompt, and whether a finished input keeps it.
    wchar_t *right;
    uint32_t *right_styles;
    bool right_kept;
    unsigned long rows_laid_out;
    // The style of each text character, while anything styles the input.
    uint32_t *styles;
    size_t capstyles;
    int nstyles;
    bool styled;
    // The highlighter's own styles for the nhost characters it last saw, the
    // lowest text offset changed since, and which highlighter that was.
    uint32_t *host;
    size_t caphost;
    int nhost;
    int text_from;
    unsigned generation;
    uint32_t *next_styles; // the styles being made, swapped with styles
    size_t capnext;
    qv::HighlightScratch scratch;
};

qv::ViewState *qv::view_new() { return static_cast<ViewState *>(calloc(1, sizeof(ViewState))); }

void qv::view_free(ViewState *v) {
    if (!v) return;
    free(v->rows);
    free(v->prompt);
    free(v->transient);
    free(v->transient_styles);
    free(v->right);
    free(v->right_styles);
    free(v->styles);
    free(v->host);
    free(v->next_styles);
    free(v->scratch.utf8);
    free(v->scratch.starts);
    free(v);
}

qv::LayoutText qv::layout_text(const console *c, int cols) {
    LayoutText t{};
    const qv::ViewState *vs = c->state ? c->state->view : nullptr;
    const bool transient = vs && vs->transient_shown && vs->transient;
    t.prompt = transient ? vs->transient : c->prompt;
    t.cols = cols;
    t.prompt_cells = prompt_cells(t.prompt, cols);
    t.indent = transient ? prompt_cells(c->prompt, cols) : t.prompt_cells;
    t.text = c->editor.buffer;
    t.len = c->editor.buffer ? static_cast<int>(c->editor.lastchar - c->editor.buffer) : 0;
    t.breaks = buffer_breaks(c, &t.nbreaks);
    t.mask = c->masked ? static_cast<wchar_t>(static_cast<unsigned char>(c->maskchar)) : 0;
    t.hint = hint_text(c, &t.hint_len, nullptr);
    t.hint_style = qv::look(TERM_LOOK_HINT);
    t.below = qv::below_text(c, &t.below_len, &t.below_styles, nullptr);
    if (vs && vs->right && (!vs->finished || vs->right_kept)) {
        t.right = vs->right;
        t.right_cells = prompt_cells(vs->right, cols + 1);
        t.right_styles = vs->right_styles;
    }
    t.prompt_styles = transient                                      ? vs->transient_styles
                      : c->prompt && c->prompt == c->styled_prompt ? c->prompt_styles
                                                                   : nullptr;
    const qv::ViewState *v = c->state ? c->state->view : nullptr;
    t.text_styles = v && v->styled && v->nstyles == t.len ? v->styles : nullptr;
    return t;
}

namespace {

qv::LayoutText text_of(const console *c) { return qv::layout_text(c, c->screen.cols); }

// Gathers what changed since the last layout: the text (the edit buffer
// says from where), the prompt (a search puts its own), the hint (after the
// text).
void take_changes(console *c) {
    qv::ViewState *v = c->state->view;
    const int changed = qv::buffer_take_changed(c);
    if (changed < v->dirty_from) v->dirty_from = changed;
    if (changed < v->text_from) v->text_from = changed;
    const wchar_t *prompt = v->transient_shown && v->transient ? v->transient : c->prompt ? c->prompt : L"";
    const int plen = static_cast<int>(wcslen(prompt));
    if (plen != v->prompt_len || wmemcmp(prompt, v->prompt ? v->prompt : L"", static_cast<size_t>(plen)) != 0) {
        v->dirty_from = 0;
        if (plen > v->prompt_cap) {
            auto *grown = static_cast<wchar_t *>(realloc(v->prompt, sizeof(wchar_t) * static_cast<size_t>(plen)));
            if (grown) {
                v->prompt = grown;
                v->prompt_cap = plen;
            }
        }
        // Without room for the copy the next layout starts from the top again.
        v->prompt_len = plen <= v->prompt_cap ? plen : -1;
        if (v->prompt_len > 0) wmemcpy(v->prompt, prompt, static_cast<size_t>(plen));
    }
    int hint_len = 0;
    unsigned version = 0;
    qv::hint_text(c, &hint_len, &version);
    int below_len = 0;
    unsigned below_version = 0;
    qv::below_text(c, &below_len, nullptr, &below_version);
    if (version != v->hint_version || below_version != v->below_version) {
        v->hint_version = version;
        v->below_version = below_version;
        const int end = c->editor.buffer ? static_cast<int>(c->editor.lastchar - c->editor.buffer) : 0;
        if (end < v->dirty_from) v->dirty_from = end;
    }
}

// The first of n places where a and b differ; n when none. Compared a block
// at a time, since typing changes the styles near the end if at all.
int first_difference(const uint32_t *a, const uint32_t *b, int n) {
    constexpr int kBlock = 64;
    int i = 0;
    while (i + kBlock <= n && memcmp(a + i, b + i, sizeof(uint32_t) * kBlock) == 0) i += kBlock;
    while (i < n && a[i] == b[i]) i++;
    return i;
}

// The styles the highlighter and brace matching give the text now; the text
// is laid out again from the first character whose style changed.
void take_styles(console *c) {
    qv::ViewState *v = c->state->view;
    const int len = c->editor.buffer ? static_cast<int>(c->editor.lastchar - c->editor.buffer) : 0;
    if (!qv::highlight_active() || c->masked) {
        if (v->styled && v->dirty_from > 0) v->dirty_from = 0;
        v->styled = false;
        v->nhost = 0;
        return;
    }
    const size_t need = static_cast<size_t>(len) + 1;
    if (!qv::reserve(v->host, v->caphost, need) || !qv::reserve(v->next_styles, v->capnext, need)) return;
    const unsigned generation = qv::highlighter_generation();
    int kept = v->text_from < v->nhost ? v->text_from : v->nhost;
    if (generation != v->generation) kept = 0;
    // A finished input shows nothing that only the cursor's place justified.
    const int cursor = v->finished ? -1 : static_cast<int>(c->editor.cursor - c->editor.buffer);
    if (!qv::highlight_styles(c->editor.buffer, len, cursor, kept, v->scratch, v->host, v->next_styles)) return;
    v->nhost = len;
    v->text_from = INT_MAX;
    v->generation = generation;
    int first = 0;
    if (v->styled) {
        const int common = len < v->nstyles ? len : v->nstyles;
        first = first_difference(v->next_styles, v->styles, common);
        if (first == common && len == v->nstyles) return;
    }
    std::swap(v->styles, v->next_styles);
    std::swap(v->capstyles, v->capnext);
    v->nstyles = len;
    v->styled = true;
    if (first < v->dirty_from) v->dirty_from = first;
}

// The last row of the layout that starts at or before text offset o.
int row_of(const qv::ViewState *st, int o) {
    int lo = 0, hi = st->nrows - 1;
    while (lo < hi) {
        const int mid = (lo + hi + 1) / 2;
        if (st->rows[mid].offset <= o)
            lo = mid;
        else
            hi = mid - 1;
    }
    return lo;
}

bool keep_row_start(qv::ViewState *st, int y, const qv::RowStart &s) {
    if (y >= st->caprows) {
        const int cap = st->caprows ? st->caprows * 2 : 16;
        auto *grown = static_cast<qv::RowStart *>(realloc(st->rows, sizeof(qv::RowStart) * cap));
        if (!grown) return false;
        st->rows = grown;
        st->caprows = cap;
    }
    st->rows[y] = s;
    return true;
}

// Lays the text out again from the first row an edit can have changed: the
// rows above it depend only on text before the edit. Typing at the end of a
// long input thus lays out one row, not all of them.
void layout_input(console *c) {
    qv::ViewState *st = c->state->view;
    input_t *in = &c->screen.input;
    if (!in->lines) return;
    take_changes(c);
    take_styles(c);
    if (st->dirty_from == INT_MAX && st->nrows > 0) return;
    const qv::LayoutText t = text_of(c);
    const int old_rows = st->nrows;
    // From the row holding the character before the edit: a row that ended
    // early, because the next unit did not fit, may take the edited text.
    // With no character before it, from the top: the prompt's row may have
    // pushed a wide first character down, and takes it back once it fits.
    int y = old_rows > 0 && st->dirty_from > 0 ? row_of(st, st->dirty_from - 1) : 0;
    qv::RowStart s = y > 0 ? st->rows[y] : qv::RowStart{0, 0, qv::kFirstRow, 0};
    for (;;) {
        if (y >= in->numlines) screen_buffer_add_line(c, 1);
        if (y >= in->numlines || !keep_row_start(st, y, s)) break; // memory ran out
        termline *line = in->lines[y];
        int last = 0;
        qv::RowStart next{};
        const int more = qv::layout_row(t, s, line->chars, &last, &next);
        line->last = last;
        line->firstcol = s.kind == qv::kWrapRow || s.kind == qv::kBelowRow ? 0
                         : s.kind == qv::kFirstRow                         ? t.prompt_cells
                                                                           : t.indent;
        line->lflags = (s.kind == qv::kWrapRow ? LINE_CONTINUED : 0u) |
                       (more && next.kind == qv::kWrapRow ? LINE_WRAPS : 0u);
        // A cluster's marks are not in its cell: one laid out again may have
        // changed them, so it is drawn again.
        for (int j = 0; j < last; j++)
            if (line->chars[j].attr & ATTR_CLUSTER) in->vbuf[y]->chars[j].attr |= ATTR_INVALID;
        qv::model_touch(c, y);
        st->rows_laid_out++;
        y++;
        if (!more) break;
        s = next;
    }
    st->nrows = y;
    for (int i = y; i < old_rows && i < in->numlines; i++) {
        termline_erase(in->lines[i], &c->screen.blank);
        qv::model_touch(c, i);
    }
    st->dirty_from = INT_MAX;
}

void place_cursor(console *c) {
    const qv::ViewState *st = c->state->view;
    if (st->nrows < 1 || !c->editor.buffer) return;
    int cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    // A cursor the keys never leave inside a cluster may still be put there
    // (text typed before a lone combining mark takes the mark into its
    // cell, a host sets the cursor): it is shown after the cluster.
    const int len = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    if (cursor > 0 && cursor < len) {
        const int end = qv::layout_unit_end(c->editor.buffer, qv::layout_unit_start(c->editor.buffer, cursor), len);
        if (end > cursor) cursor = end;
    }
    const int y = row_of(st, cursor);
    c->screen.input.newcur.pos.y = y;
    c->screen.input.newcur.pos.x = qv::layout_cursor_column(text_of(c), st->rows[y], cursor);
}

} // namespace

void qv::view_update(console *c) {
    if (!c->state || !c->state->view) return;
    layout_input(c);
    place_cursor(c);
}

void qv::view_reset(console *c) {
    ViewState *v = c->state->view;
    v->finished = false;
    v->transient_shown = false;
    v->nrows = 0;
    v->dirty_from = 0;
    v->text_from = 0;
}

void qv::view_truncate(console *c, int y) {
    ViewState *v = c->state->view;
    if (v->nrows > y) v->nrows = y;
}

void qv::view_rebuild(console *c, int rows) {
    input_t *in = &c->screen.input;
    screen_buffer_initialize(c);
    if (!in->lines) return;
    view_reset(c);
    layout_input(c);
    if (in->numlines < rows) screen_buffer_add_line(c, rows - in->numlines);
    for (int i = 0; i < in->numlines; i++) model_invalidate_row(c, i);
    place_cursor(c);
}

unsigned long qv::view_rows_laid_out(const console *c) {
    return c->state && c->state->view ? c->state->view->rows_laid_out : 0;
}

int qv::view_input_rows(const console *c) {
    const ViewState *st = c->state ? c->state->view : nullptr;
    if (!st) return 1;
    int n = 0;
    while (n < st->nrows && st->rows[n].kind != kBelowRow) n++;
    return n > 0 ? n : 1;
}

void qv::view_finish(console *c, bool entered) {
    ViewState *v = c->state ? c->state->view : nullptr;
    if (!v) return;
    v->finished = true;
    v->transient_shown = entered && v->transient;
    if (v->right && !v->right_kept) v->dirty_from = 0; // the first row without it
}

bool qv::view_set_right(console *c, const char *prompt, bool keep) {
    ViewState *v = c->state ? c->state->view : nullptr;
    if (!v) return false;
    wchar_t *text = prompt && *prompt ? cp2wchar(c, prompt, nullptr) : nullptr;
    if (prompt && *prompt && !text) return false;
    free(v->right);
    free(v->right_styles);
    v->right = text;
    v->right_styles = text ? take_styles(text) : nullptr;
    v->right_kept = keep;
    v->dirty_from = 0;
    return true;
}

bool qv::view_set_transient(console *c, const char *prompt) {
    ViewState *v = c->state ? c->state->view : nullptr;
    if (!v) return false;
    wchar_t *text = prompt ? cp2wchar(c, prompt, nullptr) : nullptr;
    if (prompt && !text) return false;
    free(v->transient);
    free(v->transient_styles);
    v->transient = text;
    v->transient_styles = text ? take_styles(text) : nullptr;
    return true;
}
