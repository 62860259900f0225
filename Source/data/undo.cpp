// Undo. The edit buffer reports every change it makes (characters put in,
// characters taken out, with their text), and the changes of one key form a
// step; undo plays a step backwards. Typed characters in a row, and a paste,
// are one step. The log costs what the changes cost, never a copy of the line
// per key, so a long paste stays cheap.
#include "undo.h"

#include <cstdlib>
#include <cwchar>

#include "console_record.h"

struct qv::UndoLog {
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

qv::UndoLog *log_of(const console *c) { return c->state ? c->state->undo : nullptr; }

void clear_log(qv::UndoLog *u) {
    for (int i = 0; i < u->count; i++) free(u->changes[i].removed);
    u->count = 0;
    u->open = true;
}

void drop_oldest(qv::UndoLog *u) {
    free(u->changes[0].removed);
    for (int i = 1; i < u->count; i++) u->changes[i - 1] = u->changes[i];
    u->count--;
}

qv::UndoLog::Change *next_change(qv::UndoLog *u) {
    if (u->open) {
        u->step++;
        u->open = false;
    }
    if (u->count == kMaxChanges) drop_oldest(u);
    if (u->count == u->cap) {
        const int cap = u->cap ? u->cap * 2 : 32;
        auto *grown = static_cast<qv::UndoLog::Change *>(realloc(u->changes, sizeof(qv::UndoLog::Change) * static_cast<size_t>(cap)));
        if (!grown) return nullptr;
        u->changes = grown;
        u->cap = cap;
    }
    qv::UndoLog::Change *ch = &u->changes[u->count++];
    *ch = qv::UndoLog::Change{0, 0, nullptr, u->step};
    return ch;
}

qv::UndoLog::Change *last_of_step(qv::UndoLog *u) {
    return !u->open && u->count > 0 && u->changes[u->count - 1].step == u->step ? &u->changes[u->count - 1]
                                                                                  : nullptr;
}

void note_insert(console *c, int pos, int n) {
    qv::UndoLog *u = log_of(c);
    if (!u || u->suspended || n <= 0) return;
    qv::UndoLog::Change *last = last_of_step(u);
    // Typing on extends the stretch put in.
    if (last && !last->removed && last->pos + last->n == pos) {
        last->n += n;
        return;
    }
    if (qv::UndoLog::Change *ch = next_change(u)) {
        ch->pos = pos;
        ch->n = n;
    } else {
        clear_log(u); // a change it cannot replay would put every older one out of place
    }
}

void note_delete(console *c, int pos, const wchar_t *text, int n) {
    qv::UndoLog *u = log_of(c);
    if (!u || u->suspended || n <= 0) return;
    auto *copy = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(n)));
    qv::UndoLog::Change *ch = copy ? next_change(u) : nullptr;
    if (!ch) {
        free(copy);
        clear_log(u);
        return;
    }
    wmemcpy(copy, text, static_cast<size_t>(n));
    ch->pos = pos;
    ch->n = n;
    ch->removed = copy;
}

void hear(console *c, int pos, const wchar_t *removed, int n) {
    if (removed)
        note_delete(c, pos, removed, n);
    else
        note_insert(c, pos, n);
}

} // namespace

qv::UndoLog *qv::undo_new() { return static_cast<UndoLog *>(calloc(1, sizeof(UndoLog))); }

void qv::undo_attach(console *c) { buffer_set_change_hook(c, hear); }

void qv::undo_boundary(console *c, bool typing) {
    UndoLog *u = log_of(c);
    if (u && !typing) u->open = true;
}

void qv::undo_reset(console *c) {
    if (UndoLog *u = log_of(c)) clear_log(u);
}

void qv::undo_suspend(console *c, bool on) {
    if (qv::UndoLog *u = log_of(c)) u->suspended += on ? 1 : -1;
}

void qv::undo_free(UndoLog *u) {
    if (!u) return;
    clear_log(u);
    free(u->changes);
    free(u);
}

bool qv::undo_pending(const console *c) {
    const qv::UndoLog *u = log_of(c);
    return u && u->count > 0;
}

void qv::undo_step(console *c) {
    qv::UndoLog *u = log_of(c);
    if (!u || u->count == 0 || !c->editor.buffer) return;
    const int step = u->changes[u->count - 1].step;
    int cursor = 0;
    u->suspended++;
    while (u->count > 0 && u->changes[u->count - 1].step == step) {
        qv::UndoLog::Change &ch = u->changes[--u->count];
        const bool gives_back = ch.removed != nullptr;
        bool replayed = ch.pos <= c->editor.lastchar - c->editor.buffer; // never expected otherwise
        if (!replayed) {
            free(ch.removed);
        } else if (gives_back) {
            c->editor.cursor = c->editor.buffer + ch.pos;
            replayed = buffer_insert_string(c, ch.removed, static_cast<uint32_t>(ch.n)) != 0;
            free(ch.removed);
        } else {
            c->editor.cursor = c->editor.buffer + ch.pos;
            buffer_delete_after(c, static_cast<uint32_t>(ch.n));
        }
        if (!replayed || !c->editor.buffer) {
            // Out of memory (the read ends, or goes on with nothing left to
            // undo), or a log out of step with the line.
            u->suspended--;
            clear_log(u);
            return;
        }
        // The cursor goes where the step began: behind text given back, at
        // the place of text taken out.
        cursor = gives_back ? ch.pos + ch.n : ch.pos;
    }
    u->suspended--;
    u->open = true;
    const int len = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    c->editor.cursor = c->editor.buffer + (cursor <= len ? cursor : len);
    history_set_dirty(c);
}
