/* Rows shown below the input while a mode wants them (the completion menu's
   listing): part of the input area, so they are drawn, changed and erased
   with it and never reach the scrollback. Library-internal. */
#ifndef QUORVEL_BELOW_H
#define QUORVEL_BELOW_H

#include <stdint.h>
#include <wchar.h>

#ifdef __cplusplus
struct console;

namespace qv {

struct BelowState;
BelowState *below_new();
void below_free(BelowState *b);

/* The rows to show: n characters, a line feed ending each row, a style for
   each (styles may be NULL). Copied; false, and nothing shown, when memory
   ran out. */
bool below_set(struct console *c, const wchar_t *text, const uint32_t *styles, int n);
/* Nothing below the input. */
void below_clear(struct console *c);
/* What is shown, good until the next set or clear; NULL for nothing. Each
   change counts up *version. */
const wchar_t *below_text(const struct console *c, int *len, const uint32_t **styles, unsigned *version);

} // namespace qv
#endif

#endif
