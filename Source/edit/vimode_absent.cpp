// vi mode in a build without it (QUORVEL_VI_MODE off): its option answers
// -1, it has no maps, and every key keeps the default map's action.
#include "vimode.h"

#include <new>

#include "console_record.h"

#if !QV_WITH_VI_MODE

struct qv::ViState {};

qv::ViState *qv::vi_new() { return new (std::nothrow) ViState{}; }
void qv::vi_free(ViState *v) { delete v; }
keymap_entry *qv::vi_map(console *, bool) { return nullptr; }
const keymap_entry *qv::vi_keymap(console *c) { return c->keymaps[0]; }
void qv::vi_begin(console *) {}
void qv::vi_end(console *) {}
bool qv::vi_key(console *, action_fn, int) { return false; }
bool qv::vi_search_return(console *, action_fn) { return false; }
bool qv::vi_commanding(const console *) { return false; }
bool qv::vi_joins_step(const console *) { return false; }
void qv::vi_observe(console *, action_fn, int) {}
int qv::vi_cursor_shape(const console *) { return 0; }
void action_vi_movement_mode(console *, int) {}
void action_vi_insertion_mode(console *, int) {}
void action_vi_editing_mode(console *, int) {}
void action_emacs_editing_mode(console *, int) {}

#endif
