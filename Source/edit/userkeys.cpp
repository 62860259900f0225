// Keys of the user's choice. Every action has a stable name, readline's
// where readline has the same action, so a binding written for one program
// reads the same here; key sequences and bindings files use readline's
// notation for the same reason.
#include "userkeys.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <string>
#include <cerrno>

#include "commands.h"
#include "completion.h"
#include "menu.h"
#include "filecomplete.h"
#include "listings.h"
#include "variables.h"
#include "options.h"
#include "actions.h"
#include "console_record.h"
#include "text.h"
#include "editkeys.h"
#include "paste.h"
#include "repeat.h"
#include "search.h"
#include "vimode.h"

#if QV_WITH_BINDINGS

namespace {

struct NamedAction {
    const char *name;
    action_fn action;
};

// In the order term_actionNames() gives them. Names are for ever: a host's
// bindings file must keep working.
constexpr NamedAction kActions[] = {
    {"abort", action_abandon_input},
    {"accept-line", action_key_return},
    {"backward-char", action_key_left},
    {"backward-delete-char", action_key_backspace},
    {"backward-kill-line", action_backward_kill_line},
    {"backward-kill-word", action_backward_kill_word},
    {"backward-word", action_backward_word},
    {"beginning-of-history", action_history_earliest},
    {"beginning-of-line", action_key_home},
    {"bracketed-paste-begin", action_paste_begin},
    {"bracketed-paste-end", action_paste_end},
    {"call-last-kbd-macro", action_call_last_kbd_macro},
    {"capitalize-word", action_capitalize_word},
    {"character-search", action_character_search},
    {"character-search-backward", action_character_search_backward},
    {"clear-display", action_clear_screen},
    {"clear-screen", action_clear_screen},
    {"complete", action_complete},
    {"complete-filename", action_complete_filename},
    {"copy-backward-word", action_copy_backward_word},
    {"copy-forward-word", action_copy_forward_word},
    {"copy-region-as-kill", action_copy_region_as_kill},
    {"delete-char", action_key_delete},
    {"delete-char-or-eof", action_delete_or_quit},
    {"delete-horizontal-space", action_delete_horizontal_space},
    {"digit-argument", action_digit_argument},
    {"downcase-word", action_downcase_word},
    {"dump-functions", action_dump_functions},
    {"dump-macros", action_dump_macros},
    {"dump-variables", action_dump_variables},
    {"emacs-editing-mode", action_emacs_editing_mode},
    {"end-kbd-macro", action_end_kbd_macro},
    {"end-of-history", action_end_of_history},
    {"end-of-line", action_key_end},
    {"exchange-point-and-mark", action_exchange_point_and_mark},
    {"forward-char", action_key_right},
    {"forward-search-history", action_search_forward},
    {"forward-word", action_forward_word},
    {"history-search-backward", action_history_search_backward},
    {"history-search-forward", action_history_search_forward},
    {"history-substring-search-backward", action_history_substring_search_backward},
    {"history-substring-search-forward", action_history_substring_search_forward},
    {"insert-comment", action_insert_comment},
    {"insert-completions", action_insert_completions},
    {"interrupt", action_abandon_input_ctrl_c},
    {"kill-line", action_kill_to_end_of_line},
    {"kill-region", action_kill_region},
    {"kill-whole-line", action_kill_whole_line},
    {"kill-word", action_kill_word},
    {"menu-complete", action_menu_complete},
    {"menu-complete-backward", action_menu_complete_backward},
    {"next-history", action_key_down},
    {"non-incremental-forward-search-history", action_noninc_search_forward},
    {"non-incremental-reverse-search-history", action_noninc_search_backward},
    {"operate-and-get-next", action_operate_and_get_next},
    {"overwrite-mode", action_key_insert},
    {"possible-completions", action_possible_completions},
    {"previous-history", action_key_up},
    {"quoted-insert", action_quoted_insert},
    {"re-read-init-file", action_re_read_init_file},
    {"reverse-search-history", action_search_backward},
    {"revert-line", action_revert_line},
    {"self-insert", action_insert_char},
    {"set-mark", action_set_mark},
    {"start-kbd-macro", action_start_kbd_macro},
    {"suspend", action_suspend_process},
    {"tab-insert", action_tab_insert},
    {"transpose-chars", action_transpose},
    {"transpose-words", action_transpose_words},
    {"undo", action_undo},
    {"redo", action_redo},
    {"universal-argument", action_universal_argument},
    {"unix-line-discard", action_kill_line_start},
    {"unix-word-rubout", action_unix_word_rubout},
    {"upcase-word", action_upcase_word},
    {"vi-editing-mode", action_vi_editing_mode},
    {"vi-insertion-mode", action_vi_insertion_mode},
    {"vi-movement-mode", action_vi_movement_mode},
    {"yank", action_yank},
    {"yank-last-arg", action_yank_last_arg},
    {"yank-nth-arg", action_yank_nth_arg},
    {"yank-pop", action_yank_pop},
};
constexpr size_t kActionCount = sizeof kActions / sizeof kActions[0];

struct Names {
    const char *list[kActionCount + 1];
    constexpr Names() : list{} {
        for (size_t i = 0; i < kActionCount; i++) list[i] = kActions[i].name;
    }
};
constexpr Names kNames;

// Key names, as readline's init files spell them.
struct KeyName {
    const char *name;
    char byte;
};
constexpr KeyName kKeyNames[] = {{"DEL", 127}, {"Rubout", 127}, {"ESC", 27},     {"Escape", 27},
                                 {"LFD", 10},  {"Newline", 10}, {"RET", 13},     {"Return", 13},
                                 {"SPC", ' '}, {"Space", ' '},  {"TAB", '\t'}};

// One backslash escape of a quoted sequence, at text[i] just after the
// backslash; answers the byte, with i past the escape.
int escaped(const char *text, size_t n, size_t &i) {
    const char ch = text[i++];
    switch (ch) {
    case 'e': return 27;
    case 'a': return 7;
    case 'b': return 8;
    case 'd': return 127;
    case 'f': return 12;
    case 'n': return 10;
    case 'r': return 13;
    case 't': return 9;
    case 'v': return 11;
    case 'x': {
        int v = 0, k = 0;
        for (; k < 2 && i < n && isxdigit(static_cast<unsigned char>(text[i])); k++, i++)
            v = v * 16 + (isdigit(static_cast<unsigned char>(text[i])) ? text[i] - '0' : (text[i] | 0x20) - 'a' + 10);
        return k ? v : -1;
    }
    default:
        if (ch >= '0' && ch <= '7') {
            int v = ch - '0';
            for (int k = 1; k < 3 && i < n && text[i] >= '0' && text[i] <= '7'; k++, i++) v = v * 8 + text[i] - '0';
            return v;
        }
        return static_cast<unsigned char>(ch); // \\ \" \' and any other character as itself
    }
}

// Control of a key: ? is Delete, anything else keeps its low five bits.
int control(int byte) { return byte == '?' ? 127 : byte & 0x1F; }

bool starts(const char *text, size_t n, const char *prefix) {
    const size_t k = strlen(prefix);
    return n >= k && strncasecmp(text, prefix, k) == 0;
}

} // namespace

action_fn qv::action_named(const char *name) {
    for (const NamedAction &a : kActions)
        if (name && strcmp(a.name, name) == 0) return a.action;
    return nullptr;
}

const char *const *qv::action_names() { return kNames.list; }

keymap_entry *qv::keymap_named(const KeymapSet &maps, const char *name, const char **prefix) {
    struct MapName {
        const char *name;
        keymap_entry *KeymapSet::*map;
        const char *prefix;
    };
    static constexpr MapName kMaps[] = {
        {"emacs", &KeymapSet::emacs, ""},           {"emacs-standard", &KeymapSet::emacs, ""},
        {"emacs-meta", &KeymapSet::emacs, "\033"}, {"emacs-ctlx", &KeymapSet::emacs, "\030"},
        {"vi", &KeymapSet::vi_command, ""},         {"vi-command", &KeymapSet::vi_command, ""},
        {"vi-move", &KeymapSet::vi_command, ""},    {"vi-insert", &KeymapSet::vi_insert, ""},
    };
    if (!name) name = "emacs";
    for (const MapName &m : kMaps) {
        if (strcasecmp(name, m.name) != 0) continue;
        *prefix = m.prefix;
        return maps.*m.map;
    }
    return nullptr;
}

size_t qv::parse_keys(const char *text, size_t n, bool quoted, char *out, size_t size) {
    size_t used = 0;
    auto put = [&](int byte) {
        if (byte <= 0 || byte > 255 || used + 1 >= size) return false;
        out[used++] = static_cast<char>(byte);
        return true;
    };
    size_t i = 0;
    if (!quoted) {
        // Modifiers, then a key name or one character.
        bool ctrl = false, meta = false;
        for (;;) {
            if (starts(text + i, n - i, "Control-")) {
                ctrl = true;
                i += 8;
            } else if (starts(text + i, n - i, "Meta-")) {
                meta = true;
                i += 5;
            } else if (starts(text + i, n - i, "C-") && n - i > 2) {
                ctrl = true;
                i += 2;
            } else if (starts(text + i, n - i, "M-") && n - i > 2) {
                meta = true;
                i += 2;
            } else {
                break;
            }
        }
        int byte = -1;
        for (const KeyName &k : kKeyNames)
            if (n - i == strlen(k.name) && strncasecmp(text + i, k.name, n - i) == 0) byte = k.byte;
        if (byte < 0 && n - i == 1) byte = static_cast<unsigned char>(text[i]);
        if (byte < 0 || (meta && !put(27)) || !put(ctrl ? control(byte) : byte)) return 0;
        out[used] = 0;
        return used;
    }
    while (i < n) {
        bool ctrl = false, meta = false;
        while (i + 2 < n && text[i] == '\\' && (text[i + 1] == 'C' || text[i + 1] == 'M') && text[i + 2] == '-') {
            (text[i + 1] == 'C' ? ctrl : meta) = true;
            i += 3;
        }
        if (i >= n) return 0;
        int byte;
        if (text[i] == '\\' && i + 1 < n) {
            i++;
            byte = escaped(text, n, i);
        } else {
            byte = static_cast<unsigned char>(text[i++]);
        }
        if (byte < 0 || (meta && !put(27)) || !put(ctrl ? control(byte) : byte)) return 0;
    }
    if (used == 0) return 0;
    out[used] = 0;
    return used;
}

bool qv::bind_keys(keymap_entry *map, const char *keys, size_t n, action_fn action) {
    if (!map || !keys || n == 0 || !action) return false;
    if (n == 1) return keymap_bind_key(map, static_cast<unsigned char>(keys[0]), KM_FUNCTION, action) != 0;
    return keymap_bind_key_sequence(map, keys, KM_FUNCTION, action) != 0;
}

namespace {

// Where a bindings file stands: the key map bindings go to (a prefix for
// readline's emacs-meta and emacs-ctlx maps), and the $if nesting.
struct BindingsFile {
    console *c;
    const qv::KeymapSet *maps;
    keymap_entry *map;
    const char *term;
    bool vi;
    const char *prefix = "";
    static constexpr int kDepth = 16;
    bool active[kDepth + 1] = {true};
    bool taken[kDepth + 1] = {true}; // the branch of this level that applied
    int depth = 0;
    int includes = 0; // $include files open within each other
    qv::BindingsReport report;
    void *user;
};

// The program's name, for "$if NAME": one for the process.
char application[64];

int read_file(BindingsFile &st, const char *path);

const char *skip_space(const char *p) {
    while (*p == ' ' || *p == '\t') p++;
    return p;
}

// A word up to whitespace, copied into out.
const char *word(const char *p, char *out, size_t size) {
    size_t k = 0;
    while (*p && *p != ' ' && *p != '\t') {
        if (k + 1 < size) out[k++] = *p;
        p++;
    }
    out[k] = 0;
    return p;
}

// "$if version >= 8.1": compared with the readline version this library
// takes the keys of, 8.2.
bool version_holds(const char *p) {
    char op[3] = {};
    size_t k = 0;
    while (k < 2 && (*p == '<' || *p == '>' || *p == '=' || *p == '!')) op[k++] = *p++;
    p = skip_space(p);
    char *end = nullptr;
    const double want = strtod(p, &end);
    if (end == p) return false;
    const double have = 8.2;
    if (strcmp(op, "=") == 0 || strcmp(op, "==") == 0) return have == want;
    if (strcmp(op, "!=") == 0) return have != want;
    if (strcmp(op, ">=") == 0) return have >= want;
    if (strcmp(op, "<=") == 0) return have <= want;
    if (strcmp(op, ">") == 0) return have > want;
    if (strcmp(op, "<") == 0) return have < want;
    return false;
}

// "$if mode=emacs", "$if term=xterm": the terminal's name or the part of it
// before its first '-'. Anything else (an application's name) is not this.
bool condition_holds(const char *what, const char *term, bool vi) {
    char key[16], value[64];
    const char *eq = strchr(what, '=');
    if (strncasecmp(what, "version", 7) == 0 && !eq) return version_holds(skip_space(what + 7));
    if (!eq) {
        // The program's name alone.
        word(what, value, sizeof value);
        const char *name = application[0] ? application : program_invocation_short_name;
        return name && strcasecmp(name, value) == 0;
    }
    size_t k = static_cast<size_t>(eq - what);
    while (k > 0 && (what[k - 1] == ' ' || what[k - 1] == '\t')) k--;
    if (k >= sizeof key) return false;
    memcpy(key, what, k);
    key[k] = 0;
    word(skip_space(eq + 1), value, sizeof value);
    if (strcasecmp(key, "mode") == 0) return strcasecmp(value, vi ? "vi" : "emacs") == 0;
    if (strcasecmp(key, "term") != 0 || !term) return false;
    const size_t base = strcspn(term, "-");
    return strcmp(term, value) == 0 || (strlen(value) == base && strncmp(term, value, base) == 0);
}

// A "$" line; answers why it is not understood, or NULL.
const char *directive(BindingsFile &st, const char *p) {
    char name[16];
    p = skip_space(word(p, name, sizeof name));
    if (strcmp(name, "$if") == 0) {
        if (st.depth == BindingsFile::kDepth) return "$if nested too deep";
        const bool holds = condition_holds(p, st.term, st.vi);
        st.depth++;
        st.active[st.depth] = st.active[st.depth - 1] && holds;
        st.taken[st.depth] = holds;
        return nullptr;
    }
    if (strcmp(name, "$else") == 0) {
        if (st.depth == 0) return "$else without $if";
        st.active[st.depth] = st.active[st.depth - 1] && !st.taken[st.depth];
        st.taken[st.depth] = true;
        return nullptr;
    }
    if (strcmp(name, "$endif") == 0) {
        if (st.depth == 0) return "$endif without $if";
        st.depth--;
        return nullptr;
    }
    if (strcmp(name, "$include") == 0) {
        if (!st.active[st.depth]) return nullptr;
        if (st.includes == 8) return "$include nested too deep";
        char path[4096];
        const char *home = getenv("HOME");
        if (p[0] == '~' && p[1] == '/' && home)
            snprintf(path, sizeof path, "%s%s", home, p + 1);
        else
            snprintf(path, sizeof path, "%s", p);
        size_t n = strlen(path);
        while (n > 0 && (path[n - 1] == ' ' || path[n - 1] == '\t')) path[--n] = 0;
        st.includes++;
        const int read = read_file(st, path);
        st.includes--;
        return read < 0 ? "cannot read the file" : nullptr;
    }
    return "unknown directive";
}

const char *setting(BindingsFile &st, const char *p) {
    char name[64], value[64]; // the longest name readline has is 32 characters
    word(skip_space(word(skip_space(p), name, sizeof name)), value, sizeof value);
    if (strcasecmp(name, "editing-mode") == 0) {
        // The mode's own map takes the bindings that follow, as in readline.
        if (strcasecmp(value, "vi") != 0 && strcasecmp(value, "emacs") != 0) return "unknown editing mode";
        st.vi = strcasecmp(value, "vi") == 0;
        st.map = st.vi ? st.maps->vi_insert : st.maps->emacs;
        st.prefix = "";
        qv::set_variable(st.c, name, value);
        return nullptr;
    }
    if (strcasecmp(name, "keymap") != 0) return qv::set_variable(st.c, name, value);
    const char *prefix = "";
    keymap_entry *map = qv::keymap_named(*st.maps, value, &prefix);
    if (!map) return "unknown key map";
    st.map = map;
    st.prefix = prefix;
    return nullptr;
}

// "keys": action or Key-name: action.
const char *binding(BindingsFile &st, const char *p) {
    const bool quoted = *p == '"';
    const char *start = quoted ? p + 1 : p, *end = start;
    if (quoted) {
        while (*end && *end != '"') end += end[0] == '\\' && end[1] ? 2 : 1;
        if (*end != '"') return "no closing quote";
    } else {
        while (*end && *end != ':' && *end != ' ' && *end != '\t') end++;
    }
    const char *colon = skip_space(quoted ? end + 1 : end);
    if (*colon != ':') return "no ':' after the keys";
    const char *value = skip_space(colon + 1);
    action_fn fn = nullptr;
    if (*value == '"' || *value == '\'') {
        // A string macro: the key types its text, escapes read as in keys.
        const char quote = *value;
        const char *text = value + 1, *close = text;
        while (*close && *close != quote) close += close[0] == '\\' && close[1] ? 2 : 1;
        if (*close != quote) return "no closing quote";
        char bytes[1024];
        const size_t n = qv::parse_keys(text, static_cast<size_t>(close - text), true, bytes, sizeof bytes);
        if (n == 0) return close == text ? nullptr : "text that cannot be read";
        fn = qv::macro_action(st.c, bytes, n);
        if (!fn) return "too many macros";
    } else {
        char action[64];
        const char *rest = skip_space(word(value, action, sizeof action));
        if (*rest && *rest != '#') return "text after the action";
        fn = qv::action_named(action);
        if (!fn) return "unknown action";
    }
    char keys[64];
    const size_t plen = strlen(st.prefix);
    memcpy(keys, st.prefix, plen);
    const size_t n = qv::parse_keys(start, static_cast<size_t>(end - start), quoted, keys + plen, sizeof keys - plen);
    if (n == 0) return "keys that cannot be read";
    return qv::bind_keys(st.map, keys, plen + n, fn) ? nullptr : "no memory for the binding";
}

} // namespace

namespace {

int read_file(BindingsFile &st, const char *path) {
    FILE *f = path ? fopen(path, "re") : nullptr;
    if (!f) return -1;
    int reported = 0, number = 0;
    char *line = nullptr;
    size_t cap = 0;
    ssize_t len;
    while ((len = getline(&line, &cap, f)) >= 0) {
        number++;
        while (len > 0 && (line[len - 1] == '\n' || line[len - 1] == '\r')) line[--len] = 0;
        const char *p = skip_space(line);
        if (*p == 0 || *p == '#') continue;
        const char *why = nullptr;
        if (*p == '$')
            why = directive(st, p);
        else if (!st.active[st.depth])
            continue;
        else if (strncmp(p, "set", 3) == 0 && (p[3] == ' ' || p[3] == '\t'))
            why = setting(st, p + 3);
        else
            why = binding(st, p);
        if (why) {
            reported++;
            if (st.report) st.report(st.user, number, p, why);
        }
    }
    free(line);
    // A directory opens, but reads nothing: as unreadable as a missing file.
    const bool failed = ferror(f) != 0;
    fclose(f);
    return failed ? -1 : reported;
}

} // namespace

int qv::read_bindings(console *c, const KeymapSet &maps, const char *path, const char *term, bool *vi,
                      BindingsReport report, void *user) {
    BindingsFile st;
    st.c = c;
    st.maps = &maps;
    st.vi = *vi;
    st.map = st.vi ? maps.vi_insert : maps.emacs;
    st.term = term;
    st.report = report;
    st.user = user;
    const int reported = read_file(st, path);
    if (reported >= 0) {
        *vi = st.vi;
        qv::remember_bindings_file(c, path);
    }
    return reported;
}

void term_setApplicationName(const char *name) {
    snprintf(application, sizeof application, "%s", name ? name : "");
}

// ---------------------------------------------------------------------------
// readline's listings of what is bound and set, written below the input, and
// its re-reading of the init file.

void action_dump_functions(console *c, int) {
    if (c->editor.buffer) qv::show_listing(c, qv::listing(c, qv::Listing::functions, false, kNames.list, qv::action_named));
}

void action_dump_variables(console *c, int) {
    if (c->editor.buffer) qv::show_listing(c, qv::listing(c, qv::Listing::variables, false, nullptr, nullptr));
}

void action_dump_macros(console *c, int) {
    const std::string text = c->editor.buffer ? qv::listing(c, qv::Listing::macros, false, nullptr, nullptr) : "";
    if (!text.empty()) qv::show_listing(c, text);
}

void action_re_read_init_file(console *c, int) {
    const char *path = qv::bindings_file(c);
    if (!path) return;
    const std::string copy = path;
    const qv::KeymapSet maps{c->keymaps[0], qv::vi_map(c, false), qv::vi_map(c, true)};
    bool vi = qv::option(TERM_OPTION_VI_MODE) != 0;
    if (qv::read_bindings(c, maps, copy.c_str(), getenv("TERM"), &vi, nullptr, nullptr) >= 0)
        qv::set_option(TERM_OPTION_VI_MODE, vi);
}

#else // a build without bindings files and named actions: no name reaches an action

namespace {
const char *const kNone[] = {nullptr};
} // namespace

action_fn qv::action_named(const char *) { return nullptr; }
const char *const *qv::action_names() { return kNone; }
keymap_entry *qv::keymap_named(const KeymapSet &, const char *, const char **) { return nullptr; }
size_t qv::parse_keys(const char *, size_t, bool, char *, size_t) { return 0; }
bool qv::bind_keys(keymap_entry *, const char *, size_t, action_fn) { return false; }
int qv::read_bindings(console *, const KeymapSet &, const char *, const char *, bool *, BindingsReport, void *) {
    return -1;
}
void term_setApplicationName(const char *) {}
void action_dump_functions(console *, int) {}
void action_dump_variables(console *, int) {}
void action_dump_macros(console *, int) {}
void action_re_read_init_file(console *, int) {}

#endif
