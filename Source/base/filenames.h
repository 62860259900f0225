/* What a file name completion takes, shared by the file name completion of
   both libraries, so that readline's variables mean the same in each.
   Library-internal. */
#ifndef QUORVEL_FILENAMES_H
#define QUORVEL_FILENAMES_H

#ifdef __cplusplus
#include <cctype>
#include <cstring>

#include <sys/stat.h>

namespace qv {

// readline's variables that decide which names a file name completion takes.
struct FileNameRules {
    bool any_case;   // completion-ignore-case
    bool map_case;   // completion-map-case: with any_case, '-' and '_' are one
    bool hidden;     // match-hidden-files: a dot file without a typed dot
};

inline unsigned char folded(unsigned char ch, const FileNameRules &r) {
    if (r.any_case && r.map_case && ch == '_') return '-';
    // Only ASCII folds: a byte of a UTF-8 sequence is never a letter here.
    return r.any_case && ch < 0x80 ? static_cast<unsigned char>(tolower(ch)) : ch;
}

// Whether a and b agree in their first n bytes under the rules.
inline bool same_start(const char *a, const char *b, size_t n, const FileNameRules &r) {
    for (size_t i = 0; i < n; i++) {
        const auto x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if (!x || !y || folded(x, r) != folded(y, r)) return false;
    }
    return true;
}

// Whether the directory entry `name` completes the typed last part `part`.
inline bool file_name_matches(const char *name, const char *part, const FileNameRules &r) {
    if (!strcmp(name, ".") || !strcmp(name, "..")) return false;
    if (name[0] == '.' && part[0] != '.' && !r.hidden) return false;
    return same_start(name, part, strlen(part), r);
}

// readline's mark-directories and mark-symlinked-directories: whether a
// completed name gets a slash, so the next Tab goes on inside it.
inline bool marks_as_directory(const char *path, bool mark_dirs, bool mark_links) {
    struct stat st {};
    if (!mark_dirs || stat(path, &st) != 0 || !S_ISDIR(st.st_mode)) return false;
    struct stat link {};
    return mark_links || lstat(path, &link) != 0 || !S_ISLNK(link.st_mode);
}

} // namespace qv
#endif

#endif
