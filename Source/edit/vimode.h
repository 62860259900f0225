/* vi mode: its two key maps, insert and command mode, and the commands of
   command mode, which change state only, as every action does.
   Library-internal. */
#ifndef QUORVEL_VIMODE_H
#define QUORVEL_VIMODE_H

#include "keymap.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* Escape: insert mode ends (the cursor steps back onto the last character
   typed); in command mode a command half typed is dropped. */
void action_vi_movement_mode(struct console *c, int key);
/* Insert mode again, at the cursor. */
void action_vi_insertion_mode(struct console *c, int key);
/* Switch the editing mode, as TERM_OPTION_VI_MODE does. */
void action_vi_editing_mode(struct console *c, int key);
void action_emacs_editing_mode(struct console *c, int key);

#ifdef __cplusplus
}

namespace qv {

struct ViState;
ViState *vi_new();
void vi_free(ViState *v);

/* The map keys are read with now: vi's insert or command map in vi mode,
   else the console's own. */
const keymap_entry *vi_keymap(struct console *c);
/* vi's insert or command map, built on first use; NULL when memory ran
   out. */
keymap_entry *vi_map(struct console *c, bool command);
/* A read begins in insert mode, or has ended: nothing half typed stays. */
void vi_begin(struct console *c);
void vi_end(struct console *c);
/* Command mode's turn at a key: true when it was a command (a character,
   or Backspace), false when the key's action is to run as usual. */
bool vi_key(struct console *c, action_fn action, int key);
/* Return during a search that / or ? started: the match is taken and the
   read goes on. True when so. */
bool vi_search_return(struct console *c, action_fn action);
/* In command mode, where characters typed are commands, not typing. */
bool vi_commanding(const struct console *c);
/* The key belongs to the change under way, for undo: a command half typed,
   or insert mode. */
bool vi_joins_step(const struct console *c);
/* Each key as it comes, for . to repeat the text of an insert. */
void vi_observe(struct console *c, action_fn action, int key);
/* The cursor shape that shows the mode (see qv::cursor_shape); 0 outside
   vi mode. */
int vi_cursor_shape(const struct console *c);

} // namespace qv
#endif

#endif
