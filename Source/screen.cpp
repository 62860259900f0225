// The model of the input area and the difference painter.
//
// Row 0 is the terminal row on which the prompt of the current read starts.
// Every row exists twice: `lines` says what it should show, `vbuf` what the
// terminal shows. Painting writes the runs of cells that differ, then puts
// the cursor at `newcur`. The console's paint_first/paint_last span the rows
// touched since the last paint, so a keystroke at the end of a long input
// costs the same as one on a short input.
#include "screen.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <cwchar>

#include "console.h"
#include "layout.h"
#include "output.h"
#include "plainview.h"
#include "qv_assert.h"
#include "text.h"

namespace {

const char blanks[] = "          ";
wchar_t *ws = nullptr; // wide blanks, kept for the life of the process
int wsize = 0;
bool in_paint = false;

void touch(console *c, int y) {
    if (c->paint_first > y) c->paint_first = y;
    if (c->paint_last < y) c->paint_last = y;
}

void paint_clean(console *c) {
    c->paint_first = INT_MAX;
    c->paint_last = -1;
}

void mark_cells(termline *row, int cols) {
    for (int j = 0; j < cols; j++) row->chars[j].attr |= ATTR_INVALID;
}

// Marks shown row y for a full redraw.
void invalidate_row(console *c, int y) {
    mark_cells(c->screen.input.vbuf[y], c->screen.cols);
    touch(c, y);
}

void release_rows(input_t *in, int from) {
    for (int i = from; i < in->numlines; i++) {
        termline_free(in->lines[i]);
        termline_free(in->vbuf[i]);
        in->lines[i] = in->vbuf[i] = nullptr;
    }
}

// Inserts cell at column x of a row. A full row pushes its last cell out
// into *spill and answers 1; a row that becomes full is marked as wrapping.
int termchar_insert_1(termline *row, int x, const termchar *cell, termchar *spill) {
    int pushed = 0;
    if (row->last < row->cols) {
        if (row->last == row->cols - 1) row->lflags |= LINE_WRAPS;
        row->last++;
    } else {
        row->lflags |= LINE_WRAPS;
        if (spill) *spill = row->chars[row->cols - 1];
        pushed = 1;
    }
    for (int j = row->last - 1; j > x; j--) row->chars[j] = row->chars[j - 1];
    row->chars[x] = *cell;
    return pushed;
}

// The row after *y, created when it does not exist yet; it continues the
// logical line. NULL when no row could be allocated.
termline *next_line(console *c, int *y) {
    const int num = *y + 1;
    if (num >= c->screen.input.numlines) screen_buffer_add_line(c, 1);
    if (num >= c->screen.input.numlines) return nullptr;
    QV_ASSERT(num >= 0 && num < (int) c->screen.input.numlines);
    termline *line = c->screen.input.lines[num];
    line->lflags |= LINE_CONTINUED;
    *y = num;
    return line;
}

// After a cell left row y, pulls the first cell of each following row of the
// logical line up into the row before it.
void pull_back(console *c, int y) {
    input_t *in = &c->screen.input;
    termline *row = in->lines[y];
    while ((row->lflags & LINE_WRAPS) && y + 1 < in->numlines) {
        y++;
        termline *next = in->lines[y];
        if (next->last > next->firstcol) {
            termchar cell;
            termchar_delete_1(c, next, 0, &cell);
            termchar_insert_1(row, row->last, &cell, nullptr);
            touch(c, y - 1);
            touch(c, y);
        } else {
            row->lflags &= ~LINE_WRAPS;
            next->lflags &= ~LINE_CONTINUED;
        }
        row = next;
    }
}

void flush_motion() {
    if (!in_paint) fflush(stdout);
}

} // namespace

// ---------------------------------------------------------------------------
// Building, growing and resetting the model

void screen_buffer_initialize(console *c) {
    input_t *in = &c->screen.input;
    if (in->lines || in->vbuf) screen_buffer_delete(c);
    in->maxlines = c->screen.rows > 0 ? c->screen.rows : 1;
    in->lines = static_cast<termline **>(calloc(static_cast<size_t>(in->maxlines), sizeof(termline *)));
    in->vbuf = static_cast<termline **>(calloc(static_cast<size_t>(in->maxlines), sizeof(termline *)));
    if (in->lines && in->vbuf) {
        in->lines[0] = termline_new(c->screen.cols, &c->screen.blank);
        in->vbuf[0] = termline_new(c->screen.cols, &c->screen.blank);
    }
    in->cur.pos.x = in->cur.pos.y = 0;
    in->newcur = in->cur;
    in->numlines = 1;
    if (!in->lines || !in->vbuf || !in->lines[0] || !in->vbuf[0]) screen_buffer_delete(c);
    touch(c, 0);
}

void screen_buffer_delete(console *c) {
    input_t *in = &c->screen.input;
    if (in->lines && in->vbuf) release_rows(in, 0);
    free(in->lines);
    free(in->vbuf);
    in->lines = in->vbuf = nullptr;
    in->numlines = in->maxlines = 0;
}

void screen_buffer_add_line(console *c, int n) {
    input_t *in = &c->screen.input;
    const int rows = c->screen.rows > 0 ? c->screen.rows : 1;
    if (in->numlines + n > in->maxlines) {
        const int grown = in->maxlines + rows * (n / rows + 1);
        auto *lines = static_cast<termline **>(realloc(in->lines, sizeof(termline *) * grown));
        if (!lines) return;
        in->lines = lines;
        auto *vbuf = static_cast<termline **>(realloc(in->vbuf, sizeof(termline *) * grown));
        if (!vbuf) return; // lines is merely larger than needed
        in->vbuf = vbuf;
        in->maxlines = grown;
    }
    for (int i = 0; i < n; i++) {
        termline *line = termline_new(c->screen.cols, &c->screen.blank);
        termline *shown = termline_new(c->screen.cols, &c->screen.blank);
        if (!line || !shown) {
            termline_free(line);
            termline_free(shown);
            return;
        }
        in->lines[in->numlines] = line;
        in->vbuf[in->numlines] = shown;
        invalidate_row(c, in->numlines);
        in->numlines++;
    }
}

void screen_buffer_reset(console *c) {
    input_t *in = &c->screen.input;
    if (!in->lines) return;
    for (int i = 0; i < in->numlines; i++) {
        termline_erase(in->lines[i], &c->screen.blank);
        termline_erase(in->vbuf[i], &c->screen.blank);
        mark_cells(in->vbuf[i], c->screen.cols);
    }
    release_rows(in, 1);
    in->cur.pos.x = in->cur.pos.y = 0;
    in->newcur = in->cur;
    in->numlines = 1;
    if (c->paint_last > 0) c->paint_last = 0;
    touch(c, 0);
}

void input_clear_from_cursor(console *c) {
    input_t *in = &c->screen.input;
    const int x = in->cur.pos.x, y = in->cur.pos.y;
    termline_erase_after(in->lines[y], &c->screen.blank, x);
    termline_erase_after(in->vbuf[y], &c->screen.blank, x);
    invalidate_row(c, y);
    for (int i = y + 1; i < in->numlines; i++) {
        termline_erase(in->lines[i], &c->screen.blank);
        termline_erase(in->vbuf[i], &c->screen.blank);
        invalidate_row(c, i);
    }
}

void screen_buffer_clear(console *c) {
    screen_cursor_move_home(c);
    if (c->editor.buffer)
        buffer_delete_after(c, static_cast<uint32_t>(c->editor.lastchar - c->editor.cursor));
    input_clear_from_cursor(c);
    repaint(c, 1);
}

void input_replace(console *c, const wchar_t *text, uint32_t n) {
    screen_cursor_move_00(c);
    screen_buffer_reset(c);
    screen_put_prompt(c, c->prompt, qv::prompt_cells(c->prompt, c->screen.cols));
    repaint(c, 1);
    for (uint32_t i = 0; i < n; i++) {
        const wchar_t ch = text[i];
        screen_put_char(c, (ch == 13 || ch == 10) ? c->screen.blank.ch : ch);
    }
}

// ---------------------------------------------------------------------------
// Cursors

// The model is the only record of where the terminal's cursor is.
void cursor_reset(console *c) { c->screen.input.newcur = c->screen.input.cur; }

void cursor_save(console *c, cursor_pos *p) { *p = c->screen.input.cur; }

void cursor_update(console *c, cursor_pos p) {
    input_t *in = &c->screen.input;
    screen_cursor_move_y(c, p.pos.y - in->cur.pos.y);
    screen_cursor_move_x(c, p.pos.x - in->cur.pos.x);
    in->newcur = p;
    in->cur = p;
}

int cursor_move_right(console *c) {
    input_t *in = &c->screen.input;
    termline *row = in->lines[in->newcur.pos.y];
    if (in->newcur.pos.x < c->screen.cols - 1) {
        if (in->newcur.pos.x < row->last) in->newcur.pos.x++;
        return 0;
    }
    if (row->lflags & LINE_WRAPS) {
        in->newcur.pos.y++;
        QV_ASSERT(in->newcur.pos.y < (int) in->numlines);
        in->newcur.pos.x = in->lines[in->newcur.pos.y]->firstcol;
        return 1;
    }
    return 0;
}

int cursor_move_left(console *c) {
    input_t *in = &c->screen.input;
    termline *row = in->lines[in->newcur.pos.y];
    if (in->newcur.pos.x > row->firstcol) {
        in->newcur.pos.x--;
        return 0;
    }
    if (row->lflags & LINE_CONTINUED) {
        in->newcur.pos.y--;
        termline *prev = in->lines[in->newcur.pos.y];
        in->newcur.pos.x = prev->last > prev->firstcol ? prev->last - 1 : prev->firstcol;
        return 1;
    }
    return 0;
}

// ---------------------------------------------------------------------------
// Insertion and deletion

void termchar_insert(console *c, wchar_t ch) {
    input_t *in = &c->screen.input;
    if (!in->lines) return;
    const termchar cell = {ch, c->screen.curattr};
    int y = in->newcur.pos.y;
    termline *row = in->lines[y];
    termchar spill, spill2;
    int pushed = termchar_insert_1(row, in->newcur.pos.x, &cell, &spill);
    touch(c, y);
    // A row that just became full gets its continuation row at once; a full
    // row passes its last cell down, row after row.
    if (row->lflags & LINE_WRAPS) {
        row = next_line(c, &y);
        while (row && pushed) {
            pushed = termchar_insert_1(row, row->firstcol, &spill, &spill2);
            touch(c, y);
            if (pushed) spill = spill2;
            if (row->lflags & LINE_WRAPS) row = next_line(c, &y);
        }
    }
    if ((in->lines[in->newcur.pos.y]->lflags & LINE_WRAPS) &&
        in->newcur.pos.y + 1 >= in->numlines)
        return; // no row to move into: memory ran out
    cursor_move_right(c);
}

void termchar_delete_1(console *c, termline *line, int x, termchar *removed) {
    QV_ASSERT(line->last <= (int) c->screen.cols);
    if (line->last <= x) return;
    if (removed) *removed = line->chars[x];
    for (int j = x; j < line->last - 1; j++) line->chars[j] = line->chars[j + 1];
    line->last--;
    line->chars[line->last] = c->screen.blank;
}

void termchar_delete_at(console *c) {
    input_t *in = &c->screen.input;
    const int y = in->newcur.pos.y;
    termline *row = in->lines[y];
    if (in->newcur.pos.x >= row->last) return;
    termchar_delete_1(c, row, in->newcur.pos.x, nullptr);
    touch(c, y);
    pull_back(c, y);
    cursor_update(c, in->newcur);
}

void termchar_delete_before(console *c) {
    input_t *in = &c->screen.input;
    termline *row = in->lines[in->newcur.pos.y];
    if (in->newcur.pos.x <= row->firstcol && !(row->lflags & LINE_CONTINUED)) return;
    cursor_move_left(c);
    const int y = in->newcur.pos.y;
    termchar_delete_1(c, in->lines[y], in->newcur.pos.x, nullptr);
    touch(c, y);
    pull_back(c, y);
    cursor_update(c, in->newcur);
}

// ---------------------------------------------------------------------------
// Putting text into the model

void screen_put_char(console *c, wchar_t ch) { termchar_insert(c, ch); }

void screen_put_wstring(console *c, const wchar_t *text, int n) {
    for (int i = 0; i < n; i++) termchar_insert(c, text[i]);
}

void screen_put_prompt(console *c, const wchar_t *text, int n) {
    input_t *in = &c->screen.input;
    if (!in->lines) return;
    termline *row = in->lines[in->newcur.pos.y];
    screen_put_wstring(c, text, n);
    row->firstcol = n;
}

void screen_put_blanks(console *c, int n) {
    input_t *in = &c->screen.input;
    if (n > 0 && in->lines) {
        if (!ws) ws = cp2wchar(c, blanks, &wsize);
        if (ws) {
            for (int left = n; left > 0; left -= wsize)
                screen_put_wstring(c, ws, left < wsize ? left : wsize);
        }
        in->lines[in->newcur.pos.y]->firstcol = n;
    }
    repaint(c, 1);
}

// ---------------------------------------------------------------------------
// Cursor moves within the logical line. These reach the terminal at once.

namespace {

// To the first row of the logical line under the cursor, at column 0 or at
// the row's first editable column.
void move_to_line_start(console *c, bool editable) {
    input_t *in = &c->screen.input;
    if (!in->lines) return;
    while (in->lines[in->newcur.pos.y]->lflags & LINE_CONTINUED) in->newcur.pos.y--;
    in->newcur.pos.x = editable ? in->lines[in->newcur.pos.y]->firstcol : 0;
    cursor_update(c, in->newcur);
    flush_motion();
}

} // namespace

void screen_cursor_move_00(console *c) { move_to_line_start(c, false); }

void screen_cursor_move_home(console *c) { move_to_line_start(c, true); }

void screen_cursor_move_end(console *c) {
    input_t *in = &c->screen.input;
    if (!in->lines) return;
    while ((in->lines[in->newcur.pos.y]->lflags & LINE_WRAPS) &&
           in->newcur.pos.y + 1 < in->numlines)
        in->newcur.pos.y++;
    in->newcur.pos.x = in->lines[in->newcur.pos.y]->last;
    cursor_update(c, in->newcur);
    flush_motion();
}

// ---------------------------------------------------------------------------
// Invalidation and painting

void invalidate_line(console *c, termline *line) {
    mark_cells(line, c->screen.cols);
    // The caller's row number is unknown: let the next paint look at all rows.
    touch(c, 0);
    touch(c, c->screen.input.numlines - 1);
}

void invalidate_rectangle(console *c, unsigned left, unsigned top, unsigned right,
                          unsigned bottom) {
    input_t *in = &c->screen.input;
    if (!in->vbuf || in->numlines < 1 || c->screen.cols < 1) return;
    if (right > static_cast<unsigned>(c->screen.cols - 1)) right = static_cast<unsigned>(c->screen.cols - 1);
    if (bottom > static_cast<unsigned>(in->numlines - 1)) bottom = static_cast<unsigned>(in->numlines - 1);
    for (unsigned y = top; y <= bottom; y++) {
        for (unsigned x = left; x <= right; x++) in->vbuf[y]->chars[x].attr |= ATTR_INVALID;
        touch(c, static_cast<int>(y));
    }
}

void insert_termline(console *, int) {}
void delete_termline(console *, int) {}

namespace {

// Marks the cells of shown row i that differ from the model; 1 when any cell
// of the row is marked.
int invalidate_vbuf_line(screen_t *s, int i) {
    termline *shown = s->input.vbuf[i];
    const termline *model = s->input.lines[i];
    int any = 0;
    for (int j = 0; j < s->cols; j++) {
        termchar &v = shown->chars[j];
        const termchar &m = model->chars[j];
        if (v.ch != m.ch || v.attr != m.attr) {
            v.attr |= ATTR_INVALID;
            any = 1;
        }
    }
    return any;
}

// The characters of one run of cells, as they go to the terminal: a wide
// character's right half writes nothing, and a cluster brings its marks.
class Run {
  public:
    ~Run() { free(buf_); }
    Run() = default;
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;
    bool push(wchar_t ch) {
        if (n_ + 1 >= cap_) {
            const int cap = cap_ ? cap_ * 2 : 128;
            auto *grown = static_cast<wchar_t *>(realloc(buf_, sizeof(wchar_t) * static_cast<size_t>(cap)));
            if (!grown) return false;
            buf_ = grown;
            cap_ = cap;
        }
        buf_[n_++] = ch;
        buf_[n_] = 0;
        return true;
    }
    void cell(const qv::LayoutText &t, const termchar &cell) {
        wchar_t chars[64];
        const int n = qv::layout_cell_text(t, cell, chars, 64);
        for (int k = 0; k < n; k++) push(chars[k]);
    }
    int size() const { return n_; }
    const wchar_t *text() const { return buf_; }
    void clear() { n_ = 0; }

  private:
    wchar_t *buf_ = nullptr;
    int n_ = 0, cap_ = 0;
};

// Where the terminal's cursor is while a paint writes its runs.
struct Pen {
    int x, y;
    bool wrap_pending; // the last column was just written
};

// Writes a run of cells at (start, row i). A paint of single keys returns to
// the cursor's column after every run, as it always has; a compact paint (a
// burst of keys) leaves the cursor where the run ended and, on a terminal
// with automatic margins, lets a full row flow into the next one, so a paste
// costs about one byte per character.
void write_run(console *c, int i, int start, int cells, Run &run, Pen *compact, bool hint) {
    input_t *in = &c->screen.input;
    if (!compact && !hint) {
        screen_cursor_move_y(c, i - in->cur.pos.y);
        in->cur.pos.y = i;
        if (run.size() > 0) screen_draw_wstring(c, start, run.text(), run.size(), nullptr);
        run.clear();
        return;
    }
    const int from_y = compact ? compact->y : in->cur.pos.y;
    const int from_x = compact ? compact->x : in->cur.pos.x;
    const bool pending = compact && compact->wrap_pending;
    const bool flows = pending && t_auto_right_margin && from_y == i - 1 && start == 0;
    if (!flows) {
        screen_cursor_move_y(c, i - from_y);
        if (from_x != start || pending || !compact) screen_cursor_move_to_col(c, start);
    }
    std::unique_ptr<char, decltype(&free)> text(wchar2cp(c, run.text(), run.size()), &free);
    if (hint) qv::terminal_attribute(true);
    if (text) fputs(text.get(), stdout);
    if (hint) qv::terminal_attribute(false);
    run.clear();
    if (!compact) {
        // As a single key's paint always does: back to the cursor's column.
        in->cur.pos.y = i;
        screen_cursor_move_to_col(c, in->cur.pos.x);
        return;
    }
    compact->y = i;
    compact->x = start + cells;
    compact->wrap_pending = compact->x >= c->screen.cols;
    if (compact->wrap_pending) compact->x = c->screen.cols - 1;
}

bool plain(const console *c) { return c->state && c->state->plain; }

void do_paint(console *c, bool compact = false) {
    screen_t *r = &c->screen;
    // Without cursor addressing the model cannot be drawn; the plain view
    // is drawn from the edit buffer instead.
    if (!r->input.lines || plain(c)) {
        fflush(stdout);
        return;
    }
    Run run;
    const qv::LayoutText text = c->state ? qv::layout_text(c, r->cols) : qv::LayoutText{};
    Pen pen{r->input.cur.pos.x, r->input.cur.pos.y, false};
    Pen *flow = compact ? &pen : nullptr;
    in_paint = true;
    const int first = c->paint_first < 0 ? 0 : c->paint_first;
    const int last = c->paint_last < r->input.numlines ? c->paint_last : r->input.numlines - 1;
    if (c->state && last >= first) c->state->rows_compared += static_cast<unsigned long>(last - first + 1);
    for (int i = first; i <= last; i++) {
        if (!invalidate_vbuf_line(r, i)) continue;
        termchar *shown = r->input.vbuf[i]->chars;
        const termchar *model = r->input.lines[i]->chars;
        int start = -1;
        bool hint = false;
        for (int j = 0; j < r->cols; j++) {
            // The hint is written in its own runs, dim.
            if (start >= 0 && (shown[j].attr & ATTR_INVALID) && ((model[j].attr & ATTR_HINT) != 0) != hint) {
                write_run(c, i, start, j - start, run, flow, hint);
                start = -1;
            }
            if (shown[j].attr & ATTR_INVALID) {
                if (start < 0) {
                    hint = (model[j].attr & ATTR_HINT) != 0;
                    start = j;
                    // Half a wide character cannot be drawn: start at its left half.
                    if ((model[j].attr & ATTR_WIDE_TAIL) && j > 0) {
                        start = j - 1;
                        run.cell(text, model[j - 1]);
                    }
                }
                run.cell(text, model[j]);
                shown[j] = model[j];
                QV_ASSERT(!(shown[j].attr & ATTR_INVALID));
            } else if (start >= 0) {
                write_run(c, i, start, j - start, run, flow, hint);
                start = -1;
            }
        }
        if (start >= 0) write_run(c, i, start, r->cols - start, run, flow, hint);
    }
    paint_clean(c);
    if (compact) {
        r->input.cur.pos.x = pen.x;
        r->input.cur.pos.y = pen.y;
        // After the last column the terminal waits to wrap: the next
        // character would go to the next row, even with the cursor already
        // where it belongs. An explicit move to the column ends the wait.
        if (pen.wrap_pending) screen_cursor_move_to_col(c, pen.x);
    }
    cursor_update(c, r->input.newcur);
    in_paint = false;
    fflush(stdout);
}

} // namespace

// A deferred repaint leaves the change for the next immediate one.
void repaint(console *c, int immediate) {
    if (immediate) do_paint(c);
}

// ---------------------------------------------------------------------------
// The editor's view: the model computed from the edit buffer

namespace {

qv::LayoutText text_of(const console *c) { return qv::layout_text(c, c->screen.cols); }

// The last row of the layout that starts at or before text offset o.
int row_of(const console_state *st, int o) {
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

bool keep_row_start(console_state *st, int y, const qv::RowStart &s) {
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
    console_state *st = c->state;
    input_t *in = &c->screen.input;
    if (!in->lines || (st->dirty_from == INT_MAX && st->nrows > 0)) return;
    const qv::LayoutText t = text_of(c);
    const int old_rows = st->nrows;
    // From the row holding the character before the edit: a row that ended
    // early, because the next unit did not fit, may take the edited text.
    int y = old_rows > 0 ? row_of(st, st->dirty_from > 0 ? st->dirty_from - 1 : 0) : 0;
    qv::RowStart s = y > 0 ? st->rows[y] : qv::RowStart{0, 0, qv::kFirstRow, 0};
    for (;;) {
        if (y >= in->numlines) screen_buffer_add_line(c, 1);
        if (y >= in->numlines || !keep_row_start(st, y, s)) break; // memory ran out
        termline *line = in->lines[y];
        int last = 0;
        qv::RowStart next{};
        const int more = qv::layout_row(t, s, line->chars, &last, &next);
        line->last = last;
        line->firstcol = s.kind == qv::kWrapRow ? 0 : (s.kind == qv::kFirstRow ? t.prompt_cells : t.indent);
        line->lflags = (s.kind == qv::kWrapRow ? LINE_CONTINUED : 0u) |
                       (more && next.kind == qv::kWrapRow ? LINE_WRAPS : 0u);
        // A cluster's marks are not in its cell: one laid out again may have
        // changed them, so it is drawn again.
        for (int j = 0; j < last; j++)
            if (line->chars[j].attr & ATTR_CLUSTER) in->vbuf[y]->chars[j].attr |= ATTR_INVALID;
        touch(c, y);
        st->rows_laid_out++;
        y++;
        if (!more) break;
        s = next;
    }
    st->nrows = y;
    for (int i = y; i < old_rows && i < in->numlines; i++) {
        termline_erase(in->lines[i], &c->screen.blank);
        touch(c, i);
    }
    st->dirty_from = INT_MAX;
}

void place_cursor(console *c) {
    const console_state *st = c->state;
    if (st->nrows < 1 || !c->editor.buffer) return;
    int cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    // Text typed before a lone combining mark takes the mark into its cell:
    // the cursor, between the two, is shown after the cell.
    const int len = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    if (cursor > 0 && cursor < len) {
        const int end = qv::layout_unit_end(c->editor.buffer, cursor - 1, len);
        if (end > cursor) cursor = end;
    }
    const int y = row_of(st, cursor);
    c->screen.input.newcur.pos.y = y;
    c->screen.input.newcur.pos.x = qv::layout_cursor_column(text_of(c), st->rows[y], cursor);
}

} // namespace

namespace {

// Takes the window's current size; true when it changed.
bool take_size(console *c) {
    int rows = 0, cols = 0;
    if (!qv::terminal_size(&rows, &cols)) return false;
    if (rows == c->screen.rows && cols == c->screen.cols) return false;
    c->screen.rows = rows;
    c->screen.cols = cols;
    return true;
}

// The model again from nothing at the current width; every row is drawn
// whole at the next paint, including blank rows down to at least `rows`.
void rebuild(console *c, int rows) {
    input_t *in = &c->screen.input;
    screen_buffer_initialize(c);
    if (!in->lines) return;
    c->state->nrows = 0;
    c->state->dirty_from = 0;
    layout_input(c);
    if (in->numlines < rows) screen_buffer_add_line(c, rows - in->numlines);
    for (int i = 0; i < in->numlines; i++) invalidate_row(c, i);
    place_cursor(c);
}

} // namespace

void qv::screen_start_input(console *c) {
    // The window may have changed size since the last read.
    if (take_size(c)) screen_buffer_initialize(c);
    screen_buffer_reset(c);
    if (!c->state) return;
    if (plain(c)) {
        plain_start(c);
        plain_refresh(c);
        return;
    }
    c->state->nrows = 0;
    c->state->dirty_from = 0;
    screen_refresh(c, 0);
}

void qv::screen_refresh(console *c, int flags) {
    if (!c->state) {
        do_paint(c);
        return;
    }
    if (c->state->defer && !(flags & kNow)) {
        c->state->refresh_pending = 1;
        return;
    }
    // The refresh a burst held back draws the burst's changes at once.
    const bool compact = c->state->refresh_pending != 0;
    c->state->refresh_pending = 0;
    if (plain(c)) {
        plain_refresh(c);
        return;
    }
    layout_input(c);
    place_cursor(c);
    if (flags & kCursorFirst) cursor_update(c, c->screen.input.newcur);
    do_paint(c, compact);
}

void qv::screen_defer(console *c, bool more_keys) {
    if (c->state) c->state->defer = more_keys ? 1 : 0;
}

void qv::screen_flush(console *c) {
    if (c->state && c->state->refresh_pending) screen_refresh(c, kNow);
}

void qv::screen_after_newline(console *c) {
    if (plain(c)) plain_start(c);
    input_t *in = &c->screen.input;
    if (!in->lines) return;
    const int y = in->cur.pos.y + 1;
    in->cur.pos.x = 0;
    in->cur.pos.y = y;
    in->newcur = in->cur;
    // Rows the model still holds below are blank or were never drawn; the
    // new line's row is drawn whole once it is laid out.
    if (y < in->numlines) {
        release_rows(in, y);
        in->numlines = y;
    }
    if (c->state && c->state->nrows > y) c->state->nrows = y;
}

void qv::screen_redraw_below(console *c) {
    const int y = c->screen.input.cur.pos.y;
    invalidate_rectangle(c, 0, static_cast<unsigned>(y), static_cast<unsigned>(c->screen.cols - 1),
                         static_cast<unsigned>(c->screen.input.numlines - 1));
}

// The process was stopped, and the shell has written below the input area
// since: the cursor is on a row of its own. The input is drawn afresh there.
void qv::screen_redraw_all(console *c) {
    input_t *in = &c->screen.input;
    screen_cursor_move_bol(c);
    if (plain(c)) {
        plain_start(c);
        plain_refresh(c);
        return;
    }
    if (!in->lines) return;
    for (int i = 0; i < in->numlines; i++) {
        termline_erase(in->vbuf[i], &c->screen.blank);
        invalidate_row(c, i);
    }
    in->cur.pos.x = in->cur.pos.y = 0;
    do_paint(c);
}

// The window changed size during a read. Terminals differ in what they did
// to the rows already drawn: xterm keeps them (cut when narrower), tmux and
// VTE rewrap them. Either way the cursor goes back to where the input area
// now starts, everything from there is cleared, and the input is laid out
// and drawn again at the new width.
void qv::screen_resize(console *c) {
    input_t *in = &c->screen.input;
    const int old_cols = c->screen.cols;
    if (!take_size(c) || !c->state) return;
    if (plain(c)) {
        screen_cursor_move_bol(c);
        plain_start(c);
        plain_refresh(c);
        return;
    }
    if (!in->lines) return;
    const int cols = c->screen.cols;
    // Rows the old input area now takes above the cursor, and in all. Each
    // old row was drawn over its whole width, so a rewrapping terminal split
    // it into ceil(old / new) rows.
    const int split = qv::terminal_reflows() && cols < old_cols ? (old_cols + cols - 1) / cols : 1;
    const int up = in->cur.pos.y * split + (split > 1 ? in->cur.pos.x / cols : 0);
    const int old_rows = in->numlines * split;
    screen_cursor_move_y(c, -up);
    screen_cursor_move_bol(c);
    const bool cleared = qv::clear_to_end_of_screen();
    rebuild(c, cleared ? 0 : old_rows);
    in->cur.pos.x = in->cur.pos.y = 0;
    do_paint(c);
}
