// The Unix terminal driver: terminfo set-up and the capability cache, the
// terminal modes, cursor motion and drawing, UTF-8 conversion, key input and
// the default key bindings.
#include "os-unix.h"

#include <cerrno>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <curses.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <term.h>
#include <unistd.h>

#include "console.h"
#include "qv_assert.h"

int UNDEF = -1;
int MISSING = 0;
int t_auto_right_margin = 0;
int t_has_meta_key = 0;

namespace {

// ---------------------------------------------------------------------------
// Capability cache: exactly what tigetstr answered, sentinels included.

char *t_clr_eos, *t_clr_eol, *t_clr_bol, *t_bell, *t_flash_screen, *t_clear_screen,
    *t_enter_delete_mode, *t_exit_delete_mode, *t_delete_character, *t_parm_dch,
    *t_enter_insert_mode, *t_exit_insert_mode, *t_insert_character, *t_insert_padding,
    *t_parm_ich, *t_pad_char, *t_cursor_visible, *t_cursor_normal, *t_cursor_up, *t_cursor_down,
    *t_cursor_left, *t_cursor_right, *t_cursor_up_parm, *t_cursor_down_parm, *t_cursor_left_parm,
    *t_cursor_right_parm, *t_cursor_to_ll, *t_cursor_home, *t_column_address, *t_carriage_return,
    *t_key_home, *t_key_ll, *t_key_dc, *t_key_ic, *t_key_down, *t_key_left, *t_key_right,
    *t_key_up, *t_keypad_local, *t_keypad_xmit, *t_parm_index, *t_parm_rindex, *t_insert_line,
    *t_delete_line, *t_parm_delete_line, *t_enter_bold_mode, *t_exit_attribute_mode, *t_meta_on,
    *t_meta_off;

struct Capability {
    char **var;
    const char *name;
};

// Looked up in this order.
const Capability kCapabilities[] = {
    {&t_clr_eos, "ed"},
    {&t_clr_eol, "el"},
    {&t_clr_bol, "el1"},
    {&t_bell, "bel"},
    {&t_flash_screen, "flash"},
    {&t_clear_screen, "clear"},
    {&t_enter_delete_mode, "smdc"},
    {&t_exit_delete_mode, "rmdc"},
    {&t_delete_character, "dch1"},
    {&t_parm_dch, "dch"},
    {&t_enter_insert_mode, "smir"},
    {&t_exit_insert_mode, "rmir"},
    {&t_insert_character, "ich1"},
    {&t_insert_padding, "ip"},
    {&t_parm_ich, "ich"},
    {&t_pad_char, "pad"},
    {&t_cursor_visible, "cvvis"},
    {&t_cursor_normal, "cnorm"},
    {&t_cursor_up, "cuu1"},
    {&t_cursor_down, "cud1"},
    {&t_cursor_left, "cub1"},
    {&t_cursor_right, "cuf1"},
    {&t_cursor_up_parm, "cuu"},
    {&t_cursor_down_parm, "cud"},
    {&t_cursor_left_parm, "cub"},
    {&t_cursor_right_parm, "cuf"},
    {&t_cursor_to_ll, "ll"},
    {&t_cursor_home, "home"},
    {&t_column_address, "hpa"},
    {&t_carriage_return, "cr"},
    {&t_key_home, "khome"},
    {&t_key_ll, "kll"},
    {&t_key_dc, "kdch1"},
    {&t_key_ic, "kich1"},
    {&t_key_down, "kcud1"},
    {&t_key_left, "kcub1"},
    {&t_key_right, "kcuf1"},
    {&t_key_up, "kcuu1"},
    {&t_keypad_local, "rmkx"},
    {&t_keypad_xmit, "smkx"},
    {&t_parm_index, "indn"},
    {&t_parm_rindex, "rin"},
    {&t_insert_line, "il1"},
    {&t_delete_line, "dl1"},
    {&t_parm_delete_line, "dl"},
    {&t_enter_bold_mode, "bold"},
    {&t_exit_attribute_mode, "sgr0"},
    {&t_meta_on, "smm"},
    {&t_meta_off, "rmm"},
};
static_assert(sizeof(kCapabilities) / sizeof(kCapabilities[0]) == 49, "49 capabilities");

// Until a terminal is set up every capability reads as "not a string".
struct CacheInit {
    CacheInit() {
        for (const Capability &cap : kCapabilities) *cap.var = reinterpret_cast<char *>(-1);
    }
} cache_init;

bool available(const char *s) {
    const auto v = reinterpret_cast<intptr_t>(s);
    return v != static_cast<intptr_t>(UNDEF) && v != static_cast<intptr_t>(MISSING);
}

void get_terminal_capabilities(console *) {
    for (const Capability &cap : kCapabilities) *cap.var = tigetstr(cap.name);
    t_auto_right_margin = (tigetflag("am") != 0 && tigetflag("xenl") != 0) ? 1 : 0;
    t_has_meta_key = tigetflag("km") != 0 ? 1 : 0;
}

int console_get_size(console *c, int *rows, int *cols) {
    struct termios saved;
    const int have = console_get_mode(c, &saved);
    if (have) console_set_raw_mode(c, &saved);
    int n_rows = tigetnum("lines");
    int n_cols = tigetnum("cols");
    if (have) console_set_mode(c, &saved);
    if (n_rows < 0 || n_cols < 0) n_rows = n_cols = 1;
    *rows = n_rows;
    *cols = n_cols;
    return 0;
}

// Raw mode for the length of one read, given back on every path out. A mode
// that could not be read is neither changed nor restored.
class RawMode {
  public:
    explicit RawMode(console *c) : c_(c), have_(console_get_mode(c, &saved_) != 0) {
        if (have_) console_set_raw_mode(c_, &saved_);
    }
    ~RawMode() { restore(); }
    void restore() {
        if (have_) console_set_mode(c_, &saved_);
        have_ = false;
    }
    RawMode(const RawMode &) = delete;
    RawMode &operator=(const RawMode &) = delete;

  private:
    console *c_;
    struct termios saved_;
    bool have_;
};

// ---------------------------------------------------------------------------
// UTF-8 locale for the calling thread only, so the host's other threads never
// see a switch and the host's locale name stays as it was.

locale_t utf8_locale() {
    static locale_t loc = [] {
        locale_t l = newlocale(LC_CTYPE_MASK, "C.utf-8", static_cast<locale_t>(0));
        if (!l) l = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
        return l;
    }();
    return loc;
}

class Utf8Scope {
  public:
    Utf8Scope() : loc_(utf8_locale()) {
        if (loc_) prev_ = uselocale(loc_);
    }
    ~Utf8Scope() {
        if (loc_) uselocale(prev_);
    }
    Utf8Scope(const Utf8Scope &) = delete;
    Utf8Scope &operator=(const Utf8Scope &) = delete;

  private:
    locale_t loc_;
    locale_t prev_ = static_cast<locale_t>(0);
};

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
// Set-up and modes

namespace {
// The description this library loaded. A later set-up (term_init after
// term_destroy) releases it first, so repeated set-ups do not pile up copies.
TERMINAL *own_terminal = nullptr;
} // namespace

void do_init_screen(console *c) {
    int err = 0;
    if (own_terminal) {
        del_curterm(own_terminal);
        own_terminal = nullptr;
    }
    if (setupterm(nullptr, fileno(stdout), &err) == OK) own_terminal = cur_term;
    struct termios saved;
    const int have = console_get_mode(c, &saved);
    if (have) console_set_raw_mode(c, &saved);
    console_get_size(c, &c->screen.rows, &c->screen.cols);
    get_terminal_capabilities(c);
    if (have) console_set_mode(c, &saved);
    c->history_add_unchanged = 1;
    c->history_allow_duplicates = 0;
    c->history_max = 1000;
    c->masked = 0;
}

int console_get_mode(console *, struct termios *t) {
    if (!t) return 1;
    return tcgetattr(fileno(stdout), t) >= 0 ? 1 : 0;
}

void console_set_mode(console *, const struct termios *t) {
    if (!t) return;
    tcsetattr(fileno(stdout), TCSADRAIN, t);
}

void console_set_raw_mode(console *, const struct termios *t) {
    if (!t) return;
    struct termios raw = *t;
    raw.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ISTRIP | ICRNL);
    raw.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    raw.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB);
    raw.c_cflag |= CS8 | CLOCAL;
    raw.c_lflag &= ~static_cast<tcflag_t>(ISIG | ICANON | ECHO | IEXTEN);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(fileno(stdin), TCSADRAIN, &raw);
}

int console_get_width(console *) {
    const int cols = tigetnum("cols");
    return cols >= 0 ? cols : 1;
}

int console_get_height(console *) {
    const int rows = tigetnum("lines");
    return rows >= 0 ? rows : 1;
}

int getConsoleType(void *) { return 1; }

// ---------------------------------------------------------------------------
// Cursor motion and drawing. Nothing here flushes: the painter flushes once.

int char_to_terminal(int ch) {
    putc(ch, stdout);
    return 0;
}

void screen_cursor_move_y(console *, int dy) {
    if (dy < 0) {
        if (available(t_cursor_up_parm))
            tputs(tiparm(t_cursor_up_parm, -dy), dy, char_to_terminal);
        else if (available(t_cursor_up))
            for (int i = 0; i < -dy; i++) tputs(t_cursor_up, 1, char_to_terminal);
    } else {
        // Line feeds move straight down in raw mode and scroll at the bottom.
        for (int i = 0; i < dy; i++) fputc('\n', stdout);
    }
}

void screen_cursor_move_x(console *, int dx) {
    if (dx < 0) {
        if (available(t_cursor_left_parm))
            tputs(tiparm(t_cursor_left_parm, -dx), 1, char_to_terminal);
        else if (available(t_cursor_left))
            for (int i = 0; i < -dx; i++) tputs(t_cursor_left, 1, char_to_terminal);
    } else if (dx > 0) {
        if (available(t_cursor_right_parm))
            tputs(tiparm(t_cursor_right_parm, dx), 1, char_to_terminal);
        else if (available(t_cursor_right))
            for (int i = 0; i < dx; i++) tputs(t_cursor_right, 1, char_to_terminal);
    }
}

void screen_cursor_backspace(console *, int n) {
    if (n <= 0) return;
    if (available(t_cursor_left_parm))
        tputs(tiparm(t_cursor_left_parm, n), n, char_to_terminal);
    else if (available(t_cursor_left))
        for (int i = 0; i < n; i++) tputs(t_cursor_left, 1, char_to_terminal);
    else
        for (int i = 0; i < n; i++) char_to_terminal(8);
}

void screen_cursor_move_bol(console *) {
    if (available(t_carriage_return)) tputs(t_carriage_return, 1, char_to_terminal);
}

void screen_cursor_move_eol(console *c) {
    screen_cursor_move_bol(c);
    screen_cursor_move_x(c, c->screen.cols - 1);
}

void screen_cursor_move_to_col(console *c, int column) {
    if (available(t_column_address)) {
        tputs(tiparm(t_column_address, column), 1, char_to_terminal);
    } else {
        screen_cursor_move_bol(c);
        screen_cursor_move_x(c, column);
    }
}

void screen_set_cursor(console *, cursor_pos p) {
    const char *cup = tigetstr("cup");
    if (available(cup)) putp(tiparm(cup, p.pos.y, p.pos.x));
}

void screen_draw_string(console *c, int column, const char *s, int *written) {
    screen_cursor_move_to_col(c, column);
    const int r = fputs(s, stdout);
    screen_cursor_move_to_col(c, c->screen.input.cur.pos.x);
    if (written) *written = r;
}

void screen_draw_wstring(console *c, int column, const wchar_t *s, int n, int *written) {
    std::unique_ptr<char, decltype(&free)> text(wchar2cp(c, s, n), &free);
    if (text) screen_draw_string(c, column, text.get(), written);
}

int console_put_wchar(console *, int ch) {
    char_to_terminal(ch & 0xFF);
    return 0;
}

int console_put_wstring(console *c, const wchar_t *s, int n) {
    if (!s) return 0;
    std::unique_ptr<char, decltype(&free)> text(wchar2cp(c, s, n), &free);
    if (text) console_put_string(c, text.get());
    return 0;
}

int console_put_string(console *, const char *s) {
    fputs(s, stdout);
    return 0;
}

void console_newline(console *c) {
    screen_cursor_move_bol(c);
    char_to_terminal('\n');
}

// ---------------------------------------------------------------------------
// Character conversion

wchar_t *cp2wchar(console *, const char *s, int *count) {
    if (!s) return nullptr;
    Utf8Scope utf8;
    const size_t n = mbstowcs(nullptr, s, 0);
    if (n == static_cast<size_t>(-1) || n == 0) return nullptr;
    auto *w = static_cast<wchar_t *>(malloc((n + 1) * sizeof(wchar_t)));
    if (!w) return nullptr;
    const size_t r = mbstowcs(w, s, n + 1);
    if (r == static_cast<size_t>(-1)) {
        free(w);
        return nullptr;
    }
    w[r] = 0;
    if (count) *count = static_cast<int>(r);
    return w;
}

char *wchar2cp(console *, const wchar_t *s, int count) {
    if (!s || count <= 0) return nullptr;
    Utf8Scope utf8;
    char unit[MB_LEN_MAX];
    size_t bytes = 0;
    mbstate_t st{};
    int n = 0;
    for (; n < count && s[n] != 0; n++) {
        const size_t r = wcrtomb(unit, s[n], &st);
        if (r == static_cast<size_t>(-1)) return nullptr;
        bytes += r;
    }
    if (bytes == 0) return nullptr;
    auto *out = static_cast<char *>(malloc(bytes + 1));
    if (!out) return nullptr;
    st = mbstate_t{};
    size_t pos = 0;
    for (int i = 0; i < n; i++) pos += wcrtomb(out + pos, s[i], &st);
    out[pos] = 0;
    return out;
}

void get_os_encoding(console *) {}

int file_exists(const char *) { return 0; }

void signal_interrupt(console *c) { c->status = ST_INTERRUPTED; }

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
    RawMode raw(c);
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
    screen_buffer_reset(c);
    console_put_prompt(c);
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
    RawMode raw(c);
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

// ---------------------------------------------------------------------------
// Default key bindings

namespace {

struct SequenceBinding {
    const char *sequence;
    action_fn action;
};

// Later bindings replace earlier ones: the three-byte cursor keys at the end
// replace the sub-maps that the four-byte forms created under "\e[".
const SequenceBinding kFixedSequences[] = {
    {"\033[0A", action_key_up},
    {"\033[0B", action_key_down},
    {"\033[0C", action_key_right},
    {"\033[0D", action_key_left},
    {"\033[A~", action_key_up},
    {"\033[B~", action_key_down},
    {"\033[C~", action_key_right},
    {"\033[D~", action_key_left},
    {"\033[H~", action_key_home},
    {"\033[F~", action_key_end},
    {"\033[1~", action_key_home},
    {"\033[2~", action_key_insert},
    {"\033[3~", action_key_delete},
    {"\033[4~", action_key_end},
    {"\033[5~", action_history_earliest},
    {"\033[6~", action_history_latest},
    {"\033OA", action_key_up},
    {"\033OB", action_key_down},
    {"\033OC", action_key_right},
    {"\033OD", action_key_left},
    {"\033OH", action_key_home},
    {"\033OF", action_key_end},
    {"\033[A", action_key_up},
    {"\033[B", action_key_down},
    {"\033[C", action_key_right},
    {"\033[D", action_key_left},
    {"\033[H", action_key_home},
    {"\033[F", action_key_end},
};
static_assert(sizeof(kFixedSequences) / sizeof(kFixedSequences[0]) == 28, "28 fixed sequences");

struct ByteBinding {
    int byte;
    action_fn action;
};

const ByteBinding kSingleBytes[] = {
    {1, action_key_home},
    {3, action_abandon_input_ctrl_c},
    {4, action_delete_or_quit},
    {5, action_key_end},
    {7, action_abandon_input},
    {8, action_key_backspace},
    {9, nullptr}, // Tab: refused, so it stays unbound
    {11, action_kill_to_end_of_line},
    {13, action_key_return},
    {26, action_suspend_process},
    {127, action_key_backspace},
    {10, action_key_return},
    {13, action_key_return},
};

} // namespace

void keymap_set_defaults(console *c) {
    keymap_entry *map = c->keymaps[0];
    for (const SequenceBinding &b : kFixedSequences)
        keymap_bind_key_sequence(map, b.sequence, KM_FUNCTION, b.action);
    for (const ByteBinding &b : kSingleBytes) keymap_bind_key(map, b.byte, KM_FUNCTION, b.action);
    for (int byte = 32; byte <= 126; byte++)
        keymap_bind_key(map, byte, KM_FUNCTION, action_insert_char);

    // The terminal's own key strings come last and win where they meet the
    // bindings above. kll, kdch1 and kich1 are looked up but bind nothing.
    const SequenceBinding terminal_keys[] = {
        {t_key_down, action_key_down}, {t_key_up, action_key_up},
        {t_key_left, action_key_left}, {t_key_right, action_key_right},
        {t_key_home, action_key_home}, {t_key_ll, nullptr},
        {t_key_dc, nullptr},           {t_key_ic, nullptr},
    };
    for (const SequenceBinding &b : terminal_keys)
        keymap_bind_key_sequence(map, b.sequence, KM_FUNCTION, b.action);
}
