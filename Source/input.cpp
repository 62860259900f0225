// Key input: the line-reading entry, the interactive input loop that turns
// key bytes into actions through the key map, and single key reads.
//
// The loop is the one place a read draws from. A key's action changes state
// only, leaving in the frame what the screen must do besides (a line left
// behind, a fresh prompt); the loop carries that out, then renders the state
// once: after each key, or once after a burst of keys that were all waiting.
#include "input.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include "completion.h"
#include "console.h"
#include "editkeys.h"
#include "frame.h"
#include "hints.h"
#include "options.h"
#include "output.h"
#include "paste.h"
#include "printer.h"
#include "render.h"
#include "search.h"
#include "text.h"
#include "ttymode.h"
#include "undo.h"

// A burst of keys changed the state and its paint waits for the burst's end.
struct qv::EngineState {
    bool held;
};

qv::EngineState *qv::engine_new() { return static_cast<EngineState *>(calloc(1, sizeof(EngineState))); }

void qv::engine_free(EngineState *e) { free(e); }

namespace {

qv::EngineState *engine_of(const console *c) { return c->state ? c->state->engine : nullptr; }

// Draws the state now; compact when it ends a burst that was held back.
void paint_now(console *c, int flags) {
    qv::EngineState *e = engine_of(c);
    const bool compact = e && e->held;
    if (e) e->held = false;
    qv::render(c, flags, compact);
}

void flush_held(console *c) {
    const qv::EngineState *e = engine_of(c);
    if (e && e->held) paint_now(c, 0);
}

// The key's paint, or, with more keys waiting, a note that one is due.
void paint_or_hold(console *c, int flags, bool more) {
    if (!more)
        paint_now(c, flags);
    else if (qv::EngineState *e = engine_of(c))
        e->held = true;
}

void start_input(console *c, bool more) {
    if (qv::render_start_input(c)) paint_or_hold(c, 0, more);
}

// Key bytes taken from the terminal and not used yet. A burst (a paste, the
// bytes of one key) comes in with one read; what a line read leaves over
// waits here, in order, for the next read or term_getChar.
constexpr size_t kInputSize = 8192;
unsigned char input_buffer[kInputSize];
size_t input_head = 0, input_tail = 0;

bool buffered() { return input_head < input_tail; }

// The byte just taken was not used: it is the next key.
void push_back() { input_head--; }

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
        active = on_;
    }
    ~PasteBrackets() { end(); }
    void end() {
        if (on_) qv::paste_bracketing(false);
        on_ = active = false;
        qv::session_on_exit(nullptr);
    }
    PasteBrackets(const PasteBrackets &) = delete;
    PasteBrackets &operator=(const PasteBrackets &) = delete;
    static bool active; // a stop and continue must turn it on again

  private:
    bool on_;
};

bool PasteBrackets::active = false;

// Takes everything the terminal has ready, up to the buffer's size, without
// waiting: 1 when bytes came, 0 when none are ready, kEnded on an error.
int fill(console *c) {
    const int fd = fileno(stdin);
    int ready = 0;
    if (ioctl(fd, FIONREAD, &ready) != 0 || ready <= 0) return 0;
    for (;;) {
        const ssize_t r = read(fd, input_buffer, kInputSize);
        if (r > 0) {
            input_head = 0;
            input_tail = static_cast<size_t>(r);
            return 1;
        }
        if (r < 0 && errno == EINTR) continue;
        c->status = ST_IOERROR;
        c->error = r < 0 ? errno : 0;
        return kEnded;
    }
}

// Whole lines as raw mode needs them ended.
void write_lines(console *c, const char *text, size_t n) {
    size_t from = 0;
    for (size_t i = 0; i < n; i++) {
        if (text[i] != '\n') continue;
        fwrite(text + from, 1, i - from, stdout);
        console_newline(c);
        from = i + 1;
    }
    fflush(stdout);
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

// Waits for the next key byte. ticks > 0 gives up after that many idle
// periods without one; 0 waits for ever. Every idle period asks onIdle,
// inside a key sequence too, so a host's stop is never held up by a key.
// A signal never ends the wait: once the host's handler has run, the wait
// goes on, with the terminal taken back if the signal had given it away.
int next_byte(console *c, int ticks, bool line) {
    // A wake-up ends the read before any key still waiting: those wait on
    // for the next read.
    if (qv::printer_wake_pending() && !serve_printer(c, line)) return kEnded;
    if (buffered()) return input_buffer[input_head++];
    // The burst is used up: what it changed is painted once, now.
    if (line) flush_held(c);
    const int fd = fileno(stdin);
    int idle = 0;
    while (!c->terminate && !c->cancel) {
        const int event = qv::session_resume();
        if ((event & qv::kContinued) && PasteBrackets::active) qv::paste_bracketing(true);
        if ((event & qv::kContinued) && line) qv::render_redraw_all(c);
        if ((event & qv::kResized) && line) qv::render_resize(c);
        if (!serve_printer(c, line)) return kEnded;
        int got = fill(c);
        if (got > 0) return input_buffer[input_head++];
        if (got < 0) return kEnded;
        const int wake = qv::session_wake_fd(), prints = qv::printer_fd();
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        if (wake >= 0) FD_SET(wake, &set);
        if (prints >= 0) FD_SET(prints, &set);
        int top = fd > wake ? fd : wake;
        if (prints > top) top = prints;
        struct timeval tv = {0, kIdleMicros};
        const int r = select(top + 1, &set, nullptr, nullptr, &tv);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) {
            c->status = ST_IOERROR;
            c->error = errno;
            return kEnded;
        }
        if (r == 0) {
            if (c->callbacks.onIdle) {
                const int answer = c->callbacks.onIdle();
                if (answer == 1) c->terminate = 1;
                if (answer == 2) c->cancel = 1;
            }
            if (ticks > 0 && ++idle >= ticks && !c->terminate && !c->cancel) return kTimedOut;
            continue;
        }
        if (!FD_ISSET(fd, &set)) continue; // the pipes: handled at the top
        got = fill(c);
        if (got > 0) return input_buffer[input_head++];
        if (got < 0) return kEnded;
        // Readable without a byte: the end of a pipe or file, or a hang-up.
        c->status = ST_EOF;
        c->error = 0;
        return kEnded;
    }
    c->status = ST_STOPPED;
    c->error = 0;
    return kEnded;
}

bool is_csi_parameter(int b) { return b >= 0x20 && b <= 0x3F; }

// The rest of a control sequence the key map does not know, up to its final
// byte, so that no stray tail ("~", "2A") lands in the line.
void swallow_sequence(console *c, int b) {
    while (is_csi_parameter(b)) {
        b = next_byte(c, kSequenceTicks, true);
        if (b < 0) return;
    }
}

// Follows a key sequence through the key maps, from the map its first byte
// selected. An unfinished, unknown or broken sequence does nothing.
action_fn decode_sequence(console *c, int first, const keymap_entry *map) {
    int second = -1;
    for (int count = 1;; count++) {
        const int b = next_byte(c, kSequenceTicks, true);
        if (b < 0) return nullptr; // timed out, or the read ends
        if (count == 1) second = b;
        const keymap_entry &e = map[b];
        if (e.type == KM_FUNCTION) return e.target.action;
        if (e.type == KM_SUBMAP) {
            map = e.target.map;
            continue;
        }
        const bool control_sequence = first == 27 && (second == '[' || second == 'O');
        if (control_sequence && count == 1) swallow_sequence(c, next_byte(c, kSequenceTicks, true));
        if (control_sequence && count > 1) swallow_sequence(c, b);
        return nullptr;
    }
}

// The character a UTF-8 lead byte starts, read from the same source as the
// rest of a key sequence; 0 when the sequence is invalid or cut short. A
// byte that breaks the sequence is not lost: it is the next key.
int read_utf8(console *c, int lead) {
    const int need = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    uint32_t cp = static_cast<uint32_t>(lead) & (0x3Fu >> need);
    for (int i = 0; i < need; i++) {
        const int b = next_byte(c, kSequenceTicks, true);
        if (b < 0) return 0;
        // The second byte's range excludes overlong forms, surrogates and
        // code points above U+10FFFF.
        int lo = 0x80, hi = 0xBF;
        if (i == 0 && lead == 0xE0) lo = 0xA0;
        if (i == 0 && lead == 0xED) hi = 0x9F;
        if (i == 0 && lead == 0xF0) lo = 0x90;
        if (i == 0 && lead == 0xF4) hi = 0x8F;
        if (b < lo || b > hi) {
            push_back();
            return 0;
        }
        cp = (cp << 6) | (static_cast<uint32_t>(b) & 0x3Fu);
    }
    return static_cast<int>(cp);
}


// Whether a mode takes the keys first: a search, a paste, a question, a
// quoted key.
bool in_mode(const console *c) {
    return qv::search_active(c) || qv::paste_active(c) || qv::completion_asking(c) || qv::quoted_active(c);
}

// A mode's turn at the key: true when it used it.
bool take_by_mode(console *c, action_fn action, int key) {
    if (qv::quoted_active(c)) {
        qv::quoted_key(c, key);
        return true;
    }
    if (qv::completion_asking(c)) {
        qv::completion_answer(c, key);
        return true;
    }
    if (qv::paste_active(c)) {
        qv::paste_key(c, action, key);
        return true;
    }
    return qv::search_active(c) && qv::search_key(c, action, key);
}

// Text for the screen from a key (a completion listing, a question), written
// as it is; a line feed ends a row.
void write_text(console *c, const wchar_t *text, int n) {
    int from = 0;
    for (int i = 0; i <= n; i++) {
        if (i < n && text[i] != L'\n') continue;
        if (i > from) console_put_wstring(c, text + from, i - from);
        if (i < n) console_newline(c);
        from = i + 1;
    }
    fflush(stdout);
}

// Carries out what the key asked of the screen, in order.
void run_requests(console *c, int *flags, bool more) {
    qv::FrameStep step;
    while (qv::frame_next(c, &step)) {
        switch (step.op) {
        case qv::kPaintNow: paint_now(c, 0); break;
        case qv::kFlushPending: flush_held(c); break;
        case qv::kNewline: console_newline(c); break;
        case qv::kAfterNewline: qv::render_after_newline(c); break;
        case qv::kStartInput: start_input(c, more); break;
        case qv::kRedrawBelow: qv::render_redraw_below(c); break;
        case qv::kClearScreen:
            if (qv::erase_screen()) qv::render_redraw_all(c);
            break;
        case qv::kMoveCursorFirst: *flags |= qv::kCursorFirst; break;
        case qv::kWrite: write_text(c, step.text, step.len); break;
        case qv::kThen: step.then(c); break;
        }
        free(step.text);
    }
}

// One key: its action (unless a mode takes it), each key a step for undo
// but typing on (and a whole paste) one; then what it asked of the screen;
// then, while the read goes on, the hint and the key's paint, unless more
// keys wait. A read the key ended has drawn all it shows.
void dispatch(console *c, action_fn action, int key, bool more) {
    qv::undo_boundary(c, in_mode(c) || (action == action_insert_char && qv::frame_last_action(c) == action_insert_char));
    qv::frame_begin_key(c, action);
    if (!take_by_mode(c, action, key) && action) action(c, key);
    int flags = 0;
    run_requests(c, &flags, more);
    qv::frame_end_key(c);
    if (c->status != ST_READING || c->eof == 1 || c->terminate) return;
    if (qv::hints_enabled(c)) qv::hint_update(c, in_mode(c));
    paint_or_hold(c, more ? 0 : flags, more);
}

// A read a wake-up ended leaves its text on the screen, as Return would,
// and the terminal on the row below it.
void leave_woken(console *c) {
    qv::hint_clear(c);
    if (c->editor.buffer) buffer_cursor_move_end(c);
    paint_now(c, 0);
    console_newline(c);
}

// The modes a read may leave running end with it.
void end_modes(console *c) {
    qv::search_reset(c);
    qv::paste_reset(c);
    qv::completion_end(c);
    qv::editkeys_reset(c);
    qv::frame_reset(c);
    qv::hint_clear(c);
    qv::undo_reset(c);
}

} // namespace

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
    {
        // What is printed during the read goes below the finished input.
        PrintGuard prints;
        qv::ReadSession session(c);
        cursor_reset(c);
        if (c->flags & FLAG_NONINTERACTIVE) {
            read_input_noninteractive(c);
            return;
        }
        std::unique_ptr<wchar_t, decltype(&free)> wide(nullptr, &free);
        if (prompt && *prompt) wide.reset(cp2wchar(c, prompt, nullptr));
        c->prompt = wide ? wide.get() : L"";
        PasteBrackets brackets;
        read_input(c);
        brackets.end();
        c->prompt = L"";
    }
    // Raised only once the terminal is the user's again, so that a host
    // without a handler dies leaving a working terminal.
    if (c->status == ST_INTERRUPTED && c->sigint) raise(SIGINT);
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

void read_input(console *c) {
    const keymap_entry *map = c->keymaps[0];
    // Every read walks the history afresh from the line being typed.
    history_set_latest(c);
    history_cleanup_temp(c);
    end_modes(c);
    start_input(c, false);
    do {
        c->status = ST_READING;
        c->error = 0;
        const int key = next_byte(c, 0, true);
        if (key < 0) break;
        const keymap_entry &e = map[key];
        action_fn action = nullptr;
        int arg = key;
        if (e.type == KM_FUNCTION) {
            action = e.target.action;
        } else if (e.type == KM_SUBMAP) {
            action = decode_sequence(c, key, e.target.map);
        } else if (key >= 0xC2 && key <= 0xF4 && qv::option(TERM_OPTION_UTF8_INPUT)) {
            // Typed text beyond ASCII: one character, inserted as a key is.
            arg = read_utf8(c, key);
            if (arg <= 0) continue;
            action = action_insert_char;
        }
        if (c->status != ST_READING) continue;
        // While more keys wait, the paint waits until the burst is used up.
        // The rest of this key's own bytes were read above: they are no burst.
        dispatch(c, action, arg, buffered());
    } while (!c->terminate && c->status == ST_READING && c->eof != 1);
    // A read that ends mid-burst shows what the user must see first.
    flush_held(c);
    if (c->status == ST_WOKEN) leave_woken(c);
    end_modes(c);
    if (c->eof == 1 && c->status == ST_READING) c->status = ST_EOF;
}

int GetChar(console *c) {
    const int b = next_byte(c, 0, false);
    return b < 0 ? -1 : b;
}

action_fn process_keyboard_events(console *c, const keymap_entry *map) {
    return decode_sequence(c, 0, map);
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
