// The terminal instance and the exported term_* calls.
#include "terminal.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#include "completion.h"
#include "candidates.h"
#include "input.h"
#include "engine.h"
#include "options.h"
#include "printer.h"
#include "output.h"
#include "logger.h"
#include "text.h"
#include "repeat.h"
#include "listings.h"
#include "menu.h"
#include "view.h"
#include "userkeys.h"
#include "variables.h"
#include "vimode.h"
#include "qv_assert.h"
#include "session.h"

static_assert(std::is_standard_layout<term_options>::value, "term_options crosses the C ABI");
static_assert(std::is_standard_layout<term_callbacks>::value, "term_callbacks crosses the C ABI");
static_assert(sizeof(term_callbacks) == 8 * sizeof(void (*)(void)), "eight callback slots");
static_assert(std::is_standard_layout<console>::value, "the console record is a plain struct");

namespace {

struct terminal {
    struct console *console;
    int initialized;
    int last_status; // of the last read, for term_getStatus
};

} // namespace

// The engine's record of a session: its instance, and the encoding of the
// line an edit under the host's loop ends with.
struct qv::EngineTop {
    terminal *t = nullptr;
    char *(*edit_encoding)(console *) = nullptr;
    std::atomic<int> reads{0}; // line reads under way, for a close from another thread
};

namespace {

// The default session's instance, the one term_init makes.
qv::EngineTop own_top;

qv::EngineTop &top() { return qv::session_record(qv::kSlotTerminal, own_top); }

// The copy of historydir that the library made; a directory the host stored
// in history_directory itself is never freed here.
char *owned_directory = nullptr;

void set_history_directory(char *dir) {
    if (history_directory == owned_directory) free(owned_directory);
    history_directory = owned_directory = dir;
}

console *the_console() {
    const terminal *theTerminal = top().t;
    QV_ASSERT(theTerminal != NULL);
    return theTerminal->console;
}

} // namespace

namespace {

char *utf8_result(console *c) {
    return qv::utf8_of(c->editor.buffer, static_cast<int>(c->editor.lastchar - c->editor.buffer));
}

// The line of a read that has ended, as the host gets it.
char *finish_line(console *c, char *(*encode)(console *)) {
    char *result = nullptr;
    // The mask belongs to this read alone.
    c->masked = 0;
    c->maskchar = 0;
    if (c->editor.buffer) {
        result = encode(c);
        // A line that could not be handed over is lost, and the status says why.
        if (!result) c->status = ST_NOMEMORY;
        console_free_editor(c);
    }
    if (terminal *t = top().t)
        if (t->console == c) t->last_status = c->status;
    if (c->eof == 1 && c->callbacks.onEndOfInput) c->callbacks.onEndOfInput();
    return result;
}

char *read_line(console *c, const char *prompt, char *(*encode)(console *)) {
    console_read_line(c, prompt);
    return finish_line(c, encode);
}

void prepare(console *c, char mask, int raw) {
    c->maskchar = mask;
    c->masked = mask != 0;
    c->raw = raw;
    c->flags = 0;
}

char *start_read(char mask, const char *prompt, int raw, char *(*encode)(console *)) {
    console *c = the_console();
    prepare(c, mask, raw);
    top().reads++;
    char *line = read_line(c, prompt, encode);
    top().reads--;
    return line;
}

} // namespace

char *do_readLine(console *c, const char *prompt) { return read_line(c, prompt, encode_input); }

namespace {

// The calling thread's session gets its instance: all or nothing.
terminal *new_instance() {
    auto *t = static_cast<terminal *>(calloc(1, sizeof(terminal)));
    if (!t) return nullptr;
    top().t = t;
    t->console = static_cast<console *>(calloc(1, sizeof(console)));
    t->initialized = 0;
    if (!t->console || !console_init(t->console)) {
        free(t->console);
        free(t);
        top().t = nullptr;
        return nullptr;
    }
    t->initialized = 1;
    t->console->callbacks = term_callbacks{};
    return t;
}

// What the history gained goes to its file first.
void delete_instance(terminal *t) {
    console *c = t->console;
    std::unique_ptr<char, decltype(&free)> path(history_get_filepath(), &free);
    history_save(c, path.get());
    console_free(c);
    free(c);
    free(t);
    top().t = nullptr;
}

} // namespace

int term_init(const term_options *options) {
    if (top().t) return 1;
    qv::printer_init();
    char *dir = nullptr;
    if (options && options->historydir) {
        dir = strdup(options->historydir);
        if (!dir) return 0;
    }
    terminal *t = new_instance();
    if (!t) {
        free(dir);
        return 0;
    }
    if (!options) {
        set_history_directory(nullptr);
        t->console->sigint = 0;
    } else {
        if (dir) set_history_directory(dir);
        t->console->sigint = options->sigint;
    }
    return 1;
}

void term_destroy(void) {
    terminal *theTerminal = top().t;
    QV_ASSERT(theTerminal != NULL);
    QV_ASSERT(theTerminal->console != NULL);
    delete_instance(theTerminal);
    qv::completion_reset();
}

qv::EngineTop *qv::engine_top_new() { return new (std::nothrow) EngineTop; }

void qv::engine_top_free(EngineTop *e) { delete e; }

bool qv::instance_open() { return top().t || new_instance(); }

void qv::instance_close() {
    if (top().edit_encoding) term_editStop();
    if (terminal *t = top().t) delete_instance(t);
}

bool qv::instance_reading() { return top().reads.load() > 0; }

char *term_getLine(char mask, const char *prompt) { return start_read(mask, prompt, 0, encode_input); }

char *term_getRawLine(char mask, const char *prompt) {
    return start_read(mask, prompt, 1, encode_input);
}

char *term_getLineUtf8(char mask, const char *prompt) {
    return start_read(mask, prompt, 0, utf8_result);
}

char *term_getRawLineUtf8(char mask, const char *prompt) {
    return start_read(mask, prompt, 1, utf8_result);
}

void term_free(char *line) { free(line); }

void term_loadHistory(void) {
    const terminal *theTerminal = top().t;
    QV_ASSERT(theTerminal != NULL);
    QV_ASSERT(theTerminal->console != NULL);
    std::unique_ptr<char, decltype(&free)> path(history_get_filepath(), &free);
    history_load(theTerminal->console, path.get());
}

int term_addHistory(const char *line) {
    if (!top().t || !line) return 0;
    console *c = top().t->console;
    const size_t n = strlen(line);
    if (n == 0 || !qv::utf8_valid(line, n)) return 0;
    if (qv::history_newest_is(c, line, n)) return 1;
    return qv::history_append_utf8(c, line, n) ? 1 : 0;
}

void term_clearHistory(void) {
    if (!top().t) return;
    history_clear(top().t->console);
    qv::history_forget_new(top().t->console);
}

void term_setHistoryReporter(term_history_reporter fn, void *user) {
    if (top().t) qv::history_report_edits(top().t->console, fn, user);
}

int term_setHistoryLimit(int max) {
    if (!top().t) return -2;
    console *c = top().t->console;
    const int previous = c->history_max == INT32_MAX ? -1 : c->history_max;
    qv::history_limit(c, max < 0 ? INT32_MAX : max);
    return previous;
}

int term_setCallbacks(const term_callbacks *callbacks) {
    if (!top().t || !top().t->console || !callbacks) return 0;
    term_callbacks &cb = top().t->console->callbacks;
    if (callbacks->onIdle) cb.onIdle = callbacks->onIdle;
    if (callbacks->reserved1) cb.reserved1 = callbacks->reserved1;
    if (callbacks->reserved2) cb.reserved2 = callbacks->reserved2;
    if (callbacks->reserved3) cb.reserved3 = callbacks->reserved3;
    if (callbacks->onEndOfInput) cb.onEndOfInput = callbacks->onEndOfInput;
    if (callbacks->keepNewline) cb.keepNewline = callbacks->keepNewline;
    if (callbacks->isInputComplete) cb.isInputComplete = callbacks->isInputComplete;
    return 1;
}

int term_setOption(int option, int value) { return qv::set_option(option, value); }

int term_getStatus(void) { return top().t ? top().t->last_status : 0; }

// The size now: the window may have changed since term_init.
int term_getConsoleWidth(void) {
    console *c = the_console();
    int rows = 0, cols = 0;
    return qv::terminal_size(&rows, &cols) ? cols : c->screen.cols;
}

int term_getConsoleHeight(void) {
    console *c = the_console();
    int rows = 0, cols = 0;
    return qv::terminal_size(&rows, &cols) ? rows : c->screen.rows;
}

// ---------------------------------------------------------------------------
// Character and string output

void term_putChar(int ch) { console_put_wchar(the_console(), ch); }

int term_getChar(int echo) {
    console *c = the_console();
    console_get_char(c, 0);
    top().t->last_status = c->status;
    const int ch = c->editor.buffer ? static_cast<int>(c->editor.buffer[0]) : 0;
    if (echo) {
        console_put_wchar(c, ch);
        fflush(qv::terminal_stream()); // the user is typing and expects to see the key now
    }
    return ch;
}

void term_putString(const char *s) {
    console *c = the_console();
    if (!s || !*s) return;
    int n = 0;
    std::unique_ptr<wchar_t, decltype(&free)> wide(cp2wchar(c, s, &n), &free);
    if (wide) console_put_wstring(c, wide.get(), n);
    repaint(c, 1);
}

void term_putStringLn(const char *s) {
    console *c = the_console();
    if (!s || !*s) {
        console_newline(c);
    } else {
        int n = 0;
        std::unique_ptr<wchar_t, decltype(&free)> wide(cp2wchar(c, s, &n), &free);
        if (wide) {
            console_put_wstring(c, wide.get(), n);
            console_newline(c);
        }
    }
    repaint(c, 1);
}

void term_putBlanks(int n) { screen_put_blanks(the_console(), n); }

// ---------------------------------------------------------------------------
// Edits under the host's own loop

#if QV_WITH_EVENT_LOOP

int term_editStart(int flags, char mask, const char *prompt) {
    console *c = the_console();
    if (top().edit_encoding) return 0;
    prepare(c, mask, (flags & TERM_EDIT_RAW) ? 1 : 0);
    if (!console_init_editor(c)) {
        c->status = top().t->last_status = ST_NOBUFFER;
        return 0;
    }
    if (!qv::edit_begin(c, prompt)) {
        top().t->last_status = c->status;
        console_free_editor(c);
        return 0;
    }
    top().edit_encoding = (flags & TERM_EDIT_UTF8) ? utf8_result : encode_input;
    return 1;
}

int term_editFeed(char **line) {
    console *c = the_console();
    if (line) *line = nullptr;
    if (!top().edit_encoding) return -1;
    if (!qv::edit_feed(c)) return 0;
    qv::edit_end(c);
    char *result = finish_line(c, top().edit_encoding);
    top().edit_encoding = nullptr;
    if (line)
        *line = result;
    else
        free(result);
    return 1;
}

namespace {

// Ends the edit under way from outside, its line dropped: status says how
// the screen is left (ST_WOKEN: the row below; ST_STOPPED: as it is).
void end_edit(int status) {
    console *c = the_console();
    if (!top().edit_encoding) return;
    c->status = status;
    qv::edit_end(c);
    free(finish_line(c, top().edit_encoding));
    top().edit_encoding = nullptr;
}

} // namespace

void term_editStop(void) { end_edit(ST_WOKEN); }

void term_editLeave(void) { end_edit(ST_STOPPED); }

int term_editPush(const char *bytes, int n) {
    if (!top().edit_encoding || !bytes || n <= 0) return 0;
    return static_cast<int>(qv::input_push(bytes, static_cast<size_t>(n)));
}

int term_editFd(void) { return top().edit_encoding ? qv::edit_fd() : -1; }

int term_editTimeout(void) { return top().edit_encoding ? qv::edit_timeout(the_console()) : -1; }

#else // a build without the host's loop: no edit starts, and the calls that feed one answer so

int term_editStart(int, char, const char *) { return 0; }
int term_editFeed(char **line) {
    if (line) *line = nullptr;
    return -1;
}
void term_editStop(void) {}
void term_editLeave(void) {}
int term_editPush(const char *, int) { return 0; }
int term_editFd(void) { return -1; }
int term_editTimeout(void) { return -1; }

#endif

// The line under way, for a read's callbacks as for an edit's host.
char *term_editLine(int *cursor) {
    if (cursor) *cursor = 0;
    if (!top().t) return nullptr;
    const editor_t &e = the_console()->editor;
    if (!e.buffer) return nullptr;
    char *before = qv::utf8_of(e.buffer, static_cast<int>(e.cursor - e.buffer));
    if (!before) return nullptr;
    if (cursor) *cursor = static_cast<int>(strlen(before));
    free(before);
    return qv::utf8_of(e.buffer, static_cast<int>(e.lastchar - e.buffer));
}

int term_editSetLine(const char *text, int cursor) {
    if (!top().t || !text) return 0;
    console *c = the_console();
    if (!c->editor.buffer) return 0;
    qv::menu_end(c, false); // a new line leaves a menu nothing to choose in
    const size_t len = strlen(text);
    const size_t at = cursor < 0 ? 0 : static_cast<size_t>(cursor) < len ? static_cast<size_t>(cursor) : len;
    if (len == 0) {
        buffer_clear(c);
        return c->editor.buffer ? 1 : 0;
    }
    int n = 0, before = 0;
    std::unique_ptr<wchar_t, decltype(&free)> wide(cp2wchar(c, text, &n), &free);
    if (!wide) return 0;
    if (at > 0) {
        // A cut inside a character counts it out: the prefix decodes to one
        // character fewer, or to a replacement that is not in the text.
        std::unique_ptr<char, decltype(&free)> head(strndup(text, at), &free);
        std::unique_ptr<wchar_t, decltype(&free)> prefix(head ? cp2wchar(c, head.get(), &before) : nullptr, &free);
        if (!prefix) return 0;
        if (before > 0 && before <= n && prefix.get()[before - 1] != wide.get()[before - 1]) before--;
    }
    buffer_replace(c, wide.get(), static_cast<uint32_t>(n));
    if (!c->editor.buffer) return 0;
    c->editor.cursor = c->editor.buffer + (before < n ? before : n);
    return 1;
}

void term_editRedraw(int fresh) {
    if (top().edit_encoding) qv::edit_redraw(the_console(), fresh != 0);
}


int term_setPairs(const char *pairs) {
    if (!pairs) return 0;
    int n = 0;
    std::unique_ptr<wchar_t, decltype(&free)> chars(qv::utf8_decode(pairs, strlen(pairs), &n), &free);
    if (!chars || n % 2 != 0 || n > 2 * qv::kMaxPairs) return 0;
    qv::set_pairs(chars.get(), n);
    return 1;
}

int term_setRightPrompt(const char *prompt, int keep) {
    if (!top().t || !qv::view_set_right(top().t->console, prompt, keep != 0)) return 0;
    // Between reads as during one: the next paint shows it.
    return 1;
}

int term_setTransientPrompt(const char *prompt) {
    return top().t && qv::view_set_transient(top().t->console, prompt) ? 1 : 0;
}

// ---------------------------------------------------------------------------
// Keys of the user's choice

#if QV_WITH_BINDINGS

namespace {

term_bindings_reporter the_reporter = nullptr;
void *the_reporter_user = nullptr;

struct ReportTo {
    const char *path;
};

void report_line(void *user, int line, const char *text, const char *why) {
    const char *path = static_cast<ReportTo *>(user)->path;
    if (the_reporter)
        the_reporter(path, line, text, why, the_reporter_user);
    else
        logger_write_fmt("quorvel", nullptr, 0, "%s:%d: %s: %s", path, line, why, text);
}

} // namespace

const char *const *term_actionNames(void) { return qv::action_names(); }

namespace {

qv::KeymapSet maps_of(console *c) { return qv::KeymapSet{c->keymaps[0], qv::vi_map(c, false), qv::vi_map(c, true)}; }

} // namespace

int term_bindKey(const char *keymap, const char *keys, const char *action) {
    const action_fn fn = qv::action_named(action);
    if (!top().t || !keys || !fn) return 0;
    console *c = top().t->console;
    const char *prefix = "";
    keymap_entry *map = qv::keymap_named(maps_of(c), keymap, &prefix);
    if (!map) return 0;
    char bytes[64];
    const size_t plen = strlen(prefix);
    memcpy(bytes, prefix, plen);
    const size_t n = qv::parse_keys(keys, strlen(keys), true, bytes + plen, sizeof bytes - plen);
    if (n == 0 || !qv::bind_keys(map, bytes, plen + n, fn)) return 0;
    // A key half read may have walked into a map the binding replaced.
    qv::engine_keys(c).reset();
    return 1;
}

int term_bindMacro(const char *keymap, const char *keys, const char *text) {
    if (!top().t || !keys || !text) return 0;
    console *c = top().t->console;
    const char *prefix = "";
    keymap_entry *map = qv::keymap_named(maps_of(c), keymap, &prefix);
    if (!map) return 0;
    char bytes[64], typed[1024];
    const size_t plen = strlen(prefix);
    memcpy(bytes, prefix, plen);
    const size_t n = qv::parse_keys(keys, strlen(keys), true, bytes + plen, sizeof bytes - plen);
    const size_t t = qv::parse_keys(text, strlen(text), true, typed, sizeof typed);
    const action_fn fn = t ? qv::macro_action(c, typed, t) : nullptr;
    if (n == 0 || !fn || !qv::bind_keys(map, bytes, plen + n, fn)) return 0;
    qv::engine_keys(c).reset();
    return 1;
}



char *term_listBindings(int what, int readable) {
    if (!top().t || what < TERM_LIST_FUNCTIONS || what > TERM_LIST_VARIABLES) return nullptr;
    const qv::Listing kinds[] = {qv::Listing::functions, qv::Listing::macros, qv::Listing::variables};
    return strdup(qv::listing(top().t->console, kinds[what], readable != 0, qv::action_names(), qv::action_named).c_str());
}

int term_setVariable(const char *name, const char *value) {
    if (!top().t || !name) return 0;
    return qv::set_variable(top().t->console, name, value) ? 0 : 1;
}

const char *term_getVariable(const char *name) {
    return top().t ? qv::variable_value(top().t->console, name) : nullptr;
}

const char *const *term_variableNames(void) { return qv::variable_names(); }

void term_setBindingsReporter(term_bindings_reporter fn, void *user) {
    the_reporter = fn;
    the_reporter_user = fn ? user : nullptr;
}

int term_readBindings(const char *path) {
    if (!top().t || !path) return -1;
    ReportTo to{path};
    console *c = top().t->console;
    bool vi = qv::option(TERM_OPTION_VI_MODE) != 0;
    const int reported = qv::read_bindings(c, maps_of(c), path, getenv("TERM"), &vi, report_line, &to);
    if (reported >= 0) qv::set_option(TERM_OPTION_VI_MODE, vi);
    qv::engine_keys(c).reset();
    return reported;
}

#else // a build without bindings files and named actions: their calls answer "not available"

namespace {
const char *const kNone[] = {nullptr};
} // namespace

const char *const *term_actionNames(void) { return kNone; }
int term_bindKey(const char *, const char *, const char *) { return 0; }
int term_bindMacro(const char *, const char *, const char *) { return 0; }
char *term_listBindings(int, int) { return nullptr; }
int term_setVariable(const char *, const char *) { return 0; }
const char *term_getVariable(const char *) { return nullptr; }
const char *const *term_variableNames(void) { return kNone; }
void term_setBindingsReporter(term_bindings_reporter, void *) {}
int term_readBindings(const char *) { return -1; }

#endif
