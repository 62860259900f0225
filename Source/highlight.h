/* Highlighting: the host's highlighter and brace matching, turned into a
   style for each character of the input. Library-internal. */
#ifndef QUORVEL_HIGHLIGHT_H
#define QUORVEL_HIGHLIGHT_H

#ifdef __cplusplus
#include <cstdint>
#include <cwchar>

namespace qv {

// The style of a look (TERM_LOOK_HINT, ...); 0 for an unknown one.
uint32_t look(int element);

// Whether anything styles the input now: a highlighter, or brace matching.
bool highlight_active();
// The style of each of the len characters of text (the cursor at offset
// cursor) into out: the highlighter's ranges, then the bracket matched.
// False, out untouched, when memory ran out.
bool highlight_styles(const wchar_t *text, int len, int cursor, uint32_t *out);

} // namespace qv
#endif

#endif
