// Keymaps, settings and init files for programs written against readline.
// The editor's keys are its own, so bindings and settings are recorded for
// the program to read back; Tab's binding is the one that changes a key.
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "logger.h"
#include "quorvel/readline.h"
#include "rlcompat.h"

KEYMAP_ENTRY_ARRAY emacs_standard_keymap, emacs_meta_keymap, emacs_ctlx_keymap;
KEYMAP_ENTRY_ARRAY vi_insertion_keymap, vi_movement_keymap;
int rl_editing_mode = 1;

namespace {

using CharPtr = std::unique_ptr<char, decltype(&free)>;

bool tab_completes = true;
Keymap current_map = emacs_standard_keymap;

bool is_standard(Keymap map) {
    return map == emacs_standard_keymap || map == vi_insertion_keymap;
}

// Tab's binding decides whether Tab completes or inserts itself.
void note_binding(int key, rl_command_func_t *function, Keymap map) {
    if (key != '\t' || !is_standard(map)) return;
    if (function == rl_complete)
        tab_completes = true;
    else if (function == rl_insert || function == rl_tab_insert)
        tab_completes = false;
}

struct Named {
    const char *name;
    rl_command_func_t *function;
};
Named named[64] = {
    {"self-insert", rl_insert},
    {"tab-insert", rl_tab_insert},
    {"complete", rl_complete},
    {"menu-complete", rl_complete},
    {"accept-line", rl_newline},
    {"abort", rl_abort},
    {"previous-history", rl_get_previous_history},
    {"next-history", rl_get_next_history},
};

// Whether a binding's key names Tab: "tab", "TAB", "C-i", "Control-i", or
// a quoted "\t" or "\C-i".
bool names_tab(const char *key) {
    static const char *const kForms[] = {"tab",     "c-i",       "control-i",
                                         "\"\\t\"", "\"\\c-i\"", "\"\t\""};
    for (const char *form : kForms)
        if (strcasecmp(key, form) == 0) return true;
    return false;
}

char *trim(char *s) {
    while (isspace(static_cast<unsigned char>(*s)))
        s++;
    size_t n = strlen(s);
    while (n > 0 && isspace(static_cast<unsigned char>(s[n - 1])))
        s[--n] = 0;
    return s;
}

} // namespace

namespace {

// The commands this library does itself: a key bound to one of them stays
// the editor's.
bool is_ours(rl_command_func_t *f) {
    return f == rl_insert || f == rl_tab_insert || f == rl_complete || f == rl_newline ||
           f == rl_abort || f == rl_get_previous_history || f == rl_get_next_history;
}

} // namespace

rl_command_func_t *qv::rl_program_binding(unsigned char key) {
    const KEYMAP_ENTRY &e = current_map[key];
    return e.type == ISFUNC && e.function && !is_ours(e.function) ? e.function : nullptr;
}

bool qv::rl_has_program_bindings() {
    for (int key = 0; key < 256; key++)
        if (rl_program_binding(static_cast<unsigned char>(key))) return true;
    return false;
}

// An escape sequence is ESC, then '[' or 'O' and parameters up to a final
// byte, or ESC and one more byte; a paste runs from ESC [ 200 ~ to
// ESC [ 201 ~.
bool qv::KeyBytes::alone(unsigned char byte) {
    switch (state_) {
    case kEscape:
        state_ = byte == '[' || byte == 'O' ? kSequence : kText;
        nparams_ = 0;
        return false;
    case kSequence:
        if (byte >= 0x40 && byte <= 0x7e) {
            state_ = kText;
            if (byte == '~' && nparams_ == 3 && params_[0] == '2' && params_[1] == '0') {
                if (params_[2] == '0') paste_ = true;
                if (params_[2] == '1') paste_ = false;
            }
        } else if (nparams_ < static_cast<int>(sizeof params_)) {
            params_[nparams_++] = static_cast<char>(byte);
        }
        return false;
    case kText:
        if (byte == 0x1b) {
            state_ = kEscape;
            return false;
        }
        return !paste_;
    }
    return false;
}

bool qv::rl_tab_completes() {
    return tab_completes;
}
void qv::rl_set_tab_completes(bool on) {
    tab_completes = on;
}

int rl_bind_key_in_map(int key, rl_command_func_t *function, Keymap map) {
    if (key < 0 || key >= KEYMAP_SIZE || !map) return -1;
    map[key].type = ISFUNC;
    map[key].function = function;
    note_binding(key, function, map);
    return 0;
}

int rl_bind_key(int key, rl_command_func_t *function) {
    return rl_bind_key_in_map(key, function, current_map);
}
int rl_unbind_key(int key) {
    return rl_bind_key(key, nullptr);
}
int rl_unbind_key_in_map(int key, Keymap map) {
    return rl_bind_key_in_map(key, nullptr, map);
}

int rl_bind_keyseq_in_map(const char *keyseq, rl_command_func_t *function, Keymap map) {
    if (!keyseq || !map) return -1;
    if (strcmp(keyseq, "\t") == 0 || strcmp(keyseq, "\\t") == 0 || strcasecmp(keyseq, "\\C-i") == 0)
        return rl_bind_key_in_map('\t', function, map);
    if (strlen(keyseq) == 1)
        return rl_bind_key_in_map(static_cast<unsigned char>(keyseq[0]), function, map);
    return 0;
}

int rl_bind_keyseq(const char *keyseq, rl_command_func_t *function) {
    return rl_bind_keyseq_in_map(keyseq, function, current_map);
}

int rl_generic_bind(int type, const char *keyseq, char *data, Keymap map) {
    if (type == ISFUNC)
        return rl_bind_keyseq_in_map(keyseq, reinterpret_cast<rl_command_func_t *>(data), map);
    if (type == ISMACR) return rl_macro_bind(keyseq, data, map);
    return keyseq && map ? 0 : -1;
}

int rl_add_defun(const char *name, rl_command_func_t *function, int key) {
    for (Named &n : named) {
        if (n.name && strcmp(n.name, name ? name : "") != 0) continue;
        if (!n.name) n.name = name;
        n.function = function;
        break;
    }
    if (key >= 0) rl_bind_key(key, function);
    return 0;
}

rl_command_func_t *rl_named_function(const char *name) {
    for (const Named &n : named)
        if (n.name && name && strcmp(n.name, name) == 0) return n.function;
    return nullptr;
}

Keymap rl_make_bare_keymap(void) {
    return static_cast<Keymap>(calloc(KEYMAP_SIZE, sizeof(KEYMAP_ENTRY)));
}

Keymap rl_copy_keymap(Keymap map) {
    Keymap copy = rl_make_bare_keymap();
    if (copy && map) memcpy(copy, map, sizeof(KEYMAP_ENTRY) * KEYMAP_SIZE);
    return copy;
}

Keymap rl_make_keymap(void) {
    return rl_copy_keymap(emacs_standard_keymap);
}

namespace {
bool is_builtin(Keymap map) {
    return map == emacs_standard_keymap || map == emacs_meta_keymap || map == emacs_ctlx_keymap ||
           map == vi_insertion_keymap || map == vi_movement_keymap;
}
} // namespace

void rl_discard_keymap(Keymap map) {
    if (map) memset(map, 0, sizeof(KEYMAP_ENTRY) * KEYMAP_SIZE);
}

void rl_free_keymap(Keymap map) {
    if (!is_builtin(map)) free(map);
}

Keymap rl_get_keymap(void) {
    return current_map;
}

void rl_set_keymap(Keymap map) {
    if (map) current_map = map;
}

namespace {
struct MapName {
    const char *name;
    Keymap map;
};
MapName map_names[16] = {
    {"emacs", emacs_standard_keymap},   {"emacs-standard", emacs_standard_keymap},
    {"emacs-meta", emacs_meta_keymap},  {"emacs-ctlx", emacs_ctlx_keymap},
    {"vi", vi_movement_keymap},         {"vi-move", vi_movement_keymap},
    {"vi-command", vi_movement_keymap}, {"vi-insert", vi_insertion_keymap},
};
} // namespace

Keymap rl_get_keymap_by_name(const char *name) {
    for (const MapName &m : map_names)
        if (m.name && name && strcmp(m.name, name) == 0) return m.map;
    return nullptr;
}

char *rl_get_keymap_name(Keymap map) {
    for (const MapName &m : map_names)
        if (m.name && m.map == map) return const_cast<char *>(m.name);
    return nullptr;
}

int rl_set_keymap_name(const char *name, Keymap map) {
    if (!name || !map) return -1;
    for (MapName &m : map_names) {
        if (m.name && strcmp(m.name, name) != 0) continue;
        if (m.name && is_builtin(m.map)) return -1;
        m = MapName{name, map};
        return 0;
    }
    return -1;
}

namespace {

// history-size stifles the program's own list too, as readline's does: a
// number keeps that many entries, a negative one all, no number 500.
void take_history_size(const char *value) {
    if (!value) return;
    const int n = *value ? atoi(value) : 500;
    if (n < 0)
        unstifle_history();
    else
        stifle_history(n);
}

} // namespace

// The variables are the editor's: a setting that means something there
// acts there, and the program reads back what it set.
int rl_variable_bind(const char *name, const char *value) {
    if (!name || (!qv::rl_start_editor() && !term_getVariable(name))) return -1;
    if (!term_setVariable(name, value)) return -1;
    if (strcasecmp(name, "history-size") == 0) take_history_size(term_getVariable(name));
    if (strcasecmp(name, "disable-completion") == 0)
        rl_inhibit_completion = strcasecmp(term_getVariable(name), "on") == 0;
    if (strcasecmp(name, "editing-mode") == 0) rl_editing_mode = strcasecmp(term_getVariable(name), "vi") == 0 ? 0 : 1;
    return 0;
}

char *rl_variable_value(const char *name) {
    if (!name) return nullptr;
    qv::rl_start_editor();
    return const_cast<char *>(term_getVariable(name));
}

void rl_variable_dumper(int readable) {
    FILE *out = rl_outstream ? rl_outstream : stdout;
    qv::rl_start_editor();
    for (const char *const *name = term_variableNames(); *name; name++) {
        const char *value = term_getVariable(*name);
        fprintf(out, readable ? "set %s %s\n" : "%s is set to `%s'\n", *name, value ? value : "");
    }
}

int rl_macro_bind(const char *keyseq, const char *macro, Keymap map) {
    if (!keyseq || !macro || !qv::rl_start_editor()) return -1;
    const char *name = rl_get_keymap_name(map ? map : current_map);
    return term_bindMacro(name, keyseq, macro) ? 0 : -1;
}

namespace {

void print_listing(int what, int readable) {
    FILE *out = rl_outstream ? rl_outstream : stdout;
    if (!qv::rl_start_editor()) return;
    if (char *text = term_listBindings(what, readable)) {
        fputs(text, out);
        term_free(text);
    }
}

} // namespace

void rl_macro_dumper(int readable) { print_listing(TERM_LIST_MACROS, readable); }
void rl_function_dumper(int readable) { print_listing(TERM_LIST_FUNCTIONS, readable); }
// As a command, readline words the list for an init file when given an
// argument; an argument other than the usual 1 is the sign of one here.
void rl_dump_functions(int count, int) { print_listing(TERM_LIST_FUNCTIONS, count != 1); }

namespace {

// One line of an init file; true when this library took it: a setting it
// knows, Tab bound to a function it knows, or a line with nothing to do.
bool parse_line(const char *line) {
    CharPtr copy(strdup(line), &free);
    if (!copy) return false;
    char *s = trim(copy.get());
    if (!*s || *s == '#' || *s == '$') return true;
    if (strncmp(s, "set", 3) == 0 && isspace(static_cast<unsigned char>(s[3]))) {
        char *name = trim(s + 4);
        char *value = name + strcspn(name, " \t");
        if (*value) *value++ = 0;
        return rl_variable_bind(name, trim(value)) == 0;
    }
    // "key: function": the colon after a quoted key sequence, if any.
    char *colon = s;
    if (*s == '"') {
        colon = s + 1;
        while (*colon && *colon != '"')
            colon += (*colon == '\\' && colon[1]) ? 2 : 1;
    }
    colon = strchr(colon, ':');
    if (!colon) return false;
    *colon = 0;
    const char *key = trim(s);
    rl_command_func_t *f = rl_named_function(trim(colon + 1));
    if (!f || !names_tab(key)) return false;
    rl_bind_key('\t', f);
    return true;
}

// A line the editor's reader did not take goes to this library's own
// reading; what neither takes is logged when the host logs, and never said
// on the program's terminal.
void take_unread_line(const char *path, int line, const char *text, const char *why, void *) {
    if (!parse_line(text) && isLogging)
        logger_write_fmt("quorvel-readline", nullptr, 0, "%s:%d: %s: %s", path, line, why, text);
}

} // namespace

int rl_parse_and_bind(char *line) {
    if (line) parse_line(line);
    return 0;
}

int rl_read_init_file(const char *filename) {
    CharPtr path(nullptr, &free);
    if (!filename) filename = getenv("INPUTRC");
    path.reset(tilde_expand(filename && *filename ? filename : "~/.inputrc"));
    FILE *f = path ? fopen(path.get(), "re") : nullptr;
    if (!f) return path ? errno : ENOMEM;
    // With the editor running its reader binds the keys, $if and all.
    term_setBindingsReporter(take_unread_line, nullptr);
    char size_before[80]; // a value is shorter than 64 bytes
    snprintf(size_before, sizeof size_before, "%s", term_getVariable("history-size") ? term_getVariable("history-size") : "");
    if (term_readBindings(path.get()) >= 0) {
        fclose(f);
        const char *size = term_getVariable("history-size");
        if (size && strcmp(size_before, size) != 0) take_history_size(size);
        // "set editing-mode" went to the editor; the program reads it here.
        const int vi = term_setOption(TERM_OPTION_VI_MODE, 0);
        rl_variable_bind("editing-mode", vi ? "vi" : "emacs");
        return 0;
    }
    char *line = nullptr;
    size_t cap = 0;
    while (getline(&line, &cap, f) >= 0)
        rl_parse_and_bind(line);
    free(line);
    fclose(f);
    return 0;
}

// ---------------------------------------------------------------------------
// Commands

int rl_insert(int count, int key) {
    if (count <= 0 || key <= 0 || key > 255) return 0;
    const char text[2] = {static_cast<char>(key), 0};
    for (int i = 0; i < count && i < 1024; i++)
        rl_insert_text(text);
    return 0;
}

int rl_tab_insert(int count, int) {
    return rl_insert(count, '\t');
}
int rl_complete(int, int) {
    return 0;
}

int rl_newline(int, int) {
    rl_done = 1;
    qv::rl_ask_newline();
    return 0;
}

int rl_abort(int, int) {
    rl_ding();
    return 0;
}

int rl_get_previous_history(int, int) {
    return 0;
}
int rl_get_next_history(int, int) {
    return 0;
}
