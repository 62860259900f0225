// vi mode as its users type it: each row a key stream, the line that comes
// back, and where the cursor was ("|" typed at it).
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "pty_harness.h"

using namespace qvtest;

namespace {

const std::string esc = "\x1b";

// Each row is typed into a fresh read over the history "older", "newer" and
// the rows before; Escape comes straight before the next key, as a fast
// typist sends it. The history rows come first, while the history is known.
TEST(Vi, KeyStreamsGiveTheLineAndTheCursor) {
    QV_NEEDS(TERM_FEATURE_VI_MODE);
    struct Row {
        std::string keys, line;
    };
    const Row rows[] = {
        // History: / searches older entries (Return takes the match), n again, j k walk.
        {esc + "/r\rn", "older"},
        {esc + "/ne\r", "newer"},
        {esc + "k", "newer"},
        {esc + "2kj", "newer"},
        {esc + "kki|", "|older"},
        // Motions, with counts.
        {"hello world" + esc + "0i|", "|hello world"},
        {"hello world" + esc + "bi|", "hello |world"},
        {"one two three" + esc + "02wi|", "one two |three"},
        {"a.b c" + esc + "0wi|", "a|.b c"},
        {"a.b c" + esc + "0Wi|", "a.b |c"},
        {"one two" + esc + "0ea|", "one| two"},
        {"a.b c" + esc + "0Ea|", "a.b| c"},
        {"  x y" + esc + "0^i|", "  |x y"},
        {"a-b-c-d" + esc + "0f-;i|", "a-b|-c-d"},
        {"a-b-c-d" + esc + "$2F-i|", "a-b|-c-d"},
        {"x=1" + esc + "0$T=i|", "x=|1"},
        {"abc" + esc + "0l l" + "\x7f" + "i|", "a|bc"},           // Space and Backspace move too
        // Operators with motions, and the doubled and capital forms.
        {"one two three" + esc + "0dwi|", "|two three"},
        {"one two three" + esc + "02dw", "three"},
        {"one two three" + esc + "0d2w", "three"},
        {"one two three" + esc + "0cwONE" + esc, "ONE two three"},
        {"abc(def)" + esc + "0dt)", ")"},
        {"one two" + esc + "0wD", "one "},
        {"one two" + esc + "0wCX" + esc, "one X"},
        {"one" + esc + "dd", ""},
        {"one" + esc + "ccX" + esc, "X"},
        {"one two" + esc + "0ywP", "one one two"},
        {"ab" + esc + "0yyP", "abab"},
        {"one two" + esc + "bdb", "two"},
        {"a b c" + esc + "0" + "99999999999d99999999w", ""},     // counts are capped, never slow
        // Edits.
        {"abcdef" + esc + "0x2x", "def"},
        {"abcdef" + esc + "X", "abcdf"},
        {"ab" + esc + "0xp", "ba"},
        {"abcdef" + esc + "02rZi|", "Z|Zcdef"},
        {"abcdef" + esc + "0RXY" + esc, "XYcdef"},
        {"abc" + esc + "0sX" + esc, "Xbc"},
        {"abc" + esc + "SX" + esc, "X"},
        {"abc" + esc + "0~~", "ABc"},
        {"abc" + esc + "03~", "ABC"},
        {"  abc" + esc + "IX" + esc + "AY", "  XabcY"},
        {"abc" + esc + "0aX", "aXbc"},
        {"\xc3\xa9t\xc3\xa9" + esc + "0r\xc3\xa8$~", "\xc3\xa8t\xc3\x89"},  // any script
        // Undo: a change is one step, insert mode's keys included.
        {"one two" + esc + "0dwu", "one two"},
        {"abc" + esc + "0xxuu", "abc"},
        {"one two" + esc + "0cwXY" + esc + "u", "one two"},
        {"ab\x7f" "cd" + esc + "u", ""},
        // . repeats the last change, with its insert; a count repeats it more.
        {"a b c d" + esc + "0dw..", "d"},
        {"one two" + esc + "0cwX" + esc + "w.", "X X"},
        {"abcdef" + esc + "0x3.", "ef"},
        {"a b c" + esc + "0dw.u", "b c"},
        {"ab" + esc + "0iX" + esc + "l.", "XXab"},
    };
    const std::string dir = historyDir("older\nnewer\n");
    std::vector<std::string> commands{"init:dir=" + dir, "option:9=1", "load"};
    std::string keys;
    Lines want;
    for (const Row &r : rows) {
        commands.push_back("utf8:");
        keys += r.keys + "\r";
        want.push_back(r.line);
    }
    PtyHost h(commands, xterm(40));
    const Lines got = h.typed(keys);
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); i++) EXPECT_EQ(got[i], want[i]) << visible(rows[i].keys);
}

// A lone Escape enters command mode once the next key is late; the cursor's
// shape says the mode and is given back when the read ends. Continuation
// lines and a masked read work in command mode too.
TEST(Vi, TheModeShowsInTheCursorsShape) {
    QV_NEEDS(TERM_FEATURE_VI_MODE);
    HostOptions o;
    o.term = "qv-shape";
    PtyHost h({"init", "option:9=1", "cb:complete=brackets", "line:", "mask:*:", "destroy"}, o);
    h.keys("(ab");
    h.waitScreen("(ab");
    const size_t before = h.output().size();
    h.keys(esc);
    h.waitOutput("<Ss 2>", before);
    EXPECT_EQ(h.typed("0i|\r)\r" "pw" + esc + "xa!\r"), (Lines{"|(ab)", "p!"}));
    const std::string out = h.output();
    EXPECT_EQ(out.find("<Ss 6>"), out.find("<Ss")); // insert mode first
    EXPECT_EQ(count(out, "<Se>"), 2);                // after each read
}

// With the mode shown in the prompt, each switch redraws the prompt, its
// colours kept, and the line comes back without it.
TEST(Vi, TheModeShowsInThePrompt) {
    QV_NEEDS(TERM_FEATURE_VI_MODE);
    PtyHost h({"init", "option:9=1", "option:10=1", "line:\x1b[32m>\x1b[0m ", "destroy"}, xterm(30));
    h.keys("ab");
    h.waitScreen("(ins) > ab");
    h.keys(esc);
    h.waitScreen("(cmd) > ab");
    EXPECT_EQ(h.screen().looks[0][6], "fg2");
    EXPECT_EQ(h.screen().cursor_col, 9);
    EXPECT_EQ(h.typed("A!\r"), Lines{"ab!"});
    EXPECT_EQ(h.screen().row(0), "(ins) > ab!");
}

} // namespace
