// The readline-compatible history: entries kept exactly as the program added
// them, their time stamps, the walk through them, and the files programs keep
// them in. The editor gets a copy of each line for Up and Down; this list
// stays the one the files are written from, so an entry the editor declines
// (empty, repeated, not UTF-8) is still saved.
#include "rlhistory.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fdio.h"
#include "quorvel.h"
#include "quorvel/readline.h"

int history_base = 1;
int history_length = 0;
int history_max_entries = 0;
int history_write_timestamps = 0;
char history_comment_char = 0;

namespace {

using CharPtr = std::unique_ptr<char, decltype(&free)>;
using qv::FileFormat;
using qv::write_all;

struct List {
    HIST_ENTRY **entries = nullptr; // oldest first, NULL after the last
    // Which entries the editor holds too: it declines some (empty, equal to
    // its newest, not UTF-8), and an edit it keeps with one of its entries
    // is told by the entry's place among its own.
    bool *in_editor = nullptr;
    int count = 0;
    int cap = 0;
    bool stifled = false;
    int pos = 0; // the walk
    bool attached = false;
};

List list;

// The program reads the counts as variables, so they follow every change.
void publish() {
    history_length = list.count;
    if (list.pos > list.count) list.pos = list.count;
}

HIST_ENTRY *new_entry(const char *line, size_t len, const char *stamp, size_t stamp_len) {
    auto *e = static_cast<HIST_ENTRY *>(malloc(sizeof(HIST_ENTRY)));
    if (!e) return nullptr;
    e->line = strndup(line, len);
    e->timestamp = strndup(stamp ? stamp : "", stamp ? stamp_len : 0);
    e->data = nullptr;
    if (!e->line || !e->timestamp) {
        free_history_entry(e);
        return nullptr;
    }
    return e;
}

// The stamp readline puts on a new entry: the comment character and the
// seconds; without a comment character it is empty and never written.
CharPtr stamp_now() {
    char buf[32];
    snprintf(buf, sizeof buf, "X%lu", static_cast<unsigned long>(time(nullptr)));
    buf[0] = history_comment_char;
    return CharPtr(strdup(buf), &free);
}

// Gives the editor entry i, the newest so far, and notes whether it took it:
// a line equal to its newest it answers 1 for but does not add.
void to_editor(int i) {
    const char *newest = nullptr;
    for (int k = i - 1; k >= 0 && !newest; k--)
        if (list.in_editor[k]) newest = list.entries[k]->line;
    const char *line = list.entries[i]->line;
    const bool repeated = newest && strcmp(newest, line) == 0;
    list.in_editor[i] = term_addHistory(line) == 1 && !repeated;
}

// Hands the whole list to the editor again, after a change that is not an
// addition at the end.
void resync() {
    if (!list.attached) return;
    term_clearHistory();
    term_setHistoryLimit(list.stifled ? history_max_entries : -1);
    for (int i = 0; i < list.count; i++) to_editor(i);
}

void drop_oldest(int n) {
    if (n <= 0) return;
    for (int i = 0; i < n; i++)
        free_history_entry(list.entries[i]);
    memmove(list.entries, list.entries + n,
            sizeof(HIST_ENTRY *) * static_cast<size_t>(list.count - n + 1));
    memmove(list.in_editor, list.in_editor + n, sizeof(bool) * static_cast<size_t>(list.count - n));
    list.count -= n;
    list.pos = list.pos > n ? list.pos - n : 0;
    history_base += n;
    publish();
}

bool push(HIST_ENTRY *e) {
    if (!e) return false;
    if (list.stifled && history_max_entries <= 0) {
        free_history_entry(e);
        return true;
    }
    if (list.stifled && list.count >= history_max_entries)
        drop_oldest(list.count - history_max_entries + 1);
    if (list.count + 1 >= list.cap) {
        const int cap = list.cap ? list.cap * 2 : 64;
        auto *flags = static_cast<bool *>(realloc(list.in_editor, sizeof(bool) * static_cast<size_t>(cap)));
        if (flags) list.in_editor = flags;
        auto *grown = flags ? static_cast<HIST_ENTRY **>(
                                  realloc(list.entries, sizeof(HIST_ENTRY *) * static_cast<size_t>(cap)))
                            : nullptr;
        if (!grown) {
            free_history_entry(e);
            return false;
        }
        list.entries = grown;
        list.cap = cap;
    }
    list.in_editor[list.count] = false;
    list.entries[list.count++] = e;
    list.entries[list.count] = nullptr;
    publish();
    if (list.attached) to_editor(list.count - 1);
    return true;
}

bool valid(int offset) {
    return offset >= 0 && offset < list.count;
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

// The format an existing file is in, else the one a new file gets.
FileFormat format_of(const char *path) {
    char head[13];
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return qv::new_file_format();
    const ssize_t n = read(fd, head, sizeof head);
    close(fd);
    if (n <= 0) return qv::new_file_format();
    return n == sizeof head && memcmp(head, "_HiStOrY_V2_\n", sizeof head) == 0
               ? FileFormat::kLibedit
               : FileFormat::kReadline;
}

// Entries from..to-1 of the list, each after its time stamp when stamps
// are written, in the format.
bool write_entries(int fd, int from, int to, FileFormat format) {
    for (int i = from; i < to; i++) {
        const HIST_ENTRY *e = list.entries[i];
        if (history_write_timestamps && e->timestamp && e->timestamp[0] &&
            format == FileFormat::kReadline &&
            (!write_all(fd, e->timestamp, strlen(e->timestamp)) || !write_all(fd, "\n", 1)))
            return false;
        CharPtr line(qv::encode_entry(e->line, format), &free);
        if (!line) {
            errno = ENOMEM;
            return false;
        }
        if (!write_all(fd, line.get(), strlen(line.get())) || !write_all(fd, "\n", 1)) return false;
    }
    return true;
}

} // namespace

namespace {

// An edit the editor kept with one of its entries, as readline keeps it
// with the entry: the program's list shows it too.
void take_kept_edit(int from_newest, const char *text, void *) {
    for (int i = list.count - 1; i >= 0; i--) {
        if (!list.in_editor[i] || from_newest-- > 0) continue;
        if (char *copy = strdup(text)) {
            free(list.entries[i]->line);
            list.entries[i]->line = copy;
        }
        return;
    }
}

} // namespace

void qv::rl_history_attach() {
    list.attached = true;
    term_setHistoryReporter(take_kept_edit, nullptr);
    resync();
}

void qv::rl_history_rewind() {
    list.pos = list.count;
}

// ---------------------------------------------------------------------------
// The list

void using_history(void) {
    list.pos = list.count;
}

int history_init(void) {
    return 0;
}

void add_history(const char *line) {
    if (!line) return;
    CharPtr stamp = stamp_now();
    push(new_entry(line, strlen(line), stamp.get(), stamp ? strlen(stamp.get()) : 0));
}

void add_history_time(const char *string) {
    if (list.count == 0 || !string) return;
    char *copy = strdup(string);
    if (!copy) return;
    HIST_ENTRY *e = list.entries[list.count - 1];
    free(e->timestamp);
    e->timestamp = copy;
}

void clear_history(void) {
    for (int i = 0; i < list.count; i++)
        free_history_entry(list.entries[i]);
    list.count = 0;
    if (list.entries) list.entries[0] = nullptr;
    list.pos = 0;
    history_base = 1;
    publish();
    if (list.attached) term_clearHistory();
}

void stifle_history(int max) {
    if (max < 0) max = 0;
    list.stifled = true;
    history_max_entries = max;
    if (list.count > max) drop_oldest(list.count - max);
    if (list.attached) term_setHistoryLimit(max);
}

int unstifle_history(void) {
    const bool was = list.stifled;
    list.stifled = false;
    if (list.attached) term_setHistoryLimit(-1);
    return was ? history_max_entries : -history_max_entries;
}

int history_is_stifled(void) {
    return list.stifled;
}

HIST_ENTRY *history_get(int offset) {
    const long i = static_cast<long>(offset) - history_base;
    return i >= 0 && i < list.count ? list.entries[i] : nullptr;
}

HIST_ENTRY **history_list(void) {
    return list.count ? list.entries : nullptr;
}

int where_history(void) {
    return list.pos;
}

int history_set_pos(int offset) {
    if (offset < 0 || offset > list.count) return 0;
    list.pos = offset;
    return 1;
}

HIST_ENTRY *current_history(void) {
    return valid(list.pos) ? list.entries[list.pos] : nullptr;
}

HIST_ENTRY *previous_history(void) {
    return list.pos > 0 && list.count ? list.entries[--list.pos] : nullptr;
}

HIST_ENTRY *next_history(void) {
    return list.pos < list.count ? list.entries[++list.pos] : nullptr;
}

namespace {

int search(const char *string, int direction, bool prefix) {
    if (!string || list.count == 0) return -1;
    const size_t n = strlen(string);
    int i = list.pos >= list.count ? (direction < 0 ? list.count - 1 : list.count) : list.pos;
    for (; i >= 0 && i < list.count; i += direction < 0 ? -1 : 1) {
        const char *line = list.entries[i]->line;
        const char *hit =
            prefix ? (strncmp(line, string, n) == 0 ? line : nullptr) : strstr(line, string);
        if (hit) {
            list.pos = i;
            return static_cast<int>(hit - line);
        }
    }
    return -1;
}

} // namespace

int history_search(const char *string, int direction) {
    return search(string, direction, false);
}

int history_search_prefix(const char *string, int direction) {
    return search(string, direction, true);
}

HIST_ENTRY *remove_history(int which) {
    if (!valid(which)) return nullptr;
    HIST_ENTRY *e = list.entries[which];
    memmove(list.entries + which, list.entries + which + 1,
            sizeof(HIST_ENTRY *) * static_cast<size_t>(list.count - which));
    list.count--;
    if (list.pos > which) list.pos--;
    publish();
    resync();
    return e;
}

HIST_ENTRY *replace_history_entry(int which, const char *line, histdata_t data) {
    if (!valid(which) || !line) return nullptr;
    HIST_ENTRY *old = list.entries[which];
    HIST_ENTRY *e = new_entry(line, strlen(line), old->timestamp, strlen(old->timestamp));
    if (!e) return nullptr;
    e->data = data;
    list.entries[which] = e;
    resync();
    return old;
}

histdata_t free_history_entry(HIST_ENTRY *entry) {
    if (!entry) return nullptr;
    histdata_t data = entry->data;
    free(entry->line);
    free(entry->timestamp);
    free(entry);
    return data;
}

HISTORY_STATE *history_get_history_state(void) {
    auto *state = static_cast<HISTORY_STATE *>(malloc(sizeof(HISTORY_STATE)));
    if (!state) return nullptr;
    *state = HISTORY_STATE{list.entries, list.pos, list.count, list.cap, list.stifled ? 1 : 0};
    return state;
}

int history_total_bytes(void) {
    long total = 0;
    for (int i = 0; i < list.count; i++)
        total += static_cast<long>(strlen(list.entries[i]->line));
    return total > INT_MAX ? INT_MAX : static_cast<int>(total);
}

int history_expand(const char *string, char **output) {
    if (output) *output = strdup(string ? string : "");
    return 0;
}

char *tilde_expand(const char *filename) {
    if (!filename) return nullptr;
    if (filename[0] != '~') return strdup(filename);
    const char *rest = filename + 1 + strcspn(filename + 1, "/");
    const char *home = nullptr;
    if (rest == filename + 1) {
        home = getenv("HOME");
        if (!home || !*home) {
            const passwd *pw = getpwuid(getuid());
            home = pw ? pw->pw_dir : nullptr;
        }
    } else {
        CharPtr user(strndup(filename + 1, static_cast<size_t>(rest - filename - 1)), &free);
        const passwd *pw = user ? getpwnam(user.get()) : nullptr;
        home = pw ? pw->pw_dir : nullptr;
    }
    if (!home) return strdup(filename);
    const size_t n = strlen(home) + strlen(rest) + 1;
    char *out = static_cast<char *>(malloc(n));
    if (out) snprintf(out, n, "%s%s", home, rest);
    return out;
}

// ---------------------------------------------------------------------------
// Files

int read_history_range(const char *filename, int from, int to) {
    size_t size = 0;
    int err = 0;
    CharPtr data = slurp(file_name(filename).get(), &size, &err);
    if (!data) return err;
    int index = 0;
    qv::each_record(data.get(), size, history_comment_char, [&](const qv::FileRecord &r) {
        const int i = index++;
        if (err || i < from || (to >= 0 && i >= to)) return;
        if (!push(new_entry(r.line, r.len, r.stamp, r.stamp_len))) err = ENOMEM;
    });
    list.pos = list.count;
    return err;
}

int read_history(const char *filename) {
    return read_history_range(filename, 0, -1);
}

int write_history(const char *filename) {
    CharPtr path = file_name(filename);
    if (!path) return ENOMEM;
    const FileFormat format = format_of(path.get());
    return replace_file(path.get(), [&](int fd) {
        const char *header = qv::format_header(format);
        return write_all(fd, header, strlen(header)) && write_entries(fd, 0, list.count, format);
    });
}

int append_history(int n, const char *filename) {
    CharPtr path = file_name(filename);
    if (!path) return ENOMEM;
    const FileFormat format = format_of(path.get());
    // An existing file only, as readline has it: appending to nothing is
    // more likely a wrong name than a first save.
    const int fd = open(path.get(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0) return errno;
    if (n > list.count) n = list.count;
    int err = 0;
    errno = 0;
    if (n > 0 && !write_entries(fd, list.count - n, list.count, format)) err = errno ? errno : EIO;
    if (close(fd) != 0 && !err) err = errno;
    return err;
}

int history_truncate_file(const char *filename, int lines) {
    CharPtr path = file_name(filename);
    size_t size = 0;
    int err = 0;
    CharPtr data = slurp(path.get(), &size, &err);
    if (!data) return err;
    if (lines < 0) lines = 0;
    // Whole entries are kept, each with its stamp: the file is read as
    // records and the last ones written back in the same format.
    int total = 0;
    const FileFormat format = qv::each_record(data.get(), size, history_comment_char,
                                              [&](const qv::FileRecord &) { total++; });
    if (total <= lines) return 0;
    data = slurp(path.get(), &size, &err);
    if (!data) return err;
    int index = 0;
    const int skip = total - lines;
    return replace_file(path.get(), [&](int fd) {
        const char *header = qv::format_header(format);
        bool ok = write_all(fd, header, strlen(header));
        qv::each_record(data.get(), size, history_comment_char, [&](const qv::FileRecord &r) {
            if (!ok || index++ < skip) return;
            if (r.stamp && !(write_all(fd, r.stamp, r.stamp_len) && write_all(fd, "\n", 1)))
                ok = false;
            CharPtr line(strndup(r.line, r.len), &free);
            CharPtr encoded(line ? qv::encode_entry(line.get(), format) : nullptr, &free);
            if (!encoded || !write_all(fd, encoded.get(), strlen(encoded.get())) ||
                !write_all(fd, "\n", 1))
                ok = false;
        });
        return ok;
    });
}
