// Render: the one place the input loop draws from. It lays the state out
// (view.h) and paints the difference (painter.h), on several rows or, for a
// terminal that cannot address them, on one (plainview.h); and it keeps the
// input area in step with the terminal when a line is left, the screen
// cleared, the window resized or the process continued.
#include "render.h"

#include <cstdio>

#include "console_record.h"
#include "model.h"
#include "options.h"
#include "output.h"
#include "painter.h"
#include "plainview.h"
#include "view.h"

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

} // namespace

namespace qv {

void render(console *c, int flags, bool compact, int shape) {
    if (plain_active(c)) {
        plain_refresh(c);
        return;
    }
    view_update(c);
    if (flags & kCursorFirst) cursor_update(c, c->screen.input.newcur);
    paint(c, compact);
    cursor_shape(shape);
}

bool render_start_input(console *c) {
    // The window may have changed size since the last read.
    if (take_size(c)) screen_buffer_initialize(c);
    screen_buffer_reset(c);
    if (plain_active(c)) {
        plain_start(c);
        plain_refresh(c);
        return false;
    }
    // Lean output takes the row its own line feed reached to be blank, as
    // other line editors do, and spares clearing it at every read.
    if (QV_WITH_LEAN_OUTPUT && option(TERM_OPTION_LEAN_OUTPUT) && terminal_row_fresh() && c->screen.input.lines)
        model_row_shown_blank(c, 0);
    view_reset(c);
    return true;
}

} // namespace qv

void qv::render_after_newline(console *c) {
    if (plain_active(c)) plain_start(c);
    input_t *in = &c->screen.input;
    if (!in->lines) return;
    const int y = in->cur.pos.y + 1;
    in->cur.pos.x = 0;
    in->cur.pos.y = y;
    in->newcur = in->cur;
    qv::model_reached(c, y);
    // Rows the model still holds below are blank or were never drawn; the
    // new line's row is drawn whole once it is laid out.
    model_release_rows(c, y);
    view_truncate(c, y);
}

void qv::render_redraw_below(console *c) {
    const int y = c->screen.input.cur.pos.y;
    invalidate_rectangle(c, 0, static_cast<unsigned>(y), static_cast<unsigned>(c->screen.cols - 1),
                         static_cast<unsigned>(c->screen.input.numlines - 1));
}

// The process was stopped, and the shell has written below the input area
// since: the cursor is on a row of its own. The input is drawn afresh there.
void qv::render_redraw_all(console *c) {
    input_t *in = &c->screen.input;
    screen_cursor_move_bol(c);
    if (plain_active(c)) {
        plain_start(c);
        plain_refresh(c);
        return;
    }
    if (!in->lines) return;
    for (int i = 0; i < in->numlines; i++) {
        termline_erase(in->vbuf[i], &c->screen.blank);
        model_invalidate_row(c, i);
    }
    in->cur.pos.x = in->cur.pos.y = 0;
    model_anchor(c);
    paint(c, false);
}

// The window changed size during a read. Terminals differ in what they did
// to the rows already drawn: xterm keeps them (cut when narrower), tmux and
// VTE rewrap them. Either way the cursor goes back to where the input area
// now starts, everything from there is cleared, and the input is laid out
// and drawn again at the new width.
void qv::render_resize(console *c) {
    input_t *in = &c->screen.input;
    const int old_cols = c->screen.cols;
    if (!take_size(c)) return;
    if (plain_active(c)) {
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
    view_rebuild(c, cleared ? 0 : old_rows);
    in->cur.pos.x = in->cur.pos.y = 0;
    model_anchor(c);
    paint(c, false);
}
namespace {

// Whole lines, each ended the way raw mode needs; clear: each line's row is
// cleared past its text (the rows below were not).
void write_lines(console *c, const char *text, size_t n, bool clear) {
    size_t from = 0;
    for (size_t i = 0; i < n; i++) {
        if (text[i] != '\n') continue;
        fwrite(text + from, 1, i - from, qv::terminal_stream());
        if (clear) qv::clear_to_end_of_line();
        console_newline(c);
        from = i + 1;
    }
}

} // namespace

// The text takes the rows where the input area started, so it reads in the
// order it came, above everything typed since; the input, its hint and a
// search's prompt follow below it, the cursor where it was.
void qv::render_above(console *c, const char *text, size_t n) {
    input_t *in = &c->screen.input;
    if (plain_active(c) || !in->lines) {
        screen_cursor_move_bol(c);
        write_lines(c, text, n, true);
        if (plain_active(c)) {
            plain_start(c);
            plain_refresh(c);
        }
        fflush(qv::terminal_stream());
        return;
    }
    // Without a clear, the old rows the text does not reach are blanked.
    int left = in->numlines;
    for (size_t i = 0; i < n; i++) left -= text[i] == '\n';
    screen_cursor_move_y(c, -in->cur.pos.y);
    screen_cursor_move_bol(c);
    const bool cleared = qv::clear_to_end_of_screen();
    write_lines(c, text, n, !cleared);
    view_rebuild(c, cleared || left < 0 ? 0 : left);
    in->cur.pos.x = in->cur.pos.y = 0;
    model_anchor(c);
    paint(c, false);
}
