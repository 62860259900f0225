/* The history list of the readline-compatible library and its files.
   Library-internal. */
#ifndef QUORVEL_RLHISTORY_H
#define QUORVEL_RLHISTORY_H

#ifdef __cplusplus
#include <cstddef>

namespace qv {

// Hands the list to the editor, whose instance exists from now on: every
// entry and the limit go to it, and later changes follow as they happen.
void rl_history_attach();
// A new line begins: the walk goes past the newest entry.
void rl_history_rewind();

// One entry of a history file: its line and, when the file had one, the
// time stamp line before it (without its line break). Both point into the
// file's bytes.
struct FileRecord {
    const char *line;
    size_t len;
    const char *stamp;
    size_t stamp_len;
};

enum class FileFormat { kReadline, kLibedit };

// The entries of a history file's bytes, in order, decoded in place (a
// libedit file's escapes); a line holding a NUL byte is dropped. Calls
// take(record) for each; answers the file's format.
template <typename F> FileFormat each_record(char *data, size_t size, char comment, F take);
// An entry as a line of the format, without the line break: a malloc'ed
// string, NULL when memory ran out.
char *encode_entry(const char *line, FileFormat format);
// The header a file of the format starts with ("" for readline's).
const char *format_header(FileFormat format);
// The format a new file gets: libedit's in a process that has libedit.
FileFormat new_file_format();
// Decodes a libedit line in place; answers its new length.
size_t decode_libedit(char *line, size_t len);

template <typename F> FileFormat each_record(char *data, size_t size, char comment, F take) {
    FileFormat format = FileFormat::kReadline;
    size_t start = 0;
    static constexpr char kMagic[] = "_HiStOrY_V2_\n";
    if (size >= sizeof kMagic - 1 && __builtin_memcmp(data, kMagic, sizeof kMagic - 1) == 0) {
        format = FileFormat::kLibedit;
        start = sizeof kMagic - 1;
    }
    const char mark = comment ? comment : '#';
    auto is_stamp = [&](const char *s, size_t n) {
        return n >= 2 && s[0] == mark && s[1] >= '0' && s[1] <= '9';
    };
    // As readline has it: time stamps only in a file that starts with one,
    // so that an entry that merely looks like one is kept as it is.
    bool stamps = false;
    const char *stamp = nullptr;
    size_t stamp_len = 0;
    bool first = true;
    for (size_t i = start; i <= size; i++) {
        if (i < size && data[i] != '\n') continue;
        if (i == size && start == size) break;
        char *line = data + start;
        size_t len = i - start;
        start = i + 1;
        if (first && format == FileFormat::kReadline && is_stamp(line, len)) stamps = true;
        first = false;
        if (stamps && is_stamp(line, len)) {
            stamp = line;
            stamp_len = len;
            continue;
        }
        if (__builtin_memchr(line, 0, len) != nullptr) {
            stamp = nullptr;
            continue;
        }
        if (format == FileFormat::kLibedit) len = decode_libedit(line, len);
        if (__builtin_memchr(line, 0, len) != nullptr) {
            stamp = nullptr;
            continue;
        }
        take(FileRecord{line, len, stamp, stamp ? stamp_len : 0});
        stamp = nullptr;
    }
    return format;
}

} // namespace qv
#endif

#endif
