// Colour as a user meets it: the styles a prompt, a highlighter and brace
// matching give the cells on the screen, and the bytes that draw them.
#include <gtest/gtest.h>

#include "pty_harness.h"

using namespace qvtest;

namespace {

// A prompt's SGR sequences and what stands between \001 and \002 take no
// cells; the colours stay with their characters as the text wraps, and a
// prompt as wide as the terminal is cut as a plain one is.
TEST(Colour, PromptsTakeNoCells) {
    const std::string prompt = "\x1b[32m>\x1b[0m \001\x1b[1m\002ok\001\x1b[0m\002: ";
    PtyHost h({"init", "cb:idle=tick", "utf8:" + prompt, "destroy"}, xterm(12));
    h.keys("abcdefghij");
    h.settle();
    const Screen s = h.screen();
    EXPECT_EQ(s.row(0), "> ok: abcdef");
    EXPECT_EQ(s.row(1), "ghij");
    EXPECT_EQ(s.cursor_row, 1);
    EXPECT_EQ(s.cursor_col, 4);
    // The blank after ">" goes out in its colour: a colour does not show on
    // a blank, and it saves two changes of style.
    EXPECT_EQ(s.looks[0], (std::vector<std::string>{"fg2", "fg2", "bold", "bold", "", "", "", "", "", "", "", ""}));
    EXPECT_EQ(h.typed("\r"), Lines{"abcdefghij"});

    Screen wide[2];
    for (int i = 0; i < 2; i++) {
        const std::string p = std::string(12, 'p');
        PtyHost w({"init", "cb:idle=tick", "utf8:" + (i ? "\x1b[31m" + p + "\x1b[0m" : p), "destroy"}, xterm(12));
        w.keys("ab");
        w.settle();
        wide[i] = w.screen();
        EXPECT_EQ(w.typed("\r"), Lines{"ab"});
    }
    EXPECT_EQ(wide[1].shown(), wide[0].shown());
    EXPECT_EQ(wide[1].looks[0][0], "fg1");
    EXPECT_EQ(wide[1].looks[1][0], "");
}

// The highlighter styles whole characters, once for a burst of keys; brace
// matching shows the partner only while the cursor is on or after a bracket,
// and never in the finished input.
TEST(Colour, HighlighterAndBraces) {
    QV_NEEDS(TERM_FEATURE_HIGHLIGHT);
    PtyHost h({"init", "highlight:digits", "option:7=1", "cb:idle=tick", "utf8:> ", "destroy"}, xterm());
    h.keys("(x1)");
    h.settle();
    Screen s = h.screen();
    EXPECT_EQ(s.row(0), "> (x1)");
    EXPECT_EQ(s.looks[0][2], "reverse");
    EXPECT_EQ(s.looks[0][3], "");
    EXPECT_EQ(s.looks[0][4], "fg3+bold");
    EXPECT_EQ(s.looks[0][5], "");
    h.keys(kLeft);
    h.settle();
    EXPECT_EQ(h.screen().looks[0][2], "reverse");
    h.keys(kLeft);
    h.settle();
    EXPECT_EQ(h.screen().looks[0][2], "");
    EXPECT_EQ(h.screen().looks[0][4], "fg3+bold");
    const size_t calls = h.records("HIGHLIGHT").size();
    h.keys(std::string(20, '7'));
    h.settle();
    EXPECT_LT(h.records("HIGHLIGHT").size() - calls, 10u);
    EXPECT_EQ(h.screen().looks[1][0], "fg3+bold");
    // Return just after the ')': the finished row keeps no mark that only
    // the cursor's place justified.
    EXPECT_EQ(h.typed("\x05\r"), Lines{"(x" + std::string(20, '7') + "1)"});
    EXPECT_EQ(h.screen().looks[0][2], "");
}

// 24-bit colour from the highlighter and in the prompt: drawn as it is on a
// terminal with direct colour, as the nearest of 256 colours on one
// without, and of 8 on an 8-colour one.
TEST(Colour, RgbAndItsFallbacks) {
    QV_NEEDS(TERM_FEATURE_HIGHLIGHT);
    struct Case {
        HostOptions options;
        std::string digit, prompt;
    };
    HostOptions direct = xterm(30), plain = xterm(30), eight;
    direct.env.push_back("COLORTERM=truecolor");
    eight.term = "qv-colour";
    for (const Case &k : {Case{direct, "fg#ff8000+bg#000060", "fg#00c8ff"}, Case{plain, "fg208+bg17", "fg45"},
                          Case{eight, "", ""}}) {
        PtyHost h({"init", "highlight:rgb", "cb:idle=tick", "utf8:\x1b[38;2;0;200;255m>\x1b[0m ", "destroy"}, k.options);
        h.keys("a1");
        h.settle();
        if (k.options.term == "qv-colour") {
            // The readable terminal's own tokens.
            EXPECT_NE(h.output().find("<setaf 3><setab 0>1"), std::string::npos) << visible(h.output());
            EXPECT_NE(h.output().find("<setaf 6>>"), std::string::npos) << visible(h.output());
        } else {
            const Screen s = h.screen();
            EXPECT_EQ(s.looks[0][3], k.digit) << k.options.term;
            EXPECT_EQ(s.looks[0][0], k.prompt) << k.options.term;
        }
        EXPECT_EQ(h.typed("\r"), Lines{"a1"});
    }
}

// A transient prompt: a finished input is drawn again with it, in its
// colours, in place of the long prompt; its continuation rows keep their
// indent; an abandoned input keeps the read's prompt.
TEST(Colour, TheTransientPrompt) {
    PtyHost h({"init", "cb:complete=brackets", "transient:\x1b[32m$\x1b[0m ", "line:long prompt> ", "line:long prompt> ",
               "destroy"},
              xterm(40));
    EXPECT_EQ(h.typed("(a\rb)\rgone\x07" "x\r"), (Lines{"(ab)", "x"}));
    const Screen s = h.screen();
    EXPECT_EQ(s.shown(), (Lines{"$ (a", "             b)", "long prompt> gone", "$ x"}));
    EXPECT_EQ(s.looks[0][0], "fg2");
    EXPECT_EQ(h.records("TRANSIENT"), Lines{"TRANSIENT 1"});
}

// A right prompt at the first row's end, in its colours: hidden while the
// input reaches it (wide text counted by its cells), back when the input
// draws back, laid out again at a new width, and gone from the finished
// input.
TEST(Colour, TheRightPrompt) {
    PtyHost h({"init", "right:\x1b[33m[12:00]\x1b[0m", "cb:idle=tick", "line:> ", "destroy"}, xterm(30));
    h.keys("abc");
    h.waitScreen("> abc");
    h.settle();
    EXPECT_EQ(h.screen().row(0), "> abc                  [12:00]");
    EXPECT_EQ(h.screen().looks[0][23], "fg3");
    h.keys("\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad");
    h.settle();
    EXPECT_EQ(h.screen().row(0), "> abc\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad"); // 23 cells: too close
    h.keys("\x7f");
    h.settle();
    EXPECT_EQ(h.screen().row(0).substr(h.screen().row(0).size() - 7), "[12:00]");
    h.resize(24, 20);
    h.keys("\x7f\x7f\x7f\x7f\x7f\x7f\x7f\x7f");
    h.settle();
    EXPECT_EQ(h.screen().row(0), "> abc        [12:00]");
    EXPECT_EQ(h.typed("\r"), Lines{"abc"});
    EXPECT_EQ(h.screen().row(0), "> abc");
    EXPECT_EQ(h.records("RIGHT"), Lines{"RIGHT 1"});
}

// The hint, the completion listing and the matched bracket take the looks
// the host gives them.
TEST(Colour, LooksOfHintListingAndMatch) {
    QV_NEEDS(TERM_FEATURE_HIGHLIGHT);
    // TERM_FG(4) for the hint, TERM_FG(1) for the listing, TERM_UNDERLINE
    // for the bracket.
    const std::string fg4 = "look:1=5", fg1 = "look:2=2", under = "look:3=0x200000";
    PtyHost h({"option:2=1", "option:7=1", fg4, under, "init:dir=" + historyDir("print 42\n"), "load", "cb:idle=tick",
               "utf8:> ", "destroy"},
              xterm(30));
    h.keys("pr");
    h.settle();
    EXPECT_EQ(h.screen().row(0), "> print 42");
    EXPECT_EQ(h.screen().looks[0][3], "");
    EXPECT_EQ(h.screen().looks[0][4], "fg4");
    h.keys("\x15(x)");
    h.settle();
    EXPECT_EQ(h.screen().looks[0][2], "underline");
    EXPECT_EQ(h.records("LOOK"), (Lines{"LOOK 524288", "LOOK 4194304"}));
    EXPECT_EQ(h.typed("\r"), Lines{"(x)"});

    PtyHost l({fg1, "completer:words", "init", "cb:idle=tick", "utf8:> ", "destroy"}, xterm(30));
    l.keys("pr\t");
    l.settle();
    l.keys("\t");
    l.settle();
    EXPECT_EQ(l.screen().looks[1][0], "fg1");
    EXPECT_EQ(l.typed("\r"), Lines{"pr"});
}

// A highlighter that styles only from where the text changed sees that
// offset in bytes, and the styles of the text before it stay.
TEST(Colour, HighlighterKeepsWhatDidNotChange) {
    QV_NEEDS(TERM_FEATURE_HIGHLIGHT);
    PtyHost h({"init", "highlight:from", "cb:idle=tick", "utf8:> ", "utf8:> ", "destroy"}, xterm());
    const auto from_after = [&](const std::string &keys) {
        h.keys(keys);
        h.settle();
        return h.records("FROM").back();
    };
    EXPECT_EQ(from_after("\xc3\xa9"), "FROM 0");
    EXPECT_EQ(from_after("1"), "FROM 2");
    EXPECT_EQ(from_after("a"), "FROM 3");
    EXPECT_EQ(from_after("2"), "FROM 4");
    EXPECT_EQ(from_after(kLeft + kLeft + "3"), "FROM 3");
    const Screen s = h.screen();
    EXPECT_EQ(s.row(0), "> \xc3\xa9" "13a2");
    const std::vector<std::string> looks(s.looks[0].begin() + 2, s.looks[0].begin() + 7);
    EXPECT_EQ(looks, (std::vector<std::string>{"", "fg3+bold", "fg3+bold", "", "fg3+bold"}));
    EXPECT_EQ(from_after("\x01" + kDelete), "FROM 0");
    // A new read starts from nothing; a blank with a background is not
    // drawn in the style of the digit before it.
    h.keys("\r");
    h.settle();
    const size_t calls = h.records("FROM").size();
    h.keys("5 6");
    h.settle();
    EXPECT_EQ(h.records("FROM").at(calls), "FROM 0");
    const Screen t = h.screen();
    const std::vector<std::string> second(t.looks[1].begin() + 2, t.looks[1].begin() + 5);
    EXPECT_EQ(second, (std::vector<std::string>{"fg3+bold", "bg4", "fg3+bold"}));
    EXPECT_EQ(h.typed("\r"), (Lines{"13a2", "5 6"}));
}

// Ranges outside the text, across a character or backwards style nothing
// they do not wholly cover.
TEST(Colour, BadRangesStyleOnlyWholeCharacters) {
    QV_NEEDS(TERM_FEATURE_HIGHLIGHT);
    PtyHost h({"init", "highlight:bad", "cb:idle=tick", "utf8:> ", "destroy"}, xterm());
    h.keys("\xc3\xa9" "ab");
    h.settle();
    const Screen s = h.screen();
    EXPECT_EQ(s.looks[0][2], "");
    EXPECT_EQ(s.looks[0][3], "");
    EXPECT_EQ(s.looks[0][4], "fg4");
    EXPECT_EQ(h.records("ADDS").back(), "ADDS 0 1 0 0");
    EXPECT_EQ(h.typed("\r"), Lines{"\xc3\xa9" "ab"});
}

// When only a style changes the painter rewrites just those cells, with the
// fewest attribute changes; a terminal without colour gets the bytes an
// unstyled input gets.
TEST(Colour, BytesOfAStyleChange) {
    QV_NEEDS(TERM_FEATURE_HIGHLIGHT);
    HostOptions colour;
    colour.term = "qv-colour";
    PtyHost h({"init", "option:7=1", "cb:idle=tick", "utf8:> ", "destroy"}, colour);
    h.keys("(x)");
    h.settle();
    h.keys(kLeft);
    h.settle();
    const size_t before = h.output().size();
    h.keys(kLeft);
    h.settle();
    EXPECT_EQ(h.output().substr(before), "<hpa 2>(<hpa 4><hpa 4><rev>)<sgr0><hpa 4><cub 1>");
    EXPECT_EQ(h.typed("\r"), Lines{"(x)"});

    std::string plain[2];
    for (int i = 0; i < 2; i++) {
        PtyHost p({"init", i ? "highlight:digits" : "cb:none", "cb:idle=tick", "utf8:> ", "destroy"});
        p.keys("a1(");
        p.settle();
        plain[i] = p.output();
        EXPECT_EQ(p.typed("\r"), Lines{"a1("});
    }
    EXPECT_EQ(plain[1], plain[0]);
}

} // namespace
