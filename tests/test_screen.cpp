// What a key costs the painter. The layout itself is checked against an
// independent oracle by the key fuzzer (its corpus runs with every build)
// and by the property test.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "console.h"
#include "model.h"
#include "os-unix.h"
#include "render.h"
#include "view.h"
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
    qv::render(&c, 0, false, 0);
    fflush(stdout);
    const size_t before_len = len;
    const unsigned long laid_out_before = qv::view_rows_laid_out(&c);
    const unsigned long compared_before = qv::model_rows_compared(&c);
    for (const int key : {'x', 'y'}) {
        action_insert_char(&c, key);
        qv::render(&c, 0, false, 0);
    }
    fflush(stdout);
    const std::string written(buf + before_len, len - before_len);
    const unsigned long laid_out = qv::view_rows_laid_out(&c) - laid_out_before;
    const unsigned long compared = qv::model_rows_compared(&c) - compared_before;
    console_free(&c);
    fclose(stdout);
    stdout = real;
    free(buf);
    EXPECT_EQ(written, "<hpa 16>x<hpa 16><cuf 1><hpa 17>y<hpa 17><cuf 1>");
    EXPECT_LE(laid_out, 4u);
    EXPECT_LE(compared, 4u);
}

} // namespace
