/* The editing keys beyond the basic ones: words, kill and yank, transpose,
   undo, clear screen, quoted insert; and history hints. */
#ifndef QUORVEL_EDITKEYS_H
#define QUORVEL_EDITKEYS_H

#include <wchar.h>

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
QV_API void action_clear_screen(struct console *c, int key);
/* The next key goes into the text as it is. */
QV_API void action_quoted_insert(struct console *c, int key);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {

constexpr int kKillRingSize = 16;

/* Puts killed text into the ring: before the newest entry when it was
   killed backward and the key before was a kill too, after it when killed
   forward; a new entry otherwise. Nothing from a masked read. */
void kill_ring_add(struct console *c, const wchar_t *text, int n, bool before);
void kill_ring_free(struct console *c);

/* The undo log, fed by the edit buffer's changes. */
void undo_note_insert(struct console *c, int pos, int n);
void undo_note_delete(struct console *c, int pos, const wchar_t *text, int n);
/* A key starts a new step, unless it types on after typed characters. */
void undo_boundary(struct console *c, bool typing);
/* The line as it is now is where undo stops. */
void undo_reset(struct console *c);
/* Changes made meanwhile are not steps of their own (a search's display). */
void undo_suspend(struct console *c, bool on);
void undo_free(struct console *c);

/* The hint: the rest of the newest history entry the text is a prefix of,
   drawn dim after the cursor at the end of the input. Computed after every
   key when the option is on and the terminal has dim. */
void hint_update(struct console *c);
/* Hints are on, and this read and terminal can show them. */
bool hints_enabled(const struct console *c);
/* Takes the hint (or its next word) into the text; false when there is
   none to take (the cursor is not at the end, or no hint). */
bool hint_accept(struct console *c, bool word);
/* No hint any more: at the end of a read. */
void hint_clear(struct console *c);

} // namespace qv
#endif
#endif

#endif
