// Key maps, through the public key-map calls; readline's key notation and
// bindings files.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "console.h"
#include "editkeys.h"
#include "keymap.h"
#include "search.h"
#include "needs.h"
#include "support.h"
#include "userkeys.h"

namespace {

void act_a(console *, int) {}
void act_b(console *, int) {}

// Sequences share their prefixes; a byte that becomes a prefix keeps its own
// action for what the prefix does not bind; a byte bound over a prefix drops
// the tree under it. Refused bindings change nothing.
TEST(Keymap, SequencesPrefixesAndRefusals) {
    keymap_entry *m = keymap_new();
    EXPECT_EQ(keymap_bind_key_sequence(m, "a", KM_FUNCTION, nullptr), 0);
    EXPECT_EQ(keymap_bind_key_sequence(m, "", KM_FUNCTION, act_a), 0);
    EXPECT_EQ(keymap_bind_key_sequence(m, nullptr, KM_FUNCTION, act_a), 0);
    EXPECT_EQ(keymap_bind_key_sequence(m, reinterpret_cast<const char *>(intptr_t{-1}), KM_FUNCTION, act_a), 0);
    EXPECT_EQ(keymap_bind_key(nullptr, 'a', KM_FUNCTION, act_a), 0);
    for (int i = 0; i < KEYMAP_SIZE; i++) EXPECT_EQ(m[i].type, KM_NONE);
    ASSERT_EQ(keymap_bind_key_sequence(m, "\033[A", KM_FUNCTION, act_a), 1);
    ASSERT_EQ(keymap_bind_key_sequence(m, "\033[B", KM_FUNCTION, act_b), 1);
    EXPECT_EQ(get_action_for_key_sequence(m, "\033[A"), act_a);
    EXPECT_EQ(get_action_for_key_sequence(m, "\033[B"), act_b);
    EXPECT_EQ(get_action_for_key_sequence(m, "\033["), nullptr);
    keymap_bind_key(m, 'x', KM_FUNCTION, act_a);
    EXPECT_EQ(get_action_for_key(m, 'x' + 256), act_a); // keys reduce to a byte
    ASSERT_EQ(keymap_bind_key_sequence(m, "xy", KM_FUNCTION, act_b), 1);
    EXPECT_EQ(get_action_for_key_sequence(m, "xy"), act_b);
    EXPECT_EQ(get_action_for_key_sequence(m, "xz"), act_a);
    keymap_bind_key(m, 'x', KM_FUNCTION, act_b);
    EXPECT_EQ(get_action_for_key_sequence(m, "xz"), act_b);
    keymap_delete(m);
}

TEST(Keymap, ReadlinesKeyNotation) {
    QV_NEEDS(TERM_FEATURE_BINDINGS);
    struct Case {
        const char *text;
        bool quoted;
        std::string bytes; // empty: not readable
    };
    const Case cases[] = {
        {"\\C-a", true, "\x01"},         {"\\M-f", true, "\x1b" "f"},     {"\\e[1;5D", true, "\x1b[1;5D"},
        {"\\C-?", true, "\x7f"},         {"\\033\\x1b", true, "\x1b\x1b"}, {"\\C-\\M-x", true, "\x1b\x18"},
        {"\\C-xr", true, "\x18r"},       {"\\\\\\\"", true, "\\\""},     {"\\C-@", true, ""},
        {"Control-u", false, "\x15"},   {"M-Rubout", false, "\x1b\x7f"}, {"TAB", false, "\t"},
        {"C-M-h", false, "\x1b\x08"},    {"NoSuchKey", false, ""},
    };
    for (const Case &k : cases) {
        char out[64];
        const size_t n = qv::parse_keys(k.text, strlen(k.text), k.quoted, out, sizeof out);
        EXPECT_EQ(std::string(out, n), k.bytes) << k.text;
    }
    EXPECT_EQ(qv::action_named("reverse-search-history"), action_search_backward);
    EXPECT_EQ(qv::action_named("no-such-action"), nullptr);
}

// Good lines apply and each bad one is told once, with why; $if picks by
// the terminal's name and the editing mode.
TEST(Keymap, BindingsFiles) {
    QV_NEEDS(TERM_FEATURE_BINDINGS);
    const std::string path = qvtest::tempDir() + "/bindings";
    std::ofstream(path) << "# comment\n"
                           "set editing-mode emacs\n"
                           "\"\\C-t\": backward-char\n"
                           "Control-o: kill-line   # trailing comment\n"
                           "$if term=xterm\n"
                           "  \"\\M-p\": previous-history\n"
                           "$else\n"
                           "  \"\\M-p\": next-history\n"
                           "$endif\n"
                           "$if mode=vi\n"
                           "  C-k: undo\n"
                           "$endif\n"
                           "set keymap emacs-ctlx\n"
                           "\"\\C-r\": reverse-search-history\n"
                           "\"\\C-y\": no-such-action\n"
                           "set no-such-variable on\n"
                           "set editing-mode vi\n"
                           "set bell-style none\n"
                           "\"unclosed: undo\n"
                           "$endif\n"
                           "$if mode=vi\n"
                           "\"\\C-k\": undo\n"
                           "$endif\n"
                           "set show-mode-in-prompt on\n";
    keymap_entry *m = keymap_new(), *vi_insert = keymap_new(), *vi_command = keymap_new();
    const qv::KeymapSet maps{m, vi_insert, vi_command};
    bool vi = false;
    std::vector<std::string> told;
    auto report = [](void *user, int line, const char *, const char *why) {
        static_cast<std::vector<std::string> *>(user)->push_back(std::to_string(line) + " " + why);
    };
    EXPECT_EQ(qv::read_bindings(nullptr, maps, path.c_str(), "xterm-256color", &vi, report, &told), 4);
    EXPECT_EQ(told, (std::vector<std::string>{"15 unknown action", "16 unknown variable", "19 no closing quote",
                                               "20 $endif without $if"}));
    EXPECT_TRUE(vi); // and the bindings after it went to vi's insert map
    EXPECT_EQ(term_setOption(TERM_OPTION_VI_SHOW_MODE, 0), 1);
    EXPECT_EQ(get_action_for_key(vi_insert, 11), action_undo);
    EXPECT_EQ(get_action_for_key(m, 20), action_key_left);
    EXPECT_EQ(get_action_for_key(m, 15), action_kill_to_end_of_line);
    EXPECT_EQ(get_action_for_key_sequence(m, "\x1bp"), action_key_up);
    EXPECT_EQ(get_action_for_key(m, 11), nullptr);
    EXPECT_EQ(get_action_for_key_sequence(m, "\x18\x12"), action_search_backward);
    EXPECT_EQ(qv::read_bindings(nullptr, maps, "/nonexistent/bindings", nullptr, &vi, report, &told), -1);
    EXPECT_EQ(qv::read_bindings(nullptr, maps, qvtest::tempDir().c_str(), nullptr, &vi, report, &told), -1);
    for (keymap_entry *k : {m, vi_insert, vi_command}) keymap_delete(k);
}

} // namespace
