/* readline's commands beyond the basic editing keys, by readline's names:
   history searches and the words of earlier lines, word case, the region,
   character search, comments. Like every action they change state only. */
#ifndef QUORVEL_COMMANDS_H
#define QUORVEL_COMMANDS_H

#include "keymap.h"
#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* History: entries that start with (or hold) the text before the cursor. */
void action_history_search_backward(struct console *c, int key);
void action_history_search_forward(struct console *c, int key);
void action_history_substring_search_backward(struct console *c, int key);
void action_history_substring_search_forward(struct console *c, int key);
/* The last word (with an argument, that word) of the line before; again,
   of the line before that. */
void action_yank_last_arg(struct console *c, int key);
/* The first argument (with an argument, that word) of the line before. */
void action_yank_nth_arg(struct console *c, int key);
/* Return, and the next read starts with the entry after the one returned. */
void action_operate_and_get_next(struct console *c, int key);
void action_revert_line(struct console *c, int key);
/* Back to the line being typed, the walk at its end. */
void action_end_of_history(struct console *c, int key);

/* Words and case. */
void action_upcase_word(struct console *c, int key);
void action_downcase_word(struct console *c, int key);
void action_capitalize_word(struct console *c, int key);
void action_transpose_words(struct console *c, int key);
void action_delete_horizontal_space(struct console *c, int key);
void action_backward_kill_line(struct console *c, int key);
void action_kill_whole_line(struct console *c, int key);

/* The region between the cursor and the mark. */
void action_set_mark(struct console *c, int key);
void action_exchange_point_and_mark(struct console *c, int key);
void action_kill_region(struct console *c, int key);
void action_copy_region_as_kill(struct console *c, int key);
void action_copy_backward_word(struct console *c, int key);
void action_copy_forward_word(struct console *c, int key);

/* The next key typed is a character to move to. */
void action_character_search(struct console *c, int key);
void action_character_search_backward(struct console *c, int key);

/* The line commented out (comment-begin, "#" by default) and returned. */
void action_insert_comment(struct console *c, int key);
void action_tab_insert(struct console *c, int key);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
struct CommandState;
CommandState *commands_new();
void commands_free(CommandState *s);
/* A read begins: the entry operate-and-get-next left for it, if any. */
void commands_begin(struct console *c);
/* A character search waits for its character. */
bool char_search_active(const struct console *c);
void char_search_key(struct console *c, int key);
/* The commands that read a numeric argument themselves. */
bool reads_argument(action_fn a);
/* The commands whose kills in a row make one entry with the others. */
bool is_region_kill(action_fn a);
} // namespace qv
#endif
#endif

#endif
