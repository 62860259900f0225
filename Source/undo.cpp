// Undo. The edit buffer reports every change it makes (characters put in,
// characters taken out, with their text), and the changes of one key form a
// step; undo plays a step backwards. Typed characters in a row, and a paste,
// are one step. The log costs what the changes cost, never a copy of the line
// per key, so a long paste stays cheap.
#include <cstdlib>
#include <cwchar>

#include "console.h"

struct undo_log {
    struct Change {
        int pos;
        int n;
        wchar_t *removed; // NULL for characters put in
        int step;
    };
    Change *changes;
    int count, cap;
    int step;       // the step the next change belongs to
    bool open;      // a boundary was passed: the next change starts a step
    int suspended;  // changes are not logged (undo itself, a search's display)
};

namespace {

// Past this many changes the oldest go: undo reaches back a long way, not
// for ever.
constexpr int kMaxChanges = 4096;

undo_log *log_of(console *c) {
    if (!c->state) return nullptr;
    if (!c->state->undo) c->state->undo = static_cast<undo_log *>(calloc(1, sizeof(undo_log)));
    return c->state->undo;
}

void drop_oldest(undo_log *u) {
    free(u->changes[0].removed);
    for (int i = 1; i < u->count; i++) u->changes[i - 1] = u->changes[i];
    u->count--;
}

undo_log::Change *next_change(undo_log *u) {
    if (u->open) {
        u->step++;
        u->open = false;
    }
    if (u->count == kMaxChanges) drop_oldest(u);
    if (u->count == u->cap) {
        const int cap = u->cap ? u->cap * 2 : 32;
        auto *grown = static_cast<undo_log::Change *>(realloc(u->changes, sizeof(undo_log::Change) * static_cast<size_t>(cap)));
        if (!grown) return nullptr;
        u->changes = grown;
        u->cap = cap;
    }
    undo_log::Change *ch = &u->changes[u->count++];
    *ch = undo_log::Change{0, 0, nullptr, u->step};
    return ch;
}

undo_log::Change *last_of_step(undo_log *u) {
    return !u->open && u->count > 0 && u->changes[u->count - 1].step == u->step ? &u->changes[u->count - 1]
                                                                                  : nullptr;
}

} // namespace

void qv::undo_note_insert(console *c, int pos, int n) {
    undo_log *u = log_of(c);
    if (!u || u->suspended || n <= 0) return;
    undo_log::Change *last = last_of_step(u);
    // Typing on extends the stretch put in.
    if (last && !last->removed && last->pos + last->n == pos) {
        last->n += n;
        return;
    }
    if (undo_log::Change *ch = next_change(u)) {
        ch->pos = pos;
        ch->n = n;
    }
}

void qv::undo_note_delete(console *c, int pos, const wchar_t *text, int n) {
    undo_log *u = log_of(c);
    if (!u || u->suspended || n <= 0) return;
    auto *copy = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(n)));
    if (!copy) return;
    wmemcpy(copy, text, static_cast<size_t>(n));
    undo_log::Change *ch = next_change(u);
    if (!ch) {
        free(copy);
        return;
    }
    ch->pos = pos;
    ch->n = n;
    ch->removed = copy;
}

void qv::undo_boundary(console *c, bool typing) {
    undo_log *u = c->state ? c->state->undo : nullptr;
    if (u && !typing) u->open = true;
}

void qv::undo_reset(console *c) {
    undo_log *u = c->state ? c->state->undo : nullptr;
    if (!u) return;
    for (int i = 0; i < u->count; i++) free(u->changes[i].removed);
    u->count = 0;
    u->open = true;
}

void qv::undo_suspend(console *c, bool on) {
    if (undo_log *u = log_of(c)) u->suspended += on ? 1 : -1;
}

void qv::undo_free(console *c) {
    if (!c->state || !c->state->undo) return;
    undo_reset(c);
    free(c->state->undo->changes);
    free(c->state->undo);
    c->state->undo = nullptr;
}

void action_undo(console *c, int) {
    undo_log *u = c->state ? c->state->undo : nullptr;
    if (!u || u->count == 0 || !c->editor.buffer) return;
    const int step = u->changes[u->count - 1].step;
    int cursor = 0;
    u->suspended++;
    while (u->count > 0 && u->changes[u->count - 1].step == step) {
        undo_log::Change &ch = u->changes[--u->count];
        c->editor.cursor = c->editor.buffer + ch.pos;
        if (ch.removed) {
            buffer_insert_string(c, ch.removed, static_cast<uint32_t>(ch.n));
            free(ch.removed);
        } else {
            buffer_delete_after(c, static_cast<uint32_t>(ch.n));
        }
        // The cursor goes where the step began: behind text given back, at
        // the place of text taken out.
        cursor = ch.removed ? ch.pos + ch.n : ch.pos;
    }
    u->suspended--;
    u->open = true;
    const int len = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    c->editor.cursor = c->editor.buffer + (cursor <= len ? cursor : len);
    history_set_dirty(c);
    qv::screen_refresh(c, 0);
}
