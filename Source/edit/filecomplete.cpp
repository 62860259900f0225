// File names as candidates, whatever the host completes. readline's
// variables decide which names match (completion-ignore-case,
// completion-map-case, match-hidden-files), which get a slash
// (mark-directories, mark-symlinked-directories) and whether a leading ~
// stays as typed (expand-tilde).
#include "filecomplete.h"

#include <cstdlib>
#include <dirent.h>
#include <pwd.h>
#include <unistd.h>
#include <string>

#include "completion.h"
#include "console_record.h"
#include "filenames.h"
#include "variables.h"

namespace {

// ~ and ~user as the home directories they name; anything else as it is.
std::string expand_tilde(const std::string &word) {
    if (word.empty() || word[0] != '~') return word;
    const size_t slash = word.find('/');
    const std::string user = word.substr(1, slash == std::string::npos ? std::string::npos : slash - 1);
    const char *home = nullptr;
    if (user.empty()) home = getenv("HOME");
    if (!home) {
        const struct passwd *pw = user.empty() ? getpwuid(getuid()) : getpwnam(user.c_str());
        home = pw ? pw->pw_dir : nullptr;
    }
    if (!home) return word;
    return home + (slash == std::string::npos ? std::string() : word.substr(slash));
}

// The entries of the word's directory that complete its last part, each
// with a slash after a directory's name and a space after a file's.
void complete_file_names(const char *text, int cursor, term_completions *out, void *user) {
    const auto *c = static_cast<const console *>(user);
    int start = cursor;
    while (start > 0 && text[start - 1] != ' ' && text[start - 1] != '\t') start--;
    std::string word(text + start, static_cast<size_t>(cursor - start));
    const std::string expanded = expand_tilde(word);
    if (qv::variable_on(c, "expand-tilde")) word = expanded;
    const size_t slash = word.rfind('/'), real_slash = expanded.rfind('/');
    const std::string dir = real_slash == std::string::npos ? "." : real_slash == 0 ? "/" : expanded.substr(0, real_slash);
    const std::string head = slash == std::string::npos ? "" : word.substr(0, slash + 1);
    const std::string part = slash == std::string::npos ? word : word.substr(slash + 1);
    const qv::FileNameRules rules{qv::variable_on(c, "completion-ignore-case"), qv::variable_on(c, "completion-map-case"),
                                  qv::variable_on(c, "match-hidden-files")};
    const bool mark_dirs = qv::variable_on(c, "mark-directories");
    const bool mark_links = qv::variable_on(c, "mark-symlinked-directories");
    DIR *d = opendir(dir.c_str());
    if (!d) return;
    while (const struct dirent *e = readdir(d)) {
        if (!qv::file_name_matches(e->d_name, part.c_str(), rules)) continue;
        const std::string path = dir + "/" + e->d_name;
        const bool is_dir = qv::marks_as_directory(path.c_str(), true, true);
        const char *after = !is_dir ? " " : qv::marks_as_directory(path.c_str(), mark_dirs, mark_links) ? "/" : "";
        term_addCompletion(out, start, (head + e->d_name + after).c_str());
    }
    closedir(d);
}

} // namespace

void action_complete_filename(console *c, int key) { qv::complete_with(c, complete_file_names, c, key); }
