// vi mode. Insert mode is the default map without the Alt keys, so that an
// Escape typed just before a command key is an Escape and not Alt; command
// mode gets the characters typed (they arrive as self-insert keys, of any
// script) and reads them as commands. Other keys, Return and the control
// keys among them, keep their actions in both modes.
#include "vimode.h"

#include <algorithm>
#include <cwchar>
#include <cstdlib>
#include <new>

#include "bindings.h"
#include "actions.h"
#include "console_record.h"
#include "editkeys.h"
#include "history.h"
#include "keydecode.h"
#include "killring.h"
#include "options.h"
#include "search.h"
#include "text.h"
#include "vimotion.h"

#if QV_WITH_VI_MODE

namespace {

// A key of the change that . repeats: a command character (action NULL),
// or a key of insert mode with its action.
struct ViKey {
    action_fn action;
    int key;
};
constexpr int kKeysMax = 256;
constexpr int kCountMax = 9999;
// A put never makes the line longer than this by itself.
constexpr long kPutMax = 1L << 20;

} // namespace

struct qv::ViState {
    keymap_entry *maps[2] = {nullptr, nullptr}; // insert, command
    bool command = false;
    // A command half typed.
    int count = 0, op = 0, op_count = 0, awaiting = 0;
    // The last f F t T, for ; and ,.
    int find_kind = 0;
    wchar_t find_char = 0;
    int search_dir = -1; // of the last / or ?
    bool searching = false;
    // The keys of the command under way and, while its insert lasts, of
    // the insert; the last change's keys, for .
    ViKey keys[kKeysMax];
    int nkeys = 0;
    bool inserting = false; // insert mode entered by a change being recorded
    bool overflow = false;
    ViKey last[kKeysMax];
    int nlast = 0;
    bool replaying = false;
    // The mode before the prompt: the read's own prompt while the prefixed
    // copy stands in for it.
    const wchar_t *host_prompt = nullptr, *host_styled = nullptr;
    const uint32_t *host_styles = nullptr;
    wchar_t *prompt = nullptr;
    uint32_t *styles = nullptr;
    bool swapped = false;
};

namespace {

using qv::ViState;

ViState *vi_of(const console *c) { return c->state ? c->state->vi : nullptr; }

bool vi_on() { return qv::option(TERM_OPTION_VI_MODE) != 0; }

int cursor_of(const console *c) { return static_cast<int>(c->editor.cursor - c->editor.buffer); }
int length_of(const console *c) { return static_cast<int>(c->editor.lastchar - c->editor.buffer); }

// The line the cursor is on, between line feeds.
qv::ViLine line_of(const console *c) {
    const wchar_t *b = c->editor.buffer;
    const int pos = cursor_of(c), len = length_of(c);
    int start = pos, end = pos;
    while (start > 0 && b[start - 1] != L'\n') start--;
    while (end < len && b[end] != L'\n') end++;
    return qv::ViLine{b, start, end};
}

void set_cursor(console *c, int pos) { c->editor.cursor = c->editor.buffer + pos; }

// In command mode the cursor stands on a character, never past the last.
void clamp(console *c) {
    if (!c->editor.buffer) return;
    const qv::ViLine l = line_of(c);
    if (cursor_of(c) >= l.end && l.end > l.start) set_cursor(c, qv::vi_prev(l, l.end));
}

void note_key(ViState &v, action_fn action, int key) {
    if (v.replaying) return;
    if (v.nkeys == kKeysMax) {
        v.overflow = true;
        return;
    }
    v.keys[v.nkeys++] = ViKey{action, key};
}

// The command (and its insert) is over: a change becomes what . repeats.
void command_done(ViState &v, bool changed) {
    if (changed && !v.replaying) {
        if (v.overflow) {
            v.nlast = 0;
        } else {
            std::copy(v.keys, v.keys + v.nkeys, v.last);
            v.nlast = v.nkeys;
        }
    }
    v.nkeys = 0;
    v.overflow = false;
    v.inserting = false;
    v.count = v.op = v.op_count = v.awaiting = 0;
}

void show_mode(console *c, ViState &v);

void enter_insert(console *c, ViState &v) {
    v.command = false;
    v.inserting = !v.replaying || v.inserting;
    v.count = v.op = v.op_count = v.awaiting = 0;
    show_mode(c, v);
}

// Takes the text from `from` to `to` out, into the kill ring unless it is
// only being replaced.
void cut(console *c, int from, int to, bool keep) {
    if (from >= to) return;
    if (keep) qv::kill_ring_add(c, c->editor.buffer + from, to - from, false, false);
    set_cursor(c, to);
    buffer_delete_before(c, static_cast<uint32_t>(to - from));
    history_set_dirty(c);
}

void put_text(console *c, int at, const wchar_t *text, int n) {
    set_cursor(c, at);
    if (n > 0 && buffer_insert_string(c, text, static_cast<uint32_t>(n)) != 0) history_set_dirty(c);
}

// d c y over a range; answers whether the text changed.
bool apply(console *c, ViState &v, int op, int from, int to) {
    if (op == 'y') {
        if (from < to) qv::kill_ring_add(c, c->editor.buffer + from, to - from, false, false);
        set_cursor(c, from);
        return false;
    }
    cut(c, from, to, true);
    if (op == 'c') enter_insert(c, v);
    return from < to || op == 'c';
}

// Where a motion lands from the cursor, n times; -1 when it cannot move.
// inclusive: an operator takes the character it lands on too.
int target_of(console *c, ViState &v, int motion, int n, bool with_op, bool *inclusive) {
    const qv::ViLine l = line_of(c);
    const int pos = cursor_of(c);
    *inclusive = false;
    int t = pos;
    switch (motion) {
    case 'h':
        if (pos <= l.start) return -1;
        for (int i = 0; i < n && t > l.start; i++) t = qv::vi_prev(l, t);
        return t;
    case 'l':
    case ' ': {
        const int last = with_op ? l.end : qv::vi_prev(l, l.end);
        if (pos >= last) return -1;
        for (int i = 0; i < n && t < last; i++) t = qv::vi_next(l, t);
        return t;
    }
    case '0': return l.start;
    case '^': return qv::vi_first_nonblank(l);
    case '$': return with_op ? l.end : std::max(l.start, qv::vi_prev(l, l.end));
    case 'w':
    case 'W':
        // cw on a word changes to its end, as vi has always done.
        if (with_op && v.op == 'c' && pos < l.end && l.text[pos] != L' ' && l.text[pos] != L'\t') {
            *inclusive = true;
            t = qv::vi_word_end_at(l, pos, motion == 'W');
            for (int i = 1; i < n && qv::vi_next(l, t) < l.end; i++) t = qv::vi_word_end(l, t, motion == 'W');
            return t;
        }
        for (int i = 0; i < n && t < l.end; i++) t = qv::vi_next_word(l, t, motion == 'W');
        return t;
    case 'e':
    case 'E':
        *inclusive = true;
        for (int i = 0; i < n && qv::vi_next(l, t) < l.end; i++) t = qv::vi_word_end(l, t, motion == 'E');
        return t;
    case 'b':
    case 'B':
        for (int i = 0; i < n && t > l.start; i++) t = qv::vi_word_start(l, t, motion == 'B');
        return t;
    default: break;
    }
    // f F t T, and ; , repeating the last.
    int kind = motion;
    wchar_t ch = v.find_char;
    const bool again = motion == ';' || motion == ',';
    if (again) {
        if (!v.find_kind) return -1;
        kind = v.find_kind;
        if (motion == ',') kind = kind == 'f' ? 'F' : kind == 'F' ? 'f' : kind == 't' ? 'T' : 't';
    }
    for (int i = 0; i < n; i++) {
        const int next = qv::vi_find(l, t, kind, ch, again || i > 0);
        if (next < 0) return -1;
        t = next;
    }
    *inclusive = kind == 'f' || kind == 't';
    return t;
}

// A motion alone moves the cursor; after an operator it gives its range.
bool motion(console *c, ViState &v, int m, int n) {
    const bool with_op = v.op != 0;
    bool inclusive = false;
    const int pos = cursor_of(c);
    const int t = target_of(c, v, m, n, with_op, &inclusive);
    if (t < 0) return false;
    if (!with_op) {
        set_cursor(c, t);
        return false;
    }
    const qv::ViLine l = line_of(c);
    const int from = std::min(pos, t), to = inclusive && t >= pos ? qv::vi_next(l, t) : std::max(pos, t);
    return apply(c, v, v.op, from, std::min(to, l.end));
}

// dd cc yy and S: the whole line.
bool whole_line(console *c, ViState &v, int op) {
    const qv::ViLine l = line_of(c);
    const int pos = cursor_of(c);
    const bool changed = apply(c, v, op, l.start, l.end);
    if (op == 'y') set_cursor(c, pos);
    return changed;
}

bool put(console *c, bool after, int n) {
    int len = 0;
    const qv::ViLine l = line_of(c);
    const int at = after && l.end > l.start ? qv::vi_next(l, cursor_of(c)) : cursor_of(c);
    const wchar_t *text = qv::kill_ring_yank(c, at, &len);
    if (!text || len == 0) return false;
    // The ring's text is good until the ring changes; the copy lasts.
    wchar_t *copy = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(len)));
    if (!copy) return false;
    std::copy(text, text + len, copy);
    for (int i = 0; i < n && static_cast<long>(i) * len < kPutMax; i++) put_text(c, at + i * len, copy, len);
    free(copy);
    set_cursor(c, std::max(at, qv::vi_prev(line_of(c), cursor_of(c))));
    return true;
}

// The offset n clusters on from pos, or -1 past the line's end.
int clusters_on(console *c, int pos, int n) {
    const qv::ViLine l = line_of(c);
    for (int i = 0; i < n; i++) {
        if (pos >= l.end) return -1;
        pos = qv::vi_next(l, pos);
    }
    return pos;
}

// r with n: the characters under and after the cursor, each with what is
// drawn with it, become ch.
bool replace(console *c, int n, wchar_t ch) {
    const int pos = cursor_of(c), end = clusters_on(c, pos, n);
    if (end < 0) return false;
    wchar_t *with = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(n)));
    if (!with) return false;
    std::fill(with, with + n, ch);
    cut(c, pos, end, false);
    put_text(c, pos, with, n);
    free(with);
    set_cursor(c, pos + n - 1);
    return true;
}

bool toggle_case(console *c, int n) {
    const int pos = cursor_of(c);
    const qv::ViLine l = line_of(c);
    int end = pos;
    for (int i = 0; i < n && end < l.end; i++) end = qv::vi_next(l, end);
    if (pos >= end) return false;
    wchar_t *with = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(end - pos)));
    if (!with) return false;
    for (int i = pos; i < end; i++) with[i - pos] = qv::other_case(c->editor.buffer[i]);
    cut(c, pos, end, false);
    put_text(c, pos, with, end - pos);
    free(with);
    set_cursor(c, end);
    return true;
}

void history_walk(console *c, bool older, int n) {
    for (int i = 0; i < n; i++) (older ? action_key_up : action_key_down)(c, 0);
    if (c->editor.buffer) set_cursor(c, 0);
}

void replay(console *c, ViState &v, int n);

// The count a command runs with: the operator's times the motion's, kept
// to what a line can use, so that 9999d9999w cannot busy the read.
int repeats(const ViState &v) {
    const long n = static_cast<long>(std::max(1, v.op_count)) * std::max(1, v.count);
    return static_cast<int>(std::min(n, static_cast<long>(kCountMax)));
}

// What a character of command mode did.
enum Outcome { kHalfTyped, kMoved, kChanged };

Outcome changed_if(bool changed) { return changed ? kChanged : kMoved; }

// One character in command mode.
Outcome command(console *c, ViState &v, wchar_t ch) {
    if (v.awaiting) {
        const int kind = v.awaiting;
        v.awaiting = 0;
        const int n = repeats(v);
        if (kind == 'r') return changed_if(replace(c, n, ch));
        v.find_kind = kind;
        v.find_char = ch;
        return changed_if(motion(c, v, kind, n));
    }
    if ((ch >= L'1' && ch <= L'9') || (ch == L'0' && v.count > 0)) {
        v.count = std::min(v.count * 10 + static_cast<int>(ch - L'0'), kCountMax);
        return kHalfTyped;
    }
    const int n = repeats(v);
    const int op = v.op;
    switch (ch) {
    case L'h': case L'l': case L' ': case L'0': case L'^': case L'$': case L'w': case L'W':
    case L'b': case L'B': case L'e': case L'E': case L';': case L',':
        return changed_if(motion(c, v, static_cast<int>(ch), n));
    case L'f': case L'F': case L't': case L'T': case L'r':
        v.awaiting = static_cast<int>(ch);
        return kHalfTyped;
    case L'd': case L'c': case L'y':
        if (op == static_cast<int>(ch)) return changed_if(whole_line(c, v, op));
        if (op) return kMoved;
        v.op = static_cast<int>(ch);
        v.op_count = v.count;
        v.count = 0;
        return kHalfTyped;
    default: break;
    }
    if (op) return kMoved; // an operator before anything but a motion is dropped
    switch (ch) {
    case L'D': case L'C': {
        v.op = ch == L'D' ? 'd' : 'c';
        const bool changed = motion(c, v, '$', 1); // C always ends in insert mode
        return ch == L'C' ? kChanged : changed_if(changed);
    }
    case L'x': case L'X':
        v.op = 'd';
        return changed_if(motion(c, v, ch == L'X' ? 'h' : 'l', n));
    case L's':
        v.op = 'c';
        if (!motion(c, v, 'l', n)) enter_insert(c, v);
        return kChanged;
    case L'S': whole_line(c, v, 'c'); return kChanged;
    case L'R': c->flags |= FLAG_INSERT_KEY; enter_insert(c, v); return kChanged;
    case L'p': case L'P': return changed_if(put(c, ch == L'p', n));
    case L'~': return changed_if(toggle_case(c, n));
    case L'u': action_undo(c, 0); return kMoved;
    case L'.':
        v.count = v.op_count = 0; // the count is the repeat's, not the change's
        replay(c, v, n);
        return kMoved;
    case L'i': enter_insert(c, v); return kChanged;
    case L'a':
        if (cursor_of(c) < line_of(c).end) set_cursor(c, qv::vi_next(line_of(c), cursor_of(c)));
        enter_insert(c, v);
        return kChanged;
    case L'I': set_cursor(c, qv::vi_first_nonblank(line_of(c))); enter_insert(c, v); return kChanged;
    case L'A': set_cursor(c, line_of(c).end); enter_insert(c, v); return kChanged;
    case L'j': case L'k': history_walk(c, ch == L'k', n); return kMoved;
    case L'/': case L'?':
        v.search_dir = ch == L'/' ? -1 : 1;
        v.searching = true;
        (ch == L'/' ? action_search_backward : action_search_forward)(c, 0);
        return kMoved;
    case L'n': case L'N':
        if (qv::search_again(c, ch == L'n' ? v.search_dir : -v.search_dir)) set_cursor(c, 0);
        return kMoved;
    default: return kMoved;
    }
}

// A character of command mode, with what it leaves for . and the cursor.
void take(console *c, ViState &v, wchar_t ch) {
    if (!c->editor.buffer) return;
    clamp(c);
    note_key(v, nullptr, static_cast<int>(ch));
    const Outcome done = command(c, v, ch);
    if (done == kHalfTyped || !v.command) return; // an insert goes on until Escape
    command_done(v, done == kChanged);
    clamp(c);
}

void replay(console *c, ViState &v, int n) {
    if (v.replaying || v.nlast == 0) return;
    ViKey keys[kKeysMax];
    const int nkeys = v.nlast;
    std::copy(v.last, v.last + nkeys, keys);
    v.replaying = true;
    for (int r = 0; r < n && r < 100; r++) {
        for (int i = 0; i < nkeys && c->editor.buffer; i++) {
            if (!keys[i].action && v.command)
                take(c, v, static_cast<wchar_t>(keys[i].key));
            else if (keys[i].action)
                keys[i].action(c, keys[i].key);
        }
    }
    v.replaying = false;
    v.count = v.op = v.op_count = v.awaiting = 0;
}

// The read's own prompt back in place.
void hide_mode(console *c, ViState &v) {
    if (!v.swapped) return;
    if (c->prompt == v.prompt) {
        c->prompt = v.host_prompt;
        c->styled_prompt = v.host_styled;
        c->prompt_styles = v.host_styles;
    }
    v.swapped = false;
}

// With TERM_OPTION_VI_SHOW_MODE the prompt starts with the mode, as
// readline's show-mode-in-prompt does, for terminals without a cursor shape.
// The prefix is a copy of the prompt the read began with; its colours go
// along, shifted. Without memory the prompt stays as it is.
void show_mode(console *c, ViState &v) {
    if (!vi_on() || !qv::option(TERM_OPTION_VI_SHOW_MODE)) return hide_mode(c, v);
    if (v.swapped && c->prompt != v.prompt) return; // a search shows its own
    if (!v.swapped) {
        v.host_prompt = c->prompt;
        v.host_styled = c->styled_prompt;
        v.host_styles = c->prompt_styles;
    }
    const wchar_t *mode = v.command ? L"(cmd) " : L"(ins) ";
    const size_t k = wcslen(mode), n = v.host_prompt ? wcslen(v.host_prompt) : 0;
    free(v.prompt);
    free(v.styles);
    v.prompt = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * (k + n + 1)));
    const bool styled = v.host_styles && v.host_styled == v.host_prompt;
    v.styles = styled ? static_cast<uint32_t *>(calloc(k + n + 1, sizeof(uint32_t))) : nullptr;
    if (!v.prompt || (styled && !v.styles)) return hide_mode(c, v);
    wmemcpy(v.prompt, mode, k);
    if (n) wmemcpy(v.prompt + k, v.host_prompt, n);
    v.prompt[k + n] = 0;
    if (styled) std::copy(v.host_styles, v.host_styles + n, v.styles + k);
    c->prompt = v.prompt;
    c->styled_prompt = styled ? v.prompt : nullptr;
    c->prompt_styles = v.styles;
    v.swapped = true;
}

keymap_entry *build_map() {
    keymap_entry *m = keymap_new();
    if (!m) return nullptr;
    if (!qv::keymap_bind_defaults(m, false) || m[27].type != KM_SUBMAP) {
        keymap_delete(m);
        return nullptr;
    }
    // Escape alone, or before a key that starts no control sequence.
    keymap_entry &lone = m[27].target.map[KEYMAP_DEFAULT];
    lone.type = qv::kKeyAlone;
    lone.target.action = action_vi_movement_mode;
    return m;
}

} // namespace

qv::ViState *qv::vi_new() { return new (std::nothrow) ViState{}; }

void qv::vi_free(ViState *v) {
    if (!v) return;
    keymap_delete(v->maps[0]);
    keymap_delete(v->maps[1]);
    free(v->prompt);
    free(v->styles);
    delete v;
}

keymap_entry *qv::vi_map(console *c, bool command) {
    ViState *v = vi_of(c);
    if (!v) return nullptr;
    keymap_entry *&m = v->maps[command ? 1 : 0];
    if (!m) m = build_map();
    return m;
}

const keymap_entry *qv::vi_keymap(console *c) {
    const ViState *v = vi_of(c);
    const keymap_entry *m = vi_on() && v ? vi_map(c, v->command) : nullptr;
    return m ? m : c->keymaps[0];
}

// A read begins or ends in insert mode, with nothing half typed; the mode
// shows before the prompt while it runs.
void qv::vi_begin(console *c) {
    if (ViState *v = vi_of(c)) {
        vi_end(c);
        show_mode(c, *v);
    }
}

void qv::vi_end(console *c) {
    if (ViState *v = vi_of(c)) {
        v->command = false;
        v->searching = false;
        command_done(*v, false);
        hide_mode(c, *v);
    }
}

bool qv::vi_key(console *c, action_fn action, int key) {
    ViState *v = vi_of(c);
    if (!v || !vi_on() || !v->command) return false;
    if (action == action_insert_char) {
        take(c, *v, static_cast<wchar_t>(key));
        return true;
    }
    if (action == action_key_backspace) {
        take(c, *v, L'h');
        return true;
    }
    if (action != action_vi_movement_mode) command_done(*v, false);
    return false;
}

bool qv::vi_search_return(console *c, action_fn action) {
    ViState *v = vi_of(c);
    if (!v || !v->searching || !vi_on() || action != action_key_return || !search_active(c)) return false;
    search_take(c);
    v->searching = false;
    clamp(c);
    return true;
}

bool qv::vi_commanding(const console *c) {
    const ViState *v = vi_of(c);
    return v && vi_on() && v->command;
}

bool qv::vi_joins_step(const console *c) {
    const ViState *v = vi_of(c);
    return v && vi_on() && (!v->command || v->op || v->awaiting || v->count);
}

void qv::vi_observe(console *c, action_fn action, int key) {
    ViState *v = vi_of(c);
    if (v && vi_on() && !v->command && v->inserting) note_key(*v, action, key);
}

int qv::vi_cursor_shape(const console *c) {
    const ViState *v = vi_of(c);
    if (!v || !vi_on()) return 0;
    return v->command ? 2 : 6;
}

void action_vi_movement_mode(console *c, int) {
    ViState *v = vi_of(c);
    if (!v || !vi_on()) return;
    v->searching = false;
    if (v->command) {
        command_done(*v, false);
        return;
    }
    v->command = true;
    c->flags &= ~FLAG_INSERT_KEY;
    if (c->editor.buffer && cursor_of(c) > line_of(c).start) set_cursor(c, qv::vi_prev(line_of(c), cursor_of(c)));
    command_done(*v, v->inserting);
    show_mode(c, *v);
}

void action_vi_insertion_mode(console *c, int) {
    if (ViState *v = vi_of(c)) enter_insert(c, *v);
}

void action_vi_editing_mode(console *, int) { qv::set_option(TERM_OPTION_VI_MODE, 1); }

void action_emacs_editing_mode(console *c, int) {
    qv::set_option(TERM_OPTION_VI_MODE, 0);
    if (ViState *v = vi_of(c)) v->command = false;
}

#endif
