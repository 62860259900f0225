#include "support.h"

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <vterm.h>

namespace qvtest {

namespace {

std::string to_utf8(uint32_t cp) {
    if (cp < 0x80) return std::string(1, static_cast<char>(cp));
    const size_t n = cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
    std::string s(n, '\0');
    for (size_t i = n - 1; i > 0; i--, cp >>= 6) s[i] = static_cast<char>(0x80 | (cp & 0x3F));
    s[0] = static_cast<char>((0xF00 >> n) | cp); // 110xxxxx, 1110xxxx or 11110xxx
    return s;
}

bool regional(uint32_t ch) { return ch >= 0x1F1E6 && ch <= 0x1F1FF; }

// The glyphs and cells of s[i]: 0 cells for a mark that joins the character
// before it (a combining mark, a Hangul syllable's vowel and final jamo, a
// variation selector), -1 for a line break. Two regional indicators are one
// flag of two cells, given with the first.
int unit(const std::wstring &s, size_t i, std::string *glyphs) {
    const auto ch = static_cast<uint32_t>(s[i]);
    const bool mark = (ch >= 0x300 && ch <= 0x36F) || (ch >= 0x1160 && ch <= 0x11FF) || (ch >= 0xFE00 && ch <= 0xFE0F);
    if (ch == '\n') return -1;
    if (regional(ch)) {
        size_t run = 0;
        while (run < i && regional(static_cast<uint32_t>(s[i - 1 - run]))) run++;
        if (run % 2 == 1) {
            glyphs->clear();
            return 0;
        }
        if (i + 1 < s.size() && regional(static_cast<uint32_t>(s[i + 1]))) {
            *glyphs = to_utf8(ch) + to_utf8(static_cast<uint32_t>(s[i + 1]));
            return 2;
        }
    }
    if (ch < 32 || ch == 127) {
        *glyphs = {'^', static_cast<char>(ch ^ 0x40)};
        return 2;
    }
    if (ch >= 0x80 && ch < 0xA0) { // a C1 control, as \x9b
        *glyphs = {'\\', 'x', "0123456789abcdef"[ch >> 4], "0123456789abcdef"[ch & 15]};
        return 4;
    }
    const auto prev = i > 0 ? static_cast<uint32_t>(s[i - 1]) : 0u;
    const bool joins = mark && i > 0 && prev >= 32 && prev != 127 && !(prev >= 0x80 && prev < 0xA0);
    *glyphs = (mark && !joins ? " " : "") + to_utf8(ch);
    if (joins) return 0;
    const bool wide = (ch >= 0x1100 && ch <= 0x115F) || (ch >= 0x2E80 && ch <= 0xA4CF) ||
                      (ch >= 0xAC00 && ch <= 0xD7A3) || (ch >= 0xF900 && ch <= 0xFAFF) ||
                      (ch >= 0xFF00 && ch <= 0xFF60) || (ch >= 0x1F300 && ch <= 0x1FAFF);
    return wide ? 2 : 1;
}

} // namespace

std::wstring wideOf(const std::string &utf8) {
    std::wstring w;
    for (size_t i = 0; i < utf8.size();) {
        const auto b = static_cast<unsigned char>(utf8[i]);
        const size_t n = b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
        uint32_t u = n == 1 ? b : b & (0xFFu >> (n + 1));
        for (size_t k = 1; k < n && i + k < utf8.size(); k++) u = u << 6 | (static_cast<unsigned char>(utf8[i + k]) & 0x3Fu);
        w += static_cast<wchar_t>(u);
        i += n;
    }
    return w;
}

Expected expectedScreen(const std::wstring &prompt, const std::wstring &text, size_t cursor, int cols) {
    Expected e;
    e.rows.emplace_back();
    int used = 0;         // cells taken on the last row
    size_t last_row = 0;  // where the last character went, for a mark to join
    int in_cell = 0;      // characters in that cell; the emulator keeps only so many
    auto put = [&](const std::string &glyphs, int cells) {
        if (cells == 0 && glyphs.empty()) return; // the second half of a flag
        if (cells == 0 && in_cell < VTERM_MAX_CHARS_PER_CELL) in_cell++, e.rows[last_row] += glyphs;
        if (cells == 0) return;
        if (used + cells > cols) e.rows.emplace_back(), used = 0;
        last_row = e.rows.size() - 1;
        in_cell = glyphs[0] == ' ' && glyphs.size() > 1 ? 2 : 1; // a lone mark shares a blank's cell
        e.rows.back() += glyphs;
        if ((used += cells) == cols) e.rows.emplace_back(), used = 0;
    };
    std::string glyphs;
    int prompt_cells = 0;
    for (size_t i = 0; i < prompt.size(); i++) {
        const int cells = unit(prompt, i, &glyphs);
        put(glyphs, cells);
        prompt_cells += cells;
    }
    for (size_t i = 0; i <= text.size(); i++) {
        const int cells = i < text.size() ? unit(text, i, &glyphs) : -1;
        if (i == cursor) {
            // Before a mark that joined its cell, the cursor stands after the cell.
            std::string later;
            int next = cells;
            for (size_t k = i + 1; next == 0 && k < text.size(); k++) next = unit(text, k, &later);
            e.cursor_row = static_cast<int>(e.rows.size()) - 1;
            e.cursor_col = used;
            if (used + next > cols) e.cursor_row++, e.cursor_col = 0;
        }
        if (i == text.size()) break;
        if (cells < 0) {
            e.rows.emplace_back();
            used = 0;
            put(std::string(static_cast<size_t>(prompt_cells), ' '), prompt_cells);
        } else {
            put(glyphs, cells);
        }
    }
    for (std::string &row : e.rows)
        while (!row.empty() && row.back() == ' ') row.pop_back();
    return e;
}

std::string Screen::row(int r) const {
    std::string s = rows.at(static_cast<size_t>(r));
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

std::vector<std::string> Screen::shown() const {
    std::vector<std::string> out;
    for (int r = 0; r < static_cast<int>(rows.size()); r++) out.push_back(row(r));
    while (!out.empty() && out.back().empty()) out.pop_back();
    return out;
}

// Once G0 has been designated ASCII (xterm's sgr0 does it), libvterm decodes
// a combining mark apart from the character before it, and a mark written in
// the pending-wrap column lands alone on the next row, where xterm puts it on
// its character. ASCII is G0 already in UTF-8 mode, so the designation is
// dropped before libvterm sees it.
static void feed(VTerm *vt, const std::string &bytes, size_t from, size_t to) {
    static const std::string kAscii = "\x1b(B";
    while (from < to) {
        size_t at = bytes.find(kAscii, from);
        if (at == std::string::npos || at + kAscii.size() > to) at = to;
        vterm_input_write(vt, bytes.data() + from, at - from);
        from = at == to ? to : at + kAscii.size();
    }
}

std::string fromReadable(const std::string &bytes) {
    struct Token {
        const char *name;
        const char *one; // without a count
        char final;      // with a count: CSI n final
    };
    static const Token tokens[] = {
        {"cr", "\r", 0},           {"cub1", "\x1b[D", 0},  {"cub", nullptr, 'D'}, {"cuf1", "\x1b[C", 0},
        {"cuf", nullptr, 'C'},      {"cuu1", "\x1b[A", 0},  {"cuu", nullptr, 'A'}, {"cud1", "\n", 0},
        {"cud", nullptr, 'B'},      {"ich1", "\x1b[@", 0},  {"ich", nullptr, '@'}, {"dch1", "\x1b[P", 0},
        {"dch", nullptr, 'P'},      {"el", "\x1b[K", 0},    {"sgr0", "\x1b[m", 0}, {"bold", "\x1b[1m", 0},
        {"dim", "\x1b[2m", 0},     {"sitm", "\x1b[3m", 0}, {"smul", "\x1b[4m", 0}, {"rev", "\x1b[7m", 0},
        {"Se", "", 0},
    };
    std::string out;
    for (size_t i = 0; i < bytes.size(); i++) {
        const size_t end = bytes[i] == '<' ? bytes.find('>', i) : std::string::npos;
        if (end == std::string::npos) {
            out += bytes[i];
            continue;
        }
        const std::string tok = bytes.substr(i + 1, end - i - 1);
        const size_t sp = tok.find(' ');
        const std::string name = tok.substr(0, sp);
        std::vector<int> args;
        for (size_t at = sp; at != std::string::npos; at = tok.find(' ', at + 1)) args.push_back(atoi(tok.c_str() + at + 1));
        std::string seq;
        bool known = true;
        if (name == "hpa" && args.size() == 1) seq = "\x1b[" + std::to_string(args[0] + 1) + "G";
        else if (name == "cup" && args.size() == 2)
            seq = "\x1b[" + std::to_string(args[0] + 1) + ";" + std::to_string(args[1] + 1) + "H";
        else if (name == "setaf" && args.size() == 1) seq = "\x1b[3" + std::to_string(args[0]) + "m";
        else if (name == "setab" && args.size() == 1) seq = "\x1b[4" + std::to_string(args[0]) + "m";
        else if (name == "Ss") seq = "";
        else {
            known = false;
            for (const Token &t : tokens)
                if (name == t.name && (t.one ? args.empty() : args.size() == 1)) {
                    seq = t.one ? t.one : "\x1b[" + std::to_string(args[0]) + t.final;
                    known = true;
                }
        }
        if (!known) {
            out += bytes[i];
            continue;
        }
        out += seq;
        i = end;
    }
    return out;
}

Screen render(const std::string &bytes, int rows, int cols, const std::vector<Resize> &resizes) {
    VTerm *vt = vterm_new(rows, cols);
    vterm_set_utf8(vt, 1);
    VTermScreen *vs = vterm_obtain_screen(vt);
    vterm_screen_reset(vs, 1);
    size_t done = 0;
    for (const Resize &r : resizes) {
        feed(vt, bytes, done, r.at);
        done = r.at;
        rows = r.rows;
        cols = r.cols;
        vterm_set_size(vt, rows, cols);
    }
    feed(vt, bytes, done, bytes.size());
    Screen screen;
    for (int r = 0; r < rows; r++) {
        std::string row;
        std::vector<std::string> looks;
        for (int c = 0; c < cols; c++) {
            VTermScreenCell cell;
            vterm_screen_get_cell(vs, VTermPos{r, c}, &cell);
            std::string look;
            auto add = [&](bool on, const std::string &what) {
                if (on) look += (look.empty() ? "" : "+") + what;
            };
            add(VTERM_COLOR_IS_INDEXED(&cell.fg) && !VTERM_COLOR_IS_DEFAULT_FG(&cell.fg),
                "fg" + std::to_string(cell.fg.indexed.idx));
            add(VTERM_COLOR_IS_INDEXED(&cell.bg) && !VTERM_COLOR_IS_DEFAULT_BG(&cell.bg),
                "bg" + std::to_string(cell.bg.indexed.idx));
            auto hex = [](const VTermColor &c) {
                char s[8];
                snprintf(s, sizeof s, "#%02x%02x%02x", c.rgb.red, c.rgb.green, c.rgb.blue);
                return std::string(s);
            };
            add(VTERM_COLOR_IS_RGB(&cell.fg) && !VTERM_COLOR_IS_DEFAULT_FG(&cell.fg), "fg" + hex(cell.fg));
            add(VTERM_COLOR_IS_RGB(&cell.bg) && !VTERM_COLOR_IS_DEFAULT_BG(&cell.bg), "bg" + hex(cell.bg));
            add(cell.attrs.bold, "bold");
            add(cell.attrs.italic, "italic");
            add(cell.attrs.underline, "underline");
            add(cell.attrs.reverse, "reverse");
            looks.push_back(look);
            // The second cell of a double-width character holds (uint32_t)-1.
            if (cell.chars[0] == static_cast<uint32_t>(-1)) continue;
            if (!cell.chars[0]) row += ' ';
            // A character and the combining marks drawn into its cell.
            for (int k = 0; k < VTERM_MAX_CHARS_PER_CELL && cell.chars[k]; k++) row += to_utf8(cell.chars[k]);
        }
        screen.rows.push_back(row);
        screen.looks.push_back(looks);
    }
    VTermPos pos;
    vterm_state_get_cursorpos(vterm_obtain_state(vt), &pos);
    screen.cursor_row = pos.row;
    screen.cursor_col = pos.col;
    vterm_free(vt);
    return screen;
}

std::string tempDir() {
    std::string pattern = (getenv("TMPDIR") ? getenv("TMPDIR") : "/tmp");
    pattern += "/quorvel-test-XXXXXX";
    if (!mkdtemp(&pattern[0])) throw std::runtime_error("mkdtemp failed");
    return pattern;
}

int count(const std::string &s, const std::string &part) {
    int n = 0;
    for (size_t at = s.find(part); at != std::string::npos; at = s.find(part, at + 1)) n++;
    return n;
}

std::string historyDir(const std::string &content) {
    const std::string dir = tempDir();
    std::ofstream(dir + "/term.history", std::ios::binary) << content;
    return dir;
}

std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

} // namespace qvtest
