/* What the parts of the readline-compatible library share: the editor's
   instance, the line as the program's variables show it, and the key
   settings completion depends on. Library-internal. */
#ifndef QUORVEL_RLCOMPAT_H
#define QUORVEL_RLCOMPAT_H

#ifdef __cplusplus
#include "quorvel.h"
#include "quorvel/readline.h"

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
// Hands the editor what the program changed in rl_line_buffer, rl_point
// and rl_end since they were published.
void rl_take_program_changes();
// rl_prompt set to a copy of prompt.
void rl_set_prompt_variable(const char *prompt);
// The prompt without the bytes marked as taking no room: malloc'ed.
char *rl_visible_prompt(const char *prompt);
// The program's own function bound to a key byte in the current keymap
// (one the editor does not do itself), or NULL.
rl_command_func_t *rl_program_binding(unsigned char key);
// Whether any key byte has such a binding.
bool rl_has_program_bindings();
// Follows the bytes of the input to tell where a key byte stands alone:
// not inside an escape sequence, and not inside a bracketed paste.
class KeyBytes {
  public:
    // Takes the next byte; true when it is a key of its own.
    bool alone(unsigned char byte);

  private:
    enum State { kText, kEscape, kSequence } state_ = kText;
    char params_[8] = {};
    int nparams_ = 0;
    bool paste_ = false;
};

// rl_newline was called: a line a bound function completes ends as Return
// ends it, the cursor on the row below.
void rl_ask_newline();

// Whether Tab completes (it may be bound to insert itself instead).
bool rl_tab_completes();
void rl_set_tab_completes(bool on);

} // namespace qv
#endif

#endif
