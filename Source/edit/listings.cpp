// readline's listings: each binding of the map in use, each string macro,
// each variable, in the wording readline uses for them.
#include "listings.h"

#include <cstdlib>

#include "completion.h"
#include "console_record.h"
#include "options.h"
#include "repeat.h"
#include "text.h"
#include "variables.h"
#include "vimode.h"

namespace {

// A key sequence in readline's notation.
std::string notation(const std::string &keys) {
    std::string out;
    for (const unsigned char b : keys) {
        if (b == 27) out += "\\e";
        else if (b == 127) out += "\\C-?";
        else if (b >= 1 && b <= 26) out += std::string("\\C-") + static_cast<char>(b + 96);
        else if (b < 32) out += std::string("\\C-") + (b == 28 ? "\\\\" : std::string(1, static_cast<char>(b + 64)));
        else if (b == '"' || b == '\\') out += std::string("\\") + static_cast<char>(b);
        else out += static_cast<char>(b);
    }
    return out;
}

// Every key sequence of map bound to an action, with the action.
template <class F> void each_binding(const keymap_entry *map, std::string &keys, int depth, F &&f) {
    if (!map || depth > 8) return;
    for (int b = 0; b < 256; b++) {
        const keymap_entry &e = map[b];
        keys.push_back(static_cast<char>(b));
        if (e.type == KM_FUNCTION && e.target.action) f(keys, e.target.action);
        if (e.type == KM_SUBMAP) each_binding(e.target.map, keys, depth + 1, f);
        keys.pop_back();
    }
}

const keymap_entry *active_map(console *c) {
    return qv::option(TERM_OPTION_VI_MODE) ? qv::vi_map(c, false) : c->keymaps[0];
}

std::string functions(console *c, bool readable, const char *const *names, action_fn (*named)(const char *)) {
    std::string text;
    for (const char *const *name = names; *name; name++) {
        const action_fn fn = named(*name);
        std::string keys, found;
        int count = 0;
        each_binding(active_map(c), keys, 0, [&](const std::string &k, action_fn a) {
            if (a != fn) return;
            if (readable) found += "\"" + notation(k) + "\": " + *name + "\n";
            else if (count++ < 5) found += (found.empty() ? "\"" : ", \"") + notation(k) + "\"";
        });
        if (readable) text += found.empty() ? std::string("# ") + *name + " (not bound)\n" : found;
        else text += std::string(*name) + (found.empty() ? " is not bound to any keys\n" : " can be found on " + found + ".\n");
    }
    return text;
}

} // namespace

std::string qv::listing(console *c, Listing what, bool readable, const char *const *names,
                        action_fn (*named)(const char *)) {
    std::string text;
    if (what == Listing::functions) return functions(c, readable, names, named);
    if (what == Listing::variables) {
        for (const char *const *name = variable_names(); *name; name++)
            text += readable ? std::string("set ") + *name + " " + variable_value(c, *name) + "\n"
                             : std::string(*name) + " is set to `" + variable_value(c, *name) + "'\n";
        return text;
    }
    std::string keys;
    each_binding(active_map(c), keys, 0, [&](const std::string &k, action_fn a) {
        size_t n = 0;
        if (const char *macro = macro_text(c, a, &n)) {
            const std::string out = notation(std::string(macro, n));
            text += readable ? "\"" + notation(k) + "\": \"" + out + "\"\n" : notation(k) + " outputs " + out + "\n";
        }
    });
    return text;
}

void qv::show_listing(console *c, const std::string &text) {
    int n = 0;
    wchar_t *wide = utf8_decode(text.data(), text.size(), &n);
    if (wide) show_below(c, wide, n);
    free(wide);
}
