/* Keys of the user's choice: the actions by name, key sequences in
   readline's notation, bindings files in readline's init file syntax, and
   readline's listings of what is bound and set. Library-internal but for
   the actions. */
#ifndef QUORVEL_USERKEYS_H
#define QUORVEL_USERKEYS_H

#include <stddef.h>

#include "keymap.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* readline's dump-functions, dump-variables and dump-macros: the list below
   the input. */
void action_dump_functions(struct console *c, int key);
void action_dump_variables(struct console *c, int key);
void action_dump_macros(struct console *c, int key);
/* Reads the bindings file read last again. */
void action_re_read_init_file(struct console *c, int key);


#ifdef __cplusplus
}

namespace qv {

/* The action of that name ("backward-char"), NULL for none. */
action_fn action_named(const char *name);
/* The names, NULL-terminated, in a fixed order. */
const char *const *action_names();

/* The maps bindings go to: the console's own, and vi's two (NULL when they
   could not be built). */
struct KeymapSet {
    keymap_entry *emacs, *vi_insert, *vi_command;
};
/* The map of readline's name for it ("emacs" or NULL, "emacs-meta",
   "emacs-ctlx", "vi-insert", "vi-command", "vi", "vi-move") and in *prefix
   the keys its bindings start with (Escape for emacs-meta, Ctrl-X for
   emacs-ctlx); NULL for a map there is not. */
keymap_entry *keymap_named(const KeymapSet &maps, const char *name, const char **prefix);

/* Reads a key sequence in readline's notation, quoted ("\C-a", "\M-f",
   "\e[1;5D", octal and hex escapes) or, with quoted false, as a key name
   ("Control-u", "M-Rubout", "TAB"). Writes its bytes, 0-terminated, to out
   (room for size); answers their number, or 0 when it cannot be read (a
   NUL key, a sequence too long). */
size_t parse_keys(const char *text, size_t n, bool quoted, char *out, size_t size);

/* Binds the key sequence (bytes) to the action in map. */
bool bind_keys(keymap_entry *map, const char *keys, size_t n, action_fn action);

/* Reads a bindings file into the maps: each line not understood goes to
   report (its line number, its text and why) and the rest applies. term is
   the terminal's name for "$if term="; *vi the editing mode, in for
   "$if mode=" and out as "set editing-mode" left it. Answers the number of
   lines reported, or -1 when the file cannot be read. */
using BindingsReport = void (*)(void *user, int line, const char *text, const char *why);
int read_bindings(struct console *c, const KeymapSet &maps, const char *path, const char *term, bool *vi,
                  BindingsReport report, void *user);

} // namespace qv
#endif

#endif
