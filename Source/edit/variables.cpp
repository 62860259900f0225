// readline's variables. A user's ~/.inputrc sets many of them; every one
// readline knows is taken without complaint. Those that mean something here
// act at once (the ones that are options set the option); the rest are kept,
// so a readline program reads back what it set.
#include "variables.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <strings.h>

#include "console_record.h"
#include "history.h"
#include "options.h"

namespace {

struct Variable {
    const char *name;
    const char *fallback;
    bool boolean;
};

// readline's variables and their defaults, in alphabetical order.
constexpr Variable kVariables[] = {
    {"active-region-end-color", "", false},
    {"active-region-start-color", "", false},
    {"bell-style", "audible", false},
    {"bind-tty-special-chars", "on", true},
    {"blink-matching-paren", "off", true},
    {"colored-completion-prefix", "off", true},
    {"colored-stats", "off", true},
    {"comment-begin", "#", false},
    {"completion-display-width", "-1", false},
    {"completion-ignore-case", "off", true},
    {"completion-map-case", "off", true},
    {"completion-prefix-display-length", "0", false},
    {"completion-query-items", "100", false},
    {"convert-meta", "off", true},
    {"disable-completion", "off", true},
    {"echo-control-characters", "on", true},
    {"editing-mode", "emacs", false},
    {"emacs-mode-string", "@", false},
    {"enable-active-region", "on", true},
    {"enable-bracketed-paste", "on", true},
    {"enable-keypad", "off", true},
    {"enable-meta-key", "on", true},
    {"expand-tilde", "off", true},
    {"history-preserve-point", "off", true},
    {"history-size", "0", false},
    {"horizontal-scroll-mode", "off", true},
    {"input-meta", "on", true},
    {"isearch-terminators", "", false},
    {"keymap", "emacs", false},
    {"keyseq-timeout", "500", false},
    {"mark-directories", "on", true},
    {"mark-modified-lines", "off", true},
    {"mark-symlinked-directories", "off", true},
    {"match-hidden-files", "on", true},
    {"menu-complete-display-prefix", "off", true},
    {"meta-flag", "on", true},
    {"output-meta", "on", true},
    {"page-completions", "on", true},
    {"prefer-visible-bell", "off", true},
    {"print-completions-horizontally", "off", true},
    {"revert-all-at-newline", "off", true},
    {"search-ignore-case", "off", true},
    {"show-all-if-ambiguous", "off", true},
    {"show-all-if-unmodified", "off", true},
    {"show-mode-in-prompt", "off", true},
    {"skip-completed-text", "off", true},
    {"vi-cmd-mode-string", "(cmd)", false},
    {"vi-ins-mode-string", "(ins)", false},
    {"visible-stats", "off", true},
};
constexpr size_t kCount = sizeof kVariables / sizeof kVariables[0];
constexpr size_t kValueMax = 64;

struct Names {
    const char *list[kCount + 1];
    constexpr Names() : list{} {
        for (size_t i = 0; i < kCount; i++) list[i] = kVariables[i].name;
    }
};
constexpr Names kNames;

int index_of(const char *name) {
    for (size_t i = 0; name && i < kCount; i++)
        if (strcasecmp(kVariables[i].name, name) == 0) return static_cast<int>(i);
    return -1;
}

} // namespace

struct qv::VariableState {
    char value[kCount][kValueMax];
    bool set[kCount];
    char *bindings; // the bindings file read last
};

namespace {

qv::VariableState *state_of(const console *c) { return c && c->state ? c->state->variables : nullptr; }

// readline's reading of a boolean: on, or 1, in any case; anything else is off.
bool truthy(const char *value) { return strcasecmp(value, "on") == 0 || strcmp(value, "1") == 0; }

// The variables whose meaning is an option of this library.
struct AsOption {
    const char *name;
    int option;
};
constexpr AsOption kOptions[] = {
    {"enable-bracketed-paste", TERM_OPTION_BRACKETED_PASTE},
    {"show-mode-in-prompt", TERM_OPTION_VI_SHOW_MODE},
    {"blink-matching-paren", TERM_OPTION_BRACE_MATCH},
};

} // namespace

qv::VariableState *qv::variables_new() { return static_cast<VariableState *>(calloc(1, sizeof(VariableState))); }

void qv::variables_free(VariableState *v) {
    if (v) free(v->bindings);
    free(v);
}

void qv::remember_bindings_file(console *c, const char *path) {
    VariableState *v = state_of(c);
    if (!v || !path || (v->bindings && strcmp(v->bindings, path) == 0)) return;
    char *copy = strdup(path);
    if (!copy) return;
    free(v->bindings);
    v->bindings = copy;
}

const char *qv::bindings_file(const console *c) {
    const VariableState *v = state_of(c);
    return v ? v->bindings : nullptr;
}

const char *qv::set_variable(console *c, const char *name, const char *value) {
    const int i = index_of(name);
    if (i < 0) return "unknown variable";
    VariableState *v = state_of(c);
    const Variable &var = kVariables[i];
    // A boolean without a value is on, as readline reads it.
    const char *text = var.boolean ? (!value || !*value || truthy(value) ? "on" : "off") : (value ? value : "");
    if (strlen(text) >= kValueMax) return "value too long";
    if (v) {
        strcpy(v->value[i], text);
        v->set[i] = true;
    }
    for (const AsOption &o : kOptions)
        if (strcasecmp(o.name, var.name) == 0) set_option(o.option, strcmp(text, "on") == 0);
    if (strcasecmp(var.name, "editing-mode") == 0) set_option(TERM_OPTION_VI_MODE, strcasecmp(text, "vi") == 0);
    // readline's history-size: the newest that many entries; a negative
    // number, or none, keeps every one.
    if (strcasecmp(var.name, "history-size") == 0 && c && c->history) {
        char *end = nullptr;
        const long n = strtol(text, &end, 10);
        history_limit(c, end != text && n >= 0 ? static_cast<int>(n < 100000000 ? n : 100000000) : -1);
    }
    return nullptr;
}

const char *qv::variable_value(const console *c, const char *name) {
    const int i = index_of(name);
    if (i < 0) return nullptr;
    const VariableState *v = state_of(c);
    return v && v->set[i] ? v->value[i] : kVariables[i].fallback;
}

const char *const *qv::variable_names() { return kNames.list; }

bool qv::variable_on(const console *c, const char *name) {
    const char *value = variable_value(c, name);
    return value && strcmp(value, "on") == 0;
}

bool qv::variable_set_on(const console *c, const char *name) {
    const int i = index_of(name);
    const VariableState *v = state_of(c);
    return i >= 0 && v && v->set[i] && strcmp(v->value[i], "on") == 0;
}

int qv::variable_number(const console *c, const char *name, int fallback) {
    const char *value = variable_value(c, name);
    if (!value || !*value) return fallback;
    char *end = nullptr;
    const long n = strtol(value, &end, 10);
    return end && *end == 0 ? static_cast<int>(n) : fallback;
}
