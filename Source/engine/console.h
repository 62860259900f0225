/* The console: set-up and release of the record, the prompts. Includes the
   headers of the console layer's operations, for hosts that include this
   one alone. */
#ifndef QUORVEL_CONSOLE_H
#define QUORVEL_CONSOLE_H

#include <wchar.h>

#include "actions.h"
#include "console_record.h"
#include "editor.h"
#include "history.h"
#include "keymap.h"
#include "prebuffer.h"
#include "quorvel.h"
#include "screen.h"

#ifdef __cplusplus
extern "C" {
#endif

QV_API int console_init(console *c);
/* Releases everything the record owns (history, key maps, screen model,
   pre-buffer, edit buffer); the record itself stays with the caller. */
QV_API void console_free(console *c);
QV_API void console_set_prompt(console *c, const wchar_t *prompt);
QV_API void console_put_prompt(console *c);
QV_API void console_put_secondary_prompt(console *c);
QV_API void console_schedule_update(console *c);
QV_API int string_length(const wchar_t *s, int max);
/* Loads the terminal description, its size and capabilities, and sets the
   history defaults. Never changes the terminal's mode. */
QV_API void do_init_screen(console *c);

#ifdef __cplusplus
}
#endif

#endif
