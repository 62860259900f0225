/* Options a host sets with term_setOption(). They belong to the process, not
   to the terminal instance, so a host may set them before term_init().
   Library-internal. */
#ifndef QUORVEL_OPTIONS_H
#define QUORVEL_OPTIONS_H

#ifdef __cplusplus
namespace qv {

// The value of a TERM_OPTION_*; 0 for an unknown one.
int option(int id);
// Sets it; answers the previous value, or -1 for an unknown option.
int set_option(int id, int value);

} // namespace qv
#endif

#endif
