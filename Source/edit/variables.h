/* readline's variables, as a bindings file sets them ("set name value"):
   each one readline knows is accepted; those with a meaning here take
   effect, the others are kept to be read back. Library-internal. */
#ifndef QUORVEL_VARIABLES_H
#define QUORVEL_VARIABLES_H

#include <stddef.h>

#ifdef __cplusplus
struct console;

namespace qv {

struct VariableState;
VariableState *variables_new();
void variables_free(VariableState *v);

/* Sets a variable (editing-mode sets the option of vi mode too); answers
   why it cannot be, or NULL. */
const char *set_variable(struct console *c, const char *name, const char *value);
/* The value as set or by default, or NULL for a name readline does not
   know. Good until the next set. */
const char *variable_value(const struct console *c, const char *name);
/* The names, NULL-terminated, in alphabetical order. */
const char *const *variable_names();
/* Whether a variable that is on or off is on. */
bool variable_on(const struct console *c, const char *name);
/* On, and set so (by a bindings file or a call), not on by readline's
   default alone: for what readline does by default that a host of this
   library has never seen, and gets only when asked (page-completions). */
bool variable_set_on(const struct console *c, const char *name);
/* A number variable's value, or fallback. */
int variable_number(const struct console *c, const char *name, int fallback);
/* The bindings file read last, for re-read-init-file; NULL before any. */
void remember_bindings_file(struct console *c, const char *path);
const char *bindings_file(const struct console *c);

} // namespace qv
#endif

#endif
