// Planted on purpose: a bottom-layer file that includes and calls the
// engine. The layering check must report both arrows; this file is never
// linked into the library.
#include "engine.h"
#include "quorvel.h"

extern "C" char *qv_planted_upward_call(void) { return term_getLine(0, "planted> "); }
