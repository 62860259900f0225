// The host's highlighter and brace matching. The highlighter sees a UTF-8
// copy of the input and styles byte ranges; the ranges are mapped to whole
// characters here, so a bad range can only style less, never more.
#include "highlight.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

#include "options.h"
#include "quorvel.h"
#include "session.h"

struct term_highlight {
    const int *starts; // the byte offset of each character, then the length; null: all ASCII
    int n;             // characters
    uint32_t *styles;
    int next;     // where the last range ended: highlighters mostly go left to right
    int kept;     // characters unchanged since the last call, their styles still in styles
    bool cleared; // styles holds only what this call set: the first range clears it
};

namespace {

constexpr int kLooks = 7;

} // namespace

// The session's highlighter and the looks of what the library marks.
struct qv::HighlighterState {
    term_highlighter fn = nullptr;
    void *user = nullptr;
    // Another highlighter, or another user pointer, owes nothing to the
    // styles the last one left.
    std::atomic<unsigned> generation{1};
    // Set by the host's thread, read while drawing.
    std::atomic<uint32_t> looks[kLooks] = {{0}, {TERM_DIM}, {0}, {TERM_REVERSE}, {0}, {TERM_REVERSE}, {TERM_DIM}};
};

namespace {

// The default session's highlighter and looks: a host may set them before
// term_init.
qv::HighlighterState own_highlighter;

qv::HighlighterState &hl() { return qv::session_record(qv::kSlotHighlight, own_highlighter); }

#if QV_WITH_HIGHLIGHT
// ch as UTF-8, as the result encoding writes it: what UTF-8 cannot hold
// becomes U+FFFD.
int utf8_put(wchar_t ch, char *out) {
    auto u = static_cast<uint32_t>(ch);
    if ((u >= 0xD800 && u <= 0xDFFF) || u > 0x10FFFF) u = 0xFFFD;
    if (u < 0x80) {
        out[0] = static_cast<char>(u);
        return 1;
    }
    if (u < 0x800) {
        out[0] = static_cast<char>(0xC0 | (u >> 6));
        out[1] = static_cast<char>(0x80 | (u & 0x3F));
        return 2;
    }
    if (u < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (u >> 12));
        out[1] = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (u & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (u >> 18));
    out[1] = static_cast<char>(0x80 | ((u >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (u & 0x3F));
    return 4;
}

// The text as UTF-8 into the scratch; false when memory ran out. Mostly
// ASCII: then no table of offsets is needed, the plain loops vectorise, and
// only what follows the kept characters is encoded again.
bool encode(const wchar_t *text, int len, int kept, qv::HighlightScratch &s, int *bytes, bool *ascii) {
    const auto n = static_cast<size_t>(len);
    const auto from = static_cast<size_t>(kept < s.ascii_len ? kept : s.ascii_len);
    uint32_t high = 0;
    for (size_t i = from; i < n; i++) high |= static_cast<uint32_t>(text[i]);
    *ascii = high < 0x80;
    s.ascii_len = 0;
    // Room for the longest encoding: one pass instead of two.
    if (!qv::reserve(s.utf8, s.utf8_cap, (*ascii ? n : n * 4) + 1)) return false;
    if (*ascii) {
        for (size_t i = from; i < n; i++) s.utf8[i] = static_cast<char>(text[i]);
        *bytes = len;
        s.ascii_len = len;
    } else {
        if (!qv::reserve(s.starts, s.starts_cap, n + 1)) return false;
        int at = 0;
        for (int i = 0; i < len; i++) {
            s.starts[i] = at;
            const auto u = static_cast<uint32_t>(text[i]);
            if (u < 0x80)
                s.utf8[at++] = static_cast<char>(u);
            else
                at += utf8_put(text[i], s.utf8 + at);
        }
        s.starts[len] = at;
        *bytes = at;
    }
    s.utf8[*bytes] = 0;
    return true;
}

bool is_open(wchar_t ch) { return ch == L'(' || ch == L'[' || ch == L'{'; }
bool is_close(wchar_t ch) { return ch == L')' || ch == L']' || ch == L'}'; }

wchar_t partner_of(wchar_t ch) {
    switch (ch) {
    case L'(': return L')';
    case L'[': return L']';
    case L'{': return L'}';
    case L')': return L'(';
    case L']': return L'[';
    default: return L'{';
    }
}

// The offset of the bracket at o's partner, counting nested pairs of the
// same kind; -1 when it has none.
int partner(const wchar_t *text, int len, int o) {
    const wchar_t self = text[o], other = partner_of(self);
    const int step = is_open(self) ? 1 : -1;
    int depth = 0;
    for (int i = o; i >= 0 && i < len; i += step) {
        if (text[i] == self) depth++;
        if (text[i] == other && --depth == 0) return i;
    }
    return -1;
}

#endif

} // namespace

int term_setLook(int element, unsigned style) {
    if (element < 1 || element >= kLooks) return -1;
    // Only the bits a style has: a stray bit must not reach the painter.
    return static_cast<int>(hl().looks[element].exchange(style & 0x7FFFFFu));
}

uint32_t qv::style_over(uint32_t under, uint32_t over) {
    constexpr uint32_t kFg = 0x1FFu, kBg = 0x1FFu << 9;
    uint32_t s = under | (over & ~(kFg | kBg));
    if (over & kFg) s = (s & ~kFg) | (over & kFg);
    if (over & kBg) s = (s & ~kBg) | (over & kBg);
    return s;
}

uint32_t qv::look(int element) { return element >= 1 && element < kLooks ? hl().looks[element].load() : 0; }

#if QV_WITH_HIGHLIGHT

void term_setHighlighter(term_highlighter fn, void *user) {
    qv::HighlighterState &h = hl();
    h.fn = fn;
    h.user = fn ? user : nullptr;
    h.generation++;
}

int term_highlightFrom(term_highlight *out) {
    if (!out || out->cleared) return 0;
    std::fill(out->styles + out->kept, out->styles + out->n, 0u);
    out->cleared = true;
    return out->starts ? out->starts[out->kept] : out->kept;
}

int term_addHighlight(term_highlight *out, int start, int end, unsigned style) {
    if (!out || start >= end) return 0;
    if (!out->cleared) {
        std::fill(out->styles, out->styles + out->n, 0u);
        out->cleared = true;
    }
    if (!out->starts) { // one byte, one character
        const int lo = start > 0 ? start : 0, hi = end < out->n ? end : out->n;
        if (lo >= hi) return 0;
        std::fill(out->styles + lo, out->styles + hi, style);
        return hi - lo;
    }
    // The first character that starts inside the range: found by walking on
    // from the last range when this one comes after it, else by halving.
    int lo = out->next;
    if (lo > out->n || (lo > 0 && out->starts[lo - 1] >= start)) {
        lo = 0;
        int hi = out->n;
        while (lo < hi) {
            const int mid = (lo + hi) / 2;
            if (out->starts[mid] < start)
                lo = mid + 1;
            else
                hi = mid;
        }
    } else {
        while (lo < out->n && out->starts[lo] < start) lo++;
    }
    int k = lo;
    for (; k < out->n && out->starts[k + 1] <= end; k++) out->styles[k] = style;
    out->next = k;
    return k - lo;
}

bool qv::highlight_active() { return hl().fn || qv::option(TERM_OPTION_BRACE_MATCH); }

unsigned qv::highlighter_generation() { return hl().generation.load(); }

bool qv::highlight_styles(const wchar_t *text, int len, int cursor, int kept, HighlightScratch &scratch,
                          uint32_t *host, uint32_t *out) {
    const auto n = static_cast<size_t>(len);
    const HighlighterState &hs = hl();
    if (hs.fn && len > 0) {
        int bytes = 0;
        bool ascii = false;
        if (!encode(text, len, kept, scratch, &bytes, &ascii)) return false;
        term_highlight h{ascii ? nullptr : scratch.starts, len, host, 0, kept < len ? kept : len, false};
        hs.fn(scratch.utf8, bytes, &h, hs.user);
        if (!h.cleared) std::fill(host, host + n, 0u);
        std::copy(host, host + n, out);
    } else {
        std::fill(out, out + n, 0u);
    }
    if (qv::option(TERM_OPTION_BRACE_MATCH)) {
        int at = -1;
        if (cursor >= 0 && cursor < len && (is_open(text[cursor]) || is_close(text[cursor])))
            at = cursor;
        else if (cursor > 0 && cursor <= len && (is_open(text[cursor - 1]) || is_close(text[cursor - 1])))
            at = cursor - 1;
        const int p = at >= 0 ? partner(text, len, at) : -1;
        if (p >= 0) out[p] |= qv::look(TERM_LOOK_MATCH);
    }
    return true;
}

#else // a build without the highlighter and brace matching: only the looks

void term_setHighlighter(term_highlighter, void *) {}
int term_highlightFrom(term_highlight *) { return 0; }
int term_addHighlight(term_highlight *, int, int, unsigned) { return 0; }
bool qv::highlight_active() { return false; }
unsigned qv::highlighter_generation() { return 1; }
bool qv::highlight_styles(const wchar_t *, int len, int, int, HighlightScratch &, uint32_t *, uint32_t *out) {
    std::fill(out, out + len, 0u);
    return true;
}

#endif

// A new session highlights and looks as the default session does, until told
// otherwise.
qv::HighlighterState *qv::highlighter_new() {
    auto *h = new (std::nothrow) HighlighterState;
    if (!h) return nullptr;
    h->fn = own_highlighter.fn;
    h->user = own_highlighter.user;
    for (int i = 0; i < kLooks; i++) h->looks[i] = own_highlighter.looks[i].load();
    return h;
}

void qv::highlighter_free(HighlighterState *h) { delete h; }
