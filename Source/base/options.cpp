// Options a host sets with term_setOption().
#include "options.h"

#include <atomic>

#include "quorvel.h"

namespace {

// Set by the host's thread, read by the reading thread.
std::atomic<int> bracketed_paste{1};
std::atomic<int> hints{0};
std::atomic<int> utf8_input{1};
std::atomic<int> auto_history{1};
std::atomic<int> log_to_terminal{0};
std::atomic<int> signal_keys{0};
std::atomic<int> brace_match{0};
std::atomic<int> lean_output{0};
std::atomic<int> vi_mode{0};
std::atomic<int> vi_show_mode{0};

std::atomic<int> *slot(int id) {
    switch (id) {
    case TERM_OPTION_BRACKETED_PASTE: return &bracketed_paste;
    case TERM_OPTION_HINTS: return &hints;
    case TERM_OPTION_UTF8_INPUT: return &utf8_input;
    case TERM_OPTION_AUTO_HISTORY: return &auto_history;
    case TERM_OPTION_LOG_TO_TERMINAL: return &log_to_terminal;
    case TERM_OPTION_SIGNAL_KEYS: return &signal_keys;
    case TERM_OPTION_BRACE_MATCH: return &brace_match;
    case TERM_OPTION_LEAN_OUTPUT: return &lean_output;
    case TERM_OPTION_VI_MODE: return &vi_mode;
    case TERM_OPTION_VI_SHOW_MODE: return &vi_show_mode;
    default: return nullptr;
    }
}

} // namespace

int qv::option(int id) {
    std::atomic<int> *s = slot(id);
    return s ? s->load() : 0;
}

int qv::set_option(int id, int value) {
    std::atomic<int> *s = slot(id);
    return s ? s->exchange(value != 0 ? 1 : 0) : -1;
}
