// Options a host sets with term_setOption(), one set per session.
#include "options.h"

#include <atomic>
#include <cstdint>
#include <new>

#include "quorvel.h"
#include "session.h"

struct qv::OptionsState {
    // Set by any thread, read by the reading thread.
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
    std::atomic<int> keep_history_edits{0};
    std::atomic<int> completion_menu{0};
    std::atomic<int> auto_pairs{0};
    // The pairs bracket insertion types, each an opening and a closing
    // character packed in one word, so that a host may set them while a
    // read runs.
    std::atomic<uint64_t> pairs[qv::kMaxPairs] = {{'(' | uint64_t(')') << 32}, {'[' | uint64_t(']') << 32},
                                                  {'{' | uint64_t('}') << 32}, {'"' | uint64_t('"') << 32},
                                                  {'\'' | uint64_t('\'') << 32}};
};

namespace {

// The default session's options: the process has them before term_init,
// and a new session starts from them.
qv::OptionsState own;

// An option of a feature the build left out has no slot: setting it
// answers -1, as for an unknown option.
std::atomic<int> *slot(qv::OptionsState &o, int id) {
    switch (id) {
    case TERM_OPTION_BRACKETED_PASTE: return &o.bracketed_paste;
    case TERM_OPTION_HINTS: return &o.hints;
    case TERM_OPTION_UTF8_INPUT: return &o.utf8_input;
    case TERM_OPTION_AUTO_HISTORY: return &o.auto_history;
#if QV_WITH_THREAD_PRINT
    case TERM_OPTION_LOG_TO_TERMINAL: return &o.log_to_terminal;
#endif
    case TERM_OPTION_SIGNAL_KEYS: return &o.signal_keys;
#if QV_WITH_HIGHLIGHT
    case TERM_OPTION_BRACE_MATCH: return &o.brace_match;
#endif
#if QV_WITH_LEAN_OUTPUT
    case TERM_OPTION_LEAN_OUTPUT: return &o.lean_output;
#endif
#if QV_WITH_VI_MODE
    case TERM_OPTION_VI_MODE: return &o.vi_mode;
    case TERM_OPTION_VI_SHOW_MODE: return &o.vi_show_mode;
#endif
    case TERM_OPTION_KEEP_HISTORY_EDITS: return &o.keep_history_edits;
#if QV_WITH_COMPLETION_MENU
    case TERM_OPTION_COMPLETION_MENU: return &o.completion_menu;
#endif
    case TERM_OPTION_AUTO_PAIRS: return &o.auto_pairs;
    default: return nullptr;
    }
}

std::atomic<int> *slot(int id) { return slot(qv::session_record(qv::kSlotOptions, own), id); }

} // namespace

int qv::option(int id) {
    std::atomic<int> *s = slot(id);
    return s ? s->load() : 0;
}

int qv::set_option(int id, int value) {
    std::atomic<int> *s = slot(id);
    return s ? s->exchange(value != 0 ? 1 : 0) : -1;
}

// A new session starts with the default session's options as they stand.
qv::OptionsState *qv::options_new() {
    auto *o = new (std::nothrow) OptionsState;
    if (!o) return nullptr;
    for (int id = 0; id < 64; id++)
        if (std::atomic<int> *to = slot(*o, id)) to->store(slot(own, id)->load());
    for (int i = 0; i < kMaxPairs; i++) o->pairs[i].store(own.pairs[i].load());
    return o;
}

void qv::options_free(OptionsState *o) { delete o; }

bool qv::pair_of(wchar_t ch, wchar_t *open, wchar_t *close) {
    OptionsState &o = session_record(kSlotOptions, own);
    for (const std::atomic<uint64_t> &p : o.pairs) {
        const uint64_t v = p.load();
        if (!v) break;
        const auto a = static_cast<wchar_t>(v & 0xFFFFFFFFu), b = static_cast<wchar_t>(v >> 32);
        if (ch == a || ch == b) {
            *open = a;
            *close = b;
            return true;
        }
    }
    return false;
}

void qv::set_pairs(const wchar_t *chars, int n) {
    OptionsState &o = session_record(kSlotOptions, own);
    for (int i = 0; i < kMaxPairs; i++)
        o.pairs[i].store(2 * i + 1 < n ? static_cast<uint32_t>(chars[2 * i]) | uint64_t(static_cast<uint32_t>(chars[2 * i + 1])) << 32
                                       : 0);
}

// What the build has: the features the build options left in.
unsigned term_features(void) {
    return (QV_WITH_VI_MODE ? TERM_FEATURE_VI_MODE : 0u) | (QV_WITH_BINDINGS ? TERM_FEATURE_BINDINGS : 0u) |
           (QV_WITH_READLINE_COMMANDS ? TERM_FEATURE_READLINE_COMMANDS : 0u) |
           (QV_WITH_HIGHLIGHT ? TERM_FEATURE_HIGHLIGHT : 0u) |
           (QV_WITH_COMPLETION_MENU ? TERM_FEATURE_COMPLETION_MENU : 0u) |
           (QV_WITH_LEAN_OUTPUT ? TERM_FEATURE_LEAN_OUTPUT : 0u) |
           (QV_WITH_EVENT_LOOP ? TERM_FEATURE_EVENT_LOOP : 0u) |
           (QV_WITH_THREAD_PRINT ? TERM_FEATURE_THREAD_PRINT : 0u) | (QV_WITH_SESSIONS ? TERM_FEATURE_SESSIONS : 0u);
}
