// The terminal instance and the input loop, driven through the public calls
// in a pseudo-terminal.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "pty_harness.h"

using qvtest::HostOptions;
using qvtest::PtyHost;

namespace {

using Lines = std::vector<std::string>;

std::string spaces(int n) { return std::string(static_cast<size_t>(n), ' '); }

// Every read of the host left the terminal in the mode it found it in.
void expectModesRestored(const PtyHost &h) {
    for (const std::string &m : h.records("MODE")) EXPECT_NE(m.find("same"), std::string::npos) << m;
}

TEST(Instance, InitReadsTheSizeAndALineComesBackExactly) {
    PtyHost h({"setcb-before", "init", "cb:eoi", "size", "line:> ", "destroy"});
    h.keysSlowly("hi\r"); // typed one key at a time: each key is painted on its own
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.records("INIT"), Lines{"INIT 1"});
    EXPECT_EQ(h.records("CB"), (Lines{"CB 0", "CB 1"})); // callbacks need an instance
    EXPECT_EQ(h.records("WIDTH"), Lines{"WIDTH 20"});
    EXPECT_EQ(h.records("HEIGHT"), Lines{"HEIGHT 10"});
    EXPECT_EQ(h.lines(), Lines{"hi"});
    expectModesRestored(h);
    EXPECT_EQ(PtyHost::visible(h.output()),
              PtyHost::visible("<hpa 0>> " + spaces(18) + "<hpa 0><cuf 2>" +
                               "<hpa 2>h<hpa 2><cuf 1>" + "<hpa 3>i<hpa 3><cuf 1>" + "<cr>\n"));
}

TEST(Instance, TheScreenShowsPromptAndTextWithTheCursorBelow) {
    HostOptions o;
    o.term = "xterm-256color";
    o.cols = 30;
    PtyHost h({"init", "line:prompt> ", "destroy"}, o);
    h.keys("hello\r");
    ASSERT_EQ(h.finish(), 0);
    const qvtest::Screen s = h.screen();
    EXPECT_EQ(s.row(0), "prompt> hello");
    EXPECT_EQ(s.cursor_row, 1);
    EXPECT_EQ(s.cursor_col, 0);
}

TEST(Instance, RepeatedInitKeepsTheFirstOptionsAndDestroyAllowsANewOne) {
    const std::string first = qvtest::tempDir(), second = qvtest::tempDir();
    PtyHost h({"init:dir=" + first, "init:dir=" + second, "line:", "destroy", "init:null",
               "line:", "destroy"},
              HostOptions{});
    h.keys("one\rtwo\r");
    ASSERT_EQ(h.finish(), 0); // AddressSanitizer's leak check runs at exit
    EXPECT_EQ(h.records("INIT"), (Lines{"INIT 1", "INIT 1", "INIT 1"}));
    EXPECT_EQ(h.lines(), (Lines{"one", "two"}));
    std::ifstream in(first + "/term.history");
    std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(content, "one\n");
    EXPECT_FALSE(std::ifstream(second + "/term.history").good());
}

// Without cursor addressing (no description, an unknown one, "dumb", or one
// that cannot move up) the line is edited on one row with backspaces and
// plain characters, and the size comes from the kernel.
TEST(PlainTerminal, EditsWithBackspacesAndReturnsExactlyWhatWasTyped) {
    for (const char *term : {"", "qv-no-such-terminal", "dumb"}) {
        HostOptions o;
        o.term = term;
        PtyHost h({"init", "size", "line:> ", "destroy"}, o);
        h.keysSlowly("ab");
        h.keys("\x1b[D"); // one key: its three bytes come together
        h.keysSlowly("c\x7f\r");
        ASSERT_EQ(h.finish(), 0) << term;
        EXPECT_EQ(h.records("WIDTH"), Lines{"WIDTH 20"}) << term;
        EXPECT_EQ(h.records("HEIGHT"), Lines{"HEIGHT 10"}) << term;
        EXPECT_EQ(h.lines(), Lines{"ab"}) << term;
        EXPECT_EQ(PtyHost::visible(h.output()), PtyHost::visible("> ab\bcb\b\bb \b\bb\r\n")) << term;
        expectModesRestored(h);
    }
}

TEST(PlainTerminal, ALongLineScrollsSideways) {
    HostOptions o;
    o.term = "qv-nocuu";
    PtyHost h({"init", "cb:idle=tick", "line:> ", "destroy"}, o);
    const std::string letters = "abcdefghijklmnopqrstuvwxy";
    h.keys(letters);
    h.settle();
    // The window moves by half its width, so it shows the same whether the
    // letters came one by one or in one burst.
    EXPECT_EQ(h.screen().row(0), "hijklmnopqrstuvwxy");
    h.keys("\x01"); // Home
    h.settle();
    EXPECT_EQ(h.screen().row(0), "> abcdefghijklmnopq");
    EXPECT_EQ(h.screen().cursor_col, 2);
    h.keys("\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{letters});
    EXPECT_EQ(h.output().find("<cuu"), std::string::npos);
}

// A window of 0 by 0 whose description also says 0: terminfo falls back to
// 24 by 80, so the editor starts with a usable size rather than none.
TEST(Instance, ATerminalReportingZeroColumnsGetsAUsableSize) {
    HostOptions o;
    o.term = "qv-zero";
    o.rows = 0;
    o.cols = 0;
    PtyHost h({"init", "size", "line:", "destroy"}, o);
    h.keys("ok\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.records("INIT"), Lines{"INIT 1"});
    EXPECT_EQ(h.records("WIDTH"), Lines{"WIDTH 80"});
    EXPECT_EQ(h.records("HEIGHT"), Lines{"HEIGHT 24"});
    EXPECT_EQ(h.lines(), Lines{"ok"});
}

TEST(Instance, StandardOutputNotATerminal) {
    HostOptions o;
    o.stdout_pipe = true;
    PtyHost h({"init", "size", "line:> ", "destroy"}, o);
    h.waitRead(0);
    h.keys("hi\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.records("WIDTH"), Lines{"WIDTH 20"}); // from the description
    EXPECT_EQ(h.lines(), Lines{"hi"});
    EXPECT_NE(h.output().find("<hpa 0>> "), std::string::npos); // drawn with the description
}

// ---------------------------------------------------------------------------
// Input that runs out

TEST(InputEnd, AFileOnStandardInputIsReadToItsEnd) {
    const std::string dir = qvtest::tempDir();
    std::ofstream(dir + "/in") << "abc\ndef";
    HostOptions o;
    o.stdin_file = dir + "/in";
    o.cwd = dir;
    PtyHost h({"init", "line:", "line:", "line:", "getchar:0", "destroy"}, o);
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"abc", "def", ""}));
    EXPECT_EQ(h.records("CHAR"), Lines{"CHAR 0"});
    EXPECT_TRUE(h.records("EOI").empty());
}

TEST(InputEnd, TheEndOfAPipeGivesTheTextSoFar) {
    HostOptions o;
    o.stdin_pipe = true;
    PtyHost h({"init", "line:", "line:", "destroy"}, o);
    h.waitRead(0);
    h.keys("xy");
    h.closeInput();
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"xy", ""}));
}

// ---------------------------------------------------------------------------
// The host's idle callback

TEST(Idle, AnswerOneEndsThisReadAndEveryLaterOne) {
    PtyHost h({"init", "cb:idle=1@4", "line:", "line:", "getchar:1", "destroy"},
              HostOptions{});
    h.keys("ab");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"ab", ""}));
    EXPECT_EQ(h.records("IDLE"), Lines{"IDLE 4"}); // never asked again once stopped
    EXPECT_EQ(h.records("CHAR"), Lines{"CHAR 0"});
    expectModesRestored(h);
}

TEST(Idle, AnswerTwoCancelsAndAnswerZeroKeepsWaiting) {
    PtyHost a({"init", "cb:idle=2@2", "line:", "destroy"});
    ASSERT_EQ(a.finish(), 0);
    EXPECT_EQ(a.lines(), Lines{""});

    PtyHost b({"init", "cb:idle=0", "line:", "destroy"});
    b.waitRead(0);
    usleep(300 * 1000); // several idle slices pass without a stop
    b.keys("late\r");
    ASSERT_EQ(b.finish(), 0);
    EXPECT_EQ(b.lines(), Lines{"late"});
}

// ---------------------------------------------------------------------------
// Key sequences

// An unknown sequence is swallowed whole, up to its final byte; NUL inside a
// sequence drops just the sequence.
TEST(Keys, SequencesAndTheirFailureModes) {
    PtyHost h({"init", "line:", "line:", "line:", "line:", "line:", "destroy"});
    const std::string left = "\x1b[D", f10 = "\x1b[21~", shift_up = "\x1b[1;2A";
    h.keys(std::string("a\x1b[Zb\r") + "\x1bxc\r" + "d\t\xff" + "e\r" + "f\x1b" +
           std::string(1, '\0') + "g\r" + "abcd" + left + left + f10 + "z" + shift_up + "\x1bOx\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"ab", "c", "de", "fg", "abzcd"}));
    expectModesRestored(h);
}

// A lone Escape never hangs the read: after a pause the sequence is over,
// and the key that follows later is a key of its own.
TEST(Keys, ALoneEscapeEndsAfterAPause) {
    PtyHost h({"init", "line:", "destroy"});
    h.keysSlowly("a\x1b");
    usleep(200 * 1000);
    h.keys("[Db\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{"a[Db"});
}

// Keys that arrive together (a paste, a scripted driver) are never stranded
// behind an escape sequence.
TEST(Keys, ABurstSpellsExactlyItsLine) {
    PtyHost h({"init", "line:", "line:", "line:", "destroy"});
    std::string ups;
    for (int i = 0; i < 10; i++) ups += "\x1b[A";
    h.keys("one\rtwo\x1b[D\x1b[Dabc\r" + ups + "!\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"one", "tabcwo", "one!"}));
}

TEST(Keys, SingleKeyReadsGiveTheBytesOfASequenceOneByOne) {
    PtyHost h({"init", "getchar:0", "getchar:0", "getchar:1", "destroy"},
              HostOptions{});
    h.keys("\x1b[A");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.records("CHAR"), (Lines{"CHAR 27", "CHAR 91", "CHAR 65"}));
    EXPECT_EQ(h.output(), "A"); // only the echoed key
    expectModesRestored(h);
}

TEST(Keys, CtrlCWithoutTheOptionStartsAFreshLine) {
    PtyHost h({"init", "line:> ", "destroy"});
    h.keys("abc\x03xyz\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{"xyz"});
    EXPECT_TRUE(h.records("SIGINT").empty());
}

// ---------------------------------------------------------------------------
// Signals: only the user ends a line, and the terminal is always given back

TEST(Session, CaughtSignalsAndFlowControlNeverEndOrFreezeARead) {
    HostOptions o;
    o.term = "xterm-256color";
    PtyHost h({"init", "catch", "line:> ", "destroy"}, o);
    h.keys("abc");
    h.waitRead(0);
    usleep(100 * 1000);
    for (int sig : {SIGWINCH, SIGUSR1, SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        h.signal(sig);
        usleep(50 * 1000);
    }
    // Ctrl-S starts a search (given up with Ctrl-G); Ctrl-Q does nothing.
    h.keys("d\x13\x07" "e\x11" "f\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{"abcdef"});
    EXPECT_EQ(h.records("SIGINT").size(), 1u);
    EXPECT_EQ(h.records("CAUGHT"),
              (Lines{"CAUGHT WINCH", "CAUGHT USR1", "CAUGHT TERM", "CAUGHT HUP", "CAUGHT QUIT"}));
    EXPECT_EQ(h.screen().row(0), "> abcdef");
    expectModesRestored(h);
}

TEST(Session, ADyingProcessGivesTheTerminalBackFirst) {
    for (int sig : {SIGTERM, SIGHUP, SIGQUIT}) {
        PtyHost h({"init", "line:> "});
        h.keys("abc");
        usleep(50 * 1000);
        h.signal(sig);
        EXPECT_EQ(h.finish(), 128 + sig);
        EXPECT_TRUE(h.isCooked()) << sig;
    }
    PtyHost interrupted({"sigint:default", "init:sigint", "line:> "});
    interrupted.keys("abc\x03");
    EXPECT_EQ(interrupted.finish(), 128 + SIGINT);
    EXPECT_TRUE(interrupted.isCooked());
    PtyHost exited({"init", "cb:idle=exit", "line:> "});
    EXPECT_EQ(exited.finish(), 3);
    EXPECT_TRUE(exited.isCooked());
}

TEST(Session, AStopGivesTheTerminalBackAndContinuingRedrawsTheLine) {
    HostOptions o;
    o.term = "xterm-256color";
    o.job = true;
    PtyHost h({"init", "cb:idle=tick", "line:> ", "destroy"}, o);
    h.keys("abc");
    h.settle();
    h.signal(SIGTSTP);
    h.waitCooked();
    const size_t before = h.output().size();
    h.signal(SIGCONT);
    h.keys("def\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{"abcdef"});
    EXPECT_NE(h.output().find("> abc", before), std::string::npos) << PtyHost::visible(h.output());
    EXPECT_EQ(h.screen().row(0), "> abcdef");
    expectModesRestored(h);
}

TEST(Session, TheStatusSaysHowEachReadEnded) {
    PtyHost h({"init:sigint", "line:", "line:", "line:", "destroy"});
    h.keys("ok\r" "x\x03" "\x04");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"ok", "", ""}));
    EXPECT_EQ(h.records("STATUS"), (Lines{"STATUS 0 10", "STATUS 1 2", "STATUS 2 11"}));
    EXPECT_EQ(h.records("SIGINT").size(), 1u); // raised once the mode was back
    expectModesRestored(h);
    // onIdle's stop ends a read even while a key sequence is unfinished.
    PtyHost idle({"init", "cb:idle=1@4", "line:", "destroy"});
    idle.keys("ab\x1b");
    ASSERT_EQ(idle.finish(), 0);
    EXPECT_EQ(idle.lines(), Lines{"ab"});
    EXPECT_EQ(idle.records("STATUS"), Lines{"STATUS 0 6"});
}

} // namespace
