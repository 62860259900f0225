// Key input: the line-reading entry, the interactive input loop that turns
// key bytes into actions through the key map, and single key reads. The
// input side never writes to the terminal itself: actions ask the screen
// for a paint.
#include "input.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include "console.h"
#include "screen.h"
#include "text.h"
#include "ttymode.h"

namespace {

int pending = 0; // bytes the terminal driver reports as readable

// Continuation bytes of a key sequence come from the descriptor, like the
// first byte, so that nothing typed ahead is stranded in a stdio buffer.
// Blocks without a time-out; -1 at end of input or on an error.
int read_sequence_byte() {
    const int fd = fileno(stdin);
    for (;;) {
        unsigned char b;
        const ssize_t r = read(fd, &b, 1);
        if (r == 1) return b;
        if (r < 0 && errno == EINTR) continue;
        if (r < 0 && errno == EAGAIN) {
            fd_set set;
            FD_ZERO(&set);
            FD_SET(fd, &set);
            if (select(fd + 1, &set, nullptr, nullptr, nullptr) >= 0 || errno == EINTR) continue;
        }
        return -1;
    }
}

int read_pending_byte(console *c) {
    unsigned char b;
    if (read(fileno(stdin), &b, 1) == 1) {
        pending--;
        return b;
    }
    c->status = ST_IOERROR;
    c->error = errno;
    return 0;
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
    qv::RawMode raw(c);
    cursor_reset(c);
    if (c->flags & FLAG_NONINTERACTIVE) {
        read_input_noninteractive(c);
        return;
    }
    std::unique_ptr<wchar_t, decltype(&free)> wide(nullptr, &free);
    if (prompt && *prompt) wide.reset(cp2wchar(c, prompt, nullptr));
    console_set_prompt(c, wide ? wide.get() : L"");
    read_input(c);
    console_set_prompt(c, L"");
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
    qv::screen_start_input(c);
    do {
        c->status = ST_READING;
        c->error = 0;
        const int key = GetChar(c);
        if (key == -1) {
            c->status = ST_DONE;
            break;
        }
        const keymap_entry &e = map[key & 0xFF];
        action_fn action = nullptr;
        if (e.type == KM_FUNCTION)
            action = e.target.action;
        else if (e.type == KM_SUBMAP)
            action = process_keyboard_events(c, e.target.map);
        if (action) action(c, key);
    } while (!c->terminate && c->status == ST_READING && c->eof != 1);

    if (c->status == ST_INTERRUPTED) {
        c->status = ST_READING;
        // Raised while still in raw mode: the caller restores the mode after
        // the host's handler has returned.
        if (c->sigint) raise(SIGINT);
    }
}

int GetChar(console *c) {
    const int fd = fileno(stdin);
    while (!c->terminate && !c->cancel) {
        if (ioctl(fd, FIONREAD, &pending) == 0 && pending > 0) return read_pending_byte(c);
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        struct timeval tv = {0, 50000};
        errno = 0;
        const int r = select(fd + 1, &set, nullptr, nullptr, &tv);
        // A signal the host caught is not the user ending the line: its
        // handler has run, and the wait goes on with the text intact.
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) {
            c->status = ST_IOERROR;
            c->error = errno;
            return -1;
        }
        if (r == 0) {
            if (c->callbacks.onIdle) {
                const int answer = c->callbacks.onIdle();
                if (answer == 1) c->terminate = 1;
                if (answer == 2) c->cancel = 1;
            }
            continue;
        }
        if (!FD_ISSET(fd, &set)) continue;
        if (ioctl(fd, FIONREAD, &pending) == 0 && pending > 0) return read_pending_byte(c);
        // Readable without a byte: the end of a pipe or file, or a hang-up.
        c->status = ST_IOERROR;
        c->error = errno;
        return 0;
    }
    c->status = ST_STOPPED;
    c->error = 0;
    return -1;
}

action_fn process_keyboard_events(console *c, const keymap_entry *map) {
    for (;;) {
        const int b = read_sequence_byte();
        if (b <= 0) {
            c->status = ST_DONE;
            return nullptr;
        }
        const keymap_entry &e = map[b];
        if (e.type == KM_FUNCTION) return e.target.action;
        if (e.type != KM_SUBMAP) return nullptr; // the sequence so far is dropped
        map = e.target.map;
    }
}

void console_get_char(console *c, int) {
    if (!console_init_editor(c)) {
        c->status = ST_NOBUFFER;
        return;
    }
    qv::RawMode raw(c);
    const int key = GetChar(c);
    if (key == -1) {
        c->status = ST_DONE;
        return;
    }
    raw.restore();
    c->editor.buffer[0] = static_cast<wchar_t>(key);
    c->editor.lastchar = c->editor.buffer + 1;
    c->status = ST_READING;
}
