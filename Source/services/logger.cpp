// Named appenders that write time-stamped lines to /tmp/<name>-<pid>.log,
// and the reader of /tmp/Quorvel.conf.
#include "logger.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "options.h"
#include "printer.h"

int isLogging = 0;

namespace {

struct Logger {
    appender *first;
    appender *last;
};

Logger theLogger = {nullptr, nullptr};

// Serialises lookups and changes of the appender list, so that two threads
// naming the same new appender get one record. A plain pthread mutex: it
// cannot throw, so nothing of C++ can reach a C caller through it.
pthread_mutex_t list_mutex = PTHREAD_MUTEX_INITIALIZER;

class ListLock {
  public:
    ListLock() { pthread_mutex_lock(&list_mutex); }
    ~ListLock() { pthread_mutex_unlock(&list_mutex); }
    ListLock(const ListLock &) = delete;
    ListLock &operator=(const ListLock &) = delete;
};

// Each thread formats its time stamp into its own buffer.
thread_local char timestamp_text[121];

constexpr size_t kPathSize = 261;

// Appends text to the path, cutting it at the last byte of the buffer.
void append_cut(char *path, size_t &pos, const char *text, size_t n) {
    for (size_t i = 0; i < n && text[i] && pos < kPathSize - 1; i++) path[pos++] = text[i];
}

} // namespace

// The process id is written whole: two processes must never share a file.
// A long name gives way to it.
char *qv::log_file_name(const char *name, int pid) {
    auto *path = static_cast<char *>(calloc(kPathSize, 1));
    if (!path) return nullptr;
    char tail[32];
    const int n = snprintf(tail, sizeof tail, "-%05d.log", pid);
    size_t pos = 0;
    append_cut(path, pos, "/tmp/", 5);
    append_cut(path, pos, name, kPathSize - 1 - 5 - static_cast<size_t>(n));
    append_cut(path, pos, tail, static_cast<size_t>(n));
    return path;
}

namespace {

// /tmp is everyone's: a file planted there under the appender's name, or a
// link, must not receive the host's log lines.
FILE *open_log(const char *path) {
    const int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return nullptr;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != geteuid()) {
        close(fd);
        return nullptr;
    }
    FILE *f = fdopen(fd, "a");
    if (!f) close(fd);
    return f;
}

const char *getFileNamePart(const char *path) {
    const char *slash = strrchr(path, '/');
    if (!slash || slash == path) return path;
    return slash + 1;
}

void logger_finish_appender(appender *a) {
    if (!a) return;
    if (a->lock) KMutexLock(a->lock);
    if (a->file) fclose(a->file);
    free(a->filename);
    a->filename = nullptr;
    a->file = nullptr;
    a->active = 0;
    if (a->lock) KMutexUnlock(a->lock);
}

appender *new_appender(const char *name) {
    auto *a = static_cast<appender *>(calloc(1, sizeof(appender)));
    if (!a) return nullptr;
    a->name = name;
    a->active = 1;
    a->next = nullptr;
    a->filename = qv::log_file_name(name, getPID());
    a->file = a->filename ? open_log(a->filename) : nullptr;
    a->lock = New_KMutex();
    if (!a->lock) {
        if (a->file) fclose(a->file);
        free(a->filename);
        free(a);
        return nullptr;
    }
    return a;
}

} // namespace

void init_logger(void) {
    ListLock guard;
    theLogger.first = theLogger.last = nullptr;
}

appender *logger_get_appender(const char *name) {
    ListLock guard;
    for (appender *a = theLogger.first; a; a = a->next)
        if (strcmp(a->name, name) == 0) return a;
    appender *a = new_appender(name);
    if (!a) return nullptr;
    if (!theLogger.first)
        theLogger.first = theLogger.last = a;
    else {
        theLogger.last->next = a;
        theLogger.last = a;
    }
    return a;
}

void logger_start(const char *name) {
    if (appender *a = logger_get_appender(name)) a->active = 1;
}

void logger_stop(const char *name) {
    if (appender *a = logger_get_appender(name)) a->active = 0;
}

void logger_finish(const char *name) { logger_finish_appender(logger_get_appender(name)); }

void logger_finish_all(void) {
    ListLock guard;
    for (appender *a = theLogger.first; a;) {
        appender *next = a->next;
        logger_finish_appender(a);
        Delete_KMutex(a->lock);
        free(a);
        a = next;
    }
    theLogger.first = theLogger.last = nullptr;
}

int appender_active(appender *a) { return a && a->active && a->file ? 1 : 0; }

void logger_lock(appender *a) {
    if (a) KMutexLock(a->lock);
}

void logger_unlock(appender *a) {
    if (a) KMutexUnlock(a->lock);
}

const char *logger_timestamp(void) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    struct tm local;
    const time_t seconds = tv.tv_sec;
    localtime_r(&seconds, &local);
    snprintf(timestamp_text, sizeof timestamp_text, "%02d:%02d:%02d.%03d", local.tm_hour,
             local.tm_min, local.tm_sec, static_cast<int>(tv.tv_usec / 1000));
    timestamp_text[sizeof timestamp_text - 1] = 0;
    return timestamp_text;
}

void logger_write_timestamp(appender *a, const char *file, unsigned int line) {
    if (!appender_active(a)) return;
    fputs(logger_timestamp(), a->file);
    fputc('\t', a->file);
    if (file) fprintf(a->file, "%s:%u\t", getFileNamePart(file), line);
    else fputc('\t', a->file);
}

void logger_write_data_va(appender *a, const char *format, va_list args) {
    if (!appender_active(a)) return;
    vfprintf(a->file, format, args);
}

void logger_write_data(appender *a, const char *format, ...) {
    va_list args;
    va_start(args, format);
    logger_write_data_va(a, format, args);
    va_end(args);
}

void logger_eol(appender *a) {
    if (!a || !a->file) return;
    fputc('\n', a->file);
    fflush(a->file);
}

namespace {

// The line for the terminal: the appender's name, then the text.
void mirror_line(const char *name, const char *format, va_list args) {
    va_list size_args;
    va_copy(size_args, args);
    const int text = vsnprintf(nullptr, 0, format, size_args);
    va_end(size_args);
    if (text < 0) return;
    const size_t head = strlen(name) + 2;
    std::unique_ptr<char, decltype(&free)> line(static_cast<char *>(malloc(head + static_cast<size_t>(text) + 1)), &free);
    if (!line) return;
    snprintf(line.get(), head + 1, "%s: ", name);
    vsnprintf(line.get() + head, static_cast<size_t>(text) + 1, format, args);
    qv::printer_print(line.get(), head + static_cast<size_t>(text));
}

} // namespace

void logger_write_fmt(const char *name, const char *file, unsigned int line, const char *format,
                      ...) {
    appender *a = logger_get_appender(name);
    if (!appender_active(a)) return;
    KMutexLock(a->lock);
    logger_write_timestamp(a, file, line);
    va_list args;
    va_start(args, format);
    va_list mirror;
    va_copy(mirror, args);
    logger_write_data_va(a, format, args);
    va_end(args);
    logger_eol(a);
    if (qv::option(TERM_OPTION_LOG_TO_TERMINAL)) mirror_line(a->name, format, mirror);
    va_end(mirror);
    KMutexUnlock(a->lock);
}

int getPID(void) { return static_cast<int>(getpid()); }

// ---------------------------------------------------------------------------
// The configuration file

namespace {

// Cuts trailing spaces, line feeds and carriage returns (not tabs).
void rchomp(char *s) {
    for (size_t n = strlen(s); n > 0; n--) {
        const char ch = s[n - 1];
        if (ch != ' ' && ch != '\n' && ch != '\r') break;
        s[n - 1] = 0;
    }
}

// 1: go on with the next line; 0: stop reading (an invalid value).
int process_config_data(char *line, int) {
    char *eq = strchr(line, '=');
    if (!eq) return 1;
    rchomp(line);
    *eq = 0;
    const char *key = line, *value = eq + 1;
    if (strcmp(key, "logging") != 0) return 1;
    if (strcmp(value, "TRUE") == 0) {
        isLogging = 1;
        return 1;
    }
    if (strcmp(value, "FALSE") == 0) {
        isLogging = 0;
        return 1;
    }
    return 0;
}

} // namespace

void read_config_file(void) {
    char path[261] = {0};
    strncpy(path, "/tmp/", 260);
    strncat(path, "Quorvel.conf", 255);
    // Anyone may create a file in /tmp: only one of this user's or root's
    // is taken, never through a link, and a FIFO or a device never blocks
    // the open or the read.
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || (st.st_uid != geteuid() && st.st_uid != 0)) {
        close(fd);
        return;
    }
    FILE *f = fdopen(fd, "r");
    if (!f) {
        close(fd);
        return;
    }
    char line[257] = {0};
    for (int n = 0; fgets(line, 256, f); n++) {
        if (!process_config_data(line, n)) break;
        memset(line, 0, sizeof line);
    }
    fclose(f);
}
