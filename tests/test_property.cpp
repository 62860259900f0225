// Random keys on every test terminal, and after them the promises the editor
// makes about the screen: it shows exactly the text the host gets, with the
// cursor where the next key acts, and it shows it as a fresh read started
// with the same text and cursor (term_editSetLine) does, however the keys
// reached it. With wide and combining text, history walks, prompts that end
// in the last two columns or run past the width, and lean output on and off.
// The readable terminals' tokens are rendered as the sequences they stand
// for.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "pty_harness.h"

using namespace qvtest;

namespace {

TEST(Property, ALineLooksTheSameHoweverItWasReached) {
    QV_NEEDS(TERM_FEATURE_EVENT_LOOP); // the fresh read starts with its line set
    const std::vector<std::string> terms = {"xterm-256color", "qv-readable", "qv-nohpa",  "qv-nocuu",
                                            "qv-nocr",        "qv-leftbs",   "qv-zero",   "qv-xterm-nodim",
                                            "qv-colour",      "qv-insdel",   "qv-shape"};
    const std::vector<std::string> keys = {kLeft,  kRight, "\x01",    "\x05",  "\x7f",       kDelete,       "\x17",
                                           "\x19", "\x1f", "\x0b",    kUp,     kDown,        kPageUp,       kPageDown,
                                           "()",   "\xed\x95\x9c", "e\xcc\x81", "\xe4\xb8\xad"};
    std::mt19937 rng(getenv("QV_SEED") ? static_cast<unsigned>(atoi(getenv("QV_SEED"))) : 20261125u);
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    const int rounds = getenv("QV_ROUNDS") ? atoi(getenv("QV_ROUNDS")) : 2 * static_cast<int>(terms.size());
    for (int round = 0; round < rounds; round++) {
        const std::string &term = terms[static_cast<size_t>(round) % terms.size()];
        const bool lean = (round / static_cast<int>(terms.size())) % 2 == 1 && (term_features() & TERM_FEATURE_LEAN_OUTPUT);
        const int cols = 8 + pick(40);
        // The first round of each terminal: a wide character that the
        // prompt's last free column pushes down, taken back.
        const bool margin = round < static_cast<int>(terms.size());
        const int r = pick(4);
        const int plen = margin || r == 0 ? cols - 1 : r == 1 ? cols - 2 : r == 2 ? pick(cols) : cols + 1 + pick(6);
        std::string prompt, history;
        for (int i = 0; i < plen; i++) prompt += "0123456789>$%:"[pick(14)];
        // A prompt wider than the window leaves the input one column.
        const std::string shown = plen > cols ? prompt.substr(0, static_cast<size_t>(cols - 1)) : prompt;
        for (int i = 0; i < 3; i++) history += std::string(static_cast<size_t>(pick(2 * cols)), 'a' + pick(26)) + "\n";
        std::string burst;
        if (margin) burst = "\xed\x95\x9c\x7f";
        for (int k = 0, n = 1 + pick(30); k < n; k++)
            burst += pick(100) < 45 ? std::string(1, static_cast<char>('a' + pick(26)))
                                    : keys[static_cast<size_t>(pick(static_cast<int>(keys.size())))];
        HostOptions o;
        o.term = term;
        o.cols = cols;
        o.rows = 30;
        SCOPED_TRACE(term + (lean ? ", lean, " : ", ") + std::to_string(cols) + " columns, prompt of " +
                     std::to_string(plen) + ", keys " + visible(burst));
        const std::string option = std::string("option:8=") + (lean ? "1" : "0");
        PtyHost typed({"init:dir=" + historyDir(history), "load", "cb:idle=tick", option, "utf8:" + prompt, "destroy"}, o);
        typed.waitRead(0);
        // One at a time, each painted on its own, where a burst would
        // paint only its end.
        if (lean || margin)
            typed.keysSlowly(burst);
        else
            typed.keys(burst);
        typed.settle();
        const Screen a = render(fromReadable(typed.output()), o.rows, cols);
        typed.keys("Z\r");
        ASSERT_EQ(typed.finish(), 0);
        ASSERT_EQ(typed.lines().size(), 1u);
        std::string line = typed.lines()[0];
        const size_t at = line.find('Z');
        ASSERT_NE(at, std::string::npos);
        line.erase(at, 1);
        SCOPED_TRACE("text \"" + line + "\", cursor at byte " + std::to_string(at));

        // A terminal that cannot move up shows one row, scrolled sideways.
        if (term != "qv-nocuu") {
            const Expected e = expectedScreen(wideOf(shown), wideOf(line), wideOf(line.substr(0, at)).size(), cols);
            for (int row = 0; row < o.rows; row++)
                ASSERT_EQ(a.row(row), static_cast<size_t>(row) < e.rows.size() ? e.rows[static_cast<size_t>(row)] : "") << row;
            EXPECT_EQ(a.cursor_row, e.cursor_row);
            EXPECT_EQ(a.cursor_col, e.cursor_col);
        }
        PtyHost fresh({"init", "cb:idle=tick", option, "preset:" + std::to_string(at) + ":" + line, "loop:" + prompt, "destroy"}, o);
        fresh.waitRead(0);
        fresh.settle();
        const Screen b = render(fromReadable(fresh.output()), o.rows, cols);
        EXPECT_EQ(a.shown(), b.shown());
        EXPECT_EQ(a.cursor_row, b.cursor_row);
        EXPECT_EQ(a.cursor_col, b.cursor_col);
        fresh.keys("\r");
        ASSERT_EQ(fresh.finish(), 0);
        if (HasFailure()) return;
    }
}

} // namespace
