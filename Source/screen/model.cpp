// The two copies of the input area's rows (what should be shown, what is
// shown), the terminal cursor's place in them, and the rows touched since
// the last paint, so that a paint never looks at rows that cannot differ.
#include "model.h"

#include <climits>
#include <cstdlib>

#include "console_record.h"
#include "options.h"
#include "output.h"

struct qv::ModelState {
    int first, last;              // rows touched since the last paint
    int reach;                    // the lowest row the terminal's cursor has been on
    unsigned long rows_compared;  // by all paints: the cost of a key, counted
};

qv::ModelState *qv::model_new() {
    auto *m = static_cast<ModelState *>(calloc(1, sizeof(ModelState)));
    if (m) {
        m->first = INT_MAX;
        m->last = -1;
    }
    return m;
}

void qv::model_free(ModelState *m) { free(m); }

namespace {

qv::ModelState *model_of(const console *c) { return c->state ? c->state->model : nullptr; }

void mark_cells(termline *row, int cols) {
    for (int j = 0; j < cols; j++) row->chars[j].attr |= ATTR_INVALID;
}

} // namespace

void qv::model_touch(console *c, int y) {
    ModelState *m = model_of(c);
    if (!m) return;
    if (m->first > y) m->first = y;
    if (m->last < y) m->last = y;
}

bool qv::model_take_touched(console *c, int *first, int *last) {
    ModelState *m = model_of(c);
    const int rows = c->screen.input.numlines;
    *first = m ? (m->first < 0 ? 0 : m->first) : 0;
    *last = m ? (m->last < rows ? m->last : rows - 1) : rows - 1;
    if (m) {
        if (*last >= *first) m->rows_compared += static_cast<unsigned long>(*last - *first + 1);
        m->first = INT_MAX;
        m->last = -1;
    }
    return *last >= *first;
}

unsigned long qv::model_rows_compared(const console *c) {
    const ModelState *m = model_of(c);
    return m ? m->rows_compared : 0;
}

void qv::model_row_shown_blank(console *c, int y) { termline_erase(c->screen.input.vbuf[y], &c->screen.blank); }

void qv::model_invalidate_row(console *c, int y) {
    mark_cells(c->screen.input.vbuf[y], c->screen.cols);
    model_touch(c, y);
}

void qv::model_release_rows(console *c, int from) {
    input_t *in = &c->screen.input;
    for (int i = from; i < in->numlines; i++) {
        termline_free(in->lines[i]);
        termline_free(in->vbuf[i]);
        in->lines[i] = in->vbuf[i] = nullptr;
    }
    if (from < in->numlines) in->numlines = from;
}

// ---------------------------------------------------------------------------
// The window onto a tall input area

void qv::model_reached(console *c, int y) {
    if (ModelState *m = model_of(c))
        if (m->reach < y) m->reach = y;
}

void qv::model_anchor(console *c) {
    if (ModelState *m = model_of(c)) m->reach = c->screen.input.cur.pos.y;
}

int qv::model_window_top(const console *c) {
    const ModelState *m = model_of(c);
    const int rows = c->screen.rows;
    if (!m || rows <= 0 || m->reach < rows) return 0;
    return m->reach - (rows - 1);
}

bool qv::model_show_row(console *c, int y) {
    ModelState *m = model_of(c);
    input_t *in = &c->screen.input;
    const int top = model_window_top(c);
    if (!m || !in->lines || y >= top) return false;
    const int rows = c->screen.rows;
    // The area keeps its last rows in view where it can, as it was typed:
    // a jump to the start shows the start, a step just past the window's
    // top row shows that row at the top.
    int end = in->numlines - 1;
    while (end > y && in->lines[end]->last == 0 && !(in->lines[end]->lflags & LINE_CONTINUED)) end--;
    int from = end - (rows - 1);
    if (from > y) from = y;
    if (from < 0) from = 0;
    // The window's top row is the area's row `top`: above it nothing moves.
    screen_cursor_move_y(c, top - in->cur.pos.y);
    screen_cursor_move_bol(c);
    const bool cleared = qv::clear_to_end_of_screen();
    for (int i = from; i < in->numlines; i++) {
        // Without a clear, what the window shows is not known: every cell
        // of a row is written when it is drawn.
        if (cleared) termline_erase(in->vbuf[i], &c->screen.blank);
        mark_cells(in->vbuf[i], c->screen.cols);
    }
    const int last = from + rows - 1 < in->numlines ? from + rows - 1 : in->numlines - 1;
    for (int i = from; i <= last; i++) model_touch(c, i);
    in->cur.pos.x = 0;
    in->cur.pos.y = from;
    m->reach = from + rows - 1;
    return true;
}

bool qv::model_take_window_rows(console *c, int target, int *first, int *last) {
    ModelState *m = model_of(c);
    const int rows = c->screen.rows;
    const int bottom = rows > 0 ? target + rows - 1 : INT_MAX;
    if (m) {
        // Rows below the lowest one reached were drawn by no one since the
        // window last held them: they come in blank.
        int lowest = m->last > target ? m->last : target;
        if (lowest > bottom) lowest = bottom;
        if (lowest > m->reach) {
            model_touch(c, m->reach + 1);
            model_touch(c, lowest);
        }
    }
    model_take_touched(c, first, last);
    // Rows above the window are in the scrollback; a later look at them
    // draws the window afresh.
    const int top = model_window_top(c);
    if (*first < top) *first = top;
    if (*last > bottom) *last = bottom;
    return *last >= *first;
}

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
    qv::model_anchor(c);
    qv::model_touch(c, 0);
}

void screen_buffer_delete(console *c) {
    input_t *in = &c->screen.input;
    if (in->lines && in->vbuf)
        for (int i = 0; i < in->numlines; i++) {
            termline_free(in->lines[i]);
            termline_free(in->vbuf[i]);
        }
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
        qv::model_invalidate_row(c, in->numlines);
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
    qv::model_release_rows(c, 1);
    in->cur.pos.x = in->cur.pos.y = 0;
    in->newcur = in->cur;
    in->numlines = 1;
    if (qv::ModelState *m = model_of(c))
        if (m->last > 0) m->last = 0;
    qv::model_anchor(c);
    qv::model_touch(c, 0);
}

void input_clear_from_cursor(console *c) {
    input_t *in = &c->screen.input;
    const int x = in->cur.pos.x, y = in->cur.pos.y;
    termline_erase_after(in->lines[y], &c->screen.blank, x);
    termline_erase_after(in->vbuf[y], &c->screen.blank, x);
    qv::model_invalidate_row(c, y);
    for (int i = y + 1; i < in->numlines; i++) {
        termline_erase(in->lines[i], &c->screen.blank);
        termline_erase(in->vbuf[i], &c->screen.blank);
        qv::model_invalidate_row(c, i);
    }
}

// ---------------------------------------------------------------------------
// The terminal cursor

// The model is the only record of where the terminal's cursor is.
void cursor_reset(console *c) { c->screen.input.newcur = c->screen.input.cur; }

void cursor_save(console *c, cursor_pos *p) { *p = c->screen.input.cur; }

void cursor_update(console *c, cursor_pos p) {
    input_t *in = &c->screen.input;
    qv::model_show_row(c, p.pos.y);
    screen_cursor_move_y(c, p.pos.y - in->cur.pos.y);
    qv::model_reached(c, p.pos.y);
    if (QV_WITH_LEAN_OUTPUT && qv::option(TERM_OPTION_LEAN_OUTPUT))
        qv::cursor_to_column(c, in->cur.pos.x, p.pos.x, true);
    else
        screen_cursor_move_x(c, p.pos.x - in->cur.pos.x);
    in->newcur = p;
    in->cur = p;
}

// ---------------------------------------------------------------------------
// Invalidation

void invalidate_line(console *c, termline *line) {
    mark_cells(line, c->screen.cols);
    // The caller's row number is unknown: let the next paint look at all rows.
    qv::model_touch(c, 0);
    qv::model_touch(c, c->screen.input.numlines - 1);
}

void invalidate_rectangle(console *c, unsigned left, unsigned top, unsigned right, unsigned bottom) {
    input_t *in = &c->screen.input;
    if (!in->vbuf || in->numlines < 1 || c->screen.cols < 1) return;
    if (right > static_cast<unsigned>(c->screen.cols - 1)) right = static_cast<unsigned>(c->screen.cols - 1);
    if (bottom > static_cast<unsigned>(in->numlines - 1)) bottom = static_cast<unsigned>(in->numlines - 1);
    for (unsigned y = top; y <= bottom; y++) {
        for (unsigned x = left; x <= right; x++) in->vbuf[y]->chars[x].attr |= ATTR_INVALID;
        qv::model_touch(c, static_cast<int>(y));
    }
}
