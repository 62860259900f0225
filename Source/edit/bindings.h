/* The default key bindings. */
#ifndef QUORVEL_BINDINGS_H
#define QUORVEL_BINDINGS_H

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* Binds the defaults into the console's active key map. Answers 0 when
   memory for a binding ran out (the map then lacks keys), else 1. */
QV_API int keymap_set_defaults(struct console *c);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
#include "keymap.h"
namespace qv {
/* Binds the defaults into map; without meta, Escape starts only the
   terminal's control sequences (vi's maps), not the Alt keys. False when
   memory ran out. */
bool keymap_bind_defaults(keymap_entry *map, bool meta);
} // namespace qv
#endif
#endif

#endif
