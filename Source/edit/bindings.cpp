// The default key bindings: fixed escape sequences, single bytes, and the
// key strings of the terminal's own description.
#include "bindings.h"

#include "commands.h"
#include "completion.h"
#include "menu.h"
#include "repeat.h"
#include "actions.h"
#include "console_record.h"
#include "editkeys.h"
#include "keymap.h"
#include "paste.h"
#include "search.h"
#include "output.h"

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
    // The markers around a bracketed paste.
    {"\033[200~", action_paste_begin},
    {"\033[201~", action_paste_end},
    // Words, with Alt (Escape first) or Ctrl on the arrow keys.
    {"\033b", action_backward_word},
    {"\033f", action_forward_word},
    {"\033[1;5D", action_backward_word},
    {"\033[1;5C", action_forward_word},
    {"\033[1;3D", action_backward_word},
    {"\033[1;3C", action_forward_word},
    {"\033\177", action_backward_kill_word},
    {"\033\010", action_backward_kill_word},
    {"\033d", action_kill_word},
    {"\033y", action_yank_pop},
    // readline's other default keys, where the keys above leave them free.
    {"\033<", action_history_earliest},
    {"\033p", action_noninc_search_backward},
    {"\033n", action_noninc_search_forward},
    {"\033\014", action_clear_screen},
    {"\030\025", action_undo},
    {"\030\037", action_redo},
    {"\033?", action_possible_completions},
    {"\033=", action_possible_completions},
    {"\033*", action_insert_completions},
#if QV_WITH_COMPLETION_MENU
    // Shift-Tab: back through the candidates, as in every menu.
    {"\033[Z", action_menu_complete_backward},
#endif
#if QV_WITH_READLINE_COMMANDS
    // readline's further commands on readline's keys.
    {"\033.", action_yank_last_arg},
    {"\033_", action_yank_last_arg},
    {"\033\031", action_yank_nth_arg},
    {"\033r", action_revert_line},
    {"\033>", action_end_of_history},
    {"\033u", action_upcase_word},
    {"\033l", action_downcase_word},
    {"\033c", action_capitalize_word},
    {"\033t", action_transpose_words},
    {"\033\\", action_delete_horizontal_space},
    {"\033\035", action_character_search_backward},
    {"\033#", action_insert_comment},
    {"\033\t", action_tab_insert},
    {"\033-", action_digit_argument},
    {"\0330", action_digit_argument},
    {"\0331", action_digit_argument},
    {"\0332", action_digit_argument},
    {"\0333", action_digit_argument},
    {"\0334", action_digit_argument},
    {"\0335", action_digit_argument},
    {"\0336", action_digit_argument},
    {"\0337", action_digit_argument},
    {"\0338", action_digit_argument},
    {"\0339", action_digit_argument},
    {"\030\030", action_exchange_point_and_mark},
    {"\030\177", action_backward_kill_line},
    {"\030(", action_start_kbd_macro},
    {"\030)", action_end_kbd_macro},
    {"\030e", action_call_last_kbd_macro},
#endif
};


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
    {2, action_key_left},
    {6, action_key_right},
    {9, action_complete},
    {12, action_clear_screen},
    {14, action_key_down},
    {16, action_key_up},
    {18, action_search_backward},
    {19, action_search_forward},
    {20, action_transpose},
    {21, action_kill_line_start},
    {22, action_quoted_insert},
    {23, action_unix_word_rubout},
    {25, action_yank},
    {31, action_undo},
    {11, action_kill_to_end_of_line},
    {13, action_key_return},
    {26, action_suspend_process},
    {127, action_key_backspace},
    {10, action_key_return},
    {13, action_key_return},
#if QV_WITH_READLINE_COMMANDS
    {0, action_set_mark},
    {15, action_operate_and_get_next},
    {29, action_character_search},
#endif
};

} // namespace

int keymap_set_defaults(console *c) { return qv::keymap_bind_defaults(c->keymaps[0], true) ? 1 : 0; }

bool qv::keymap_bind_defaults(keymap_entry *map, bool meta) {
    // A refused binding (no action, no key string) is by design; one with
    // both that still fails has run out of memory.
    bool ok = true;
    auto bind = [&](const char *sequence, action_fn action) {
        if (!keymap_bind_key_sequence(map, sequence, KM_FUNCTION, action) && sequence && action)
            ok = false;
    };
    for (const SequenceBinding &b : kFixedSequences)
        if (meta || b.sequence[1] == '[' || b.sequence[1] == 'O') bind(b.sequence, b.action);
    for (const ByteBinding &b : kSingleBytes) keymap_bind_key(map, b.byte, KM_FUNCTION, b.action);
    for (int byte = 32; byte <= 126; byte++)
        keymap_bind_key(map, byte, KM_FUNCTION, action_insert_char);

    // The terminal's own key strings come last and win where they meet the
    // bindings above. kll, kdch1 and kich1 are looked up but bind nothing.
    const SequenceBinding terminal_keys[] = {
        {qv::terminal_key("kcud1"), action_key_down},  {qv::terminal_key("kcuu1"), action_key_up},
        {qv::terminal_key("kcub1"), action_key_left},  {qv::terminal_key("kcuf1"), action_key_right},
        {qv::terminal_key("khome"), action_key_home},  {qv::terminal_key("kll"), nullptr},
        {qv::terminal_key("kdch1"), nullptr},          {qv::terminal_key("kich1"), nullptr},
        {qv::terminal_key("PS"), action_paste_begin},  {qv::terminal_key("PE"), action_paste_end},
        {qv::terminal_key("kLFT5"), action_backward_word}, {qv::terminal_key("kRIT5"), action_forward_word},
        {qv::terminal_key("kLFT3"), action_backward_word}, {qv::terminal_key("kRIT3"), action_forward_word},
    };
    for (const SequenceBinding &b : terminal_keys) bind(b.sequence, b.action);
    return ok;
}
