// The console record: its set-up and release, the per-read edit buffer,
// and the prompts. The record keeps the fields the console layer has always
// had; what the modules behind it keep lives in their own records, one
// handle each in console_state.
#include "console.h"

#include <cstdlib>
#include <cwchar>

#include "bindings.h"
#include "commands.h"
#include "completion.h"
#include "editkeys.h"
#include "engine.h"
#include "frame.h"
#include "below.h"
#include "menu.h"
#include "hints.h"
#include "input.h"
#include "killring.h"
#include "model.h"
#include "output.h"
#include "paste.h"
#include "plainview.h"
#include "repeat.h"
#include "search.h"
#include "text.h"
#include "undo.h"
#include "userkeys.h"
#include "variables.h"
#include "view.h"
#include "vimode.h"

namespace {

constexpr int kKeymapCount = 3;

int prompt_width(console *c) { return qv::prompt_cells(c->prompt, c->screen.cols); }

void release_keymaps(console *c) {
    if (!c->keymaps) return;
    for (int i = 0; i < kKeymapCount; i++) keymap_delete(c->keymaps[i]);
    free(c->keymaps);
    c->keymaps = nullptr;
}

// Every module's record, or none: false when memory ran out.
bool make_state(console *c) {
    auto *st = static_cast<console_state *>(calloc(1, sizeof(console_state)));
    if (!st) return false;
    c->state = st;
    st->edit = qv::edit_state_new();
    st->undo = qv::undo_new();
    st->ring = qv::kill_ring_new();
    st->hint = qv::hint_new();
    st->search = qv::search_new();
    st->completion = qv::completion_new();
    st->paste = qv::paste_new();
    st->editkeys = qv::editkeys_new();
    st->frame = qv::frame_new();
    st->engine = qv::engine_new();
    st->model = qv::model_new();
    st->view = qv::view_new();
    st->plain = qv::plain_new(!qv::terminal_can_paint());
    st->file = qv::history_file_new();
    st->vi = qv::vi_new();
    st->commands = qv::commands_new();
    st->repeat = qv::repeat_new();
    st->variables = qv::variables_new();
    st->below = qv::below_new();
    st->menu = qv::menu_new();
    return st->edit && st->undo && st->ring && st->hint && st->search && st->completion && st->paste &&
           st->editkeys && st->frame && st->engine && st->model && st->view && st->plain && st->file && st->vi &&
           st->commands && st->repeat && st->variables && st->below && st->menu;
}

void free_state(console *c) {
    console_state *st = c->state;
    if (!st) return;
    qv::edit_state_free(st->edit);
    qv::undo_free(st->undo);
    qv::kill_ring_free(st->ring);
    qv::hint_free(st->hint);
    qv::below_free(st->below);
    qv::menu_free(st->menu);
    qv::search_free(st->search);
    qv::completion_free(st->completion);
    qv::paste_free(st->paste);
    qv::editkeys_free(st->editkeys);
    qv::frame_free(st->frame);
    qv::engine_free(st->engine);
    qv::model_free(st->model);
    qv::view_free(st->view);
    qv::plain_free(st->plain);
    qv::history_file_free(st->file);
    qv::vi_free(st->vi);
    qv::commands_free(st->commands);
    qv::repeat_free(st->repeat);
    qv::variables_free(st->variables);
    free(st);
    c->state = nullptr;
}

} // namespace

// ---------------------------------------------------------------------------
// Set-up and release

void do_init_screen(console *c) {
    qv::terminal_setup(&c->screen.rows, &c->screen.cols);
    c->history_add_unchanged = 1;
    c->history_allow_duplicates = 0;
    c->history_max = 1000;
    c->masked = 0;
}

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
    if (!make_state(c)) goto fail;
    screen_buffer_initialize(c);
    if (!c->screen.input.lines) goto fail;

    c->keymaps = static_cast<keymap_entry **>(calloc(kKeymapCount, sizeof(keymap_entry *)));
    if (!c->keymaps) goto fail;
    for (int i = 0; i < kKeymapCount; i++)
        if (!(c->keymaps[i] = keymap_new())) goto fail;
    if (!keymap_set_defaults(c)) goto fail;
    // readline's Ctrl-X Ctrl-R reads the bindings file again; the default
    // map's own module cannot name the reader, which names every action.
#if QV_WITH_BINDINGS
    if (!keymap_bind_key_sequence(c->keymaps[0], "\030\022", KM_FUNCTION, action_re_read_init_file)) goto fail;
#endif
    get_os_encoding(c);
    c->history = history_new();
    if (!c->history) goto fail;
    // The history file keeps what enters the list for the next save, and
    // undo hears of every edit.
    qv::history_file_attach(c);
    qv::undo_attach(c);
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
    free_state(c);
    c->initialized = 0;
}

// ---------------------------------------------------------------------------
// Prompts: for hosts of the console layer, into the row model

void console_set_prompt(console *c, const wchar_t *prompt) { c->prompt = prompt; }

void console_put_prompt(console *c) {
    screen_put_prompt(c, c->prompt, prompt_width(c));
    repaint(c, 1);
}

void console_put_secondary_prompt(console *c) { screen_put_blanks(c, prompt_width(c)); }

void console_schedule_update(console *) {}

int string_length(const wchar_t *s, int) { return static_cast<int>(wcslen(s)); }
