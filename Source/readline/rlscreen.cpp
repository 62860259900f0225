// What readline programs call to draw, prompt and read single keys, and
// the terminal calls the editor answers for itself.
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

namespace {

using CharPtr = std::unique_ptr<char, decltype(&free)>;

FILE *out_stream() {
    return rl_outstream ? rl_outstream : stdout;
}
FILE *in_stream() {
    return rl_instream ? rl_instream : stdin;
}

} // namespace

// ---------------------------------------------------------------------------
// The screen

namespace {
bool fresh_row = false; // the program left the cursor on a new, empty row
} // namespace

void rl_redisplay(void) {
    qv::rl_take_program_changes();
    term_editRedraw(fresh_row ? 1 : 0);
    fresh_row = false;
}

int rl_forced_update_display(void) {
    qv::rl_take_program_changes();
    if (!fresh_row) _rl_erase_entire_line();
    term_editRedraw(1);
    fresh_row = false;
    return 0;
}

int rl_on_new_line(void) {
    fresh_row = true;
    return 0;
}

int rl_on_new_line_with_prompt(void) {
    return rl_on_new_line();
}

// Blanks over the cursor's row, the cursor left at its start: no escape
// sequence, so any terminal does it.
void _rl_erase_entire_line(void) {
    int rows = 0, cols = 0;
    rl_get_screen_size(&rows, &cols);
    FILE *out = out_stream();
    fputc('\r', out);
    for (int i = 0; i + 1 < cols; i++)
        fputc(' ', out);
    fputc('\r', out);
    fflush(out);
}

int rl_crlf(void) {
    fputc('\n', out_stream());
    return 0;
}

int rl_ding(void) {
    fputc('\a', out_stream());
    fflush(out_stream());
    return 0;
}

namespace {
char *saved_prompt = nullptr;
} // namespace

int rl_set_prompt(const char *prompt) {
    qv::rl_set_prompt_variable(prompt);
    return 0;
}

int rl_expand_prompt(char *prompt) {
    CharPtr visible(qv::rl_visible_prompt(prompt), &free);
    return visible ? static_cast<int>(strlen(visible.get())) : 0;
}

void rl_save_prompt(void) {
    free(saved_prompt);
    saved_prompt = rl_prompt ? strdup(rl_prompt) : nullptr;
}

void rl_restore_prompt(void) {
    if (saved_prompt) qv::rl_set_prompt_variable(saved_prompt);
    free(saved_prompt);
    saved_prompt = nullptr;
}

int rl_message(const char *, ...) {
    return 0;
}
int rl_clear_message(void) {
    return 0;
}

int rl_getc(FILE *in) {
    unsigned char byte = 0;
    for (;;) {
        const ssize_t n = read(fileno(in ? in : stdin), &byte, 1);
        if (n == 1) return byte;
        if (n == 0 || errno != EINTR) return EOF;
    }
}

int rl_read_key(void) {
    return rl_getc(in_stream());
}

// ---------------------------------------------------------------------------
// The terminal

void rl_prep_terminal(int) {}
void rl_deprep_terminal(void) {}
int rl_reset_terminal(const char *) {
    return 0;
}
void rl_resize_terminal(void) {}
void rl_set_screen_size(int, int) {}

void rl_get_screen_size(int *rows, int *cols) {
    struct winsize ws {};
    const bool known = ioctl(fileno(out_stream()), TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0;
    if (rows) *rows = known && ws.ws_row ? ws.ws_row : 24;
    if (cols) *cols = known ? ws.ws_col : 80;
}
