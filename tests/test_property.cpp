// Random key streams, and after each one the promise the editor makes: the
// terminal shows exactly the text the host will get, with the cursor where
// the next key acts. The cursor is checked by typing a marker letter and
// finding it in the cell the cursor was in.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "pty_harness.h"

using qvtest::HostOptions;
using qvtest::PtyHost;
using qvtest::Screen;

namespace {

std::string trimmed(std::string s) {
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

// The rows a text must take: each line behind the prompt (the first) or a
// blank indent as wide, wrapped at the width; a line that exactly fills its
// rows leaves the cursor an empty row below.
std::vector<std::string> expectedRows(const std::string &prompt, const std::string &text, int cols) {
    std::vector<std::string> rows;
    size_t from = 0;
    bool first = true;
    for (;;) {
        const size_t nl = text.find('\n', from);
        const std::string line = text.substr(from, nl == std::string::npos ? nl : nl - from);
        const std::string cells = (first ? prompt : std::string(prompt.size(), ' ')) + line;
        for (size_t i = 0; i <= cells.size(); i += static_cast<size_t>(cols))
            rows.push_back(trimmed(cells.substr(i, static_cast<size_t>(cols))));
        if (nl == std::string::npos) break;
        from = nl + 1;
        first = false;
    }
    return rows;
}

// The row the current input starts on: the last row from base on that
// begins with the prompt (text and indents never do).
int inputStart(const Screen &s, int base, const std::string &prompt) {
    int start = base;
    if (prompt.empty()) return start;
    for (int r = base; r < static_cast<int>(s.rows.size()); r++)
        if (s.rows[static_cast<size_t>(r)].compare(0, prompt.size(), prompt) == 0) start = r;
    return start;
}

std::string dump(const Screen &s) {
    std::string out;
    for (size_t r = 0; r < s.rows.size(); r++)
        if (!s.row(static_cast<int>(r)).empty()) out += std::to_string(r) + "|" + s.row(static_cast<int>(r)) + "\n";
    return out;
}

void expectShows(const Screen &s, int start, const std::string &prompt, const std::string &text,
                 int cols, const std::string &what) {
    SCOPED_TRACE(dump(s));
    const std::vector<std::string> rows = expectedRows(prompt, text, cols);
    for (size_t i = 0; i < rows.size(); i++)
        ASSERT_EQ(s.row(start + static_cast<int>(i)), rows[i])
            << what << ": row " << i << " of the input, text \"" << text << "\"";
    for (int r = start + static_cast<int>(rows.size()); r < static_cast<int>(s.rows.size()); r++)
        ASSERT_EQ(s.row(r), "") << what << ": stale row " << r;
}

std::string withoutMarker(std::string s, char marker) {
    s.erase(s.find(marker), 1);
    return s;
}

TEST(Property, TheScreenAlwaysShowsTheLineAndTheCursor) {
    const std::vector<std::string> keys = {
        "\x1b[D", "\x1b[C", "\x01", "\x05", "\x7f", "\x1b[3~", "\x0b", "\x1b[A", "\x1b[B",
        "\x1b[5~", "\x1b[6~", "\r", "\x07"};
    std::mt19937 rng(getenv("QV_SEED") ? static_cast<unsigned>(atoi(getenv("QV_SEED"))) : 20261123u);
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    for (int round = 0; round < (getenv("QV_ROUNDS") ? atoi(getenv("QV_ROUNDS")) : 12); round++) {
        const int cols = 10 + pick(91);
        std::string prompt;
        const int plen = pick(cols + 6);
        for (int i = 0; i < plen; i++) prompt += "0123456789>$%:"[pick(14)];
        const std::string shown = plen > cols ? prompt.substr(0, static_cast<size_t>(cols - 1)) : prompt;

        const std::string dir = qvtest::tempDir();
        std::ofstream hist(dir + "/term.history");
        for (int i = 0; i < 4; i++) hist << std::string(static_cast<size_t>(pick(2 * cols)), static_cast<char>('a' + pick(26))) << "\n";
        hist.close();
        HostOptions o;
        o.term = "xterm-256color";
        o.cols = cols;
        o.rows = 60;
        o.cwd = dir;
        PtyHost h({"init:dir=" + dir, "load", "cb:complete=marker", "cb:keep=1", "cb:idle=tick",
                   "line:" + prompt, "line:" + prompt, "line:" + prompt, "destroy"},
                  o);
        int base = 0;
        for (int read = 0; read < 3; read++) {
            SCOPED_TRACE("round " + std::to_string(round) + ", read " + std::to_string(read) +
                         ", " + std::to_string(cols) + " columns, prompt \"" + prompt + "\"");
            h.waitRead(read);
            std::string burst;
            const int n = 1 + pick(40);
            for (int k = 0; k < n; k++) {
                const int r = pick(100);
                if (r < 55)
                    burst += static_cast<char>('a' + pick(26));
                else if (r < 60)
                    burst += "()"[pick(2)];
                else {
                    const std::string &key = keys[static_cast<size_t>(pick(static_cast<int>(keys.size())))];
                    if (key == "\x07" && shown.empty()) continue; // its new prompt would be unfindable
                    burst += key;
                }
            }
            h.keys(burst);
            h.settle();
            const Screen before = h.screen();
            const char marker = static_cast<char>('A' + read);
            h.keys(std::string(1, marker));
            h.settle();
            const Screen after = h.screen();
            h.keys("\r");
            h.waitEnd(read);
            ASSERT_EQ(h.lines().size(), static_cast<size_t>(read + 1));
            const std::string line = h.lines().back();
            ASSERT_NE(line.find(marker), std::string::npos) << line;

            const int start = inputStart(after, base, shown);
            expectShows(before, start, shown, withoutMarker(line, marker), cols, "before the marker");
            expectShows(after, start, shown, line, cols, "after the marker");
            EXPECT_EQ(after.rows[static_cast<size_t>(before.cursor_row)][static_cast<size_t>(before.cursor_col)], marker)
                << "the cursor was not where the next key acted";
            base = start + static_cast<int>(expectedRows(shown, line, cols).size());
        }
        ASSERT_EQ(h.finish(), 0);
    }
}

} // namespace
