// Completion for programs written against readline: their functions answer
// in readline's terms (a word, its bounds, generators, an append character,
// a display hook), and their matches become the editor's candidates.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

#include <dirent.h>
#include <sys/stat.h>
#include <sys/ioctl.h>
#include <termios.h>

#include "filenames.h"
#include "quorvel/readline.h"
#include "rlcompat.h"

namespace {
constexpr char kBreaks[] = " \t\n\"\\'`@$><=;|&{(";
} // namespace

rl_completion_func_t *rl_attempted_completion_function = nullptr;
int rl_attempted_completion_over = 0;
rl_compentry_func_t *rl_completion_entry_function = nullptr;
int rl_completion_append_character = ' ';
int rl_completion_suppress_append = 0;
int rl_completion_type = 0;
int rl_completion_query_items = 100;
const char *rl_basic_word_break_characters = kBreaks;
char *rl_completer_word_break_characters = nullptr;
rl_cpvfunc_t *rl_completion_word_break_hook = nullptr;
const char *rl_basic_quote_characters = "\"'";
const char *rl_completer_quote_characters = nullptr;
rl_compdisp_func_t *rl_completion_display_matches_hook = nullptr;
int rl_filename_completion_desired = 0;
int rl_filename_quoting_desired = 1;
int rl_ignore_completion_duplicates = 1;
int rl_sort_completion_matches = 1;
int rl_completion_quote_character = 0;
int rl_inhibit_completion = 0;
rl_icppfunc_t *rl_directory_completion_hook = nullptr;
int _rl_complete_mark_directories = 1;
int _rl_completion_prefix_display_length = 0;
int _rl_print_completions_horizontally = 0;

namespace {

using CharPtr = std::unique_ptr<char, decltype(&free)>;

void free_matches(char **m) {
    if (!m) return;
    for (char **s = m; *s; s++)
        free(*s);
    free(m);
}

// Where the word being completed starts: after the last break character
// before the cursor, as the program's hook or variables define them.
int word_start(const char *text, int cursor) {
    const char *breaks = nullptr;
    if (rl_completion_word_break_hook) breaks = rl_completion_word_break_hook();
    if (!breaks) breaks = rl_completer_word_break_characters;
    if (!breaks) breaks = rl_basic_word_break_characters;
    if (!breaks) breaks = kBreaks;
    int i = cursor;
    while (i > 0 && !strchr(breaks, text[i - 1]))
        i--;
    return i;
}

bool variable_on(const char *name) {
    const char *v = term_getVariable(name);
    return v && strcmp(v, "on") == 0;
}

qv::FileNameRules file_rules() {
    return qv::FileNameRules{variable_on("completion-ignore-case"), variable_on("completion-map-case"),
                             variable_on("match-hidden-files")};
}

bool is_directory(const char *name) {
    CharPtr path(tilde_expand(name), &free);
    struct stat st;
    return path && stat(path.get(), &st) == 0 && S_ISDIR(st.st_mode);
}

// What a file name gets after it: a slash for a directory readline's
// variables mark, nothing for one they leave unmarked, else the usual.
int file_append(const char *name, int usual) {
    if (!is_directory(name)) return usual;
    CharPtr path(tilde_expand(name), &free);
    return path && qv::marks_as_directory(path.get(), _rl_complete_mark_directories && variable_on("mark-directories"),
                                          variable_on("mark-symlinked-directories"))
               ? '/'
               : 0;
}

// File names in the word's directory that start with its last part.
struct FileScan {
    DIR *dir = nullptr;
    char *prefix = nullptr; // the word up to and including its last slash
    char *base = nullptr;   // its last part, which matches start with
};
FileScan scan;

void scan_close() {
    if (scan.dir) closedir(scan.dir);
    free(scan.prefix);
    free(scan.base);
    scan = FileScan{};
}

// The last Tab that found several matches and did not extend the word: a
// second one in the same place shows them through the program's hook.
char *last_tab = nullptr;
int last_cursor = -1;

bool repeated_tab(const char *text, int cursor) {
    const bool same = last_tab && last_cursor == cursor && strcmp(last_tab, text) == 0;
    free(last_tab);
    last_tab = same ? nullptr : strdup(text);
    last_cursor = same ? -1 : cursor;
    return same;
}

void show_through_hook(char **matches) {
    int n = 0, longest = 0;
    for (char **m = matches + 1; *m; m++, n++) {
        const int len = static_cast<int>(strlen(*m));
        if (len > longest) longest = len;
    }
    // The hook writes lines as for a cooked terminal, ending them with a
    // bare line feed: output processing is on while it runs.
    FILE *out = rl_outstream ? rl_outstream : stdout;
    fflush(out);
    struct termios before;
    const bool raw = tcgetattr(fileno(out), &before) == 0 && !(before.c_oflag & OPOST);
    if (raw) {
        struct termios cooked = before;
        cooked.c_oflag |= OPOST | ONLCR;
        tcsetattr(fileno(out), TCSADRAIN, &cooked);
    }
    rl_completion_display_matches_hook(matches, n, longest);
    fflush(out);
    if (raw) tcsetattr(fileno(out), TCSADRAIN, &before);
}

// As readline treats matches before it shows or offers them: sorted, and
// each only once.
void tidy(char **matches) {
    size_t n = 0;
    while (matches[n + 1])
        n++;
    if (n < 2) return;
    if (rl_sort_completion_matches)
        qsort(matches + 1, n, sizeof(char *), [](const void *a, const void *b) {
            return strcmp(*static_cast<char *const *>(a), *static_cast<char *const *>(b));
        });
    if (!rl_ignore_completion_duplicates) return;
    size_t w = 1;
    for (size_t r = 1; r <= n; r++) {
        if (w > 1 && strcmp(matches[w - 1], matches[r]) == 0) {
            free(matches[r]);
            continue;
        }
        matches[w++] = matches[r];
    }
    matches[w] = nullptr;
}

// One match, closed with the append character, or a slash when it names a
// directory a file name completion goes on into. Inside the line, as in
// readline, the append character stays out.
void add_single(term_completions *out, int start, const char *m, bool at_end) {
    const size_t n = strlen(m);
    int append = rl_completion_suppress_append || !at_end ? 0 : rl_completion_append_character;
    if (rl_filename_completion_desired && n > 0 && m[n - 1] != '/') append = file_append(m, append);
    if (n > 0 && m[n - 1] == '/') append = 0;
    CharPtr full(static_cast<char *>(malloc(n + 2)), &free);
    if (!full) return;
    memcpy(full.get(), m, n);
    full.get()[n] = static_cast<char>(append);
    full.get()[n + (append ? 1 : 0)] = 0;
    term_addCompletion(out, start, full.get());
}

// One of several matches. A file name is listed as readline lists it: its
// last part, and with visible-stats a mark for what it is.
void add_listed(term_completions *out, int start, const char *m) {
    if (!rl_filename_completion_desired) {
        term_addCompletion(out, start, m);
        return;
    }
    const size_t n = strlen(m);
    const char *slash = n > 1 ? static_cast<const char *>(memrchr(m, '/', n - 1)) : nullptr;
    std::string shown = slash ? slash + 1 : m;
    if (variable_on("visible-stats")) {
        CharPtr path(tilde_expand(m), &free);
        struct stat st {};
        if (path && lstat(path.get(), &st) == 0 && !(shown.size() && shown.back() == '/')) {
            if (S_ISDIR(st.st_mode)) shown += '/';
            else if (S_ISLNK(st.st_mode)) shown += '@';
            else if (S_ISFIFO(st.st_mode)) shown += '|';
            else if (S_ISSOCK(st.st_mode)) shown += '=';
            else if (S_ISREG(st.st_mode) && (st.st_mode & 0111)) shown += '*';
        }
    }
    term_addCompletionEx(out, start, m, shown.c_str(), nullptr);
}

} // namespace

void qv::rl_complete_line(const char *text, int cursor, term_completions *out, void *) {
    if (!qv::rl_tab_completes() || rl_inhibit_completion) {
        term_addCompletion(out, cursor, "\t");
        return;
    }
    qv::rl_publish_line(text, cursor);
    // The program's own threshold for the question, once it changes it.
    static int query_items = 100;
    if (rl_completion_query_items != query_items) {
        query_items = rl_completion_query_items;
        char value[16];
        snprintf(value, sizeof value, "%d", query_items);
        term_setVariable("completion-query-items", value);
    }
    const int start = word_start(text, cursor);
    CharPtr word(strndup(text + start, static_cast<size_t>(cursor - start)), &free);
    // readline's expand-tilde: the word is completed, and put back, expanded.
    if (word && word.get()[0] == '~' && variable_on("expand-tilde")) word.reset(tilde_expand(word.get()));
    if (!word) return;
    rl_completion_append_character = ' ';
    rl_completion_suppress_append = 0;
    rl_attempted_completion_over = 0;
    rl_filename_completion_desired = 0;
    rl_completion_type = '\t';
    char **matches = nullptr;
    if (rl_attempted_completion_function)
        matches = rl_attempted_completion_function(word.get(), start, cursor);
    if (!matches && !rl_attempted_completion_over)
        matches = rl_completion_matches(word.get(), rl_completion_entry_function
                                                        ? rl_completion_entry_function
                                                        : rl_filename_completion_function);
    if (!matches) return;
    if (matches[0]) tidy(matches);
    if (matches[0] && !matches[1]) {
        // Stepping over the rest of the word (skip-completed-text) to the
        // line's end ends the word there, as at the end.
        size_t k = 0;
        while (variable_on("skip-completed-text") && matches[0][k] && matches[0][k] == text[start + k]) k++;
        add_single(out, start, matches[0], text[cursor] == 0 || (k > static_cast<size_t>(cursor - start) && !text[start + k]));
    } else if (matches[0] && rl_completion_display_matches_hook) {
        // The program shows the list itself; the editor only extends the word.
        if (strlen(matches[0]) > strlen(word.get()))
            term_addCompletion(out, start, matches[0]);
        else if (repeated_tab(text, cursor))
            show_through_hook(matches);
    } else if (matches[0]) {
        for (char **m = matches + 1; *m; m++)
            add_listed(out, start, *m);
    }
    free_matches(matches);
}

char **rl_completion_matches(const char *text, rl_compentry_func_t *generator) {
    if (!text || !generator) return nullptr;
    size_t n = 0, cap = 16;
    // Slot 0 is the common prefix, the last a NULL.
    auto *m = static_cast<char **>(malloc(sizeof(char *) * (cap + 2)));
    if (!m) return nullptr;
    // Each match once, found in a set: a generator of thousands would
    // otherwise cost their square.
    std::unordered_set<std::string_view> seen;
    for (int state = 0;; state++) {
        char *match = generator(text, state);
        if (!match) break;
        if (rl_ignore_completion_duplicates && !seen.insert(std::string_view(match)).second) {
            free(match);
            continue;
        }
        if (n == cap) {
            auto *grown = static_cast<char **>(realloc(m, sizeof(char *) * (cap * 2 + 2)));
            if (!grown) {
                free(match);
                break;
            }
            m = grown;
            cap *= 2;
        }
        m[++n] = match;
    }
    m[n + 1] = nullptr;
    if (n == 0) {
        free(m);
        return nullptr;
    }
    if (n == 1) {
        m[0] = m[1];
        m[1] = nullptr;
        return m;
    }
    // readline's completion-ignore-case: the matches share what they spell
    // alike in any case, in the spelling of the first that keeps the case
    // typed, or else of the first.
    const qv::FileNameRules rules = file_rules();
    const qv::FileNameRules exact{};
    const qv::FileNameRules &alike = rules.any_case ? rules : exact;
    if (rl_sort_completion_matches)
        qsort(m + 1, n, sizeof(char *), [](const void *a, const void *b) {
            return strcmp(*static_cast<char *const *>(a), *static_cast<char *const *>(b));
        });
    size_t common = strlen(m[1]);
    for (size_t i = 2; i <= n; i++) {
        size_t k = 0;
        while (k < common && qv::same_start(m[i] + k, m[1] + k, 1, alike))
            k++;
        common = k;
    }
    size_t spelling = 1;
    if (rules.any_case) {
        const size_t typed = strlen(text) < common ? strlen(text) : common;
        for (size_t i = 1; i <= n; i++)
            if (strncmp(m[i], text, typed) == 0) {
                spelling = i;
                break;
            }
    }
    // Never half a character.
    while (common > 0 && (static_cast<unsigned char>(m[spelling][common]) & 0xC0) == 0x80)
        common--;
    m[0] = strndup(m[spelling], common);
    if (!m[0]) {
        m[0] = m[1]; // frees every match below
        m[1] = nullptr;
        free_matches(m);
        return nullptr;
    }
    return m;
}

char *rl_filename_completion_function(const char *text, int state) {
    if (!text) return nullptr;
    rl_filename_completion_desired = 1;
    if (state == 0) {
        scan_close();
        const char *slash = strrchr(text, '/');
        const size_t plen = slash ? static_cast<size_t>(slash - text) + 1 : 0;
        scan.prefix = strndup(text, plen);
        scan.base = strdup(text + plen);
        if (!scan.prefix || !scan.base) {
            scan_close();
            return nullptr;
        }
        CharPtr dir(tilde_expand(plen ? scan.prefix : "."), &free);
        scan.dir = dir ? opendir(dir.get()) : nullptr;
    }
    if (!scan.dir) return nullptr;
    const qv::FileNameRules rules = file_rules();
    while (const dirent *e = readdir(scan.dir)) {
        if (!qv::file_name_matches(e->d_name, scan.base, rules)) continue;
        const size_t n = strlen(scan.prefix) + strlen(e->d_name) + 1;
        char *match = static_cast<char *>(malloc(n));
        if (match) snprintf(match, n, "%s%s", scan.prefix, e->d_name);
        return match;
    }
    scan_close();
    return nullptr;
}

int _rl_qsort_string_compare(char **a, char **b) {
    return strcoll(*a, *b);
}

// readline's own listing, for a display hook that wants it: the matches
// (1 to len; max the widest) in columns down the rows, as wide as the
// terminal.
void rl_display_match_list(char **matches, int len, int max) {
    FILE *out = rl_outstream ? rl_outstream : stdout;
    if (!matches || len < 1) return;
    struct winsize ws {};
    const int cols = ioctl(fileno(out), TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0 ? ws.ws_col : 80;
    const int width = (max > 0 ? max : 1) + 2;
    const int per_row = cols / width > 0 ? cols / width : 1;
    const int rows = (len + per_row - 1) / per_row;
    for (int r = 0; r < rows; r++) {
        for (int k = 0; k < per_row; k++) {
            const int i = 1 + k * rows + r;
            if (i > len || !matches[i]) break;
            const bool last = k + 1 == per_row || 1 + (k + 1) * rows + r > len;
            if (last)
                fputs(matches[i], out);
            else
                fprintf(out, "%-*s", width, matches[i]);
        }
        fputc('\n', out);
    }
    fflush(out);
}
