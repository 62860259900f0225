// Key input: the line-reading entry, the interactive input loop that turns
// key bytes into actions through the key map, and single key reads. The
// input side never writes to the terminal itself: actions ask the screen
// for a paint.
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

#include "console.h"
#include "options.h"
#include "output.h"
#include "search.h"
#include "screen.h"
#include "text.h"
#include "ttymode.h"

namespace {

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

// Waits for the next key byte. ticks > 0 gives up after that many idle
// periods without one; 0 waits for ever. Every idle period asks onIdle,
// inside a key sequence too, so a host's stop is never held up by a key.
// A signal never ends the wait: once the host's handler has run, the wait
// goes on, with the terminal taken back if the signal had given it away.
int next_byte(console *c, int ticks, bool line) {
    if (buffered()) return input_buffer[input_head++];
    // The burst is used up: what it changed is painted once, now.
    if (line) qv::screen_flush(c);
    const int fd = fileno(stdin);
    int idle = 0;
    while (!c->terminate && !c->cancel) {
        const int event = qv::session_resume();
        if ((event & qv::kContinued) && PasteBrackets::active) qv::paste_bracketing(true);
        if ((event & qv::kContinued) && line) qv::screen_redraw_all(c);
        if ((event & qv::kResized) && line) qv::screen_resize(c);
        int got = fill(c);
        if (got > 0) return input_buffer[input_head++];
        if (got < 0) return kEnded;
        const int wake = qv::session_wake_fd();
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        if (wake >= 0) FD_SET(wake, &set);
        struct timeval tv = {0, kIdleMicros};
        const int r = select((wake > fd ? wake : fd) + 1, &set, nullptr, nullptr, &tv);
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
        if (!FD_ISSET(fd, &set)) continue; // the wake pipe: handled at the top
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


// Runs an action, unless a mode (a search, a paste, a question) takes the key.
// Each key is a step for undo, but typing on (and a whole paste) is one. With
// hints on, the hint follows every key, in the same paint.
void dispatch(console *c, action_fn action, int key) {
    console_state *st = c->state;
    if (!st) {
        if (action) action(c, key);
        return;
    }
    qv::undo_boundary(c, st->modal || (action == action_insert_char && st->last_action == action_insert_char));
    const bool hints = qv::hints_enabled(c);
    const bool burst = st->defer != 0;
    if (hints) qv::screen_defer(c, true);
    if (!(st->modal && st->modal(c, action, key)) && action) action(c, key);
    st->last_action = action;
    if (hints) {
        qv::hint_update(c);
        qv::screen_defer(c, burst);
        if (!burst) qv::screen_flush(c);
    }
}

// The modes a read may leave running end with it.
void end_modes(console *c) {
    if (!c->state) return;
    qv::search_reset(c);
    c->state->modal = nullptr;
    c->state->last_action = nullptr;
    c->state->hint = nullptr;
    c->state->hint_len = 0;
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
        qv::ReadSession session(c);
        cursor_reset(c);
        if (c->flags & FLAG_NONINTERACTIVE) {
            read_input_noninteractive(c);
            return;
        }
        std::unique_ptr<wchar_t, decltype(&free)> wide(nullptr, &free);
        if (prompt && *prompt) wide.reset(cp2wchar(c, prompt, nullptr));
        console_set_prompt(c, wide ? wide.get() : L"");
        PasteBrackets brackets;
        read_input(c);
        brackets.end();
        console_set_prompt(c, L"");
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
    qv::screen_start_input(c);
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
        // While more keys wait, keys change the model and the paint waits
        // until the burst is used up. The rest of this key's own bytes were
        // read above: they are no burst.
        qv::screen_defer(c, buffered());
        dispatch(c, action, arg);
    } while (!c->terminate && c->status == ST_READING && c->eof != 1);
    // A read that ends mid-burst shows what the user must see first.
    qv::screen_defer(c, false);
    qv::screen_flush(c);
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
    qv::ReadSession session(c);
    const int key = GetChar(c);
    if (key == -1) return; // the status says why
    session.end();
    c->editor.buffer[0] = static_cast<wchar_t>(key);
    c->editor.lastchar = c->editor.buffer + 1;
    c->status = ST_DONE;
}
