// History hints: with the cursor at the end of the input, the rest of the
// newest history entry that starts with the text is drawn dim after it.
// The hint is no part of the text until the user takes it.
#include "hints.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>

#include "console_record.h"
#include "options.h"
#include "output.h"
#include "text.h"

// The hint is a copy: the entry it came from may leave the history (a limit,
// a clear, a callback's additions) while the hint is still on the screen.
struct qv::HintState {
    wchar_t *text;
    int len, cap;
    unsigned version;
};

namespace {

qv::HintState *hint_of(const console *c) { return c->state ? c->state->hint : nullptr; }

void set_hint(qv::HintState *h, const wchar_t *text, int len) {
    if (h->len == len && (len == 0 || wmemcmp(h->text, text, static_cast<size_t>(len)) == 0)) return;
    if (len > h->cap) {
        auto *grown = static_cast<wchar_t *>(realloc(h->text, sizeof(wchar_t) * static_cast<size_t>(len)));
        if (!grown) {
            len = 0; // no hint rather than part of one
        } else {
            h->text = grown;
            h->cap = len;
        }
    }
    if (len > 0) wmemcpy(h->text, text, static_cast<size_t>(len));
    h->len = len;
    h->version++;
}

} // namespace

qv::HintState *qv::hint_new() { return static_cast<HintState *>(calloc(1, sizeof(HintState))); }

void qv::hint_free(HintState *h) {
    if (!h) return;
    free(h->text);
    free(h);
}

bool qv::hints_enabled(const console *c) {
    return option(TERM_OPTION_HINTS) && hint_of(c) && !c->masked && terminal_can_paint() && terminal_key("dim") &&
           terminal_key("sgr0");
}

void qv::hint_update(console *c, bool in_mode) {
    HintState *h = hint_of(c);
    if (!h) return;
    const wchar_t *hint = nullptr;
    int hint_len = 0;
    const int len = c->editor.buffer ? static_cast<int>(c->editor.lastchar - c->editor.buffer) : 0;
    const bool wanted = hints_enabled(c) && !in_mode && len > 0 && c->editor.cursor == c->editor.lastchar &&
                        c->history;
    // Entries are UTF-8: the text is compared as UTF-8 too, a byte prefix
    // being a character prefix in well-formed UTF-8.
    std::unique_ptr<char, decltype(&free)> typed(wanted ? utf8_of(c->editor.buffer, len) : nullptr, &free);
    const size_t plen = typed ? strlen(typed.get()) : 0;
    std::unique_ptr<wchar_t, decltype(&free)> rest(nullptr, &free);
    for (const history_entry *e = typed ? c->history->last : nullptr; e && !hint; e = e->prev) {
        if (e->length <= plen || memcmp(e->text, typed.get(), plen) != 0) continue;
        // The rest of the entry's first line.
        const char *from = e->text + plen;
        const char *eol = static_cast<const char *>(memchr(from, '\n', e->length - plen));
        const size_t n = eol ? static_cast<size_t>(eol - from) : e->length - plen;
        if (n == 0) continue;
        rest.reset(utf8_decode(from, n, &hint_len));
        hint = rest.get();
        if (!hint) hint_len = 0;
        break;
    }
    set_hint(h, hint, hint_len);
}

bool qv::hint_accept(console *c, bool word) {
    HintState *h = hint_of(c);
    if (!h || h->len == 0 || c->editor.cursor != c->editor.lastchar) return false;
    int n = h->len;
    if (word) {
        n = 0;
        while (n < h->len && !is_word_char(h->text[n])) n++;
        while (n < h->len && is_word_char(h->text[n])) n++;
    }
    // The insertion changes the text the hint is computed from: the copy is
    // taken out of the way first.
    wchar_t *taken = h->text;
    h->text = nullptr;
    h->len = h->cap = 0;
    h->version++;
    if (buffer_insert_string(c, taken, static_cast<uint32_t>(n)) != 0) history_set_dirty(c);
    free(taken);
    hint_update(c, false);
    return true;
}

void qv::hint_clear(console *c) {
    if (HintState *h = hint_of(c)) set_hint(h, nullptr, 0);
}

const wchar_t *qv::hint_text(const console *c, int *len, unsigned *version) {
    const HintState *h = hint_of(c);
    *len = h ? h->len : 0;
    if (version) *version = h ? h->version : 0;
    return h && h->len > 0 ? h->text : nullptr;
}
