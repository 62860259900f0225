/* The editing keys beyond the basic ones: words, kill and yank, transpose,
   undo, clear screen, quoted insert. Ctrl-K's action, declared with the
   console's, is defined here with the other kills. */
#ifndef QUORVEL_EDITKEYS_H
#define QUORVEL_EDITKEYS_H

#include <wchar.h>

#include "keymap.h"
#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* A word is a run of letters and digits, in any script. */
QV_API void action_backward_word(struct console *c, int key);
QV_API void action_forward_word(struct console *c, int key);
/* Kills go to the kill ring; kills in a row make one entry. */
QV_API void action_unix_word_rubout(struct console *c, int key);  /* back to whitespace */
QV_API void action_backward_kill_word(struct console *c, int key);
QV_API void action_kill_word(struct console *c, int key);
QV_API void action_kill_line_start(struct console *c, int key);   /* of the current line */
QV_API void action_yank(struct console *c, int key);
/* Right after a yank: the yanked text gives way to the kill before it. */
QV_API void action_yank_pop(struct console *c, int key);
QV_API void action_transpose(struct console *c, int key);
/* Takes back the last change; typed characters in a row are one change.
   Back to the line as the read began, or as a history entry came back. */
QV_API void action_undo(struct console *c, int key);
/* Puts back what undo took, unless the line was edited since. */
QV_API void action_redo(struct console *c, int key);
QV_API void action_clear_screen(struct console *c, int key);
/* The next key goes into the text as it is. */
QV_API void action_quoted_insert(struct console *c, int key);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
/* A quoted key waiting (Ctrl-V): the next key goes into the text. */
struct EditKeysState;
EditKeysState *editkeys_new();
void editkeys_free(EditKeysState *k);
bool quoted_active(const struct console *c);
void quoted_key(struct console *c, int key);
/* The read ends: no key is waited for. */
void editkeys_reset(struct console *c);
/* The keys that kill, whose kills in a row make one entry. */
bool is_kill(action_fn a);
/* The start of the word before offset o, the end of the word after it. */
int word_before(const struct console *c, int o);
int word_after(const struct console *c, int o);
} // namespace qv
#endif
#endif

#endif
