// Random key streams, and after each one the promise the editor makes: the
// terminal shows exactly the text the host will get, with the cursor where
// the next key acts. Typing a marker letter, then Return, tells where in the
// returned line the cursor was. Every other round runs with lean output and
// its keys one at a time, so each is painted on its own.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

#include "pty_harness.h"

using namespace qvtest;

namespace {

// The row the current input starts on: the last row from base on that
// begins with the prompt (text and indents never do).
int inputStart(const Screen &s, int base, const std::string &prompt) {
    int start = base;
    for (int r = base; !prompt.empty() && r < static_cast<int>(s.rows.size()); r++)
        if (s.rows[static_cast<size_t>(r)].compare(0, prompt.size(), prompt) == 0) start = r;
    return start;
}

TEST(Property, TheScreenAlwaysShowsTheLineAndTheCursor) {
    const std::vector<std::string> keys = {kLeft, kRight, "\x01", "\x05", "\x7f", kDelete, "\x0b",
                                           kUp,   kDown,  kPageUp, kPageDown, "\r", "\x07"};
    std::mt19937 rng(getenv("QV_SEED") ? static_cast<unsigned>(atoi(getenv("QV_SEED"))) : 20261123u);
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    for (int round = 0; round < (getenv("QV_ROUNDS") ? atoi(getenv("QV_ROUNDS")) : 12); round++) {
        const int cols = 10 + pick(91);
        std::string prompt, history;
        const int plen = pick(cols + 6);
        for (int i = 0; i < plen; i++) prompt += "0123456789>$%:"[pick(14)];
        const std::string shown = plen > cols ? prompt.substr(0, static_cast<size_t>(cols - 1)) : prompt;
        const std::wstring wide_shown(shown.begin(), shown.end());
        for (int i = 0; i < 4; i++) history += std::string(static_cast<size_t>(pick(2 * cols)), 'a' + pick(26)) + "\n";
        HostOptions o = xterm(cols, 60);
        o.cwd = historyDir(history);
        const bool lean = round % 2 == 1;
        PtyHost h({"init:dir=" + o.cwd, "load", std::string("option:8=") + (lean ? "1" : "0"), "cb:complete=marker", "cb:keep=1", "cb:idle=tick",
                   "line:" + prompt, "line:" + prompt, "line:" + prompt, "destroy"},
                  o);
        int base = 0;
        for (int read = 0; read < 3; read++) {
            SCOPED_TRACE(std::string(lean ? "lean, " : "") + "round " + std::to_string(round) + ", read " + std::to_string(read) + ", " +
                         std::to_string(cols) + " columns, prompt \"" + prompt + "\"");
            h.waitRead(read);
            std::string burst;
            for (int k = 0, n = 1 + pick(40); k < n; k++) {
                const int r = pick(100);
                const std::string &key = keys[static_cast<size_t>(pick(static_cast<int>(keys.size())))];
                std::string one;
                if (r < 55)
                    one = std::string(1, static_cast<char>('a' + pick(26)));
                else if (r < 60)
                    one = std::string(1, "()"[pick(2)]);
                else if (key != "\x07" || !shown.empty()) // after Ctrl-G the new prompt must be findable
                    one = key;
                burst += one;
                if (lean && !one.empty()) {
                    h.keys(one);
                    usleep(3000);
                }
            }
            if (!lean) h.keys(burst);
            h.settle();
            const Screen s = h.screen();
            const char marker = static_cast<char>('A' + read);
            h.keys(std::string(1, marker) + "\r");
            h.waitEnd(read);
            ASSERT_EQ(h.lines().size(), static_cast<size_t>(read + 1));
            const std::string line = h.lines().back();
            const size_t at = line.find(marker);
            ASSERT_NE(at, std::string::npos) << line;

            SCOPED_TRACE(testing::PrintToString(s.shown()) + " text \"" + line + "\" after the keys " + visible(burst));
            const int start = inputStart(s, base, shown);
            const std::wstring text(line.begin(), line.end());
            const Expected e = expectedScreen(wide_shown, text.substr(0, at) + text.substr(at + 1), at, cols);
            for (int r = start; r < static_cast<int>(s.rows.size()); r++)
                ASSERT_EQ(s.row(r), static_cast<size_t>(r - start) < e.rows.size() ? e.rows[r - start] : "") << r;
            EXPECT_EQ(s.cursor_row, start + e.cursor_row);
            EXPECT_EQ(s.cursor_col, e.cursor_col);
            base = start + static_cast<int>(expectedScreen(wide_shown, text, 0, cols).rows.size());
        }
        ASSERT_EQ(h.finish(), 0);
    }
}

} // namespace

namespace {

// A line looks the same however it was reached: after any keys, the input
// area shows what a fresh read started with the same text and cursor
// (term_editSetLine) shows, on every test terminal, with wide and combining
// text, prompts that end in the last two columns, and lean output on and
// off. The readable terminals' tokens are rendered as the sequences they
// stand for.
TEST(Property, ALineLooksTheSameHoweverItWasReached) {
    const std::vector<std::string> terms = {"xterm-256color", "qv-readable", "qv-nohpa",  "qv-nocuu",
                                            "qv-nocr",        "qv-leftbs",   "qv-zero",   "qv-xterm-nodim",
                                            "qv-colour",      "qv-insdel",   "qv-shape"};
    const std::vector<std::string> keys = {kLeft,  kRight, "\x01", "\x05", "\x7f", kDelete, "\x17",
                                           "\x19", "\x1f", "\x0b", "\xed\x95\x9c", "e\xcc\x81", "\xe4\xb8\xad"};
    std::mt19937 rng(getenv("QV_SEED") ? static_cast<unsigned>(atoi(getenv("QV_SEED"))) : 20261125u);
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    const int rounds = getenv("QV_ROUNDS") ? atoi(getenv("QV_ROUNDS")) : 2 * static_cast<int>(terms.size());
    for (int round = 0; round < rounds; round++) {
        const std::string &term = terms[static_cast<size_t>(round) % terms.size()];
        const bool lean = (round / static_cast<int>(terms.size())) % 2 == 1;
        const int cols = 8 + pick(40);
        // The first round of each terminal: a wide character that the
        // prompt's last free column pushes down, taken back.
        const bool margin = round < static_cast<int>(terms.size());
        const int r = pick(3);
        const int plen = margin || r == 0 ? cols - 1 : r == 1 ? cols - 2 : pick(cols);
        std::string prompt;
        for (int i = 0; i < plen; i++) prompt += "0123456789>$%:"[pick(14)];
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
        PtyHost typed({"init", "cb:idle=tick", option, "utf8:" + prompt, "destroy"}, o);
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

        PtyHost fresh({"init", "cb:idle=tick", option, "preset:" + std::to_string(at) + ":" + line, "loop:" + prompt, "destroy"}, o);
        fresh.waitRead(0);
        fresh.settle();
        const Screen b = render(fromReadable(fresh.output()), o.rows, cols);
        EXPECT_EQ(a.shown(), b.shown()) << "text \"" << line << "\", cursor at byte " << at;
        EXPECT_EQ(a.cursor_row, b.cursor_row);
        EXPECT_EQ(a.cursor_col, b.cursor_col);
        fresh.keys("\r");
        ASSERT_EQ(fresh.finish(), 0);
        if (HasFailure()) return;
    }
}

} // namespace
