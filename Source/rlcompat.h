/* What the parts of the readline-compatible library share: the editor's
   instance, the line as the program's variables show it, and the key
   settings completion depends on. Library-internal. */
#ifndef QUORVEL_RLCOMPAT_H
#define QUORVEL_RLCOMPAT_H

#ifdef __cplusplus
#include "quorvel.h"

namespace qv {

// Starts the editor's instance once, with the program's completion and
// history; false when it cannot start.
bool rl_start_editor();
// The completer handed to the editor.
void rl_complete_line(const char *text, int cursor, term_completions *out, void *user);
// rl_line_buffer, rl_point and rl_end from the line being edited (or the
// text given), before the program's code looks at them.
void rl_publish_line(const char *text, int cursor);
void rl_publish_edit();
// Whether Tab completes (it may be bound to insert itself instead).
bool rl_tab_completes();
void rl_set_tab_completes(bool on);

} // namespace qv
#endif

#endif
