/* A logger of named appenders writing time-stamped lines to files under
   /tmp/, and the one-key configuration file that sets isLogging. For host
   programs. The line editor itself writes here only the lines of a bindings
   file it could not take, when the host set no reporter for them. */
#ifndef QUORVEL_LOGGER_H
#define QUORVEL_LOGGER_H

#include <stdarg.h>
#include <stdio.h>

#include "quorvel.h"
#include "threads-unix.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct appender {
    FILE *file;       /* NULL when it could not be opened or after finishing */
    const char *name; /* the caller's string: it must outlive the appender */
    char *filename;
    int active;
    struct appender *next;
    KMutex lock; /* recursive; serialises whole lines */
} appender;

/* 1 after a "logging=TRUE" line of /tmp/Quorvel.conf, 0 after "logging=FALSE". */
QV_API extern int isLogging;

/* Forgets every appender (the records are not freed). */
QV_API void init_logger(void);
/* The appender of that name, created (active, its file opened for appending)
   on first use; NULL when memory ran out. Safe from several threads. */
QV_API appender *logger_get_appender(const char *name);
QV_API void logger_start(const char *name);
QV_API void logger_stop(const char *name);
/* Closes the appender for good: later writes with its name are dropped. */
QV_API void logger_finish(const char *name);
/* Closes and frees every appender. */
QV_API void logger_finish_all(void);
QV_API int appender_active(appender *a);
QV_API void logger_lock(appender *a);
QV_API void logger_unlock(appender *a);
/* The pieces of one line, for hosts that build a line from several calls
   between logger_lock and logger_unlock. */
QV_API void logger_write_timestamp(appender *a, const char *file, unsigned int line);
QV_API void logger_write_data(appender *a, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
QV_API void logger_write_data_va(appender *a, const char *format, va_list args);
QV_API void logger_eol(appender *a);
/* One whole line: "HH:MM:SS.mmm", a tab, "file:line" and a tab (or only a
   tab without a source file), the text, a line feed; flushed. */
QV_API void logger_write_fmt(const char *name, const char *file, unsigned int line,
                             const char *format, ...) __attribute__((format(printf, 4, 5)));
/* The local time of day; the text belongs to the calling thread and is
   overwritten by its next call. */
QV_API const char *logger_timestamp(void);
QV_API int getPID(void);

/* Reads /tmp/Quorvel.conf and sets isLogging from its "logging" line. */
QV_API void read_config_file(void);

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
/* "/tmp/" + the name, cut so that the rest fits in 260 bytes, + "-" + the
   process id (at least five digits) + ".log". */
char *log_file_name(const char *name, int pid);
} // namespace qv
#endif
#endif

#endif
