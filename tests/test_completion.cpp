// Tab completion as a user meets it: the candidates a host offers, the
// listing, its pages and descriptions, and the menu, in a pseudo-terminal.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <unistd.h>

#include "pty_harness.h"

using namespace qvtest;

namespace {

// Past 100 candidates the list waits for a yes; 10,000 leave the editor
// working; a completer's bad arguments and invalid text are refused.
TEST(Completion, ManyAndBadCandidates) {
    PtyHost h({"completer:many=10000", "init", "line:> ", "completer:bad", "line:> ", "destroy"}, xterm(30, 12));
    EXPECT_EQ(h.typed("it\t\tnx\t\t\r" "o\t\r"), (Lines{"itemx", "ok"}));
    EXPECT_NE(h.output().find("Display all 10000 possibilities? (y or n)"), std::string::npos);
    EXPECT_EQ(h.records("ADDS"), Lines{"ADDS 0 0 0 0"});

    PtyHost listed({"completer:many=150", "init", "line:> ", "destroy"}, xterm(30, 12));
    EXPECT_EQ(listed.typed("item\t\ty\r"), Lines{"item"});
    const Screen s = listed.screen();
    EXPECT_EQ(s.row(9), "item049  item099  item149"); // the last row of the list,
    EXPECT_EQ(s.row(10), "> item");                    // then the input again

    // The question's answers: y, Y and Space list; anything else does not.
    for (const auto &[answer, lists] : std::vector<std::pair<std::string, bool>>{
             {"y", true}, {"Y", true}, {" ", true}, {"n", false}, {"N", false}, {kDelete, false}, {"\x07", false}}) {
        PtyHost q({"completer:many=150", "init", "line:> ", "destroy"}, xterm(30, 12));
        q.typed("item\t\t" + answer + "\r");
        EXPECT_EQ(q.output().find("item149") != std::string::npos, lists) << visible(answer);
    }

    // readline's variables: the list at the first Tab, the question from 20
    // candidates on, the columns across the rows.
    QV_NEEDS(TERM_FEATURE_BINDINGS);
    const std::string file = tempDir() + "/inputrc";
    std::ofstream(file) << "set show-all-if-ambiguous on\nset completion-query-items 20\n"
                           "set print-completions-horizontally on\n";
    PtyHost v({"completer:many=20", "init", "bindings:" + file, "line:> ", "destroy"}, xterm(30, 12));
    EXPECT_EQ(v.typed("item0\ty\r"), Lines{"item0"});
    EXPECT_NE(v.output().find("Display all 20 possibilities? (y or n)"), std::string::npos);
    EXPECT_NE(v.output().find("item019"), std::string::npos);
    EXPECT_NE(v.output().find("item000  item001  item002"), std::string::npos);
    // A shared prefix longer than completion-prefix-display-length is "...".
    const std::string elide = tempDir() + "/inputrc";
    std::ofstream(elide) << "set show-all-if-ambiguous on\nset completion-prefix-display-length 3\n";
    PtyHost e({"completer:many=12", "init", "bindings:" + elide, "line:> ", "destroy"}, xterm(30, 12));
    EXPECT_EQ(e.typed("item0\t\r"), Lines{"item0"});
    EXPECT_NE(e.output().find("...00  ...03  ...06  ...09"), std::string::npos) << visible(e.output());
}

// Candidates with descriptions: one a row, the descriptions aligned after
// the widest display, cut with an ellipsis at the width, wide text measured
// by its cells; too narrow for them, the displays alone. The display form
// shows, the replacement goes in.
TEST(Completion, DescriptionsBesideTheCandidates) {
    QV_NEEDS(TERM_FEATURE_COMPLETION_MENU);
    for (const int cols : {40, 20}) {
        PtyHost h({"completer:described", "init", "line:> ", "destroy"}, xterm(cols, 12));
        EXPECT_EQ(h.typed("s\t\tet\tx\r"), Lines{"set x"});
        const std::vector<std::string> rows = h.screen().shown();
        const auto at = std::find(rows.begin(), rows.end(), "> s");
        ASSERT_NE(at, rows.end()) << cols;
        const std::vector<std::string> listing(at + 1, at + 5);
        if (cols == 40)
            EXPECT_EQ(listing, (std::vector<std::string>{
                                   "set KEY VALUE  -- assign a setting",
                                   "shell          -- \xe6\x89\x93\xe5\xbc\x80\xe5\xa4\x96\xe5\xa3\xb3",
                                   "show           -- display the running \xe2\x80\xa6",
                                   "shutdown       -- power the device off"}));
        else
            EXPECT_EQ(listing, (std::vector<std::string>{"set KEY VALUE", "shell", "show", "shutdown"}));
    }
}

// readline's page-completions: a listing taller than the terminal waits at
// --More-- for Space (a page), Return (a row) or anything else (the end).
TEST(Completion, PagesAtMore) {
    QV_NEEDS(TERM_FEATURE_BINDINGS);
    const std::string file = tempDir() + "/inputrc";
    std::ofstream(file) << "set page-completions on\nset completion-query-items 0\n";
    PtyHost h({"completer:many=60", "init", "bindings:" + file, "cb:idle=tick", "line:> ", "destroy"}, xterm(30, 8));
    h.keys("item\t\t");
    h.waitScreen("--More--");
    h.settle();
    EXPECT_EQ(h.screen().row(7), "--More--");
    EXPECT_EQ(h.screen().row(6), "item006  item026  item046");
    h.keys(" ");
    h.waitScreen("item013  item033  item053");
    h.keys("\r");
    h.waitScreen("item014  item034  item054");
    EXPECT_EQ(h.typed("q\r"), Lines{"item0"}); // the first Tab put in what they share
    EXPECT_EQ(h.output().find("item055"), std::string::npos);
    EXPECT_EQ(h.screen().shown().back(), "> item0");
}

// The completion menu: Tab puts the first candidate in place and lists them
// all below the input, the chosen one in reverse video; Tab, Shift-Tab and
// the arrows choose; a late Escape puts the typed text back; Return takes
// the choice without entering the line. The listing goes with the menu and
// leaves nothing on the screen.
TEST(Completion, TheMenuChoosesAndLeavesNoTrace) {
    QV_NEEDS(TERM_FEATURE_COMPLETION_MENU);
    PtyHost h({"completer:words", "option:12=1", "init", "cb:idle=tick", "line:> ", "destroy"}, xterm(40, 12));
    auto chosen = [&](const std::string &keys, const std::string &line) {
        h.keys(keys);
        h.waitScreen("> " + line);
        h.settle();
        const Screen s = h.screen();
        const size_t at = s.row(1).find(line.substr(0, line.size() - 1));
        return at == std::string::npos ? std::string("not listed") : s.looks[1][at];
    };
    EXPECT_EQ(chosen("pr\t", "print "), "reverse");
    EXPECT_EQ(h.screen().row(1), "print    printf   private  prompt");
    const size_t before = h.output().size();
    EXPECT_EQ(chosen("\t", "printf "), "reverse");
    // A step writes the cells of the two candidates that change, no more.
    const std::string step = h.output().substr(before);
    EXPECT_NE(step.find("\x1b[7mprintf "), std::string::npos) << visible(step);
    EXPECT_EQ(step.find("private"), std::string::npos) << visible(step);
    EXPECT_EQ(step.find("prompt"), std::string::npos) << visible(step);
    EXPECT_EQ(chosen("\x1b[Z", "print "), "reverse");
    EXPECT_EQ(chosen(kRight + kRight, "private "), "reverse");
    EXPECT_EQ(chosen(kLeft, "printf "), "reverse");
    h.keys("\x1b");
    usleep(300 * 1000);
    h.settle();
    EXPECT_EQ(h.screen().shown(), Lines{"> pr"}); // the text as typed, no listing
    h.keys("\t\t\r");
    h.waitScreen("> printf ");
    h.settle();
    EXPECT_EQ(h.screen().shown(), Lines{"> printf"}); // taken, the line not entered
    EXPECT_EQ(h.typed("x\r"), Lines{"printf x"});
    EXPECT_EQ(h.screen().shown(), Lines{"> printf x"});
}

// More candidates than rows: the listing keeps to the room below the input
// and scrolls with the choice; a resize lays it out again at the new width.
TEST(Completion, TheMenuScrollsAndFollowsAResize) {
    QV_NEEDS(TERM_FEATURE_COMPLETION_MENU);
    PtyHost h({"completer:many=60", "option:12=1", "init", "cb:idle=tick", "line:> ", "destroy"}, xterm(30, 8));
    h.keys("item\t");
    h.waitScreen("> item000 ");
    h.settle();
    EXPECT_EQ(h.screen().shown().size(), 7u); // six rows of the listing, one to spare
    EXPECT_EQ(h.screen().row(1), "item000  item020  item040");
    for (int i = 0; i < 9; i++) h.keys(kDown);
    h.waitScreen("> item009 ");
    h.settle();
    Screen s = h.screen();
    EXPECT_EQ(s.row(6), "item009  item029  item049"); // scrolled to keep it in view
    EXPECT_EQ(s.looks[6][0], "reverse");
    h.resize(8, 40);
    h.keys(kDown);
    h.waitScreen("> item010 ");
    h.settle();
    s = h.screen();
    const Lines rows = s.shown();
    EXPECT_NE(std::find(rows.begin(), rows.end(), "item010  item025  item040  item055"), rows.end())
        << visible(rows.back());
    EXPECT_EQ(h.typed("\x07\r"), Lines{"item"});
}

// Text the library draws but did not compose (candidates, a history entry
// recalled, hinted or found) shows its control characters and bad bytes,
// and never sends them: every host's output is checked for that too.
TEST(Completion, WhatTheLibraryDidNotComposeIsShownNeverSent) {
    const std::string dir = historyDir("h\x1b]0;T\x07" "end\n");
    PtyHost h({"init:dir=" + dir, "load", "option:2=1", "completer:hostile", "cb:idle=tick", "line:> ", "line:> ",
               "line:> ", "destroy"},
              xterm(60, 12));
    h.keys("a\t\t");
    h.settle();
    std::string all;
    for (const std::string &row : h.screen().shown()) all += row + "\n";
    for (const std::string shown : {"a^[]0;PWNED^GX", "a^[[2Jclear", "a\\x9b2J", "a\\xff\\xfe"})
        EXPECT_NE(all.find(shown), std::string::npos) << shown << " in\n" << all;
    h.keys("\x15h");
    h.settle();
    EXPECT_EQ(h.screen().row(h.screen().cursor_row), "> h^[]0;T^Gend"); // the hint
    h.keys("\r" + kUp + kUp);
    h.settle();
    EXPECT_EQ(h.screen().row(h.screen().cursor_row), "> h^[]0;T^Gend"); // recalled
    h.keys("\x15\x12" "end");
    h.settle();
    EXPECT_EQ(h.screen().row(h.screen().cursor_row), "(reverse-i-search)`end': h^[]0;T^Gend"); // found
    EXPECT_EQ(h.typed("\r\r"), (Lines{"h", "h\x1b]0;T\x07" "end", ""}));
}

} // namespace
