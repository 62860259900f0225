// Terminal output: the terminfo set-up, the capability cache, cursor motion
// and drawing. Capability strings go out through tputs with char_to_terminal
// as the sink; a capability is sent only when it is neither UNDEF nor
// MISSING.
#include "output.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <new>

#include <curses.h>
#include <term.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "outstate.h"
#include "rgb.h"
#include "session.h"
#include "text.h"

int UNDEF = -1;
int MISSING = 0;
int t_auto_right_margin = 0;
int t_has_meta_key = 0;

namespace {

qv::OutputState &own() {
    static qv::OutputState state(nullptr, -1);
    return state;
}

qv::OutputState &st() { return qv::session_record(qv::kSlotOutput, own()); }

FILE *out() {
    FILE *f = st().out;
    return f ? f : stdout;
}

int out_fd() {
    const int fd = st().fd;
    return fd >= 0 ? fd : fileno(out());
}

pthread_mutex_t terminfo_lock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

using qv::Terminfo;
using qv::StyleCaps;

} // namespace

namespace {

// ---------------------------------------------------------------------------
// Capability cache: exactly what tigetstr answered, sentinels included.


struct Capability {
    char *qv::OutputState::*var;
    const char *name;
};

// Looked up in this order.
const Capability kCapabilities[] = {
    {&qv::OutputState::t_clr_eos, "ed"},
    {&qv::OutputState::t_clr_eol, "el"},
    {&qv::OutputState::t_clr_bol, "el1"},
    {&qv::OutputState::t_bell, "bel"},
    {&qv::OutputState::t_flash_screen, "flash"},
    {&qv::OutputState::t_clear_screen, "clear"},
    {&qv::OutputState::t_enter_delete_mode, "smdc"},
    {&qv::OutputState::t_exit_delete_mode, "rmdc"},
    {&qv::OutputState::t_delete_character, "dch1"},
    {&qv::OutputState::t_parm_dch, "dch"},
    {&qv::OutputState::t_enter_insert_mode, "smir"},
    {&qv::OutputState::t_exit_insert_mode, "rmir"},
    {&qv::OutputState::t_insert_character, "ich1"},
    {&qv::OutputState::t_insert_padding, "ip"},
    {&qv::OutputState::t_parm_ich, "ich"},
    {&qv::OutputState::t_pad_char, "pad"},
    {&qv::OutputState::t_cursor_visible, "cvvis"},
    {&qv::OutputState::t_cursor_normal, "cnorm"},
    {&qv::OutputState::t_cursor_up, "cuu1"},
    {&qv::OutputState::t_cursor_down, "cud1"},
    {&qv::OutputState::t_cursor_left, "cub1"},
    {&qv::OutputState::t_cursor_right, "cuf1"},
    {&qv::OutputState::t_cursor_up_parm, "cuu"},
    {&qv::OutputState::t_cursor_down_parm, "cud"},
    {&qv::OutputState::t_cursor_left_parm, "cub"},
    {&qv::OutputState::t_cursor_right_parm, "cuf"},
    {&qv::OutputState::t_cursor_to_ll, "ll"},
    {&qv::OutputState::t_cursor_home, "home"},
    {&qv::OutputState::t_column_address, "hpa"},
    {&qv::OutputState::t_carriage_return, "cr"},
    {&qv::OutputState::t_key_home, "khome"},
    {&qv::OutputState::t_key_ll, "kll"},
    {&qv::OutputState::t_key_dc, "kdch1"},
    {&qv::OutputState::t_key_ic, "kich1"},
    {&qv::OutputState::t_key_down, "kcud1"},
    {&qv::OutputState::t_key_left, "kcub1"},
    {&qv::OutputState::t_key_right, "kcuf1"},
    {&qv::OutputState::t_key_up, "kcuu1"},
    {&qv::OutputState::t_keypad_local, "rmkx"},
    {&qv::OutputState::t_keypad_xmit, "smkx"},
    {&qv::OutputState::t_parm_index, "indn"},
    {&qv::OutputState::t_parm_rindex, "rin"},
    {&qv::OutputState::t_insert_line, "il1"},
    {&qv::OutputState::t_delete_line, "dl1"},
    {&qv::OutputState::t_parm_delete_line, "dl"},
    {&qv::OutputState::t_enter_bold_mode, "bold"},
    {&qv::OutputState::t_exit_attribute_mode, "sgr0"},
    {&qv::OutputState::t_meta_on, "smm"},
    {&qv::OutputState::t_meta_off, "rmm"},
};
static_assert(sizeof(kCapabilities) / sizeof(kCapabilities[0]) == 49, "49 capabilities");


void forget_style_caps() {
    for (auto &kind : st().style.colour)
        for (char *&s : kind) {
            free(s);
            s = nullptr;
        }
    st().style.loaded = false;
}

bool available(const char *s) {
    const auto v = reinterpret_cast<intptr_t>(s);
    return v != static_cast<intptr_t>(UNDEF) && v != static_cast<intptr_t>(MISSING);
}

void get_terminal_capabilities(struct console *) {
    Terminfo use;
    for (const Capability &cap : kCapabilities) st().*cap.var = tigetstr(cap.name);
    forget_style_caps();
    qv::OutputState &o = st();
    o.am_xenl = (tigetflag("am") != 0 && tigetflag("xenl") != 0) ? 1 : 0;
    o.meta_key = tigetflag("km") != 0 ? 1 : 0;
    // Published for the host: the default session's.
    if (&o == &own()) {
        t_auto_right_margin = o.am_xenl;
        t_has_meta_key = o.meta_key;
    }
}

} // namespace

const char *qv::terminal_key(const char *name) {
    Terminfo use;
    for (const Capability &cap : kCapabilities)
        if (strcmp(cap.name, name) == 0) return available(st().*cap.var) ? st().*cap.var : nullptr;
    // An extended capability (PS, BE, ...), straight from the description.
    if (!st().described) return nullptr;
    char *value = tigetstr(name);
    return available(value) ? value : nullptr;
}


namespace {

constexpr uint32_t kColourMask = 0x1FFu;
constexpr uint32_t kFlags = TERM_BOLD | TERM_DIM | TERM_ITALIC | TERM_UNDERLINE | TERM_REVERSE;

constexpr uint32_t kFlagBits[5] = {TERM_BOLD, TERM_DIM, TERM_ITALIC, TERM_UNDERLINE, TERM_REVERSE};

const StyleCaps &caps() {
    Terminfo use;
    StyleCaps &s = st().style;
    if (s.loaded) return s;
    static constexpr const char *kNames[5] = {"bold", "dim", "sitm", "smul", "rev"};
    s.sgr0 = qv::terminal_key("sgr0");
    s.setaf = qv::terminal_key("setaf");
    s.setab = qv::terminal_key("setab");
    for (int i = 0; i < 5; i++) s.flag[i] = qv::terminal_key(kNames[i]);
    s.palette = st().described ? tigetnum("colors") : 0;
    if (s.palette < 0) s.palette = 0;
    s.setrgb[0] = qv::terminal_key("setrgbf");
    s.setrgb[1] = qv::terminal_key("setrgbb");
    const char *colorterm = getenv("COLORTERM");
    const bool said = colorterm && (strcmp(colorterm, "truecolor") == 0 || strcmp(colorterm, "24bit") == 0);
    s.direct = s.setaf && ((st().described && tigetflag("RGB") > 0) || (s.setrgb[0] && s.setrgb[1]) || said);
    s.loaded = true;
    return s;
}

// A palette index the terminal can show: a bright colour past an 8-colour
// palette becomes its basic one; anything else past the palette, none.
int showable(int n) {
    const int palette = caps().palette;
    if (n < palette) return n;
    return n >= 8 && n < 16 && palette >= 8 ? n - 8 : -1;
}

// A style capability: as it stands, unless it asks for padding, which only
// tputs knows how to give.
void put_style(const char *cap) {
    Terminfo use;
    if (strchr(cap, '$'))
        tputs(cap, 1, char_to_terminal);
    else
        fputs(cap, out());
}

// A colour (kind 0: setaf, 1: setab) when the terminal has it: answers the
// colour part of the style the pen then has.
uint32_t put_colour(int kind, uint32_t colour) {
    Terminfo use;
    if (colour == 0) return 0;
    const uint32_t asked = colour;
    if (qv::is_rgb_field(colour)) {
        // 24-bit where the terminal draws it, else the nearest colour of
        // the palette it has.
        const uint32_t rgb = qv::rgb_of(colour);
        const int r = static_cast<int>(rgb >> 16), g = static_cast<int>((rgb >> 8) & 0xFF), b = static_cast<int>(rgb & 0xFF);
        if (caps().direct) {
            if (const char *cap = caps().setrgb[kind]) {
                put_style(tiparm(cap, r, g, b));
            } else {
                char sgr[32];
                snprintf(sgr, sizeof sgr, "\x1b[%d;2;%d;%d;%dm", kind ? 48 : 38, r, g, b);
                put_style(sgr);
            }
            return colour;
        }
        colour = static_cast<uint32_t>(caps().palette >= 256 ? qv::nearest_256(rgb) : qv::nearest_16(rgb)) + 1;
    }
    const int n = showable(static_cast<int>(colour) - 1);
    const char *cap = kind ? caps().setab : caps().setaf;
    if (n < 0 || !cap) return 0;
    char *&formatted = st().style.colour[kind][n];
    if (!formatted) formatted = strdup(tiparm(cap, n));
    put_style(formatted ? formatted : tiparm(cap, n));
    return asked != colour ? asked : static_cast<uint32_t>(n) + 1;
}

} // namespace

uint32_t qv::terminal_style(uint32_t from, uint32_t to) {
    if (from == to) return to;
    const StyleCaps &s = caps();
    // Without a way back to plain text, nothing is drawn in colour at all.
    if (!s.sgr0) return 0;
    const uint32_t fg = to & kColourMask, bg = (to >> 9) & kColourMask;
    const bool reset = (from & kFlags & ~to) || ((from & kColourMask) && !fg) || (((from >> 9) & kColourMask) && !bg);
    if (reset) {
        put_style(s.sgr0);
        from = 0;
    }
    uint32_t now = from & kFlags;
    for (int i = 0; i < 5; i++) {
        if (!(to & kFlagBits[i]) || (now & kFlagBits[i]) || !s.flag[i]) continue;
        put_style(s.flag[i]);
        now |= kFlagBits[i];
    }
    uint32_t colours = from & (kColourMask | (kColourMask << 9));
    if (fg && fg != (from & kColourMask)) colours = (colours & ~kColourMask) | put_colour(0, fg);
    if (bg && bg != ((from >> 9) & kColourMask)) colours = (colours & kColourMask) | (put_colour(1, bg) << 9);
    return now | colours;
}

bool qv::erase_screen() {
    Terminfo use;
    if (!available(st().t_clear_screen)) return false;
    tputs(st().t_clear_screen, 1, char_to_terminal);
    return true;
}

namespace {

// A terminal mode's sequence: it moves nothing, so a fresh row stays fresh.
void put_mode(const char *sequence) {
    Terminfo use;
    const bool fresh = st().row_fresh.load(std::memory_order_relaxed);
    tputs(sequence, 1, char_to_terminal);
    fflush(out());
    if (fresh) st().row_fresh.store(true, std::memory_order_relaxed);
}

} // namespace

bool qv::terminal_row_fresh() { return st().row_fresh.load(std::memory_order_relaxed); }

void qv::terminal_row_used() { st().row_fresh.store(false, std::memory_order_relaxed); }

bool qv::paste_bracketing(bool on) {
    const char *enable = qv::terminal_key("BE"), *disable = qv::terminal_key("BD");
    if (!enable || !disable || !qv::terminal_key("PS") || !qv::terminal_key("PE")) return false;
    put_mode(on ? enable : disable);
    return true;
}

void qv::cursor_shape(int shape) {
    Terminfo use;
    if (shape == st().shown_shape) return;
    const char *set = qv::terminal_key("Ss"), *reset = qv::terminal_key("Se");
    if (!set) return;
    if (shape == 0 && !reset) return;
    put_mode(shape ? tiparm(set, shape) : reset);
    st().shown_shape = shape;
}

bool qv::terminal_can_paint() {
    const bool up = available(st().t_cursor_up) || available(st().t_cursor_up_parm);
    const bool left = available(st().t_cursor_left) || available(st().t_cursor_left_parm);
    const bool right = available(st().t_cursor_right) || available(st().t_cursor_right_parm);
    return up && left && (available(st().t_column_address) || (available(st().t_carriage_return) && right));
}

bool qv::terminal_size(int *rows, int *cols) {
    struct winsize ws {};
    const qv::OutputState &o = st();
    if (o.rows > 0 && o.cols > 0) {
        *rows = o.rows;
        *cols = o.cols;
        return true;
    }
    if (ioctl(out_fd(), TIOCGWINSZ, &ws) != 0 || ws.ws_row == 0 || ws.ws_col == 0) return false;
    *rows = ws.ws_row;
    *cols = ws.ws_col;
    return true;
}

bool qv::clear_to_end_of_screen() {
    Terminfo use;
    if (!available(st().t_clr_eos)) return false;
    tputs(st().t_clr_eos, 1, char_to_terminal);
    return true;
}

bool qv::can_clear_to_end_of_line() { return available(st().t_clr_eol); }

bool qv::clear_to_end_of_line() {
    Terminfo use;
    if (!available(st().t_clr_eol)) return false;
    tputs(st().t_clr_eol, 1, char_to_terminal);
    return true;
}

// Opens n blank cells at the cursor, pushing the rest of the row right and
// off its end: with one parameterised capability, or one cell at a time
// when there are few.
bool qv::insert_cells(int n) {
    Terminfo use;
    if (n <= 0) return true;
    if (available(st().t_parm_ich)) {
        tputs(tiparm(st().t_parm_ich, n), n, char_to_terminal);
    } else if (available(st().t_insert_character) && n <= 4) {
        for (int i = 0; i < n; i++) tputs(st().t_insert_character, 1, char_to_terminal);
    } else {
        return false;
    }
    return true;
}

// Deletes n cells at the cursor, pulling the rest of the row left; blanks
// come in at its end.
bool qv::delete_cells(int n) {
    Terminfo use;
    if (n <= 0) return true;
    const bool many = available(st().t_parm_dch);
    if (!many && !(available(st().t_delete_character) && n <= 4)) return false;
    if (available(st().t_enter_delete_mode)) tputs(st().t_enter_delete_mode, 1, char_to_terminal);
    if (many) {
        tputs(tiparm(st().t_parm_dch, n), n, char_to_terminal);
    } else {
        for (int i = 0; i < n; i++) tputs(st().t_delete_character, 1, char_to_terminal);
    }
    if (available(st().t_exit_delete_mode)) tputs(st().t_exit_delete_mode, 1, char_to_terminal);
    return true;
}

bool qv::terminal_reflows() {
    static const char *const kMarkers[] = {"TMUX", "VTE_VERSION", "KITTY_WINDOW_ID", "WT_SESSION",
                                           "KONSOLE_VERSION", "ALACRITTY_WINDOW_ID"};
    for (const char *name : kMarkers)
        if (getenv(name)) return true;
    const char *program = getenv("TERM_PROGRAM");
    if (!program) return false;
    static const char *const kPrograms[] = {"iTerm.app", "WezTerm", "vscode", "Apple_Terminal"};
    for (const char *name : kPrograms)
        if (strcmp(program, name) == 0) return true;
    return false;
}

// ---------------------------------------------------------------------------
// Set-up

namespace {

// The size comes from the host for a stream session, else from the
// description (ncurses consults the kernel's window size there). Without a
// description it comes from the kernel, and a terminal that reports none
// gets the classic 80 by 24.
void size_without_description(int *rows, int *cols) {
    struct winsize ws {};
    const bool known = ioctl(out_fd(), TIOCGWINSZ, &ws) == 0 && ws.ws_row > 0 && ws.ws_col > 0;
    *rows = known ? ws.ws_row : 24;
    *cols = known ? ws.ws_col : 80;
}

void console_get_size(struct console *, int *rows, int *cols) {
    Terminfo use;
    const qv::OutputState &o = st();
    if (o.rows > 0 && o.cols > 0) {
        *rows = o.rows;
        *cols = o.cols;
        return;
    }
    *rows = o.described ? tigetnum("lines") : 0;
    *cols = o.described ? tigetnum("cols") : 0;
    if (*rows <= 0 || *cols <= 0) size_without_description(rows, cols);
}

} // namespace

// A later set-up (term_init after term_destroy) releases the description
// loaded before, so repeated set-ups do not pile up copies.
void qv::terminal_setup(int *rows, int *cols) {
    Terminfo use;
    OutputState &o = st();
    int err = 0;
    if (o.terminal) {
        del_curterm(o.terminal);
        o.terminal = nullptr;
    }
    if (setupterm(o.type, out_fd(), &err) == OK) o.terminal = cur_term;
    o.described = o.terminal != nullptr;
    console_get_size(nullptr, rows, cols);
    get_terminal_capabilities(nullptr);
}

int console_get_width(struct console *c) {
    int rows = 0, cols = 0;
    console_get_size(c, &rows, &cols);
    return cols;
}

int console_get_height(struct console *c) {
    int rows = 0, cols = 0;
    console_get_size(c, &rows, &cols);
    return rows;
}

int getConsoleType(void *) { return 1; }

// ---------------------------------------------------------------------------
// The sink of tputs: nothing here flushes, the painter flushes once.

int char_to_terminal(int ch) {
    qv::terminal_row_used();
    putc(ch, out());
    return 0;
}

// ---------------------------------------------------------------------------
// Sessions

qv::OutputState *qv::output_new(FILE *stream, int fd, const char *type) {
    auto *o = new (std::nothrow) OutputState(stream, fd);
    if (o) o->type = type;
    return o;
}

void qv::output_free(OutputState *o) {
    if (!o) return;
    {
        Terminfo use;
        if (o->terminal) {
            TERMINAL *was = cur_term == o->terminal ? nullptr : cur_term;
            del_curterm(o->terminal);
            if (was) set_curterm(was);
        }
    }
    for (auto &kind : o->style.colour)
        for (char *text : kind) free(text);
    delete o;
}

void qv::terminal_set_size(int rows, int cols) {
    OutputState &o = st();
    o.rows = rows > 0 && cols > 0 ? rows : 0;
    o.cols = rows > 0 && cols > 0 ? cols : 0;
}

bool qv::rows_flow() { return st().am_xenl != 0; }

FILE *qv::terminal_stream() { return out(); }

qv::OutputState &qv::output_state() { return st(); }

FILE *qv::output_file() { return out(); }

bool qv::capability(const char *s) { return available(s); }

void qv::terminfo_hold() {
    pthread_mutex_lock(&terminfo_lock);
    TERMINAL *mine = st().terminal;
    if (mine && cur_term != mine) set_curterm(mine);
}

void qv::terminfo_release() { pthread_mutex_unlock(&terminfo_lock); }
