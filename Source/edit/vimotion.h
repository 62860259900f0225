/* vi's motions over a line of text: where each one lands, from a position,
   as functions of the text alone. Library-internal. */
#ifndef QUORVEL_VIMOTION_H
#define QUORVEL_VIMOTION_H

#include <wchar.h>

#ifdef __cplusplus
namespace qv {

/* The text a motion moves over: one line of the input (after the last line
   feed before the cursor, up to the next one). */
struct ViLine {
    const wchar_t *text; // the whole input
    int start, end;      // the line's first offset and the offset past its last
};

/* The cursor's steps: the start of the next cluster (end at most), and of
   the one before (start at least). */
int vi_next(const ViLine &l, int pos);
int vi_prev(const ViLine &l, int pos);
/* The last cluster of the word (or run of other non-blanks, or W's run)
   that pos is in. */
int vi_word_end_at(const ViLine &l, int pos, bool big);
/* w and W: the start of the next word (W: of the next run of non-blanks);
   end when there is none. */
int vi_next_word(const ViLine &l, int pos, bool big);
/* e and E: the last character of this or the next word, at least one on. */
int vi_word_end(const ViLine &l, int pos, bool big);
/* b and B: the start of this or the previous word, at least one back. */
int vi_word_start(const ViLine &l, int pos, bool big);
/* ^: the first character that is not a blank (end when all are). */
int vi_first_nonblank(const ViLine &l);
/* f F t T: the offset they land on for ch, or -1 when ch is not there.
   again: a repeat with ; or , so that t and T look past a ch next to them. */
int vi_find(const ViLine &l, int pos, int kind, wchar_t ch, bool again);

} // namespace qv
#endif

#endif
