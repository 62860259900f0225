// The edit buffer, the result encoding and the UTF-8 conversions.
#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <memory>
#include <string>

#include "console.h"
#include "os-unix.h"

namespace {

class EditBuffer : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(console_init_editor(&c), 1); }
    void TearDown() override { console_free_editor(&c); }
    std::wstring text() const { return std::wstring(c.editor.buffer, c.editor.lastchar); }
    size_t capacity() const { return static_cast<size_t>(c.editor.limit - c.editor.buffer); }
    size_t cursor() const { return static_cast<size_t>(c.editor.cursor - c.editor.buffer); }
    std::string encoded() {
        std::unique_ptr<char, decltype(&free)> s(encode_input(&c), &free);
        return s ? std::string(s.get()) : "<NULL>";
    }
    console c{};
};

TEST_F(EditBuffer, GrowsByDoublingAndKeepsPositions) {
    std::wstring many(510, L'x');
    buffer_insert_string(&c, many.data(), 510);
    EXPECT_EQ(capacity(), 512u);
    c.editor.editable = c.editor.buffer + 7;
    buffer_cursor_move_left(&c, 10);
    buffer_insert_char(&c, L'y'); // need = 510 + 1 + 2 = 513
    EXPECT_EQ(capacity(), 1024u);
    EXPECT_EQ(cursor(), 501u);
    EXPECT_EQ(c.editor.editable - c.editor.buffer, 7);
    EXPECT_EQ(text().size(), 511u);
    EXPECT_EQ(text()[500], L'y');
    EXPECT_EQ(*c.editor.lastchar, 0);
}

TEST_F(EditBuffer, ReplaceAndClear) {
    std::wstring six_hundred(600, L'a');
    buffer_replace(&c, six_hundred.data(), 600);
    EXPECT_EQ(capacity(), 1024u);
    EXPECT_EQ(cursor(), 600u);
    buffer_replace(&c, L"", 0);
    EXPECT_EQ(text(), L"");
    EXPECT_EQ(cursor(), 0u);
    c.editor.editable = c.editor.buffer + 3;
    buffer_clear(&c);
    EXPECT_EQ(c.editor.editable, c.editor.buffer + 3);
    for (size_t i = 0; i < capacity(); i++) ASSERT_EQ(c.editor.buffer[i], 0) << i;
}

TEST_F(EditBuffer, DeletesAndMovesStopAtTheEnds) {
    buffer_delete_before(&c, 1);
    EXPECT_EQ(text(), L"");
    buffer_insert_string(&c, L"abc", 3);
    buffer_delete_before(&c, 5);
    EXPECT_EQ(text(), L"");
    EXPECT_EQ(*c.editor.lastchar, 0);
    buffer_insert_string(&c, L"abcd", 4);
    EXPECT_EQ(buffer_cursor_move_right(&c, 1), 0u);
    EXPECT_EQ(buffer_cursor_move_left(&c, 2), 2u);
    EXPECT_EQ(buffer_peek_before_cursor(&c), L'b');
    buffer_delete_after(&c, 1);
    EXPECT_EQ(text(), L"abd");
    buffer_delete_after(&c, 9);
    EXPECT_EQ(text(), L"ab");
    EXPECT_EQ(buffer_cursor_move_left(&c, 5), 2u);
    EXPECT_EQ(buffer_peek_before_cursor(&c), 0);
    EXPECT_EQ(buffer_insert_string(&c, L"zz", 0), 0u);
    EXPECT_EQ(text(), L"ab");
}

TEST_F(EditBuffer, HomeNeverPassesTheEndOfText) {
    buffer_insert_string(&c, L"first line", 10);
    buffer_reset_editable_offset(&c);
    buffer_replace(&c, L"ab", 2); // a recalled entry shorter than the earlier lines
    buffer_cursor_move_home(&c);
    EXPECT_EQ(cursor(), 2u);
    c.editor.editable = c.editor.buffer + 1;
    buffer_cursor_move_home(&c);
    EXPECT_EQ(cursor(), 1u);
}

TEST_F(EditBuffer, EncodesEverythingAbove127AsEscapes) {
    EXPECT_EQ(encoded(), "");
    buffer_insert_string(&c, L"a\\:b\n\x7f", 6);
    EXPECT_EQ(encoded(), "a\\:b\n\x7f");
    buffer_replace(&c, L"\u00e9\u20ac\U0001F600\xff", 4);
    EXPECT_EQ(encoded(), "\\:00E9\\:20AC\\:D83D\\:DE00\\:00FF"); // a surrogate pair above U+FFFF
    std::wstring wide(1000, L'\u00e9');
    buffer_replace(&c, wide.data(), 1000);
    EXPECT_EQ(encoded().size(), 6000u);
}

// ---------------------------------------------------------------------------

class Conversion : public ::testing::Test {
  protected:
    void TearDown() override { setlocale(LC_CTYPE, "C"); }
};

TEST_F(Conversion, RoundTripsUtf8WhateverTheHostLocale) {
    ASSERT_NE(setlocale(LC_CTYPE, "C"), nullptr);
    int n = -1;
    std::unique_ptr<wchar_t, decltype(&free)> w(cp2wchar(nullptr, "h\xc3\xa9llo", &n), &free);
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(n, 5);
    EXPECT_EQ(std::wstring(w.get()), L"h\u00e9llo");
    std::unique_ptr<char, decltype(&free)> s(wchar2cp(nullptr, w.get(), 5), &free);
    EXPECT_STREQ(s.get(), "h\xc3\xa9llo");
    std::unique_ptr<char, decltype(&free)> emoji(wchar2cp(nullptr, L"\U0001F600", 1), &free);
    EXPECT_STREQ(emoji.get(), "\xf0\x9f\x98\x80");
    EXPECT_STREQ(setlocale(LC_CTYPE, nullptr), "C");
}

TEST_F(Conversion, RejectsEmptyAndInvalidInput) {
    int n = 42;
    EXPECT_EQ(cp2wchar(nullptr, "", &n), nullptr);
    EXPECT_EQ(n, 42);
    EXPECT_EQ(cp2wchar(nullptr, "\xe9", &n), nullptr);
    EXPECT_EQ(cp2wchar(nullptr, "ab\xc3", &n), nullptr);
    EXPECT_EQ(n, 42);
    EXPECT_EQ(wchar2cp(nullptr, L"", 0), nullptr);
    const wchar_t surrogate[] = {0xD800, 0};
    EXPECT_EQ(wchar2cp(nullptr, surrogate, 1), nullptr);
    // The count limits the conversion to the characters asked for.
    std::unique_ptr<char, decltype(&free)> s(wchar2cp(nullptr, L"abcdef", 3), &free);
    EXPECT_STREQ(s.get(), "abc");
}

} // namespace
