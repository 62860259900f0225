/* readline's listings of what is bound and set, in readline's two wordings:
   for a person ("... can be found on ...") and for an init file. Library-
   internal. */
#ifndef QUORVEL_LISTINGS_H
#define QUORVEL_LISTINGS_H

#ifdef __cplusplus
#include <string>

#include "keymap.h"

struct console;

namespace qv {

/* Which listing. */
enum class Listing { functions, macros, variables };

/* The listing for the map in use (emacs, or vi's insert map), a line each.
   Functions are named by names and found by named, the caller's table. */
std::string listing(struct console *c, Listing what, bool readable, const char *const *names,
                    action_fn (*named)(const char *));

/* Text below the input, as a listing is shown. */
void show_listing(struct console *c, const std::string &text);

} // namespace qv
#endif

#endif
