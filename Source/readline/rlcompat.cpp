// readline() and its callback interface for programs written against GNU
// readline's API, on Quorvel's public calls. The program's variables may live
// in the program (copy relocation) or here; this file reads and writes them
// only through their symbols, at the moment of use, so either works.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <sys/ioctl.h>
#include <unistd.h>

#include "quorvel.h"
#include "quorvel/readline.h"
#include "rlcompat.h"
#include "rlhistory.h"

namespace {
char empty_line[1];
} // namespace

char *rl_line_buffer = empty_line;
int rl_point = 0;
int rl_end = 0;
int rl_mark = 0;
int rl_done = 0;
int rl_eof_found = 0;
int rl_pending_input = 0;
int rl_erase_empty_line = 0;
int rl_already_prompted = 0;
char *rl_prompt = nullptr;
char *rl_display_prompt = nullptr;
const char *rl_readline_name = "other";
const char *rl_terminal_name = nullptr;
const char *rl_library_version = "8.2";
int rl_readline_version = 0x0802;
int rl_gnu_readline_p = 1;
FILE *rl_instream = nullptr;
FILE *rl_outstream = nullptr;
unsigned long rl_readline_state = 0;
rl_hook_func_t *rl_startup_hook = nullptr;
rl_hook_func_t *rl_pre_input_hook = nullptr;
rl_hook_func_t *rl_event_hook = nullptr;
rl_hook_func_t *rl_input_available_hook = nullptr;
rl_getc_func_t *rl_getc_function = rl_getc;
rl_voidfunc_t *rl_redisplay_function = rl_redisplay;
rl_vintfunc_t *rl_prep_term_function = rl_prep_terminal;
rl_voidfunc_t *rl_deprep_term_function = rl_deprep_terminal;
int rl_catch_signals = 1;
int rl_catch_sigwinch = 1;
int _rl_echoing_p = 1;

namespace {

using CharPtr = std::unique_ptr<char, decltype(&free)>;

bool started = false;

// As readline does on its first use: the program may write to rl_outstream
// from its hooks, so the streams are never left NULL.
void default_streams() {
    if (!rl_instream) rl_instream = stdin;
    if (!rl_outstream) rl_outstream = stdout;
}

FILE *in_stream() {
    return rl_instream ? rl_instream : stdin;
}
FILE *out_stream() {
    return rl_outstream ? rl_outstream : stdout;
}

// ---------------------------------------------------------------------------
// The line as the program sees it. The buffer rl_line_buffer points at is
// ours; what was last shown is kept apart, so that a change the program
// made to the variables is seen and handed to the editor.

char *line_copy = nullptr;
size_t line_cap = 0;
char *shown = nullptr; // the text last published
int shown_point = 0;

void publish(const char *text, int cursor) {
    const size_t n = strlen(text);
    if (n + 1 > line_cap) {
        char *grown = static_cast<char *>(realloc(line_copy, n + 64));
        if (!grown) return;
        line_copy = grown;
        line_cap = n + 64;
    }
    memcpy(line_copy, text, n + 1);
    char *copy = strdup(text);
    if (!copy) return;
    free(shown);
    shown = copy;
    rl_line_buffer = line_copy;
    rl_end = static_cast<int>(n);
    rl_point = cursor < 0 ? 0 : cursor > rl_end ? rl_end : cursor;
    shown_point = rl_point;
}

// Hands the editor what the program changed in the variables since they
// were published.
void take_program_changes() {
    if (!shown || rl_line_buffer != line_copy) return;
    const int end = rl_end < 0 ? 0 : rl_end;
    if (static_cast<size_t>(end) < line_cap) line_copy[end] = 0;
    if (rl_point == shown_point && strcmp(line_copy, shown) == 0) return;
    if (term_editSetLine(line_copy, rl_point)) publish(line_copy, rl_point);
}

// The line with text put in place of bytes [from, to).
bool splice(int from, int to, const char *text) {
    take_program_changes();
    CharPtr line(term_editLine(nullptr), &free);
    if (!line) return false;
    const int len = static_cast<int>(strlen(line.get()));
    from = from < 0 ? 0 : from > len ? len : from;
    to = to < from ? from : to > len ? len : to;
    const size_t add = strlen(text);
    CharPtr out(static_cast<char *>(malloc(static_cast<size_t>(len - (to - from)) + add + 1)),
                &free);
    if (!out) return false;
    memcpy(out.get(), line.get(), static_cast<size_t>(from));
    memcpy(out.get() + from, text, add);
    strcpy(out.get() + from + add, line.get() + to);
    int point = rl_point;
    if (point >= to)
        point += static_cast<int>(add) - (to - from);
    else if (point > from)
        point = from;
    if (!term_editSetLine(out.get(), point)) return false;
    publish(out.get(), point);
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

void set_prompt_variable(const char *prompt) {
    char *copy = strdup(prompt ? prompt : "");
    if (!copy) return;
    free(rl_prompt);
    rl_prompt = copy;
    rl_display_prompt = rl_prompt;
}

// The keys may come from any terminal stream (the editor sets the mode of
// standard input, which a stream of the program's own over the same
// terminal shares); the line is drawn on standard output.
bool editable_streams() {
    const int in = fileno(in_stream());
    return in >= 0 && isatty(in) && fileno(out_stream()) == STDOUT_FILENO && isatty(STDOUT_FILENO);
}

// The program reads the keys itself, or from a stream of its own.
bool own_keys() { return (rl_getc_function && rl_getc_function != rl_getc) || fileno(in_stream()) != STDIN_FILENO; }

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

// A new line is about to be read: the program's startup hook, a fresh
// walk through the history, and the prompt it wrote itself taken back.
void line_starts() {
    rl_done = 0;
    rl_eof_found = 0;
    publish("", 0);
    qv::rl_history_rewind();
    RL_SETSTATE(RL_STATE_READCMD | RL_STATE_TERMPREPPED);
    RL_UNSETSTATE(RL_STATE_DONE | RL_STATE_EOF);
    if (rl_startup_hook) rl_startup_hook();
    if (rl_already_prompted) {
        fputc('\r', out_stream());
        rl_already_prompted = 0;
    }
    fflush(out_stream());
}

// The line is complete: line is NULL at the end of input.
void line_ends(const char *line) {
    rl_done = 1;
    rl_eof_found = line == nullptr;
    RL_UNSETSTATE(RL_STATE_READCMD | RL_STATE_TERMPREPPED);
    RL_SETSTATE(RL_STATE_DONE | (line ? 0 : RL_STATE_EOF));
    publish(line ? line : "", line ? static_cast<int>(strlen(line)) : 0);
}

// The editor's answer as readline's: NULL for the end of input.
char *as_readline_result(char *line, int status) {
    if (line && status != ST_DONE && !*line) {
        free(line);
        return nullptr;
    }
    return line;
}

// A program that reads the keys itself (rl_getc_function: a buffered port
// of its own, say) hands them over one at a time; the editor reads no
// descriptor meanwhile, so no key overtakes one the program holds. The end
// of the program's input ends the line as Ctrl-D would.
char *read_through_getc(const char *prompt) {
    const int before = term_setInputFd(-1);
    char *line = nullptr;
    if (term_editStart(TERM_EDIT_UTF8 | TERM_EDIT_RAW, 0, prompt ? prompt : "")) {
        while (term_editFeed(&line) == 0) {
            const int ch = rl_getc_function ? rl_getc_function(in_stream()) : rl_getc(in_stream());
            const char byte = ch == EOF ? '\x04' : static_cast<char>(ch);
            if (ch == EOF) term_editSetLine("", 0);
            term_editPush(&byte, 1);
        }
    }
    term_setInputFd(before);
    return line;
}

int idle_hook() {
    if (rl_event_hook) rl_event_hook();
    return 0;
}

} // namespace

bool qv::rl_start_editor() {
    if (started) return true;
    term_options options = {nullptr, 1, {}};
    if (!term_init(&options)) return false;
    // The program decides what enters its history; the editor's own file
    // is never read, and never written, since nothing here ends the instance.
    term_setOption(TERM_OPTION_AUTO_HISTORY, 0);
    // Programs written for readline expect its economy on slow lines, and
    // its way with edited history entries.
    term_setOption(TERM_OPTION_LEAN_OUTPUT, 1);
    term_setOption(TERM_OPTION_KEEP_HISTORY_EDITS, 1);
    // readline pages a long listing unless the init file says otherwise.
    term_setVariable("page-completions", "on");
    term_setCompleter(qv::rl_complete_line, nullptr);
    term_callbacks callbacks{};
    callbacks.onIdle = idle_hook;
    term_setCallbacks(&callbacks);
    qv::rl_history_attach();
    RL_SETSTATE(RL_STATE_INITIALIZED);
    started = true;
    // The user's keys, as readline reads them when it starts, with the
    // program's name for "$if".
    term_setApplicationName(rl_readline_name);
    rl_read_init_file(nullptr);
    return true;
}

void qv::rl_publish_line(const char *text, int cursor) {
    publish(text, cursor);
}

void qv::rl_take_program_changes() {
    take_program_changes();
}

void qv::rl_set_prompt_variable(const char *prompt) {
    set_prompt_variable(prompt);
}

char *qv::rl_visible_prompt(const char *prompt) {
    return visible_prompt(prompt).release();
}

void qv::rl_publish_edit() {
    int cursor = 0;
    CharPtr line(term_editLine(&cursor), &free);
    if (line) publish(line.get(), cursor);
}

int rl_initialize(void) {
    default_streams();
    if (editable_streams()) qv::rl_start_editor();
    return 0;
}

char *readline(const char *prompt) {
    default_streams();
    CharPtr visible = visible_prompt(prompt);
    if (!visible) return nullptr;
    set_prompt_variable(prompt);
    fflush(out_stream());
    if (!editable_streams() || !qv::rl_start_editor()) {
        if (rl_startup_hook) rl_startup_hook();
        return read_plain(in_stream(), out_stream(), rl_already_prompted ? "" : visible.get());
    }
    for (;;) {
        line_starts();
        term_setOption(TERM_OPTION_SIGNAL_KEYS, 0);
        // The editor draws the prompt's colours itself, markers and all.
        char *line = own_keys() ? read_through_getc(prompt) : term_getRawLineUtf8(0, prompt ? prompt : "");
        const int status = term_getStatus();
        // The program's SIGINT disposition has had the signal; readline
        // programs expect to be asked again, not to get an empty line.
        if (status == ST_INTERRUPTED) {
            free(line);
            continue;
        }
        line = as_readline_result(line, status);
        line_ends(line);
        return line;
    }
}

// ---------------------------------------------------------------------------
// The callback interface: the program owns the wait (a select on standard
// input) and calls rl_callback_read_char when it is readable. Built on the
// editor's own feed, so a key split across calls is the same key.

namespace {

rl_vcpfunc_t *line_handler = nullptr;
char *callback_prompt = nullptr; // kept for each new line
bool callback_editing = false;
unsigned installs = 0; // a handler that installs again has started its line

// The next line's edit: its prompt drawn, the terminal raw until it ends.
// The editor's own input while a program that reads the keys itself has a
// handler installed: none, so that only the keys it hands over count.
constexpr int kNoFd = -2;
int own_keys_fd = kNoFd;

void begin_callback_line() {
    line_starts();
    if (own_keys() && own_keys_fd == kNoFd) own_keys_fd = term_setInputFd(-1);
    // As readline leaves them: Ctrl-C reaches the program as SIGINT while it
    // waits in its own loop, where its handler can see it at once.
    term_setOption(TERM_OPTION_SIGNAL_KEYS, 1);
    callback_editing = editable_streams() && qv::rl_start_editor() &&
                       term_editStart(TERM_EDIT_RAW | TERM_EDIT_UTF8, 0, callback_prompt) != 0;
    if (!callback_editing) {
        CharPtr visible = visible_prompt(callback_prompt);
        fputs(visible ? visible.get() : "", out_stream());
        fflush(out_stream());
    } else if (rl_pre_input_hook) {
        rl_pre_input_hook();
        take_program_changes();
        term_editRedraw(0);
    }
}

// A line is complete: the program's handler takes it (and frees it), and
// unless the handler removed itself or installed another the next line
// begins at once.
void deliver(char *line) {
    rl_vcpfunc_t *handler = line_handler;
    const unsigned before = installs;
    line_ends(line);
    if (handler)
        handler(line);
    else
        free(line);
    if (line_handler && callback_prompt && installs == before) begin_callback_line();
}

} // namespace

void rl_callback_handler_install(const char *prompt, rl_vcpfunc_t *handler) {
    default_streams();
    if (callback_editing) term_editLeave();
    callback_editing = false;
    free(callback_prompt);
    callback_prompt = strdup(prompt ? prompt : "");
    set_prompt_variable(prompt);
    line_handler = handler;
    installs++;
    RL_SETSTATE(RL_STATE_CALLBACK);
    if (callback_prompt) begin_callback_line();
}

namespace {

// Bytes for the editor that wait for the next line: read along with a key
// that ended a line, or stuffed by the program.
unsigned char waiting[1024];
size_t waiting_len = 0;
qv::KeyBytes key_bytes;

void keep_waiting(const unsigned char *bytes, size_t n) {
    if (n > sizeof waiting - waiting_len) n = sizeof waiting - waiting_len;
    memcpy(waiting + waiting_len, bytes, n);
    waiting_len += n;
}

// Feeds the editor what it has; true when that ended the line.
bool feed_editor() {
    char *line = nullptr;
    if (term_editFeed(&line) != 1) {
        qv::rl_publish_edit();
        return false;
    }
    callback_editing = false;
    const int status = term_getStatus();
    // As readline() does: after an interrupt the program is asked again.
    if (status == ST_INTERRUPTED) {
        free(line);
        begin_callback_line();
        return false;
    }
    deliver(as_readline_result(line, status));
    return true;
}

// A key the program bound runs its function on the line as it stands; a
// function that sets rl_done completes the line where it is, as readline
// would, without the editor's own Return.
bool newline_asked = false;

bool run_binding(rl_command_func_t *function, int key) {
    qv::rl_publish_edit();
    rl_done = 0;
    newline_asked = false;
    function(1, key);
    if (!callback_editing) return true; // it removed the handler
    take_program_changes();
    if (!rl_done) {
        term_editRedraw(0);
        return false;
    }
    char *line = term_editLine(nullptr);
    if (newline_asked)
        term_editStop();
    else
        term_editLeave();
    callback_editing = false;
    deliver(line ? line : strdup(""));
    return true;
}

// What is ready, the program's keys among it: the bytes before such a key
// go to the editor first, the key to the program's function.
void route_input() {
    unsigned char buf[sizeof waiting + 512];
    size_t n = waiting_len;
    memcpy(buf, waiting, n);
    waiting_len = 0;
    int ready = 0;
    if (ioctl(fileno(in_stream()), FIONREAD, &ready) == 0 && ready > 0) {
        const ssize_t r = read(fileno(in_stream()), buf + n, sizeof buf - n);
        if (r > 0) n += static_cast<size_t>(r);
    }
    size_t from = 0;
    for (size_t i = 0; i < n; i++) {
        rl_command_func_t *function =
            key_bytes.alone(buf[i]) ? qv::rl_program_binding(buf[i]) : nullptr;
        if (!function) continue;
        term_editPush(reinterpret_cast<const char *>(buf + from), static_cast<int>(i - from));
        const bool ended = (i > from && feed_editor()) || run_binding(function, buf[i]);
        from = i + 1;
        if (ended) {
            keep_waiting(buf + i + 1, n - i - 1);
            return;
        }
    }
    term_editPush(reinterpret_cast<const char *>(buf + from), static_cast<int>(n - from));
    feed_editor();
}

} // namespace

void qv::rl_ask_newline() {
    newline_asked = true;
}

void rl_callback_read_char(void) {
    if (!line_handler) return;
    if (!callback_editing) {
        // No terminal to edit on: a whole line, as it comes.
        deliver(read_plain(in_stream(), out_stream(), ""));
        return;
    }
    take_program_changes();
    if (own_keys()) {
        // One key from the program's reader a call, as readline takes them;
        // its end of input ends the line as Ctrl-D would.
        const int ch = rl_getc_function ? rl_getc_function(in_stream()) : rl_getc(in_stream());
        const char byte = ch == EOF ? '\x04' : static_cast<char>(ch);
        if (ch == EOF) term_editSetLine("", 0);
        rl_command_func_t *function = key_bytes.alone(static_cast<unsigned char>(byte))
                                          ? qv::rl_program_binding(static_cast<unsigned char>(byte))
                                          : nullptr;
        if (!function || !run_binding(function, static_cast<unsigned char>(byte))) {
            if (!function) term_editPush(&byte, 1);
            feed_editor();
        }
        return;
    }
    if (qv::rl_has_program_bindings())
        route_input();
    else
        feed_editor();
}

void rl_callback_handler_remove(void) {
    if (callback_editing) term_editLeave();
    callback_editing = false;
    line_handler = nullptr;
    free(callback_prompt);
    callback_prompt = nullptr;
    if (own_keys_fd != kNoFd) term_setInputFd(own_keys_fd);
    own_keys_fd = kNoFd;
    RL_UNSETSTATE(RL_STATE_CALLBACK | RL_STATE_READCMD | RL_STATE_TERMPREPPED);
}

void rl_callback_sigcleanup(void) {}

void rl_cleanup_after_signal(void) {
    if (callback_editing) term_editLeave();
    callback_editing = false;
}

void rl_reset_after_signal(void) {}
void rl_free_line_state(void) {}
int rl_check_signals(void) {
    return 0;
}
int rl_pending_signal(void) {
    return 0;
}

// ---------------------------------------------------------------------------
// The line from the program's code

int rl_insert_text(const char *text) {
    if (!text || !*text) return 0;
    if (!splice(rl_point, rl_point, text)) return 0;
    return static_cast<int>(strlen(text));
}

int rl_delete_text(int start, int end) {
    if (start > end) {
        const int t = start;
        start = end;
        end = t;
    }
    const int before = rl_end;
    return splice(start, end, "") ? before - rl_end : 0;
}

int rl_kill_text(int start, int end) {
    rl_delete_text(start, end);
    return 0;
}

void rl_replace_line(const char *text, int) {
    if (!text) return;
    const int point = rl_point;
    if (term_editSetLine(text, point)) qv::rl_publish_edit();
}

int rl_stuff_char(int c) {
    if (c < 0 || c > 255) return 0;
    const unsigned char byte = static_cast<unsigned char>(c);
    // Where the program binds keys, a stuffed key may be one of them.
    if (qv::rl_has_program_bindings()) {
        const size_t before = waiting_len;
        keep_waiting(&byte, 1);
        return waiting_len > before ? 1 : 0;
    }
    return term_editPush(reinterpret_cast<const char *>(&byte), 1) == 1 ? 1 : 0;
}
