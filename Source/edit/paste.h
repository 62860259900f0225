/* Bracketed paste: text the terminal marks as pasted is inserted as it is,
   never run. */
#ifndef QUORVEL_PASTE_H
#define QUORVEL_PASTE_H

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* The terminal's paste-start and paste-end sequences. Between them every
   character is inserted literally, a line break (Return, Ctrl-J) as a kept
   line break of the input; other control keys and sequences are dropped. */
QV_API void action_paste_begin(struct console *c, int key);
QV_API void action_paste_end(struct console *c, int key);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
#include "keymap.h"

namespace qv {
struct PasteState;
PasteState *paste_new();
void paste_free(PasteState *p);
/* Between the paste markers: every key is text or nothing. */
bool paste_active(const struct console *c);
void paste_key(struct console *c, action_fn action, int key);
/* A read that ends mid-paste ends the paste. */
void paste_reset(struct console *c);
} // namespace qv
#endif
#endif

#endif
