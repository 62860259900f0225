// The layout of prompt, text and continuation lines into rows, and what a
// key costs the painter.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "console.h"
#include "layout.h"
#include "os-unix.h"
#include "pty_harness.h"

namespace {

// ---------------------------------------------------------------------------
// The layout on its own: prompt, text and continuation lines to rows

struct LayoutCase {
    const wchar_t *prompt;
    std::wstring text;
    std::vector<qv::TextBreak> breaks;
    int cursor;
    std::vector<std::string> rows;
    int cursor_row, cursor_col;
};

std::vector<std::string> layOut(const LayoutCase &lc, int cols, int *crow, int *ccol) {
    qv::LayoutText t{};
    t.prompt = lc.prompt;
    t.cols = cols;
    t.prompt_cells = qv::prompt_cells(lc.prompt, cols);
    t.indent = t.prompt_cells;
    t.text = lc.text.c_str();
    t.len = static_cast<int>(lc.text.size());
    t.breaks = lc.breaks.data();
    t.nbreaks = static_cast<int>(lc.breaks.size());
    std::vector<std::string> rows;
    std::vector<termchar> cells(static_cast<size_t>(cols));
    qv::RowStart s{0, 0, qv::kFirstRow, 0}, next{};
    for (int more = 1; more;) {
        int last = 0;
        more = qv::layout_row(t, s, cells.data(), &last, &next);
        std::string row;
        // A wide character shows as W and its right half as '.'.
        for (int j = 0; j < last; j++) {
            const termchar &cell = cells[static_cast<size_t>(j)];
            row += (cell.attr & ATTR_WIDE_TAIL) ? '.' : cell.ch < 128 ? static_cast<char>(cell.ch) : 'W';
        }
        if (s.offset <= lc.cursor) {
            *crow = static_cast<int>(rows.size());
            *ccol = qv::layout_cursor_column(t, s, lc.cursor);
        }
        rows.push_back(row);
        s = next;
    }
    return rows;
}

TEST(Layout, RowsAndCursor) {
    EXPECT_EQ(char_width(L'\u4e2d'), 2); // wide, whatever the host's locale
    EXPECT_EQ(char_width(L'\u0301'), 0); // a combining mark
    EXPECT_EQ(char_width(L'\x01'), 2);   // ^A
    using Rows = std::vector<std::string>;
    const LayoutCase cases[] = {
        // Wrapping; a row filled exactly leaves the cursor a row below.
        {L"> ", L"abcdefghijk", {}, 11, {"> abcdef", "ghijk"}, 1, 5},
        {L"> ", L"abcdef", {}, 6, {"> abcdef", ""}, 1, 0},
        {L"> ", L"abcdef", {}, 5, {"> abcdef", ""}, 0, 7},
        // A prompt as wide as the row, and one wider, cut a column short.
        {L"12345678", L"ab", {}, 0, {"12345678", "ab"}, 1, 0},
        {L"123456789", L"ab", {}, 2, {"1234567a", "b"}, 1, 1},
        // A kept line break, a join and a backslash join.
        {L"> ", L"ab\ncd", {}, 2, {"> ab", "  cd"}, 0, 4},
        {L"> ", L"ab\ncd", {}, 3, {"> ab", "  cd"}, 1, 2},
        {L"> ", L"abcd", {{2, qv::kJoin}}, 2, {"> ab", "  cd"}, 1, 2},
        {L"> ", L"abcd", {{2, qv::kBackslashJoin}}, 4, {"> ab\\", "  cd"}, 1, 4},
        // A control character takes two cells and never splits.
        {L"> ", L"abcde\x01", {}, 6, {"> abcde", "^A"}, 1, 2},
        // Wide characters take two cells, and one that does not fit in the
        // last column starts the next row; a combining mark takes none.
        {L"> ", L"ab\u4e2dc", {}, 4, {"> abW.c"}, 0, 7},
        {L"> ", L"abcde\u4e2d", {}, 6, {"> abcde", "W."}, 1, 2},
        {L"> ", L"e\u0301x", {}, 3, {"> ex"}, 0, 4},
        {L"\u4e2d> ", L"ab", {}, 2, {"W.> ab"}, 0, 6},
    };
    for (const LayoutCase &lc : cases) {
        int crow = -1, ccol = -1;
        const Rows rows = layOut(lc, 8, &crow, &ccol);
        const std::string what(lc.text.begin(), lc.text.end());
        EXPECT_EQ(rows, lc.rows) << what;
        EXPECT_EQ(crow, lc.cursor_row) << what;
        EXPECT_EQ(ccol, lc.cursor_col) << what;
    }
}

// A key at the end of a long input lays out and compares the rows it can
// change, not all of them: its cost does not grow with the input. The
// painter writes into memory here, on the readable test terminal.
TEST(Paint, AKeyAtTheEndOfAThousandRowsTouchesOnlyItsRows) {
    setenv("TERMINFO", qvtest::terminfoDir().c_str(), 1);
    setenv("TERM", "qv-readable", 1);
    char *buf = nullptr;
    size_t len = 0;
    FILE *real = stdout;
    stdout = open_memstream(&buf, &len);
    console c{};
    ASSERT_EQ(console_init(&c), 1);
    ASSERT_EQ(console_init_editor(&c), 1);
    c.prompt = L"> ";
    screen_buffer_reset(&c);
    console_put_prompt(&c);
    for (int i = 0; i < 1000 * 20 - 6; i++) buffer_insert_char(&c, L'a');
    action_key_end(&c, 0);
    fflush(stdout);
    const size_t before_len = len;
    const console_state before = *c.state;
    action_insert_char(&c, 'x');
    action_insert_char(&c, 'y');
    fflush(stdout);
    const std::string written(buf + before_len, len - before_len);
    const unsigned long laid_out = c.state->rows_laid_out - before.rows_laid_out;
    const unsigned long compared = c.state->rows_compared - before.rows_compared;
    console_free(&c);
    fclose(stdout);
    stdout = real;
    free(buf);
    EXPECT_EQ(written, "<hpa 16>x<hpa 16><cuf 1><hpa 17>y<hpa 17><cuf 1>");
    EXPECT_LE(laid_out, 4u);
    EXPECT_LE(compared, 4u);
}

} // namespace
