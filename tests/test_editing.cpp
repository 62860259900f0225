// The line editor as a user meets it: keys typed into a pseudo-terminal,
// the line the host gets back, and the screen xterm would show.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "pty_harness.h"

using qvtest::HostOptions;
using qvtest::PtyHost;

namespace {

using Lines = std::vector<std::string>;

const std::string kUp = "\x1b[A", kDown = "\x1b[B", kLeft = "\x1b[D", kRight = "\x1b[C";
const std::string kPageUp = "\x1b[5~", kPageDown = "\x1b[6~", kDelete = "\x1b[3~";

std::string times(int n, const std::string &s) {
    std::string out;
    for (int i = 0; i < n; i++) out += s;
    return out;
}

HostOptions xterm(int cols = 20, const std::string &dir = "") {
    HostOptions o;
    o.term = "xterm-256color";
    o.cols = cols;
    o.rows = 10;
    o.cwd = dir;
    return o;
}

// ---------------------------------------------------------------------------
// Every key the default map binds, typed at least once

// Each row: what is typed into a fresh read over the history "older" and
// "newer", and the line that comes back. A binding lost or swapped changes
// the line.
TEST(Keys, EveryDefaultKeyDoesItsWork) {
    struct Row {
        std::string keys, line;
    };
    const std::string end = "\x05", home = "\x01";
    const Row rows[] = {
        {kUp + kUp + kDown, "newer"},                     // Up, Down (history first:
        {"\x10\x10\x0e", "newer"},                         // Ctrl-P, Ctrl-N  every line
        {"z" + kPageUp, "older"},                         // Page Up         joins it)
        {"z" + kPageUp + kPageDown, ""},                  // Page Down empties the line
        {"ab" + kLeft + "X" + kRight + "Y", "aXbY"},
        {"ab\x02X\x06Y", "aXbY"},                        // Ctrl-B, Ctrl-F
        {"abc" + home + "X" + end + "Y", "XabcY"},        // Ctrl-A, Ctrl-E
        {"abc\x1b[H" "X\x1b[F" "Y", "XabcY"},             // Home, End
        {"abc\x1bOH" "X\x1bOF" "Y", "XabcY"},             // their SS3 forms
        {"abc\x7f\x08", "a"},                             // Backspace, Ctrl-H
        {"abc" + home + kDelete + "\x04", "c"},           // Delete, Ctrl-D
        {"abc" + home + "\x0b" "x", "x"},                  // Ctrl-K
        {"abc\x07" "d", "d"},                              // Ctrl-G
        {"abc\x03" "d", "d"},                              // Ctrl-C
        {"one two\x17" "X", "one X"},                      // Ctrl-W
        {" \x17" "X", "X"},                                // over leading blanks too
        {"one two\x1b\x7f" "X", "one X"},                  // Alt-Backspace
        {"one two" + home + "\x1b" "d" "X", "X two"},      // Alt-d
        {"one two\x1b" "b" "X\x1b" "f" "Y", "one XtwoY"},  // Alt-b, Alt-f
        {"one two\x1b[1;5D" "X\x1b[1;5C" "Y", "one XtwoY"}, // Ctrl-Left, Ctrl-Right
        {"ab\x15" "c\x19\x19", "cabab"},                    // Ctrl-U, Ctrl-Y
        {"ab\x15" "cd\x15\x19\x1b" "y", "ab"},              // Alt-y
        {"ab\x14", "ba"},                                  // Ctrl-T
        {"ab c\x1f", ""},                                  // Ctrl-_
        {"a\x16\x01" "b", "a\x01" "b"},                     // Ctrl-V
        {"abc" + home + "\x1b[2~" "XY", "XYc"},            // Insert
        {"a\x0c" "b\x1a" "c\x1d" "d", "abcd"},              // Ctrl-L, Ctrl-Z, unbound
    };
    const std::string dir = qvtest::tempDir();
    std::ofstream(dir + "/term.history") << "older\nnewer\n";
    std::vector<std::string> commands{"init:dir=" + dir, "load"};
    std::string keys;
    Lines want;
    for (const Row &r : rows) {
        commands.push_back("line:");
        keys += r.keys + "\n"; // Ctrl-J enters, as Return does
        want.push_back(r.line);
    }
    commands.push_back("line:");
    keys += "last\r";
    want.push_back("last");
    PtyHost h(commands, xterm(40, dir));
    h.keys(keys);
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), want);
}

// ---------------------------------------------------------------------------
// Wrapping, insertion and deletion on a real terminal's screen

TEST(Screen, CtrlGKeepsTheTextAndStartsAFreshPrompt) {
    PtyHost h({"init", "line:> ", "destroy"}, xterm());
    h.keysSlowly(std::string(25, 'g') + times(5, kLeft) + "\x07" + "new\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{"new"});
    const qvtest::Screen s = h.screen();
    EXPECT_EQ(s.row(0), "> " + std::string(18, 'g'));
    EXPECT_EQ(s.row(1), std::string(7, 'g'));
    EXPECT_EQ(s.row(2), "> new");
}

TEST(Screen, KillDeleteInsertKeyAndSuspend) {
    PtyHost h({"init", "line:", "destroy"}, xterm());
    h.keysSlowly("abcd" + times(2, kLeft) + "\x0b" + "\x1a" + "\x1b[2~" + "Z" + "\x01" + kDelete +
                 "\x04" + "\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{"Z"});
    EXPECT_EQ(h.screen().row(0), "Z");
}

// ---------------------------------------------------------------------------
// The screen shows the text the host gets: edits that once drew one text and
// returned another

TEST(ScreenTruth, KillOnAWrappedRowKeepsTheRowsLinked) {
    PtyHost h({"init", "line:> ", "destroy"}, xterm());
    h.keys("abcdefghijklmnopqrstuvwxy" + times(3, kLeft) + "\x0b" + "\x01" + "X\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{"Xabcdefghijklmnopqrstuv"});
    const qvtest::Screen s = h.screen();
    EXPECT_EQ(s.row(0), "> Xabcdefghijklmnopq");
    EXPECT_EQ(s.row(1), "rstuv");
}

TEST(ScreenTruth, APromptAsWideAsTheTerminal) {
    const std::string prompt(20, '%');
    PtyHost h({"init", "line:" + prompt, "line:" + prompt + "%%", "destroy"}, xterm());
    h.keys("abc\x01XY\r" "de\x01Z\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"XYabc", "Zde"}));
    const qvtest::Screen s = h.screen();
    EXPECT_EQ(s.row(0), prompt);
    EXPECT_EQ(s.row(1), "XYabc");
    // A wider prompt is cut one column short, and the text starts there.
    EXPECT_EQ(s.row(2), std::string(19, '%') + "Z");
    EXPECT_EQ(s.row(3), "de");
}

TEST(ScreenTruth, HistoryRecallReplacesEveryRowOfAContinuedInput) {
    PtyHost h({"init", "cb:complete=brackets", "cb:keep=1", "line:> ", "line:> ", "destroy"},
              xterm());
    h.keys("one\r(" + std::string(30, 'x') + "\r" + "more" + kUp + "\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"one", "one"}));
    const qvtest::Screen s = h.screen();
    EXPECT_EQ(s.row(1), "> one");
    for (int r = 2; r < 6; r++) EXPECT_EQ(s.row(r), "") << r;
}

// ---------------------------------------------------------------------------
// Masked reads

TEST(Mask, ShowsTheMaskAndNeverRecallsOrKeepsALine) {
    const std::string dir = qvtest::tempDir();
    std::ofstream(dir + "/term.history") << "hunter\n";
    PtyHost h({"init:dir=" + dir, "load", "mask:*:pw: ", "destroy"}, xterm(20, dir));
    h.keys("secret" + kUp + kDown + kPageUp + kPageDown + kUp + "\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{"secret"});
    EXPECT_EQ(h.screen().row(0), "pw: ******");
    // No byte of a masked line, typed or recalled, ever reaches the terminal:
    // the only lower-case letters xterm's motions never use are the prompt's.
    std::string shown = h.output();
    for (const std::string paste_mode : {"\x1b[?2004h", "\x1b[?2004l"})
        for (size_t at; (at = shown.find(paste_mode)) != std::string::npos;) shown.erase(at, paste_mode.size());
    for (char ch : shown)
        if (ch >= 'a' && ch <= 'z') {
            EXPECT_TRUE(ch == 'p' || ch == 'w') << PtyHost::visible(h.output());
        }
    EXPECT_EQ(qvtest::readFile(dir + "/term.history"), "hunter\n");
}

// ---------------------------------------------------------------------------
// History recall

TEST(History, WalkingUpAndDownBringsTheTypedTextBack) {
    PtyHost h({"init", "line:", "line:", "line:", "line:", "line:", "destroy"}, xterm());
    h.keys("one\rtwo\r" + std::string("abc") + kUp + kUp + kDown + kDown + kDown + "!\r" +
           // an edited recalled entry becomes the saved line
           "xyz" + kUp + "2" + kUp + kDown + kDown + "\r" +
           // Up at the oldest stays there
           times(9, kUp) + "\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"one", "two", "abc!", "abc!2", "one"}));
}

TEST(History, PageUpAndPageDown) {
    PtyHost h({"init", "line:", "line:", "line:", "line:", "line:", "destroy"}, xterm());
    h.keys("first\rsecond\r" + kPageUp + "\r" + std::string("typed") + kPageDown + "x\r" +
           kPageDown + "\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"first", "second", "first", "x", ""}));
}

// The walk never loses the typed line and starts afresh after an abandoned
// or empty read.
TEST(History, TheWalkKeepsTheTypedLineAndStartsAfresh) {
    PtyHost h({"init", "line:", "line:", "line:", "line:", "line:", "line:", "destroy"}, xterm());
    h.keys("a\rb\r" + std::string("z") + kPageUp + kDown + kDown + "\r" + // Page Up keeps "z"
           kUp + "\x07" + kUp + "\r" +                                    // afresh after Ctrl-G
           kUp + kUp + "\x01\x0b\r" +                                     // an empty line...
           kUp + "\r");                                                    // ...then afresh
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"a", "b", "z", "z", "", "z"}));
}

// A repeat of the newest entry and an empty line are not kept; a line feed
// ends a line as Return does.
TEST(History, DuplicatesEmptyLinesAndFileContent) {
    const std::string dir = qvtest::tempDir();
    PtyHost h({"init:dir=" + dir, "line:", "line:", "line:", "line:", "line:", "line:", "destroy"},
              xterm(20, dir));
    h.keys("a\ra\rb\ra\r\rz\n");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"a", "a", "b", "a", "", "z"}));
    EXPECT_EQ(qvtest::readFile(dir + "/term.history"), "a\nb\na\nz\n");
}

// A recalled entry comes back encoded and is drawn as it reads: UTF-8 as
// itself, control characters in caret notation.
TEST(History, RecalledEntriesComeBackEncodedAndDrawnAsTheyRead) {
    struct Case {
        std::string file, line, row;
    };
    const Case cases[] = {
        {"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", "\\:00E9\\:20AC\\:D83D\\:DE00",
         "> \xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"},
        {"a\tb\x1b[31mc", "a\tb\x1b[31mc", "> a^Ib^[[31mc"},
    };
    for (const Case &k : cases) {
        const std::string dir = qvtest::tempDir();
        std::ofstream(dir + "/term.history") << k.file << "\n";
        PtyHost h({"init:dir=" + dir, "load", "line:> ", "destroy"}, xterm(20, dir));
        h.keys(kUp + "\r");
        ASSERT_EQ(h.finish(), 0);
        EXPECT_EQ(h.lines(), Lines{k.line});
        EXPECT_EQ(h.screen().row(0), k.row);
    }
}

// ---------------------------------------------------------------------------
// Return, completion and continuation lines

TEST(Continuation, KeptLineBreaks) {
    PtyHost h({"init", "cb:complete=brackets", "cb:keep=1", "line:> ", "line:> ", "line:> ", "destroy"},
              xterm());
    // Home on a continuation line goes to its start, after the line break.
    h.keys("x(\ry" + std::string("\x01") + "Z" + "\x05" + ")\r" +
           // Backspace reaches back across the line break into the first line,
           "(ab\r\x7f\x7f)\r" +
           // and Left into it, on screen too.
           "(abc\r" + kLeft + kLeft + "X" + "\x05" + ")\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"x(\nZy)", "(a)", "(abXc\n)"}));
    EXPECT_EQ(h.records("COMPLETE")[0], "COMPLETE 2 78 28");
    EXPECT_EQ(h.records("COMPLETE")[1], "COMPLETE 6 78 28 A 5A 79 29");
    const qvtest::Screen s = h.screen();
    EXPECT_EQ(s.row(0), "> x(");
    EXPECT_EQ(s.row(1), "  Zy)");
    // The merged second input is drawn as the one line it became.
    EXPECT_EQ(s.row(2), "> (a)");
    EXPECT_EQ(s.row(3), "> (abXc");
    EXPECT_EQ(s.row(4), "  )");
}

TEST(Continuation, TrailingBackslashIsRemoved) {
    const std::string dir = qvtest::tempDir();
    PtyHost h({"init:dir=" + dir, "cb:complete=backslash", "cb:keep=backslash", "line:> ",
               "destroy"},
              xterm(20, dir));
    h.keys("abc\\\rdef\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{"abcdef"});
    EXPECT_EQ(h.records("KEEP"), Lines{"KEEP 0"});
    EXPECT_EQ(qvtest::readFile(dir + "/term.history"), "abcdef\n");
    const qvtest::Screen s = h.screen();
    EXPECT_EQ(s.row(0), "> abc\\");
    EXPECT_EQ(s.row(1), "  def");
}

TEST(Continuation, WithoutAKeptLineBreakTheNextLineIsAppended) {
    // No keepNewline, and a keepNewline that declines without a backslash to
    // drop: either way the lines join, and the screen shows them apart.
    for (const char *keep : {"cb:none", "cb:keep=0"}) {
        PtyHost h({"init", "cb:complete=brackets", keep, "line:> ", "destroy"}, xterm());
        h.keys("(x\ry)\r");
        ASSERT_EQ(h.finish(), 0) << keep;
        EXPECT_EQ(h.lines(), Lines{"(xy)"}) << keep;
        EXPECT_EQ(h.screen().row(0), "> (x") << keep;
        EXPECT_EQ(h.screen().row(1), "  y)") << keep;
    }
}

TEST(Continuation, RawReadsNeverAsk) {
    PtyHost h({"init", "cb:complete=brackets", "cb:keep=1", "raw:> ", "rawmask:#:", "destroy"},
              xterm());
    h.keys("(x\r(y\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"(x", "(y"}));
    EXPECT_TRUE(h.records("COMPLETE").empty());
    EXPECT_TRUE(h.records("KEEP").empty());
}

// ---------------------------------------------------------------------------
// End of input

TEST(EndOfInput, CtrlDOnAnEmptyLine) {
    PtyHost h({"init", "cb:eoi", "lines:", "line:", "destroy"}, xterm());
    h.keys("ab\x04\x7f\x7f\x04");
    h.waitRead(1);
    h.keys("q");
    ASSERT_EQ(h.finish(), 0);
    // Ctrl-D deletes while there is text, ends the input once it is empty;
    // the read after that returns after one key and reports the end again.
    EXPECT_EQ(h.lines(), (Lines{"", "q"}));
    EXPECT_EQ(h.records("EOI").size(), 2u);
}

} // namespace
