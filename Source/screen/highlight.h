/* Highlighting: the host's highlighter and brace matching, turned into a
   style for each character of the input. Library-internal. */
#ifndef QUORVEL_HIGHLIGHT_H
#define QUORVEL_HIGHLIGHT_H

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cwchar>

namespace qv {

// The style of a look (TERM_LOOK_HINT, ...); 0 for an unknown one.
uint32_t look(int element);
// A style drawn over another: its flags added, its colours in place of the
// other's where it has them.
uint32_t style_over(uint32_t under, uint32_t over);

// Whether anything styles the input now: a highlighter, or brace matching.
bool highlight_active();
// Changes when the highlighter or its user pointer does: the styles the
// last one left are no longer to be kept.
unsigned highlighter_generation();
// A session's highlighter and looks, the default session's to start with.
struct HighlighterState;
HighlighterState *highlighter_new();
void highlighter_free(HighlighterState *h);

// Room for n items in a buffer kept from call to call, grown with realloc;
// false, the buffer as it was, when memory ran out.
template <typename T> bool reserve(T *&p, size_t &cap, size_t n) {
    if (n <= cap) return true;
    auto *grown = static_cast<T *>(realloc(p, sizeof(T) * n));
    if (!grown) return false;
    p = grown;
    cap = n;
    return true;
}

// Buffers the caller keeps from render to render, so that a render
// allocates nothing once they have grown.
struct HighlightScratch {
    char *utf8;
    size_t utf8_cap;
    int *starts;
    size_t starts_cap;
    int ascii_len; // leading characters of the last encoding, all ASCII
};

// The style of each of the len characters of text (the cursor at offset
// cursor) into out: the highlighter's ranges, then the bracket matched.
// host holds the highlighter's own styles from the last call, the first
// kept of them for text unchanged since; they are kept if the highlighter
// asks, and host then holds this call's. False, out untouched, when memory
// ran out.
bool highlight_styles(const wchar_t *text, int len, int cursor, int kept, HighlightScratch &scratch,
                      uint32_t *host, uint32_t *out);

} // namespace qv
#endif

#endif
