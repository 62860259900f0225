// readline() and completion for programs written against GNU readline's
// API, on Quorvel's public calls. The program's variables may live in the
// program (copy relocation) or here; this file reads them only through
// their symbols, at the moment of use, so either works.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include "quorvel.h"
#include "quorvel/readline.h"
#include "rlhistory.h"

namespace {

char empty_line[1];

} // namespace

rl_completion_func_t *rl_attempted_completion_function = nullptr;
int rl_attempted_completion_over = 0;
rl_compentry_func_t *rl_completion_entry_function = nullptr;
int rl_completion_append_character = ' ';
char *rl_line_buffer = empty_line;
int rl_point = 0;
int rl_end = 0;
const char *rl_readline_name = "other";
FILE *rl_instream = nullptr;
FILE *rl_outstream = nullptr;

namespace {

using CharPtr = std::unique_ptr<char, decltype(&free)>;

bool started = false;
char *line_copy = nullptr; // what rl_line_buffer points at after a Tab

// ---------------------------------------------------------------------------
// Completion

// Where readline's default word ends: at a blank, a quote or a shell
// operator.
constexpr const char kWordBreaks[] = " \t\n\"\\'`@$><=;|&{(";

int word_start(const char *text, int cursor) {
    int i = cursor;
    while (i > 0 && !strchr(kWordBreaks, text[i - 1])) i--;
    return i;
}

// File names in the word's directory that start with its last part; a
// directory gets a slash, so that completing goes on inside it.
struct FileScan {
    DIR *dir = nullptr;
    char *prefix = nullptr; // the word up to and including its last slash
    const char *base = nullptr;
};
FileScan scan;

void scan_close() {
    if (scan.dir) closedir(scan.dir);
    free(scan.prefix);
    scan = FileScan{};
}

char *file_names(const char *text, int state) {
    if (state == 0) {
        scan_close();
        const char *slash = strrchr(text, '/');
        const size_t plen = slash ? static_cast<size_t>(slash - text) + 1 : 0;
        scan.prefix = strndup(text, plen);
        if (!scan.prefix) return nullptr;
        scan.base = text + plen;
        scan.dir = opendir(plen ? scan.prefix : ".");
    }
    if (!scan.dir) return nullptr;
    const size_t blen = strlen(scan.base);
    while (const dirent *e = readdir(scan.dir)) {
        if (!strcmp(e->d_name, ".") || !strcmp(e->d_name, "..")) continue;
        if (e->d_name[0] == '.' && scan.base[0] != '.') continue;
        if (strncmp(e->d_name, scan.base, blen) != 0) continue;
        const size_t n = strlen(scan.prefix) + strlen(e->d_name) + 2;
        char *match = static_cast<char *>(malloc(n));
        if (!match) break;
        snprintf(match, n, "%s%s", scan.prefix, e->d_name);
        struct stat st;
        if (stat(match, &st) == 0 && S_ISDIR(st.st_mode)) strcat(match, "/");
        return match;
    }
    scan_close();
    return nullptr;
}

void free_strings(char **strings) {
    for (char **s = strings; *s; s++) free(*s);
}

// The completer handed to the editor: the program's functions answer in
// readline's terms, and their matches become candidates. Everything they
// returned is freed here, whatever it held.
void complete(const char *text, int cursor, term_completions *out, void *) {
    char *copy = strdup(text);
    if (!copy) return;
    free(line_copy);
    line_copy = copy;
    rl_line_buffer = line_copy;
    rl_point = cursor;
    rl_end = static_cast<int>(strlen(text));
    const int start = word_start(text, cursor);
    CharPtr word(strndup(text + start, static_cast<size_t>(cursor - start)), &free);
    if (!word) return;
    rl_completion_append_character = ' ';
    rl_attempted_completion_over = 0;
    char **matches = nullptr;
    if (rl_attempted_completion_function)
        matches = rl_attempted_completion_function(word.get(), start, cursor);
    if (!matches && !rl_attempted_completion_over)
        matches = rl_completion_matches(word.get(), rl_completion_entry_function
                                                        ? rl_completion_entry_function
                                                        : file_names);
    if (!matches) return;
    if (matches[0] && !matches[1]) {
        // The one match, closed with the append character unless it names a
        // directory to go on into.
        const char *m = matches[0];
        const size_t n = strlen(m);
        const int append = n > 0 && m[n - 1] == '/' ? 0 : rl_completion_append_character;
        CharPtr full(static_cast<char *>(malloc(n + 2)), &free);
        if (full) {
            memcpy(full.get(), m, n);
            full.get()[n] = static_cast<char>(append);
            full.get()[n + (append ? 1 : 0)] = 0;
            term_addCompletion(out, start, full.get());
        }
    } else if (matches[0]) {
        for (char **m = matches + 1; *m; m++) term_addCompletion(out, start, *m);
    }
    free_strings(matches);
    free(matches);
}

// ---------------------------------------------------------------------------
// Reading

bool start_editor() {
    if (started) return true;
    term_options options = {nullptr, 1};
    if (!term_init(&options)) return false;
    // The program decides what enters its history; the editor's own file
    // is never read, and never written, since nothing here ends the instance.
    term_setOption(TERM_OPTION_AUTO_HISTORY, 0);
    term_setCompleter(complete, nullptr);
    qv::rl_history_attach();
    started = true;
    return true;
}

// The prompt without the bytes marked as taking no room (escape sequences
// the editor would otherwise show as text).
CharPtr visible_prompt(const char *prompt) {
    CharPtr out(strdup(prompt ? prompt : ""), &free);
    if (!out) return out;
    char *w = out.get();
    bool hidden = false;
    for (const char *r = out.get(); *r; r++) {
        if (*r == RL_PROMPT_START_IGNORE)
            hidden = true;
        else if (*r == RL_PROMPT_END_IGNORE)
            hidden = false;
        else if (!hidden)
            *w++ = *r;
    }
    *w = 0;
    return out;
}

// Without a terminal on both sides there is nothing to edit on: the prompt
// goes out, a line comes in as it is.
char *read_plain(FILE *in, FILE *out, const char *prompt) {
    fputs(prompt, out);
    fflush(out);
    char *line = nullptr;
    size_t cap = 0;
    const ssize_t n = getline(&line, &cap, in);
    if (n < 0) {
        free(line);
        return nullptr;
    }
    if (n > 0 && line[n - 1] == '\n') line[n - 1] = 0;
    return line;
}

} // namespace

int rl_initialize(void) { return 0; }

char *readline(const char *prompt) {
    FILE *in = rl_instream ? rl_instream : stdin;
    FILE *out = rl_outstream ? rl_outstream : stdout;
    CharPtr shown = visible_prompt(prompt);
    if (!shown) return nullptr;
    const bool editable = fileno(in) == STDIN_FILENO && isatty(STDIN_FILENO) &&
                          fileno(out) == STDOUT_FILENO && isatty(STDOUT_FILENO);
    fflush(out);
    if (!editable || !start_editor()) return read_plain(in, out, shown.get());
    for (;;) {
        char *line = term_getRawLineUtf8(0, shown.get());
        const int status = term_getStatus();
        // The program's SIGINT disposition has had the signal; readline
        // programs expect to be asked again, not to get an empty line.
        if (status == ST_INTERRUPTED) {
            free(line);
            continue;
        }
        const bool ended = status != ST_DONE;
        if (line && ended && !*line) {
            free(line);
            return nullptr;
        }
        return line;
    }
}

char **rl_completion_matches(const char *text, rl_compentry_func_t *generator) {
    if (!text || !generator) return nullptr;
    size_t n = 0, cap = 16;
    // Slot 0 is the common prefix, the last a NULL.
    auto *m = static_cast<char **>(malloc(sizeof(char *) * (cap + 2)));
    if (!m) return nullptr;
    for (int state = 0;; state++) {
        char *match = generator(text, state);
        if (!match) break;
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
    size_t common = strlen(m[1]);
    for (size_t i = 2; i <= n; i++) {
        size_t k = 0;
        while (k < common && m[i][k] == m[1][k]) k++;
        common = k;
    }
    // Never half a character.
    while (common > 0 && (static_cast<unsigned char>(m[1][common]) & 0xC0) == 0x80) common--;
    m[0] = strndup(m[1], common);
    if (!m[0]) {
        free_strings(m + 1);
        free(m);
        return nullptr;
    }
    return m;
}

// ---------------------------------------------------------------------------
// The callback interface: the program owns the wait (a select on standard
// input) and calls rl_callback_read_char when it is readable. Built on the
// editor's own feed, so a key split across calls is the same key.

namespace {

rl_vcpfunc_t *line_handler = nullptr;
char *callback_prompt = nullptr; // the visible prompt, kept for each new line
bool callback_editing = false;
unsigned installs = 0; // a handler that installs again has started its line

bool editable_streams() {
    FILE *in = rl_instream ? rl_instream : stdin;
    FILE *out = rl_outstream ? rl_outstream : stdout;
    return fileno(in) == STDIN_FILENO && isatty(STDIN_FILENO) && fileno(out) == STDOUT_FILENO &&
           isatty(STDOUT_FILENO);
}

// The next line's edit: its prompt drawn, the terminal raw until it ends.
void begin_callback_line() {
    fflush(rl_outstream ? rl_outstream : stdout);
    callback_editing = editable_streams() && start_editor() &&
                       term_editStart(TERM_EDIT_RAW | TERM_EDIT_UTF8, 0, callback_prompt) != 0;
    if (!callback_editing) {
        fputs(callback_prompt, rl_outstream ? rl_outstream : stdout);
        fflush(rl_outstream ? rl_outstream : stdout);
    }
}

// A line is complete: the program's handler takes it (and frees it), and
// unless the handler removed itself the next line begins at once.
void deliver(char *line) {
    rl_vcpfunc_t *handler = line_handler;
    const unsigned before = installs;
    if (handler)
        handler(line);
    else
        free(line);
    if (line_handler && callback_prompt && installs == before) begin_callback_line();
}

} // namespace

void rl_callback_handler_install(const char *prompt, rl_vcpfunc_t *handler) {
    rl_callback_handler_remove();
    CharPtr shown = visible_prompt(prompt);
    callback_prompt = shown.release();
    line_handler = handler;
    installs++;
    if (callback_prompt) begin_callback_line();
}

void rl_callback_read_char(void) {
    if (!line_handler) return;
    if (!callback_editing) {
        // No terminal to edit on: a whole line, as it comes.
        char *line = read_plain(rl_instream ? rl_instream : stdin, rl_outstream ? rl_outstream : stdout, "");
        deliver(line);
        return;
    }
    char *line = nullptr;
    if (term_editFeed(&line) != 1) return;
    callback_editing = false;
    const int status = term_getStatus();
    // As readline() does: after an interrupt the program is asked again.
    if (status == ST_INTERRUPTED) {
        free(line);
        begin_callback_line();
        return;
    }
    if (line && status != ST_DONE && !*line) {
        free(line);
        line = nullptr;
    }
    deliver(line);
}

void rl_callback_handler_remove(void) {
    if (callback_editing) term_editStop();
    callback_editing = false;
    line_handler = nullptr;
    free(callback_prompt);
    callback_prompt = nullptr;
}

void rl_callback_sigcleanup(void) {}
