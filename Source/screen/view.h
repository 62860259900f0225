/* The view: the state (prompt, text, cursor, hint) laid out into the model's
   rows of cells, and the cursor's cell. It writes only the model; drawing is
   the painter's. Library-internal. */
#ifndef QUORVEL_VIEW_H
#define QUORVEL_VIEW_H

#include "layout.h"

#ifdef __cplusplus
struct console;

namespace qv {

struct ViewState;
ViewState *view_new();
void view_free(ViewState *v);

/* The prompt, the text and the hint as the layout takes them, for rows of
   cols cells; the pointers are good until the state next changes. */
LayoutText layout_text(const struct console *c, int cols);
/* Lays the state out again from the first row a change can have reached,
   and puts the model's next cursor where the text's cursor is. */
void view_update(struct console *c);
/* The next layout starts from nothing, at the first row. */
void view_reset(struct console *c);
/* The input area now ends above row y. */
void view_truncate(struct console *c, int y);
/* The model again from nothing at the current width; every row drawn whole
   at the next paint, blank rows down to at least `rows` included. */
void view_rebuild(struct console *c, int rows);
/* Rows laid out since the console began: a key's cost, counted. */
unsigned long view_rows_laid_out(const struct console *c);
/* The input is being left: what only the cursor's place justified (the
   partner of a bracket) is drawn no more, until the next input. entered:
   the read ends with it, and the host's transient prompt, if any, takes the
   read's prompt's place. */
void view_finish(struct console *c, bool entered = false);
/* The right prompt (UTF-8, may hold SGR; NULL or empty: none), and whether
   a finished input keeps it. Copied; false when memory ran out. */
bool view_set_right(struct console *c, const char *prompt, bool keep);
/* The prompt a finished input shows (UTF-8, may hold SGR; NULL: none).
   Copied; false when memory ran out or there is no instance. */
bool view_set_transient(struct console *c, const char *prompt);
/* The rows of the input itself, the rows shown below it left out. */
int view_input_rows(const struct console *c);

} // namespace qv
#endif

#endif
