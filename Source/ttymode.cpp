// Terminal modes.
#include "ttymode.h"

#include <cstdio>

#include "console.h"

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
    // IXON off: Ctrl-S and Ctrl-Q arrive as keys and never freeze output.
    raw.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ISTRIP | ICRNL | IXON);
    raw.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    raw.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB);
    raw.c_cflag |= CS8 | CLOCAL;
    raw.c_lflag &= ~static_cast<tcflag_t>(ISIG | ICANON | ECHO | IEXTEN);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(fileno(stdin), TCSADRAIN, &raw);
}

void signal_interrupt(console *c) { c->status = ST_INTERRUPTED; }

namespace qv {

RawMode::RawMode(console *c) : c_(c), have_(console_get_mode(c, &saved_) != 0) {
    if (have_) console_set_raw_mode(c_, &saved_);
}

void RawMode::restore() {
    if (have_) console_set_mode(c_, &saved_);
    have_ = false;
}

} // namespace qv
