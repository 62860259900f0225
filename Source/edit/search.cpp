// Incremental history search. While it runs the input row reads
// "(reverse-i-search)`query': match", drawn by the ordinary layout: the
// prompt is the search's, the edit buffer holds the match, and the cursor
// stands on the query in it.
#include "search.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>

#include "actions.h"
#include "console_record.h"
#include "text.h"
#include "undo.h"

namespace {
constexpr int kQueryMax = 256;
}

struct qv::SearchState {
    bool active;
    bool noninc; // Return takes the match to edit, as readline's non-incremental search
    // The line as it was, given back by Ctrl-G.
    wchar_t *saved;
    int saved_len;
    int saved_cursor;
    qv::TextBreak *saved_breaks;
    int saved_nbreaks;
    const wchar_t *saved_prompt;
    wchar_t query[kQueryMax + 1];
    int qlen;
    // The match: its entry's position in the history, checked again before
    // every use, and a copy of its text, which is what the line shows.
    bool found;
    long long match_serial;
    wchar_t *match_text;
    int match_len;
    int match_pos;
    bool failing;
    int direction; // -1 older, +1 newer
    wchar_t prompt[kQueryMax + 64];
    // The query of the last search whose match was taken, and that match's
    // entry, for a search again without a search running (vi's n and N).
    struct Last {
        wchar_t query[kQueryMax + 1];
        int qlen;
        long long serial;
    } last;
};

namespace {

using Search = qv::SearchState;

void forget(Search &s) {
    free(s.saved);
    free(s.saved_breaks);
    free(s.match_text);
    const Search::Last last = s.last;
    s = Search{};
    s.last = last;
}

// The position of the next entry holding the query, from `from` on in the
// search's direction (from itself when inclusive), or from the newest or
// oldest entry when there is no match yet; -1 when there is none. The
// entries are looked at only within this call.
long long find(console *c, const Search &s, bool inclusive, int *pos) {
    // Entries are UTF-8, and so is the query for the comparison: a byte
    // match is a character match in well-formed UTF-8.
    std::unique_ptr<char, decltype(&free)> query(qv::utf8_of(s.query, s.qlen), &free);
    if (!query) return -1;
    const long long first = qv::history_first_serial(c), end = qv::history_end_serial(c);
    long long at = s.direction < 0 ? end - 1 : first;
    if (s.found) at = inclusive ? s.match_serial : s.match_serial + s.direction;
    // The match's entry may have gone, and newer ones come, since it was found.
    if (s.direction < 0 && at >= end) at = end - 1;
    if (s.direction > 0 && at < first) at = first;
    for (const history_entry *e = qv::history_at_serial(c, at); e;
         e = s.direction < 0 ? e->prev : e->next, at += s.direction) {
        const char *hit = strstr(e->text, query.get());
        if (hit) {
            // The match's place in characters: the bytes that start one.
            int chars = 0;
            for (const char *p = e->text; p < hit; p++) chars += (static_cast<unsigned char>(*p) & 0xC0) != 0x80;
            *pos = chars;
            return at;
        }
    }
    return -1;
}

// Looks for the query and shows what it found; a query with no match keeps
// the last match and says it failed.
void look(console *c, Search &s, bool inclusive) {
    int pos = 0;
    const long long at = s.qlen > 0 ? find(c, s, inclusive, &pos) : -1;
    const history_entry *e = at >= 0 ? qv::history_at_serial(c, at) : nullptr;
    int len = 0;
    wchar_t *copy = e ? qv::utf8_decode(e->text, e->length, &len) : nullptr;
    s.failing = s.qlen > 0 && !copy;
    if (copy) {
        free(s.match_text);
        s.match_text = copy;
        s.match_len = len;
        s.match_serial = at;
        // A query that starts inside a cluster (a mark alone) puts the
        // cursor on the cluster, never between its characters.
        s.match_pos = pos > 0 && pos < len ? qv::cluster_start(copy, pos + 1) : pos;
        s.found = true;
    }
}

void show(console *c, Search &s) {
    swprintf(s.prompt, sizeof s.prompt / sizeof s.prompt[0], L"(%ls%ls)`%ls': ",
             s.failing ? L"failing " : L"", s.direction < 0 ? L"reverse-i-search" : L"i-search", s.query);
    c->prompt = s.prompt;
    if (s.found) {
        buffer_replace(c, s.match_text, static_cast<uint32_t>(s.match_len));
        c->editor.cursor = c->editor.buffer + s.match_pos;
    } else {
        buffer_replace(c, s.saved ? s.saved : L"", static_cast<uint32_t>(s.saved_len));
        c->editor.cursor = c->editor.buffer + s.saved_cursor;
    }
}

// Ends the search: the line shown stays, or the line from before comes back.
void finish(console *c, Search &s, bool restore) {
    c->prompt = s.saved_prompt;
    if (restore) {
        buffer_replace(c, s.saved ? s.saved : L"", static_cast<uint32_t>(s.saved_len));
        if (s.saved_nbreaks > 0) qv::buffer_set_breaks(c, s.saved_breaks, s.saved_nbreaks);
        c->editor.cursor = c->editor.buffer + s.saved_cursor;
    }
    qv::undo_suspend(c, false);
    // A match taken is a recall: undo goes back to it, no further.
    if (!restore) qv::undo_reset(c);
    if (!restore && s.found && s.qlen > 0) {
        wmemcpy(s.last.query, s.query, static_cast<size_t>(s.qlen) + 1);
        s.last.qlen = s.qlen;
        s.last.serial = s.match_serial;
    }
    forget(s);
}

} // namespace

qv::SearchState *qv::search_new() { return static_cast<SearchState *>(calloc(1, sizeof(SearchState))); }

void qv::search_free(SearchState *s) {
    if (!s) return;
    forget(*s);
    free(s);
}

bool qv::search_active(const console *c) { return c->state && c->state->search && c->state->search->active; }

bool qv::search_key(console *c, action_fn action, int key) {
    Search &s = *c->state->search;
    if (action == action_insert_char) {
        if (s.qlen < kQueryMax) {
            s.query[s.qlen++] = static_cast<wchar_t>(key);
            s.query[s.qlen] = 0;
        }
        look(c, s, true);
    } else if (action == action_key_backspace) {
        // A shorter query still matches where the longer one did.
        if (s.qlen > 0) s.query[--s.qlen] = 0;
        look(c, s, true);
    } else if (action == action_search_backward || action == action_search_forward) {
        s.direction = action == action_search_backward ? -1 : 1;
        look(c, s, false);
    } else if (action == action_abandon_input) {
        finish(c, s, true);
        return true;
    } else if (s.noninc && action == action_key_return) {
        finish(c, s, false);
        return true;
    } else if (action) {
        // Any other key takes the match as the line, then does its work.
        finish(c, s, false);
        return false;
    }
    show(c, s);
    return true;
}

namespace {

void start(console *c, int direction) {
    if (c->masked || !c->editor.buffer || !c->state || !c->state->search || !c->history) return;
    Search &s = *c->state->search;
    forget(s);
    s.active = true;
    s.direction = direction;
    s.saved_len = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    s.saved_cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    s.saved = static_cast<wchar_t *>(calloc(static_cast<size_t>(s.saved_len) + 1, sizeof(wchar_t)));
    if (s.saved) wmemcpy(s.saved, c->editor.buffer, static_cast<size_t>(s.saved_len));
    int nbreaks = 0;
    const qv::TextBreak *breaks = qv::buffer_breaks(c, &nbreaks);
    if (nbreaks > 0) {
        s.saved_breaks = static_cast<qv::TextBreak *>(malloc(sizeof(qv::TextBreak) * static_cast<size_t>(nbreaks)));
        if (s.saved_breaks) {
            memcpy(s.saved_breaks, breaks, sizeof(qv::TextBreak) * static_cast<size_t>(nbreaks));
            s.saved_nbreaks = nbreaks;
        }
    }
    s.saved_prompt = c->prompt;
    qv::undo_suspend(c, true); // what the search shows is no edit
    show(c, s);
}

} // namespace

void action_search_backward(console *c, int) { start(c, -1); }

void action_search_forward(console *c, int) { start(c, 1); }

// Readline's non-incremental searches: the query typed, Return takes the
// match into the line to edit; the query is shown as it grows.
void action_noninc_search_backward(console *c, int) {
    start(c, -1);
    if (qv::search_active(c)) c->state->search->noninc = true;
}

void action_noninc_search_forward(console *c, int) {
    start(c, 1);
    if (qv::search_active(c)) c->state->search->noninc = true;
}

void qv::search_reset(console *c) {
    if (!c->state || !c->state->search) return;
    Search &s = *c->state->search;
    if (s.active) {
        if (c->prompt == s.prompt) c->prompt = s.saved_prompt;
        qv::undo_suspend(c, false);
    }
    forget(s);
}

void qv::search_take(console *c) {
    if (search_active(c)) finish(c, *c->state->search, false);
}

bool qv::search_again(console *c, int direction) {
    if (c->masked || !c->editor.buffer || !c->state || !c->state->search || search_active(c)) return false;
    Search &s = *c->state->search;
    if (s.last.qlen == 0) return false;
    wmemcpy(s.query, s.last.query, static_cast<size_t>(s.last.qlen) + 1);
    s.qlen = s.last.qlen;
    s.direction = direction < 0 ? -1 : 1;
    s.found = true;
    s.match_serial = s.last.serial;
    look(c, s, false);
    const bool moved = s.match_text && s.match_serial != s.last.serial;
    if (moved) {
        buffer_replace(c, s.match_text, static_cast<uint32_t>(s.match_len));
        c->editor.cursor = c->editor.buffer + s.match_pos;
        s.last.serial = s.match_serial;
        qv::undo_reset(c);
    }
    forget(s);
    return moved;
}
