// The history file "term.history": UTF-8, one entry per line, oldest first.
//
// Several sessions share one file, and a session may know only part of it (a
// load that failed, or none at all). So a save never writes the list it has
// in memory: it takes the file as it is now, under a lock, adds the entries
// this session made, and puts the result in place with a rename. The file's
// own lines travel as bytes, so whatever this session could not decode comes
// through untouched.
#include "historyfile.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fdio.h"
#include "console_record.h"
#include "text.h"
#include "qv_assert.h"
#include "session.h"

char *history_directory = nullptr;

// Another session's directory: the default session's is the published one.
struct qv::HistoryDir {
    char *path;
};

namespace {

// Null for a session that keeps no file.
const qv::HistoryDir *session_dir() {
    const qv::Session *s = qv::current_session();
    return s ? static_cast<const qv::HistoryDir *>(s->slot[qv::kSlotHistoryFile]) : nullptr;
}

} // namespace

qv::HistoryDir *qv::history_dir_new(const char *path) {
    auto *d = static_cast<HistoryDir *>(calloc(1, sizeof(HistoryDir)));
    if (d && !(d->path = strdup(path))) {
        free(d);
        return nullptr;
    }
    return d;
}

void qv::history_dir_free(HistoryDir *d) {
    if (d) free(d->path);
    free(d);
}

// Entries added since the last save, as the file's lines (UTF-8).
struct qv::FileState {
    char **fresh;
    int nfresh, capfresh;
    bool loading; // entries now added come from the file
};

namespace {

using CharPtr = std::unique_ptr<char, decltype(&free)>;

qv::FileState *file_of(const console *c) { return c->state ? c->state->file : nullptr; }
using WidePtr = std::unique_ptr<wchar_t, decltype(&free)>;

// One entry as the file holds it: a backslash before a line break drops
// both (a continued line joins up), any other line break becomes a space, so
// an entry stays one line. Line breaks are single bytes in UTF-8, so the
// entry's bytes are rewritten as they stand.
char *file_line(const char *text, size_t n) {
    auto *out = static_cast<char *>(malloc(n + 1));
    if (!out) return nullptr;
    size_t k = 0;
    for (size_t i = 0; i < n; i++) {
        const char ch = text[i];
        const char next = i + 1 < n ? text[i + 1] : 0;
        if (ch == '\\' && (next == '\n' || next == '\r'))
            i++;
        else
            out[k++] = ch == '\n' || ch == '\r' ? ' ' : ch;
    }
    out[k] = 0;
    return out;
}

// The whole content of the file open at fd, from its start.
struct Bytes {
    char *data = nullptr;
    size_t size = 0;
    Bytes() = default;
    Bytes(const Bytes &) = delete;
    Bytes &operator=(const Bytes &) = delete;
    ~Bytes() { free(data); }
};

bool read_all(int fd, Bytes &b) {
    size_t cap = 0;
    if (lseek(fd, 0, SEEK_SET) < 0) return false;
    for (;;) {
        if (b.size == cap) {
            const size_t grown = cap ? cap * 2 : 4096;
            auto *p = static_cast<char *>(realloc(b.data, grown));
            if (!p) return false;
            b.data = p;
            cap = grown;
        }
        const ssize_t r = read(fd, b.data + b.size, cap - b.size);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return false;
        if (r == 0) return true;
        b.size += static_cast<size_t>(r);
    }
}

struct Line {
    const char *text;
    size_t len;
};

// Calls f for every non-empty line; a last line without its line feed counts.
template <class F> void for_each_line(const Bytes &b, F f) {
    const char *p = b.data, *end = b.data + b.size;
    while (p < end) {
        const auto *nl = static_cast<const char *>(memchr(p, '\n', static_cast<size_t>(end - p)));
        const char *stop = nl ? nl : end;
        if (stop > p) f(Line{p, static_cast<size_t>(stop - p)});
        p = stop + 1;
    }
}

// Opens path without blocking on a FIFO or a device; -1 unless it is a
// regular file. A file it creates is the user's alone: people type
// passwords and host names at prompts.
int open_regular(const char *path, int flags) {
    struct stat st;
    if (stat(path, &st) == 0 && !S_ISREG(st.st_mode)) return -1;
    const int fd = open(path, flags | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0) return -1;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return -1;
    }
    return fd;
}

// The file a chain of symbolic links ends at, so that a save replaces the
// file and keeps the links (a history kept with one's dotfiles). A dangling
// link gives the path it points to. NULL for a loop or no memory.
char *resolve_links(const char *path) {
    CharPtr cur(strdup(path), &free);
    for (int hops = 0; cur && hops < 40; hops++) {
        struct stat st;
        if (lstat(cur.get(), &st) != 0 || !S_ISLNK(st.st_mode)) return cur.release();
        char target[PATH_MAX];
        const ssize_t n = readlink(cur.get(), target, sizeof target - 1);
        if (n < 0) return nullptr;
        target[n] = 0;
        const char *slash = strrchr(cur.get(), '/');
        if (target[0] == '/' || !slash) {
            cur.reset(strdup(target));
            continue;
        }
        const auto dir = static_cast<size_t>(slash - cur.get()) + 1;
        CharPtr joined(static_cast<char *>(malloc(dir + static_cast<size_t>(n) + 1)), &free);
        if (!joined) return nullptr;
        memcpy(joined.get(), cur.get(), dir);
        memcpy(joined.get() + dir, target, static_cast<size_t>(n) + 1);
        cur = std::move(joined);
    }
    return nullptr;
}

using qv::write_all;

// Output gathered into blocks, so a long history costs few system calls.
class Writer {
  public:
    explicit Writer(int fd) : fd_(fd) {}
    void put(const char *p, size_t n) {
        if (!ok_) return;
        if (used_ + n > sizeof buf_) {
            ok_ = write_all(fd_, buf_, used_);
            used_ = 0;
            if (!ok_ || n > sizeof buf_) {
                ok_ = ok_ && write_all(fd_, p, n);
                return;
            }
        }
        memcpy(buf_ + used_, p, n);
        used_ += n;
    }
    bool finish() {
        if (ok_ && used_ > 0) ok_ = write_all(fd_, buf_, used_);
        used_ = 0;
        return ok_;
    }

  private:
    int fd_;
    bool ok_ = true;
    size_t used_ = 0;
    char buf_[8192];
};

// Writes lines to a new file beside target and renames it over target. On
// any failure the target stays exactly as it was.
bool replace_file(const char *target, mode_t mode, const Line *lines, size_t n) {
    const size_t len = strlen(target);
    CharPtr tmp(static_cast<char *>(malloc(len + 8)), &free);
    if (!tmp) return false;
    memcpy(tmp.get(), target, len);
    memcpy(tmp.get() + len, ".XXXXXX", 8);
    const int fd = mkostemp(tmp.get(), O_CLOEXEC);
    if (fd < 0) return false;
    fchmod(fd, mode);
    Writer out(fd);
    for (size_t i = 0; i < n; i++) {
        out.put(lines[i].text, lines[i].len);
        out.put("\n", 1);
    }
    bool ok = out.finish();
    ok = fsync(fd) == 0 && ok;
    ok = close(fd) == 0 && ok;
    if (!ok || rename(tmp.get(), target) != 0) {
        unlink(tmp.get());
        return false;
    }
    // The rename itself reaches the disk with the directory.
    const char *slash = strrchr(target, '/');
    CharPtr dir(slash ? strndup(target, static_cast<size_t>(slash - target) + 1) : strdup("."),
                &free);
    const int dfd = dir ? open(dir.get(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
    if (dfd >= 0) {
        fsync(dfd);
        close(dfd);
    }
    return true;
}

// This session's entries added at the end of the file open (for writing)
// at fd, the way a merge would add them, when nothing has to leave it: the
// cost of a save is then that of the new entries, however long the file.
// The file's last line comes from whole, its content when read already, or
// from its end. On a failed write the file is cut back to where it ended.
// False (the file as it was) when that could not be done.
bool append_fresh(console *c, int fd, const Bytes *whole) {
    const qv::FileState *st = file_of(c);
    struct stat info;
    if (!st || fstat(fd, &info) != 0) return false;
    const auto size = static_cast<size_t>(info.st_size);
    if (whole && whole->size != size) return false;
    constexpr size_t kTail = 65536;
    const size_t have = whole ? size : size < kTail ? size : kTail;
    CharPtr from_end(whole ? nullptr : static_cast<char *>(malloc(have + 1)), &free);
    if (!whole && (!from_end ||
                   pread(fd, from_end.get(), have, static_cast<off_t>(size - have)) != static_cast<ssize_t>(have)))
        return false;
    const char *tail = whole ? whole->data : from_end.get();
    // The last line that is not empty: the one a new entry must not repeat.
    size_t end = have;
    while (end > 0 && tail[end - 1] == '\n') end--;
    const auto *nl = static_cast<const char *>(memrchr(tail, '\n', end));
    if (!nl && size > have) return false; // the last line starts further back than was read
    Line last{nl ? nl + 1 : tail, 0};
    last.len = static_cast<size_t>(tail + end - last.text);
    size_t bytes = 1;
    for (int i = 0; i < st->nfresh; i++) bytes += strlen(st->fresh[i]) + 1;
    CharPtr out(static_cast<char *>(malloc(bytes)), &free);
    if (!out) return false;
    size_t used = 0;
    if (have > 0 && tail[have - 1] != '\n') out.get()[used++] = '\n';
    for (int i = 0; i < st->nfresh; i++) {
        const Line line{st->fresh[i], strlen(st->fresh[i])};
        const bool repeat = last.len == line.len && memcmp(last.text, line.text, line.len) == 0;
        if (repeat && !c->history_allow_duplicates) continue;
        memcpy(out.get() + used, line.text, line.len);
        used += line.len;
        out.get()[used++] = '\n';
        last = Line{out.get() + used - 1 - line.len, line.len};
    }
    if (used == 0 || (used == 1 && out.get()[0] == '\n')) return true; // every one repeats the file
    if (lseek(fd, 0, SEEK_END) < 0) return false;
    if (!qv::write_all(fd, out.get(), used) || fsync(fd) != 0) {
        if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
            // Nothing more to be done: the old lines are still all there.
        }
        return false;
    }
    return true;
}

// The merge, with the lock on the file held: the file's entries, then this
// session's, newest last, capped at max.
bool merge_into(console *c, int fd, const char *target, mode_t mode) {
    const bool writable = (fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDWR;
    const qv::FileState *st = file_of(c);
    const size_t fresh = st ? static_cast<size_t>(st->nfresh) : 0;
    // Without a limit nothing ever leaves: the file need not even be read.
    if (writable && c->history_max == INT32_MAX && append_fresh(c, fd, nullptr)) return true;
    Bytes old;
    if (!read_all(fd, old)) return false;
    size_t n = 0;
    for_each_line(old, [&](Line) { n++; });
    if (writable && c->history_max >= 0 && n + fresh <= static_cast<size_t>(c->history_max) &&
        append_fresh(c, fd, &old))
        return true;
    std::unique_ptr<Line, decltype(&free)> lines(
        static_cast<Line *>(malloc(sizeof(Line) * (n + fresh + 1))), &free);
    if (!lines) return false;
    Line *l = lines.get();
    n = 0;
    for_each_line(old, [&](Line line) { l[n++] = line; });
    for (size_t i = 0; i < fresh; i++) {
        const Line line{st->fresh[i], strlen(st->fresh[i])};
        const bool repeat = n > 0 && l[n - 1].len == line.len &&
                            memcmp(l[n - 1].text, line.text, line.len) == 0;
        if (!repeat || c->history_allow_duplicates) l[n++] = line;
    }
    const size_t max = c->history_max > 0 ? static_cast<size_t>(c->history_max) : n;
    const size_t first = n > max ? n - max : 0;
    return replace_file(target, mode, l + first, n - first);
}

} // namespace

// ---------------------------------------------------------------------------
// Entries kept for the next save

namespace {

void note_new(console *c, const char *text, size_t n) {
    qv::FileState *st = file_of(c);
    if (!st || st->loading) return;
    char *line = file_line(text, n);
    if (!line) return;
    if (st->nfresh > 0 && st->nfresh >= c->history_max) {
        // Only the newest history_max can survive a save anyway.
        free(st->fresh[0]);
        memmove(st->fresh, st->fresh + 1, sizeof(char *) * static_cast<size_t>(st->nfresh - 1));
        st->nfresh--;
    }
    if (st->nfresh == st->capfresh) {
        const int cap = st->capfresh ? st->capfresh * 2 : 16;
        auto *grown = static_cast<char **>(realloc(st->fresh, sizeof(char *) * static_cast<size_t>(cap)));
        if (!grown) {
            free(line);
            return;
        }
        st->fresh = grown;
        st->capfresh = cap;
    }
    st->fresh[st->nfresh++] = line;
}

void forget(qv::FileState *st) {
    for (int i = 0; i < st->nfresh; i++) free(st->fresh[i]);
    free(st->fresh);
    st->fresh = nullptr;
    st->nfresh = st->capfresh = 0;
}

} // namespace

qv::FileState *qv::history_file_new() { return static_cast<FileState *>(calloc(1, sizeof(FileState))); }

void qv::history_file_free(FileState *st) {
    if (!st) return;
    forget(st);
    free(st);
}

void qv::history_file_attach(console *c) { history_observe(c, note_new); }

void qv::history_forget_new(console *c) {
    if (FileState *st = file_of(c)) forget(st);
}

// ---------------------------------------------------------------------------
// The file

char *history_get_filepath(void) {
    static const char kName[] = "term.history";
    const qv::HistoryDir *own = session_dir();
    const qv::Session *s = qv::current_session();
    // Another session keeps its history in memory unless given a directory.
    if (s && !own) return nullptr;
    const char *where = own ? own->path : history_directory;
    if (!where) return strdup(kName);
    const size_t dir = strlen(where);
    auto *path = static_cast<char *>(malloc(dir + 1 + sizeof(kName)));
    if (!path) return nullptr;
    memcpy(path, where, dir);
    path[dir] = '/';
    memcpy(path + dir + 1, kName, sizeof(kName));
    return path;
}

// A backslash before a line break drops both (a continued line joins up);
// any other line break becomes a space, so an entry stays one line.
wchar_t *encode_special_chars(const wchar_t *text, uint32_t len, uint32_t *k) {
    auto *out = static_cast<wchar_t *>(malloc((static_cast<size_t>(len) + 1) * sizeof(wchar_t)));
    if (!out) return nullptr;
    uint32_t n = 0;
    for (uint32_t i = 0; i < len; i++) {
        const wchar_t ch = text[i];
        const wchar_t next = i + 1 < len ? text[i + 1] : 0;
        if (ch == '\\' && (next == 10 || next == 13)) {
            i++;
        } else if (ch == 10 || ch == 13) {
            out[n++] = ' ';
        } else {
            out[n++] = ch;
        }
    }
    QV_ASSERT(n <= len);
    out[n] = 0;
    if (k) *k = n;
    return out;
}

void history_save(console *c, const char *path) {
    // Nothing new: the file stays exactly as it is, and none is created.
    if (!path || !file_of(c) || file_of(c)->nfresh == 0) return;
    CharPtr target(resolve_links(path), &free);
    if (!target) return;
    // The lock lives on the file, and a rename by another session replaces
    // that file: whoever then gets the lock on the old one tries again.
    for (int attempt = 0; attempt < 100; attempt++) {
        int fd = open_regular(target.get(), O_RDWR | O_CREAT);
        if (fd < 0) fd = open_regular(target.get(), O_RDONLY);
        if (fd < 0) return;
        int locked;
        while ((locked = flock(fd, LOCK_EX)) != 0 && errno == EINTR) {
        }
        struct stat held, now;
        const bool current = locked == 0 && fstat(fd, &held) == 0 &&
                             stat(target.get(), &now) == 0 && held.st_ino == now.st_ino &&
                             held.st_dev == now.st_dev;
        if (current && merge_into(c, fd, target.get(), held.st_mode & 07777))
            qv::history_forget_new(c);
        close(fd);
        if (current || locked != 0) return;
    }
}

void history_add_character_range(console *c, const char *start, const char *end) {
    if (!start || end <= start) return;
    const auto n = static_cast<size_t>(end - start);
    CharPtr bytes(static_cast<char *>(malloc(n + 1)), &free);
    if (!bytes) return;
    memcpy(bytes.get(), start, n);
    bytes.get()[n] = 0;
    history_add_string(c, bytes.get());
}

void history_add_string(console *c, const char *s) {
    int count = 0;
    WidePtr wide(cp2wchar(c, s, &count), &free);
    if (!wide) return;
    history_add(c, wide.get(), static_cast<uint32_t>(count));
}

void history_load(console *c, const char *path) {
    if (!path) return;
    const int fd = open_regular(path, O_RDONLY);
    if (fd < 0) return;
    Bytes b;
    const bool ok = read_all(fd, b);
    close(fd);
    if (!ok) return;
    // The file's entries are in the file already: a save must not add them.
    qv::FileState *st = file_of(c);
    if (st) st->loading = true;
    // As the host's additions, loading leaves a walk through the list (and
    // the line it saved) as it was: a load may come from a callback.
    // Kept as they stand: entries are UTF-8 too. A line that is not
    // (or holds a NUL) stays in the file and out of the list.
    for_each_line(b, [&](Line l) {
        if (l.len > 0 && qv::utf8_valid(l.text, l.len)) qv::history_append_utf8(c, l.text, l.len);
    });
    if (st) st->loading = false;
}
