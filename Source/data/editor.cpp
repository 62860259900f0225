// The edit buffer: a gap-less array of wide characters with a cursor, an end
// of text, a capacity and the start of the editable part; and the encoding of
// the finished text for the host.
#include "editor.h"

#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "console_record.h"
#include "qv_assert.h"

struct qv::EditState {
    TextBreak *breaks;
    int nbreaks;
    int capbreaks;
    int changed_from;
    ChangeHook hook;
};

qv::EditState *qv::edit_state_new() {
    auto *e = static_cast<EditState *>(calloc(1, sizeof(EditState)));
    if (e) e->changed_from = 0;
    return e;
}

void qv::edit_state_free(EditState *e) {
    if (!e) return;
    free(e->breaks);
    free(e);
}

namespace {

constexpr size_t kFirstCapacity = 512;

qv::EditState *state_of(const console *c) { return c->state ? c->state->edit : nullptr; }

void tell(console *c, int pos, const wchar_t *removed, int n) {
    qv::EditState *e = state_of(c);
    if (e && e->hook && n > 0) e->hook(c, pos, removed, n);
}

void zero_fill(wchar_t *from, wchar_t *to) {
    if (to > from) memset(from, 0, sizeof(wchar_t) * static_cast<size_t>(to - from));
}

int offset_of(const console *c, const wchar_t *p) { return static_cast<int>(p - c->editor.buffer); }

void mark_changed(console *c, int from) {
    qv::EditState *e = state_of(c);
    if (e && from < e->changed_from) e->changed_from = from;
}

void forget_breaks(console *c) {
    qv::EditState *e = state_of(c);
    if (!e) return;
    e->nbreaks = 0;
    e->changed_from = 0;
}

// The text moved by delta characters at offset at: continuation lines that
// start after it move with their text. A deletion never pulls one before at.
void move_breaks(console *c, int at, int delta) {
    mark_changed(c, at);
    qv::EditState *e = state_of(c);
    if (!e) return;
    for (int i = 0; i < e->nbreaks; i++) {
        int &o = e->breaks[i].offset;
        if (o <= at) continue;
        o += delta;
        if (o < at) o = at;
    }
}

// Gives up the storage after a failed growth, as the caller then has nothing
// consistent to work with; the status ends the read.
void editor_lost(console *c) {
    free(c->editor.buffer);
    c->editor = editor_t{};
    forget_breaks(c);
    c->status = ST_NOMEMORY;
    c->error = 1;
}

} // namespace

// Every read starts with an empty buffer, and Ctrl-G and Ctrl-C start a
// fresh one.
int console_init_editor(console *c) {
    console_free_editor(c);
    auto *block = static_cast<wchar_t *>(calloc(kFirstCapacity, sizeof(wchar_t)));
    if (!block) return 0;
    c->editor.buffer = c->editor.cursor = c->editor.lastchar = c->editor.editable = block;
    c->editor.limit = block + kFirstCapacity;
    qv::buffer_forget_breaks(c);
    return 1;
}

void console_free_editor(console *c) {
    free(c->editor.buffer);
    c->editor = editor_t{};
}

uint32_t buffer_resize(console *c, uint32_t n) {
    editor_t &e = c->editor;
    QV_ASSERT(c->editor.limit >= c->editor.buffer);
    const size_t capacity = static_cast<size_t>(e.limit - e.buffer);
    const size_t last = static_cast<size_t>(e.lastchar - e.buffer);
    const size_t need = last + n + 2;
    if (e.buffer && capacity >= need) return static_cast<uint32_t>(capacity);

    size_t grown = capacity ? capacity : kFirstCapacity;
    while (grown < need) {
        if (grown > (SIZE_MAX / sizeof(wchar_t)) / 2) {
            editor_lost(c);
            return 0;
        }
        grown *= 2;
    }
    const size_t cursor = static_cast<size_t>(e.cursor - e.buffer);
    const size_t editable = static_cast<size_t>(e.editable - e.buffer);
    auto *block = static_cast<wchar_t *>(realloc(e.buffer, grown * sizeof(wchar_t)));
    if (!block) {
        editor_lost(c);
        return 0;
    }
    e.buffer = block;
    e.cursor = block + cursor;
    e.lastchar = block + last;
    e.editable = block + editable;
    e.limit = block + grown;
    zero_fill(e.lastchar, e.limit);
    return static_cast<uint32_t>(grown);
}

uint32_t shift_buffer(console *c, int32_t delta) {
    QV_ASSERT(c->editor.lastchar >= c->editor.cursor);
    if (delta == 0) return 0;
    editor_t &e = c->editor;
    if (delta > 0) {
        if (buffer_resize(c, static_cast<uint32_t>(delta)) == 0) return 0;
        move_breaks(c, offset_of(c, e.cursor), delta);
        const size_t tail = static_cast<size_t>(e.lastchar - e.cursor);
        if (tail > 0) {
            memmove(e.cursor + delta, e.cursor, tail * sizeof(wchar_t));
            zero_fill(e.cursor, e.cursor + delta);
        }
        e.lastchar += delta;
        return static_cast<uint32_t>(delta);
    }
    const size_t d = static_cast<size_t>(-static_cast<int64_t>(delta));
    tell(c, offset_of(c, e.cursor), e.cursor, static_cast<int>(d));
    move_breaks(c, offset_of(c, e.cursor), delta);
    const size_t behind = static_cast<size_t>(e.lastchar - e.cursor) - d;
    memmove(e.cursor, e.cursor + d, behind * sizeof(wchar_t));
    zero_fill(e.lastchar - d, e.lastchar);
    e.lastchar -= d;
    return static_cast<uint32_t>(d);
}

uint32_t buffer_insert_bytes(console *c, const wchar_t *chars, uint32_t n) {
    if (n == 0 || n > INT32_MAX) return 0;
    if (shift_buffer(c, static_cast<int32_t>(n)) == 0) return 0;
    memcpy(c->editor.cursor, chars, n * sizeof(wchar_t));
    tell(c, offset_of(c, c->editor.cursor), nullptr, static_cast<int>(n));
    c->editor.cursor += n;
    return n;
}

uint32_t buffer_insert_string(console *c, const wchar_t *chars, uint32_t n) {
    if (n == 0) return 0;
    return buffer_insert_bytes(c, chars, n);
}

uint32_t buffer_insert_char(console *c, wchar_t ch) { return buffer_insert_bytes(c, &ch, 1); }

void buffer_delete_before(console *c, uint32_t n) {
    editor_t &e = c->editor;
    const size_t avail = static_cast<size_t>(e.cursor - e.buffer);
    const size_t k = n < avail ? n : avail;
    if (k == 0) return;
    e.cursor -= k;
    shift_buffer(c, -static_cast<int32_t>(k));
    *e.lastchar = 0;
}

void buffer_delete_after(console *c, uint32_t n) {
    editor_t &e = c->editor;
    const size_t avail = static_cast<size_t>(e.lastchar - e.cursor);
    const size_t k = n < avail ? n : avail;
    if (k == 0) return;
    shift_buffer(c, -static_cast<int32_t>(k));
    *e.lastchar = 0;
}

void buffer_clear(console *c) {
    editor_t &e = c->editor;
    if (e.buffer) tell(c, 0, e.buffer, offset_of(c, e.lastchar));
    zero_fill(e.buffer, e.limit);
    e.cursor = e.lastchar = e.buffer;
    forget_breaks(c);
}

void buffer_replace(console *c, const wchar_t *chars, uint32_t n) {
    buffer_clear(c);
    buffer_insert_string(c, chars, n);
}

uint32_t buffer_cursor_move_left(console *c, uint32_t n) {
    editor_t &e = c->editor;
    const size_t avail = static_cast<size_t>(e.cursor - e.buffer);
    if (n < avail) {
        e.cursor -= n;
        return n;
    }
    e.cursor = e.buffer;
    return static_cast<uint32_t>(avail);
}

uint32_t buffer_cursor_move_right(console *c, uint32_t n) {
    editor_t &e = c->editor;
    const size_t avail = static_cast<size_t>(e.lastchar - e.cursor);
    if (n < avail) {
        e.cursor += n;
        return n;
    }
    e.cursor = e.lastchar;
    return static_cast<uint32_t>(avail);
}

// A history entry may replace a continued input by a shorter text, leaving
// editable behind the end; Home then stops at the end of the text.
void buffer_cursor_move_home(console *c) {
    editor_t &e = c->editor;
    e.cursor = e.editable > e.lastchar ? e.lastchar : e.editable;
}

void buffer_cursor_move_end(console *c) { c->editor.cursor = c->editor.lastchar; }

void buffer_reset_editable_offset(console *c) { c->editor.editable = c->editor.lastchar; }

wchar_t buffer_peek_before_cursor(console *c) {
    if (c->editor.cursor <= c->editor.buffer) return 0;
    return c->editor.cursor[-1];
}

int qv::buffer_line_start(console *c) {
    const editor_t &e = c->editor;
    if (!e.buffer) return 0;
    const int cursor = offset_of(c, e.cursor);
    int start = 0;
    for (int o = cursor; o > 0; o--)
        if (e.buffer[o - 1] == L'\n') {
            start = o;
            break;
        }
    if (const EditState *st = state_of(c))
        for (int i = 0; i < st->nbreaks; i++) {
            const int o = st->breaks[i].offset;
            if (o <= cursor && o > start) start = o;
        }
    return start;
}

int qv::buffer_add_break(console *c, int kind) {
    EditState *st = state_of(c);
    if (!st || !c->editor.buffer) return 0;
    if (st->nbreaks == st->capbreaks) {
        const int cap = st->capbreaks ? st->capbreaks * 2 : 8;
        auto *grown = static_cast<TextBreak *>(realloc(st->breaks, sizeof(TextBreak) * cap));
        if (!grown) return 0;
        st->breaks = grown;
        st->capbreaks = cap;
    }
    const int at = offset_of(c, c->editor.lastchar);
    st->breaks[st->nbreaks++] = TextBreak{at, kind};
    mark_changed(c, at);
    return 1;
}

void qv::buffer_kill_to_end(console *c) {
    editor_t &e = c->editor;
    if (!e.buffer) return;
    const int cursor = offset_of(c, e.cursor);
    if (EditState *st = state_of(c))
        while (st->nbreaks > 0 && st->breaks[st->nbreaks - 1].offset > cursor) st->nbreaks--;
    buffer_delete_after(c, static_cast<uint32_t>(e.lastchar - e.cursor));
}

void qv::buffer_set_change_hook(console *c, ChangeHook hook) {
    if (EditState *st = state_of(c)) st->hook = hook;
}

const qv::TextBreak *qv::buffer_breaks(const console *c, int *n) {
    const EditState *st = state_of(c);
    *n = st ? st->nbreaks : 0;
    return st ? st->breaks : nullptr;
}

void qv::buffer_set_breaks(console *c, const TextBreak *breaks, int n) {
    EditState *st = state_of(c);
    if (!st || n > st->capbreaks) return;
    if (n > 0) memcpy(st->breaks, breaks, sizeof(TextBreak) * static_cast<size_t>(n));
    st->nbreaks = n;
    st->changed_from = 0;
}

void qv::buffer_forget_breaks(console *c) { forget_breaks(c); }

int qv::buffer_take_changed(console *c) {
    EditState *st = state_of(c);
    if (!st) return 0;
    const int from = st->changed_from;
    st->changed_from = INT_MAX;
    return from;
}

// Bytes above 127 never count, whatever the signedness of char on the target.
int printable_char(int ch) {
    if (ch < 0 || (ch & 0x80) != 0) return 0;
    return isprint(ch) ? 1 : 0;
}

// ---------------------------------------------------------------------------
// Encoding of the finished line

char hexchar(short v) {
    if (v >= 0 && v <= 9) return static_cast<char>('0' + v);
    if (v >= 10 && v <= 15) return static_cast<char>(v + 55);
    return ' ';
}

namespace {

void put_escape(char *out, size_t &pos, uint32_t unit) {
    out[pos++] = '\\';
    out[pos++] = ':';
    for (int shift = 12; shift >= 0; shift -= 4)
        out[pos++] = hexchar(static_cast<short>((unit >> shift) & 15));
}

} // namespace

// Above U+FFFF a character is written as its UTF-16 surrogate pair, one
// escape each, so the four-digit format loses nothing.
char *encode_input(console *c) {
    const wchar_t *p = c->editor.buffer;
    const size_t n = p ? static_cast<size_t>(c->editor.lastchar - p) : 0;
    size_t cap = n + 12;
    auto *out = static_cast<char *>(malloc(cap + 1));
    if (!out) return nullptr;
    size_t pos = 0;
    for (size_t i = 0; i < n; i++) {
        const auto code = static_cast<uint32_t>(p[i]);
        if (code <= 127) {
            out[pos++] = static_cast<char>(code);
        } else if (code > 0xFFFF && code <= 0x10FFFF) {
            put_escape(out, pos, 0xD800 + ((code - 0x10000) >> 10));
            put_escape(out, pos, 0xDC00 + ((code - 0x10000) & 0x3FF));
        } else {
            put_escape(out, pos, code & 0xFFFF);
        }
        // Keeps room for the longest character (two escapes) and the terminator.
        if (cap <= pos + 12) {
            cap = cap * 2 + 12;
            auto *grown = static_cast<char *>(realloc(out, cap + 1));
            if (!grown) {
                free(out);
                return nullptr;
            }
            out = grown;
        }
    }
    out[pos] = 0;
    return out;
}
