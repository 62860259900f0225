/* The history file "term.history": loading it into the history list, and
   saving this session's new entries into it without losing anyone's. */
#ifndef QUORVEL_HISTORYFILE_H
#define QUORVEL_HISTORYFILE_H

#include <stdint.h>
#include <wchar.h>

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

QV_API char *history_get_filepath(void);
QV_API wchar_t *encode_special_chars(const wchar_t *text, uint32_t len, uint32_t *k);
/* Merges the entries added since the instance began (or since the last save)
   into the file: under a lock, the file's current entries, then the new ones,
   newest last, the oldest dropped beyond history_max. The file is replaced
   through a synced temporary file beside it, or not touched at all. */
QV_API void history_save(struct console *c, const char *path);
/* Appends the file's entries to the list. Anything but a regular file is
   skipped without blocking; a line holding a NUL byte is skipped alone. */
QV_API void history_load(struct console *c, const char *path);
QV_API void history_add_character_range(struct console *c, const char *start, const char *end);
QV_API void history_add_string(struct console *c, const char *s);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
struct FileState;
FileState *history_file_new();
void history_file_free(FileState *st);
/* From now on every entry put into the console's history list is kept for
   the next save; entries coming from the file are not kept again. */
void history_file_attach(struct console *c);
/* Releases the entries kept for the next save. */
void history_forget_new(struct console *c);
// Another session's history directory (it keeps none without one).
struct HistoryDir;
HistoryDir *history_dir_new(const char *path);
void history_dir_free(HistoryDir *d);
} // namespace qv
#endif
#endif

#endif
