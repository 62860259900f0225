/* The difference painter. The exported repaint() and the row calls are
   declared in screen.h. Library-internal. */
#ifndef QUORVEL_PAINTER_H
#define QUORVEL_PAINTER_H

#include "screen.h"

#ifdef __cplusplus
namespace qv {
/* Writes the cells of the touched rows that differ from what the terminal
   shows, then moves the cursor to the model's next cursor, and flushes.
   A paint of one key returns to the cursor's column after every run; a
   compact paint (a burst of keys) leaves the cursor where each run ended and
   lets full rows flow into the next on a terminal with automatic margins. */
void paint(struct console *c, bool compact);
} // namespace qv
#endif

#endif
