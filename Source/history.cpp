// The history list (oldest to newest), its navigation state, and the history
// file "term.history": UTF-8, one entry per line, oldest first.
#include "history.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "console.h"
#include "text.h"
#include "qv_assert.h"

namespace {

using CharPtr = std::unique_ptr<char, decltype(&free)>;
using WidePtr = std::unique_ptr<wchar_t, decltype(&free)>;

void free_entry(history_entry *e) {
    free(e->text);
    free(e);
}

} // namespace

wchar_t *make_string_copy(const wchar_t *text, uint32_t n) {
    if (!text) return nullptr;
    auto *copy = static_cast<wchar_t *>(calloc(static_cast<size_t>(n) + 1, sizeof(wchar_t)));
    if (!copy) return nullptr;
    for (uint32_t i = 0; i < n && text[i] != 0; i++) copy[i] = text[i];
    copy[n] = 0;
    return copy;
}

history_t *history_new(void) { return static_cast<history_t *>(calloc(1, sizeof(history_t))); }

void history_clear(console *c) {
    history_t *h = c->history;
    for (history_entry *e = h->first; e;) {
        history_entry *next = e->next;
        free_entry(e);
        e = next;
    }
    history_cleanup_temp(c);
    h->first = h->last = h->current = nullptr;
    h->count = 0;
}

int top_is_duplicate(console *c, const wchar_t *text, uint32_t n) {
    const history_entry *top = c->history->last;
    return top && top->length == n && wcscmp(top->text, text) == 0;
}

void history_add(console *c, const wchar_t *text, uint32_t n) {
    history_t *h = c->history;
    if (c->history_add_unchanged == 0 && h->dirty == 0) return;
    if (c->masked) return;
    auto *e = static_cast<history_entry *>(calloc(1, sizeof(history_entry)));
    if (!e) return;
    e->text = make_string_copy(text, n);
    if (!e->text) {
        free(e);
        return;
    }
    e->length = n;
    if (!h->last) {
        QV_ASSERT(h->first == NULL);
        h->first = h->last = e;
        h->count = 1;
    } else {
        QV_ASSERT(h->first != NULL);
        if (c->history_allow_duplicates == 0 && top_is_duplicate(c, e->text, n)) {
            free_entry(e);
        } else {
            e->prev = h->last;
            h->last->next = e;
            h->last = e;
            if (h->count < c->history_max) {
                h->count++;
            } else {
                history_entry *oldest = h->first;
                h->first = oldest->next;
                h->first->prev = nullptr;
                free_entry(oldest);
            }
        }
    }
    history_cleanup_temp(c);
    h->current = nullptr;
    h->dirty = 0;
}

history_line *history_get(console *c, int direction) {
    history_t *h = c->history;
    if (direction < 0) {
        if (!h->current)
            h->current = h->last;
        else if (h->current->prev)
            h->current = h->current->prev;
        else
            return nullptr;
    } else if (direction > 0) {
        if (!h->current) return nullptr;
        if (h->current->next) {
            h->current = h->current->next;
        } else {
            if (!h->saved) return nullptr;
            h->current = nullptr;
            return h->saved;
        }
    }
    return reinterpret_cast<history_line *>(h->current);
}

void history_set_earliest(console *c) { c->history->current = c->history->first; }

void history_set_latest(console *c) { c->history->current = nullptr; }

void history_save_current_buffer(console *c, const wchar_t *line, uint32_t n) {
    QV_ASSERT(line != NULL);
    history_t *h = c->history;
    if (h->saved && h->dirty) history_cleanup_temp(c);
    if (!h->saved) {
        auto *saved = static_cast<history_line *>(malloc(sizeof(history_line)));
        if (saved) {
            saved->text = make_string_copy(line, n);
            saved->length = n;
            if (saved->text)
                h->saved = saved;
            else
                free(saved);
        }
    }
    if (h->saved) h->dirty = 0;
}

void history_cleanup_temp(console *c) {
    history_t *h = c->history;
    if (!h->saved) return;
    free(h->saved->text);
    free(h->saved);
    h->saved = nullptr;
}

void history_set_dirty(console *c) { c->history->dirty = 1; }

int history_is_dirty(console *c) { return c->history->dirty; }

void history_print_all(console *c) {
    for (const history_entry *e = c->history->first; e; e = e->next) {
        CharPtr line(wchar2cp(c, e->text, static_cast<int>(e->length)), &free);
        if (!line) continue;
        fputs(line.get(), stdout);
        fputc('\n', stdout);
    }
}

// ---------------------------------------------------------------------------
// The history file

char *history_get_filepath(void) {
    static const char kName[] = "term.history";
    if (!history_directory) return strdup(kName);
    const size_t dir = strlen(history_directory);
    auto *path = static_cast<char *>(malloc(dir + 1 + sizeof(kName)));
    if (!path) return nullptr;
    memcpy(path, history_directory, dir);
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

namespace {

bool write_entries(console *c, FILE *f) {
    for (const history_entry *e = c->history->first; e; e = e->next) {
        uint32_t k = 0;
        WidePtr enc(encode_special_chars(e->text, e->length, &k), &free);
        if (!enc) continue;
        CharPtr line(wchar2cp(c, enc.get(), static_cast<int>(k)), &free);
        if (!line) continue;
        if (fprintf(f, "%s\n", line.get()) < 0) return false;
    }
    return fflush(f) == 0 && !ferror(f);
}

void save_in_place(console *c, const char *path) {
    FILE *f = fopen(path, "w");
    if (!f) return;
    write_entries(c, f);
    fclose(f);
}

} // namespace

// The new content goes to a temporary file beside the old one and is renamed
// over it, so a crash or a full disk mid-save leaves the old history intact.
// Only when no temporary file can be made is the file rewritten in place.
void history_save(console *c, const char *path) {
    if (!path) return;
    struct stat old;
    const bool exists = lstat(path, &old) == 0;
    if (exists && !S_ISREG(old.st_mode)) {
        // A link or something stranger: rewrite through it, keep it as it is.
        if (!S_ISDIR(old.st_mode)) save_in_place(c, path);
        return;
    }
    const size_t len = strlen(path);
    CharPtr tmp(static_cast<char *>(malloc(len + 8)), &free);
    if (!tmp) return;
    memcpy(tmp.get(), path, len);
    memcpy(tmp.get() + len, ".XXXXXX", 8);
    const int fd = mkostemp(tmp.get(), O_CLOEXEC);
    if (fd < 0) {
        save_in_place(c, path);
        return;
    }
    mode_t mode;
    if (exists) {
        mode = old.st_mode & 07777;
    } else {
        const mode_t mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    }
    fchmod(fd, mode);
    FILE *f = fdopen(fd, "w");
    if (!f) {
        close(fd);
        unlink(tmp.get());
        save_in_place(c, path);
        return;
    }
    bool ok = write_entries(c, f);
    ok = fsync(fd) == 0 && ok;
    ok = fclose(f) == 0 && ok;
    if (!ok || rename(tmp.get(), path) != 0) unlink(tmp.get());
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

namespace {

constexpr size_t kBlock = 1024;

// Appends n bytes to the pending partial line, doubling its capacity while
// the free room is not larger than what comes.
bool append_pending(char *&tmpbuf, char *&tmpptr, size_t &cap, const char *p, size_t n) {
    size_t used = static_cast<size_t>(tmpptr - tmpbuf);
    while (cap - used <= n) {
        auto *grown = static_cast<char *>(realloc(tmpbuf, cap * 2));
        if (!grown) return false;
        tmpbuf = grown;
        tmpptr = grown + used;
        cap *= 2;
    }
    memcpy(tmpptr, p, n);
    tmpptr += n;
    return true;
}

} // namespace

void history_load(console *c, const char *path) {
    if (!path) return;
    FILE *f = fopen(path, "r");
    if (!f) return;
    char *block = static_cast<char *>(malloc(kBlock + 1));
    char *tmpbuf = nullptr, *tmpptr = nullptr;
    size_t cap = 0;
    bool ok = block != nullptr;
    while (ok) {
        const size_t got = fread(block, 1, kBlock, f);
        if (got == 0) break;
        block[got] = 0;
        // From here on the block is a string: a NUL byte hides the rest.
        const char *p = block;
        const char *end = block + strlen(block);
        if (tmpbuf) {
            const auto *nl = static_cast<const char *>(memchr(p, '\n', end - p));
            if (!nl) {
                ok = append_pending(tmpbuf, tmpptr, cap, p, static_cast<size_t>(end - p));
                continue;
            }
            ok = append_pending(tmpbuf, tmpptr, cap, p, static_cast<size_t>(nl - p));
            if (!ok) break;
            *tmpptr = 0;
            history_add_string(c, tmpbuf);
            free(tmpbuf);
            tmpbuf = tmpptr = nullptr;
            p = nl + 1;
        }
        for (const char *nl; (nl = static_cast<const char *>(memchr(p, '\n', end - p)));) {
            history_add_character_range(c, p, nl);
            p = nl + 1;
        }
        QV_ASSERT(tmpbuf == NULL);
        const auto rest = static_cast<size_t>(end - p);
        cap = rest + kBlock + 1;
        tmpbuf = static_cast<char *>(malloc(cap));
        if (!tmpbuf) break;
        memcpy(tmpbuf, p, rest);
        tmpptr = tmpbuf + rest;
    }
    if (ok) {
        QV_ASSERT((tmpbuf == NULL && tmpptr == NULL) || (tmpbuf != NULL && tmpptr != NULL));
        if (tmpbuf && tmpptr > tmpbuf) history_add_character_range(c, tmpbuf, tmpptr);
    }
    free(tmpbuf);
    free(block);
    fclose(f);
}
