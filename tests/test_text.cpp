// Text in any script and a window that changes size, as a user sees them:
// the line that comes back and the screen a real emulator renders.
#include <gtest/gtest.h>

#include "pty_harness.h"

using namespace qvtest;

namespace {

// é, я, 中 and an emoji, typed a byte at a time under the C locale (the
// paste tests type them in bursts): they come back as typed and each takes
// its cells on screen.
TEST(Utf8, TypedTextComesBackAndTakesItsCells) {
    const std::string text = "\xc3\xa9 \xd1\x8f \xe4\xb8\xad \xf0\x9f\x98\x80";
    HostOptions o = xterm();
    o.env.push_back("LC_ALL=C");
    PtyHost h({"init", "utf8:> ", "line:> ", "destroy"}, o);
    h.keysSlowly(text + "!\r");
    EXPECT_EQ(h.typed("\xe4\xb8\xad\r"), (Lines{text + "!", "\\:4E2D"}));
    EXPECT_EQ(h.screen().row(0), "> " + text + "!");
}

// A broken sequence inserts nothing, and the byte that broke it is a key.
TEST(Utf8, InvalidSequencesLoseNoKey) {
    PtyHost h({"init", "utf8:", "utf8:", "destroy"}, xterm());
    EXPECT_EQ(h.typed(std::string("a\xc3x") + "\xe0\x81\x81" + "\xed\xa0\x80" + "\xf4\x90\x80\x80" + "\xff\x80" +
                      "b" + "\xe4\xb8" + kLeft + "c\r" + "d\xc3\r"),
              (Lines{"axcb", "d"}));
}

// A combining mark is drawn into its character's cell, and one key moves
// over or deletes both; a wide prompt puts the text after its cells.
TEST(Utf8, CombiningMarksAndWidePrompts) {
    PtyHost h({"init", "cb:idle=tick", "utf8:\xe4\xb8\xad> ", "destroy"}, xterm());
    h.keys("e\xcc\x81x");
    h.settle();
    EXPECT_EQ(h.screen().row(0), "\xe4\xb8\xad> e\xcc\x81x");
    EXPECT_NE(h.output().find("e\xcc\x81"), std::string::npos); // drawn together
    EXPECT_EQ(h.typed(kLeft + kLeft + "a" + "\x05" + kLeft + "\x7f\r"), Lines{"ax"});
    EXPECT_EQ(h.screen().row(0), "\xe4\xb8\xad> ax");
}

// What a reader sees as one character, as Unicode's grapheme clusters
// define it: a letter with a mark, a flag, emoji joined by a zero-width
// joiner or with a skin tone, a Hangul syllable in jamo, a character with a
// variation selector. No key of either mode splits one, and each moves, is
// deleted and is swapped whole; the line comes back byte for byte.
TEST(Clusters, NoKeySplitsOne) {
    const std::string clusters[] = {
        "e\xcc\x81",                                                         // e + acute
        "\xf0\x9f\x87\xab\xf0\x9f\x87\xb7",                                 // a flag
        "\xf0\x9f\x91\xa8\xe2\x80\x8d\xf0\x9f\x91\xa9\xe2\x80\x8d\xf0\x9f\x91\xa7", // a family
        "\xf0\x9f\x91\x8d\xf0\x9f\x8f\xbd",                                 // thumbs up, a skin tone
        "\xe1\x84\x92\xe1\x85\xa1\xe1\x86\xab",                             // han in jamo
        "\xe2\x9d\xa4\xef\xb8\x8f",                                           // a heart as emoji
    };
    const std::string esc = "\x1b", home = "\x01";
    std::vector<std::pair<std::string, std::string>> emacs, vi;
    for (const std::string &c : clusters) {
        const std::string abc = "a" + c + "b";
        emacs.push_back({abc + kLeft + kLeft + "|", "a|" + c + "b"});
        emacs.push_back({abc + home + kRight + kRight + "|", abc.substr(0, abc.size() - 1) + "|b"});
        emacs.push_back({abc + kLeft + "\x7f", "ab"});
        emacs.push_back({abc + kLeft + kLeft + "\x04", "ab"});
        emacs.push_back({"a" + c + "\x14", c + "a"});
        vi.push_back({abc + esc + "hi|", "a|" + c + "b"});
        vi.push_back({abc + esc + "0lx", "ab"});
        vi.push_back({abc + esc + "0lrZ", "aZb"});
        vi.push_back({abc + esc + "0l" + "a|", "a" + c + "|b"});
        vi.push_back({abc + esc + "$Fbhi|", "a|" + c + "b"});
    }
    // A word motion never stops inside one, and a cluster is part of a word
    // when its first character is a letter.
    emacs.push_back({"xy cafe\xcc\x81s\x1b" "bX", "xy Xcafe\xcc\x81s"});
    emacs.push_back({"xy cafe\xcc\x81 ba\xcc\x88r\x1b\x7f\x1b\x7f", "xy "});
    vi.push_back({"xy cafe\xcc\x81s" + esc + "bi|", "xy |cafe\xcc\x81s"});
    vi.push_back({"cafe\xcc\x81 x" + esc + "0ea|", "cafe\xcc\x81| x"});
    vi.push_back({"e\xcc\x81" + esc + "~", "E\xcc\x81"});
    for (const bool vi_mode : {false, true}) {
        if (vi_mode) QV_NEEDS(TERM_FEATURE_VI_MODE);
        const auto &rows = vi_mode ? vi : emacs;
        std::vector<std::string> commands{"init", vi_mode ? "option:9=1" : "option:9=0"};
        std::string keys;
        for (const auto &r : rows) {
            commands.push_back("utf8:");
            keys += r.first + "\r";
        }
        PtyHost h(commands, xterm(40));
        const Lines got = h.typed(keys);
        ASSERT_EQ(got.size(), rows.size());
        for (size_t i = 0; i < got.size(); i++) EXPECT_EQ(got[i], rows[i].second) << visible(rows[i].first);
    }
}

// A flag takes two cells and the cursor never stands inside it. After a
// cluster whose width terminals disagree on (a joined family), what follows
// is placed by column, even inside a burst of keys, so the next key acts
// where it should whatever the terminal drew.
TEST(Clusters, CellsAndTheCursor) {
    const std::string flag = "\xf0\x9f\x87\xab\xf0\x9f\x87\xb7";
    const std::string family = "\xf0\x9f\x91\xa8\xe2\x80\x8d\xf0\x9f\x91\xa9\xe2\x80\x8d\xf0\x9f\x91\xa7";
    PtyHost h({"init", "cb:idle=tick", "utf8:> ", "destroy"}, xterm(40));
    h.keys("a" + flag + "b" + kLeft);
    h.waitScreen("> a" + flag + "b");
    h.settle();
    EXPECT_EQ(h.screen().cursor_col, 5);
    h.keys(kLeft);
    h.settle();
    EXPECT_EQ(h.screen().cursor_col, 3);
    const size_t before = h.output().size();
    h.keys("\x05" + family + "xy");
    h.settle();
    EXPECT_NE(h.output().find(family + "\x1b[9Gxy", before), std::string::npos) << visible(h.output().substr(before));
    EXPECT_EQ(h.typed("\r"), Lines{"a" + flag + "b" + family + "xy"});
}

// The window narrows, then widens, while a three-row input is edited: the
// input is drawn again at each width as the oracle lays it out, and the host
// learns the new size.
TEST(Resize, TheInputIsDrawnAgainAtTheNewWidth) {
    PtyHost h({"init", "cb:idle=tick", "line:> ", "size", "destroy"}, xterm());
    std::string text;
    for (int i = 0; i < 45; i++) text += static_cast<char>('a' + i % 26);
    const std::pair<std::string, int> steps[] = {{text, 20}, {"", 15}, {"!", 15}, {"", 30}};
    std::wstring typed;
    int width = 20;
    for (const auto &[keys, cols] : steps) {
        if (cols != width) h.resize(10, width = cols);
        h.keys(keys);
        h.settle();
        typed += std::wstring(keys.begin(), keys.end());
        const Screen s = h.screen();
        const Expected e = expectedScreen(L"> ", typed, typed.size(), cols);
        EXPECT_EQ(s.shown(), e.rows) << cols;
        EXPECT_EQ(s.cursor_row, e.cursor_row) << cols;
        EXPECT_EQ(s.cursor_col, e.cursor_col) << cols;
    }
    EXPECT_EQ(h.typed("\r"), Lines{text + "!"});
    EXPECT_EQ(h.records("WIDTH"), Lines{"WIDTH 30"});
}

// A paste arrives in one write: it comes back exactly, the keys after a
// finished line wait for the next read or term_getChar, and the screen is
// the one the same keys give typed one at a time.
TEST(Paste, ABurstEndsWhereTheSameKeysOneByOneEnd) {
    const std::string keys = "h\xc3\xa9llo" + kLeft + kLeft + "X\r" + "w\xc3\xb6rld\x03" + "again\rZ";
    struct Variant {
        std::vector<std::string> commands;
        Lines lines;
    };
    const Variant variants[] = {
        {{"init", "utf8:> ", "utf8:> ", "getchar:0", "destroy"}, {"h\xc3\xa9lXlo", "again"}},
        {{"init:sigint", "utf8:> ", "utf8:> ", "utf8:> ", "getchar:0", "destroy"},
         {"h\xc3\xa9lXlo", "", "again"}},
    };
    for (const Variant &v : variants) {
        PtyHost burst(v.commands, xterm()), slow(v.commands, xterm());
        slow.keysSlowly(keys);
        EXPECT_EQ(burst.typed(keys), v.lines);
        EXPECT_EQ(slow.typed(""), v.lines);
        EXPECT_EQ(burst.records("CHAR"), Lines{"CHAR 90"});
        EXPECT_EQ(burst.records("SIGINT").size(), v.lines.size() == 3 ? 1u : 0u);
        EXPECT_EQ(burst.screen().rows, slow.screen().rows);
        // One paint for the whole burst of a line, not one per key.
        EXPECT_LT(burst.output().size(), slow.output().size());
    }
}

} // namespace
