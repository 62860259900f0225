/* The rows of the input area as the painter keeps them: which were touched
   since the last paint. The rows themselves and the exported calls over them
   are declared in screen.h. Library-internal. */
#ifndef QUORVEL_MODEL_H
#define QUORVEL_MODEL_H

#include "screen.h"

#ifdef __cplusplus
namespace qv {

struct ModelState;
ModelState *model_new();
void model_free(ModelState *m);

/* Row y may differ from what the terminal shows. */
void model_touch(struct console *c, int y);
/* The rows touched since the last call, clipped to the model; false when
   there are none. Counts them as compared. */
bool model_take_touched(struct console *c, int *first, int *last);
/* Rows the paints compared since the console began: a key's cost, counted. */
unsigned long model_rows_compared(const struct console *c);
/* Shown row y is known to be blank on the terminal: only what differs from
   blank is drawn there. */
void model_row_shown_blank(struct console *c, int y);
/* Shown row y is drawn whole at the next paint. */
void model_invalidate_row(struct console *c, int y);
/* Rows from `from` on leave the model (both copies). */
void model_release_rows(struct console *c, int from);

/* The window onto a tall input area. A line feed at the window's last row
   scrolls it, so once the terminal's cursor has been on row `reach` of the
   area, the rows above reach - (window rows - 1) are in the scrollback,
   wherever the area began, and no motion reaches them again. */
/* The terminal's cursor has been on row y. */
void model_reached(struct console *c, int y);
/* The area begins again on the cursor's row (a redraw from its start). */
void model_anchor(struct console *c);
/* The first row of the area the window still shows. */
int model_window_top(const struct console *c);
/* Makes row y reachable: when it scrolled out of the window, the window is
   cleared and holds the area again from a row chosen to show y, with its
   rows touched for the next paint. True when that happened. */
bool model_show_row(struct console *c, int y);
/* model_take_touched for a paint that leaves the cursor on row `target`:
   with the rows a line feed brings into the window blank, and without the
   rows it cannot show with the target's row. */
bool model_take_window_rows(struct console *c, int target, int *first, int *last);

} // namespace qv
#endif

#endif
