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

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
/* Forgets the completer and any list waiting for a second Tab. */
void completion_reset();
} // namespace qv
#endif
#endif

#endif
