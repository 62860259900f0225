// The two history file formats readline-compatible programs meet: readline's
// (a line an entry, as it is) and libedit's (a header, then each entry with
// blanks, backslashes and control characters written as octal escapes).
#include "rlhistory.h"

#include <cstdlib>
#include <cstring>

#include <link.h>

namespace {

bool is_octal(char ch) {
    return ch >= '0' && ch <= '7';
}

// What libedit escapes: everything that would break the line apart or be
// read back as an escape. Bytes above 127 stay as they are, so UTF-8 text
// stays readable.
bool needs_escape(unsigned char ch) {
    return ch <= ' ' || ch == '\\' || ch == 127;
}

int find_libedit(dl_phdr_info *info, size_t, void *) {
    return info->dlpi_name && strstr(info->dlpi_name, "libedit.so") ? 1 : 0;
}

} // namespace

const char *qv::format_header(FileFormat format) {
    return format == FileFormat::kLibedit ? "_HiStOrY_V2_\n" : "";
}

qv::FileFormat qv::new_file_format() {
    return dl_iterate_phdr(find_libedit, nullptr) ? FileFormat::kLibedit : FileFormat::kReadline;
}

char *qv::encode_entry(const char *line, FileFormat format) {
    if (format == FileFormat::kReadline) return strdup(line);
    char *out = static_cast<char *>(malloc(strlen(line) * 4 + 1));
    if (!out) return nullptr;
    char *w = out;
    for (const unsigned char *r = reinterpret_cast<const unsigned char *>(line); *r; r++) {
        if (!needs_escape(*r)) {
            *w++ = static_cast<char>(*r);
            continue;
        }
        *w++ = '\\';
        *w++ = static_cast<char>('0' + (*r >> 6));
        *w++ = static_cast<char>('0' + ((*r >> 3) & 7));
        *w++ = static_cast<char>('0' + (*r & 7));
    }
    *w = 0;
    return out;
}

// libedit reads its own octal escapes, and C-style ones other writers used;
// an escape it cannot read is kept as it stands.
size_t qv::decode_libedit(char *line, size_t len) {
    size_t w = 0;
    for (size_t r = 0; r < len; r++) {
        if (line[r] != '\\' || r + 1 == len) {
            line[w++] = line[r];
            continue;
        }
        const char next = line[r + 1];
        if (is_octal(next)) {
            unsigned v = 0;
            size_t k = r + 1;
            for (int digits = 0; digits < 3 && k < len && is_octal(line[k]); digits++, k++)
                v = v * 8 + static_cast<unsigned>(line[k] - '0');
            line[w++] = static_cast<char>(v & 0xFF);
            r = k - 1;
            continue;
        }
        static constexpr char kFrom[] = "\\ntrbavfsE";
        static constexpr char kTo[] = "\\\n\t\r\b\a\v\f \033";
        const char *hit = strchr(kFrom, next);
        if (hit && next) {
            line[w++] = kTo[hit - kFrom];
            r++;
        } else {
            line[w++] = line[r];
        }
    }
    return w;
}
