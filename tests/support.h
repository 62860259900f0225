// What every test program shares, the fuzz targets included: scratch files,
// the screen libvterm renders from a terminal's output, and an oracle for
// the screen a prompt and a text must give.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qvtest {

struct Screen {
    std::vector<std::string> rows; // UTF-8, trailing blanks kept
    // How each cell looks: "" for plain, else "fg<n>", "bg<n>", "bold",
    // "italic", "underline", "reverse" joined by '+'.
    std::vector<std::vector<std::string>> looks;
    int cursor_row = 0;
    int cursor_col = 0;
    // Row r with trailing blanks removed.
    std::string row(int r) const;
    // Every row so, up to the last one that is not blank.
    std::vector<std::string> shown() const;
};

// Where in the output the window changed to a new size.
struct Resize {
    size_t at;
    int rows, cols;
};

// The bytes written for a readable test terminal (tests/terminfo) with its
// tokens, <cuu 2> and the like, turned into the xterm sequences they stand
// for, so that the emulator below can render them too.
std::string fromReadable(const std::string &bytes);

// The escape sequences in bytes that the library may not write on terminal
// term: anything but SGR, bracketed-paste mode and the capabilities of term's
// description that the library uses. Also a string sequence (OSC, DCS, APC,
// PM, SOS) of any kind and a C1 control. One line for each, empty when none.
// term is looked up as TERMINFO and the system's directories have it.
std::vector<std::string> foreignEscapes(const std::string &bytes, const std::string &term);

// The screen an xterm-like emulator shows after the bytes.
Screen render(const std::string &bytes, int rows, int cols, const std::vector<Resize> &resizes = {});

// The rows a prompt and a text must take at a width, trailing blanks
// removed, built without the library: a unit (a character, a wide one, a
// control character as ^X) never splits across rows; a combining mark joins
// the character before it, or takes a blank cell of its own; each line after
// a line break starts with a blank indent as wide as the prompt; a row that
// fills up exactly is followed by a fresh one. The cursor stands where
// text[cursor] goes.
struct Expected {
    std::vector<std::string> rows;
    int cursor_row = 0, cursor_col = 0;
};
Expected expectedScreen(const std::wstring &prompt, const std::wstring &text, size_t cursor, int cols);
// Well-formed UTF-8 as the library's wide characters.
std::wstring wideOf(const std::string &utf8);

// A fresh empty directory under the system's temporary directory.
std::string tempDir();
// A fresh directory whose term.history holds content.
std::string historyDir(const std::string &content);
// The whole content of a file; empty when it cannot be read.
std::string readFile(const std::string &path);
// How often part occurs in s, overlaps included.
int count(const std::string &s, const std::string &part);

} // namespace qvtest
