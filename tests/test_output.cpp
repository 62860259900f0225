// The host's output calls and the history file, through the public calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "pty_harness.h"

using qvtest::HostOptions;
using qvtest::PtyHost;

namespace {

using Lines = std::vector<std::string>;

std::string run(const std::vector<std::string> &commands) {
    std::vector<std::string> all{"init"};
    all.insert(all.end(), commands.begin(), commands.end());
    all.push_back("destroy");
    PtyHost h(all);
    EXPECT_EQ(h.finish(), 0);
    return h.output();
}

// Outside a read the terminal is in the host's mode, whose output processing
// turns the line feed into CR LF.
TEST(Output, StringsAndLineEnds) {
    EXPECT_EQ(run({"put:"}), "");
    EXPECT_EQ(run({"putln:"}), "<cr>\r\n");
    EXPECT_EQ(run({"put:h\xc3\xa9llo"}), "h\xc3\xa9llo");
    EXPECT_EQ(run({"putln:ok"}), "ok<cr>\r\n");
    EXPECT_EQ(run({"putln:bad \xe9", "put:\xff"}), ""); // invalid UTF-8 writes nothing
    EXPECT_EQ(run({"putchar:321"}), "A");                // the low byte only
}

TEST(Output, BlanksGoIntoTheInputArea) {
    // Blanks over blank cells change nothing on screen: only the cursor moves.
    EXPECT_EQ(run({"blanks:3"}), "<cuf 3>");
    EXPECT_EQ(run({"blanks:0"}), "");
}

TEST(Output, TextWrittenBetweenReadsKeepsTheNextPromptIntact) {
    HostOptions o;
    o.term = "xterm-256color";
    o.cols = 30;
    PtyHost h({"init", "line:> ", "putln:result", "line:> ", "destroy"}, o);
    h.keys("one\rtwo\r");
    ASSERT_EQ(h.finish(), 0);
    const qvtest::Screen s = h.screen();
    EXPECT_EQ(s.row(0), "> one");
    EXPECT_EQ(s.row(1), "result");
    EXPECT_EQ(s.row(2), "> two");
}

// ---------------------------------------------------------------------------

TEST(HistoryFile, SurvivesARestartAndLoadsAwkwardFiles) {
    const std::string dir = qvtest::tempDir();
    std::string file;
    for (int i = 0; i < 1500; i++) file += "line " + std::to_string(i) + "\r\n";
    std::ofstream(dir + "/term.history", std::ios::binary) << file << std::string("nul\0rest", 8);
    HostOptions o;
    o.term = "xterm-256color";
    PtyHost h({"init:dir=" + dir, "load", "line:", "line:", "line:", "destroy"}, o);
    // Page Up: the oldest kept entry. The entry holding a NUL is skipped, so
    // after read 0 added its line, two Ups reach the last one before it.
    h.keys("\x1b[5~\r\x1b[A\x1b[A\rnew\r");
    ASSERT_EQ(h.finish(), 0);
    ASSERT_EQ(h.lines().size(), 3u);
    EXPECT_EQ(h.lines()[0], "line 500\r");
    EXPECT_EQ(h.lines()[1], "line 1499\r");
    EXPECT_EQ(h.lines()[2], "new");
    // Restart: the saved file has the newest 1000 entries and the new line.
    const std::string saved = qvtest::readFile(dir + "/term.history");
    EXPECT_EQ(saved.substr(saved.size() - 4), "new\n");
    PtyHost again({"init:dir=" + dir, "load", "line:", "destroy"}, o);
    again.keys("\x1b[A\r");
    ASSERT_EQ(again.finish(), 0);
    EXPECT_EQ(again.lines(), Lines{"new"});
}

TEST(HistoryFile, ADirectoryInPlaceOfTheFileIsLeftAlone) {
    const std::string dir = qvtest::tempDir();
    ASSERT_EQ(mkdir((dir + "/term.history").c_str(), 0700), 0);
    PtyHost h({"init:dir=" + dir, "load", "line:", "destroy"});
    h.keys("x\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), Lines{"x"});
}

// A password read before the load leaves nothing behind that could keep
// the file's entries out.
TEST(HistoryFile, APasswordReadBeforeTheLoadCostsNothing) {
    const std::string dir = qvtest::tempDir();
    std::ofstream(dir + "/term.history") << "alpha\nbeta\ngamma\n";
    PtyHost h({"init:dir=" + dir, "mask:*:pw: ", "load", "line:", "destroy"});
    h.keys("secret\r\x1b[A!\r");
    ASSERT_EQ(h.finish(), 0);
    EXPECT_EQ(h.lines(), (Lines{"secret", "gamma!"}));
    EXPECT_EQ(qvtest::readFile(dir + "/term.history"), "alpha\nbeta\ngamma\ngamma!\n");
}

TEST(HistoryFile, SessionsSavingAtOnceLoseNothing) {
    const std::string dir = qvtest::tempDir();
    std::ofstream(dir + "/term.history") << "seed\n";
    std::vector<std::unique_ptr<PtyHost>> hosts;
    for (int i = 0; i < 20; i++)
        hosts.emplace_back(new PtyHost({"init:dir=" + dir, "line:", "destroy"}));
    for (int i = 0; i < 20; i++) hosts[static_cast<size_t>(i)]->keys("entry " + std::to_string(i) + "\r");
    for (auto &h : hosts) ASSERT_EQ(h->finish(), 0);
    std::istringstream saved(qvtest::readFile(dir + "/term.history"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(saved, line);) lines.push_back(line);
    ASSERT_EQ(lines.size(), 21u);
    EXPECT_EQ(lines[0], "seed");
    for (int i = 0; i < 20; i++)
        EXPECT_NE(std::find(lines.begin(), lines.end(), "entry " + std::to_string(i)), lines.end()) << i;
}

} // namespace
