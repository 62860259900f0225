// The editing keys of readline-trained fingers: words, kill and yank,
// transpose, clear screen, quoted insert. Like every action they change the
// edit buffer and ask for a refresh; the screen follows from the buffer.
#include "editkeys.h"

#include <cstdlib>
#include <cwchar>

#include "console.h"
#include "output.h"
#include "text.h"

namespace {

int cursor_of(const console *c) { return static_cast<int>(c->editor.cursor - c->editor.buffer); }
int length_of(const console *c) { return static_cast<int>(c->editor.lastchar - c->editor.buffer); }

bool is_space(wchar_t ch) { return ch == L' ' || ch == L'\t' || ch == L'\n'; }

// The start of the word before o: back over what is not a word, then over
// the word.
int word_before(const console *c, int o) {
    const wchar_t *b = c->editor.buffer;
    while (o > 0 && !qv::is_word_char(b[o - 1])) o--;
    while (o > 0 && qv::is_word_char(b[o - 1])) o--;
    return o;
}

// The end of the word after o.
int word_after(const console *c, int o) {
    const wchar_t *b = c->editor.buffer;
    const int len = length_of(c);
    while (o < len && !qv::is_word_char(b[o])) o++;
    while (o < len && qv::is_word_char(b[o])) o++;
    return o;
}

bool is_kill(action_fn a) {
    return a == action_kill_to_end_of_line || a == action_unix_word_rubout ||
           a == action_backward_kill_word || a == action_kill_word || a == action_kill_line_start;
}

// Removes the text from `from` to `to` into the kill ring; the cursor ends
// at `from`.
void kill(console *c, int from, int to) {
    if (!c->editor.buffer || from >= to) return;
    qv::kill_ring_add(c, c->editor.buffer + from, to - from, to <= cursor_of(c));
    c->editor.cursor = c->editor.buffer + to;
    buffer_delete_before(c, static_cast<uint32_t>(to - from));
    history_set_dirty(c);
    qv::screen_refresh(c, 0);
}

void insert(console *c, const wchar_t *text, int n) {
    if (n > 0 && buffer_insert_string(c, text, static_cast<uint32_t>(n)) != 0) history_set_dirty(c);
    qv::screen_refresh(c, 0);
}

// Ctrl-V: the next key goes in as it is.
int quoted_key(console *c, action_fn, int key) {
    c->state->modal = nullptr;
    const wchar_t ch = static_cast<wchar_t>(key);
    insert(c, &ch, 1);
    return 1;
}

} // namespace

// ---------------------------------------------------------------------------
// The kill ring

void qv::kill_ring_add(console *c, const wchar_t *text, int n, bool before) {
    console_state *st = c->state;
    if (!st || n <= 0 || c->masked) return;
    // Kills in a row make one entry, as the user sees one stretch of text go.
    const bool join = st->ring_count > 0 && is_kill(st->last_action);
    const int slot = join ? st->ring_top : (st->ring_top + 1) % kKillRingSize;
    const int old = join ? st->ring_len[slot] : 0;
    auto *grown = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(old + n + 1)));
    if (!grown) return;
    const wchar_t *prev = join ? st->ring[slot] : nullptr;
    if (before) {
        wmemcpy(grown, text, static_cast<size_t>(n));
        if (old) wmemcpy(grown + n, prev, static_cast<size_t>(old));
    } else {
        if (old) wmemcpy(grown, prev, static_cast<size_t>(old));
        wmemcpy(grown + old, text, static_cast<size_t>(n));
    }
    grown[old + n] = 0;
    free(st->ring[slot]);
    st->ring[slot] = grown;
    st->ring_len[slot] = old + n;
    st->ring_top = slot;
    if (!join && st->ring_count < kKillRingSize) st->ring_count++;
}

void qv::kill_ring_free(console *c) {
    console_state *st = c->state;
    if (!st) return;
    for (int i = 0; i < kKillRingSize; i++) {
        free(st->ring[i]);
        st->ring[i] = nullptr;
        st->ring_len[i] = 0;
    }
    st->ring_count = st->ring_top = 0;
}

// ---------------------------------------------------------------------------
// Actions

void action_backward_word(console *c, int) {
    if (!c->editor.buffer) return;
    c->editor.cursor = c->editor.buffer + word_before(c, cursor_of(c));
    qv::screen_refresh(c, 0);
}

void action_forward_word(console *c, int) {
    if (!c->editor.buffer) return;
    if (qv::hint_accept(c, true)) return;
    c->editor.cursor = c->editor.buffer + word_after(c, cursor_of(c));
    qv::screen_refresh(c, 0);
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
    console_state *st = c->state;
    if (!c->editor.buffer || !st || st->ring_count == 0 || c->masked) return;
    st->yank_start = cursor_of(c);
    st->yank_len = st->ring_len[st->ring_top];
    st->yank_slot = st->ring_top;
    insert(c, st->ring[st->ring_top], st->ring_len[st->ring_top]);
}

// Right after a yank: the yanked text gives way to the kill before it.
void action_yank_pop(console *c, int) {
    console_state *st = c->state;
    if (!c->editor.buffer || !st || st->ring_count < 2) return;
    if (st->last_action != action_yank && st->last_action != action_yank_pop) return;
    if (cursor_of(c) != st->yank_start + st->yank_len) return;
    buffer_delete_before(c, static_cast<uint32_t>(st->yank_len));
    const int slot = (st->yank_slot + qv::kKillRingSize - 1) % qv::kKillRingSize;
    st->yank_slot = st->ring[slot] ? slot : st->ring_top;
    st->yank_len = st->ring_len[st->yank_slot];
    insert(c, st->ring[st->yank_slot], st->yank_len);
}

void action_transpose(console *c, int) {
    if (!c->editor.buffer) return;
    int o = cursor_of(c);
    const int len = length_of(c);
    if (len < 2 || o == 0) return;
    if (o == len) o--; // at the end: the last two
    wchar_t *b = c->editor.buffer;
    if (b[o] == L'\n' || b[o - 1] == L'\n') return;
    // Through the edit buffer, so the change is one undoable step.
    const wchar_t pair[2] = {b[o], b[o - 1]};
    c->editor.cursor = b + o + 1;
    buffer_delete_before(c, 2);
    insert(c, pair, 2);
}

void action_clear_screen(console *c, int) {
    qv::screen_flush(c);
    if (qv::erase_screen()) qv::screen_redraw_all(c);
}

void action_quoted_insert(console *c, int) {
    if (c->state && c->editor.buffer) c->state->modal = quoted_key;
}
