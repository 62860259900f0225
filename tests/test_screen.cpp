// Cells and rows, the model of the input area, and the exact bytes the
// painter and the cursor motions write on the readable test terminal
// (20 columns: standard output is a file here, so the description's size).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "layout.h"

#include "console_fixture.h"

namespace {

std::string spaces(int n) { return std::string(static_cast<size_t>(n), ' '); }

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

class Paint : public ConsoleTest {
  protected:
    // Starts a read's model with a prompt, as the input loop does.
    void prompt(const wchar_t *p) {
        c.prompt = p;
        screen_buffer_reset(&c);
        console_put_prompt(&c);
    }
};

TEST_F(Paint, PromptPaintWritesTheWholeFirstRow) {
    prompt(L"> ");
    EXPECT_EQ(take(), "<hpa 0>> " + spaces(18) + "<hpa 0><cuf 2>");
}

TEST_F(Paint, TypingAtTheEndWritesOneCellAndMovesRight) {
    prompt(L"> ");
    take();
    type(L"a");
    EXPECT_EQ(take(), "<hpa 2>a<hpa 2><cuf 1>");
    repaint(&c, 1);
    EXPECT_EQ(take(), ""); // nothing changed, nothing moves
}

// A key at the end of a long input lays out and compares the rows it can
// change, not all of them: its cost does not grow with the input.
TEST_F(Paint, AKeyAtTheEndOfAThousandRowsTouchesOnlyItsRows) {
    prompt(L"> ");
    for (int i = 0; i < 1000 * 20 - 6; i++) buffer_insert_char(&c, L'a');
    action_key_end(&c, 0);
    take();
    const console_state before = *c.state;
    type(L"xy");
    EXPECT_EQ(take(), "<hpa 16>x<hpa 16><cuf 1><hpa 17>y<hpa 17><cuf 1>");
    EXPECT_LE(c.state->rows_laid_out - before.rows_laid_out, 4u);
    EXPECT_LE(c.state->rows_compared - before.rows_compared, 4u);
}

TEST_F(Paint, MarkedCellsAreWrittenAsSeparateRuns) {
    prompt(L"");
    type(L"abcdef");
    take();
    invalidate_rectangle(&c, 3, 0, 3, 0);
    invalidate_rectangle(&c, 5, 0, 5, 0);
    repaint(&c, 1);
    EXPECT_EQ(take(), "<hpa 3>d<hpa 6><hpa 5>f<hpa 6>");
}

TEST_F(Paint, AFullRowGetsItsContinuationRowWrittenWhole) {
    prompt(L"> ");
    type(std::wstring(17, L'x'));
    take();
    type(L"y");
    EXPECT_EQ(row(0), "> xxxxxxxxxxxxxxxxxy");
    EXPECT_EQ(c.screen.input.numlines, 2);
    EXPECT_EQ(c.screen.input.cur.pos.y, 1);
    EXPECT_EQ(c.screen.input.cur.pos.x, 0);
    EXPECT_EQ(take(), "<hpa 19>y<hpa 19>\n<hpa 0>" + spaces(20) + "<hpa 19><cub 19>");
}

TEST_F(Paint, HomeAndEndMoveTheCursorAtOnce) {
    prompt(L"> ");
    type(L"abc");
    take();
    action_key_home(&c, 1);
    EXPECT_EQ(take(), "<cub 3>");
    action_key_end(&c, 5);
    EXPECT_EQ(take(), "<cuf 3>");
}

TEST_F(Paint, WithoutHpaColumnsAreReachedFromTheLineStart) {
    start("qv-nohpa");
    prompt(L"> ");
    take();
    type(L"a");
    EXPECT_EQ(take(), "<cr><cuf 2>a<cr><cuf 2><cuf 1>");
}

TEST_F(Paint, HomeGoesUpAcrossWrappedRows) {
    prompt(L"");
    type(std::wstring(45, L'x')); // three rows
    take();
    action_key_home(&c, 1);
    EXPECT_EQ(take(), "<cuu 2><cub 5>");
}

TEST_F(Paint, CursorMotionPrimitives) {
    screen_cursor_move_y(&c, 0);
    screen_cursor_move_x(&c, 0);
    EXPECT_EQ(take(), "");
    screen_cursor_move_y(&c, -3);
    screen_cursor_move_y(&c, 2);
    console_newline(&c);
    console_put_wchar(&c, 0x141); // only the low byte
    screen_cursor_backspace(&c, 2);
    c.screen.input.cur.pos.x = 2;
    screen_draw_string(&c, 4, "xyz", nullptr);
    EXPECT_EQ(take(), "<cuu 3>\n\n<cr>\nA<cub 2><hpa 4>xyz<hpa 2>");
    start("qv-nocuu");
    screen_cursor_move_y(&c, -2);
    EXPECT_EQ(take(), "");
    start("qv-nocr");
    console_newline(&c);
    screen_cursor_move_to_col(&c, 0);
    EXPECT_EQ(take(), "\n<hpa 0>");
    start("qv-nohpa");
    screen_cursor_move_to_col(&c, 0);
    console_put_wstring(&c, nullptr, 3);
    cursor_pos p{};
    p.pos.x = 3;
    p.pos.y = 1;
    screen_set_cursor(&c, p);
    EXPECT_EQ(take(), "<cr><cup 1 3>");
}

// ---------------------------------------------------------------------------
// The model: wrapping, push-down, pull-back

class Model : public Paint {};

TEST_F(Model, InsertingIntoThreeFullRowsPushesIntoAFourth) {
    prompt(L"");
    type(std::wstring(60, L'a') + L"b");
    EXPECT_EQ(c.screen.input.numlines, 4); // 3 full rows + the cursor's row
    for (int i = 0; i < 61; i++) action_key_left(&c, 0);
    type(L"X");
    EXPECT_EQ(row(0), "X" + std::string(19, 'a'));
    EXPECT_EQ(row(3), "ab");
    EXPECT_TRUE(c.screen.input.lines[2]->lflags & LINE_WRAPS);
    EXPECT_TRUE(c.screen.input.lines[3]->lflags & LINE_CONTINUED);
    action_key_left(&c, 0);
    action_key_delete(&c, 0);
    EXPECT_EQ(row(3), "b");
    EXPECT_EQ(row(0), std::string(20, 'a'));
}

TEST_F(Model, SecondaryPromptIsAsWideAsThePrompt) {
    prompt(L"abcdef");
    screen_buffer_reset(&c);
    take();
    console_put_secondary_prompt(&c);
    EXPECT_EQ(c.screen.input.lines[0]->firstcol, 6);
    EXPECT_EQ(c.screen.input.newcur.pos.x, 6);
    EXPECT_EQ(take(), "<hpa 0>" + spaces(20) + "<hpa 0><cuf 6>");
}

} // namespace
