/* The terminal instance behind the term_* calls. */
#ifndef QUORVEL_TERMINAL_H
#define QUORVEL_TERMINAL_H

#include "console.h"
#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads one line into the console and answers it encoded (or NULL). */
char *do_readLine(console *c, const char *prompt);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
/* The engine's record of a session other than the default one. */
struct EngineTop;
EngineTop *engine_top_new();
void engine_top_free(EngineTop *e);
/* The calling thread's session gets its instance (true when it has one),
   or gives it up: an edit under way ends, the history goes to its file. */
bool instance_open();
void instance_close();
/* A line read is under way in the session, on some thread. */
bool instance_reading();
} // namespace qv
#endif
#endif

#endif
