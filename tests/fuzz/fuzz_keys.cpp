// Random key streams against the editor, in process. The oracle is what a
// user would check: the screen libvterm renders from the library's output
// shows the prompt and the edit buffer, wrapped at the width, and the cursor
// stands on the buffer's cursor.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <vterm.h>

#include "console.h"
#include "os-unix.h"

namespace {

constexpr int kCols = 13; // odd, so two-cell units meet the right edge
constexpr int kRows = 200;
constexpr size_t kMaxKeys = 400;

const action_fn kActions[] = {
    action_key_left,     action_key_right,           action_key_home,
    action_key_end,      action_key_backspace,       action_key_delete,
    action_key_up,       action_key_down,            action_kill_to_end_of_line,
    action_history_earliest, action_history_latest,
};

void fail(const char *what) {
    fprintf(stderr, "fuzz_keys: %s\n", what);
    abort();
}

// The rows the screen must show, built independently of the library: units
// (a character, or a control character as ^X) never split across rows, and a
// row that fills up exactly is followed by a fresh one for the cursor.
struct Expected {
    std::vector<std::u32string> rows{U""};
    int cursor_row = 0, cursor_col = 0;
};

constexpr char32_t kTail = 0xFFFFFFFF; // how libvterm shows a wide character's right half
constexpr wchar_t kWide = L'\u4e2d', kMark = L'\u0301';

bool is_control(wchar_t ch) {
    const auto u = static_cast<uint32_t>(ch);
    return u < 32 || u == 127;
}

Expected expect(const wchar_t *prompt, const wchar_t *text, int len, int cursor) {
    Expected e;
    auto put = [&](const std::u32string &unit) {
        if (e.rows.back().size() + unit.size() > static_cast<size_t>(kCols)) e.rows.emplace_back();
        e.rows.back() += unit;
        if (e.rows.back().size() == static_cast<size_t>(kCols)) e.rows.emplace_back();
    };
    // The cells of text[i] as a unit of its own, or none when it joins the
    // character before (a combining mark after a printable character).
    auto unit_of = [&](const wchar_t *s, int i) -> std::u32string {
        const wchar_t ch = s[i];
        if (is_control(ch)) return std::u32string{U'^', static_cast<char32_t>(ch ^ 0x40)};
        if (ch == kWide) return std::u32string{static_cast<char32_t>(ch), kTail};
        if (ch == kMark) return i > 0 && !is_control(s[i - 1]) ? U"" : U" ";
        return std::u32string(1, static_cast<char32_t>(ch));
    };
    for (int i = 0; prompt[i]; i++) put(unit_of(prompt, i));
    for (int i = 0; i <= len; i++) {
        const std::u32string unit = i < len ? unit_of(text, i) : U"";
        if (i == cursor) {
            // The cursor stands where the next unit goes; inside a cell (before
            // a mark that joined it) it stands after the cell.
            std::u32string next = unit;
            for (int k = i + 1; next.empty() && k < len; k++) next = unit_of(text, k);
            e.cursor_row = static_cast<int>(e.rows.size()) - 1;
            e.cursor_col = static_cast<int>(e.rows.back().size());
            if (e.rows.back().size() + next.size() > static_cast<size_t>(kCols)) {
                e.cursor_row++;
                e.cursor_col = 0;
            }
        }
        if (i == len) break;
        if (!unit.empty()) put(unit);
    }
    return e;
}

void check_screen(console *c, const std::string &out) {
    VTerm *vt = vterm_new(kRows, kCols);
    vterm_set_utf8(vt, 1);
    VTermScreen *vs = vterm_obtain_screen(vt);
    vterm_screen_reset(vs, 1);
    vterm_input_write(vt, out.data(), out.size());
    const int len = static_cast<int>(c->editor.lastchar - c->editor.buffer);
    const int cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    const Expected e = expect(c->prompt, c->editor.buffer, len, cursor);
    for (int r = 0; r < kRows; r++) {
        std::u32string shown;
        for (int col = 0; col < kCols; col++) {
            VTermScreenCell cell;
            vterm_screen_get_cell(vs, VTermPos{r, col}, &cell);
            shown += cell.chars[0] == static_cast<uint32_t>(-1) ? kTail
                     : cell.chars[0]                        ? static_cast<char32_t>(cell.chars[0])
                                                            : U' ';
        }
        while (!shown.empty() && shown.back() == U' ') shown.pop_back();
        std::u32string want = r < static_cast<int>(e.rows.size()) ? e.rows[static_cast<size_t>(r)] : U"";
        while (!want.empty() && want.back() == U' ') want.pop_back();
        if (shown != want) {
            fprintf(stderr, "row %d\n", r);
            fail("a row differs from the edit buffer");
        }
    }
    VTermPos pos;
    vterm_state_get_cursorpos(vterm_obtain_state(vt), &pos);
    if (pos.row != e.cursor_row || pos.col != e.cursor_col) {
        fprintf(stderr, "the cursor is at %d,%d; the buffer's cursor is at %d,%d\n", pos.row, pos.col,
                e.cursor_row, e.cursor_col);
        fail("the cursor is not on the buffer's cursor");
    }
    vterm_free(vt);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    setenv("TERM", "xterm-256color", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > kMaxKeys) return 0; // long streams only scroll; they test nothing more
    char *buf = nullptr;
    size_t len = 0;
    FILE *real = stdout;
    stdout = open_memstream(&buf, &len);
    console c{};
    if (console_init(&c) && console_init_editor(&c)) {
        c.screen.cols = kCols;
        screen_buffer_initialize(&c);
        c.prompt = L"> ";
        history_add(&c, L"from history", 12);
        history_add(&c, L"ctl\x01x\x7f", 6);
        qv::screen_start_input(&c);
        for (size_t i = 0; i < size && c.editor.buffer; i++) {
            const uint8_t b = data[i];
            if (b < 0xC0)
                action_insert_char(&c, b % 16 == 0 ? kWide : b % 16 == 1 ? kMark : 32 + b % 95);
            else
                kActions[(b - 0xC0) % (sizeof kActions / sizeof kActions[0])](&c, 0);
        }
        fflush(stdout);
        if (c.editor.buffer) check_screen(&c, std::string(buf, len));
    }
    console_free(&c);
    fclose(stdout);
    stdout = real;
    free(buf);
    return 0;
}
