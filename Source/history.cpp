// The history list (oldest to newest) and its navigation state.
#include "history.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "console.h"
#include "text.h"
#include "qv_assert.h"

namespace {

using CharPtr = std::unique_ptr<char, decltype(&free)>;

void free_entry(history_entry *e) {
    free(e->text);
    free(e);
}

} // namespace

wchar_t *make_string_copy(const wchar_t *text, uint32_t n) {
    if (!text) return nullptr;
    auto *copy = static_cast<wchar_t *>(calloc(static_cast<size_t>(n) + 1, sizeof(wchar_t)));
    if (!copy) return nullptr;
    for (uint32_t i = 0; i < n && text[i] != 0; i++) copy[i] = text[i];
    copy[n] = 0;
    return copy;
}

history_t *history_new(void) { return static_cast<history_t *>(calloc(1, sizeof(history_t))); }

void history_clear(console *c) {
    history_t *h = c->history;
    for (history_entry *e = h->first; e;) {
        history_entry *next = e->next;
        free_entry(e);
        e = next;
    }
    history_cleanup_temp(c);
    h->first = h->last = h->current = nullptr;
    h->count = 0;
}

int top_is_duplicate(console *c, const wchar_t *text, uint32_t n) {
    const history_entry *top = c->history->last;
    return top && top->length == n && wcscmp(top->text, text) == 0;
}

void history_add(console *c, const wchar_t *text, uint32_t n) {
    history_t *h = c->history;
    if (c->history_add_unchanged == 0 && h->dirty == 0) return;
    if (c->masked || c->history_max <= 0) return;
    auto *e = static_cast<history_entry *>(calloc(1, sizeof(history_entry)));
    if (!e) return;
    e->text = make_string_copy(text, n);
    if (!e->text) {
        free(e);
        return;
    }
    e->length = n;
    if (!h->last) {
        QV_ASSERT(h->first == NULL);
        h->first = h->last = e;
        h->count = 1;
    } else {
        QV_ASSERT(h->first != NULL);
        if (c->history_allow_duplicates == 0 && top_is_duplicate(c, e->text, n)) {
            free_entry(e);
            e = nullptr;
        } else {
            e->prev = h->last;
            h->last->next = e;
            h->last = e;
            if (h->count < c->history_max) {
                h->count++;
            } else {
                history_entry *oldest = h->first;
                h->first = oldest->next;
                h->first->prev = nullptr;
                free_entry(oldest);
            }
        }
    }
    if (e) qv::history_note_new(c, e->text, e->length);
    history_cleanup_temp(c);
    h->current = nullptr;
    h->dirty = 0;
}

history_line *history_get(console *c, int direction) {
    history_t *h = c->history;
    if (direction < 0) {
        if (!h->current)
            h->current = h->last;
        else if (h->current->prev)
            h->current = h->current->prev;
        else
            return nullptr;
    } else if (direction > 0) {
        if (!h->current) return nullptr;
        if (h->current->next) {
            h->current = h->current->next;
        } else {
            if (!h->saved) return nullptr;
            h->current = nullptr;
            return h->saved;
        }
    }
    return reinterpret_cast<history_line *>(h->current);
}

void history_set_earliest(console *c) { c->history->current = c->history->first; }

void history_set_latest(console *c) { c->history->current = nullptr; }

void history_save_current_buffer(console *c, const wchar_t *line, uint32_t n) {
    QV_ASSERT(line != NULL);
    history_t *h = c->history;
    if (h->saved && h->dirty) history_cleanup_temp(c);
    if (!h->saved) {
        auto *saved = static_cast<history_line *>(malloc(sizeof(history_line)));
        if (saved) {
            saved->text = make_string_copy(line, n);
            saved->length = n;
            if (saved->text)
                h->saved = saved;
            else
                free(saved);
        }
    }
    if (h->saved) h->dirty = 0;
}

void history_cleanup_temp(console *c) {
    history_t *h = c->history;
    if (!h->saved) return;
    free(h->saved->text);
    free(h->saved);
    h->saved = nullptr;
}

void history_set_dirty(console *c) { c->history->dirty = 1; }

int history_is_dirty(console *c) { return c->history->dirty; }

void history_print_all(console *c) {
    for (const history_entry *e = c->history->first; e; e = e->next) {
        CharPtr line(wchar2cp(c, e->text, static_cast<int>(e->length)), &free);
        if (!line) continue;
        fputs(line.get(), stdout);
        fputc('\n', stdout);
    }
}
