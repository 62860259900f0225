/* The kill ring: text taken out by the kill keys, for the yank keys.
   Library-internal. */
#ifndef QUORVEL_KILLRING_H
#define QUORVEL_KILLRING_H

#include <wchar.h>

#ifdef __cplusplus
struct console;

namespace qv {

struct KillRing;
KillRing *kill_ring_new();
void kill_ring_free(KillRing *r);

/* Puts killed text into the ring. join: the key before was a kill too, and
   the text joins the newest entry, before it when killed backward (before)
   and after it when killed forward. Nothing from a masked read. */
void kill_ring_add(struct console *c, const wchar_t *text, int n, bool before, bool join);
/* The newest kill, yanked at text offset at: its text and length, good until
   the ring next changes; NULL when the ring is empty. */
const wchar_t *kill_ring_yank(struct console *c, int at, int *len);
/* Right after a yank that ends at cursor: the kill before the one yanked,
   and in *old the length of the yanked text it replaces; NULL when there is
   no yank to replace. */
const wchar_t *kill_ring_yank_pop(struct console *c, int cursor, int *old, int *len);
/* The yank can no longer be popped: a pop was refused, so one after it finds
   nothing to replace either. */
void kill_ring_end_yank(struct console *c);

} // namespace qv
#endif

#endif
