/* Incremental history search (Ctrl-R backward, Ctrl-S forward). */
#ifndef QUORVEL_SEARCH_H
#define QUORVEL_SEARCH_H

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* Starts a search through the history, older or newer entries first. Typing
   narrows it, Backspace widens it, Ctrl-R and Ctrl-S find the next match,
   Return takes the match and ends the read, Ctrl-G gives back the line from
   before, and any other key takes the match and then acts on it. Does
   nothing in a masked read. */
QV_API void action_search_backward(struct console *c, int key);
QV_API void action_search_forward(struct console *c, int key);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
/* Ends a search that a read left running, without drawing anything. */
void search_reset(struct console *c);
} // namespace qv
#endif
#endif

#endif
