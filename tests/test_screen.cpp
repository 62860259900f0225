// What a key costs the painter. The layout itself is checked against an
// independent oracle by the key fuzzer (its corpus runs with every build)
// and by the property test.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "console.h"
#include "os-unix.h"
#include "pty_harness.h"

namespace {

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
