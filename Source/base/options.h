/* Options a host sets with term_setOption(). Each session has its own; the
   default session's exist before term_init(), and a new session starts
   with theirs. Library-internal. */
#ifndef QUORVEL_OPTIONS_H
#define QUORVEL_OPTIONS_H

#ifdef __cplusplus
#include <cwchar>

namespace qv {

// The value of a TERM_OPTION_*; 0 for an unknown one.
int option(int id);
// Sets it; answers the previous value, or -1 for an unknown option.
int set_option(int id, int value);

// Bracket insertion's pairs: at most kMaxPairs, an opening and a closing
// character each (a quote is both). pair_of answers whether ch is either
// half of one, and which pair.
constexpr int kMaxPairs = 8;
bool pair_of(wchar_t ch, wchar_t *open, wchar_t *close);
// n characters, taken two by two; the rest of the table emptied.
void set_pairs(const wchar_t *chars, int n);

struct OptionsState;
// A session's options, copied from the default session's; null when memory ran out.
OptionsState *options_new();
void options_free(OptionsState *o);

} // namespace qv
#endif

#endif
