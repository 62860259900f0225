// The terminal instance, the input loop, the session around a read, the
// output calls and the history file, driven through the public calls in a
// pseudo-terminal.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <memory>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "pty_harness.h"

using namespace qvtest;

namespace {

// Every read of the host left the terminal in the mode it found it in.
void expectModesRestored(const PtyHost &h) {
    for (const std::string &m : h.records("MODE")) EXPECT_NE(m.find("same"), std::string::npos) << m;
}

TEST(Instance, InitReadsTheSizeAndALineComesBackExactly) {
    PtyHost h({"cb:none", "init", "cb:eoi", "size", "line:> ", "destroy"});
    h.keysSlowly("hi");
    EXPECT_EQ(h.typed("\r"), Lines{"hi"}); // typed one key at a time: each key is painted on its own
    EXPECT_EQ(h.records("INIT"), Lines{"INIT 1"});
    EXPECT_EQ(h.records("CB"), (Lines{"CB 0", "CB 1"})); // callbacks need an instance
    EXPECT_EQ(h.records("WIDTH"), Lines{"WIDTH 20"});
    EXPECT_EQ(h.records("HEIGHT"), Lines{"HEIGHT 10"});
    EXPECT_EQ(h.records("LOCALE"), Lines{"LOCALE C"}); // the host's locale is its own
    expectModesRestored(h);
    EXPECT_EQ(h.output(), "<hpa 0>> " + std::string(18, ' ') + "<hpa 0><cuf 2>" + "<hpa 2>h<hpa 2><cuf 1>" +
                              "<hpa 3>i<hpa 3><cuf 1>" + "<cr>\n");
}

TEST(Instance, RepeatedInitKeepsTheFirstOptionsAndDestroyAllowsANewOne) {
    const std::string first = tempDir(), second = tempDir();
    PtyHost h({"init:dir=" + first, "init:dir=" + second, "line:", "destroy", "init:null", "line:", "destroy"});
    EXPECT_EQ(h.typed("one\rtwo\r"), (Lines{"one", "two"})); // AddressSanitizer's leak check runs at exit
    EXPECT_EQ(h.records("INIT"), (Lines{"INIT 1", "INIT 1", "INIT 1"}));
    EXPECT_EQ(readFile(first + "/term.history"), "one\n");
    EXPECT_NE(access((second + "/term.history").c_str(), F_OK), 0);
}

// The exact bytes one key writes after the keys before it were drawn, on the
// readable test terminals, over the history entry "abXdeY".
TEST(Instance, EachKeyWritesExactlyItsCells) {
    struct Case {
        const char *term;
        std::string prompt, before, key, bytes;
    };
    const Case cases[] = {
        {"qv-readable", "> ", std::string(17, 'x'), "y",
         "<hpa 19>y<hpa 19>\n<hpa 0>" + std::string(20, ' ') + "<hpa 19><cub 19>"},
        {"qv-readable", "> ", "abc", "\x01", "<cub 3>"},
        {"qv-readable", "> ", "abc\x01", "\x05", "<cuf 3>"},
        {"qv-readable", "", std::string(45, 'x'), "\x01", "<cuu 2><cub 5>"},
        {"qv-readable", "> ", "abc" + kLeft + kLeft, "X", "<hpa 3>Xbc<hpa 3><cuf 1>"},
        {"qv-readable", "> ", "abc", "\x7f", "<cub 1><hpa 4> <hpa 4>"},
        {"qv-readable", "> ", "abc" + kLeft + kLeft, "\x7f", "<cub 1><hpa 2>bc <hpa 2>"},
        // A key that arrives as several bytes is still one key: every run
        // returns to the cursor's column.
        {"qv-readable", "> ", "abcdef", kUp, "<hpa 4>X<hpa 8><hpa 7>Y<hpa 8>"}, // only the cells that changed
        {"qv-readable", "> ", "abc", kUp, "<hpa 4>XdeY<hpa 5><cuf 3>"},
        {"qv-readable", "> ", "abc" + kLeft + kLeft, kDelete, "<hpa 3>c <hpa 3>"},
        {"qv-readable", "> ", "xyyz\x01", kDelete, "<hpa 2>y<hpa 2><hpa 4>z <hpa 2>"},
        {"qv-readable", "> ", "", "\xc3\xa9", "<hpa 2>\xc3\xa9<hpa 2><cuf 1>"},
        {"qv-nohpa", "> ", "", "a", "<cr><cuf 2>a<cr><cuf 2><cuf 1>"},
        {"qv-nohpa", "", std::string(25, 'x'), kUp,
         "<cuu 1><cr>abXdeY" + std::string(14, ' ') + "<cr><cuf 5>\n<cr>     <cr><cuf 5><cuu 1><cuf 1>"},
        {"qv-nocr", "> ", "abc", "\r", "\n"},
    };
    for (const Case &k : cases) {
        HostOptions o;
        o.term = k.term;
        PtyHost h({"init:dir=" + historyDir("abXdeY\n"), "load", "cb:idle=tick", "line:" + k.prompt, "destroy"}, o);
        h.keys(k.before);
        h.settle();
        const size_t mark = h.output().size();
        h.keys(k.key);
        k.key == "\r" ? (void)h.finish() : h.settle();
        EXPECT_EQ(h.output().substr(mark), k.bytes) << k.term << " " << visible(k.before + k.key);
    }
}

// Lean output: the bytes of typing at the end, of an insertion and a
// deletion in mid-line (across a wrap as well), and of a history walk, on a
// terminal with insert and delete capabilities and on one without.
TEST(Instance, LeanOutputWritesFewerBytes) {
    QV_NEEDS(TERM_FEATURE_LEAN_OUTPUT);
    struct Case {
        const char *term;
        std::string before, key, bytes;
    };
    const std::string left8 = kLeft + kLeft + kLeft + kLeft + kLeft + kLeft + kLeft + kLeft;
    const std::string wraps = "abcdefghijklmnopqrstuvwxyz\x01"; // 18 letters on the first row, 8 on the next
    const Case cases[] = {
        {"qv-readable", "", "y", "y"},
        {"qv-readable", "abc", "\x7f", "<cub1> <cub1>"},
        {"qv-insdel", "abcdefghij" + left8, "X", "<ich 1>X"},
        {"qv-readable", "abcdefghij" + left8, "X", "Xcdefghij<cub 8>"},
        {"qv-insdel", "abcdefghij\x01", kDelete, "<dch 1>"},
        {"qv-insdel", wraps, "X", "<ich 1>X\n<cr><ich 1>r<cuf 2><cuu 1>"},
        {"qv-readable", wraps, "X", "Xabcdefghijklmnopq\n<cr>rstuvwxyz<cub 6><cuu 1>"},
        {"qv-insdel", wraps, kDelete, "<dch 1><cuf 17>s\n<cr><dch 1><cuf 2><cuu 1>"},
        // History: only what differs from the entry shown.
        {"qv-insdel", "", kUp, "first entry two"},
        {"qv-insdel", kUp, kUp, "<cub 3>   <cub 4>"},
        {"qv-insdel", kUp + kUp, kDown, " two"},
        {"qv-insdel", kUp, "\x15", "<hpa 2><el>"}, // cleared to the end of the row
    };
    for (const Case &k : cases) {
        HostOptions o;
        o.term = k.term;
        PtyHost h({"init:dir=" + historyDir("first entry\nfirst entry two\n"), "load", "option:8=1", "cb:idle=tick", "line:> ", "destroy"}, o);
        h.keys(k.before);
        h.settle();
        const size_t mark = h.output().size();
        h.keys(k.key);
        h.settle();
        EXPECT_EQ(h.output().substr(mark), k.bytes) << k.term << " " << visible(k.before + k.key);
    }
    // A read clears the rest of its row only when other output than a line
    // feed went before it: the row a line feed reached is taken as blank.
    HostOptions insdel;
    insdel.term = "qv-insdel";
    PtyHost h({"init", "option:8=1", "cb:idle=tick", "line:> ", "put:ab", "line:> ", "line:> ", "destroy"}, insdel);
    EXPECT_EQ(h.typed("x\ry\rz\r"), (Lines{"x", "y", "z"}));
    EXPECT_EQ(h.output(), "> x<cr>\nab><el> y<cr>\n> z<cr>\n");
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
        h.keys(kLeft); // one key: its three bytes come together
        h.keysSlowly("c\x7f");
        EXPECT_EQ(h.typed("\r"), Lines{"ab"}) << term;
        EXPECT_EQ(h.records("WIDTH"), Lines{"WIDTH 20"}) << term;
        EXPECT_EQ(h.records("HEIGHT"), Lines{"HEIGHT 10"}) << term;
        EXPECT_EQ(h.output(), "> ab\bcb\b\bb \b\bb\r\n") << term;
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
    EXPECT_EQ(h.typed("\r"), Lines{letters});
    EXPECT_EQ(h.output().find("<cuu"), std::string::npos);
}

// A window of 0 by 0 whose description also says 0: terminfo falls back to
// 24 by 80, so the editor starts with a usable size rather than none.
// Standard output elsewhere: the size and the drawing come from the
// description.
// A build that leaves features out keeps their calls, and each answers "not
// available"; the editor goes on as without them.
TEST(Instance, WhatTheBuildLeftOutAnswersNotAvailable) {
    const unsigned f = term_features();
    EXPECT_EQ(f, QV_EXPECT_FEATURES);
    Lines expected;
    if (!(f & TERM_FEATURE_VI_MODE)) expected.push_back("ABSENT vi -1 -1 0");
    if (!(f & TERM_FEATURE_BINDINGS)) expected.push_back("ABSENT bindings 0 0 0 NULL NULL -1 0 0");
    if (!(f & TERM_FEATURE_HIGHLIGHT)) expected.push_back("ABSENT highlight -1");
    if (!(f & TERM_FEATURE_COMPLETION_MENU)) expected.push_back("ABSENT menu -1");
    if (!(f & TERM_FEATURE_LEAN_OUTPUT)) expected.push_back("ABSENT lean -1");
    if (!(f & TERM_FEATURE_EVENT_LOOP)) expected.push_back("ABSENT loop 0 -1 NULL -1 -1 0");
    if (!(f & TERM_FEATURE_THREAD_PRINT)) expected.push_back("ABSENT print -1");
    if (!(f & TERM_FEATURE_SESSIONS)) expected.push_back("ABSENT sessions NULL NULL NULL");
    PtyHost h({"init", "absent", "highlight:digits", "line:> ", "destroy"}, xterm(40));
    // Alt-u is readline's upcase-word: without readline's further commands
    // the key is unbound and does nothing.
    EXPECT_EQ(h.typed("a1\x1b" "b\x1bu\r"), Lines{f & TERM_FEATURE_READLINE_COMMANDS ? "A1" : "a1"});
    EXPECT_EQ(h.records("ABSENT"), expected);
    EXPECT_EQ(h.records("HIGHLIGHT").empty(), !(f & TERM_FEATURE_HIGHLIGHT));
}

TEST(Instance, ZeroSizesAndAnOutputThatIsNoTerminal) {
    HostOptions o;
    o.term = "qv-zero";
    o.rows = o.cols = 0;
    PtyHost h({"init", "size", "line:", "destroy"}, o);
    EXPECT_EQ(h.typed("ok\r"), Lines{"ok"});
    EXPECT_EQ(h.records("WIDTH"), Lines{"WIDTH 80"});
    EXPECT_EQ(h.records("HEIGHT"), Lines{"HEIGHT 24"});

    HostOptions piped;
    piped.stdout_pipe = true;
    PtyHost p({"init", "size", "line:> ", "destroy"}, piped);
    p.waitRead(0);
    EXPECT_EQ(p.typed("hi\r"), Lines{"hi"});
    EXPECT_EQ(p.records("WIDTH"), Lines{"WIDTH 20"});
    EXPECT_NE(p.output().find("<hpa 0>> "), std::string::npos);
}

// ---------------------------------------------------------------------------
// Input that runs out

// A pipe is read to its end: a line without a line break ends there, and
// the reads after it get an empty line and a 0 key.
TEST(InputEnd, APipeIsReadToItsEnd) {
    HostOptions piped;
    piped.stdin_pipe = true;
    PtyHost p({"init", "line:", "line:", "line:", "getchar:0", "destroy"}, piped);
    p.waitRead(0);
    EXPECT_EQ(p.typed("abc\ndef"), (Lines{"abc", "def", ""}));
    EXPECT_EQ(p.records("CHAR"), Lines{"CHAR 0"});
    EXPECT_TRUE(p.records("EOI").empty());
}

// ---------------------------------------------------------------------------
// Key sequences

// A lone Escape never hangs the read: after a pause the sequence is over,
// and the key that follows later is a key of its own. onIdle answering 0
// stops nothing however long the wait.
TEST(Keys, ALoneEscapeAndALongIdleWait) {
    PtyHost h({"init", "cb:idle=0", "line:", "destroy"});
    h.keysSlowly("a\x1b");
    usleep(300 * 1000);
    EXPECT_EQ(h.typed("[Db\r"), Lines{"a[Db"});
}

// Each case: the host's calls, the keys typed in one burst, the lines that
// come back, and the host's records of signals, idle calls, single keys, the
// end of input, options and (where a case names them) statuses. Every read
// leaves the mode as it was.
TEST(Keys, ReadsEndAsTheKeysAndTheHostSay) {
    struct Case {
        std::vector<std::string> commands;
        std::string keys;
        Lines lines, records;
        const char *term;
    };
    const std::string f10 = "\x1b[21~", shift_up = "\x1b[1;2A";
    std::string ups; // more than there are entries: the oldest stays
    for (int i = 0; i < 9; i++) ups += kUp;
    const Case cases[] = {
        // An unknown sequence is swallowed whole, up to its final byte; NUL
        // inside a sequence drops just the sequence. Keys that arrive together
        // are never stranded behind an escape sequence.
        {{"init", "line:", "line:", "line:", "line:", "line:", "line:", "line:"},
         std::string("a\x1b[Zb\r") + "\x1bxc\r" + "d\t\xff" + "e\r" + "f\x1b" + std::string(1, '\0') + "g\r" + "abcd" +
             kLeft + kLeft + f10 + "z" + shift_up + "\x1bOx\r" + "two" + kLeft + kLeft + "abc\r" + ups + "!\r",
         {"ab", "c", "de", "fg", "abzcd", "tabcwo", "ab!"}, {}, "qv-readable"},
        // A terminal whose Left key is a lone backspace byte moves left with it.
        {{"init", "line:"}, "ab\x08X\x7fY\r", {"aYb"}, {}, "qv-leftbs"},
        // Single-key reads give the bytes of a sequence one by one.
        {{"init", "getchar:0", "getchar:0", "getchar:1"}, kUp, {}, {"CHAR 27", "CHAR 91", "CHAR 65"}, "qv-readable"},
        // Without the sigint option Ctrl-C starts a fresh line; with it, the
        // read ends and the signal is raised once the mode is back.
        {{"init", "line:> "}, "abc\x03xyz\r", {"xyz"}, {}, "qv-readable"},
        {{"init:sigint", "line:", "line:", "line:"}, "ok\r" "x\x03" "\x04", {"ok", "", ""},
         {"STATUS 0 10", "SIGINT", "STATUS 1 2", "STATUS 2 11"}, "qv-readable"},
        // onIdle answering 1 ends every read, even inside a key sequence, and
        // is never asked again; 2 cancels the read.
        {{"init", "cb:idle=1@4", "line:", "line:", "getchar:1"}, "ab\x1b", {"ab", ""},
         {"IDLE 4", "STATUS 0 6", "STATUS 1 6", "CHAR 0"}, "qv-readable"},
        {{"init", "cb:idle=2@2", "line:"}, "", {""}, {"IDLE 2"}, "qv-readable"},
        // Ctrl-D deletes while there is text and ends the input once it is
        // empty; the read after that returns after one key and reports the
        // end again.
        {{"init", "cb:eoi", "lines:", "line:"}, "ab\x04\x7f\x7f\x04q", {"", "q"}, {"EOI", "EOI"}, "qv-readable"},
        // With UTF-8 input off, bytes above 127 do nothing, as they once did.
        {{"option:3=0", "option:3=0", "option:99=1", "init", "line:"}, "a\xc3\xa9" "b\r", {"ab"},
         {"OPTION 1", "OPTION 0", "OPTION -1"}, "qv-readable"},
    };
    for (const Case &k : cases) {
        std::vector<std::string> commands = k.commands;
        commands.push_back("destroy");
        HostOptions o;
        o.term = k.term;
        PtyHost h(commands, o);
        EXPECT_EQ(h.typed(k.keys), k.lines) << visible(k.keys);
        for (const std::string tag : {"SIGINT", "IDLE", "CHAR", "EOI", "OPTION", "STATUS"}) {
            Lines want;
            std::copy_if(k.records.begin(), k.records.end(), std::back_inserter(want),
                         [&](const std::string &r) { return r.compare(0, tag.size(), tag) == 0; });
            if (tag != "STATUS" || !want.empty()) {
                EXPECT_EQ(h.records(tag), want) << visible(k.keys);
            }
        }
        expectModesRestored(h);
    }
}

// ---------------------------------------------------------------------------
// Signals: only the user ends a line, and the terminal is always given back

TEST(Session, CaughtSignalsAndFlowControlNeverEndOrFreezeARead) {
    PtyHost h({"init", "catch", "line:> ", "destroy"}, xterm());
    h.keys("abc");
    h.waitRead(0);
    usleep(100 * 1000);
    for (int sig : {SIGWINCH, SIGUSR1, SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        h.signal(sig);
        usleep(50 * 1000);
    }
    // Ctrl-S starts a search (given up with Ctrl-G); Ctrl-Q does nothing.
    EXPECT_EQ(h.typed("d\x13\x07" "e\x11" "f\r"), Lines{"abcdef"});
    EXPECT_EQ(h.records("SIGINT").size(), 1u);
    EXPECT_EQ(h.records("CAUGHT"),
              (Lines{"CAUGHT WINCH", "CAUGHT USR1", "CAUGHT TERM", "CAUGHT HUP", "CAUGHT QUIT"}));
    EXPECT_EQ(h.screen().row(0), "> abcdef");
    expectModesRestored(h);
}

TEST(Session, ADyingProcessGivesTheTerminalBackFirst) {
    // Every signal that ends a process by default: from outside, and the
    // crash signals raised by the host's own code during a read (with the
    // sanitizer runtime's handlers out of the way, as a host without one).
    for (int sig : {SIGTERM, SIGHUP, SIGQUIT, SIGALRM, SIGUSR1, SIGUSR2, SIGPIPE, SIGXCPU, SIGVTALRM}) {
        PtyHost h({"init", "line:> "});
        h.keys("abc");
        usleep(50 * 1000);
        h.signal(sig);
        EXPECT_EQ(h.finish(), 128 + sig);
        EXPECT_TRUE(h.isCooked()) << sig;
    }
    HostOptions crashing;
    crashing.env = {"ASAN_OPTIONS=handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:handle_abort=0"};
    for (int sig : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        PtyHost h({"init", "cb:idle=raise:" + std::to_string(sig), "line:> "}, crashing);
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
    HostOptions o = xterm();
    o.job = true;
    PtyHost h({"init", "cb:idle=tick", "line:> ", "destroy"}, o);
    h.keys("abc");
    h.settle();
    h.signal(SIGTSTP);
    h.waitCooked();
    const size_t before = h.output().size();
    h.signal(SIGCONT);
    EXPECT_EQ(h.typed("def\r"), Lines{"abcdef"});
    EXPECT_NE(h.output().find("> abc", before), std::string::npos) << visible(h.output());
    EXPECT_EQ(h.screen().row(0), "> abcdef");
    expectModesRestored(h);
}

// ---------------------------------------------------------------------------
// The output calls. Outside a read the terminal is in the host's mode, whose
// output processing turns the line feed into CR LF.

TEST(Output, StringsLineEndsAndBlanks) {
    struct Case {
        std::vector<std::string> commands;
        std::string output, keys;
    };
    const Case cases[] = {
        {{"put:"}, "", ""},
        {{"putln:"}, "<cr>\r\n", ""},
        {{"put:h\xc3\xa9llo"}, "h\xc3\xa9llo", ""},
        {{"putln:ok"}, "ok<cr>\r\n", ""},
        {{"putln:bad \xe9", "put:\xff"}, "", ""}, // invalid UTF-8 writes nothing
        {{"putchar:321"}, "A", ""},                // the low byte only
        {{"blanks:3"}, "<cuf 3>", ""},             // blanks over blank cells: only the cursor moves
        {{"blanks:0"}, "", ""},
        {{"getchar:0", "getchar:1"}, "y", "xy"}, // only the echoed key
    };
    for (const Case &k : cases) {
        std::vector<std::string> commands{"init"};
        commands.insert(commands.end(), k.commands.begin(), k.commands.end());
        commands.push_back("destroy");
        PtyHost h(commands);
        h.typed(k.keys);
        EXPECT_EQ(h.output(), k.output) << k.commands[0];
    }
    PtyHost h({"init", "line:> ", "putln:result", "line:> ", "destroy"}, xterm(30));
    h.typed("one\rtwo\r");
    const Screen s = h.screen();
    EXPECT_EQ(s.shown(), (Lines{"> one", "result", "> two"}));
    EXPECT_EQ(s.cursor_row, 3);
    EXPECT_EQ(s.cursor_col, 0);
}

// ---------------------------------------------------------------------------
// Printing from other threads, and the wake-up

// Eight threads print 500 numbered lines each while 2,000 keys are typed:
// every line shows once, whole and in its thread's order; the line read is
// what was typed, and the input is intact below the last line printed.
TEST(Print, ThreadsPrintAboveTheInputAndNothingIsLost) {
    QV_NEEDS(TERM_FEATURE_THREAD_PRINT);
    PtyHost h({"init", "cb:idle=tick", "printers:8x500@1000", "line:> ", "join", "destroy"}, xterm(80, 40));
    std::string typed;
    for (int i = 0; i < 2000; i++) typed += static_cast<char>('a' + i % 26);
    for (size_t i = 0; i < typed.size(); i += 40) {
        h.keys(typed.substr(i, 40));
        usleep(10000);
    }
    for (int t = 0; t < 8; t++) h.waitOutput("T" + std::to_string(t) + " L499");
    h.settle(); // the last batch drawn, and the input again below it
    const Expected e = expectedScreen(L"> ", std::wstring(typed.begin(), typed.end()), typed.size(), 80);
    const Lines shown = h.screen().shown();
    ASSERT_GE(shown.size(), e.rows.size());
    EXPECT_EQ(Lines(shown.end() - static_cast<long>(e.rows.size()), shown.end()), e.rows);
    EXPECT_EQ(h.typed("\r"), Lines{typed});
    const std::string out = h.output();
    std::vector<std::vector<int>> seen(8);
    for (size_t at = out.find('T'); at != std::string::npos; at = out.find('T', at + 1)) {
        const std::string line = out.substr(at, 8);
        ASSERT_TRUE(line.size() == 8 && isdigit(line[1]) && line.compare(2, 2, " L") == 0 && isdigit(line[4]) &&
                    isdigit(line[5]) && isdigit(line[6]) && (line[7] == '\r' || line[7] == '\n'))
            << visible(out.substr(at, 20));
        seen[static_cast<size_t>(line[1] - '0')].push_back(std::stoi(line.substr(4, 3)));
    }
    std::vector<int> all(500);
    for (int i = 0; i < 500; i++) all[static_cast<size_t>(i)] = i;
    for (const std::vector<int> &lines : seen) EXPECT_EQ(lines, all);
}

// A print during a continued input takes the rows where the input began;
// both of its lines follow below, the cursor where it was.
TEST(Print, AContinuedInputIsDrawnAgainBelowAPrint) {
    QV_NEEDS(TERM_FEATURE_THREAD_PRINT);
    PtyHost h({"init", "cb:complete=brackets", "cb:keep=1", "cb:idle=tick", "putln:before", "later:1500:news",
               "line:> ", "destroy"},
              xterm());
    h.keys("(a\rbc" + kLeft);
    h.waitScreen("news");
    h.settle(); // the input drawn again after the print
    EXPECT_EQ(h.screen().shown(), (Lines{"before", "news", "> (a", "  bc"}));
    EXPECT_EQ(h.screen().cursor_row, 3);
    EXPECT_EQ(h.screen().cursor_col, 3);
    EXPECT_EQ(h.typed("X)\r"), Lines{"(a\nbX)c"});
}

// A wake-up ends a waiting read at once with its own status and the text so
// far, from a signal handler or another thread, or, asked with no read
// running, the next read. Between reads a print, and a logger line mirrored,
// are written at once.
TEST(Print, AWakeUpEndsTheReadAndPrintsBetweenReadsGoOutAtOnce) {
    QV_NEEDS(TERM_FEATURE_THREAD_PRINT);
    PtyHost h({"init", "wake:signal", "line:> ", "wake:1500", "line:> ", "print:between", "option:5=1", "log:logged",
               "wake:now", "line:> ", "line:> ", "destroy"},
              xterm());
    h.keys("abc");
    h.waitScreen("> abc");
    h.signal(SIGUSR1);
    h.waitEnd(0);
    h.keys("de");
    h.waitEnd(1);
    EXPECT_EQ(h.typed("f\r"), (Lines{"abc", "de", "", "f"}));
    EXPECT_EQ(h.records("STATUS"), (Lines{"STATUS 0 12", "STATUS 1 12", "STATUS 2 12", "STATUS 3 10"}));
    EXPECT_EQ(h.screen().shown(), (Lines{"> abc", "> de", "between", "qvhost: logged", ">", "> f"}));
    unlink(("/tmp/qvhost-" + std::to_string(h.pid()) + ".log").c_str());
    expectModesRestored(h);
}

// ---------------------------------------------------------------------------
// Edits under the host's own loop

// The same keys give the same lines whether the library waits for them or a
// host's poll loop feeds them, all at once or a few bytes at a time (keys
// cut at random places), while the loop's timer stays served.
TEST(Loop, APolledReadGivesWhatABlockingReadGives) {
    QV_NEEDS(TERM_FEATURE_EVENT_LOOP);
    const std::string keys = std::string("one\r") + "ab" + kLeft + "X\xc3\xa9" + kRight + "\r" + kUp + kUp + "!\r" +
                             "(x\ry)\r" + "\x12on\r" + "z\x1b" "b" "Y\x7f\x05" "\xe4\xb8\xad\r";
    std::vector<std::string> blocking{"init", "cb:complete=brackets", "cb:keep=1"}, polled = blocking;
    for (int i = 0; i < 6; i++) {
        blocking.push_back("line:> ");
        polled.push_back("loop:> ");
    }
    blocking.push_back("destroy");
    polled.push_back("destroy");
    PtyHost once(blocking);
    const Lines want = once.typed(keys);
    EXPECT_EQ(want, (Lines{"one", "aX\\:00E9b", "one!", "(x\ny)", "one!", "z\\:4E2D"}));
    unsigned seed = 7;
    for (int run = 0; run < 2; run++) {
        PtyHost h(polled);
        for (size_t at = 0; at < keys.size();) {
            const size_t n = run == 0 ? 1 : 1 + rand_r(&seed) % 5;
            h.keys(keys.substr(at, n));
            at += n;
            usleep(3000);
        }
        EXPECT_EQ(h.typed(""), want) << run;
        // Keys a byte at a time keep every read open long enough for a tick.
        const Lines timers = h.records("TIMER");
        if (run == 0) {
            EXPECT_EQ(timers, Lines(6, "TIMER 1"));
        }
        EXPECT_NE(std::find(timers.begin(), timers.end(), "TIMER 1"), timers.end());
    }
}

// A signal the host catches, a change of the window's size and a print from
// another thread between feeds: the edit goes on, drawn at the new width
// below the print.
TEST(Loop, ASignalAResizeAndAPrintBetweenFeeds) {
    QV_NEEDS(TERM_FEATURE_EVENT_LOOP | TERM_FEATURE_THREAD_PRINT);
    PtyHost h({"init", "catch", "later:1000:news", "loop:> ", "destroy"}, xterm(20));
    h.keys("abcdefghijklmnopqrstuvwxyz");
    h.waitScreen("> abcdefghijklmnopqr");
    h.signal(SIGUSR1);
    h.resize(10, 30);
    h.waitScreen("> abcdefghijklmnopqrstuvwxyz");
    h.waitScreen("news");
    EXPECT_EQ(h.typed("!\r"), Lines{"abcdefghijklmnopqrstuvwxyz!"});
    EXPECT_EQ(h.records("CAUGHT"), (Lines{"CAUGHT WINCH", "CAUGHT USR1"}));
    EXPECT_EQ(h.screen().shown(), (Lines{"news", "> abcdefghijklmnopqrstuvwxyz!"}));
    expectModesRestored(h);
}

// ---------------------------------------------------------------------------
// The history file

TEST(HistoryFile, SurvivesARestartAndLoadsAwkwardFiles) {
    std::string file;
    for (int i = 0; i < 1500; i++) file += "line " + std::to_string(i) + "\r\n";
    const std::string dir = historyDir(file + std::string("nul\0rest", 8));
    // A password read before the load leaves nothing behind that could keep
    // the file's entries out.
    PtyHost h({"init:dir=" + dir, "mask:*:pw: ", "load", "line:", "line:", "line:", "destroy"}, xterm());
    // Page Up: the oldest kept entry. The entry holding a NUL is skipped, so
    // after read 1 added its line, two Ups reach the last one before it.
    EXPECT_EQ(h.typed("secret\r" + kPageUp + "\r" + kUp + kUp + "\rnew\r"),
              (Lines{"secret", "line 500\r", "line 1499\r", "new"}));
    // Restart: the saved file has the newest 1000 entries and the new line.
    const std::string saved = readFile(dir + "/term.history");
    EXPECT_EQ(saved.substr(saved.size() - 4), "new\n");
    EXPECT_EQ(saved.find("secret"), std::string::npos);
    PtyHost again({"init:dir=" + dir, "load", "line:", "destroy"}, xterm());
    EXPECT_EQ(again.typed(kUp + "\r"), Lines{"new"});
}

// A directory or a FIFO in place of the file is left alone and never blocks;
// a new file is created 0600; a full disk leaves the old
// file as it was.
TEST(HistoryFile, SpecialFilesTheUmaskAndAFullDisk) {
    const std::string in_dir = tempDir(), fifo = tempDir(), fresh = tempDir(), full = historyDir("keep me\n");
    ASSERT_EQ(mkdir((in_dir + "/term.history").c_str(), 0700), 0);
    ASSERT_EQ(mkfifo((fifo + "/term.history").c_str(), 0600), 0);
    for (const std::string &dir : {in_dir, fifo}) {
        PtyHost h({"init:dir=" + dir, "load", "line:", "destroy"});
        EXPECT_EQ(h.typed("x\r"), Lines{"x"}) << dir;
    }
    // A new file is the user's alone, whatever the umask; one that exists
    // keeps its mode.
    const mode_t umask_before = umask(022);
    PtyHost h({"init:dir=" + fresh, "line:", "destroy"});
    h.typed("one\r");
    struct stat st;
    ASSERT_EQ(stat((fresh + "/term.history").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    ASSERT_EQ(chmod((fresh + "/term.history").c_str(), 0640), 0);
    PtyHost again({"init:dir=" + fresh, "load", "line:", "destroy"});
    again.typed("two\r");
    umask(umask_before);
    ASSERT_EQ(stat((fresh + "/term.history").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    // The host inherits a file size limit of 0 and ignores the signal for it.
    struct rlimit old, none;
    getrlimit(RLIMIT_FSIZE, &old);
    none = old;
    none.rlim_cur = 0;
    const auto xfsz = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &none);
    PtyHost f({"init:dir=" + full, "line:", "destroy"});
    setrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, xfsz);
    f.keys("lost\r");
    EXPECT_EQ(f.finish(), 0);
    EXPECT_EQ(readFile(full + "/term.history"), "keep me\n");
}

TEST(HistoryFile, SessionsSavingAtOnceLoseNothing) {
    const std::string dir = historyDir("seed\n");
    std::vector<std::unique_ptr<PtyHost>> hosts;
    for (int i = 0; i < 20; i++) hosts.emplace_back(new PtyHost({"init:dir=" + dir, "line:", "destroy"}));
    for (int i = 0; i < 20; i++) hosts[static_cast<size_t>(i)]->keys("entry " + std::to_string(i) + "\r");
    for (auto &h : hosts) ASSERT_EQ(h->finish(), 0);
    const std::string saved = readFile(dir + "/term.history");
    EXPECT_EQ(std::count(saved.begin(), saved.end(), '\n'), 21);
    EXPECT_EQ(saved.compare(0, 5, "seed\n"), 0);
    for (int i = 0; i < 20; i++) EXPECT_NE(saved.find("\nentry " + std::to_string(i) + "\n"), std::string::npos) << i;
}

} // namespace
