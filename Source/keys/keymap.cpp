// Key maps. A map is a block of 257 entries; escape sequences are trees of
// maps. Each block carries a hidden reference count in front of its entries
// so that copies can share sub-maps and every sub-map is freed exactly once.
#include "keymap.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "output.h"
#include "qv_assert.h"

namespace {

struct KeymapBlock {
    size_t refs;
    keymap_entry entries[KEYMAP_SIZE];
};
static_assert(std::is_standard_layout<KeymapBlock>::value, "offsetof needs standard layout");

KeymapBlock *block_of(keymap_entry *map) {
    return reinterpret_cast<KeymapBlock *>(reinterpret_cast<char *>(map) -
                                           offsetof(KeymapBlock, entries));
}

keymap_entry *share(keymap_entry *map) {
    block_of(map)->refs++;
    return map;
}

bool is_undef_sentinel(const char *s) {
    return reinterpret_cast<intptr_t>(s) == static_cast<intptr_t>(UNDEF);
}

} // namespace

keymap_entry *keymap_new(void) {
    auto *block = static_cast<KeymapBlock *>(calloc(1, sizeof(KeymapBlock)));
    if (!block) return nullptr;
    block->refs = 1;
    for (keymap_entry &e : block->entries) {
        e.type = KM_NONE;
        e.target.map = nullptr;
    }
    return block->entries;
}

keymap_entry *keymap_new_defaults(void) { return keymap_new(); }

keymap_entry *keymap_copy(const keymap_entry *map) {
    if (!map) return nullptr;
    keymap_entry *copy = keymap_new();
    if (!copy) return nullptr;
    for (int i = 0; i < KEYMAP_SIZE; i++) {
        copy[i] = map[i];
        if (copy[i].type == KM_SUBMAP && copy[i].target.map) share(copy[i].target.map);
    }
    return copy;
}

void keymap_delete(keymap_entry *map) {
    if (!map) return;
    KeymapBlock *block = block_of(map);
    if (--block->refs > 0) return;
    for (keymap_entry &e : block->entries)
        if (e.type == KM_SUBMAP) keymap_delete(e.target.map);
    free(block);
}

int keymap_bind_key(keymap_entry *map, int key, int type, action_fn action) {
    if (!map || !action) return 0;
    keymap_entry &e = map[static_cast<unsigned>(key) & 0xFFu];
    if (e.type == KM_SUBMAP) keymap_delete(e.target.map);
    e.type = type;
    e.target.action = action;
    return 1;
}

int keymap_bind_key_sequence(keymap_entry *map, const char *sequence, int type,
                             action_fn action) {
    if (!map || !sequence || is_undef_sentinel(sequence) || !action || sequence[0] == 0)
        return 0;
    keymap_entry *k = map;
    const auto *uc = reinterpret_cast<const unsigned char *>(sequence);
    for (; uc[1] != 0; uc++) {
        if (k[*uc].type == KM_SUBMAP) {
            k = k[*uc].target.map;
            continue;
        }
        QV_ASSERT(k[*uc].type == KM_FUNCTION || k[*uc].type == KM_NONE);
        keymap_entry *sub = keymap_new();
        if (!sub) return 0;
        // The byte becomes a prefix; its own action still answers for bytes
        // that the new sub-map does not bind.
        if (k[*uc].type == KM_FUNCTION) k[KEYMAP_DEFAULT] = k[*uc];
        k[*uc].type = KM_SUBMAP;
        k[*uc].target.map = sub;
        k = sub;
    }
    return keymap_bind_key(k, *uc, type, action);
}

action_fn get_action_for_key(const keymap_entry *map, int key) {
    if (!map) return nullptr;
    const keymap_entry &e = map[static_cast<unsigned>(key) & 0xFFu];
    if (e.type == KM_FUNCTION) return e.target.action;
    if (e.type == KM_NONE && map[KEYMAP_DEFAULT].type == KM_FUNCTION)
        return map[KEYMAP_DEFAULT].target.action;
    return nullptr;
}

action_fn get_action_for_key_sequence(const keymap_entry *map, const char *sequence) {
    const keymap_entry *root = map;
    if (!sequence || is_undef_sentinel(sequence)) return nullptr;
    for (const auto *uc = reinterpret_cast<const unsigned char *>(sequence);; uc++) {
        if (!map || *uc == 0) return nullptr;
        const keymap_entry &e = map[*uc];
        if (e.type == KM_FUNCTION) return e.target.action;
        if (e.type == KM_SUBMAP) {
            map = e.target.map;
            continue;
        }
        return root[KEYMAP_DEFAULT].type == KM_FUNCTION ? root[KEYMAP_DEFAULT].target.action
                                                        : nullptr;
    }
}
