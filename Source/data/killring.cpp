// The kill ring: the newest kills, and where the last yank went, so that a
// yank right after can be swapped for an older kill.
#include "killring.h"

#include <cstdlib>
#include <cwchar>

#include "console_record.h"

namespace {
constexpr int kKillRingSize = 16;
}

struct qv::KillRing {
    wchar_t *text[kKillRingSize];
    int len[kKillRingSize];
    int count;
    int top;
    int yank_start, yank_len, yank_slot;
    bool yanked; // the text before the cursor is a yank that a pop may replace
};

qv::KillRing *qv::kill_ring_new() { return static_cast<KillRing *>(calloc(1, sizeof(KillRing))); }

void qv::kill_ring_free(KillRing *r) {
    if (!r) return;
    for (wchar_t *t : r->text) free(t);
    free(r);
}

void qv::kill_ring_add(console *c, const wchar_t *text, int n, bool before, bool join) {
    KillRing *r = c->state ? c->state->ring : nullptr;
    if (!r || n <= 0 || c->masked) return;
    // Kills in a row make one entry, as the user sees one stretch of text go.
    join = join && r->count > 0;
    const int slot = join ? r->top : (r->top + 1) % kKillRingSize;
    const int old = join ? r->len[slot] : 0;
    auto *grown = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(old + n + 1)));
    if (!grown) return;
    const wchar_t *prev = join ? r->text[slot] : nullptr;
    if (before) {
        wmemcpy(grown, text, static_cast<size_t>(n));
        if (old) wmemcpy(grown + n, prev, static_cast<size_t>(old));
    } else {
        if (old) wmemcpy(grown, prev, static_cast<size_t>(old));
        wmemcpy(grown + old, text, static_cast<size_t>(n));
    }
    grown[old + n] = 0;
    free(r->text[slot]);
    r->text[slot] = grown;
    r->len[slot] = old + n;
    r->top = slot;
    if (!join && r->count < kKillRingSize) r->count++;
}

const wchar_t *qv::kill_ring_yank(console *c, int at, int *len) {
    KillRing *r = c->state ? c->state->ring : nullptr;
    if (!r || r->count == 0 || c->masked) return nullptr;
    r->yank_start = at;
    r->yank_len = *len = r->len[r->top];
    r->yank_slot = r->top;
    r->yanked = true;
    return r->text[r->top];
}

const wchar_t *qv::kill_ring_yank_pop(console *c, int cursor, int *old, int *len) {
    KillRing *r = c->state ? c->state->ring : nullptr;
    if (!r || !r->yanked || r->count < 2 || cursor != r->yank_start + r->yank_len) return nullptr;
    *old = r->yank_len;
    const int slot = (r->yank_slot + kKillRingSize - 1) % kKillRingSize;
    r->yank_slot = r->text[slot] ? slot : r->top;
    r->yank_len = *len = r->len[r->yank_slot];
    return r->text[r->yank_slot];
}

void qv::kill_ring_end_yank(console *c) {
    if (KillRing *r = c->state ? c->state->ring : nullptr) r->yanked = false;
}
