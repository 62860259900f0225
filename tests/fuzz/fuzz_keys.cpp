// Random key streams against the editor, in process. The oracle is what a
// user would check: the screen libvterm renders from the library's output
// shows the prompt and the edit buffer, wrapped at the width, and the cursor
// stands on the buffer's cursor.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "console.h"
#include "os-unix.h"
#include "render.h"
#include "support.h"

namespace {

constexpr int kCols = 13; // odd, so two-cell units meet the right edge
constexpr int kRows = 200;
constexpr size_t kMaxKeys = 400;
constexpr wchar_t kWide = L'\u4e2d', kMark = L'\u0301';

const action_fn kActions[] = {
    action_key_left,     action_key_right,           action_key_home,
    action_key_end,      action_key_backspace,       action_key_delete,
    action_key_up,       action_key_down,            action_kill_to_end_of_line,
    action_history_earliest, action_history_latest,
};

void check_screen(console *c, const std::string &out) {
    const qvtest::Screen shown = qvtest::render(out, kRows, kCols);
    const std::wstring text(c->editor.buffer, c->editor.lastchar);
    const auto cursor = static_cast<size_t>(c->editor.cursor - c->editor.buffer);
    const qvtest::Expected e = qvtest::expectedScreen(c->prompt, text, cursor, kCols);
    for (int r = 0; r < kRows; r++) {
        if (shown.row(r) == (static_cast<size_t>(r) < e.rows.size() ? e.rows[static_cast<size_t>(r)] : "")) continue;
        fprintf(stderr, "fuzz_keys: row %d differs from the edit buffer: \"%s\"\n", r, shown.row(r).c_str());
        abort();
    }
    if (shown.cursor_row != e.cursor_row || shown.cursor_col != e.cursor_col) {
        fprintf(stderr, "fuzz_keys: the cursor is at %d,%d; the buffer's cursor is at %d,%d\n", shown.cursor_row,
                shown.cursor_col, e.cursor_row, e.cursor_col);
        abort();
    }
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
        c.screen.rows = kRows; // the window the renderer draws: the library must know its height
        screen_buffer_initialize(&c);
        c.prompt = L"> ";
        history_add(&c, L"from history", 12);
        history_add(&c, L"ctl\x01x\x7f", 6);
        qv::render_start_input(&c);
        qv::render(&c, 0, false, 0);
        // Each key painted on its own, as keys typed one at a time are.
        for (size_t i = 0; i < size && c.editor.buffer; i++) {
            const uint8_t b = data[i];
            if (b < 0xC0)
                action_insert_char(&c, b % 16 == 0 ? kWide : b % 16 == 1 ? kMark : 32 + b % 95);
            else
                kActions[(b - 0xC0) % (sizeof kActions / sizeof kActions[0])](&c, 0);
            qv::render(&c, 0, false, 0);
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
