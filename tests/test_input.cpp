// The readers that take standard input as a stream: the non-interactive
// line reader and the host's pre-buffer.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "console_fixture.h"

namespace {

class StreamInput : public ConsoleTest {
  protected:
    // Standard input reads the given bytes for the rest of the test.
    void feed(const std::string &bytes) {
        const std::string path = qvtest::tempDir() + "/stdin";
        std::ofstream(path, std::ios::binary) << bytes;
        saved_ = dup(0);
        const int fd = open(path.c_str(), O_RDONLY);
        dup2(fd, 0);
        close(fd);
        clearerr(stdin);
    }
    void TearDown() override {
        if (saved_ >= 0) {
            dup2(saved_, 0);
            close(saved_);
            clearerr(stdin);
        }
        ConsoleTest::TearDown();
    }
    std::wstring read_all() {
        c.flags = FLAG_NONINTERACTIVE;
        console_read_line(&c, "ignored> ");
        return std::wstring(c.editor.buffer, c.editor.lastchar);
    }
    int saved_ = -1;
};

TEST_F(StreamInput, NonInteractiveReadTakesEverythingUpToTheEnd) {
    feed("ab\ncd");
    EXPECT_EQ(read_all(), L"ab\ncd");
    EXPECT_EQ(c.status, ST_DONE);
    EXPECT_EQ(take(), ""); // no prompt, no echo
}

TEST_F(StreamInput, NonInteractiveReadOfNothing) {
    feed("");
    EXPECT_EQ(read_all(), L"");
    EXPECT_EQ(c.status, ST_DONE);
}

TEST_F(StreamInput, NonInteractiveReadGrowsPastItsFirstBlockAndKeepsRawBytes) {
    std::string bytes;
    for (int i = 0; i < 600; i++) bytes += static_cast<char>('a' + i % 26);
    bytes[599] = '\xe9';
    feed(bytes);
    const std::wstring got = read_all();
    ASSERT_EQ(got.size(), 600u);
    EXPECT_EQ(got[598], L'a' + 598 % 26);
    EXPECT_EQ(got[599], 0xE9); // one character per byte, never decoded
    std::unique_ptr<char, decltype(&free)> encoded(encode_input(&c), &free);
    EXPECT_EQ(std::string(encoded.get()).substr(599), "\\:00E9");
}

TEST_F(StreamInput, PreBufferHandsOutBytesInOrder) {
    feed("xyz");
    EXPECT_EQ(prebuffer_fill(&c, 0, 3), 3);
    EXPECT_EQ(prebuffer_count(&c), 3);
    EXPECT_EQ(prebuffer_getchar(&c), 'x');
    EXPECT_EQ(prebuffer_getchar(&c), 'y');
    EXPECT_EQ(prebuffer_getchar(&c), 'z');
    EXPECT_EQ(prebuffer_count(&c), 0);
    EXPECT_EQ(c.prebuffer.buffer, nullptr); // released after the last one
}

TEST_F(StreamInput, ASecondInitChangesNothing) {
    keymap_entry *const map = c.keymaps[0];
    history_t *const h = c.history;
    EXPECT_EQ(console_init(&c), 1);
    EXPECT_EQ(c.keymaps[0], map);
    EXPECT_EQ(c.history, h);
    EXPECT_EQ(c.history_max, 1000);
    EXPECT_EQ(c.history_add_unchanged, 1);
    EXPECT_EQ(c.history_allow_duplicates, 0);
    EXPECT_EQ(c.status, ST_READING);
}

} // namespace
