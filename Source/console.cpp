// The console record, the prompts, the editing actions, input completion
// and the history navigation actions.
#include "console.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "os-unix.h"
#include "qv_assert.h"

namespace {

constexpr int kEditorCapacity = 512;
constexpr int kKeymapCount = 3;

int prompt_width(console *c) {
    int n = c->prompt ? string_length(c->prompt, 1024) : 0;
    // A prompt wider than the terminal is cut one column short of the width.
    if (n > c->screen.cols) n = c->screen.cols - 1;
    return n;
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
    screen_buffer_initialize(c);
    if (!c->screen.input.lines) goto fail;

    c->keymaps = static_cast<keymap_entry **>(calloc(kKeymapCount, sizeof(keymap_entry *)));
    if (!c->keymaps) goto fail;
    for (int i = 0; i < kKeymapCount; i++)
        if (!(c->keymaps[i] = keymap_new())) goto fail;
    keymap_set_defaults(c);
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
    c->initialized = 0;
}

int console_init_editor(console *c) {
    console_free_editor(c);
    auto *block = static_cast<wchar_t *>(calloc(kEditorCapacity, sizeof(wchar_t)));
    if (!block) return 0;
    c->editor.buffer = c->editor.cursor = c->editor.lastchar = c->editor.editable = block;
    c->editor.limit = block + kEditorCapacity;
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
// Editing actions

void action_insert_char(console *c, int key) {
    if (buffer_insert_char(c, static_cast<wchar_t>(key)) == 0) return;
    screen_put_char(c, c->masked ? static_cast<wchar_t>(static_cast<unsigned char>(c->maskchar))
                                 : static_cast<wchar_t>(key));
    history_set_dirty(c);
    repaint(c, 1);
}

void action_key_insert(console *c, int) { c->flags ^= FLAG_INSERT_KEY; }

void action_key_backspace(console *c, int) {
    buffer_delete_before(c, 1);
    termchar_delete_before(c);
    history_set_dirty(c);
    repaint(c, 1);
}

void action_key_delete(console *c, int) {
    check_cursor(c);
    if (c->editor.cursor != c->editor.lastchar) {
        buffer_delete_after(c, 1);
        termchar_delete_at(c);
    }
    history_set_dirty(c);
    repaint(c, 1);
}

void action_delete_or_quit(console *c, int key) {
    check_cursor(c);
    if (c->editor.lastchar == c->editor.buffer)
        action_end_of_input(c, key);
    else
        action_key_delete(c, key);
}

void action_end_of_input(console *c, int) {
    console_newline(c);
    c->eof = 1;
}

void action_kill_to_end_of_line(console *c, int) {
    check_cursor(c);
    c->editor.lastchar = c->editor.cursor;
    input_clear_from_cursor(c);
    repaint(c, 1);
}

void action_key_tab(console *c, int) { repaint(c, 1); }

void action_key_left(console *c, int) {
    buffer_cursor_move_left(c, 1);
    cursor_move_left(c);
    repaint(c, 1);
}

void action_key_right(console *c, int) {
    buffer_cursor_move_right(c, 1);
    cursor_move_right(c);
    repaint(c, 1);
}

void action_key_home(console *c, int) {
    buffer_cursor_move_home(c);
    screen_cursor_move_home(c);
}

void action_key_end(console *c, int) {
    buffer_cursor_move_end(c);
    screen_cursor_move_end(c);
}

void action_key_up(console *c, int) {
    history_lookup(c, -1);
    repaint(c, 1);
}

void action_key_down(console *c, int) {
    history_lookup(c, 1);
    repaint(c, 1);
}

// The terminal goes to the line after the whole input first, so that every
// row of the abandoned text stays readable above the fresh prompt.
void action_abandon_input(console *c, int) {
    screen_cursor_move_end(c);
    console_newline(c);
    screen_buffer_reset(c);
    if (!console_init_editor(c)) {
        c->status = ST_NOBUFFER;
        return;
    }
    console_put_prompt(c);
}

void action_abandon_input_ctrl_c(console *c, int key) {
    if (c->sigint) signal_interrupt(c);
    action_abandon_input(c, key);
}

void action_suspend_process(console *, int) {}

// ---------------------------------------------------------------------------
// Return: complete the input, or continue it on a further line

void action_key_return(console *c, int) {
    const bool ask = !c->raw && c->callbacks.isInputComplete != nullptr;
    int complete = 0;
    if (ask)
        complete = c->callbacks.isInputComplete(
            c->editor.buffer, static_cast<int>(c->editor.lastchar - c->editor.buffer));

    if (ask && !complete) {
        QV_ASSERT(c->callbacks.isInputComplete != NULL);
        // The rows typed so far stay on the terminal as they are.
        screen_cursor_move_end(c);
        console_newline(c);
        screen_buffer_reset(c);
        console_put_secondary_prompt(c);
        buffer_reset_editable_offset(c);
        buffer_cursor_move_end(c);
        if (!c->callbacks.keepNewline) return;
        if (c->callbacks.keepNewline()) {
            buffer_insert_char(c, 10);
        } else {
            buffer_cursor_move_end(c);
            QV_ASSERT(buffer_peek_before_cursor(c) == '\\');
            buffer_delete_before(c, 1);
            buffer_reset_editable_offset(c);
        }
        return;
    }

    const auto n = static_cast<uint32_t>(c->editor.lastchar - c->editor.buffer);
    *c->editor.lastchar = 0;
    if (n > 0) history_add(c, c->editor.buffer, n);
    screen_cursor_move_end(c);
    console_newline(c);
    c->status = ST_DONE;
    c->error = 0;
    clearerr(stdin);
}

// ---------------------------------------------------------------------------
// History navigation

void history_lookup(console *c, int direction) {
    if (c->history->count < 1) return;
    history_save_current_buffer(c, c->editor.buffer,
                                static_cast<uint32_t>(c->editor.lastchar - c->editor.buffer));
    history_line *e = history_get(c, direction);
    if (!e) return;
    buffer_replace(c, e->text, e->length);
    if (!c->editor.buffer) return;
    screen_buffer_clear(c);
    input_replace(c, e->text, e->length);
}

namespace {

// Page Up and Page Down: the entry at the position just set, or an emptied
// editable part when there is none.
void history_jump(console *c) {
    history_line *e = history_get(c, 0);
    if (e) {
        buffer_replace(c, e->text, e->length);
        if (!c->editor.buffer) return;
        // Blank the rows of a taller input first; the new text redraws the rest.
        if (c->screen.input.numlines > 1) screen_buffer_clear(c);
        input_replace(c, e->text, e->length);
    } else {
        buffer_cursor_move_home(c);
        screen_buffer_clear(c);
    }
    repaint(c, 1);
}

} // namespace

void action_history_earliest(console *c, int) {
    history_set_earliest(c);
    history_jump(c);
}

void action_history_latest(console *c, int) {
    history_set_latest(c);
    history_jump(c);
}
