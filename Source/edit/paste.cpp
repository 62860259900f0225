// Bracketed paste. The engine draws a paste once it has arrived (or every
// so often while a long one arrives); here each of its keys only becomes
// text.
#include "paste.h"

#include <cstdlib>

#include "actions.h"
#include "console_record.h"

struct qv::PasteState {
    bool active;
    int last_key; // a CR LF pair is one line break
};

namespace {
qv::PasteState *paste_of(const console *c) { return c->state ? c->state->paste : nullptr; }
} // namespace

qv::PasteState *qv::paste_new() { return static_cast<PasteState *>(calloc(1, sizeof(PasteState))); }

void qv::paste_free(PasteState *p) { free(p); }

bool qv::paste_active(const console *c) {
    const PasteState *p = paste_of(c);
    return p && p->active;
}

void qv::paste_key(console *c, action_fn action, int key) {
    PasteState *p = paste_of(c);
    if (action == action_paste_end) {
        p->active = false;
        return;
    }
    if (action == action_insert_char) {
        qv::insert_plain(c, key); // what is pasted is the text, no pair typed for it
    } else if (key == 13 || (key == 10 && p->last_key != 13)) {
        if (buffer_insert_char(c, L'\n') != 0) history_set_dirty(c);
    }
    p->last_key = key; // nothing in a paste runs a command
}

void qv::paste_reset(console *c) {
    if (PasteState *p = paste_of(c)) p->active = false;
}

void action_paste_begin(console *c, int) {
    if (qv::PasteState *p = paste_of(c)) {
        p->last_key = 0;
        p->active = true;
    }
}

void action_paste_end(console *, int) {}
