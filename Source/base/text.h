/* UTF-8 conversions between the host's byte strings and the editor's wide
   characters, whatever the host's locale. */
#ifndef QUORVEL_TEXT_H
#define QUORVEL_TEXT_H

#include <stddef.h>
#include <wchar.h>

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* New malloc'ed strings; NULL for empty or invalid input and when memory
   runs out. */
QV_API wchar_t *cp2wchar(struct console *c, const char *s, int *count);
QV_API char *wchar2cp(struct console *c, const wchar_t *s, int count);
/* Platform hooks: the encoding is always UTF-8 here, and no existence test
   is wanted by the library. */
QV_API void get_os_encoding(struct console *c);
QV_API int file_exists(const char *path);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
/* The cells the C library gives the character under UTF-8, whatever the
   host's locale: 2 for East Asian wide characters and most emoji, 0 for
   combining marks, -1 for what is not printable (control characters). */
int display_width_slow(wchar_t ch);
/* wchar_t is signed on x86 and unsigned on ARM: compared as unsigned. Every
   character of every row passes here, so printable ASCII never leaves the
   caller. */
inline int display_width(wchar_t ch) {
    const auto u = static_cast<unsigned>(ch);
    return u >= 32 && u < 127 ? 1 : display_width_slow(ch);
}
/* How the library shows a control character: C0 and DEL in caret notation
   (^[, ^?), a C1 control as \x9b, so that no text it did not compose itself
   can steer the terminal. Answers the cells that takes, with the characters
   in out, or 0 for a character that is not a control character. */
int control_form_slow(wchar_t ch, wchar_t out[4]);
inline int control_form(wchar_t ch, wchar_t out[4]) {
    const auto u = static_cast<unsigned>(ch);
    return (u >= 32 && u < 127) || u >= 0xA0 ? 0 : control_form_slow(ch, out);
}
/* Whether byte b may stand at position index (0: the first after the lead)
   of the UTF-8 sequence that lead starts. The first one's range excludes
   overlong forms, surrogates and code points above U+10FFFF. */
inline bool utf8_follows(unsigned lead, int index, unsigned b) {
    unsigned lo = 0x80, hi = 0xBF;
    if (index == 0 && lead == 0xE0) lo = 0xA0;
    if (index == 0 && lead == 0xED) hi = 0x9F;
    if (index == 0 && lead == 0xF0) lo = 0x90;
    if (index == 0 && lead == 0xF4) hi = 0x8F;
    return b >= lo && b <= hi;
}
/* UTF-8 text as characters to show, a byte that is not part of a valid
   sequence as the four characters \xNN: a new malloc'ed string of *n
   characters, or NULL when memory ran out. */
wchar_t *visible_of(const char *s, int *n);
/* A letter or digit in any script (iswalnum under UTF-8): what words are
   made of. */
bool is_word_char(wchar_t ch);
/* The character in the other case, under UTF-8 (itself when it has none). */
wchar_t other_case(wchar_t ch);
/* Extended grapheme clusters (Unicode's UAX #29): whether a cluster ends
   between prev and ch. state carries what the rules need to know of the
   cluster so far (regional indicators paired, an emoji before a joiner);
   it starts at 0 with each cluster's first character. ASCII pairs never
   reach the tables. */
bool cluster_break_slow(wchar_t prev, wchar_t ch, int *state);
inline bool cluster_break(wchar_t prev, wchar_t ch, int *state) {
    const auto p = static_cast<unsigned>(prev), c = static_cast<unsigned>(ch);
    if (p >= 32 && p < 127 && c >= 32 && c < 127) {
        *state = 0;
        return true;
    }
    return cluster_break_slow(prev, ch, state);
}
/* The end of the cluster that starts at s[o], within [o, end). A control
   character is a cluster of its own, as the library shows it in caret
   notation. */
int cluster_end(const wchar_t *s, int o, int end);
/* The start of the cluster that holds s[o - 1], for o > 0. */
int cluster_start(const wchar_t *s, int o);
/* Whether terminals disagree on the cells of the cluster s[0..n): emoji
   joined by a zero-width joiner, an emoji with a skin tone, a character
   with a variation selector. Those are drawn with the cells of their first
   character, and the cursor is placed again after them. */
bool cluster_unsure(const wchar_t *s, int n);
/* Whether ch is a regional indicator: two make one flag, two cells wide. */
inline bool regional_indicator(wchar_t ch) {
    const auto u = static_cast<unsigned>(ch);
    return u >= 0x1F1E6 && u <= 0x1F1FF;
}
/* count characters as UTF-8; never NULL but when memory runs out. */
char *utf8_of(const wchar_t *s, int count);
/* n bytes of well-formed UTF-8 with no NUL, as the C library decodes it. */
bool utf8_valid(const char *s, size_t n);
/* n bytes of well-formed UTF-8 as wide characters, 0-terminated, their
   number in *count; NULL when they are not, or memory ran out. */
wchar_t *utf8_decode(const char *s, size_t n, int *count);
} // namespace qv
#endif
#endif

#endif
