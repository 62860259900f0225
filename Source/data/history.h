/* The history list, its navigation state and the history file. */
#ifndef QUORVEL_HISTORY_H
#define QUORVEL_HISTORY_H

#include <stdint.h>
#include <wchar.h>

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

/* A line as navigation hands it back: the saved line, or an entry decoded. */
typedef struct history_line {
    wchar_t *text;
    uint32_t length;
} history_line;

/* Entries are kept as UTF-8, in one block with their text: a long history
   costs about what its file does. */
typedef struct history_entry {
    char *text; /* length bytes of UTF-8 and a terminating 0 */
    uint32_t length;
    struct history_entry *next; /* newer */
    struct history_entry *prev; /* older */
} history_entry;

typedef struct history_t {
    history_entry *first;   /* oldest */
    history_entry *last;    /* newest */
    history_entry *current; /* shown entry; NULL at the line being edited */
    history_line *saved;    /* the line being edited, saved by navigation */
    int32_t dirty;
    int32_t count;
} history_t;

QV_API wchar_t *make_string_copy(const wchar_t *text, uint32_t n);
QV_API history_t *history_new(void);
QV_API void history_clear(struct console *c);
QV_API int top_is_duplicate(struct console *c, const wchar_t *text, uint32_t n);
QV_API void history_add(struct console *c, const wchar_t *text, uint32_t n);
QV_API history_line *history_get(struct console *c, int direction);
QV_API void history_set_earliest(struct console *c);
QV_API void history_set_latest(struct console *c);
QV_API void history_save_current_buffer(struct console *c, const wchar_t *line, uint32_t n);
QV_API void history_cleanup_temp(struct console *c);
QV_API void history_set_dirty(struct console *c);
QV_API int history_is_dirty(struct console *c);
QV_API void history_print_all(struct console *c);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
/* One step of the walk, as history_get() answers it: back (direction < 0),
   forward (> 0) or where it stands (0). history_get() itself lives in an
   object of its own, so that a program linking this library statically
   beside the readline-compatible one, whose history_get() takes an offset,
   gets one definition of the name. */
history_line *history_step(struct console *c, int direction);
/* Told of each entry put into the list, with its UTF-8 text (good for the
   call). */
using HistoryObserver = void (*)(struct console *c, const char *text, size_t n);
void history_observe(struct console *c, HistoryObserver observer);
/* Adds an entry for the host or from the file: the duplicate rule and the
   limit apply, the walk and the saved line stay as they are (an entry the
   walk stood on may leave past the limit: the walk moves to the oldest).
   Answers whether the entry went in. */
bool history_append(struct console *c, const wchar_t *text, uint32_t n);
/* The same for n bytes of well-formed UTF-8 without a NUL. */
bool history_append_utf8(struct console *c, const char *text, size_t n);
/* The newest entry is these n bytes of UTF-8. */
bool history_newest_is(const struct console *c, const char *text, size_t n);
/* A new limit, applied to the list now. */
void history_limit(struct console *c, int max);
/* readline's way with recalled entries: an edit made to one stays with it
   for the rest of the read. At the read's end the entries the read left
   take their edits, and the one it ended on its text from before any kept
   edit; with revert every entry keeps its text. */
void history_keep_edits(struct console *c, bool on);
void history_end_edits(struct console *c, bool revert);
/* Told of each entry that takes a kept edit: its place counted from the
   newest (0) and its UTF-8 text now, good for the call. */
using HistoryEditReport = void (*)(int from_newest, const char *text, void *user);
void history_report_edits(struct console *c, HistoryEditReport report, void *user);
/* Positions that outlive a change of the list: the oldest entry's serial,
   and one past the newest's. The entry at a serial, NULL once it has gone;
   the pointer is good only until the list next changes. */
long long history_first_serial(const struct console *c);
long long history_end_serial(const struct console *c);
const history_entry *history_at_serial(const struct console *c, long long serial);
} // namespace qv
#endif
#endif

#include "historyfile.h"

#endif
