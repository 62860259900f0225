// Key input: the line-reading entry, the steps of an edit (the bytes the
// terminal has, decoded into keys and handed to the engine), the blocking
// read as a loop over those steps, and single key reads.
#include "input.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdint>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include "console.h"
#include "engine.h"
#include "keydecode.h"
#include "options.h"
#include "output.h"
#include "printer.h"
#include "render.h"
#include "repeat.h"
#include "session.h"
#include "sgr.h"
#include "text.h"
#include "ttymode.h"
#include "vimode.h"

namespace {

// Key bytes taken from the terminal and not used yet. A burst (a paste, the
// bytes of one key) comes in with one read; what a line read leaves over
// waits here, in order, for the next read or term_getChar.
constexpr size_t kInputSize = 8192;

} // namespace

namespace qv {
struct Edit;
}

// One session's input: where its keys come from and what was read of them.
struct qv::InputState {
    int fd = -1; // -1: standard input, as it stands
    bool none = false; // keys come only from term_editPush
    unsigned char buffer[kInputSize];
    size_t head = 0, tail = 0;
    unsigned long fills = 0; // reads that brought bytes
    bool brackets = false;   // bracketed paste is on: a stop and continue must turn it on again
    qv::Edit *edit = nullptr;    // one terminal, so at most one edit at a time
};

namespace {

// The default session's input, standard input: keys a read leaves over
// wait here for the next one.
qv::InputState own_input;

qv::InputState &in() { return qv::session_record(qv::kSlotInput, own_input); }

int input_fd() {
    const qv::InputState &i = in();
    if (i.none) return -1;
    return i.fd >= 0 ? i.fd : fileno(stdin);
}

// What a wait saw of the terminal, for the step right after it: a read then
// takes what it has without asking first. Unknown when the host's loop
// waited, or a signal cut the wait short.
enum Readiness : int { kUnknown, kReadable, kNotReadable };

bool buffered() {
    const qv::InputState &i = in();
    return i.head < i.tail;
}

// The byte just taken was not used: it is the next key.
void push_back() { in().head--; }

// Answers from next_byte besides a byte.
constexpr int kEnded = -1;    // the read must end; the status says why
constexpr int kTimedOut = -2; // no byte within the time asked for

// The idle rhythm, and how long a key sequence may pause between its bytes
// before it counts as finished: a lone ESC must not wait for ever, yet the
// bytes of one key press arrive well within this.
constexpr long kIdleMicros = 50000;
constexpr int kSequenceTicks = 2;

// Bracketed paste for the length of one line read, when the host wants it
// and the terminal can: on at the start, off on every path out.
class PasteBrackets {
  public:
    PasteBrackets() : on_(qv::option(TERM_OPTION_BRACKETED_PASTE) && qv::paste_bracketing(true)) {
        if (on_) qv::session_on_exit(qv::terminal_key("BD"));
        in().brackets = on_;
    }
    ~PasteBrackets() { end(); }
    void end() {
        if (on_) qv::paste_bracketing(false);
        on_ = in().brackets = false;
        qv::session_on_exit(nullptr);
    }
    PasteBrackets(const PasteBrackets &) = delete;
    PasteBrackets &operator=(const PasteBrackets &) = delete;

  private:
    bool on_;
};

// One read of what the terminal has, up to the buffer's size: a read that
// comes back short holds the whole burst, so a typed key costs this call
// alone. 1 when bytes came, 0 at the end of the input, kEnded on an error.
int read_burst(console *c) {
    for (;;) {
        qv::InputState &i = in();
        const ssize_t r = read(input_fd(), i.buffer, kInputSize);
        if (r > 0) {
            i.head = 0;
            i.tail = static_cast<size_t>(r);
            i.fills++;
            return 1;
        }
        if (r < 0 && errno == EINTR) continue;
        if (r == 0) return 0;
        c->status = ST_IOERROR;
        c->error = errno;
        return kEnded;
    }
}

// Takes everything the terminal has ready without waiting, when nobody saw
// whether it is readable: 1 when bytes came, 0 when none are ready, kEnded
// on an error.
int fill(console *c) {
    int ready = 0;
    if (input_fd() < 0 || ioctl(input_fd(), FIONREAD, &ready) != 0 || ready <= 0) return 0;
    return read_burst(c);
}

// Whole lines as raw mode needs them ended.
void write_lines(console *c, const char *text, size_t n) {
    size_t from = 0;
    for (size_t i = 0; i < n; i++) {
        if (text[i] != '\n') continue;
        fwrite(text + from, 1, i - from, qv::terminal_stream());
        console_newline(c);
        from = i + 1;
    }
    fflush(qv::terminal_stream());
}

// The reads of the print channel: prints wait in its queue from before the
// terminal is raw until after it is the host's again.
class PrintGuard {
  public:
    PrintGuard() { qv::printer_begin_read(); }
    ~PrintGuard() { qv::printer_end_read(); }
    PrintGuard(const PrintGuard &) = delete;
    PrintGuard &operator=(const PrintGuard &) = delete;
};

// Draws what other threads printed: above the input of a line read, or
// where the cursor is during a single-key read; false
// (the status says why) when a wake-up ends the read.
bool serve_printer(console *c, bool line) {
    if (qv::printer_take_wake()) {
        c->status = ST_WOKEN;
        c->error = 0;
        return false;
    }
    size_t n = 0;
    std::unique_ptr<char, decltype(&free)> text(qv::printer_take(&n), &free);
    if (text && line) qv::render_above(c, text.get(), n);
    if (text && !line) write_lines(c, text.get(), n);
    return true;
}

// What a wait saw.
enum Wait : int { kReady, kIdle, kFailed };

// Waits up to one idle period for a key byte, a signal or a print: kIdle
// when the period passed with nothing, kFailed when waiting failed (the
// status says why). A signal never ends a read: once the host's handler has
// run, the caller goes on.
Wait wait_input(console *c, Readiness *ready) {
    const int fd = input_fd(), wake = qv::session_wake_fd(), prints = qv::printer_fd();
    fd_set set;
    FD_ZERO(&set);
    if (fd >= 0) FD_SET(fd, &set);
    if (wake >= 0) FD_SET(wake, &set);
    if (prints >= 0) FD_SET(prints, &set);
    int top = fd > wake ? fd : wake;
    if (prints > top) top = prints;
    struct timeval tv = {0, kIdleMicros};
    const int r = select(top + 1, &set, nullptr, nullptr, &tv);
    *ready = r < 0 ? kUnknown : fd >= 0 && FD_ISSET(fd, &set) ? kReadable : kNotReadable;
    if (r < 0 && errno == EINTR) return kReady;
    if (r < 0) {
        c->status = ST_IOERROR;
        c->error = errno;
        return kFailed;
    }
    return r == 0 ? kIdle : kReady;
}

// An idle period has passed: onIdle has its say, inside a key sequence too,
// so a host's stop is never held up by a key. False once reading stops.
bool idle_tick(console *c) {
    if (c->callbacks.onIdle) {
        const int answer = c->callbacks.onIdle();
        if (answer == 1) c->terminate = 1;
        if (answer == 2) c->cancel = 1;
    }
    return !c->terminate && !c->cancel;
}

bool stopped(console *c) {
    if (!c->terminate && !c->cancel) return false;
    c->status = ST_STOPPED;
    c->error = 0;
    return true;
}

// Takes what the terminal has: 1 when bytes came, 0 when none are ready,
// kEnded (the status says why) when the input failed or ended. Readable
// without a byte is the end of a pipe or file, or a hang-up.
int take_input(console *c, Readiness ready) {
    if (ready == kNotReadable) return 0;
    if (ready == kReadable) {
        // Readable without a byte is the end of a pipe or file, or a
        // hang-up.
        const int got = read_burst(c);
        if (got != 0) return got;
        c->status = ST_EOF;
        c->error = 0;
        return kEnded;
    }
    int got = fill(c);
    if (got != 0) return got;
    struct pollfd p = {input_fd(), POLLIN, 0};
    if (poll(&p, 1, 0) <= 0 || !(p.revents & (POLLIN | POLLHUP))) return 0;
    got = fill(c);
    if (got != 0) return got;
    c->status = ST_EOF;
    c->error = 0;
    return kEnded;
}

// After a stop or a resize the terminal is taken back and, in a line read,
// the input drawn again.
void resume(console *c, bool line) {
    const int event = qv::session_resume();
    if ((event & qv::kContinued) && in().brackets) qv::paste_bracketing(true);
    if ((event & qv::kContinued) && line) qv::render_redraw_all(c);
    if ((event & qv::kResized) && line) qv::render_resize(c);
}

// The next byte of a single-key read. ticks > 0 gives up after that many
// idle periods without one; 0 waits for ever.
int next_byte(console *c, int ticks) {
    // A wake-up ends the read before any key still waiting: those wait on
    // for the next read.
    if (qv::printer_wake_pending() && !serve_printer(c, false)) return kEnded;
    if (buffered()) return in().buffer[in().head++];
    Readiness ready = kUnknown;
    for (int idle = 0;;) {
        if (stopped(c)) return kEnded;
        resume(c, false);
        if (!serve_printer(c, false)) return kEnded;
        const int got = take_input(c, ready);
        if (got > 0) return in().buffer[in().head++];
        if (got < 0) return kEnded;
        const Wait w = wait_input(c, &ready);
        if (w == kFailed) return kEnded;
        if (w == kIdle && idle_tick(c) && ticks > 0 && ++idle >= ticks) return kTimedOut;
    }
}

bool read_over(const console *c) { return qv::engine_over(c); }

// The keys among the bytes read, decoded and handled in turn; more keys
// waiting make a burst, painted once when it is used up.
void take_keys(console *c) {
    qv::KeyDecoder &keys = qv::engine_keys(c);
    const bool utf8 = qv::option(TERM_OPTION_UTF8_INPUT) != 0;
    // A macro that types itself, or a keyboard macro that calls itself,
    // would type for ever: past this much the keys it types are dropped.
    constexpr size_t kTypedMax = 65536;
    size_t typed_in_burst = 0;
    while (buffered() && !read_over(c)) {
        // A wake-up ends the read before any key still waiting: those wait
        // on for the next read.
        if (qv::printer_wake_pending() && !serve_printer(c, true)) return;
        const unsigned char byte = in().buffer[in().head++];
        // A keyboard macro being defined takes the bytes as they come.
        qv::macro_byte(c, byte);
        const qv::DecodedKey k = keys.feed(qv::engine_keymap(c), byte, utf8);
        if (k.again) push_back();
        if (k.kind == qv::DecodedKey::kKey) qv::engine_key(c, k.action, k.arg, buffered(), keys.last_byte());
        else if (k.kind == qv::DecodedKey::kText) qv::engine_key(c, action_insert_char, k.arg, buffered());
        char typed[1024];
        if (const size_t n = qv::engine_take_typed(c, typed, sizeof typed))
            if ((typed_in_burst += n) <= kTypedMax) qv::input_unread(typed, n);
    }
}

// One step of an edit: a stop, a resize, prints and a wake-up served, then
// whatever the terminal has read handled; idle: an idle period passed with
// nothing. True once the read is over (the status says how).
bool edit_step(console *c, bool idle, Readiness ready) {
    if (read_over(c)) {
        stopped(c);
        return true;
    }
    resume(c, true);
    if (!serve_printer(c, true)) return true;
    // Keys an earlier read left over come first; fresh bytes only once
    // they are used up.
    const int got = buffered() ? 1 : take_input(c, ready);
    if (got < 0) return true;
    if (got > 0) {
        take_keys(c);
    } else if (idle) {
        if (!idle_tick(c)) return stopped(c);
        const qv::DecodedKey k = qv::engine_keys(c).pause();
        if (k.kind == qv::DecodedKey::kKey) qv::engine_key(c, k.action, k.arg, false);
    }
    if (!buffered()) qv::engine_flush(c);
    if (c->terminate || c->cancel) return stopped(c);
    return read_over(c);
}

// The library's own wait: edit steps until the read is over, waiting for
// input between them, the same steps a host's loop takes.
void run_steps(console *c) {
    bool idle = false;
    Readiness ready = kUnknown;
    while (!edit_step(c, idle, ready)) {
        const Wait w = wait_input(c, &ready);
        if (w == kFailed) return;
        idle = w == kIdle;
    }
}

} // namespace

// ---------------------------------------------------------------------------
// An edit: one line read, from its start to its end, whether the library
// waits for the keys (term_getLine) or the host does (term_editFeed).

namespace {

using Steady = std::chrono::steady_clock;

// Everything a read holds while it runs, given back in the opposite order:
// the print queue outlasts the raw mode, so what was printed during the
// read is written once the terminal is the host's again.
} // namespace

struct qv::Edit {
    explicit Edit(console *c) : session(c) {}
    PrintGuard prints;
    qv::ReadSession session;
    std::unique_ptr<wchar_t, decltype(&free)> prompt{nullptr, &free};
    std::unique_ptr<uint32_t, decltype(&free)> prompt_styles{nullptr, &free};
    PasteBrackets brackets;
    int poll_fd = -1; // the terminal, the signal pipe and the print pipe
    Steady::time_point last_event;
};

namespace {


constexpr auto kIdlePeriod = std::chrono::microseconds(kIdleMicros);

void watch(int poll_fd, int fd) {
    if (fd < 0) return;
    struct epoll_event ev {};
    ev.events = EPOLLIN;
    ev.data.fd = fd;
    epoll_ctl(poll_fd, EPOLL_CTL_ADD, fd, &ev);
}

} // namespace

bool qv::edit_begin(console *c, const char *prompt) {
    if (in().edit) return false;

    in().edit = new (std::nothrow) qv::Edit(c);
    if (!in().edit) {
        c->status = ST_NOMEMORY;
        return false;
    }
    cursor_reset(c);
    if (prompt && *prompt) in().edit->prompt.reset(cp2wchar(c, prompt, nullptr));
    if (in().edit->prompt) in().edit->prompt_styles.reset(qv::take_styles(in().edit->prompt.get()));
    c->prompt = in().edit->prompt ? in().edit->prompt.get() : L"";
    c->styled_prompt = c->prompt;
    c->prompt_styles = in().edit->prompt_styles.get();
    in().edit->last_event = Steady::now();
    engine_begin(c);
    return true;
}

bool qv::edit_feed(console *c) {
    qv::Edit *e = in().edit;
    if (!e) return true;
    // An idle period is one that passed since anything last happened.
    const Steady::time_point now = Steady::now();
    const bool idle = now - e->last_event >= kIdlePeriod;
    const unsigned long before = in().fills;
    const bool over = edit_step(c, idle, kUnknown);
    if (idle || in().fills != before) e->last_event = now;
    return over;
}

void qv::edit_end(console *c) {
    qv::Edit *e = in().edit;
    if (!e) return;
    engine_end(c);
    e->brackets.end();
    c->prompt = L"";
    c->styled_prompt = nullptr;
    c->prompt_styles = nullptr;
    if (e->poll_fd >= 0) close(e->poll_fd);
    in().edit = nullptr;
    delete e;
    // Raised only once the terminal is the user's again, so that a host
    // without a handler dies leaving a working terminal.
    if (c->status == ST_INTERRUPTED && c->sigint) raise(SIGINT);
}

size_t qv::input_push(const char *bytes, size_t n) {
    InputState &i = in();
    if (i.head > 0) {
        memmove(i.buffer, i.buffer + i.head, i.tail - i.head);
        i.tail -= i.head;
        i.head = 0;
    }
    if (n > kInputSize - i.tail) n = kInputSize - i.tail;
    memcpy(i.buffer + i.tail, bytes, n);
    i.tail += n;
    return n;
}

size_t qv::input_unread(const char *bytes, size_t n) {
    InputState &i = in();
    const size_t pending = i.tail - i.head;
    if (n > kInputSize - pending) n = kInputSize - pending;
    memmove(i.buffer + n, i.buffer + i.head, pending);
    memcpy(i.buffer, bytes, n);
    i.head = 0;
    i.tail = n + pending;
    return n;
}

int term_setInputFd(int fd) {
    qv::InputState &i = in();
    const int before = input_fd();
    i.none = fd < 0;
    if (fd >= 0) i.fd = fd;
    return before;
}

qv::InputState *qv::input_new(int fd) {
    auto *i = new (std::nothrow) InputState;
    if (i) i->fd = fd;
    return i;
}

void qv::input_free(InputState *i) { delete i; }

void qv::edit_redraw(console *c, bool fresh) {
    if (!in().edit) return;
    if (fresh) {
        cursor_reset(c);
        if (!render_start_input(c)) return;
    }
    render(c, 0, false, vi_cursor_shape(c));
}

int qv::edit_fd() {
    qv::Edit *e = in().edit;
    if (!e) return -1;
    if (e->poll_fd < 0) {
        e->poll_fd = epoll_create1(EPOLL_CLOEXEC);
        if (e->poll_fd < 0) return -1;
        watch(e->poll_fd, input_fd());
        watch(e->poll_fd, session_wake_fd());
        watch(e->poll_fd, printer_fd());
    }
    return e->poll_fd;
}

int qv::edit_timeout(const console *c) {
    qv::Edit *e = in().edit;
    if (!e) return -1;
    const int due = engine_paint_due(c);
    if (!c->callbacks.onIdle && !engine_keys(const_cast<console *>(c)).pending()) return due;
    const auto left = e->last_event + kIdlePeriod - Steady::now();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(left).count();
    const int idle = ms < 0 ? 0 : static_cast<int>(ms) + 1;
    return due >= 0 && due < idle ? due : idle;
}

// ---------------------------------------------------------------------------
// Line reading

void console_get_cursor(console *c, int *row, int *col) {
    *row = c->screen.input.cur.pos.y;
    *col = c->screen.input.cur.pos.x;
}

void console_read_line(console *c, const char *prompt) {
    if (!console_init_editor(c)) {
        c->status = ST_NOBUFFER;
        return;
    }
    if (c->flags & FLAG_NONINTERACTIVE) {
        PrintGuard prints;
        qv::ReadSession session(c);
        cursor_reset(c);
        read_input_noninteractive(c);
        return;
    }
    if (!qv::edit_begin(c, prompt)) return;
    run_steps(c);
    qv::edit_end(c);
}

void read_input_noninteractive(console *c) {
    for (;;) {
        unsigned char byte;
        if (fread(&byte, 1, 1, stdin) != 1) break;
        if (buffer_resize(c, 1) == 0) return;
        *c->editor.cursor++ = byte;
        c->editor.lastchar = c->editor.cursor;
    }
    if (feof(stdin)) {
        c->status = ST_DONE;
        *c->editor.cursor = 0;
        clearerr(stdin);
    } else if (ferror(stdin)) {
        c->status = ST_IOERROR;
        c->error = ferror(stdin);
        clearerr(stdin);
    }
}

// ---------------------------------------------------------------------------
// The interactive input loop

// The interactive loop on its own, for a caller that has set the terminal
// up itself: the same steps as every read.
void read_input(console *c) {
    qv::engine_begin(c);
    run_steps(c);
    qv::engine_end(c);
}

int GetChar(console *c) {
    const int b = next_byte(c, 0);
    return b < 0 ? -1 : b;
}

action_fn process_keyboard_events(console *c, const keymap_entry *map) {
    qv::KeyDecoder keys;
    keys.begin_sequence(map, 0);
    for (;;) {
        const int b = next_byte(c, kSequenceTicks);
        if (b < 0) return nullptr;
        const qv::DecodedKey k = keys.feed(map, b, false);
        if (k.kind != qv::DecodedKey::kMore) return k.action;
    }
}

void console_get_char(console *c, int) {
    if (!console_init_editor(c)) {
        c->status = ST_NOBUFFER;
        return;
    }
    PrintGuard prints;
    qv::ReadSession session(c);
    const int key = GetChar(c);
    if (key == -1) return; // the status says why
    session.end();
    c->editor.buffer[0] = static_cast<wchar_t>(key);
    c->editor.lastchar = c->editor.buffer + 1;
    c->status = ST_DONE;
}
