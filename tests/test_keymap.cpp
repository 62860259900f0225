// Key maps, through the public key-map calls.
#include <gtest/gtest.h>

#include <cstdint>

#include "keymap.h"

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

} // namespace
