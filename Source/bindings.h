/* The default key bindings. */
#ifndef QUORVEL_BINDINGS_H
#define QUORVEL_BINDINGS_H

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* Binds the defaults into the console's active key map. */
QV_API void keymap_set_defaults(struct console *c);

#ifdef __cplusplus
}
#endif

#endif
