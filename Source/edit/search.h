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
/* As readline's non-incremental searches: Return takes the match to edit. */
void action_noninc_search_backward(struct console *c, int key);
void action_noninc_search_forward(struct console *c, int key);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
#include "keymap.h"

namespace qv {
struct SearchState;
SearchState *search_new();
void search_free(SearchState *s);
/* A search takes the keys. */
bool search_active(const struct console *c);
/* The key with its action, during a search: true when the search used it,
   false when the action is to run as usual (the search has ended then). */
bool search_key(struct console *c, action_fn action, int key);
/* Ends a search that a read left running, without drawing anything. */
void search_reset(struct console *c);
/* Ends a running search with its match as the line, the read going on. */
void search_take(struct console *c);
/* The query of the last search that was taken, again, from the entry it
   took, older (direction < 0) or newer; the entry found becomes the line.
   False when there is no such query or no further match. */
bool search_again(struct console *c, int direction);
} // namespace qv
#endif
#endif

#endif
