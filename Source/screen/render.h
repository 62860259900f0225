/* Render: what the input loop draws. Library-internal. */
#ifndef QUORVEL_RENDER_H
#define QUORVEL_RENDER_H

#include <stddef.h>

#ifdef __cplusplus
struct console;

namespace qv {

enum RenderFlags : int {
    // Move the cursor before drawing, as a deletion does, so that the runs
    // are drawn from the cursor's new column.
    kCursorFirst = 1,
};

/* Lays the state out again where it changed and paints the difference;
   compact for the paint that ends a burst of keys. shape is the cursor's
   (cursor_shape's numbers; 0: the terminal's own), chosen by the mode the
   keys are in. */
void render(struct console *c, int flags, bool compact, int shape);
/* Empties the model for a new input on the cursor's row. True when the
   caller's next render draws it; false when it was drawn already. */
bool render_start_input(struct console *c);
/* The terminal has gone to column 0 of the row below the cursor, which
   starts a new line of the input: that row is drawn whole at the next render. */
void render_after_newline(struct console *c);
/* Rows from the cursor's row down are drawn whole at the next render. */
void render_redraw_below(struct console *c);
/* Draws the whole input area again, from column 0 of the cursor's row. */
void render_redraw_all(struct console *c);
/* The window changed size: the input area is laid out and drawn again. */
void render_resize(struct console *c);
/* Text from other threads (whole lines, UTF-8) written where the input area
   starts, and the input drawn again below it. */
void render_above(struct console *c, const char *text, size_t n);

} // namespace qv
#endif

#endif
