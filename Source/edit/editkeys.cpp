// The editing keys of readline-trained fingers: words, kill and yank,
// transpose, clear screen, quoted insert. Like every action they change
// state only; the screen follows from the state.
#include "editkeys.h"

#include <cstdlib>
#include <cwchar>

#include "actions.h"
#include "console_record.h"
#include "frame.h"
#include "hints.h"
#include "killring.h"
#include "layout.h"
#include "qv_assert.h"
#include "text.h"
#include "undo.h"

struct qv::EditKeysState {
    bool quoted; // Ctrl-V: the next key goes into the text as it is
};

namespace {

int cursor_of(const console *c) { return static_cast<int>(c->editor.cursor - c->editor.buffer); }
int length_of(const console *c) { return static_cast<int>(c->editor.lastchar - c->editor.buffer); }

bool is_space(wchar_t ch) { return ch == L' ' || ch == L'\t' || ch == L'\n'; }

} // namespace

namespace {

// Words are made of whole units: a character with the combining marks drawn
// into its cell belongs to a word when the character does, marks and all.
bool word_unit_before(const wchar_t *b, int o, int *start) {
    *start = qv::layout_unit_start(b, o);
    return qv::is_word_char(b[*start]);
}

} // namespace

// The start of the word before o: back over what is not a word, then over
// the word.
int qv::word_before(const console *c, int o) {
    const wchar_t *b = c->editor.buffer;
    int start = 0;
    while (o > 0 && !word_unit_before(b, o, &start)) o = start;
    while (o > 0 && word_unit_before(b, o, &start)) o = start;
    return o;
}

// The end of the word after o.
int qv::word_after(const console *c, int o) {
    const wchar_t *b = c->editor.buffer;
    const int len = length_of(c);
    while (o < len && !qv::is_word_char(b[o])) o = qv::layout_unit_end(b, o, len);
    while (o < len && qv::is_word_char(b[o])) o = qv::layout_unit_end(b, o, len);
    return o;
}

namespace {

using qv::word_after;
using qv::word_before;

// Removes the text from `from` to `to` into the kill ring; the cursor ends
// at `from`.
void kill(console *c, int from, int to) {
    if (!c->editor.buffer || from >= to) return;
    qv::kill_ring_add(c, c->editor.buffer + from, to - from, to <= cursor_of(c), qv::is_kill(qv::frame_last_action(c)));
    c->editor.cursor = c->editor.buffer + to;
    buffer_delete_before(c, static_cast<uint32_t>(to - from));
    history_set_dirty(c);
}

void insert(console *c, const wchar_t *text, int n) {
    if (n > 0 && buffer_insert_string(c, text, static_cast<uint32_t>(n)) != 0) history_set_dirty(c);
}

qv::EditKeysState *keys_of(const console *c) { return c->state ? c->state->editkeys : nullptr; }

} // namespace

qv::EditKeysState *qv::editkeys_new() { return static_cast<EditKeysState *>(calloc(1, sizeof(EditKeysState))); }

void qv::editkeys_free(EditKeysState *k) { free(k); }

bool qv::is_kill(action_fn a) {
    return a == action_kill_to_end_of_line || a == action_unix_word_rubout || a == action_backward_kill_word ||
           a == action_kill_word || a == action_kill_line_start;
}

bool qv::quoted_active(const console *c) {
    const EditKeysState *k = keys_of(c);
    return k && k->quoted;
}

void qv::editkeys_reset(console *c) {
    if (EditKeysState *k = keys_of(c)) k->quoted = false;
}

void qv::quoted_key(console *c, int key) {
    if (EditKeysState *k = keys_of(c)) k->quoted = false;
    const wchar_t ch = static_cast<wchar_t>(key);
    insert(c, &ch, 1);
}

// ---------------------------------------------------------------------------
// Actions

void action_backward_word(console *c, int) {
    if (!c->editor.buffer) return;
    c->editor.cursor = c->editor.buffer + word_before(c, cursor_of(c));
}

void action_forward_word(console *c, int) {
    if (!c->editor.buffer) return;
    if (qv::hint_accept(c, true)) return;
    c->editor.cursor = c->editor.buffer + word_after(c, cursor_of(c));
}

// Ctrl-K: the whole rest of the input, continuation lines included. The rows
// from the cursor's down are drawn whole again.
void action_kill_to_end_of_line(console *c, int) {
    QV_ASSERT(c->editor.cursor <= c->editor.lastchar);
    QV_ASSERT(c->editor.cursor >= c->editor.buffer);
    if (c->editor.buffer)
        qv::kill_ring_add(c, c->editor.cursor, static_cast<int>(c->editor.lastchar - c->editor.cursor), false,
                          qv::is_kill(qv::frame_last_action(c)));
    qv::buffer_kill_to_end(c);
    qv::frame_request(c, qv::kRedrawBelow);
}

void action_unix_word_rubout(console *c, int) {
    if (!c->editor.buffer) return;
    const wchar_t *b = c->editor.buffer;
    int o = cursor_of(c);
    while (o > 0 && is_space(b[o - 1])) o--;
    while (o > 0 && !is_space(b[o - 1])) o--;
    kill(c, o, cursor_of(c));
}

void action_backward_kill_word(console *c, int) {
    if (c->editor.buffer) kill(c, word_before(c, cursor_of(c)), cursor_of(c));
}

void action_kill_word(console *c, int) {
    if (c->editor.buffer) kill(c, cursor_of(c), word_after(c, cursor_of(c)));
}

void action_kill_line_start(console *c, int) {
    if (c->editor.buffer) kill(c, qv::buffer_line_start(c), cursor_of(c));
}

void action_yank(console *c, int) {
    if (!c->editor.buffer) return;
    int len = 0;
    if (const wchar_t *text = qv::kill_ring_yank(c, cursor_of(c), &len)) insert(c, text, len);
}

// Right after a yank: the yanked text gives way to the kill before it.
void action_yank_pop(console *c, int) {
    if (!c->editor.buffer) return;
    // Only a pop that took effect keeps the yank open: a refused one, even
    // right after a yank, ends it, so a second press finds nothing either.
    const action_fn last = qv::frame_last_action(c);
    int old = 0, len = 0;
    const wchar_t *text = last == action_yank || last == action_yank_pop
                              ? qv::kill_ring_yank_pop(c, cursor_of(c), &old, &len)
                              : nullptr;
    if (!text) {
        qv::kill_ring_end_yank(c);
        return;
    }
    buffer_delete_before(c, static_cast<uint32_t>(old));
    insert(c, text, len);
}

// The unit before the cursor and the one at it change places, a character
// with its marks as one (at the end of the text, the last two).
void action_transpose(console *c, int) {
    if (!c->editor.buffer) return;
    int o = cursor_of(c);
    const int len = length_of(c);
    if (len < 2 || o == 0) return;
    wchar_t *b = c->editor.buffer;
    if (o == len) o = qv::layout_unit_start(b, o); // at the end: the last two
    if (o == 0) return;
    const int first = qv::layout_unit_start(b, o), end = qv::layout_unit_end(b, o, len);
    // Never across a line: a kept line break, or a continuation that starts
    // without one, would move a character to the other line.
    if (b[o] == L'\n' || b[o - 1] == L'\n') return;
    int nbreaks = 0;
    const qv::TextBreak *breaks = qv::buffer_breaks(c, &nbreaks);
    for (int i = 0; i < nbreaks; i++)
        if (breaks[i].offset == o) return;
    // Through the edit buffer, so the change is one undoable step.
    wchar_t pair[64];
    const int n = end - first;
    if (n > 64) return;
    wmemcpy(pair, b + o, static_cast<size_t>(end - o));
    wmemcpy(pair + (end - o), b + first, static_cast<size_t>(o - first));
    c->editor.cursor = b + end;
    buffer_delete_before(c, static_cast<uint32_t>(n));
    insert(c, pair, n);
}

void action_clear_screen(console *c, int) {
    qv::frame_request(c, qv::kFlushPending);
    qv::frame_request(c, qv::kClearScreen);
}

void action_quoted_insert(console *c, int) {
    if (qv::EditKeysState *k = keys_of(c))
        if (c->editor.buffer) k->quoted = true;
}

void action_undo(console *c, int) { qv::undo_step(c); }

void action_redo(console *c, int) { qv::redo_step(c); }
