// The line editor as a user meets it: keys typed into a pseudo-terminal,
// the line the host gets back, and the screen xterm would show.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <sys/stat.h>
#include <iterator>

#include "pty_harness.h"

using namespace qvtest;

namespace {

std::string times(int n, const std::string &s) {
    std::string out;
    for (int i = 0; i < n; i++) out += s;
    return out;
}

// ---------------------------------------------------------------------------
// Every key the default map binds, typed at least once

// Each row: what is typed into a fresh read over the history "older",
// "newer" and the rows before, and the line that comes back. A binding lost
// or swapped changes the line.
TEST(Keys, EveryDefaultKeyDoesItsWork) {
    struct Row {
        std::string keys, line;
    };
    const std::string end = "\x05", home = "\x01", alt_b = "\x1b" "b", alt_d = "\x1b" "d";
    const std::string ctrl_left = "\x1b[1;5D", ctrl_right = "\x1b[1;5C";
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
        {"one two" + home + alt_d + "X", "X two"},         // Alt-d
        {"one two" + alt_b + "X\x1b" "f" "Y", "one XtwoY"},  // Alt-b, Alt-f
        {"one two" + ctrl_left + "X" + ctrl_right + "Y", "one XtwoY"}, // Ctrl-Left, Ctrl-Right
        // Words are letters and digits in any script.
        {"alpha beta.gamma" + ctrl_left + alt_b + alt_d + ctrl_right + "X", "alpha .gammaX"},
        {"\xd0\xbf\xd1\x80\xd0\xb8 \xd0\xbc\xd0\xb8\xd1\x80" + alt_b + alt_b + alt_d + "X", "X \xd0\xbc\xd0\xb8\xd1\x80"},
        // Kills go to the ring, and kills in a row make one entry.
        {"ab\x15" "c\x19\x19", "cabab"},                    // Ctrl-U, Ctrl-Y
        {"ab\x15" "cd\x15\x19\x1b" "y", "ab"},              // Alt-y
        // A key that acts on the previous one acts only right after it.
        {"ab\x17" "cd\x15\x1by\x1by", ""},                 // Alt-y with no yank before
        {"ab\x15" "cd\x15\x19" + kLeft + "\x1by", "cd"},    // a motion ends the yank
        {"ab\x15" "cd\x15\x19\x1by\x1by", "cd"},           // pops go round the ring
        {"ab" + kLeft + kRight + "c\x1f", "ab"},           // a motion ends a typing step
        {kUp + kUp + kLeft + kDown, "ab"},                 // the walk keeps its place (the row above)
        {"one two three\x17\x17\x19" "!", "one two three!"},
        {"ab\x14", "ba"},                                  // Ctrl-T
        {"ab c\x1f", ""},                                  // Ctrl-_: typing in a row is one step
        {"hello world\x17\x1f\x1f" "z", "z"},
        // Ctrl-X Ctrl-_ puts back what undo took, in order, until an edit.
        {"ab cd\x17\x1f\x18\x1f" "!", "ab !"},
        {"one two\x17\x17\x1f\x1f\x18\x1f\x18\x1f" "!", "!"},
        {"ab\x17\x1f" "c\x18\x1f", "abc"},
        {"ab\x14" "c" + home + "\x1b[2~" "X", "Xac"},      // Insert; transposing is a step
        {"ab" + home + "Y", "Yab"},                        // every read starts inserting
        {kUp + "X\x1f\x1f", "Yab"},                        // a recall is as far back as undo goes
        {"a\x16\x01" "b", "a\x01" "b"},                     // Ctrl-V
        {"a\x0c" "b\x1a" "c\x1e" "d", "abcd"},              // Ctrl-L, Ctrl-Z, unbound
        // The buffer grows under the cursor and keeps the continuation's start.
        {std::string(510, 'a') + kLeft + "bc", std::string(509, 'a') + "bca"},
        {"(\n" + std::string(1100, 'y') + home + "Z)", "(Z)" + std::string(1100, 'y')},
    };
    const std::string dir = historyDir("older\nnewer\n");
    std::vector<std::string> commands{"init:dir=" + dir, "cb:complete=brackets", "load"};
    std::string keys;
    Lines want;
    for (const Row &r : rows) {
        commands.push_back("utf8:");
        keys += r.keys + "\n"; // Ctrl-J enters, as Return does
        want.push_back(r.line);
    }
    commands.push_back("line:");
    want.push_back("last");
    PtyHost h(commands, xterm(40));
    const Lines got = h.typed(keys + "last\r");
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); i++) EXPECT_EQ(got[i], want[i]) << visible(rows[std::min(i, std::size(rows) - 1)].keys);
}

// Bracket insertion: an opening character types its pair, a closing one
// steps over its twin, Backspace takes an empty pair; not against text,
// not for a quote after a letter, never for a paste or in a masked read;
// the pairs are the host's to set.
TEST(Keys, BracketInsertion) {
    PtyHost h({"init", "option:13=1", "utf8:", "utf8:", "utf8:", "utf8:", "utf8:", "utf8:", "mask:*:", "pairs:<>", "utf8:",
               "destroy"});
    EXPECT_EQ(h.typed("(a)x\r" "f(\x7f\r" "\"hi\"!\r" "don't\r" "x\x01(\r" "\x1b[200~(a\x1b[201~\r" "(\r" "<a>(\r"),
              (Lines{"(a)x", "f", "\"hi\"!", "don't", "(x", "(a", "(", "<a>("}));
}

// A key rebound between reads, by the call and by a file, acts from the next
// read on; Ctrl-T transposes until then, and a bad line leaves the rest.
TEST(Keys, RebindingsActFromTheNextRead) {
    QV_NEEDS(TERM_FEATURE_BINDINGS);
    const std::string file = tempDir() + "/bindings";
    std::ofstream(file) << "Control-o: beginning-of-line\n\"\\C-y\": no-such-action\n\"\\C-xq\": \"\\C-xq\"\n"
                           "set completion-ignore-case on\nset mark-directories off\n";
    const std::string dir = tempDir();
    std::ofstream(dir + "/only-file.txt") << "x";
    mkdir((dir + "/Sub").c_str(), 0700);
    HostOptions o;
    o.cwd = dir;
    PtyHost h({"init", "line:", "bind:\\C-t=backward-char", "bind:\\e/=complete-filename", "line:", "bindings:" + file,
               "line:", "line:", "line:", "destroy"},
              o);
    // A macro that types itself stops, and the keys after it act.
    EXPECT_EQ(h.typed("ab\x14X\rab\x14X\rab\x0fX\rcat ON\x1b/su\x1b/\r\x18qZ\r"),
              (Lines{"baX", "aXb", "Xab", "cat only-file.txt Sub", "Z"}));
    EXPECT_EQ(h.records("BOUND"), (Lines{"BOUND 1", "BOUND 1"}));
    EXPECT_EQ(h.records("REPORT"), Lines{"REPORT 2 unknown action"});
    EXPECT_EQ(h.records("BINDINGS"), Lines{"BINDINGS 1"});
}

// The lines people keep in their ~/.inputrc, Debian's /etc/inputrc
// included, taken by the demo without a word of complaint, and acting.
TEST(Keys, TheDemoTakesAUsersInputrc) {
    QV_NEEDS(TERM_FEATURE_BINDINGS);
    const std::string home = tempDir();
    std::ofstream(home + "/.inputrc") << "$include /etc/inputrc\n"
                                         "set editing-mode emacs\n"
                                         "set completion-ignore-case on\n"
                                         "set show-all-if-ambiguous on\n"
                                         "set colored-stats on\n"
                                         "set visible-stats on\n"
                                         "set mark-symlinked-directories on\n"
                                         "set colored-completion-prefix on\n"
                                         "set completion-prefix-display-length 8\n"
                                         "set menu-complete-display-prefix on\n"
                                         "set bell-style none\n"
                                         "\"\\e[A\": history-search-backward\n"
                                         "\"\\e[B\": history-search-forward\n"
                                         "\"\\C-xq\": \"typed by a macro\"\n"
                                         "$if Bash\n"
                                         "  Space: magic-space\n"
                                         "$endif\n"
                                         "$if quorvel-demo\n"
                                         "  \"\\C-xd\": \"for the demo\"\n"
                                         "$endif\n";
    HostOptions o = xterm(60, 10);
    o.program = {QV_DEMO};
    o.cwd = home;
    o.env = {"HOME=" + home, "XDG_CONFIG_HOME=" + home + "/config", "XDG_STATE_HOME=" + home + "/state"};
    PtyHost h({}, o);
    h.waitScreen("> ");
    h.keys("\x18" "q \x18" "d\r");
    h.waitScreen("typed by a macro for the demo");
    EXPECT_EQ(h.output().find("quorvel-demo:"), std::string::npos) << visible(h.output());
}

// ---------------------------------------------------------------------------
// The screen shows the text the host gets: edits that once drew one text and
// returned another

// Each case: the host's calls, the keys typed, the lines that come back and
// the whole screen afterwards (every row below the ones given is blank).
TEST(Screen, ShowsWhatTheHostGets) {
    struct Case {
        std::vector<std::string> commands;
        std::string keys;
        Lines lines, rows;
        int cols = 20;
    };
    const std::string wide = "\xe4\xb8\xad\xe4\xb8\xad", az = "abcdefghijklmnopqrstuvwxyz";
    const Case cases[] = {
        // Ctrl-G keeps the text and starts a fresh prompt.
        {{"init", "line:> "}, std::string(25, 'g') + times(5, kLeft) + "\x07new\r", {"new"},
         {"> " + std::string(18, 'g'), std::string(7, 'g'), "> new"}},
        // A kill on a wrapped row keeps the rows linked.
        {{"init", "line:> "}, "abcdefghijklmnopqrstuvwxy" + times(3, kLeft) + "\x0b\x01X\r",
         {"Xabcdefghijklmnopqrstuv"}, {"> Xabcdefghijklmnopq", "rstuv"}},
        // A prompt as wide as the terminal; a wider one is cut a column short.
        {{"init", "line:" + std::string(20, '%'), "line:" + std::string(22, '%')}, "abc\x01XY\r" "de\x01Z\r",
         {"XYabc", "Zde"}, {std::string(20, '%'), "XYabc", std::string(19, '%') + "Z", "de"}},
        // Ctrl-L clears the screen and draws a three-row input at the top,
        // with the cursor where the next key goes; Ctrl-V puts a control key
        // in as text.
        {{"init", "putln:earlier output", "line:> "}, az + az.substr(0, 14) + "\x16\t" + kLeft + kLeft + "\x0cZ\r",
         {az + az.substr(0, 13) + "Zn\t"}, {"> " + az.substr(0, 18), az.substr(18) + az.substr(0, 12), "mZn^I"}},
        // A trailing backslash before a declined line break is removed, and
        // drawn once: in the last column too, whose full row keeps the row
        // below it for the cursor.
        {{"init", "cb:complete=backslash", "cb:keep=backslash", "line:> "}, "abc\\\rdef\r", {"abcdef"},
         {"> abc\\", "  def"}},
        {{"init", "cb:complete=backslash", "cb:keep=backslash", "line:> "}, az.substr(0, 17) + "\\\rdef\r",
         {az.substr(0, 17) + "def"}, {"> " + az.substr(0, 17) + "\\", "", "  def"}},
        // Without a kept line break the next line is appended, shown apart;
        // Ctrl-K, Page Down, Ctrl-T and a second Home at its start keep to it.
        {{"init", "cb:complete=brackets", "line:> "}, "(x\ry)\r", {"(xy)"}, {"> (x", "  y)"}},
        {{"init", "cb:complete=brackets", "line:> ", "line:> ", "line:> ", "line:> "},
         "(ab\rcd\x01\x0bZ)\r" "(ab\rcd" + kPageDown + "Z)\r" "(ab\rcd\x01\x14Z\x05)\r" "(ab\rcd\x01\x01Z\x05)\r",
         {"(abZ)", "(abZ)", "(abZcd)", "(abZcd)"}, {"> (ab", "  Z)", "> (ab", "  Z)", "> (ab", "  Zcd)", "> (ab", "  Zcd)"}},
        {{"init", "cb:complete=brackets", "cb:keep=0", "line:> "}, "(x\ry)\r", {"(xy)"}, {"> (x", "  y)"}},
        // Text typed into the first line pushes the next line's start along.
        {{"init", "cb:complete=brackets", "line:> "}, "(a\rc)" + times(3, kLeft) + "X\r", {"(Xac)"}, {"> (Xa", "  c)"}},
        // An empty line continued without its line break.
        {{"init", "cb:complete=marker", "cb:keep=0", "line:> "}, "\rA\r", {"A"}, {">", "  A"}},
        // Raw reads never ask whether the input is complete.
        {{"init", "cb:complete=brackets", "cb:keep=1", "raw:> ", "rawmask:#:"}, "(x\r(y\r", {"(x", "(y"},
         {"> (x", "##"}},
        // A recall replaces every row of a continued input; Home goes to its start.
        {{"init", "cb:complete=brackets", "cb:keep=1", "line:> ", "line:> "},
         "one\r(" + std::string(30, 'x') + "\rmore" + kUp + "\x01X\r", {"one", "Xone"}, {"> one", "> Xone"}},
        // Recalled entries come back encoded and drawn as they read: UTF-8 as
        // itself, control characters in caret notation.
        {{"init:dir=" + historyDir("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\n"), "load", "line:> "}, kUp + "\r",
         {"\\:00E9\\:20AC\\:D83D\\:DE00"}, {"> \xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"}},
        {{"init:dir=" + historyDir("a\tb\x1b[31mc\n"), "load", "line:> "}, kUp + "\r", {"a\tb\x1b[31mc"},
         {"> a^Ib^[[31mc"}},
        // A long entry replaced by a short wide one leaves no stale cell or row.
        {{"init:dir=" + historyDir(std::string(30, 'a') + "\n" + wide + "\n"), "load", "utf8:> "},
         kUp + kUp + kDown + "\r", {wide}, {"> " + wide}},
        // Completion: one candidate goes in; several give their common prefix
        // and, on a second Tab, a sorted list with the input again below it;
        // none changes nothing; UTF-8 candidates work alike.
        {{"completer:words", "init", "line:> ", "line:> ", "line:> ", "line:> "},
         "pri\t\tv\t\r" "pr\tin\t\r" "zz\t\r" "\xc3\xa9t\t!\r", {"private", "print", "zz", "\\:00E9t\\:00E9!"},
         {"> pri", "print    printf   private", "> private", "> print", "> zz", "> \xc3\xa9t\xc3\xa9!"}, 30},
    };
    for (const Case &k : cases) {
        std::vector<std::string> commands = k.commands;
        commands.push_back("destroy");
        PtyHost h(commands, xterm(k.cols));
        EXPECT_EQ(h.typed(k.keys), k.lines) << visible(k.keys);
        EXPECT_EQ(h.screen().shown(), k.rows) << visible(k.keys);
    }
}

// A key pushes text from three full rows into a fourth and pulls it back.
// The first burst ends in the last column, where the terminal waits to wrap;
// the next key still goes there.
TEST(Screen, RowsGrowAndShrink) {
    PtyHost h({"init", "cb:idle=tick", "line:", "destroy"}, xterm());
    h.keys(std::string(39, 'a'));
    h.settle();
    h.keys(std::string(21, 'a') + "b");
    h.settle();
    EXPECT_EQ(h.screen().row(1), std::string(20, 'a'));
    h.keys(times(61, kLeft) + "X");
    h.settle();
    EXPECT_EQ(h.screen().row(0), "X" + std::string(19, 'a'));
    EXPECT_EQ(h.screen().row(3), "ab");
    h.keys(kLeft + kDelete);
    h.settle();
    EXPECT_EQ(h.screen().row(0), std::string(20, 'a'));
    EXPECT_EQ(h.screen().row(3), "b");
    EXPECT_EQ(h.typed("\r"), Lines{std::string(60, 'a') + "b"});
}

// Taller than its window: the rows that scrolled away come back for a key
// that acts there, and a line that shrinks from the bottom is drawn where
// its prompt shows, not above the window's top.
TEST(Screen, ALineTallerThanItsWindow) {
    PtyHost h({"init", "cb:idle=tick", "line:> ", "destroy"}, xterm(20, 4));
    const std::string full(20, 'a');
    auto expect = [&](const Lines &rows, int row, int col) {
        h.settle();
        const Screen s = h.screen();
        EXPECT_EQ(s.shown(), rows);
        EXPECT_EQ(s.cursor_row, row);
        EXPECT_EQ(s.cursor_col, col);
    };
    h.keys(std::string(100, 'a') + "b");
    expect({full, full, full, "aab"}, 3, 3);
    h.keys("\x01X");
    expect({"> X" + std::string(17, 'a'), full, full, full}, 0, 3);
    h.keys("\x05");
    expect({full, full, full, "aaab"}, 3, 4);
    h.keys("\x15");
    expect({">"}, 0, 2);
    EXPECT_EQ(h.typed("ok\r"), Lines{"ok"});
}

// ---------------------------------------------------------------------------
// Masked reads

TEST(Mask, ShowsTheMaskAndNeverRecallsOrKeepsALine) {
    const std::string dir = historyDir("secret agent\n");
    PtyHost h({"option:2=1", "init:dir=" + dir, "load", "mask:*:pw: ", "destroy"}, xterm());
    EXPECT_EQ(h.typed("secret" + kUp + kDown + kPageUp + kPageDown + kUp + "\r"), Lines{"secret"});
    EXPECT_EQ(h.screen().row(0), "pw: ******");
    // No letter of the typed line, a recalled one or a hint ever reaches the
    // terminal.
    EXPECT_EQ(h.output().find_first_of("secratgn"), std::string::npos) << visible(h.output());
    EXPECT_EQ(readFile(dir + "/term.history"), "secret agent\n");
}

// ---------------------------------------------------------------------------
// History recall

// The walk never loses the typed line and starts afresh after an abandoned
// or empty read; an edited recall becomes the saved line. A repeat of the
// newest entry and an empty line are not kept; a line feed ends a line as
// Return does.
TEST(History, TheWalkKeepsTheTypedLineAndTheFileKeepsEachEntryOnce) {
    const std::string dir = tempDir();
    std::vector<std::string> commands{"init:dir=" + dir};
    for (int i = 0; i < 16; i++) commands.push_back("line:");
    commands.push_back("destroy");
    PtyHost h(commands, xterm());
    EXPECT_EQ(h.typed("a\rb\r" + std::string("z") + kPageUp + kDown + kDown + "\r" + // Page Up keeps "z"
                      kUp + "\x07" + kUp + "\r" +                                    // afresh after Ctrl-G
                      kUp + kUp + "\x01\x0b\r" +                                     // an empty line...
                      kUp + "\r" +                                                   // ...then afresh
                      "a\ra\rb\ra\r\rz\n" + "abc" + kUp + kUp + kDown + kDown + kDown + "!\r" +
                      "xyz" + kUp + "2" + kUp + kDown + kDown + "\r" +
                      // Up at the oldest stays there; Page Down from a typed line empties it
                      times(12, kUp) + "\r" + "typed" + kPageDown + "x\r"),
              (Lines{"a", "b", "z", "z", "", "z", "a", "a", "b", "a", "", "z", "abc!", "abc!2", "a", "x"}));
    EXPECT_EQ(readFile(dir + "/term.history"), "a\nb\nz\na\nb\na\nz\nabc!\nabc!2\na\nx\n");
}

// A hint shows the rest of the newest matching entry, dim; Right takes it,
// other keys go on as if it were not there, and it is gone at Return. A
// terminal without dim shows none.
TEST(History, HintsAcceptedIgnoredAndGone) {
    const std::string dir = historyDir("git commit\ngit status\n");
    PtyHost h({"option:2=1", "init:dir=" + dir, "cb:idle=tick", "load", "line:> ", "line:> ", "line:> ", "destroy"},
              xterm(30));
    h.keys("git s");
    h.settle();
    EXPECT_EQ(h.screen().row(0), "> git status");
    EXPECT_EQ(h.screen().cursor_col, 7);
    EXPECT_NE(h.output().find("\x1b[2m"), std::string::npos); // dim
    h.keys(kRight + "\r" + "git cx\r" + "git co");
    h.settle();
    EXPECT_EQ(h.screen().row(2), "> git commit");
    EXPECT_EQ(h.typed("\r"), (Lines{"git status", "git cx", "git co"}));
    EXPECT_EQ(h.screen().row(2), "> git co");

    HostOptions nodim = xterm(30);
    nodim.term = "qv-xterm-nodim";
    PtyHost plain({"option:2=1", "init:dir=" + dir, "load", "line:> ", "destroy"}, nodim);
    EXPECT_EQ(plain.typed("git s\r"), Lines{"git s"});
    EXPECT_EQ(plain.output().find("tatus"), std::string::npos);
}

// A callback may change the history while a hint or a match from it is on
// the screen (here onIdle clears it, sets the limit to 0 and adds 1,100
// entries, and rebinds a key): the next key acts on what the screen shows.
TEST(History, AHintAndAMatchOutliveTheirEntries) {
    const std::string dir = historyDir("abcdefghij\n");
    PtyHost h({"option:2=1", "init:dir=" + dir, "cb:idle=churn", "load", "line:> ", "line:> ", "destroy"}, xterm(40));
    auto churn = [&] {
        h.settle();
        const Lines shown = h.screen().shown();
        h.signal(SIGUSR2);
        h.settle();
        EXPECT_EQ(h.screen().shown(), shown); // nothing is drawn until a key comes
    };
    h.keys("ab");
    churn();
    h.keys(kRight + "\r");
    h.waitEnd(0);
    h.keys("\x12" "churn 5");
    churn();
    EXPECT_EQ(h.typed("\x12\r"), (Lines{"abcdefghij", "churn 599"}));
    EXPECT_EQ(h.screen().shown(), (Lines{"> abcdefghij", "> churn 599"}));
    EXPECT_EQ(h.records("CHURN").size(), 2u);
}

// Ctrl-R narrows, repeats, fails and widens again; Return takes the match,
// Ctrl-G gives the line back, and a motion key takes the match to edit it.
TEST(History, SearchFindsTakesAndGivesBack) {
    const std::string dir = historyDir("make test\ngit commit\nmake bench\nls \xe4\xb8\xad\xe6\x96\x87\n");
    PtyHost h({"init:dir=" + dir, "cb:idle=tick", "load", "line:> ", "line:> ", "line:> ", "destroy"}, xterm(60));
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
    EXPECT_EQ(h.typed("\x12\xe4\xb8\xad" + kRight + "!\r"), (Lines{"make test", "typed!", "ls \\:4E2D!\\:6587"}));
}

// ---------------------------------------------------------------------------
// Return, completion and continuation lines

// The keys people press on continuation lines, at a line's start, middle
// and end, with the break kept in the text: each row's Z marks where the
// cursor was, and no key may act on the line before or take the break.
// Keys that cross a break cross it whole; the completer sees the breaks, a
// history entry is one line, and a backslash before a break joins.
TEST(Continuation, KeysAtALinesEdges) {
    struct Row {
        std::string keys, line;
    };
    const std::string home = "\x01", end = "\x05";
    const Row rows[] = {
        {"(ab\rcd" + home + home + "Z" + end + ")", "(ab\nZcd)"},            // Home stays on its line
        {"(ab\rcd" + home + "\x15Z" + end + ")", "(ab\nZcd)"},              // Ctrl-U at the start
        {"(ab\rcd" + kLeft + "\x15Z" + end + ")", "(ab\nZd)"},              // in the middle
        {"(ab\rcd" + home + "\x0bZ)", "(ab\nZ)"},                          // Ctrl-K at the start
        {"(ab\rcd" + kLeft + "\x0bZ)", "(ab\ncZ)"},                        // in the middle
        {"(ab\rcd" + kPageDown + "Z)", "(ab\nZ)"},                           // Page Down past the newest
        {"(ab\rcd" + home + "\x14Z" + end + ")", "(ab\nZcd)"},              // Ctrl-T at the start
        {"(ab\rcd" + kLeft + "\x14Z" + end + ")", "(ab\ndcZ)"},             // in the middle
        {"(ab\rcd\ref" + times(3, kLeft) + "\x14Z)", "(ab\ncdZ)\nef"},       // at the end of a line
        {"(ab\rcd" + end + "\x14Z)", "(ab\ndcZ)"},                          // at the end of the text
        {"(ab\r\x7f\x7f)", "(a)"},                                          // Backspace joins the lines
        {"(abc\r" + kLeft + kLeft + "X" + end + ")", "(abXc\n)"},           // Left goes back into the line
        {"(ab\rcd" + times(3, kLeft) + "\x0b" "x\x19)", "(abx\ncd)"},       // a kill takes the break, a yank
        {"ab\\\rcd", "ab\\\ncd"},                                           // gives it back
    };
    const std::string dir = tempDir();
    std::vector<std::string> commands{"init:dir=" + dir, "cb:complete=brackets", "cb:keep=1"};
    std::string keys;
    Lines want;
    for (const Row &r : rows) {
        commands.push_back("line:> ");
        keys += r.keys + "\r";
        want.push_back(r.line);
    }
    commands.push_back("destroy");
    PtyHost h(commands, xterm(40));
    const Lines got = h.typed(keys);
    ASSERT_EQ(got.size(), want.size()) << testing::PrintToString(got);
    for (size_t i = 0; i < got.size(); i++) EXPECT_EQ(got[i], want[i]) << visible(rows[i].keys);
    EXPECT_EQ(h.records("COMPLETE")[0], "COMPLETE 3 28 61 62");
    EXPECT_EQ(h.records("COMPLETE")[1], "COMPLETE 8 28 61 62 A 5A 63 64 29");
    const Lines shown = h.screen().shown();
    EXPECT_EQ(Lines(shown.end() - 7, shown.end()), (Lines{"> (a)", "> (abXc", "  )", "> (abx", "  cd)", "> ab\\", "  cd"}));
    const std::string saved = readFile(dir + "/term.history");
    EXPECT_EQ(saved.substr(saved.size() - 26), "(a)\n(abXc )\n(abx cd)\nabcd\n");
}

// ---------------------------------------------------------------------------
// Bracketed paste

// A bracketed paste of several lines is inserted, not run; one cut off by
// the end of the input loses nothing; bracketing is turned off on every
// path out of a read.
TEST(Paste, MultiLinePastesAreInsertedNotRun) {
    const std::string start = "\x1b[200~", end = "\x1b[201~";
    PtyHost h({"init:sigint", "line:> ", "line:> ", "line:> ", "line:> ", "destroy"}, xterm(30));
    EXPECT_EQ(h.typed(start + "echo one\recho \x1b[31mtwo\r" + end + "\r" + "a\r" + "\x03" + "\x04"),
              (Lines{"echo one\necho two\n", "a", "", ""})); // the colour sequence is dropped
    EXPECT_EQ(h.screen().row(0), "> echo one");
    EXPECT_EQ(h.screen().row(1), "  echo two");
    // On at the start of every read, off on every way out of it: Return,
    // Ctrl-C with the sigint option, end of input.
    const std::string out = h.output();
    EXPECT_EQ(count(out, "\x1b[?2004h"), 4);
    EXPECT_EQ(count(out, "\x1b[?2004l"), 4);
    EXPECT_LT(out.rfind("\x1b[?2004h"), out.rfind("\x1b[?2004l"));

    // A paste still arriving is drawn within moments, under the library's
    // wait and under a host's poll loop alike, though its end is late.
    // The second paste comes with the end of the first read, so that it
    // starts the next read at once, right after its prompt was drawn.
    QV_NEEDS(TERM_FEATURE_EVENT_LOOP);
    PtyHost slow({"init", "line:> ", "loop:> ", "destroy"}, xterm(30));
    slow.keys(start + "abc");
    slow.waitScreen("> abc");
    slow.keys("!" + end + "\r" + start + "xyz");
    slow.waitScreen("> xyz");
    EXPECT_EQ(slow.typed("!" + end + "\r"), (Lines{"abc!", "xyz!"}));

    HostOptions piped = xterm(30);
    piped.stdin_pipe = true;
    PtyHost cut({"init", "line:> ", "destroy"}, piped);
    cut.waitRead(0);
    EXPECT_EQ(cut.typed(start + "abc\rdef"), Lines{"abc\ndef"});
}

} // namespace
