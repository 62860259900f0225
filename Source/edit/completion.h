/* Tab completion through the host's completer (term_setCompleter). */
#ifndef QUORVEL_COMPLETION_H
#define QUORVEL_COMPLETION_H

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* Tab: asks the completer, puts in one candidate or what several share; a
   second Tab in a row lists them. Does nothing without a completer, without
   candidates, and in a masked read. */
QV_API void action_complete(struct console *c, int key);
/* Every candidate in place of the word; the list, at once. */
void action_insert_completions(struct console *c, int key);
void action_possible_completions(struct console *c, int key);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
struct CompletionState;
CompletionState *completion_new();
void completion_free(CompletionState *st);
/* "Display all N possibilities?" waits for its answer: the next key. */
bool completion_asking(const struct console *c);
void completion_answer(struct console *c, int key);
/* The read ends: no list waits for a second Tab, no question for a key. */
void completion_end(struct console *c);
/* Text below the input, rows ended by line feeds, the input drawn again
   under it, as a listing is. */
void show_below(struct console *c, const wchar_t *text, int n);
/* Tab's work, for this key only, with fn in the host's completer's place. */
void complete_with(struct console *c, term_completer fn, void *user, int key);
} // namespace qv
#endif
#endif

#endif
