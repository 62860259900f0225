// SGR sequences in a prompt: read for the style they set, and taken out of
// the text so that they take no cells.
#include "sgr.h"

#include "rgb.h"

#include <cstdlib>

#include "quorvel.h"

namespace {

constexpr uint32_t kFg = 0x1FFu, kBg = 0x1FFu << 9;

// The parameters as numbers; an empty one is 0.
int split(const wchar_t *p, int n, int *out, int cap) {
    int count = 0, value = 0;
    bool any = false;
    for (int i = 0; i <= n; i++) {
        if (i == n || p[i] == L';' || p[i] == L':') {
            if (count < cap) out[count++] = any ? value : 0;
            value = 0;
            any = false;
        } else if (p[i] >= L'0' && p[i] <= L'9') {
            if (value < 100000) value = value * 10 + (p[i] - L'0');
            any = true;
        }
    }
    return count;
}

} // namespace

uint32_t qv::apply_sgr(uint32_t style, const wchar_t *params, int n) {
    int v[32];
    const int count = split(params, n, v, 32);
    for (int i = 0; i < count; i++) {
        const int p = v[i];
        if (p == 0) style = 0;
        else if (p == 1) style |= TERM_BOLD;
        else if (p == 2) style |= TERM_DIM;
        else if (p == 3) style |= TERM_ITALIC;
        else if (p == 4) style |= TERM_UNDERLINE;
        else if (p == 7) style |= TERM_REVERSE;
        else if (p == 22) style &= ~(TERM_BOLD | TERM_DIM);
        else if (p == 23) style &= ~TERM_ITALIC;
        else if (p == 24) style &= ~TERM_UNDERLINE;
        else if (p == 27) style &= ~TERM_REVERSE;
        else if (p >= 30 && p <= 37) style = (style & ~kFg) | TERM_FG(p - 30);
        else if (p == 39) style &= ~kFg;
        else if (p >= 40 && p <= 47) style = (style & ~kBg) | TERM_BG(p - 40);
        else if (p == 49) style &= ~kBg;
        else if (p >= 90 && p <= 97) style = (style & ~kFg) | TERM_FG(p - 90 + 8);
        else if (p >= 100 && p <= 107) style = (style & ~kBg) | TERM_BG(p - 100 + 8);
        else if ((p == 38 || p == 48) && i + 2 < count && v[i + 1] == 5) {
            const uint32_t c = static_cast<uint32_t>(v[i + 2] & 0xFF);
            style = p == 38 ? (style & ~kFg) | TERM_FG(c) : (style & ~kBg) | TERM_BG(c);
            i += 2;
        } else if ((p == 38 || p == 48) && i + 4 < count && v[i + 1] == 2) {
            auto part = [&](int k) { return static_cast<uint32_t>(v[i + k] < 0 ? 0 : v[i + k] > 255 ? 255 : v[i + k]); };
            const uint32_t field = rgb_field(part(2) << 16 | part(3) << 8 | part(4));
            style = p == 38 ? (style & ~kFg) | field : (style & ~kBg) | field << 9;
            i += 4;
        } else if ((p == 38 || p == 48) && i + 1 < count && v[i + 1] == 2) {
            i = count; // cut short: the rest cannot be read
        }
    }
    return style;
}

uint32_t *qv::take_styles(wchar_t *text) {
    size_t n = 0;
    bool styled = false;
    for (; text[n]; n++)
        if (text[n] == L'\x1b' || text[n] == L'\x01') styled = true;
    if (!styled) return nullptr;
    auto *styles = static_cast<uint32_t *>(malloc(sizeof(uint32_t) * (n + 1)));
    size_t w = 0;
    uint32_t style = 0;
    bool hidden = false;
    for (size_t r = 0; r < n; r++) {
        const wchar_t ch = text[r];
        if (ch == L'\x01' || ch == L'\x02') {
            hidden = ch == L'\x01';
            continue;
        }
        // ESC [ parameters final: an SGR sets the style; any other such
        // sequence inside the markers goes too, outside them it stays text.
        if (ch == L'\x1b' && r + 1 < n && text[r + 1] == L'[') {
            size_t e = r + 2;
            while (e < n && text[e] >= 0x20 && text[e] <= 0x3f) e++;
            if (e < n && text[e] >= 0x40 && text[e] <= 0x7e && (text[e] == L'm' || hidden)) {
                if (text[e] == L'm') style = apply_sgr(style, text + r + 2, static_cast<int>(e - r - 2));
                r = e;
                continue;
            }
        }
        if (hidden) continue;
        text[w] = ch;
        if (styles) styles[w] = style;
        w++;
    }
    text[w] = 0;
    return styles;
}
