// The readline-compatible history: a list of byte strings kept exactly as
// the program added them, and the plain one-entry-a-line files programs
// keep them in. The editor gets a copy of each entry for Up and Down; this
// list stays the one the files are written from, so an entry the editor
// declines (empty, repeated, not UTF-8) is still saved.
#include "rlhistory.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fdio.h"
#include "quorvel.h"
#include "quorvel/readline.h"

namespace {

using CharPtr = std::unique_ptr<char, decltype(&free)>;

struct List {
    char **lines = nullptr; // oldest first
    int count = 0;
    int cap = 0;
    int limit = -1; // -1: not stifled
    bool attached = false;
};

List list;

void drop_oldest(int n) {
    if (n <= 0) return;
    for (int i = 0; i < n; i++) free(list.lines[i]);
    memmove(list.lines, list.lines + n, sizeof(char *) * static_cast<size_t>(list.count - n));
    list.count -= n;
}

bool push(const char *line, size_t len) {
    if (list.limit == 0) return true;
    if (list.limit > 0 && list.count >= list.limit) drop_oldest(list.count - list.limit + 1);
    if (list.count == list.cap) {
        const int cap = list.cap ? list.cap * 2 : 64;
        auto *grown = static_cast<char **>(realloc(list.lines, sizeof(char *) * static_cast<size_t>(cap)));
        if (!grown) return false;
        list.lines = grown;
        list.cap = cap;
    }
    char *copy = strndup(line, len);
    if (!copy) return false;
    list.lines[list.count++] = copy;
    if (list.attached) term_addHistory(copy);
    return true;
}

// ---------------------------------------------------------------------------
// Files

// Where a NULL file name points: ~/.history, as readline documents it.
CharPtr file_name(const char *filename) {
    if (filename) return CharPtr(strdup(filename), &free);
    const char *home = getenv("HOME");
    if (!home || !*home) {
        const passwd *pw = getpwuid(getuid());
        home = pw && pw->pw_dir ? pw->pw_dir : ".";
    }
    const size_t n = strlen(home) + sizeof "/.history";
    CharPtr path(static_cast<char *>(malloc(n)), &free);
    if (path) snprintf(path.get(), n, "%s/.history", home);
    return path;
}

// The whole of a regular file; errno-style failure in err.
CharPtr slurp(const char *path, size_t *size, int *err) {
    CharPtr none(nullptr, &free);
    if (!path) {
        *err = ENOMEM;
        return none;
    }
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        *err = errno;
        return none;
    }
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        *err = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
        close(fd);
        return none;
    }
    size_t cap = static_cast<size_t>(st.st_size) + 1, n = 0;
    CharPtr data(static_cast<char *>(malloc(cap)), &free);
    while (data) {
        if (n == cap) {
            char *grown = static_cast<char *>(realloc(data.get(), cap * 2));
            if (!grown) break;
            data.release();
            data.reset(grown);
            cap *= 2;
        }
        const ssize_t r = read(fd, data.get() + n, cap - n);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) {
            *err = errno;
            close(fd);
            return none;
        }
        if (r == 0) break;
        n += static_cast<size_t>(r);
    }
    close(fd);
    if (!data || n == cap) {
        *err = ENOMEM;
        return none;
    }
    *size = n;
    return data;
}

using qv::write_all;

bool write_lines(int fd, char *const *lines, int n) {
    for (int i = 0; i < n; i++)
        if (!write_all(fd, lines[i], strlen(lines[i])) || !write_all(fd, "\n", 1)) return false;
    return true;
}

// Replaces path with what write(fd) writes, through a synced temporary file
// beside it (beside the link's target when path is a symbolic link), so that
// a reader never finds half a file and a crash never leaves less than the old
// one. A file that exists keeps its mode; a new one is private to the user.
template <typename W> int replace_file(const char *path, W write) {
    CharPtr resolved(realpath(path, nullptr), &free);
    const char *target = resolved ? resolved.get() : path;
    const size_t len = strlen(target) + sizeof ".XXXXXX";
    CharPtr tmp(static_cast<char *>(malloc(len)), &free);
    if (!tmp) return ENOMEM;
    snprintf(tmp.get(), len, "%s.XXXXXX", target);
    const int fd = mkostemp(tmp.get(), O_CLOEXEC);
    if (fd < 0) return errno;
    struct stat st;
    if (stat(target, &st) == 0) fchmod(fd, st.st_mode & 07777);
    int err = 0;
    errno = 0;
    if (!write(fd) || fsync(fd) != 0) err = errno ? errno : EIO;
    if (close(fd) != 0 && !err) err = errno;
    if (!err && rename(tmp.get(), target) != 0) err = errno;
    if (err) unlink(tmp.get());
    return err;
}

// Splits data into lines in place; a line holding a NUL byte is dropped,
// the last line needs no line break. Calls take(line, length) for each.
template <typename F> void each_line(char *data, size_t size, F take) {
    size_t start = 0;
    for (size_t i = 0; i <= size; i++) {
        if (i < size && data[i] != '\n') continue;
        if (i == size && start == size) break;
        const size_t len = i - start;
        if (memchr(data + start, 0, len) == nullptr) take(data + start, len);
        start = i + 1;
    }
}

} // namespace

void qv::rl_history_attach() {
    list.attached = true;
    term_setHistoryLimit(list.limit);
    for (int i = 0; i < list.count; i++) term_addHistory(list.lines[i]);
}

// ---------------------------------------------------------------------------
// The readline calls

// Nothing to begin: the list is ready from the start, and the editor begins
// each read at its newest entry.
void using_history(void) {}

void add_history(const char *line) {
    if (line) push(line, strlen(line));
}

void clear_history(void) {
    drop_oldest(list.count);
    if (list.attached) term_clearHistory();
}

void stifle_history(int max) {
    if (max < 0) max = 0;
    list.limit = max;
    if (list.count > max) drop_oldest(list.count - max);
    if (list.attached) term_setHistoryLimit(max);
}

int unstifle_history(void) {
    const int was = list.limit;
    list.limit = -1;
    if (list.attached) term_setHistoryLimit(-1);
    return was;
}

int history_is_stifled(void) { return list.limit >= 0; }

int read_history(const char *filename) {
    size_t size = 0;
    int err = 0;
    CharPtr data = slurp(file_name(filename).get(), &size, &err);
    if (!data) return err;
    each_line(data.get(), size, [&](const char *line, size_t len) {
        if (!err && !push(line, len)) err = ENOMEM;
    });
    return err;
}

int write_history(const char *filename) {
    CharPtr path = file_name(filename);
    if (!path) return ENOMEM;
    return replace_file(path.get(), [](int fd) { return write_lines(fd, list.lines, list.count); });
}

int append_history(int n, const char *filename) {
    CharPtr path = file_name(filename);
    if (!path) return ENOMEM;
    // An existing file only, as readline has it: appending to nothing is
    // more likely a wrong name than a first save.
    const int fd = open(path.get(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0) return errno;
    if (n > list.count) n = list.count;
    int err = 0;
    if (n > 0 && !write_lines(fd, list.lines + list.count - n, n)) err = errno ? errno : EIO;
    if (close(fd) != 0 && !err) err = errno;
    return err;
}

int history_truncate_file(const char *filename, int lines) {
    CharPtr path = file_name(filename);
    size_t size = 0;
    int err = 0;
    CharPtr data = slurp(path.get(), &size, &err);
    if (!data) return err;
    // The last `lines` lines start after the line break that many breaks
    // back, not counting the one that ends the file.
    const char *d = data.get();
    size_t from = size > 0 && d[size - 1] == '\n' ? size - 1 : size;
    int seen = 0;
    if (lines <= 0) from = 0, seen = -1;
    while (seen >= 0 && from > 0) {
        if (d[from - 1] == '\n' && ++seen == lines) break;
        from--;
    }
    if (lines > 0 && from == 0) return 0; // already short enough
    const size_t keep = lines > 0 ? size - from : 0;
    return replace_file(path.get(), [&](int fd) { return write_all(fd, d + from, keep); });
}
