// The host's highlighter and brace matching. The highlighter sees a UTF-8
// copy of the input and styles byte ranges; the ranges are mapped to whole
// characters here, so a bad range can only style less, never more.
#include "highlight.h"

#include <atomic>
#include <cstdlib>

#include "options.h"
#include "quorvel.h"

struct term_highlight {
    const int *starts; // the byte offset of each character, then the length
    int n;             // characters
    uint32_t *styles;
    int next; // where the last range ended: highlighters mostly go left to right
};

namespace {

term_highlighter the_highlighter = nullptr;
void *the_user = nullptr;

// Set by the host's thread, read while drawing.
std::atomic<uint32_t> looks[] = {{0}, {TERM_DIM}, {0}, {TERM_REVERSE}};
constexpr int kLooks = sizeof(looks) / sizeof(looks[0]);

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

bool call_highlighter(const wchar_t *text, int len, uint32_t *out) {
    // Room for the longest encoding: one pass instead of two.
    auto *utf8 = static_cast<char *>(malloc(static_cast<size_t>(len) * 4 + 1));
    auto *starts = static_cast<int *>(malloc(sizeof(int) * (static_cast<size_t>(len) + 1)));
    const bool ok = utf8 && starts;
    if (ok) {
        int at = 0;
        for (int i = 0; i < len; i++) {
            starts[i] = at;
            const auto u = static_cast<uint32_t>(text[i]);
            if (u < 0x80)
                utf8[at++] = static_cast<char>(u);
            else
                at += utf8_put(text[i], utf8 + at);
        }
        starts[len] = at;
        utf8[at] = 0;
        term_highlight h{starts, len, out, 0};
        the_highlighter(utf8, at, &h, the_user);
    }
    free(utf8);
    free(starts);
    return ok;
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

} // namespace

int term_setLook(int element, unsigned style) {
    if (element < 1 || element >= kLooks) return -1;
    // Only the bits a style has: a stray bit must not reach the painter.
    return static_cast<int>(looks[element].exchange(style & 0x7FFFFFu));
}

uint32_t qv::look(int element) { return element >= 1 && element < kLooks ? looks[element].load() : 0; }

void term_setHighlighter(term_highlighter fn, void *user) {
    the_highlighter = fn;
    the_user = fn ? user : nullptr;
}

int term_addHighlight(term_highlight *out, int start, int end, unsigned style) {
    if (!out || start >= end) return 0;
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

bool qv::highlight_active() { return the_highlighter || qv::option(TERM_OPTION_BRACE_MATCH); }

bool qv::highlight_styles(const wchar_t *text, int len, int cursor, uint32_t *out) {
    for (int i = 0; i < len; i++) out[i] = 0;
    if (the_highlighter && len > 0 && !call_highlighter(text, len, out)) return false;
    if (qv::option(TERM_OPTION_BRACE_MATCH)) {
        int at = -1;
        if (cursor < len && (is_open(text[cursor]) || is_close(text[cursor])))
            at = cursor;
        else if (cursor > 0 && cursor <= len && (is_open(text[cursor - 1]) || is_close(text[cursor - 1])))
            at = cursor - 1;
        const int p = at >= 0 ? partner(text, len, at) : -1;
        if (p >= 0) out[p] |= qv::look(TERM_LOOK_MATCH);
    }
    return true;
}
