/* The console record: all state of the line editor. Also the prompts, the
   editing actions, input completion and the history navigation actions. */
#ifndef QUORVEL_CONSOLE_H
#define QUORVEL_CONSOLE_H

#include <wchar.h>

#include "editor.h"
#include "history.h"
#include "keymap.h"
#include "prebuffer.h"
#include "quorvel.h"
#include "screen.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The read status codes ST_* are defined in quorvel.h. */

#define FLAG_NONINTERACTIVE 0x02
#define FLAG_INSERT_KEY 0x20

typedef struct console {
    char maskchar;
    int history_add_unchanged;
    int history_allow_duplicates;
    int history_max;
    int sigint;
    int masked;
    int raw;
    int flags;
    int status;
    int error;
    const wchar_t *prompt; /* not owned; valid during a read only */
    editor_t editor;
    screen_t screen;
    keymap_entry **keymaps; /* three maps; the first is active */
    history_t *history;
    term_callbacks callbacks;
    prebuffer_t prebuffer;
    int initialized;
    int terminate;
    int eof;
    int cancel;
    /* Library-private: the model rows touched since the last paint, so a
       paint never has to look at rows that cannot differ. */
    int paint_first;
    int paint_last;
    /* Library-private: the line structure of the text and the layout of the
       input area computed from it. */
    struct console_state *state;
} console;

QV_API int console_init(console *c);
/* Releases everything the record owns (history, key maps, screen model,
   pre-buffer, edit buffer); the record itself stays with the caller. */
QV_API void console_free(console *c);
QV_API int console_init_editor(console *c);
QV_API void console_free_editor(console *c);
QV_API void console_set_prompt(console *c, const wchar_t *prompt);
QV_API void console_put_prompt(console *c);
QV_API void console_put_secondary_prompt(console *c);
QV_API void console_schedule_update(console *c);
QV_API int string_length(const wchar_t *s, int max);

/* Actions: called with the console and the first byte of the key. */
QV_API void action_insert_char(console *c, int key);
QV_API void action_key_insert(console *c, int key);
QV_API void action_key_backspace(console *c, int key);
QV_API void action_key_delete(console *c, int key);
QV_API void action_delete_or_quit(console *c, int key);
QV_API void action_end_of_input(console *c, int key);
QV_API void action_kill_to_end_of_line(console *c, int key);
QV_API void action_key_tab(console *c, int key);
QV_API void action_key_left(console *c, int key);
QV_API void action_key_right(console *c, int key);
QV_API void action_key_home(console *c, int key);
QV_API void action_key_end(console *c, int key);
QV_API void action_key_up(console *c, int key);
QV_API void action_key_down(console *c, int key);
QV_API void action_abandon_input(console *c, int key);
QV_API void action_abandon_input_ctrl_c(console *c, int key);
QV_API void action_suspend_process(console *c, int key);
QV_API void action_key_return(console *c, int key);

/* History navigation. */
QV_API void history_lookup(console *c, int direction);
QV_API void action_history_earliest(console *c, int key);
QV_API void action_history_latest(console *c, int key);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
#include "editkeys.h"
#include "layout.h"

struct console_state {
    /* Continuation lines that start without a line feed in the text, in
       ascending order. Kept by the edit buffer as its text moves. */
    qv::TextBreak *breaks;
    int nbreaks;
    int capbreaks;
    /* The lowest text offset changed since the last layout; INT_MAX: none. */
    int dirty_from;
    /* Where each row of the last layout starts. */
    qv::RowStart *rows;
    int nrows;
    int caprows;
    /* The terminal cannot move the cursor up or to a column: the input is
       shown on one row, scrolled sideways (see plainview.h). */
    int plain;
    termchar *shown; /* what that row shows, from column 0 */
    int nshown;
    int capshown;
    int shown_cur; /* the terminal cursor's column on it */
    int scroll;    /* the line's cell shown in column 0 */
    /* Entries added since the last save, as the file's lines (UTF-8). */
    char **fresh;
    int nfresh;
    int capfresh;
    int loading; /* entries now added come from the file */
    /* Rows laid out and rows the painter compared, since the instance
       began: the cost of a key, counted rather than timed. */
    unsigned long rows_laid_out;
    unsigned long rows_compared;
    /* More keys are waiting: refreshes wait for the end of the burst. */
    int defer;
    int refresh_pending;
    /* A mode that takes the keys first (a search, a paste, a question):
       answers 1 when it used the key, 0 to let its action run as usual. */
    int (*modal)(struct console *c, action_fn action, int key);
    action_fn last_action; /* the action of the key before */
    /* The kill ring and the last yank (see editkeys.h). */
    wchar_t *ring[qv::kKillRingSize];
    int ring_len[qv::kKillRingSize];
    int ring_count;
    int ring_top;
    int yank_start, yank_len, yank_slot;
    struct undo_log *undo;
    /* The hint shown after the text: a copy of a stretch of a history
       entry, hint_text when there is one. */
    const wchar_t *hint;
    int hint_len;
    wchar_t *hint_text;
    int hint_cap;
};

namespace qv {
/* The prompt and the edit buffer as the layout takes them, for rows of cols
   cells. */
inline LayoutText layout_text(const console *c, int cols) {
    LayoutText t{};
    t.prompt = c->prompt;
    t.cols = cols;
    t.prompt_cells = prompt_cells(c->prompt, cols);
    t.indent = t.prompt_cells;
    t.text = c->editor.buffer;
    t.len = c->editor.buffer ? static_cast<int>(c->editor.lastchar - c->editor.buffer) : 0;
    t.breaks = c->state->breaks;
    t.nbreaks = c->state->nbreaks;
    t.mask = c->masked ? static_cast<wchar_t>(static_cast<unsigned char>(c->maskchar)) : 0;
    t.hint = c->state->hint;
    t.hint_len = c->state->hint ? c->state->hint_len : 0;
    return t;
}

/* The start of the line the cursor is on, as the user sees it: after the last
   line feed or continuation before the cursor. */
int buffer_line_start(console *c);
/* Starts a continuation line at the end of the text without a line feed. */
int buffer_add_break(console *c, int kind);
/* Drops the text from the cursor to the end, continuation lines included. */
void buffer_kill_to_end(console *c);
} // namespace qv
#endif
#endif

#endif
