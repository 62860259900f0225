// The editing keys readline-trained fingers expect, and history hints, as a
// user sees them: the line that comes back and the rendered screen.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "pty_harness.h"

using qvtest::HostOptions;
using qvtest::PtyHost;

namespace {

using Lines = std::vector<std::string>;

const std::string kUp = "\x1b[A", kLeft = "\x1b[D", kRight = "\x1b[C", kHome = "\x01";
const std::string kCtrlLeft = "\x1b[1;5D", kCtrlRight = "\x1b[1;5C";
const std::string kAltB = "\x1b" "b", kAltD = "\x1b" "d", kAltY = "\x1b" "y";

HostOptions xterm(int cols = 30, const std::string &term = "xterm-256color") {
    HostOptions o;
    o.term = term;
    o.cols = cols;
    return o;
}

std::string history_dir(const std::string &lines) {
    const std::string dir = qvtest::tempDir();
    std::ofstream(dir + "/term.history") << lines;
    return dir;
}

// Words are letters and digits in any script.
TEST(Words, MoveAndKillByWords) {
    PtyHost h({"init", "utf8:", "utf8:", "utf8:", "utf8:", "destroy"}, xterm());
    // Alt-Backspace, then Ctrl-B, Ctrl-F and Ctrl-P as Left, Right and Up.
    h.keys("one two\x1b\x7f\x02\x02X\x06Y\r" "\x10\r");
    h.keys("alpha beta.gamma" + kCtrlLeft + kAltB + kAltD + kCtrlRight + "X\r" +
           "\xd0\xbf\xd1\x80\xd0\xb8\xd0\xb2\xd0\xb5\xd1\x82 \xd0\xbc\xd0\xb8\xd1\x80" + kAltB + kAltB + kAltD +
           "X\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"onXeY ", "onXeY ", "alpha .gammaX", "X \xd0\xbc\xd0\xb8\xd1\x80"}));
}

// Kills go to the ring, kills in a row make one entry, Ctrl-Y brings the
// newest back and Alt-y the one before; a kill reaches across a kept line
// break and comes back with it.
TEST(KillAndYank, TheRingAcrossLines) {
    PtyHost h({"init", "cb:complete=brackets", "cb:keep=1", "line:> ", "line:> ", "line:> ", "destroy"},
              xterm());
    h.keys(std::string("one two three\x17\x17\x19" "!\r") + "aaa\x15" "bbb\x15\x19" + kAltY + "\r" + "(ab\rcd" + kLeft +
           kLeft + kLeft + "\x0b" "x\x19" ")\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"one two three!", "aaa", "(abx\ncd)"}));
    EXPECT_EQ(h.screen().row(2), "> (abx");
    EXPECT_EQ(h.screen().row(3), "  cd)");
}

// Undo takes back a step at a time: typing in a row is one step, and a
// history recall is as far back as it goes. Transpose and overwrite are
// steps too; every read starts inserting.
TEST(Undo, StepsTransposeAndOverwrite) {
    PtyHost h({"init:dir=" + history_dir("entry\n"), "load", "line:", "line:", "line:", "line:", "destroy"},
              xterm());
    h.keys(kUp + "X\x1f\x1f\r" + "hello world\x17\x1f\x1f" "z\r" + "ab\x14" "c" + kHome + "\x1b[2~" + "X\r" +
           "ab" + kHome + "Y\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"entry", "z", "Xac", "Yab"}));
}

// Ctrl-L clears the screen and draws a three-row input at the top; Ctrl-V
// puts a control key in as text.
TEST(ScreenKeys, ClearScreenAndQuotedInsert) {
    PtyHost h({"init", "cb:idle=tick", "putln:earlier output", "line:> ", "destroy"}, xterm(20));
    std::string text;
    for (int i = 0; i < 40; i++) text += static_cast<char>('a' + i % 26);
    h.keys(text + "\x16\t" + kLeft + kLeft + "\x0c");
    h.settle();
    const qvtest::Screen s = h.screen();
    EXPECT_EQ(s.row(0), "> " + text.substr(0, 18));
    EXPECT_EQ(s.row(1), text.substr(18, 20));
    EXPECT_EQ(s.row(2), text.substr(38) + "^I");
    EXPECT_EQ(s.row(3), "");
    EXPECT_EQ(s.cursor_row, 2);
    EXPECT_EQ(s.cursor_col, 1);
    h.keys("\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{text + "\t"});
}

// A hint shows the rest of the newest matching entry, dim; Right takes it,
// other keys go on as if it were not there, and it is gone at Return. A
// terminal without dim shows none.
TEST(Hints, AcceptedIgnoredAndGone) {
    const std::string dir = history_dir("git commit\ngit status\n");
    PtyHost h({"option:2=1", "init:dir=" + dir, "cb:idle=tick", "load", "line:> ", "line:> ", "line:> ",
               "destroy"},
              xterm());
    h.keys("git s");
    h.settle();
    EXPECT_EQ(h.screen().row(0), "> git status");
    EXPECT_EQ(h.screen().cursor_col, 7);
    EXPECT_NE(h.output().find("\x1b[2m"), std::string::npos); // dim
    h.keys(kRight + "\r" + "git cx\r" + "git co");
    h.settle();
    EXPECT_EQ(h.screen().row(2), "> git commit");
    h.keys("\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"git status", "git cx", "git co"}));
    EXPECT_EQ(h.screen().row(2), "> git co");

    PtyHost plain({"option:2=1", "init:dir=" + dir, "load", "line:> ", "destroy"},
                  xterm(30, "qv-xterm-nodim"));
    plain.keys("git s\r");
    ASSERT_EQ(plain.finish(), 0);
    EXPECT_EQ(plain.lines(), Lines{"git s"});
    EXPECT_EQ(plain.output().find("tatus"), std::string::npos);
}

} // namespace
