// readline's commands beyond the basic editing keys, with readline's
// meaning, so that the keys a user's fingers and ~/.inputrc know act here as
// there. Words are runs of letters and digits, as for the word keys.
#include "commands.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <memory>
#include <new>

#include "actions.h"
#include "console_record.h"
#include "editkeys.h"
#include "frame.h"
#include "killring.h"
#include "repeat.h"
#include "text.h"
#include "undo.h"
#include "variables.h"

#if QV_WITH_READLINE_COMMANDS

namespace {

using WidePtr = std::unique_ptr<wchar_t, decltype(&free)>;
constexpr int kQueryMax = 256;

} // namespace

struct qv::CommandState {
    int mark = -1;
    // The text a history search looks for, kept while the search repeats.
    wchar_t query[kQueryMax + 1] = {};
    int qlen = 0;
    // yank-last-arg: how far back the words come from, and the text it put in.
    int back = 0;
    int yanked_at = 0, yanked_len = 0;
    int search_direction = 0; // a character search waiting for its character
    long long next_serial = -1; // operate-and-get-next: the entry the next read starts with
};

namespace {

qv::CommandState *state_of(const console *c) { return c && c->state ? c->state->commands : nullptr; }

int cursor_of(const console *c) { return static_cast<int>(c->editor.cursor - c->editor.buffer); }
int length_of(const console *c) { return static_cast<int>(c->editor.lastchar - c->editor.buffer); }

bool is_blank(wchar_t ch) { return ch == L' ' || ch == L'\t'; }

int word_end(const console *c, int o) { return qv::word_after(c, o); }
int word_start(const console *c, int o) { return qv::word_before(c, o); }

void insert(console *c, const wchar_t *text, int n) {
    if (n > 0 && buffer_insert_string(c, text, static_cast<uint32_t>(n)) != 0) history_set_dirty(c);
}

// The text from `from` to `to` into the kill ring, joined to the kill before
// when the key before was a kill; removed from the line unless copy.
void kill_range(console *c, int from, int to, bool copy) {
    if (!c->editor.buffer || from >= to) return;
    const action_fn last = qv::frame_last_action(c);
    qv::kill_ring_add(c, c->editor.buffer + from, to - from, to <= cursor_of(c),
                      qv::is_kill(last) || qv::is_region_kill(last));
    if (copy) return;
    c->editor.cursor = c->editor.buffer + to;
    buffer_delete_before(c, static_cast<uint32_t>(to - from));
    history_set_dirty(c);
}

// Text put in place of the text from `from` to `to`, the cursor after it.
void replace_range(console *c, int from, int to, const wchar_t *text, int n) {
    c->editor.cursor = c->editor.buffer + to;
    buffer_delete_before(c, static_cast<uint32_t>(to - from));
    if (c->editor.buffer) insert(c, text, n);
}

// ---------------------------------------------------------------------------
// History

// The entry's text as the editor holds it; NULL when memory ran out.
wchar_t *decoded(const history_entry *e, int *n) { return qv::utf8_decode(e->text, e->length, n); }

bool holds(const wchar_t *text, int n, const wchar_t *q, int qlen, bool anywhere) {
    if (!anywhere) return n >= qlen && wmemcmp(text, q, static_cast<size_t>(qlen)) == 0;
    for (int i = 0; i + qlen <= n; i++)
        if (wmemcmp(text + i, q, static_cast<size_t>(qlen)) == 0) return true;
    return false;
}

// Walks the history from where it stands to the next entry holding the
// query (at its start, or anywhere) that differs from the line; the line
// stays as it is when there is none, past the newest entry too.
void search_history(console *c, int direction, bool anywhere) {
    qv::CommandState *st = state_of(c);
    if (!st || c->masked || !c->editor.buffer || c->history->count < 1) return;
    const action_fn last = qv::frame_last_action(c);
    const bool again = last == action_history_search_backward || last == action_history_search_forward ||
                       last == action_history_substring_search_backward ||
                       last == action_history_substring_search_forward;
    if (!again || anywhere != (last == action_history_substring_search_backward ||
                               last == action_history_substring_search_forward)) {
        // readline's prefix is the text before the cursor; a substring
        // search looks for all of it.
        st->qlen = anywhere ? length_of(c) : cursor_of(c);
        if (st->qlen > kQueryMax) st->qlen = kQueryMax;
        wmemcpy(st->query, c->editor.buffer, static_cast<size_t>(st->qlen));
    }
    history_t *h = c->history;
    history_entry *e = h->current ? (direction < 0 ? h->current->prev : h->current->next)
                                  : (direction < 0 ? h->last : nullptr);
    for (; e; e = direction < 0 ? e->prev : e->next) {
        int n = 0;
        WidePtr text(decoded(e, &n), &free);
        if (!text) return;
        if (!holds(text.get(), n, st->query, st->qlen, anywhere)) continue;
        if (n == length_of(c) && wmemcmp(text.get(), c->editor.buffer, static_cast<size_t>(n)) == 0) continue;
        history_save_current_buffer(c, c->editor.buffer, static_cast<uint32_t>(length_of(c)));
        h->current = e;
        buffer_replace(c, text.get(), static_cast<uint32_t>(n));
        if (!c->editor.buffer) return;
        int at = n;
        if (anywhere)
            for (int i = 0; i + st->qlen <= n; i++)
                if (wmemcmp(text.get() + i, st->query, static_cast<size_t>(st->qlen)) == 0) {
                    at = i + st->qlen;
                    break;
                }
        c->editor.cursor = c->editor.buffer + (anywhere ? at : st->qlen);
        qv::undo_reset(c);
        return;
    }
    // No match: the line stays as it is, as in readline.
}

// Word `index` of an entry split at blanks (-1: the last), into out.
int word_of(const history_entry *e, int index, wchar_t *out, int size) {
    int n = 0;
    WidePtr text(decoded(e, &n), &free);
    if (!text) return -1;
    int starts[256], ends[256], words = 0;
    for (int i = 0; i < n && words < 256;) {
        while (i < n && is_blank(text.get()[i])) i++;
        if (i >= n) break;
        starts[words] = i;
        while (i < n && !is_blank(text.get()[i])) i++;
        ends[words++] = i;
    }
    if (index < 0) index = words + index;
    if (index < 0 || index >= words) return -1;
    const int len = ends[index] - starts[index] < size ? ends[index] - starts[index] : size;
    wmemcpy(out, text.get() + starts[index], static_cast<size_t>(len));
    return len;
}

// The entry `back` entries before the newest (1: the newest).
const history_entry *entry_back(const console *c, int back) {
    const history_entry *e = c->history->last;
    while (e && --back > 0) e = e->prev;
    return back <= 0 ? e : nullptr;
}

void yank_word(console *c, int index, bool walk) {
    qv::CommandState *st = state_of(c);
    if (!st || !c->editor.buffer) return;
    const action_fn last = qv::frame_last_action(c);
    const bool again = walk && last == action_yank_last_arg && st->yanked_at + st->yanked_len <= length_of(c);
    st->back = again ? st->back + 1 : 1;
    const history_entry *e = entry_back(c, st->back);
    wchar_t word[512];
    const int n = e ? word_of(e, index, word, 512) : -1;
    if (n < 0) {
        if (again) st->back--;
        return;
    }
    if (again) {
        replace_range(c, st->yanked_at, st->yanked_at + st->yanked_len, word, n);
    } else {
        st->yanked_at = cursor_of(c);
        insert(c, word, n);
    }
    st->yanked_len = n;
}

long long serial_of(const console *c, const history_entry *at) {
    long long serial = qv::history_first_serial(c);
    for (const history_entry *e = c->history->first; e && e != at; e = e->next) serial++;
    return serial;
}

// Case: each character of the next word, or only its first upper and the
// rest lower.
void change_case(console *c, int mode) {
    if (!c->editor.buffer) return;
    const int from = cursor_of(c), to = word_end(c, from);
    if (to <= from) return;
    WidePtr text(static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(to - from))), &free);
    if (!text) return;
    bool first = true;
    for (int i = from; i < to; i++) {
        const wchar_t ch = c->editor.buffer[i];
        const bool word = qv::is_word_char(ch);
        const bool up = mode > 0 || (mode == 0 && first && word);
        text.get()[i - from] = static_cast<wchar_t>(up ? towupper(static_cast<wint_t>(ch)) : towlower(static_cast<wint_t>(ch)));
        if (word) first = false;
    }
    replace_range(c, from, to, text.get(), to - from);
}

} // namespace

qv::CommandState *qv::commands_new() { return new (std::nothrow) CommandState; }

void qv::commands_free(CommandState *s) { delete s; }

void qv::commands_begin(console *c) {
    CommandState *st = state_of(c);
    if (!st) return;
    st->mark = -1;
    st->search_direction = 0;
    const long long serial = st->next_serial;
    st->next_serial = -1;
    const history_entry *e = serial >= 0 ? history_at_serial(c, serial) : nullptr;
    if (!e || !c->editor.buffer) return;
    int n = 0;
    WidePtr text(decoded(e, &n), &free);
    if (!text) return;
    history_save_current_buffer(c, c->editor.buffer, static_cast<uint32_t>(length_of(c)));
    c->history->current = const_cast<history_entry *>(e);
    buffer_replace(c, text.get(), static_cast<uint32_t>(n));
    undo_reset(c);
}

bool qv::reads_argument(action_fn a) {
    return a == action_yank_last_arg || a == action_yank_nth_arg || a == action_insert_comment;
}

bool qv::is_region_kill(action_fn a) {
    return a == action_kill_region || a == action_backward_kill_line || a == action_kill_whole_line ||
           a == action_copy_region_as_kill || a == action_copy_backward_word || a == action_copy_forward_word;
}

void action_history_search_backward(console *c, int) { search_history(c, -1, false); }
void action_history_search_forward(console *c, int) { search_history(c, 1, false); }
void action_history_substring_search_backward(console *c, int) { search_history(c, -1, true); }
void action_history_substring_search_forward(console *c, int) { search_history(c, 1, true); }

void action_yank_last_arg(console *c, int) {
    bool given = false;
    const int n = qv::argument_value(c, &given);
    yank_word(c, given ? n : -1, !given);
}

void action_yank_nth_arg(console *c, int) {
    bool given = false;
    const int n = qv::argument_value(c, &given);
    yank_word(c, given ? n : 1, false);
}

void action_operate_and_get_next(console *c, int key) {
    qv::CommandState *st = state_of(c);
    if (st && c->history->current) st->next_serial = serial_of(c, c->history->current) + 1;
    action_key_return(c, key);
}

void action_revert_line(console *c, int) {
    for (int steps = 0; steps < 100000 && qv::undo_pending(c); steps++) qv::undo_step(c);
}

void action_end_of_history(console *c, int) {
    history_t *h = c->history;
    if (c->masked || !c->editor.buffer || !h->current) return;
    h->current = nullptr;
    if (h->saved) buffer_replace(c, h->saved->text, h->saved->length);
    qv::undo_reset(c);
}

void action_upcase_word(console *c, int) { change_case(c, 1); }
void action_downcase_word(console *c, int) { change_case(c, -1); }
void action_capitalize_word(console *c, int) { change_case(c, 0); }

// readline's rule: the word at or before the cursor and the one after it;
// at the end of the line, the last two. The cursor ends after both.
void action_transpose_words(console *c, int) {
    if (!c->editor.buffer) return;
    const int w2_end = word_end(c, cursor_of(c));
    const int w2_beg = word_start(c, w2_end);
    const int w1_beg = word_start(c, w2_beg);
    const int w1_end = word_end(c, w1_beg);
    if (w1_beg == w2_beg || w2_beg < w1_end) return;
    const wchar_t *b = c->editor.buffer;
    const int n = w2_end - w1_beg;
    WidePtr text(static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(n))), &free);
    if (!text) return;
    wchar_t *t = text.get();
    wmemcpy(t, b + w2_beg, static_cast<size_t>(w2_end - w2_beg));
    t += w2_end - w2_beg;
    wmemcpy(t, b + w1_end, static_cast<size_t>(w2_beg - w1_end));
    t += w2_beg - w1_end;
    wmemcpy(t, b + w1_beg, static_cast<size_t>(w1_end - w1_beg));
    replace_range(c, w1_beg, w2_end, text.get(), n);
}

void action_delete_horizontal_space(console *c, int) {
    if (!c->editor.buffer) return;
    const wchar_t *b = c->editor.buffer;
    int from = cursor_of(c), to = from;
    while (from > 0 && is_blank(b[from - 1])) from--;
    while (to < length_of(c) && is_blank(b[to])) to++;
    if (to > from) replace_range(c, from, to, nullptr, 0);
}

void action_backward_kill_line(console *c, int) {
    if (c->editor.buffer) kill_range(c, qv::buffer_line_start(c), cursor_of(c), false);
}

void action_kill_whole_line(console *c, int) {
    if (!c->editor.buffer) return;
    int to = cursor_of(c);
    while (to < length_of(c) && c->editor.buffer[to] != L'\n') to++;
    kill_range(c, qv::buffer_line_start(c), to, false);
}

void action_set_mark(console *c, int) {
    if (qv::CommandState *st = state_of(c))
        if (c->editor.buffer) st->mark = cursor_of(c);
}

void action_exchange_point_and_mark(console *c, int) {
    qv::CommandState *st = state_of(c);
    if (!st || !c->editor.buffer || st->mark < 0) return;
    const int mark = st->mark < length_of(c) ? st->mark : length_of(c);
    st->mark = cursor_of(c);
    c->editor.cursor = c->editor.buffer + mark;
}

namespace {

void region(console *c, bool copy) {
    qv::CommandState *st = state_of(c);
    if (!st || !c->editor.buffer || st->mark < 0) return;
    const int mark = st->mark < length_of(c) ? st->mark : length_of(c);
    const int from = mark < cursor_of(c) ? mark : cursor_of(c);
    const int to = mark < cursor_of(c) ? cursor_of(c) : mark;
    kill_range(c, from, to, copy);
    if (!copy) st->mark = from;
}

} // namespace

void action_kill_region(console *c, int) { region(c, false); }
void action_copy_region_as_kill(console *c, int) { region(c, true); }

void action_copy_backward_word(console *c, int) {
    if (c->editor.buffer) kill_range(c, word_start(c, cursor_of(c)), cursor_of(c), true);
}

void action_copy_forward_word(console *c, int) {
    if (c->editor.buffer) kill_range(c, cursor_of(c), word_end(c, cursor_of(c)), true);
}

void action_character_search(console *c, int) {
    if (qv::CommandState *st = state_of(c)) st->search_direction = 1;
}

void action_character_search_backward(console *c, int) {
    if (qv::CommandState *st = state_of(c)) st->search_direction = -1;
}

bool qv::char_search_active(const console *c) {
    const CommandState *st = state_of(c);
    return st && st->search_direction != 0;
}

// Forward: the next occurrence after the cursor, the cursor on it;
// backward: the one before it. As often as the argument says.
void qv::char_search_key(console *c, int key) {
    CommandState *st = state_of(c);
    if (!st) return;
    const int direction = st->search_direction;
    st->search_direction = 0;
    if (!c->editor.buffer) return;
    const int times = argument_value(c, nullptr);
    int at = cursor_of(c);
    for (int k = 0; k < times; k++) {
        int i = at + direction;
        while (i >= 0 && i < length_of(c) && c->editor.buffer[i] != static_cast<wchar_t>(key)) i += direction;
        if (i < 0 || i >= length_of(c)) break;
        at = i;
    }
    c->editor.cursor = c->editor.buffer + at;
}

void action_insert_comment(console *c, int key) {
    if (!c->editor.buffer) return;
    const char *comment = qv::variable_value(c, "comment-begin");
    int n = 0;
    WidePtr text(qv::utf8_decode(comment, strlen(comment), &n), &free);
    if (!text) return;
    c->editor.cursor = c->editor.buffer;
    insert(c, text.get(), n);
    action_key_return(c, key);
}

void action_tab_insert(console *c, int) {
    const wchar_t tab = L'\t';
    if (c->editor.buffer) insert(c, &tab, 1);
}

#else // a build without readline's further commands: their actions do nothing, and no key or name reaches them

struct qv::CommandState {};

qv::CommandState *qv::commands_new() { return new (std::nothrow) CommandState; }
void qv::commands_free(CommandState *s) { delete s; }
void qv::commands_begin(console *) {}
bool qv::char_search_active(const console *) { return false; }
void qv::char_search_key(console *, int) {}
bool qv::reads_argument(action_fn) { return false; }
bool qv::is_region_kill(action_fn) { return false; }
void action_history_search_backward(console *, int) {}
void action_history_search_forward(console *, int) {}
void action_history_substring_search_backward(console *, int) {}
void action_history_substring_search_forward(console *, int) {}
void action_yank_last_arg(console *, int) {}
void action_yank_nth_arg(console *, int) {}
void action_operate_and_get_next(console *, int) {}
void action_revert_line(console *, int) {}
void action_end_of_history(console *, int) {}
void action_upcase_word(console *, int) {}
void action_downcase_word(console *, int) {}
void action_capitalize_word(console *, int) {}
void action_transpose_words(console *, int) {}
void action_delete_horizontal_space(console *, int) {}
void action_backward_kill_line(console *, int) {}
void action_kill_whole_line(console *, int) {}
void action_set_mark(console *, int) {}
void action_exchange_point_and_mark(console *, int) {}
void action_kill_region(console *, int) {}
void action_copy_region_as_kill(console *, int) {}
void action_copy_backward_word(console *, int) {}
void action_copy_forward_word(console *, int) {}
void action_character_search(console *, int) {}
void action_character_search_backward(console *, int) {}
void action_insert_comment(console *, int) {}
void action_tab_insert(console *, int) {}

#endif
