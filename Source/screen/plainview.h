/* The painter for terminals that cannot move the cursor up or address a
   column (TERM unset, unknown or "dumb"): the line under the cursor is shown
   on one row, scrolled sideways when it is wider than the terminal, and
   edited with backspaces and plain characters only. Library-internal. */
#ifndef QUORVEL_PLAINVIEW_H
#define QUORVEL_PLAINVIEW_H

#ifdef __cplusplus
struct console;

namespace qv {

struct PlainState;
// on: the terminal cannot paint several rows, and this view is the one used.
PlainState *plain_new(bool on);
void plain_free(PlainState *p);
bool plain_active(const struct console *c);

// The terminal cursor is at column 0 of an empty row.
void plain_start(struct console *c);
// Shows the edit buffer's line under the cursor, writing only what changed.
void plain_refresh(struct console *c);

} // namespace qv
#endif

#endif
