/* Key maps: 257-entry tables that bind bytes and, through sub-maps, escape
   sequences to actions. */
#ifndef QUORVEL_KEYMAP_H
#define QUORVEL_KEYMAP_H

#include <stdint.h>

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

#define KM_NONE 0
#define KM_FUNCTION 1
#define KM_SUBMAP 2
/* Entries 0..255 by byte value, then the default entry. */
#define KEYMAP_SIZE 257
#define KEYMAP_DEFAULT 256

/* Called with the console and the first byte of the key sequence. */
typedef void (*action_fn)(struct console *c, int key);

typedef struct keymap_entry {
    int32_t type;
    union {
        action_fn action;
        struct keymap_entry *map;
    } target;
} keymap_entry;

/* A map is an array of KEYMAP_SIZE entries. Sub-maps are reference counted:
   a copy shares them, and each is freed when its last holder lets go. */
QV_API keymap_entry *keymap_new(void);
QV_API keymap_entry *keymap_new_defaults(void);
QV_API keymap_entry *keymap_copy(const keymap_entry *map);
QV_API void keymap_delete(keymap_entry *map);
QV_API int keymap_bind_key(keymap_entry *map, int key, int type, action_fn action);
QV_API int keymap_bind_key_sequence(keymap_entry *map, const char *sequence, int type,
                                    action_fn action);
QV_API action_fn get_action_for_key(const keymap_entry *map, int key);
QV_API action_fn get_action_for_key_sequence(const keymap_entry *map, const char *sequence);

#ifdef __cplusplus
}
#endif

#endif
