// The history list (oldest to newest) and its navigation state.
#include "history.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

#include "console_record.h"
#include "output.h"
#include "text.h"
#include "qv_assert.h"

namespace {

using CharPtr = std::unique_ptr<char, decltype(&free)>;

// The list as the header shows it, and the serial numbers behind it. Every
// entry gets the next serial when it is added and entries only leave from
// the oldest end (or all at once), so the entries are numbered without gaps
// from first_serial: a serial is a position that survives additions and
// says whether its entry still exists.
struct HistoryRecord {
    history_t list;
    long long first_serial;
    long long next_serial;
    qv::HistoryObserver observer; // told of every entry that goes in
    history_line recalled;        // the entry the walk stands on, decoded
    // Edits made to recalled entries, kept while the read goes on (readline's
    // way, when asked for): by the entry's serial. The text an entry had
    // before its first kept edit, which it takes back when a read ends on it.
    bool keep;
    struct Kept {
        long long serial;
        wchar_t *text;
        uint32_t n;
    } *kept, *originals;
    int nkept, capkept, noriginals, caporiginals;
    long long ended_on; // the entry the walk stood on when the line went in, or -1
    qv::HistoryEditReport report; // told of each entry that takes its edit
    void *report_user;
};
static_assert(std::is_standard_layout<HistoryRecord>::value, "the list is the record's first member");

HistoryRecord *record(history_t *h) { return reinterpret_cast<HistoryRecord *>(h); }

void free_entry(history_entry *e) { free(e); }

void forget_recalled(history_t *h) {
    history_line &r = record(h)->recalled;
    free(r.text);
    r = history_line{nullptr, 0};
}

long long serial_of(history_t *h, const history_entry *at) {
    long long serial = record(h)->first_serial;
    for (const history_entry *e = h->first; e && e != at; e = e->next) serial++;
    return serial;
}

HistoryRecord::Kept *kept_for(history_t *h, long long serial) {
    HistoryRecord *r = record(h);
    for (int i = 0; i < r->nkept; i++)
        if (r->kept[i].serial == serial) return &r->kept[i];
    return nullptr;
}

// A text for serial in a set of kept texts, in place of the one it had:
// the copy is the set's from here on, freed when the set cannot take it.
void put(HistoryRecord::Kept *&set, int &count, int &cap, long long serial, wchar_t *copy, uint32_t n) {
    for (int i = 0; i < count; i++)
        if (set[i].serial == serial) {
            free(set[i].text);
            set[i] = HistoryRecord::Kept{serial, copy, n};
            return;
        }
    if (count == cap) {
        const int grown_cap = cap ? cap * 2 : 8;
        auto *grown = static_cast<HistoryRecord::Kept *>(realloc(set, sizeof(HistoryRecord::Kept) * static_cast<size_t>(grown_cap)));
        if (!grown) {
            free(copy);
            return;
        }
        set = grown;
        cap = grown_cap;
    }
    set[count++] = HistoryRecord::Kept{serial, copy, n};
}

void drop_all(HistoryRecord::Kept *&set, int &count, int &cap) {
    for (int i = 0; i < count; i++) free(set[i].text);
    free(set);
    set = nullptr;
    count = cap = 0;
}

// The line as edited, kept for the entry the walk stands on.
void keep_edit(history_t *h, const wchar_t *line, uint32_t n) {
    HistoryRecord *r = record(h);
    if (wchar_t *copy = make_string_copy(line, n)) put(r->kept, r->nkept, r->capkept, serial_of(h, h->current), copy, n);
}

// The oldest entry goes. The walk, if it stood there, moves to the entry
// that is now the oldest.
void drop_oldest(history_t *h) {
    history_entry *oldest = h->first;
    h->first = oldest->next;
    if (h->first)
        h->first->prev = nullptr;
    else
        h->last = nullptr;
    if (h->current == oldest) h->current = h->first;
    free_entry(oldest);
    h->count--;
    record(h)->first_serial++;
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

history_t *history_new(void) {
    auto *r = static_cast<HistoryRecord *>(calloc(1, sizeof(HistoryRecord)));
    return r ? &r->list : nullptr;
}

void history_clear(console *c) {
    history_t *h = c->history;
    for (history_entry *e = h->first; e;) {
        history_entry *next = e->next;
        free_entry(e);
        e = next;
    }
    history_cleanup_temp(c);
    forget_recalled(h);
    h->first = h->last = h->current = nullptr;
    h->count = 0;
    HistoryRecord *r = record(h);
    r->first_serial = r->next_serial;
    drop_all(r->kept, r->nkept, r->capkept);
    drop_all(r->originals, r->noriginals, r->caporiginals);
}

int top_is_duplicate(console *c, const wchar_t *text, uint32_t n) {
    if (!c->history->last) return 0;
    const uint32_t len = static_cast<uint32_t>(wcsnlen(text, n));
    CharPtr utf8(qv::utf8_of(text, static_cast<int>(len)), &free);
    return utf8 && qv::history_newest_is(c, utf8.get(), strlen(utf8.get()));
}

bool qv::history_newest_is(const console *c, const char *text, size_t n) {
    const history_entry *top = c->history->last;
    return top && top->length == n && memcmp(top->text, text, n) == 0;
}

void history_add(console *c, const wchar_t *text, uint32_t n) {
    history_t *h = c->history;
    if (c->history_add_unchanged == 0 && h->dirty == 0) return;
    if (c->masked || c->history_max <= 0) return;
    // The read ends on the entry the walk stands on, for readline's rule on
    // kept edits.
    record(h)->ended_on = h->current ? serial_of(h, h->current) : -1;
    qv::history_append(c, text, n);
    history_cleanup_temp(c);
    h->current = nullptr;
    h->dirty = 0;
}

bool qv::history_append(console *c, const wchar_t *text, uint32_t n) {
    if (!text || c->history_max <= 0) return false;
    // As a C string: the text ends at a NUL.
    const auto len = static_cast<int>(wcsnlen(text, n));
    CharPtr utf8(qv::utf8_of(text, len), &free);
    return utf8 && history_append_utf8(c, utf8.get(), strlen(utf8.get()));
}

bool qv::history_append_utf8(console *c, const char *text, size_t n) {
    history_t *h = c->history;
    if (c->history_max <= 0 || n > UINT32_MAX - sizeof(history_entry) - 1) return false;
    if (c->history_allow_duplicates == 0 && history_newest_is(c, text, n)) return false;
    auto *e = static_cast<history_entry *>(malloc(sizeof(history_entry) + n + 1));
    if (!e) return false;
    e->text = reinterpret_cast<char *>(e + 1);
    memcpy(e->text, text, n);
    e->text[n] = 0;
    e->length = static_cast<uint32_t>(n);
    e->next = nullptr;
    e->prev = h->last;
    if (h->last)
        h->last->next = e;
    else
        h->first = e;
    h->last = e;
    h->count++;
    record(h)->next_serial++;
    while (h->count > c->history_max && h->first) drop_oldest(h);
    if (record(h)->observer) record(h)->observer(c, e->text, e->length);
    return true;
}

void qv::history_observe(console *c, HistoryObserver observer) { record(c->history)->observer = observer; }

void qv::history_limit(console *c, int max) {
    c->history_max = max;
    while (c->history->count > max && c->history->first) drop_oldest(c->history);
}

long long qv::history_first_serial(const console *c) { return record(c->history)->first_serial; }

long long qv::history_end_serial(const console *c) { return record(c->history)->next_serial; }

const history_entry *qv::history_at_serial(const console *c, long long serial) {
    const HistoryRecord *r = record(c->history);
    if (serial < r->first_serial || serial >= r->next_serial) return nullptr;
    // From the nearer end: searches and hints mostly look at recent entries.
    if (r->next_serial - serial <= serial - r->first_serial) {
        const history_entry *e = r->list.last;
        for (long long s = r->next_serial - 1; s > serial; s--) e = e->prev;
        return e;
    }
    const history_entry *e = r->list.first;
    for (long long s = r->first_serial; s < serial; s++) e = e->next;
    return e;
}

history_line *qv::history_step(console *c, int direction) {
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
    if (!h->current) return nullptr;
    // Decoded for the caller, who copies it before the walk moves on; an
    // entry edited earlier in the read comes back as edited.
    int n = 0;
    const HistoryRecord::Kept *k = record(h)->keep ? kept_for(h, serial_of(h, h->current)) : nullptr;
    wchar_t *text = k ? make_string_copy(k->text, k->n) : qv::utf8_decode(h->current->text, h->current->length, &n);
    if (k) n = static_cast<int>(k->n);
    if (!text) return nullptr;
    forget_recalled(h);
    record(h)->recalled = history_line{text, static_cast<uint32_t>(n)};
    return &record(h)->recalled;
}

void history_set_earliest(console *c) { c->history->current = c->history->first; }

void history_set_latest(console *c) { c->history->current = nullptr; }

void history_save_current_buffer(console *c, const wchar_t *line, uint32_t n) {
    QV_ASSERT(line != NULL);
    history_t *h = c->history;
    // A recalled entry edited: the edit stays with the entry.
    if (record(h)->keep && h->current) {
        if (h->dirty) keep_edit(h, line, n);
        h->dirty = 0;
        return;
    }
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
        fputs(e->text, qv::terminal_stream());
        fputc('\n', qv::terminal_stream());
    }
}

// ---------------------------------------------------------------------------
// Edits kept with recalled entries

void qv::history_keep_edits(console *c, bool on) {
    record(c->history)->keep = on;
    record(c->history)->ended_on = -1;
}

void qv::history_report_edits(console *c, HistoryEditReport report, void *user) {
    HistoryRecord *r = record(c->history);
    r->report = report;
    r->report_user = report ? user : nullptr;
}

namespace {

// The entry's text made the kept edit's: a new block in its place. Answers
// the new block, or NULL when memory ran out and the entry is as it was.
history_entry *rewrite(history_t *h, history_entry *e, const HistoryRecord::Kept &k) {
    CharPtr utf8(qv::utf8_of(k.text, static_cast<int>(k.n)), &free);
    if (!utf8) return nullptr;
    const size_t n = strlen(utf8.get());
    auto *fresh = static_cast<history_entry *>(malloc(sizeof(history_entry) + n + 1));
    if (!fresh) return nullptr;
    fresh->text = reinterpret_cast<char *>(fresh + 1);
    memcpy(fresh->text, utf8.get(), n + 1);
    fresh->length = static_cast<uint32_t>(n);
    fresh->prev = e->prev;
    fresh->next = e->next;
    (e->prev ? e->prev->next : h->first) = fresh;
    (e->next ? e->next->prev : h->last) = fresh;
    if (h->current == e) h->current = fresh;
    free_entry(e);
    return fresh;
}

} // namespace

namespace {

history_entry *entry_at(history_t *h, long long serial) {
    long long at = record(h)->first_serial;
    for (history_entry *e = h->first; e; e = e->next, at++)
        if (at == serial) return e;
    return nullptr;
}

// The entry takes text (a rewrite), and the host that asked is told.
void retext(history_t *h, history_entry *e, const HistoryRecord::Kept &text) {
    const HistoryRecord *r = record(h);
    const history_entry *fresh = rewrite(h, e, text);
    if (!fresh || !r->report) return;
    int from_newest = 0;
    for (const history_entry *n = fresh->next; n; n = n->next) from_newest++;
    r->report(from_newest, fresh->text, r->report_user);
}

} // namespace

// readline's rule: entries the read left with an edit keep it (the text
// they had before is remembered), and the entry the read ends on goes back
// to the text it had before any edit was kept with it, since the line the
// read returns carries that edit on. revert-all-at-newline keeps none.
void qv::history_end_edits(console *c, bool revert) {
    history_t *h = c->history;
    HistoryRecord *r = record(h);
    if (!r->keep) return;
    const long long ended_on = h->current ? serial_of(h, h->current) : r->ended_on;
    r->ended_on = -1;
    for (int i = 0; i < r->nkept && !revert; i++) {
        history_entry *e = r->kept[i].serial == ended_on ? nullptr : entry_at(h, r->kept[i].serial);
        if (!e) continue;
        int n = 0;
        bool known = false;
        for (int k = 0; k < r->noriginals && !known; k++) known = r->originals[k].serial == r->kept[i].serial;
        if (wchar_t *before = known ? nullptr : qv::utf8_decode(e->text, e->length, &n))
            put(r->originals, r->noriginals, r->caporiginals, r->kept[i].serial, before, static_cast<uint32_t>(n));
        retext(h, e, r->kept[i]);
    }
    drop_all(r->kept, r->nkept, r->capkept);
    // The entry the read ended on, and any that left the list, forget what
    // they were.
    for (int k = 0; k < r->noriginals;) {
        const HistoryRecord::Kept o = r->originals[k];
        history_entry *e = o.serial >= r->first_serial ? entry_at(h, o.serial) : nullptr;
        if (e && o.serial != ended_on) {
            k++;
            continue;
        }
        if (e) retext(h, e, o);
        free(o.text);
        r->originals[k] = r->originals[--r->noriginals];
    }
}
