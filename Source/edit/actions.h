/* The editing and history actions. They change state only: called outside
   a read they draw nothing, and the next read shows their result. */
#ifndef QUORVEL_ACTIONS_H
#define QUORVEL_ACTIONS_H

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* Actions: called with the console and the first byte of the key. */
QV_API void action_insert_char(struct console *c, int key);
QV_API void action_key_insert(struct console *c, int key);
QV_API void action_key_backspace(struct console *c, int key);
QV_API void action_key_delete(struct console *c, int key);
QV_API void action_delete_or_quit(struct console *c, int key);
QV_API void action_end_of_input(struct console *c, int key);
QV_API void action_kill_to_end_of_line(struct console *c, int key);
QV_API void action_key_tab(struct console *c, int key);
QV_API void action_key_left(struct console *c, int key);
QV_API void action_key_right(struct console *c, int key);
QV_API void action_key_home(struct console *c, int key);
QV_API void action_key_end(struct console *c, int key);
QV_API void action_key_up(struct console *c, int key);
QV_API void action_key_down(struct console *c, int key);
QV_API void action_abandon_input(struct console *c, int key);
QV_API void action_abandon_input_ctrl_c(struct console *c, int key);
QV_API void action_suspend_process(struct console *c, int key);
QV_API void action_key_return(struct console *c, int key);

/* History navigation. */
QV_API void history_lookup(struct console *c, int direction);
QV_API void action_history_earliest(struct console *c, int key);
QV_API void action_history_latest(struct console *c, int key);

/* Ctrl-C with the sigint option: the read ends as interrupted. */
QV_API void signal_interrupt(struct console *c);

#ifdef __cplusplus
}
#ifdef QUORVEL_INTERNAL
namespace qv {
/* A character put in as typed, without bracket insertion (a paste's). */
void insert_plain(struct console *c, int key);
} // namespace qv
#endif
#endif

#endif
