// The difference painter: it compares the rows the model says were touched
// with what the terminal shows, writes the runs of cells that differ, and
// puts the cursor where the model says. Only the input loop's render and the
// output calls a host makes reach it.
#include "painter.h"

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>

#include "console_record.h"
#include "model.h"
#include "options.h"
#include "output.h"
#include "plainview.h"
#include "qv_assert.h"
#include "text.h"
#include "view.h"

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
        if (v.ch != m.ch || v.attr != m.attr || v.style != m.style) {
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
        unsure_ = unsure_ || (n > 1 && qv::cluster_unsure(chars, n));
    }
    int size() const { return n_; }
    const wchar_t *text() const { return buf_; }
    // Whether it holds a cluster terminals draw in different widths: where
    // the terminal's cursor is after it is not known.
    bool unsure() const { return unsure_; }
    void clear() {
        n_ = 0;
        unsure_ = false;
    }

  private:
    wchar_t *buf_ = nullptr;
    int n_ = 0, cap_ = 0;
    bool unsure_ = false;
};

// A run's characters to the terminal. Most runs are ASCII: those go out
// without a converted copy on the heap, which a run per coloured word would
// otherwise cost every time.
void put_run(console *c, const wchar_t *s, int n) {
    qv::terminal_row_used();
    char bytes[256];
    int k = 0;
    for (int i = 0; i < n; i++) {
        if (s[i] <= 0 || s[i] >= 0x80) {
            fwrite(bytes, 1, static_cast<size_t>(k), qv::terminal_stream());
            std::unique_ptr<char, decltype(&free)> text(wchar2cp(c, s + i, n - i), &free);
            if (text) fputs(text.get(), qv::terminal_stream());
            return;
        }
        bytes[k++] = static_cast<char>(s[i]);
        if (k == static_cast<int>(sizeof bytes)) {
            fwrite(bytes, 1, sizeof bytes, qv::terminal_stream());
            k = 0;
        }
    }
    fwrite(bytes, 1, static_cast<size_t>(k), qv::terminal_stream());
}

// Whether a cell looks the same drawn in the run's style as in its own: a
// blank shows only a background, an underline or reverse video, so the
// space between two coloured words goes out with the word before it
// instead of costing two changes of style.
bool joins(const termchar &cell, uint32_t style) {
    if (cell.style == style) return true;
    constexpr uint32_t kShows = (0x1FFu << 9) | TERM_UNDERLINE | TERM_REVERSE;
    return cell.ch == L' ' && !(cell.attr & ATTR_CLUSTER) && (cell.style & kShows) == (style & kShows);
}

// Where the terminal's cursor is while a paint writes its runs.
struct Pen {
    int x, y;
    bool wrap_pending; // the last column was just written
    bool lean;         // moves cost what the terminal's cheapest motion costs
    bool lost = false; // a cluster of unsure width was written: only an
                       // absolute move finds the column again
};

bool same(const termchar &a, const termchar &b) {
    return a.ch == b.ch && ((a.attr ^ b.attr) & ~ATTR_INVALID) == 0 && a.style == b.style;
}

// Lean output: a step of a cell or two to the right over plain ASCII cells
// the terminal shows already costs less written again than moved over.
void step_over(console *c, Pen &pen, cursor_pos to) {
    constexpr int kMaxStep = 2;
    if (pen.wrap_pending || pen.lost || to.pos.y != pen.y || to.pos.x <= pen.x || to.pos.x - pen.x > kMaxStep) return;
    const termchar *model = c->screen.input.lines[pen.y]->chars;
    const termchar *shown = c->screen.input.vbuf[pen.y]->chars;
    constexpr uint32_t kNotPlain = ATTR_INVALID | ATTR_HINT | ATTR_WIDE_TAIL | ATTR_CLUSTER;
    for (int x = pen.x; x < to.pos.x; x++)
        if (!same(shown[x], model[x]) || (model[x].attr & kNotPlain) || model[x].style || model[x].ch < 32 ||
            model[x].ch > 126)
            return;
    qv::terminal_row_used();
    for (int x = pen.x; x < to.pos.x; x++) putc(static_cast<int>(model[x].ch), qv::terminal_stream());
    pen.x = to.pos.x;
}

// Writes a run of cells at (start, row i). A paint of single keys returns to
// the cursor's column after every run, as it always has; a compact paint (a
// burst of keys) leaves the cursor where the run ended and, on a terminal
// with automatic margins, lets a full row flow into the next one, so a paste
// costs about one byte per character.
void write_run(console *c, int i, int start, int cells, Run &run, Pen *compact, bool hint, uint32_t style,
               uint32_t *pen) {
    input_t *in = &c->screen.input;
    if (!compact && !hint) {
        screen_cursor_move_y(c, i - in->cur.pos.y);
        in->cur.pos.y = i;
        if (style == 0 && *pen == 0) {
            if (run.size() > 0) screen_draw_wstring(c, start, run.text(), run.size(), nullptr);
        } else if (run.size() > 0) {
            // The style only for the run's own characters: the way back to
            // the cursor's column is plain.
            screen_cursor_move_to_col(c, start);
            *pen = qv::terminal_style(*pen, style);
            put_run(c, run.text(), run.size());
            *pen = qv::terminal_style(*pen, 0);
            screen_cursor_move_to_col(c, in->cur.pos.x);
        }
        run.clear();
        return;
    }
    const int from_y = compact ? compact->y : in->cur.pos.y;
    const int from_x = compact ? compact->x : in->cur.pos.x;
    const bool pending = compact && compact->wrap_pending;
    const bool lost = compact && compact->lost;
    const bool flows = pending && !lost && qv::rows_flow() && from_y == i - 1 && start == 0;
    if (!flows) {
        screen_cursor_move_y(c, i - from_y);
        if (compact && compact->lean) {
            // A cell or two of plain text before the run cost less written
            // again than moved over.
            if (from_y == i && *pen == 0) step_over(c, *compact, cursor_pos{{start, i}});
            qv::cursor_to_column(c, compact->x, start, !pending && !lost);
        } else if (from_x != start || pending || lost || !compact)
            screen_cursor_move_to_col(c, start);
    }
    // The hint in its look, plain again right after it; other text leaves
    // the pen for the next run.
    *pen = qv::terminal_style(*pen, hint ? 0 : style);
    const uint32_t look = hint ? qv::terminal_style(0, style) : 0;
    put_run(c, run.text(), run.size());
    if (hint) qv::terminal_style(look, 0);
    const bool unsure = run.unsure();
    run.clear();
    if (!compact) {
        // As a single key's paint always does: back to the cursor's column.
        in->cur.pos.y = i;
        screen_cursor_move_to_col(c, in->cur.pos.x);
        return;
    }
    compact->y = i;
    compact->x = start + cells;
    compact->lost = unsure;
    // A run may end on a wide character whose right half did not change:
    // the terminal's cursor is past both halves.
    if (compact->x < c->screen.cols && (in->lines[i]->chars[compact->x].attr & ATTR_WIDE_TAIL)) compact->x++;
    compact->wrap_pending = compact->x >= c->screen.cols;
    if (compact->wrap_pending) compact->x = c->screen.cols - 1;
}

// Lean output: when what follows column j of row i only moved sideways (a
// key put in or took out k cells there), the terminal moves it with its
// insert or delete capability, and the paint then writes just the cells that
// came in. Nothing happens unless that spares bytes.
void shift_row(console *c, int i, Pen &pen, uint32_t *style_pen) {
    screen_t *r = &c->screen;
    termchar *shown = r->input.vbuf[i]->chars;
    const termchar *model = r->input.lines[i]->chars;
    const int cols = r->cols;
    int j = 0;
    while (j < cols && !(shown[j].attr & ATTR_INVALID)) j++;
    if (j >= cols || ((shown[j].attr | model[j].attr) & ATTR_WIDE_TAIL)) return;
    int changed = 0; // the cells a paint without a shift would write
    for (int x = j; x < cols; x++) {
        if (!(shown[x].attr & ATTR_INVALID)) continue;
        // A cell marked though it matches: the row is to be drawn afresh,
        // and what it shows now is not known well enough to move.
        if (same(shown[x], model[x])) return;
        changed++;
    }
    constexpr int kMaxShift = 8;
    for (int k = 1; k <= kMaxShift && j + k < cols && changed > 2 * k + 4; k++) {
        for (const bool insert : {true, false}) {
            bool moved = true;
            for (int x = j; x + k < cols && moved; x++) moved = insert ? same(shown[x], model[x + k]) : same(model[x], shown[x + k]);
            if (!moved) continue;
            // Cells that come in are plain, whatever the last run left.
            *style_pen = qv::terminal_style(*style_pen, 0);
            screen_cursor_move_y(c, i - pen.y);
            qv::cursor_to_column(c, pen.x, j, !pen.wrap_pending && !pen.lost);
            pen = Pen{j, i, false, true};
            if (!(insert ? qv::insert_cells(k) : qv::delete_cells(k))) return;
            if (insert) {
                for (int x = cols - 1; x >= j + k; x--) shown[x] = shown[x - k];
                for (int x = j; x < j + k; x++) shown[x] = r->blank;
            } else {
                for (int x = j; x + k < cols; x++) shown[x] = shown[x + k];
                for (int x = cols - k; x < cols; x++) shown[x] = r->blank;
            }
            for (int x = 0; x < cols; x++) shown[x].attr &= ~ATTR_INVALID;
            invalidate_vbuf_line(r, i);
            return;
        }
    }
}

// How many unchanged cells from column j on lie between a run and the next
// changed cell in the same style: fewer bytes to write than a cursor motion
// takes (0 when more, or when no changed cell follows).
int bridgeable(const termchar *shown, const termchar *model, int j, int cols, bool hint, uint32_t style) {
    constexpr int kMaxGap = 3;
    for (int x = j; x < cols && x - j <= kMaxGap; x++) {
        if (shown[x].attr & ATTR_INVALID) return x - j;
        if (((model[x].attr & ATTR_HINT) != 0) != hint || model[x].style != style) return 0;
    }
    return 0;
}


// Lean output: where the changed cells of row i that are blank in the model
// run to its end, and enough of them to cost more than clearing; the row's
// width when not.
int blank_tail(const screen_t *r, int i) {
    const termchar *shown = r->input.vbuf[i]->chars;
    const termchar *model = r->input.lines[i]->chars;
    int tail = r->cols;
    while (tail > 0 && same(model[tail - 1], r->blank)) tail--;
    while (tail < r->cols && !(shown[tail].attr & ATTR_INVALID)) tail++;
    int marked = 0;
    for (int x = tail; x < r->cols; x++) marked += (shown[x].attr & ATTR_INVALID) != 0;
    return marked > 3 && qv::can_clear_to_end_of_line() ? tail : r->cols;
}

void clear_tail(console *c, int i, int from, Pen &pen, uint32_t *style_pen) {
    // Blank in the terminal's default colours: some clear in the pen's.
    *style_pen = qv::terminal_style(*style_pen, 0);
    screen_cursor_move_y(c, i - pen.y);
    qv::cursor_to_column(c, pen.x, from, !pen.wrap_pending && !pen.lost);
    qv::clear_to_end_of_line();
    pen = Pen{from, i, false, true};
    termchar *shown = c->screen.input.vbuf[i]->chars;
    for (int x = from; x < c->screen.cols; x++) shown[x] = c->screen.input.lines[i]->chars[x];
}

void do_paint(console *c, bool compact) {
    screen_t *r = &c->screen;
    // Without cursor addressing the model cannot be drawn; the plain view
    // is drawn from the edit buffer instead.
    if (!r->input.lines || qv::plain_active(c)) {
        fflush(qv::terminal_stream());
        return;
    }
    // Lean output tracks the cursor through every paint, never returning it
    // to its column between runs.
    // Folded away, with all it reaches, in a build without lean output.
    const bool lean = QV_WITH_LEAN_OUTPUT && qv::option(TERM_OPTION_LEAN_OUTPUT) != 0;
    compact = compact || lean;
    qv::model_show_row(c, r->input.newcur.pos.y);
    Run run;
    const qv::LayoutText text = qv::layout_text(c, r->cols);
    Pen pen{r->input.cur.pos.x, r->input.cur.pos.y, false, lean};
    Pen *flow = compact ? &pen : nullptr;
    uint32_t style_pen = 0; // the colours and attributes the terminal draws with
    int first = 0, last = -1, drawn = -1;
    qv::model_take_window_rows(c, r->input.newcur.pos.y, &first, &last);
    for (int i = first; i <= last; i++) {
        if (!invalidate_vbuf_line(r, i)) continue;
        drawn = i;
        if (lean) shift_row(c, i, pen, &style_pen);
        termchar *shown = r->input.vbuf[i]->chars;
        const termchar *model = r->input.lines[i]->chars;
        int start = -1;
        bool hint = false;
        uint32_t style = 0;
        const int limit = lean ? blank_tail(r, i) : r->cols; // lean output clears from there
        for (int j = 0; j < limit; j++) {
            // The hint is written in its own runs, dim, and each style in
            // runs of its own.
            if (start >= 0 && (shown[j].attr & ATTR_INVALID) &&
                (((model[j].attr & ATTR_HINT) != 0) != hint || !joins(model[j], style))) {
                write_run(c, i, start, j - start, run, flow, hint, style, &style_pen);
                start = -1;
            }
            if (shown[j].attr & ATTR_INVALID) {
                if (start < 0) {
                    hint = (model[j].attr & ATTR_HINT) != 0;
                    style = model[j].style;
                    start = j;
                    // Half a wide character cannot be drawn: start at its left half.
                    if ((model[j].attr & ATTR_WIDE_TAIL) && j > 0) {
                        start = j - 1;
                        style = model[j - 1].style;
                        run.cell(text, model[j - 1]);
                    }
                }
                run.cell(text, model[j]);
                shown[j] = model[j];
                QV_ASSERT(!(shown[j].attr & ATTR_INVALID));
                // After a cluster of unsure width the terminal's cursor may
                // be anywhere: what follows is a run of its own, placed by
                // column.
                if (run.unsure() && (j + 1 >= limit || !(model[j + 1].attr & ATTR_WIDE_TAIL))) {
                    write_run(c, i, start, j + 1 - start, run, flow, hint, style, &style_pen);
                    start = -1;
                }
            } else if (start >= 0) {
                // Lean output writes a short stretch of unchanged cells
                // again rather than move the cursor over it.
                const int gap = lean ? bridgeable(shown, model, j, r->cols, hint, style) : 0;
                if (gap > 0) {
                    for (int x = j; x < j + gap; x++) run.cell(text, model[x]);
                    j += gap - 1;
                    continue;
                }
                write_run(c, i, start, j - start, run, flow, hint, style, &style_pen);
                start = -1;
            }
        }
        if (start >= 0) write_run(c, i, start, limit - start, run, flow, hint, style, &style_pen);
        if (limit < r->cols) clear_tail(c, i, limit, pen, &style_pen);
    }
    style_pen = qv::terminal_style(style_pen, 0);
    qv::model_reached(c, drawn);
    if (compact) {
        r->input.cur.pos.x = pen.x;
        r->input.cur.pos.y = pen.y;
        // After the last column the terminal waits to wrap: the next
        // character would go to the next row, even with the cursor already
        // where it belongs. An explicit move to the column ends the wait.
        if (lean) {
            // The column first: it ends a wait to wrap, as a carriage
            // return does cheapest.
            const cursor_pos to = r->input.newcur;
            step_over(c, pen, to);
            qv::cursor_to_column(c, pen.x, to.pos.x, !pen.wrap_pending && !pen.lost);
            screen_cursor_move_y(c, to.pos.y - pen.y);
            r->input.cur = to;
        } else if (pen.wrap_pending || pen.lost) {
            screen_cursor_move_to_col(c, pen.x);
        }
    }
    cursor_update(c, r->input.newcur);
    fflush(qv::terminal_stream());
}

} // namespace

void qv::paint(console *c, bool compact) { do_paint(c, compact); }

// A deferred repaint leaves the change for the next immediate one.
void repaint(console *c, int immediate) {
    if (immediate) do_paint(c, false);
}

void insert_termline(console *, int) {}
void delete_termline(console *, int) {}

// The drawing calls that need the model: the end of the row, and the column
// the cursor comes back to.
void screen_cursor_move_eol(console *c) {
    screen_cursor_move_bol(c);
    screen_cursor_move_x(c, c->screen.cols - 1);
}

void screen_draw_string(console *c, int column, const char *s, int *written) {
    screen_cursor_move_to_col(c, column);
    qv::terminal_row_used();
    const int r = fputs(s, qv::terminal_stream());
    screen_cursor_move_to_col(c, c->screen.input.cur.pos.x);
    if (written) *written = r;
}

void screen_draw_wstring(console *c, int column, const wchar_t *s, int n, int *written) {
    std::unique_ptr<char, decltype(&free)> text(wchar2cp(c, s, n), &free);
    if (text) screen_draw_string(c, column, text.get(), written);
}
