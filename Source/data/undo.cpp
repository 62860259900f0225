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
    // What undo took back, newest last: the line and cursor before each step
    // went. A snapshot costs a line per undo, and undo is a key the user
    // presses, so that is cheap; the log of changes would need the text of
    // both directions instead.
    struct Snapshot {
        wchar_t *text;
        int len, cursor;
    } redo[64];
    int redos;
    bool redoing; // redo's own changes keep what else is there to redo
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

void drop_redo(qv::UndoLog *u) {
    for (int i = 0; i < u->redos; i++) free(u->redo[i].text);
    u->redos = 0;
}

// Before undo takes a step back: the line as it is, for redo.
void keep_for_redo(console *c, qv::UndoLog *u) {
    constexpr int kMax = sizeof u->redo / sizeof u->redo[0];
    if (u->redos == kMax) {
        free(u->redo[0].text);
        for (int i = 1; i < kMax; i++) u->redo[i - 1] = u->redo[i];
        u->redos--;
    }
    const int len = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    auto *text = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(len + 1)));
    if (!text) {
        drop_redo(u); // a gap would redo the wrong step
        return;
    }
    wmemcpy(text, c->editor.buffer, static_cast<size_t>(len));
    u->redo[u->redos++] = {text, len, static_cast<int>(c->editor.cursor - c->editor.buffer)};
}

void hear(console *c, int pos, const wchar_t *removed, int n) {
    // A new edit makes what undo took back a different future.
    if (qv::UndoLog *u = log_of(c); u && !u->suspended && !u->redoing) drop_redo(u);
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
    if (UndoLog *u = log_of(c)) {
        clear_log(u);
        drop_redo(u);
    }
}

void qv::undo_suspend(console *c, bool on) {
    if (qv::UndoLog *u = log_of(c)) u->suspended += on ? 1 : -1;
}

void qv::undo_free(UndoLog *u) {
    if (!u) return;
    clear_log(u);
    drop_redo(u);
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
    keep_for_redo(c, u);
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

// Puts back the line undo took away, as one step undo can take back again:
// only the stretch that differs is replaced, so the step is as small as the
// change that was undone.
void qv::redo_step(console *c) {
    UndoLog *u = log_of(c);
    if (!u || u->redos == 0 || !c->editor.buffer) return;
    UndoLog::Snapshot snap = u->redo[--u->redos];
    const wchar_t *now = c->editor.buffer;
    const int len = static_cast<int>(c->editor.lastchar - now);
    int head = 0;
    while (head < len && head < snap.len && now[head] == snap.text[head]) head++;
    int tail = 0;
    while (tail < len - head && tail < snap.len - head && now[len - 1 - tail] == snap.text[snap.len - 1 - tail]) tail++;
    u->open = true;
    u->redoing = true;
    c->editor.cursor = c->editor.buffer + head;
    buffer_delete_after(c, static_cast<uint32_t>(len - head - tail));
    const uint32_t n = static_cast<uint32_t>(snap.len - head - tail);
    const bool whole = n == 0 || (c->editor.buffer && buffer_insert_string(c, snap.text + head, n) == n);
    u->redoing = false;
    u->open = true;
    free(snap.text);
    if (!c->editor.buffer) return;
    const int now_len = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    if (whole) c->editor.cursor = c->editor.buffer + (snap.cursor <= now_len ? snap.cursor : now_len);
    history_set_dirty(c);
}
