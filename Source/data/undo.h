/* The undo log. Library-internal. */
#ifndef QUORVEL_UNDO_H
#define QUORVEL_UNDO_H

#ifdef __cplusplus
struct console;

namespace qv {

struct UndoLog;
UndoLog *undo_new();
void undo_free(UndoLog *u);
/* Starts listening to the console's edit buffer. */
void undo_attach(struct console *c);
/* A key starts a new step, unless it types on after typed characters. */
void undo_boundary(struct console *c, bool typing);
/* The line as it is now is where undo stops. */
void undo_reset(struct console *c);
/* Plays the last step backwards, the cursor where it began. */
void undo_step(struct console *c);
/* Plays forward the step undo took back last, unless an edit came since. */
void redo_step(struct console *c);
/* Whether a step is there to take back. */
bool undo_pending(const struct console *c);
/* Changes made meanwhile are not steps of their own (a search's display). */
void undo_suspend(struct console *c, bool on);

} // namespace qv
#endif

#endif
