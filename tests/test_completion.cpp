// Tab completion, incremental history search and bracketed paste, as a user
// sees them: the lines that come back and the rendered screen.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "pty_harness.h"

using qvtest::HostOptions;
using qvtest::PtyHost;

namespace {

using Lines = std::vector<std::string>;

const std::string kTab = "\t", kRight = "\x1b[C";
const std::string kPasteStart = "\x1b[200~", kPasteEnd = "\x1b[201~";

HostOptions xterm(int cols = 30, int rows = 10) {
    HostOptions o;
    o.term = "xterm-256color";
    o.cols = cols;
    o.rows = rows;
    return o;
}

int count(const std::string &s, const std::string &part) {
    int n = 0;
    for (size_t at = s.find(part); at != std::string::npos; at = s.find(part, at + 1)) n++;
    return n;
}

// One candidate goes in; several give their common prefix and, on a second
// Tab, a sorted list under the input with the input drawn again below it;
// none changes nothing. UTF-8 candidates and prefixes work alike.
TEST(Completion, OneSeveralAndNoCandidates) {
    PtyHost h({"completer:words", "init", "line:> ", "line:> ", "line:> ", "line:> ", "destroy"},
              xterm());
    h.keys("pri" + kTab + kTab + "v" + kTab + "\r" + "pr" + kTab + "in" + kTab + "\r" + "zz" + kTab +
           "\r" + "\xc3\xa9t" + kTab + "!\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"private", "print", "zz", "\\:00E9t\\:00E9!"}));
    const qvtest::Screen s = h.screen();
    EXPECT_EQ(s.row(0), "> pri");
    EXPECT_EQ(s.row(1), "print    printf   private");
    EXPECT_EQ(s.row(2), "> private");
}

// Past 100 candidates the list waits for a yes; 10,000 leave the editor
// working; a completer's bad arguments and invalid text are refused.
TEST(Completion, ManyAndBadCandidates) {
    PtyHost h({"completer:many=10000", "init", "line:> ", "completer:bad", "line:> ", "destroy"},
              xterm(30, 12));
    h.keys("it" + kTab + kTab + "n" + "x" + kTab + kTab + "\r" + "o" + kTab + "\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"itemx", "ok"}));
    EXPECT_NE(h.output().find("Display all 10000 possibilities? (y or n)"), std::string::npos);
    EXPECT_EQ(h.records("ADDS"), Lines{"ADDS 0 0 0 0"});

    PtyHost listed({"completer:many=150", "init", "line:> ", "destroy"}, xterm(30, 12));
    listed.keys("item" + kTab + kTab + "y" + "\r");
    ASSERT_EQ(listed.finish(), 0);
    EXPECT_EQ(listed.lines(), Lines{"item"});
    const qvtest::Screen s = listed.screen();
    EXPECT_EQ(s.row(9), "item049  item099  item149"); // the last row of the list,
    EXPECT_EQ(s.row(10), "> item");                    // then the input again
}

// Ctrl-R narrows, repeats, fails and widens again; Return takes the match,
// Ctrl-G gives the line back, and a motion key takes the match to edit it.
TEST(Search, FindsTakesAndGivesBack) {
    const std::string dir = qvtest::tempDir();
    std::ofstream(dir + "/term.history") << "make test\ngit commit\nmake bench\nls \xe4\xb8\xad\xe6\x96\x87\n";
    PtyHost h({"init:dir=" + dir, "cb:idle=tick", "load", "line:> ", "line:> ", "line:> ", "destroy"},
              xterm(60));
    h.keys("\x12make");
    h.settle();
    EXPECT_EQ(h.screen().row(0), "(reverse-i-search)`make': make bench");
    h.keys("\x12" "x");
    h.settle();
    EXPECT_EQ(h.screen().row(0), "(failing reverse-i-search)`makex': make test");
    h.keys("\x7f\r");
    h.waitEnd(0);
    h.keys("typed\x12git\x07!\r");
    h.waitEnd(1);
    h.keys("\x12\xe4\xb8\xad" + kRight + "!\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"make test", "typed!", "ls \\:4E2D!\\:6587"}));
}

// A bracketed paste of several lines is inserted, not run; one cut off by
// the end of the input loses nothing; bracketing is turned off on every
// path out of a read.
TEST(Paste, MultiLinePastesAreInsertedNotRun) {
    PtyHost h({"init:sigint", "line:> ", "line:> ", "line:> ", "line:> ", "destroy"}, xterm());
    h.keys(kPasteStart + "echo one\recho \x1b[31mtwo\r" + kPasteEnd + "\r" + "a\r" + "\x03" + "\x04");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"echo one\necho two\n", "a", "", ""})); // the sequence is dropped
    const qvtest::Screen s = h.screen();
    EXPECT_EQ(s.row(0), "> echo one");
    EXPECT_EQ(s.row(1), "  echo two");
    // On at the start of every read, off on every way out of it: Return,
    // Ctrl-C with the sigint option, end of input.
    const std::string out = h.output();
    EXPECT_EQ(count(out, "\x1b[?2004h"), 4);
    EXPECT_EQ(count(out, "\x1b[?2004l"), 4);
    EXPECT_LT(out.rfind("\x1b[?2004h"), out.rfind("\x1b[?2004l"));

    HostOptions piped = xterm();
    piped.stdin_pipe = true;
    PtyHost cut({"init", "line:> ", "destroy"}, piped);
    cut.waitRead(0);
    cut.keys(kPasteStart + "abc\rdef");
    cut.closeInput();
    ASSERT_EQ(cut.finish(), 0);
    EXPECT_EQ(cut.lines(), Lines{"abc\ndef"});
}

// With UTF-8 input off, bytes above 127 do nothing, as they once did.
TEST(Options, Utf8InputCanBeTurnedOff) {
    PtyHost h({"option:3=0", "option:3=0", "option:99=1", "init", "line:", "destroy"}, xterm());
    h.keys("a\xc3\xa9" "b\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{"ab"});
    EXPECT_EQ(h.records("OPTION"), (Lines{"OPTION 1", "OPTION 0", "OPTION -1"}));
}

} // namespace
