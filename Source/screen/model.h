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

} // namespace qv
#endif

#endif
