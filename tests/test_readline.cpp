// The readline-compatible library: a program written for readline's API
// (built three ways), and Debian's own sqlite3 and bc with the library
// preloaded in place of GNU readline.
#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pty_harness.h"

using namespace qvtest;

namespace {

// A program on an xterm of its own, in a scratch directory that is also its
// home.
HostOptions programOptions(std::vector<std::string> program, int cols = 60) {
    HostOptions o = xterm(cols, 24);
    o.cwd = tempDir();
    o.program = std::move(program);
    o.env = {"HOME=" + o.cwd};
    return o;
}

// Where the answers to a line typed now will start.
struct Session {
    PtyHost &h;
    size_t mark = 0;
    // Types keys, then waits for what the program answers to them.
    void expect(const std::string &keys, const std::string &answer) {
        mark = h.output().size();
        h.keys(keys);
        mark = h.waitOutput(answer, mark);
    }
    // Types keys, then waits for the screen to show text.
    void shows(const std::string &keys, const std::string &text) {
        h.keys(keys);
        h.waitScreen(text);
        mark = h.output().size();
    }
};

// ---------------------------------------------------------------------------
// Completion through the program's functions, with the variables in the
// program (copy relocations), read through the GOT, and in a static link.

class ReadlineHost : public ::testing::TestWithParam<const char *> {};

TEST_P(ReadlineHost, CompletesThroughTheProgramsFunctionsAndFreesTheMatches) {
    HostOptions o = programOptions({GetParam()});
    std::ofstream(o.cwd + "/notes.txt") << "x";
    std::ofstream(o.cwd + "/.inputrc")
        << "$if mode=emacs\n\"\\C-t\": backward-char\n$endif\nset bell-style none\nset visible-stats on\n";
    mkdir((o.cwd + "/sub").c_str(), 0700);
    std::ofstream(o.cwd + "/sub/a1") << "x";
    std::ofstream(o.cwd + "/sub/a2") << "x";
    chmod((o.cwd + "/sub/a2").c_str(), 0700);
    PtyHost h({}, o);
    Session s{h};
    s.expect("ab\x14X\r", "got[aXb]");             // the user's own key, from ~/.inputrc
    s.expect("ses\t\r", "got[session ]");        // one match, the append character
    s.expect("sev\t\r", "got[seven(]");          // one the program changed
    s.expect("zz\t\r", "got[zz]");               // none
    s.expect("./no\t\r", "got[./notes.txt ]");   // the file-name fallback
    s.shows("./sub/a\t\t", "a1   a2*");            // listed by their last part, with visible-stats
    s.expect("\x15\r", "got[]");
    s.shows("x sel\t", "rl> x select");          // several: the common prefix
    s.shows("\t", "selection");                  // and the list
    s.expect("ion\r", "got[x selection]");
    // A display hook that shows the matches with readline's own listing.
    s.expect("!hook\r", "= 0");
    s.shows("se\t\t", "select     selection  session    seven");
    s.expect("l\r", "got[sel]");
    // readline's listings: the user's binding, a macro, a variable as set.
    s.expect("!dump\r", "= 0");
    for (const char *line : {"\"\\C-t\": backward-char\r\n", "\"\\C-x\\C-_\": redo\r\n", "\\C-xq outputs quit()\r\n",
                             "set bell-style none\r\n"})
        EXPECT_NE(h.output().find(line), std::string::npos) << line;
    s.expect("!vi\r", "= 0"); // the setting gives the editor vi's keys
    s.expect("ab\x1b" "0iX\r", "got[Xab]");
    const auto words = h.records("WORD");
    ASSERT_EQ(words.size(), 8u); // the second Tab lists what the first found
    EXPECT_EQ(words[0], "WORD ses 0 3 3 3 ses");
    EXPECT_EQ(words[5], "WORD sel 2 5 5 5 x sel");
    s.expect("\x04", "EOF");
    // Under AddressSanitizer a match left unfreed, or freed twice, fails here.
    EXPECT_EQ(h.finish(), 0) << visible(h.output());
}

INSTANTIATE_TEST_SUITE_P(Builds, ReadlineHost,
                         ::testing::Values(QV_RL_HOST_SHARED, QV_RL_HOST_GOT, QV_RL_HOST_STATIC));

// The callback interface, as Python and gdb use it: the program waits in
// select and hands over what is readable; a key cut in two is one key.
TEST(ReadlineCallback, LinesComeThroughTheHandler) {
    HostOptions o = programOptions({QV_RL_HOST_SHARED});
    o.env.push_back("QV_RL_CALLBACK=1");
    PtyHost h({}, o);
    Session s{h};
    s.expect("ab" + kLeft + "X\r", "got[aXb]");
    s.expect("ses\t\r", "got[session ]");
    h.keys("\x1b[");
    usleep(20 * 1000);
    s.expect("A\x7f!\r", "got[session!]");
    // The program's own changes to the line, and keys it types.
    s.expect("!preset abc\r", "= 0");
    s.shows("X", "rl> Xabc");
    s.expect("\r", "got[Xabc]");
    s.expect("!stuff xy\r", "= 0");
    s.expect("z\r", "got[xyz]");
    s.shows("lost", "rl> lost");
    s.expect("\x03", "interrupted");
    s.expect("kept\r", "got[kept]");
    s.expect("\x04", "EOF");
    EXPECT_EQ(h.finish(), 0) << visible(h.output());
    EXPECT_TRUE(h.isCooked());
}

// A prompt coloured the readline way reaches the editor whole: the marked
// sequences take no cells and colour what they surround.
TEST(ReadlineCallback, ColouredPromptsKeepTheirColours) {
    HostOptions o = programOptions({QV_RL_HOST_SHARED});
    o.env.push_back("QV_RL_CALLBACK=1");
    o.env.push_back("QV_RL_PROMPT=\001\x1b[32m\002rl>\001\x1b[0m\002 ");
    PtyHost h({}, o);
    Session s{h};
    s.shows("abc", "rl> abc");
    EXPECT_EQ(h.screen().looks[0][0], "fg2");
    EXPECT_EQ(h.screen().looks[0][3], "");
    EXPECT_EQ(h.screen().cursor_col, 7);
    s.expect("\r", "got[abc]");
    s.expect("\x04", "EOF");
    EXPECT_EQ(h.finish(), 0);
}

// History calls and files, seen through Up and through the files.
TEST(ReadlineHistory, FilesStifleAndRecall) {
    HostOptions o = programOptions({QV_RL_HOST_SHARED});
    const std::string dir = o.cwd;
    PtyHost h({}, o);
    Session s{h};
    s.expect("!read missing\r", "= 2");  // ENOENT
    s.expect("one\r", "got[one]");
    s.expect("two\r", "got[two]");
    s.expect("three\r", "got[three]");
    s.expect("!write h1\r", "= 0");
    EXPECT_EQ(readFile(dir + "/h1"), "one\ntwo\nthree\n");
    struct stat st;
    ASSERT_EQ(stat((dir + "/h1").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    // A command line never entered the history: readline() adds nothing.
    s.expect("!stifle 2\r", "= 1");
    s.expect(kUp + kUp + kUp + "\r", "got[two]");
    s.expect("!write h2\r", "= 0");
    EXPECT_EQ(readFile(dir + "/h2"), "three\ntwo\n");
    s.expect("!unstifle\r", "= 2");
    s.expect("!clear\r", "= 0");
    s.expect(kUp + "\r", "got[]");
    s.expect("!read h1\r", "= 0");
    s.expect(kUp + "\r", "got[three]");
    s.expect("!append 1 h2\r", "= 0");
    s.expect("!append 1 nofile\r", "= 2");
    EXPECT_EQ(readFile(dir + "/h2"), "three\ntwo\nthree\n");
    s.expect("!trunc h2 2\r", "= 0");
    EXPECT_EQ(readFile(dir + "/h2"), "two\nthree\n");
    s.expect("\x04", "EOF");
    EXPECT_EQ(h.finish(), 0);
}

// Positions from history_base, entries taken out and replaced, time stamps,
// and libedit's file format kept as found.
TEST(ReadlineHistory, EntriesStampsAndBothFileFormats) {
    HostOptions o = programOptions({QV_RL_HOST_SHARED});
    const std::string dir = o.cwd;
    PtyHost h({}, o);
    Session s{h};
    s.expect("!stamps\r", "= 0");
    for (const char *line : {"a", "b", "c"}) s.expect(std::string(line) + "\r", "got[");
    s.expect("!stifle 2\r", "= 1");
    s.expect("!get 2\r", "entry[b]\r\n= 2");
    s.expect("!get 1\r", "entry[(none)]");
    s.expect("!unstifle\r", "= 2");
    s.expect("!replace 0 B\r", "old[b]\r\n= 2");
    s.expect(kUp + kUp + "\r", "got[B]");
    s.expect("!remove 1\r", "old[c]\r\n= 2");
    s.expect("!where\r", "= 2");
    s.expect("!write h\r", "= 0");
    const std::string stamped = readFile(dir + "/h");
    EXPECT_TRUE(std::regex_match(stamped, std::regex("#[0-9]+\nB\n#[0-9]+\nB\n"))) << stamped;
    s.expect("!clear\r", "= 0");
    s.expect("!read h\r", "= 0");
    s.expect("!length\r", "= 2");
    s.expect("!get 1\r", "entry[B]");

    std::ofstream(dir + "/le") << "_HiStOrY_V2_\nprint\\0401+1\nsay\\040h\\303\\251\\134\n";
    s.expect("!read le\r", "= 0");
    s.expect(kUp + "\r", "got[say h\xc3\xa9\\]");
    s.expect("!write le\r", "= 0");
    EXPECT_EQ(readFile(dir + "/le"), "_HiStOrY_V2_\nB\nB\nprint\\0401+1\nsay\\040h\xc3\xa9\\134\nsay\\040h\xc3\xa9\\134\n");
    s.expect("\x04", "EOF");
    EXPECT_EQ(h.finish(), 0);
}

} // namespace
