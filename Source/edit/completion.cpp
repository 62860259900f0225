// Tab completion: the host's completer offers candidates for the text
// before the cursor; one is put in, several extend the input to what they
// share, and a second Tab lists them under the input.
#include "completion.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <cwchar>
#include <cwctype>
#include <memory>

#include "actions.h"
#include "console_record.h"
#include "frame.h"
#include "session.h"
#include "variables.h"
#include "text.h"
#include "candidates.h"
#include "candlist.h"
#include "menu.h"
#include "highlight.h"
#include "options.h"
#include "view.h"

using qv::Candidate;
using qv::Candidates;

namespace {

// Past this many, the list is only shown after the user says yes.
constexpr int kAskAbove = 100;

void drop(Candidates *list) { qv::drop_candidates(list); }
void ask(console *c, Candidates &out) { qv::ask_completer(c, out); }

// Candidate i as the whole stretch from `from` to the cursor it would make.
struct Stretch {
    const wchar_t *head; // buffer text from `from` to the candidate's start
    int head_len;
    const Candidate *cand;
    int size() const { return head_len + cand->len; }
    wchar_t at(int k) const { return k < head_len ? head[k] : cand->text[k - head_len]; }
};

Stretch stretch(const console *c, int from, const Candidate &cand) {
    return Stretch{c->editor.buffer + from, cand.start - from, &cand};
}

// Puts text in place of the characters from `from` to the cursor.
void put_in(console *c, int from, const Stretch *s, int len) {
    const int cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    wchar_t *chars = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * (static_cast<size_t>(len) + 1)));
    if (!chars) return;
    for (int k = 0; k < len; k++) chars[k] = s->at(k);
    buffer_delete_before(c, static_cast<uint32_t>(cursor - from));
    if (len > 0) buffer_insert_string(c, chars, static_cast<uint32_t>(len));
    free(chars);
    history_set_dirty(c);
}

// readline's skip-completed-text: completing inside a word, the part of the
// one candidate that the text after the cursor already spells is stepped
// over, not typed again. Answers whether it stepped.
bool skip_over(console *c, int from, const Stretch &s) {
    const int cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    const int len = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    int k = 0;
    while (k < s.size() && from + k < len && s.at(k) == c->editor.buffer[from + k]) k++;
    if (k <= cursor - from) return false;
    c->editor.cursor = c->editor.buffer + from + k;
    if (k < s.size()) {
        std::unique_ptr<wchar_t, decltype(&free)> rest(
            static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(s.size() - k))), &free);
        if (!rest) return true;
        for (int i = k; i < s.size(); i++) rest.get()[i - k] = s.at(i);
        buffer_insert_string(c, rest.get(), static_cast<uint32_t>(s.size() - k));
    }
    history_set_dirty(c);
    return true;
}

bool alike(wchar_t a, wchar_t b, bool any_case) { return a == b || (any_case && towlower(a) == towlower(b)); }

// Whose spelling the shared part takes: the first candidate in order that
// keeps the case typed so far, or else the first, as readline picks it.
int spelling(const console *c, const Candidates &found, int from, int common, bool any_case) {
    const int cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    const int typed = cursor - from < common ? cursor - from : common;
    int best = -1, keeps = -1;
    for (int i = 0; i < found.count; i++) {
        if (found.items[i].listed_only) continue;
        if (best < 0) best = i;
        if (!any_case) break;
        const Stretch s = stretch(c, from, found.items[i]);
        bool same_case = true;
        for (int k = 0; same_case && k < typed; k++) same_case = s.at(k) == c->editor.buffer[from + k];
        if (wcscmp(found.items[i].text, found.items[best].text) < 0) best = i;
        if (same_case && (keeps < 0 || wcscmp(found.items[i].text, found.items[keeps].text) < 0)) keeps = i;
    }
    return keeps >= 0 ? keeps : best;
}

} // namespace

// The candidates of the last Tab, kept for the listing of the second, and
// whether a question about them waits for its answer.
struct qv::CompletionState {
    Candidates *pending;
    bool asking;
    int keep_cursor; // the cursor's offset while the input is left
    // readline's page-completions: the listing's rows not yet shown while
    // "--More--" waits for a key.
    qv::CandidateGrid *paging;
    int page_row;
};

namespace {

qv::CompletionState *state_of(const console *c) { return c->state ? c->state->completion : nullptr; }

void forget_list(qv::CompletionState *st) {
    drop(st->pending);
    st->pending = nullptr;
}

constexpr wchar_t kMore[] = L"--More--";

// Rows [from, to) of the listing, written under the input.
void write_rows(console *c, const qv::CandidateGrid &g, int from, int to) {
    const int a = g.row_starts[static_cast<size_t>(from)];
    const int b = to < g.rows ? g.row_starts[static_cast<size_t>(to)] : static_cast<int>(g.text.size());
    if (b > a) qv::frame_write(c, g.text.data() + a, b - a, g.styles.data() + a);
}

// The candidates, sorted, in columns down the rows, to be written under the
// input: a line feed ends each row. With readline's page-completions set, a
// listing taller than the terminal stops a row short of it with --More--;
// answers whether it did, the rest then waiting for a key.
bool show_list(console *c, qv::CompletionState *st, Candidates &list) {
    qv::tidy_candidates(list);
    qv::CandidateGrid g = qv::candidates_grid(c, list, -1);
    if (g.text.empty()) return false;
    const int page = c->screen.rows - 1;
    if (!qv::variable_set_on(c, "page-completions") || page < 1 || g.rows <= page) {
        write_rows(c, g, 0, g.rows);
        return false;
    }
    st->paging = new (std::nothrow) qv::CandidateGrid(std::move(g));
    if (!st->paging) return false;
    write_rows(c, *st->paging, 0, page);
    st->page_row = page;
    qv::frame_write(c, kMore, static_cast<int>(wcslen(kMore)));
    return true;
}

void stop_paging(qv::CompletionState *st) {
    delete st->paging;
    st->paging = nullptr;
}

// A key at --More--: Space or y a page more, Return a row more, anything
// else the end of the listing.
bool page_on(console *c, qv::CompletionState *st, int key) {
    static const wchar_t kErase[] = L"\r        \r";
    qv::frame_write(c, kErase, static_cast<int>(wcslen(kErase)));
    const int rows = key == ' ' || key == 'y' || key == 'Y' ? c->screen.rows - 1 : key == '\r' || key == '\n' ? 1 : 0;
    const int to = st->page_row + rows < st->paging->rows ? st->page_row + rows : st->paging->rows;
    write_rows(c, *st->paging, st->page_row, to);
    st->page_row = to;
    if (rows == 0 || to >= st->paging->rows) {
        stop_paging(st);
        return false;
    }
    qv::frame_write(c, kMore, static_cast<int>(wcslen(kMore)));
    return true;
}

// The input again on a fresh row, with the cursor where it was.
void redraw_input(console *c) {
    qv::frame_request(c, qv::kStartInput);
    qv::frame_request(c, qv::kPaintNow);
}

void restore_cursor(console *c) {
    const qv::CompletionState *st = state_of(c);
    if (st && c->editor.buffer) c->editor.cursor = c->editor.buffer + st->keep_cursor;
}

// Leaves the input on screen as it is and goes to the row below it.
void leave_rows(console *c) {
    state_of(c)->keep_cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    qv::view_finish(c); // the copy left above keeps no bracket's mark
    c->editor.cursor = c->editor.lastchar;
    qv::frame_request(c, qv::kPaintNow);
    qv::frame_request(c, qv::kNewline);
    qv::frame_then(c, restore_cursor);
}

} // namespace

qv::CompletionState *qv::completion_new() { return static_cast<CompletionState *>(calloc(1, sizeof(CompletionState))); }

void qv::completion_free(CompletionState *st) {
    if (!st) return;
    forget_list(st);
    stop_paging(st);
    free(st);
}

bool qv::completion_asking(const console *c) {
    const CompletionState *st = state_of(c);
    return st && (st->asking || st->paging);
}

// The answer to "Display all N possibilities? (y or n)".
void qv::completion_answer(console *c, int key) {
    CompletionState *st = state_of(c);
    if (st->paging) {
        if (!page_on(c, st, key)) redraw_input(c);
        return;
    }
    st->asking = false;
    if (!st->pending) return;
    frame_request(c, kNewline);
    const bool more = (key == 'y' || key == 'Y' || key == ' ') && show_list(c, st, *st->pending);
    forget_list(st);
    if (!more) redraw_input(c);
}

void qv::completion_end(console *c) {
    if (CompletionState *st = state_of(c)) {
        st->asking = false;
        forget_list(st);
        stop_paging(st);
        qv::menu_end(c, false);
    }
}

namespace {

// The candidates a Tab left, listed below the input, or first the question
// whether to list so many: past 100, or from readline's
// completion-query-items on when the variable is set otherwise.
void list_pending(console *c, qv::CompletionState *st) {
    leave_rows(c);
    const int items = qv::variable_number(c, "completion-query-items", kAskAbove);
    if (items == kAskAbove ? st->pending->count > kAskAbove : items > 0 && st->pending->count >= items) {
        wchar_t question[80];
        swprintf(question, 80, L"Display all %d possibilities? (y or n)", st->pending->count);
        qv::frame_write(c, question, static_cast<int>(wcslen(question)));
        st->asking = true;
        return;
    }
    const bool more = show_list(c, st, *st->pending);
    forget_list(st);
    if (!more) redraw_input(c);
}

} // namespace

void action_complete(console *c, int) {
    qv::CompletionState *st = state_of(c);
    // readline's disable-completion: Tab types itself.
    if (c->editor.buffer && !c->masked && qv::variable_on(c, "disable-completion")) {
        buffer_insert_string(c, L"\t", 1);
        history_set_dirty(c);
        return;
    }
    if (!qv::has_completer() || !c->editor.buffer || !st || c->masked) return;
    if (qv::frame_last_action(c) == action_complete && st->pending) {
        list_pending(c, st);
        return;
    }
    forget_list(st);
    auto *found = static_cast<Candidates *>(calloc(1, sizeof(Candidates)));
    if (!found) return;
    ask(c, *found);
    const int cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    if (found->count == 0) {
        drop(found);
        return;
    }
    int from = cursor, lead = -1;
    for (int i = 0; i < found->count; i++) {
        if (found->items[i].listed_only) continue;
        if (lead < 0) lead = i;
        if (found->items[i].start < from) from = found->items[i].start;
    }
    // What all candidates share, counted from the earliest start; one that
    // can only be listed shares nothing.
    bool same = lead >= 0, grew = false;
    if (lead >= 0) {
        // readline's completion-ignore-case: what they share in any case.
        const bool any_case = qv::variable_on(c, "completion-ignore-case");
        int common = stretch(c, from, found->items[lead]).size();
        for (int i = lead + 1; i < found->count; i++) {
            if (found->items[i].listed_only) {
                same = false;
                continue;
            }
            const Stretch s = stretch(c, from, found->items[i]), lead_s = stretch(c, from, found->items[lead]);
            int k = 0;
            while (k < common && k < s.size() && alike(s.at(k), lead_s.at(k), any_case)) k++;
            bool exact = s.size() == lead_s.size();
            for (int j = 0; exact && j < s.size(); j++) exact = s.at(j) == lead_s.at(j);
            same = same && exact;
            common = k;
        }
        same = same && lead == 0;
        // Several to choose from, and the host wants a menu: the menu puts
        // each in place, from the text as typed.
        if (!same && qv::option(TERM_OPTION_COMPLETION_MENU)) {
            drop(found);
            qv::menu_open(c);
            return;
        }
        const Stretch first = stretch(c, from, found->items[spelling(c, *found, from, common, any_case)]);
        // What they share goes in when it is longer than what was typed, or
        // as long but spelt otherwise (a completer that matches in any case).
        bool respelt = common == cursor - from;
        for (int k = 0; respelt && k < common; k++) respelt = first.at(k) == c->editor.buffer[from + k];
        grew = same || common > cursor - from || (common == cursor - from && !respelt);
        if (grew && !(same && qv::variable_on(c, "skip-completed-text") && skip_over(c, from, first)))
            put_in(c, from, &first, common);
    }
    if (same) {
        drop(found);
        return;
    }
    st->pending = found; // a second Tab lists them
    // readline's show-all-if-ambiguous: at once; show-all-if-unmodified:
    // at once when the line did not grow.
    if (qv::variable_on(c, "show-all-if-ambiguous") || (!grew && qv::variable_on(c, "show-all-if-unmodified")))
        list_pending(c, st);
}

// ---------------------------------------------------------------------------
// readline's other completion commands


// Every candidate in place of the word, each followed by a space.
void action_insert_completions(console *c, int) {
    if (!qv::has_completer() || !c->editor.buffer || c->masked) return;
    int from = 0;
    Candidates *all = qv::takeable_candidates(c, &from);
    if (!all) return;
    size_t size = 0;
    for (int i = 0; i < all->count; i++) size += static_cast<size_t>(all->items[i].len) + 1;
    std::unique_ptr<wchar_t, decltype(&free)> text(static_cast<wchar_t *>(malloc(sizeof(wchar_t) * (size + 1))), &free);
    if (text) {
        wchar_t *out = text.get();
        for (int i = 0; i < all->count; i++) {
            if (i > 0 && wcscmp(all->items[i].text, all->items[i - 1].text) == 0) continue;
            wmemcpy(out, all->items[i].text, static_cast<size_t>(all->items[i].len));
            out += all->items[i].len;
            *out++ = L' ';
        }
        const int cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
        qv::replace_stretch(c, from, cursor - from, text.get(), static_cast<int>(out - text.get()), false);
    }
    drop(all);
}

// The list a second Tab shows, at once.
void action_possible_completions(console *c, int) {
    if (!qv::has_completer() || !c->editor.buffer || c->masked) return;
    int from = 0;
    Candidates *all = qv::takeable_candidates(c, &from);
    if (!all) return;
    leave_rows(c);
    qv::CompletionState *st = state_of(c);
    const bool more = show_list(c, st, *all);
    drop(all);
    if (!more) redraw_input(c);
}

// Text for the user below the input (a listing of bindings, say), the
// input drawn again under it.
void qv::show_below(console *c, const wchar_t *text, int n) {
    if (!c->editor.buffer || !state_of(c) || n <= 0) return;
    leave_rows(c);
    frame_write(c, text, n);
    redraw_input(c);
}


void qv::complete_with(console *c, term_completer fn, void *user, int key) { with_completer(fn, user, action_complete, c, key); }
