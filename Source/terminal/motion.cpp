// Cursor motion and drawing: the cheapest motions the terminal's
// capabilities offer, and characters and strings through the library.
// Nothing here flushes: the painter flushes once.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "outstate.h"
#include "text.h"

namespace {

qv::OutputState &st() { return qv::output_state(); }
FILE *out() { return qv::output_file(); }
bool available(const char *s) { return qv::capability(s); }
using qv::Terminfo;

} // namespace



void screen_cursor_move_y(struct console *, int dy) {
    Terminfo use;
    if (dy < 0) {
        if (available(st().t_cursor_up_parm))
            tputs(tiparm(st().t_cursor_up_parm, -dy), dy, char_to_terminal);
        else if (available(st().t_cursor_up))
            for (int i = 0; i < -dy; i++) tputs(st().t_cursor_up, 1, char_to_terminal);
    } else {
        // Line feeds move straight down in raw mode and scroll at the bottom.
        if (dy > 0) qv::terminal_row_used();
        for (int i = 0; i < dy; i++) fputc('\n', out());
    }
}

void screen_cursor_move_x(struct console *, int dx) {
    Terminfo use;
    if (dx < 0) {
        if (available(st().t_cursor_left_parm))
            tputs(tiparm(st().t_cursor_left_parm, -dx), 1, char_to_terminal);
        else if (available(st().t_cursor_left))
            for (int i = 0; i < -dx; i++) tputs(st().t_cursor_left, 1, char_to_terminal);
    } else if (dx > 0) {
        if (available(st().t_cursor_right_parm))
            tputs(tiparm(st().t_cursor_right_parm, dx), 1, char_to_terminal);
        else if (available(st().t_cursor_right))
            for (int i = 0; i < dx; i++) tputs(st().t_cursor_right, 1, char_to_terminal);
    }
}

namespace {

constexpr size_t kNever = SIZE_MAX / 4;

// The bytes of the cheaper way to move n columns (n < 0: left), and writes
// it when put is set.
size_t horizontal(int n, bool put) {
    Terminfo use;
    if (n == 0) return 0;
    const char *one = n < 0 ? st().t_cursor_left : st().t_cursor_right;
    const char *parm = n < 0 ? st().t_cursor_left_parm : st().t_cursor_right_parm;
    const int k = n < 0 ? -n : n;
    const size_t singles = available(one) ? strlen(one) * static_cast<size_t>(k) : kNever;
    const size_t parameterised = available(parm) ? strlen(tiparm(parm, k)) : kNever;
    if (put && singles <= parameterised && singles < kNever)
        for (int i = 0; i < k; i++) tputs(one, 1, char_to_terminal);
    else if (put && parameterised < kNever)
        tputs(tiparm(parm, k), 1, char_to_terminal);
    return singles < parameterised ? singles : parameterised;
}

} // namespace

void qv::cursor_to_column(struct console *c, int from, int to, bool from_known) {
    Terminfo use;
    if (from_known && from == to) return;
    const size_t address = available(st().t_column_address) ? strlen(tiparm(st().t_column_address, to)) : kNever;
    const size_t back = available(st().t_carriage_return) ? strlen(st().t_carriage_return) + horizontal(to, false) : kNever;
    const size_t relative = from_known ? horizontal(to - from, false) : kNever;
    if (relative <= address && relative <= back && relative < kNever) {
        horizontal(to - from, true);
    } else if (back <= address && back < kNever) {
        tputs(st().t_carriage_return, 1, char_to_terminal);
        horizontal(to, true);
    } else {
        screen_cursor_move_to_col(c, to);
    }
}

void screen_cursor_backspace(struct console *, int n) {
    Terminfo use;
    if (n <= 0) return;
    if (available(st().t_cursor_left_parm))
        tputs(tiparm(st().t_cursor_left_parm, n), n, char_to_terminal);
    else if (available(st().t_cursor_left))
        for (int i = 0; i < n; i++) tputs(st().t_cursor_left, 1, char_to_terminal);
    else
        for (int i = 0; i < n; i++) char_to_terminal(8);
}

void screen_cursor_move_bol(struct console *) {
    Terminfo use;
    if (available(st().t_carriage_return))
        tputs(st().t_carriage_return, 1, char_to_terminal);
    else if (!st().described)
        char_to_terminal('\r');
}

void screen_cursor_move_to_col(struct console *c, int column) {
    Terminfo use;
    if (available(st().t_column_address)) {
        tputs(tiparm(st().t_column_address, column), 1, char_to_terminal);
    } else {
        screen_cursor_move_bol(c);
        screen_cursor_move_x(c, column);
    }
}

void screen_set_cursor(struct console *, cursor_pos p) {
    Terminfo use;
    const char *cup = tigetstr("cup");
    if (available(cup)) putp(tiparm(cup, p.pos.y, p.pos.x));
}

int console_put_wchar(struct console *, int ch) {
    char_to_terminal(ch & 0xFF);
    return 0;
}

int console_put_wstring(struct console *c, const wchar_t *s, int n) {
    if (!s) return 0;
    std::unique_ptr<char, decltype(&free)> text(wchar2cp(c, s, n), &free);
    if (text) console_put_string(c, text.get());
    return 0;
}

int console_put_string(struct console *, const char *s) {
    qv::terminal_row_used();
    fputs(s, out());
    return 0;
}

void console_newline(struct console *c) {
    screen_cursor_move_bol(c);
    char_to_terminal('\n');
    st().row_fresh.store(true, std::memory_order_relaxed);
}


