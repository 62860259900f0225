/* The history list of the readline-compatible library and its files.
   Library-internal. */
#ifndef QUORVEL_RLHISTORY_H
#define QUORVEL_RLHISTORY_H

#ifdef __cplusplus
namespace qv {

// Hands the list to the editor, whose instance exists from now on: every
// entry and the limit go to it, and later changes follow as they happen.
void rl_history_attach();

} // namespace qv
#endif

#endif
