// The exported calls over the model of the input area: the row and cursor
// operations a host of the console layer may use. The library itself draws
// from the view (view.h); these keep the model's own rules (push-down on
// insertion, pull-back on deletion) for such a host.
#include "screen.h"

#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include "console_record.h"
#include "layout.h"
#include "model.h"
#include "output.h"
#include "qv_assert.h"
#include "text.h"

namespace {

constexpr wchar_t kBlanks[] = L"          ";
constexpr int kBlankCount = sizeof kBlanks / sizeof kBlanks[0] - 1;

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
            qv::model_touch(c, y - 1);
            qv::model_touch(c, y);
        } else {
            row->lflags &= ~LINE_WRAPS;
            next->lflags &= ~LINE_CONTINUED;
        }
        row = next;
    }
}

} // namespace

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
    const termchar cell = {ch, c->screen.curattr, 0};
    int y = in->newcur.pos.y;
    termline *row = in->lines[y];
    termchar spill{}, spill2{};
    int pushed = termchar_insert_1(row, in->newcur.pos.x, &cell, &spill);
    qv::model_touch(c, y);
    // A row that just became full gets its continuation row at once; a full
    // row passes its last cell down, row after row.
    if (row->lflags & LINE_WRAPS) {
        row = next_line(c, &y);
        while (row && pushed) {
            pushed = termchar_insert_1(row, row->firstcol, &spill, &spill2);
            qv::model_touch(c, y);
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
    qv::model_touch(c, y);
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
    qv::model_touch(c, y);
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
        for (int left = n; left > 0; left -= kBlankCount)
            screen_put_wstring(c, kBlanks, left < kBlankCount ? left : kBlankCount);
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
    fflush(qv::terminal_stream());
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
    fflush(qv::terminal_stream());
}
