/* The record of one session's terminal that the output modules share:
   its stream, its description and capabilities, what it shows. Only the
   terminal layer's output modules include it. Library-internal. */
#ifndef QUORVEL_OUTSTATE_H
#define QUORVEL_OUTSTATE_H

#include <atomic>
#include <cstdio>
#include <initializer_list>

// Before terminfo's header, whose capability macros would rename its fields.
#include "output.h"

#include <curses.h>
#include <term.h>

namespace qv {
struct StyleCaps;
}

// The capabilities styles take, looked up once per terminal: a paint may
// change style at every word.
struct qv::StyleCaps {
    bool loaded = false;
    const char *sgr0, *setaf, *setab;
    const char *flag[5]; // bold, dim, sitm, smul, rev
    int palette;
    char *colour[2][256]; // setaf and setab for each index, formatted when first used
    // Direct colour: terminfo's RGB flag or setrgbf/setrgbb, or COLORTERM
    // saying truecolor or 24bit; setrgb[0] and [1] when the description has them.
    bool direct;
    const char *setrgb[2];
};

// What one session's terminal is and shows.
struct qv::OutputState {
    FILE *out;  // where everything goes; null: standard output, as it stands
    int fd;     // its descriptor, for the size and the description; -1: out's
    const char *type = nullptr; // the terminal type; null: $TERM
    TERMINAL *terminal = nullptr; // the description this library loaded
    // Whether a description was loaded at all. Without one, a carriage
    // return is the one motion every terminal is sure to understand.
    bool described = false;
    // Capability cache: exactly what tigetstr answered, sentinels included.
    char *t_clr_eos, *t_clr_eol, *t_clr_bol, *t_bell, *t_flash_screen, *t_clear_screen, *t_enter_delete_mode,
        *t_exit_delete_mode, *t_delete_character, *t_parm_dch, *t_enter_insert_mode, *t_exit_insert_mode,
        *t_insert_character, *t_insert_padding, *t_parm_ich, *t_pad_char, *t_cursor_visible, *t_cursor_normal,
        *t_cursor_up, *t_cursor_down, *t_cursor_left, *t_cursor_right, *t_cursor_up_parm, *t_cursor_down_parm,
        *t_cursor_left_parm, *t_cursor_right_parm, *t_cursor_to_ll, *t_cursor_home, *t_column_address,
        *t_carriage_return, *t_key_home, *t_key_ll, *t_key_dc, *t_key_ic, *t_key_down, *t_key_left,
        *t_key_right, *t_key_up, *t_keypad_local, *t_keypad_xmit, *t_parm_index, *t_parm_rindex,
        *t_insert_line, *t_delete_line, *t_parm_delete_line, *t_enter_bold_mode, *t_exit_attribute_mode,
        *t_meta_on, *t_meta_off;
    int am_xenl = 0, meta_key = 0; // "am" with "xenl"; "km"
    StyleCaps style{};
    // The cursor is at the start of a row a line feed reached, the
    // library's own or, before the library wrote anything, the one that ran
    // the program; nothing written since. Written from whichever thread
    // holds the console; read at the start of a read.
    std::atomic<bool> row_fresh{true};
    int shown_shape = 0; // the cursor shape set through Ss; 0: the terminal's own
    std::atomic<int> rows{0}, cols{0}; // the size the host gave; 0: the kernel's

    OutputState(FILE *stream, int descriptor) : out(stream), fd(descriptor) {
        // Until a terminal is set up every capability reads as "not a string".
        for (char **cap : {&t_clr_eos, &t_clr_eol, &t_clr_bol, &t_bell, &t_flash_screen, &t_clear_screen, &t_enter_delete_mode, &t_exit_delete_mode, &t_delete_character, &t_parm_dch, &t_enter_insert_mode, &t_exit_insert_mode, &t_insert_character, &t_insert_padding, &t_parm_ich, &t_pad_char, &t_cursor_visible, &t_cursor_normal, &t_cursor_up, &t_cursor_down, &t_cursor_left, &t_cursor_right, &t_cursor_up_parm, &t_cursor_down_parm, &t_cursor_left_parm, &t_cursor_right_parm, &t_cursor_to_ll, &t_cursor_home, &t_column_address, &t_carriage_return, &t_key_home, &t_key_ll, &t_key_dc, &t_key_ic, &t_key_down, &t_key_left, &t_key_right, &t_key_up, &t_keypad_local, &t_keypad_xmit, &t_parm_index, &t_parm_rindex, &t_insert_line, &t_delete_line, &t_parm_delete_line, &t_enter_bold_mode, &t_exit_attribute_mode, &t_meta_on, &t_meta_off})
            *cap = reinterpret_cast<char *>(-1);
    }
};


namespace qv {

// The calling thread's session's record, and the stream it writes to.
OutputState &output_state();
FILE *output_file();
// A capability the terminal has: neither UNDEF nor MISSING.
bool capability(const char *s);

// The terminfo library keeps one description current for the process, and
// formats into one buffer: a session that uses it holds it, with its own
// description made current.
void terminfo_hold();
void terminfo_release();
class Terminfo {
  public:
    Terminfo() { terminfo_hold(); }
    ~Terminfo() { terminfo_release(); }
    Terminfo(const Terminfo &) = delete;
    Terminfo &operator=(const Terminfo &) = delete;
};

} // namespace qv

#endif
