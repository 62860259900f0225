/* Numeric arguments and macros: readline's digit-argument and
   universal-argument, its keyboard macros (Ctrl-x ( Ctrl-x ) Ctrl-x e), and
   the string macros a bindings file binds ("\C-xq": "quit()"). */
#ifndef QUORVEL_REPEAT_H
#define QUORVEL_REPEAT_H

#include <stddef.h>

#include "keymap.h"
#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

QV_API void action_digit_argument(struct console *c, int key);
QV_API void action_universal_argument(struct console *c, int key);
QV_API void action_start_kbd_macro(struct console *c, int key);
QV_API void action_end_kbd_macro(struct console *c, int key);
QV_API void action_call_last_kbd_macro(struct console *c, int key);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
struct RepeatState;
RepeatState *repeat_new();
void repeat_free(RepeatState *r);
/* A new read: no argument pending, no macro being defined. */
void repeat_reset(struct console *c);

/* The command a key runs, and how often: with an argument pending, the
   command itself that many times, or its opposite (backward for forward)
   for a negative one; a command that reads the argument itself
   (reads_itself) runs once. The argument is used up, except by the argument
   keys. */
action_fn argument_apply(struct console *c, action_fn action, bool reads_itself, int *count);
/* The argument the command being run was given: 1 without one; given says
   whether one was typed. For the commands that read it themselves. */
int argument_value(const struct console *c, bool *given);

/* A keyboard macro being defined takes every key byte read. */
void macro_byte(struct console *c, unsigned char byte);
/* A key has been handled: the macro's bytes so far are whole keys. */
void macro_key_done(struct console *c);

/* The action that types a string macro's bytes (readline's escapes already
   read), or NULL when the console holds as many macros as it can. */
action_fn macro_action(struct console *c, const char *bytes, size_t n);
/* The text a string macro's action types, or NULL for an action that is
   no string macro. */
const char *macro_text(const struct console *c, action_fn action, size_t *n);
} // namespace qv
#endif
#endif

#endif
