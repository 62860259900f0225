// The console record, the prompts, the editing actions, input completion
// and the history navigation actions.
#include "console.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bindings.h"
#include "output.h"
#include "options.h"
#include "qv_assert.h"
#include "text.h"
#include "ttymode.h"

namespace {

constexpr int kEditorCapacity = 512;
constexpr int kKeymapCount = 3;

int prompt_width(console *c) { return qv::prompt_cells(c->prompt, c->screen.cols); }

void refresh(console *c) { qv::screen_refresh(c, 0); }

// Puts the cursor behind the whole input and the terminal on the row below
// it, so that every row of the input stays readable above what comes next.
void leave_input(console *c) {
    qv::hint_clear(c);
    buffer_cursor_move_end(c);
    qv::screen_refresh(c, qv::kNow);
    console_newline(c);
}

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

void release_keymaps(console *c) {
    if (!c->keymaps) return;
    for (int i = 0; i < kKeymapCount; i++) keymap_delete(c->keymaps[i]);
    free(c->keymaps);
    c->keymaps = nullptr;
}

} // namespace

// ---------------------------------------------------------------------------
// Set-up and release

int console_init(console *c) {
    if (c->initialized) return 1;
    c->terminate = c->eof = c->cancel = 0;
    c->screen.rows = c->screen.cols = 0;
    do_init_screen(c);
    if (c->screen.rows == 0 || c->screen.cols == 0) return 0;

    c->screen.blank.ch = 32;
    c->screen.blank.attr = 0;
    c->screen.curattr = 0;
    c->screen.insert = 1;
    c->paint_first = INT_MAX;
    c->paint_last = -1;
    c->state = static_cast<console_state *>(calloc(1, sizeof(console_state)));
    if (!c->state) goto fail;
    c->state->dirty_from = INT_MAX;
    c->state->plain = qv::terminal_can_paint() ? 0 : 1;
    screen_buffer_initialize(c);
    if (!c->screen.input.lines) goto fail;

    c->keymaps = static_cast<keymap_entry **>(calloc(kKeymapCount, sizeof(keymap_entry *)));
    if (!c->keymaps) goto fail;
    for (int i = 0; i < kKeymapCount; i++)
        if (!(c->keymaps[i] = keymap_new())) goto fail;
    if (!keymap_set_defaults(c)) goto fail;
    get_os_encoding(c);
    c->history = history_new();
    if (!c->history) goto fail;
    prebuffer_init(c);
    c->status = ST_READING;
    c->initialized = 1;
    return 1;

fail:
    console_free(c);
    return 0;
}

void console_free(console *c) {
    if (c->history) {
        history_clear(c);
        free(c->history);
        c->history = nullptr;
    }
    release_keymaps(c);
    screen_buffer_delete(c);
    free(c->prebuffer.buffer);
    prebuffer_init(c);
    console_free_editor(c);
    if (c->state) {
        free(c->state->breaks);
        free(c->state->rows);
        free(c->state->shown);
        qv::history_forget_new(c);
        qv::kill_ring_free(c);
        qv::undo_free(c);
        free(c->state->hint_text);
        free(c->state);
        c->state = nullptr;
    }
    c->initialized = 0;
}

int console_init_editor(console *c) {
    console_free_editor(c);
    auto *block = static_cast<wchar_t *>(calloc(kEditorCapacity, sizeof(wchar_t)));
    if (!block) return 0;
    c->editor.buffer = c->editor.cursor = c->editor.lastchar = c->editor.editable = block;
    c->editor.limit = block + kEditorCapacity;
    if (c->state) {
        c->state->nbreaks = 0;
        c->state->dirty_from = 0;
    }
    return 1;
}

void console_free_editor(console *c) {
    free(c->editor.buffer);
    c->editor = editor_t{};
}

// ---------------------------------------------------------------------------
// Prompts

void console_set_prompt(console *c, const wchar_t *prompt) { c->prompt = prompt; }

void console_put_prompt(console *c) {
    screen_put_prompt(c, c->prompt, prompt_width(c));
    repaint(c, 1);
}

void console_put_secondary_prompt(console *c) { screen_put_blanks(c, prompt_width(c)); }

void console_schedule_update(console *) {}

int string_length(const wchar_t *s, int) { return static_cast<int>(wcslen(s)); }

// ---------------------------------------------------------------------------
// Editing actions. Each changes the edit buffer only and asks for a refresh;
// the screen is computed from the buffer, so it cannot drift from the text.

void action_insert_char(console *c, int key) {
    // Overwrite mode (Insert toggles it): the character under the cursor
    // gives way, unless it ends a line.
    if ((c->flags & FLAG_INSERT_KEY) && c->editor.buffer && c->editor.cursor < c->editor.lastchar &&
        *c->editor.cursor != L'\n')
        buffer_delete_after(c, unit_after(c));
    if (buffer_insert_char(c, static_cast<wchar_t>(key)) == 0) return;
    history_set_dirty(c);
    refresh(c);
}

void action_key_insert(console *c, int) { c->flags ^= FLAG_INSERT_KEY; }

void action_key_backspace(console *c, int) {
    buffer_delete_before(c, unit_before(c));
    history_set_dirty(c);
    qv::screen_refresh(c, qv::kCursorFirst);
}

void action_key_delete(console *c, int) {
    check_cursor(c);
    if (c->editor.cursor != c->editor.lastchar) buffer_delete_after(c, unit_after(c));
    history_set_dirty(c);
    qv::screen_refresh(c, qv::kCursorFirst);
}

void action_delete_or_quit(console *c, int key) {
    check_cursor(c);
    if (c->editor.lastchar == c->editor.buffer)
        action_end_of_input(c, key);
    else
        action_key_delete(c, key);
}

void action_end_of_input(console *c, int) {
    qv::screen_flush(c);
    console_newline(c);
    c->eof = 1;
}

void action_kill_to_end_of_line(console *c, int) {
    check_cursor(c);
    if (c->editor.buffer)
        qv::kill_ring_add(c, c->editor.cursor, static_cast<int>(c->editor.lastchar - c->editor.cursor), false);
    qv::buffer_kill_to_end(c);
    qv::screen_redraw_below(c);
    refresh(c);
}

void action_key_tab(console *c, int) { refresh(c); }

void action_key_left(console *c, int) {
    buffer_cursor_move_left(c, unit_before(c));
    refresh(c);
}

void action_key_right(console *c, int) {
    if (qv::hint_accept(c, false)) return;
    buffer_cursor_move_right(c, unit_after(c));
    refresh(c);
}

// To the start of the line as the user sees it: after a kept line break, not
// onto it.
void action_key_home(console *c, int) {
    if (!c->editor.buffer) return;
    c->editor.cursor = c->editor.buffer + qv::buffer_line_start(c);
    refresh(c);
}

void action_key_end(console *c, int) {
    if (qv::hint_accept(c, false)) return;
    buffer_cursor_move_end(c);
    refresh(c);
}

void action_key_up(console *c, int) {
    history_lookup(c, -1);
    refresh(c);
}

void action_key_down(console *c, int) {
    history_lookup(c, 1);
    refresh(c);
}

void action_abandon_input(console *c, int) {
    leave_input(c);
    history_set_latest(c);
    history_cleanup_temp(c);
    if (!console_init_editor(c)) {
        c->status = ST_NOBUFFER;
        return;
    }
    qv::screen_start_input(c);
}

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
        complete = c->callbacks.isInputComplete(
            c->editor.buffer, static_cast<int>(c->editor.lastchar - c->editor.buffer));

    if (ask && !complete) {
        // The rows typed so far stay on the terminal; the new line starts on
        // the row below them, under a blank prompt as wide as the prompt.
        leave_input(c);
        qv::screen_after_newline(c);
        buffer_reset_editable_offset(c);
        if (c->callbacks.keepNewline && c->callbacks.keepNewline()) {
            buffer_insert_char(c, 10);
        } else if (c->callbacks.keepNewline && buffer_peek_before_cursor(c) == '\\') {
            buffer_delete_before(c, 1);
            buffer_reset_editable_offset(c);
            qv::buffer_add_break(c, qv::kBackslashJoin);
        } else {
            // No line break is kept, and no backslash to drop: the next
            // line's text follows the earlier text directly.
            qv::buffer_add_break(c, qv::kJoin);
        }
        if (c->editor.buffer) refresh(c);
        return;
    }

    const auto n = static_cast<uint32_t>(c->editor.lastchar - c->editor.buffer);
    *c->editor.lastchar = 0;
    if (n > 0 && qv::option(TERM_OPTION_AUTO_HISTORY)) history_add(c, c->editor.buffer, n);
    leave_input(c);
    c->status = ST_DONE;
    c->error = 0;
    clearerr(stdin);
}

// ---------------------------------------------------------------------------
// History navigation

// A masked read never shows or recalls text: history keys do nothing there.
void history_lookup(console *c, int direction) {
    if (c->masked || c->history->count < 1 || !c->editor.buffer) return;
    history_save_current_buffer(c, c->editor.buffer,
                                static_cast<uint32_t>(c->editor.lastchar - c->editor.buffer));
    history_line *e = history_get(c, direction);
    if (e) buffer_replace(c, e->text, e->length);
    qv::undo_reset(c); // undo goes back to the entry as it came, no further
}

namespace {

// Page Up and Page Down: the entry at the position just set, or an emptied
// current line when there is none.
void history_jump(console *c) {
    if (c->masked || !c->editor.buffer) return;
    history_line *e = history_get(c, 0);
    if (e) {
        buffer_replace(c, e->text, e->length);
    } else {
        c->editor.cursor = c->editor.buffer + qv::buffer_line_start(c);
        qv::buffer_kill_to_end(c);
    }
    qv::undo_reset(c);
    refresh(c);
}

} // namespace

// Page Up keeps the line being typed, as Up does, so Down brings it back.
void action_history_earliest(console *c, int) {
    if (!c->masked && c->editor.buffer && c->history->count > 0)
        history_save_current_buffer(c, c->editor.buffer,
                                    static_cast<uint32_t>(c->editor.lastchar - c->editor.buffer));
    history_set_earliest(c);
    history_jump(c);
}

void action_history_latest(console *c, int) {
    history_set_latest(c);
    history_jump(c);
}
