// Numeric arguments and macros. An argument (Alt-3, Alt--, readline's
// universal-argument) makes the next command run that many times, or run
// its opposite for a negative one. A keyboard macro is the key bytes read
// between its start and its end, typed again on demand; a string macro is
// text a bindings file binds to a key. Both are typed through the input,
// so every key in them acts as it would typed.
#include "repeat.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "actions.h"
#include "console_record.h"
#include "editkeys.h"
#include "frame.h"

#if QV_WITH_READLINE_COMMANDS

namespace {

constexpr size_t kMacroMax = 1024; // a keyboard macro's bytes
constexpr int kStringMacros = 64;  // string macros a console binds
constexpr int kMaxCount = 10000;   // an argument past this is this

} // namespace

struct qv::RepeatState {
    // An argument being typed, and the one the running command was given.
    bool pending = false, digits = false, negative = false;
    int value = 0;
    bool given = false;
    int count = 1;
    // The keyboard macro being defined, and the last one defined.
    bool recording = false;
    char keys[kMacroMax];
    size_t nkeys = 0, whole = 0; // whole: the bytes of whole keys so far
    char last[kMacroMax];
    size_t nlast = 0;
    // String macros, by slot.
    char *text[kStringMacros] = {};
    size_t len[kStringMacros] = {};
};

namespace {

qv::RepeatState *repeat_of(const console *c) { return c && c->state ? c->state->repeat : nullptr; }

// A string macro's action, one for each slot: the key types the slot's text.
template <int N> void run_macro(console *c, int) {
    if (const qv::RepeatState *r = repeat_of(c))
        if (r->text[N]) qv::frame_keys(c, r->text[N], static_cast<int>(r->len[N]));
}

template <size_t... N> struct Slots {
    static constexpr action_fn actions[sizeof...(N)] = {&run_macro<static_cast<int>(N)>...};
};

template <size_t... N> constexpr Slots<N...> slots_of(std::index_sequence<N...>) { return {}; }

using MacroSlots = decltype(slots_of(std::make_index_sequence<kStringMacros>()));

// The commands a negative argument turns around.
struct Opposite {
    action_fn a, b;
};
const Opposite kOpposites[] = {
    {action_key_right, action_key_left},
    {action_forward_word, action_backward_word},
    {action_key_delete, action_key_backspace},
    {action_kill_word, action_backward_kill_word},
    {action_key_down, action_key_up},
};

action_fn opposite(action_fn a) {
    for (const Opposite &o : kOpposites) {
        if (o.a == a) return o.b;
        if (o.b == a) return o.a;
    }
    return a;
}

bool is_argument(action_fn a) { return a == action_digit_argument || a == action_universal_argument; }

} // namespace

qv::RepeatState *qv::repeat_new() { return new (std::nothrow) RepeatState; }

void qv::repeat_free(RepeatState *r) {
    if (!r) return;
    for (char *t : r->text) free(t);
    delete r;
}

void qv::repeat_reset(console *c) {
    if (RepeatState *r = repeat_of(c)) {
        r->pending = r->digits = r->negative = r->given = false;
        r->value = 0;
        r->count = 1;
        r->recording = false;
    }
}

action_fn qv::argument_apply(console *c, action_fn action, bool reads_itself, int *count) {
    *count = 1;
    RepeatState *r = repeat_of(c);
    if (!r || !action) return action;
    // Digits typed after an argument began go on with it.
    const int byte = frame_key_byte(c);
    if (r->pending && action == action_insert_char &&
        ((byte >= '0' && byte <= '9') || (byte == '-' && !r->digits)))
        return action_digit_argument;
    if (is_argument(action)) return action;
    r->given = r->pending;
    int n = r->pending ? (r->digits || r->value ? r->value : 1) : 1;
    if (r->pending && r->negative) n = -n;
    r->pending = r->digits = r->negative = false;
    r->value = 0;
    r->count = n;
    // The commands that read the argument themselves take it once.
    if (reads_itself) return action;
    if (n < 0) {
        action = opposite(action);
        n = -n;
    }
    *count = n < kMaxCount ? n : kMaxCount;
    return action;
}

int qv::argument_value(const console *c, bool *given) {
    const RepeatState *r = repeat_of(c);
    if (given) *given = r && r->given;
    return r ? r->count : 1;
}

void action_digit_argument(console *c, int) {
    qv::RepeatState *r = repeat_of(c);
    if (!r) return;
    const int byte = qv::frame_key_byte(c);
    if (!r->pending) {
        r->pending = true;
        r->value = 0;
        r->digits = r->negative = false;
    }
    if (byte == '-') {
        r->negative = !r->negative;
        return;
    }
    if (byte < '0' || byte > '9') return;
    r->value = r->digits ? r->value * 10 + (byte - '0') : byte - '0';
    if (r->value > kMaxCount) r->value = kMaxCount;
    r->digits = true;
}

void action_universal_argument(console *c, int) {
    qv::RepeatState *r = repeat_of(c);
    if (!r) return;
    if (!r->pending) {
        r->pending = true;
        r->negative = r->digits = false;
        r->value = 4;
        return;
    }
    if (!r->digits && r->value < kMaxCount) r->value *= 4;
}

// ---------------------------------------------------------------------------
// Keyboard macros

void qv::macro_byte(console *c, unsigned char byte) {
    RepeatState *r = repeat_of(c);
    if (r && r->recording && r->nkeys < kMacroMax) r->keys[r->nkeys++] = static_cast<char>(byte);
}

void qv::macro_key_done(console *c) {
    RepeatState *r = repeat_of(c);
    if (r && r->recording) r->whole = r->nkeys;
}

void action_start_kbd_macro(console *c, int) {
    qv::RepeatState *r = repeat_of(c);
    if (!r || r->recording) return;
    r->recording = true;
    r->nkeys = r->whole = 0;
}

// The bytes of the key that ends the macro are not part of it.
void action_end_kbd_macro(console *c, int) {
    qv::RepeatState *r = repeat_of(c);
    if (!r || !r->recording) return;
    r->recording = false;
    memcpy(r->last, r->keys, r->whole);
    r->nlast = r->whole;
}

void action_call_last_kbd_macro(console *c, int) {
    const qv::RepeatState *r = repeat_of(c);
    if (r && !r->recording && r->nlast > 0) qv::frame_keys(c, r->last, static_cast<int>(r->nlast));
}

// ---------------------------------------------------------------------------
// String macros

action_fn qv::macro_action(console *c, const char *bytes, size_t n) {
    RepeatState *r = repeat_of(c);
    if (!r || n == 0 || n > kMacroMax) return nullptr;
    int slot = -1;
    for (int i = 0; i < kStringMacros && slot < 0; i++)
        if (r->text[i] && r->len[i] == n && memcmp(r->text[i], bytes, n) == 0) return MacroSlots::actions[i];
    for (int i = 0; i < kStringMacros && slot < 0; i++)
        if (!r->text[i]) slot = i;
    if (slot < 0) return nullptr;
    auto *copy = static_cast<char *>(malloc(n));
    if (!copy) return nullptr;
    memcpy(copy, bytes, n);
    r->text[slot] = copy;
    r->len[slot] = n;
    return MacroSlots::actions[slot];
}

const char *qv::macro_text(const console *c, action_fn action, size_t *n) {
    const RepeatState *r = repeat_of(c);
    for (int i = 0; r && i < kStringMacros; i++)
        if (MacroSlots::actions[i] == action && r->text[i]) {
            *n = r->len[i];
            return r->text[i];
        }
    return nullptr;
}

#else // a build without numeric arguments and keyboard macros

struct qv::RepeatState {};

qv::RepeatState *qv::repeat_new() { return new (std::nothrow) RepeatState; }
void qv::repeat_free(RepeatState *r) { delete r; }
void qv::repeat_reset(console *) {}
action_fn qv::argument_apply(console *, action_fn action, bool, int *count) {
    *count = 1;
    return action;
}
int qv::argument_value(const console *, bool *given) {
    if (given) *given = false;
    return 1;
}
void qv::macro_byte(console *, unsigned char) {}
void qv::macro_key_done(console *) {}
action_fn qv::macro_action(console *, const char *, size_t) { return nullptr; }
const char *qv::macro_text(const console *, action_fn, size_t *) { return nullptr; }
void action_digit_argument(console *, int) {}
void action_universal_argument(console *, int) {}
void action_start_kbd_macro(console *, int) {}
void action_end_kbd_macro(console *, int) {}
void action_call_last_kbd_macro(console *, int) {}

#endif
