// History hints: with the cursor at the end of the input, the rest of the
// newest history entry that starts with the text is drawn dim after it.
// The hint is no part of the text until the user takes it.
#include <cstdlib>
#include <cwchar>

#include "console.h"
#include "options.h"
#include "output.h"
#include "text.h"

namespace {

// The hint is a copy: the entry it came from may leave the history (a limit,
// a clear, a callback's additions) while the hint is still on the screen.
void set_hint(console *c, const wchar_t *hint, int len) {
    console_state *st = c->state;
    if (st->hint_len == len && (len == 0 || wmemcmp(st->hint_text, hint, static_cast<size_t>(len)) == 0)) return;
    if (len > st->hint_cap) {
        auto *grown = static_cast<wchar_t *>(realloc(st->hint_text, sizeof(wchar_t) * static_cast<size_t>(len)));
        if (!grown) len = 0; // no hint rather than part of one
        else {
            st->hint_text = grown;
            st->hint_cap = len;
        }
    }
    if (len > 0) wmemcpy(st->hint_text, hint, static_cast<size_t>(len));
    st->hint = len > 0 ? st->hint_text : nullptr;
    st->hint_len = len;
    // The rows from the end of the text on are laid out again.
    const int end = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    if (st->dirty_from > end) st->dirty_from = end;
    qv::screen_refresh(c, 0);
}

} // namespace

bool qv::hints_enabled(const console *c) {
    return option(TERM_OPTION_HINTS) && c->state && !c->masked && !c->state->plain &&
           terminal_key("dim") && terminal_key("sgr0");
}

void qv::hint_update(console *c) {
    console_state *st = c->state;
    if (!st) return;
    const wchar_t *hint = nullptr;
    int hint_len = 0;
    const int len = c->editor.buffer ? static_cast<int>(c->editor.lastchar - c->editor.buffer) : 0;
    const bool wanted = hints_enabled(c) && !st->modal && len > 0 &&
                        c->editor.cursor == c->editor.lastchar && c->history;
    for (const history_entry *e = wanted ? c->history->last : nullptr; e && !hint; e = e->prev) {
        if (static_cast<int>(e->length) <= len || wmemcmp(e->text, c->editor.buffer, static_cast<size_t>(len)) != 0)
            continue;
        // The rest of the entry's first line.
        hint = e->text + len;
        while (hint_len < static_cast<int>(e->length) - len && hint[hint_len] != L'\n') hint_len++;
        if (hint_len == 0) hint = nullptr;
    }
    set_hint(c, hint, hint_len);
}

bool qv::hint_accept(console *c, bool word) {
    console_state *st = c->state;
    if (!st || !st->hint || st->hint_len == 0 || c->editor.cursor != c->editor.lastchar) return false;
    int n = st->hint_len;
    if (word) {
        n = 0;
        while (n < st->hint_len && !is_word_char(st->hint[n])) n++;
        while (n < st->hint_len && is_word_char(st->hint[n])) n++;
    }
    // The insertion changes the text the hint is computed from: take the
    // hint's copy out of the way first.
    wchar_t *taken = st->hint_text;
    st->hint_text = nullptr;
    st->hint = nullptr;
    st->hint_len = st->hint_cap = 0;
    if (buffer_insert_string(c, taken, static_cast<uint32_t>(n)) != 0) history_set_dirty(c);
    free(taken);
    hint_update(c);
    qv::screen_refresh(c, 0);
    return true;
}

void qv::hint_clear(console *c) {
    if (c->state && c->state->hint) set_hint(c, nullptr, 0);
}
