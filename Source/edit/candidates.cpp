// The host's completer and the candidates it offers, as the editor takes
// them: characters in place of UTF-8, a start in characters, the display
// form and the description beside them.
#include "candidates.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "console_record.h"
#include "session.h"
#include "text.h"
#include "candlist.h"
#include "highlight.h"
#include "variables.h"
#include "history.h"

struct term_completions {
    int cursor; // byte offset of the cursor in the text given to the completer
    struct Item {
        int start;
        char *replacement;
        char *display;     // NULL: the replacement
        char *description; // NULL: none
    } *items;
    int count;
    int cap;
};

// The host's completer belongs to the session: the default session's may be
// set before term_init and outlives an instance.
struct qv::CompleterState {
    term_completer fn = nullptr;
    void *user = nullptr;
};

namespace {

// The default session's completer: a host may set it before term_init.
qv::CompleterState own_completer;

qv::CompleterState &completer() { return qv::session_record(qv::kSlotCompletion, own_completer); }

using WidePtr = std::unique_ptr<wchar_t, decltype(&free)>;

void drop(qv::Candidates *list) {
    if (!list) return;
    for (int i = 0; i < list->count; i++) {
        free(list->items[i].text);
        free(list->items[i].display);
        free(list->items[i].description);
    }
    free(list->items);
    free(list);
}

void release(term_completions &out) {
    for (int i = 0; i < out.count; i++) {
        free(out.items[i].replacement);
        free(out.items[i].display);
        free(out.items[i].description);
    }
    free(out.items);
}

// The character offset of a byte offset into UTF-8 text: the characters
// whose first byte lies before it.
int chars_before(const char *text, int bytes) {
    int n = 0;
    for (int i = 0; i < bytes && text[i]; i++)
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) n++;
    return n;
}

// Asks the completer; answers the candidates it offered that the editor can
// take (valid UTF-8), with their start in characters.
void ask(console *c, qv::Candidates &out) {
    const int len = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    const int cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    std::unique_ptr<char, decltype(&free)> text(qv::utf8_of(c->editor.buffer, len), &free);
    std::unique_ptr<char, decltype(&free)> before(qv::utf8_of(c->editor.buffer, cursor), &free);
    if (!text || !before) return;
    term_completions offered{static_cast<int>(strlen(before.get())), nullptr, 0, 0};
    completer().fn(text.get(), offered.cursor, &offered, completer().user);
    out.items = static_cast<qv::Candidate *>(calloc(static_cast<size_t>(offered.count) + 1, sizeof(qv::Candidate)));
    for (int i = 0; out.items && i < offered.count; i++) {
        const term_completions::Item &item = offered.items[i];
        int n = 0;
        wchar_t *wide = item.replacement[0] ? cp2wchar(c, item.replacement, &n)
                                            : static_cast<wchar_t *>(calloc(1, sizeof(wchar_t)));
        const bool listed_only = !wide;
        if (!wide) wide = qv::visible_of(item.replacement, &n);
        if (!wide) continue; // no memory
        qv::Candidate cand{chars_before(text.get(), item.start), wide, n, listed_only, nullptr, 0, nullptr, 0};
        // A start inside a cluster (after a blank a mark is drawn on) moves
        // to the cluster's start and takes its head along: the line comes
        // out the same, and no key will ever stand between the two.
        if (const int at = cand.start; at > 0 && at < len && c->editor.buffer && !listed_only) {
            const int head = qv::cluster_start(c->editor.buffer, at + 1);
            if (head < at) {
                auto *grown = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(at - head + n + 1)));
                if (grown) {
                    wmemcpy(grown, c->editor.buffer + head, static_cast<size_t>(at - head));
                    wmemcpy(grown + (at - head), wide, static_cast<size_t>(n));
                    grown[at - head + n] = 0;
                    free(wide);
                    cand.text = grown;
                    cand.len = at - head + n;
                    cand.start = head;
                }
            }
        }
        // What is only shown is shown as it looks, bad bytes and all.
        if (item.display) cand.display = qv::visible_of(item.display, &cand.display_len);
        if (item.description && item.description[0])
            cand.description = qv::visible_of(item.description, &cand.description_len);
        out.items[out.count++] = cand;
    }
    release(offered);
}

// What the candidates' displays share at their start, in characters.
int shared_prefix(const qv::Candidates &list) {
    if (list.count == 0) return 0;
    int common = list.items[0].shown_len();
    for (int i = 1; i < list.count; i++) {
        int k = 0;
        while (k < common && k < list.items[i].shown_len() && list.items[i].shown()[k] == list.items[0].shown()[k]) k++;
        common = k;
    }
    return common;
}

} // namespace

bool qv::has_completer() { return completer().fn != nullptr; }

void qv::ask_completer(console *c, Candidates &out) { ask(c, out); }

void qv::drop_candidates(Candidates *list) { drop(list); }

int qv::compare_candidates(const void *a, const void *b) {
    return wcscmp(static_cast<const Candidate *>(a)->text, static_cast<const Candidate *>(b)->text);
}

void term_setCompleter(term_completer fn, void *user) {
    completer() = qv::CompleterState{fn, fn ? user : nullptr};
}

int term_addCompletion(term_completions *out, int start, const char *replacement) {
    return term_addCompletionEx(out, start, replacement, nullptr, nullptr);
}

int term_addCompletionEx(term_completions *out, int start, const char *replacement, const char *display,
                         const char *description) {
    if (!out || !replacement || start < 0 || start > out->cursor) return 0;
#if !QV_WITH_COMPLETION_MENU
    display = description = nullptr; // listed by the replacement alone, in columns
#endif
    if (out->count == out->cap) {
        const int cap = out->cap ? out->cap * 2 : 16;
        auto *grown = static_cast<term_completions::Item *>(
            realloc(out->items, sizeof(term_completions::Item) * static_cast<size_t>(cap)));
        if (!grown) return 0;
        out->items = grown;
        out->cap = cap;
    }
    term_completions::Item item{start, strdup(replacement), display ? strdup(display) : nullptr,
                                description ? strdup(description) : nullptr};
    if (!item.replacement || (display && !item.display) || (description && !item.description)) {
        free(item.replacement);
        free(item.display);
        free(item.description);
        return 0;
    }
    out->items[out->count++] = item;
    return 1;
}

void qv::completion_reset() { completer() = CompleterState{}; }

// A new session completes as the default session does, until told otherwise.
qv::CompleterState *qv::completer_new() { return new (std::nothrow) CompleterState(own_completer); }

void qv::completer_free(CompleterState *s) { delete s; }


void qv::with_completer(term_completer other, void *user, void (*fn)(console *c, int key), console *c, int key) {
    const CompleterState host = completer();
    completer() = CompleterState{other, user};
    fn(c, key);
    completer() = host;
}

// The candidates laid out at the width, in the session's looks.
qv::CandidateGrid qv::candidates_grid(console *c, const Candidates &list, int selected) {
    std::unique_ptr<qv::ShownItem[]> items(new (std::nothrow) qv::ShownItem[static_cast<size_t>(list.count) + 1]);
    if (!items) return qv::CandidateGrid{};
    // readline's completion-prefix-display-length: a shared prefix longer
    // than that is shown as "...".
    const int shared = shared_prefix(list);
    const int keep = qv::variable_number(c, "completion-prefix-display-length", 0);
    const int cut = keep > 0 && shared > keep ? shared : 0;
    for (int i = 0; i < list.count; i++)
        items[i] = qv::ShownItem{list.items[i].shown() + cut, list.items[i].shown_len() - cut, list.items[i].description,
                                 list.items[i].description_len, cut > 0};
    uint32_t prefix_look = qv::look(TERM_LOOK_COMPLETION_PREFIX);
    if (!prefix_look && qv::variable_on(c, "colored-completion-prefix")) prefix_look = TERM_FG(5);
    return qv::lay_out_candidates(items.get(), list.count, c->screen.cols, prefix_look && !cut ? shared : 0,
                                  qv::variable_on(c, "print-completions-horizontally"), selected, prefix_look,
                                  qv::look(TERM_LOOK_COMPLETION_SELECTED), qv::look(TERM_LOOK_COMPLETION_DESCRIPTION));
}

// The candidates sorted, each once.
void qv::tidy_candidates(Candidates &list) {
    qsort(list.items, static_cast<size_t>(list.count), sizeof(Candidate), compare_candidates);
    int n = 0;
    for (int i = 0; i < list.count; i++) {
        if (n > 0 && wcscmp(list.items[n - 1].text, list.items[i].text) == 0) {
            free(list.items[i].text);
            free(list.items[i].display);
            free(list.items[i].description);
            continue;
        }
        list.items[n++] = list.items[i];
    }
    list.count = n;
}

// The candidates the editor can take, sorted, without repeats, and the
// earliest start among them; NULL when there are none.
qv::Candidates *qv::takeable_candidates(console *c, int *from) {
    auto *found = static_cast<Candidates *>(calloc(1, sizeof(Candidates)));
    if (!found) return nullptr;
    ask_completer(c, *found);
    int n = 0;
    *from = static_cast<int>(c->editor.cursor - c->editor.buffer);
    for (int i = 0; i < found->count; i++) {
        if (found->items[i].listed_only) {
            free(found->items[i].text);
            free(found->items[i].display);
            free(found->items[i].description);
            continue;
        }
        if (found->items[i].start < *from) *from = found->items[i].start;
        found->items[n++] = found->items[i];
    }
    found->count = n;
    qsort(found->items, static_cast<size_t>(n), sizeof(Candidate), compare_candidates);
    if (n == 0) {
        drop_candidates(found);
        return nullptr;
    }
    return found;
}

// The stretch from `from` (its length now `len`) made text, then a space
// when it ends a word; answers the new length.
int qv::replace_stretch(console *c, int from, int len, const wchar_t *text, int n, bool space) {
    c->editor.cursor = c->editor.buffer + from + len;
    buffer_delete_before(c, static_cast<uint32_t>(len));
    if (!c->editor.buffer) return 0;
    if (n > 0) buffer_insert_string(c, text, static_cast<uint32_t>(n));
    const wchar_t blank = L' ';
    if (space && n > 0 && text[n - 1] != L' ' && text[n - 1] != L'/') {
        buffer_insert_string(c, &blank, 1);
        n++;
    }
    history_set_dirty(c);
    return n;
}

