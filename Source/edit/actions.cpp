// The editing actions of the default keys, Return and continuation lines,
// and the history navigation actions. Each changes state through the module
// that owns it. Where the screen must do more than show the state a key
// leaves (a line left behind, a fresh prompt), the action asks for it
// through the frame, and the input loop draws it.
#include <cstdio>

#include "actions.h"
#include "console_record.h"
#include "variables.h"
#include "frame.h"
#include "hints.h"
#include "layout.h"
#include "options.h"
#include "text.h"
#include "qv_assert.h"
#include "ttymode.h"
#include "undo.h"
#include "below.h"
#include "view.h"

namespace {

// The characters one key press moves over or deletes: a character with the
// combining marks drawn into its cell.
int unit_before(const console *c) {
    if (!c->editor.buffer || c->editor.cursor <= c->editor.buffer) return 1;
    const int o = static_cast<int>(c->editor.cursor - c->editor.buffer);
    return o - qv::layout_unit_start(c->editor.buffer, o);
}

int unit_after(const console *c) {
    if (!c->editor.buffer || c->editor.cursor >= c->editor.lastchar) return 1;
    const int o = static_cast<int>(c->editor.cursor - c->editor.buffer);
    const int len = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    return qv::layout_unit_end(c->editor.buffer, o, len) - o;
}

void check_cursor(console *c) {
    QV_ASSERT(c->editor.cursor <= c->editor.lastchar);
    QV_ASSERT(c->editor.cursor >= c->editor.buffer);
}

// The input stays on the screen as it is, without a hint, the cursor behind
// it, and the terminal goes to the row below: every row of it stays readable
// above what comes next.
void leave_input(console *c) {
    qv::hint_clear(c);
    qv::below_clear(c);
    qv::view_finish(c);
    buffer_cursor_move_end(c);
    qv::frame_request(c, qv::kPaintNow);
    qv::frame_request(c, qv::kNewline);
}

// After an abandoned input has been left: a fresh one, walking the history
// afresh from it.
void fresh_input(console *c) {
    history_set_latest(c);
    history_cleanup_temp(c);
    if (!console_init_editor(c)) {
        c->status = ST_NOBUFFER;
        return;
    }
    qv::frame_request(c, qv::kStartInput);
}

// After an incomplete input has been left: the text goes on in a further
// line, under a blank prompt as wide as the prompt.
void continue_input(console *c) {
    buffer_reset_editable_offset(c);
    if (c->callbacks.keepNewline && c->callbacks.keepNewline()) {
        buffer_insert_char(c, 10);
    } else if (c->callbacks.keepNewline && buffer_peek_before_cursor(c) == '\\') {
        buffer_delete_before(c, 1);
        buffer_reset_editable_offset(c);
        qv::buffer_add_break(c, qv::kBackslashJoin);
    } else {
        // No line break is kept, and no backslash to drop: the next line's
        // text follows the earlier text directly.
        qv::buffer_add_break(c, qv::kJoin);
    }
}

} // namespace

// ---------------------------------------------------------------------------
// Editing

void qv::insert_plain(console *c, int key) {
    // Overwrite mode (Insert toggles it): the character under the cursor
    // gives way, unless it ends a line.
    if ((c->flags & FLAG_INSERT_KEY) && c->editor.buffer && c->editor.cursor < c->editor.lastchar &&
        *c->editor.cursor != L'\n')
        buffer_delete_after(c, unit_after(c));
    if (buffer_insert_char(c, static_cast<wchar_t>(key)) == 0) return;
    history_set_dirty(c);
}

namespace {

bool pairs_on(const console *c) {
    return qv::option(TERM_OPTION_AUTO_PAIRS) && !c->masked && c->editor.buffer && !(c->flags & FLAG_INSERT_KEY);
}

bool closes(wchar_t ch) {
    wchar_t open = 0, close = 0;
    return qv::pair_of(ch, &open, &close) && ch == close;
}

// Bracket insertion: a closing character typed over the same one steps over
// it; an opening one types its pair, the cursor between, where nothing is
// written against the cursor (the end, a blank, a closing character) and,
// for a quote, not right after a letter or digit.
bool typed_pair(console *c, wchar_t ch) {
    wchar_t open = 0, close = 0;
    if (!pairs_on(c) || !qv::pair_of(ch, &open, &close)) return false;
    const bool at_end = c->editor.cursor >= c->editor.lastchar;
    const wchar_t next = at_end ? 0 : *c->editor.cursor;
    const wchar_t prev = c->editor.cursor > c->editor.buffer ? c->editor.cursor[-1] : 0;
    if (ch == close && next == close) {
        c->editor.cursor++;
        return true;
    }
    if (ch != open) return false;
    if (!(at_end || next == L' ' || next == L'\t' || next == L'\n' || closes(next))) return false;
    if (open == close && prev && qv::is_word_char(prev)) return false;
    const wchar_t two[2] = {open, close};
    if (buffer_insert_string(c, two, 2) != 2 || !c->editor.buffer) return true;
    c->editor.cursor--;
    history_set_dirty(c);
    return true;
}

// Backspace between a pair with nothing in it takes both.
bool deleted_pair(console *c) {
    wchar_t open = 0, close = 0;
    if (!pairs_on(c) || c->editor.cursor <= c->editor.buffer || c->editor.cursor >= c->editor.lastchar) return false;
    const wchar_t prev = c->editor.cursor[-1];
    if (!qv::pair_of(prev, &open, &close) || prev != open || *c->editor.cursor != close) return false;
    buffer_delete_after(c, 1);
    buffer_delete_before(c, 1);
    history_set_dirty(c);
    return true;
}

} // namespace

void action_insert_char(console *c, int key) {
    if (!typed_pair(c, static_cast<wchar_t>(key))) qv::insert_plain(c, key);
}

void action_key_insert(console *c, int) { c->flags ^= FLAG_INSERT_KEY; }

void action_key_backspace(console *c, int) {
    if (!deleted_pair(c)) buffer_delete_before(c, unit_before(c));
    history_set_dirty(c);
    qv::frame_request(c, qv::kMoveCursorFirst);
}

void action_key_delete(console *c, int) {
    check_cursor(c);
    if (c->editor.cursor != c->editor.lastchar) buffer_delete_after(c, unit_after(c));
    history_set_dirty(c);
    qv::frame_request(c, qv::kMoveCursorFirst);
}

void action_delete_or_quit(console *c, int key) {
    check_cursor(c);
    if (c->editor.lastchar == c->editor.buffer)
        action_end_of_input(c, key);
    else
        action_key_delete(c, key);
}

void action_end_of_input(console *c, int) {
    qv::frame_request(c, qv::kFlushPending);
    qv::frame_request(c, qv::kNewline);
    c->eof = 1;
}

void action_key_tab(console *, int) {}

void action_key_left(console *c, int) { buffer_cursor_move_left(c, unit_before(c)); }

void action_key_right(console *c, int) {
    if (!qv::hint_accept(c, false)) buffer_cursor_move_right(c, unit_after(c));
}

// To the start of the line as the user sees it: after a kept line break, not
// onto it.
void action_key_home(console *c, int) {
    if (c->editor.buffer) c->editor.cursor = c->editor.buffer + qv::buffer_line_start(c);
}

void action_key_end(console *c, int) {
    if (!qv::hint_accept(c, false)) buffer_cursor_move_end(c);
}

void action_key_up(console *c, int) { history_lookup(c, -1); }

void action_key_down(console *c, int) { history_lookup(c, 1); }

void action_abandon_input(console *c, int) {
    leave_input(c);
    qv::frame_then(c, fresh_input);
}

void signal_interrupt(console *c) { c->status = ST_INTERRUPTED; }

void action_abandon_input_ctrl_c(console *c, int key) {
    if (c->sigint) signal_interrupt(c);
    action_abandon_input(c, key);
}

void action_suspend_process(console *, int) {}

// ---------------------------------------------------------------------------
// Return: complete the input, or continue it on a further line

void action_key_return(console *c, int) {
    if (!c->editor.buffer) return;
    const bool ask = !c->raw && c->callbacks.isInputComplete != nullptr;
    int complete = 0;
    if (ask)
        complete = c->callbacks.isInputComplete(c->editor.buffer,
                                                static_cast<int>(c->editor.lastchar - c->editor.buffer));
    if (ask && !complete) {
        // The rows typed so far stay on the terminal; the new line starts on
        // the row below them.
        leave_input(c);
        qv::frame_request(c, qv::kAfterNewline);
        qv::frame_then(c, continue_input);
        return;
    }
    const auto n = static_cast<uint32_t>(c->editor.lastchar - c->editor.buffer);
    *c->editor.lastchar = 0;
    if (n > 0 && qv::option(TERM_OPTION_AUTO_HISTORY)) history_add(c, c->editor.buffer, n);
    leave_input(c);
    qv::view_finish(c, true);
    c->status = ST_DONE;
    c->error = 0;
    clearerr(stdin);
}

// ---------------------------------------------------------------------------
// History navigation

// A masked read never shows or recalls text: history keys do nothing there.
void history_lookup(console *c, int direction) {
    if (c->masked || c->history->count < 1 || !c->editor.buffer) return;
    const int at = static_cast<int>(c->editor.cursor - c->editor.buffer);
    history_save_current_buffer(c, c->editor.buffer, static_cast<uint32_t>(c->editor.lastchar - c->editor.buffer));
    history_line *e = qv::history_step(c, direction);
    if (e) buffer_replace(c, e->text, e->length);
    // readline's history-preserve-point: the cursor keeps its place.
    if (e && c->editor.buffer && qv::variable_on(c, "history-preserve-point"))
        c->editor.cursor = c->editor.buffer + (at < static_cast<int>(e->length) ? at : static_cast<int>(e->length));
    qv::undo_reset(c); // undo goes back to the entry as it came, no further
}

namespace {

// Page Up and Page Down: the entry at the position just set, or an emptied
// current line when there is none.
void history_jump(console *c) {
    if (c->masked || !c->editor.buffer) return;
    history_line *e = qv::history_step(c, 0);
    if (e) {
        buffer_replace(c, e->text, e->length);
    } else {
        c->editor.cursor = c->editor.buffer + qv::buffer_line_start(c);
        qv::buffer_kill_to_end(c);
    }
    qv::undo_reset(c);
}

} // namespace

// Page Up keeps the line being typed, as Up does, so Down brings it back.
void action_history_earliest(console *c, int) {
    if (!c->masked && c->editor.buffer && c->history->count > 0)
        history_save_current_buffer(c, c->editor.buffer, static_cast<uint32_t>(c->editor.lastchar - c->editor.buffer));
    history_set_earliest(c);
    history_jump(c);
}

void action_history_latest(console *c, int) {
    history_set_latest(c);
    history_jump(c);
}
