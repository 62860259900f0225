/* Options a host sets with term_setOption(). Each session has its own; the
   default session's exist before term_init(), and a new session starts
   with theirs. Library-internal. */
#ifndef QUORVEL_OPTIONS_H
#define QUORVEL_OPTIONS_H

#ifdef __cplusplus
namespace qv {

// The value of a TERM_OPTION_*; 0 for an unknown one.
int option(int id);
// Sets it; answers the previous value, or -1 for an unknown option.
int set_option(int id, int value);

struct OptionsState;
// A session's options, copied from the default session's; null when memory ran out.
OptionsState *options_new();
void options_free(OptionsState *o);

} // namespace qv
#endif

#endif
