/* History hints: the rest of the newest history entry the text is a prefix
   of, drawn dim after the cursor at the end of the input. Library-internal. */
#ifndef QUORVEL_HINTS_H
#define QUORVEL_HINTS_H

#include <wchar.h>

#ifdef __cplusplus
struct console;

namespace qv {

struct HintState;
HintState *hint_new();
void hint_free(HintState *h);

/* Hints are on, and this read and terminal can show them. */
bool hints_enabled(const struct console *c);
/* The hint again, after a key: computed when the option is on and the
   terminal has dim, none otherwise, and none while a mode (a search, a
   paste, a question) takes the keys. */
void hint_update(struct console *c, bool in_mode);
/* Takes the hint (or its next word) into the text; false when there is none
   to take (the cursor is not at the end, or no hint). */
bool hint_accept(struct console *c, bool word);
/* No hint any more: at the end of an input. */
void hint_clear(struct console *c);
/* The hint shown, a copy the hint owns, good until the next key; NULL for
   none. Each change of it counts up *version. */
const wchar_t *hint_text(const struct console *c, int *len, unsigned *version);

} // namespace qv
#endif

#endif
