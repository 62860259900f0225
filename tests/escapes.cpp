// What the library writes is held to the sequences a terminal line editor
// needs: a sequence it did not compose (from a file name, a history entry, a
// completion) must never reach the terminal raw.
#include "support.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>

#include <curses.h>
#include <term.h>

namespace qvtest {

namespace {

// The escape sequence at bytes[i] (an ESC): its length, with *string set for
// a sequence that runs to a terminator (OSC, DCS, APC, PM, SOS).
size_t escapeLength(const std::string &b, size_t i, bool *string) {
    *string = false;
    if (i + 1 >= b.size()) return 1;
    const unsigned char k = static_cast<unsigned char>(b[i + 1]);
    size_t j = i + 2;
    if (k == '[') {
        while (j < b.size() && static_cast<unsigned char>(b[j]) >= 0x20 && static_cast<unsigned char>(b[j]) <= 0x3F) j++;
        return j < b.size() ? j + 1 - i : j - i;
    }
    if (k == ']' || k == 'P' || k == '_' || k == '^' || k == 'X') {
        *string = true;
        while (j < b.size() && b[j] != '\a' && !(b[j] == '\x1b' && j + 1 < b.size() && b[j + 1] == '\\')) j++;
        return j - i;
    }
    while (j - 1 < b.size() && static_cast<unsigned char>(b[j - 1]) >= 0x20 && static_cast<unsigned char>(b[j - 1]) <= 0x2F) j++;
    return j - i;
}

// A sequence with its numbers made '#', so that one shape stands for every
// parameter a capability may be given.
std::string shapeOf(const std::string &seq) {
    std::string out;
    for (size_t i = 0; i < seq.size(); i++) {
        if (isdigit(static_cast<unsigned char>(seq[i]))) {
            if (out.empty() || out.back() != '#') out += '#';
        } else {
            out += seq[i];
        }
    }
    return out;
}

} // namespace

std::vector<std::string> foreignEscapes(const std::string &bytes, const std::string &term) {
    // The capabilities the library sends, as the description has them; each
    // split into its sequences, which are what the output holds.
    static const char *const kCaps[] = {
        "bel", "bold", "clear", "cnorm", "cr", "cub", "cub1", "cud", "cud1", "cuf", "cuf1", "cuu", "cuu1", "cvvis",
        "dch", "dch1", "dl", "dl1", "ed", "el", "el1", "flash", "home", "hpa", "ich", "ich1", "il1", "indn", "ip",
        "ll", "rin", "rmdc", "rmir", "rmkx", "rmm", "sgr0", "smdc", "smir", "smkx", "smm", "cup", "dim", "sitm",
        "smul", "rev", "setaf", "setab", "BE", "BD", "PS", "PE", "Ss", "Se"};
    static std::map<std::string, std::vector<std::string>> known; // per terminal, once
    const bool fresh = known.find(term) == known.end();
    std::vector<std::string> &allowed = known[term];
    if (fresh && !term.empty()) {
        int err = 0;
        TERMINAL *saved = cur_term;
        if (setupterm(term.c_str(), 1, &err) == OK) {
            for (const char *name : kCaps) {
                const char *cap = tigetstr(name);
                if (!cap || cap == reinterpret_cast<char *>(-1)) continue;
                const std::string seq = strchr(cap, '%') ? tiparm(cap, 3, 4, 5) : cap;
                for (size_t i = 0; i < seq.size(); i++) {
                    if (seq[i] != '\x1b') continue;
                    bool string = false;
                    const size_t n = escapeLength(seq, i, &string);
                    allowed.push_back(shapeOf(seq.substr(i, n)));
                    i += n - 1;
                }
            }
            del_curterm(cur_term);
        }
        set_curterm(saved);
    }
    std::vector<std::string> found;
    for (size_t i = 0; i < bytes.size(); i++) {
        const unsigned char b = static_cast<unsigned char>(bytes[i]);
        if (b == 0xC2 && i + 1 < bytes.size() && static_cast<unsigned char>(bytes[i + 1]) >= 0x80 &&
            static_cast<unsigned char>(bytes[i + 1]) < 0xA0) {
            found.push_back("a C1 control at byte " + std::to_string(i));
            continue;
        }
        if (b != 0x1b) continue;
        bool string = false;
        const size_t n = escapeLength(bytes, i, &string);
        const std::string seq = bytes.substr(i, n);
        const std::string shape = shapeOf(seq);
        const bool sgr = seq.size() >= 3 && seq[1] == '[' && seq.back() == 'm' &&
                         seq.find_first_not_of("0123456789;:", 2) == seq.size() - 1;
        const bool paste = seq == "\x1b[?2004h" || seq == "\x1b[?2004l";
        if (string || !(sgr || paste || std::find(allowed.begin(), allowed.end(), shape) != allowed.end())) {
            std::string shown;
            for (char ch : seq) shown += ch == '\x1b' ? std::string("\\e") : std::string(1, ch);
            found.push_back("\"" + shown + "\" at byte " + std::to_string(i));
        }
        i += n - 1;
    }
    return found;
}

} // namespace qvtest
