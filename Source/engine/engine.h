/* The edit engine: what a read does with each key once it is decoded. A
   mode (a search, a paste, a question, a quoted key) gets its turn first,
   then the key's action; then the frame's requests are carried out, and the
   state is rendered once for the key, or once for a burst of keys that were
   all waiting. Where the bytes come from is the input module's business.
   Library-internal. */
#ifndef QUORVEL_ENGINE_H
#define QUORVEL_ENGINE_H

#include "keydecode.h"
#include "keymap.h"

#ifdef __cplusplus
namespace qv {

struct EngineState;
EngineState *engine_new();
void engine_free(EngineState *e);

/* A read begins: the history walked afresh, the modes of an earlier read
   gone, the input area started under the prompt. */
void engine_begin(struct console *c);
/* The decoder of the read's keys. */
KeyDecoder &engine_keys(struct console *c);
/* The key map the read's keys are decoded with now. */
const keymap_entry *engine_keymap(struct console *c);
/* One key; more: further keys are already waiting; last: the key's last
   byte (the digit of Alt-3), -1 when there is none. */
void engine_key(struct console *c, action_fn action, int key, bool more, int last = -1);
/* Key bytes the keys handled typed (a macro), taken for the input to read
   before anything else; answers how many. */
size_t engine_take_typed(struct console *c, char *out, size_t size);
/* The read is over: its status says why. */
bool engine_over(const struct console *c);
/* Draws what a burst held back, if anything, unless a paste still arriving
   was drawn too recently. */
void engine_flush(struct console *c);
/* Milliseconds until a paint held back for a paste is due, or -1 for none:
   the longest a host's loop may wait before feeding again. */
int engine_paint_due(const struct console *c);
/* The read has ended: what it shows is drawn, and its modes end. */
void engine_end(struct console *c);

} // namespace qv
#endif

#endif
