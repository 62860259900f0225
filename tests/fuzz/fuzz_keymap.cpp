// Binding arbitrary key sequences: the sequence bound last always finds its
// action, copies share sub-maps, and everything is freed once.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "console.h"
#include "os-unix.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    keymap_entry *map = keymap_new();
    if (!map) return 0;
    const action_fn actions[] = {action_key_left, action_key_right, action_insert_char};
    std::vector<std::string> seqs(1);
    for (size_t i = 0; i < size; i++) {
        if (data[i] == 0)
            seqs.emplace_back();
        else
            seqs.back() += static_cast<char>(data[i]);
    }
    keymap_entry *copy = nullptr;
    for (size_t i = 0; i < seqs.size(); i++) {
        const std::string &s = seqs[i];
        if (s.empty()) continue;
        const action_fn a = actions[i % 3];
        if (keymap_bind_key_sequence(map, s.c_str(), KM_FUNCTION, a) &&
            get_action_for_key_sequence(map, s.c_str()) != a) {
            fprintf(stderr, "fuzz_keymap: a bound sequence lost its action\n");
            abort();
        }
        if (i == seqs.size() / 2) {
            keymap_delete(copy);
            copy = keymap_copy(map);
            // A copy shares its sub-maps: a sequence bound in the copy under
            // one of them shows in the original too.
            const std::string longer = s + "\x01";
            if (copy && s.size() > 1 &&
                keymap_bind_key_sequence(copy, longer.c_str(), KM_FUNCTION, action_key_home) &&
                get_action_for_key_sequence(map, longer.c_str()) != action_key_home) {
                fprintf(stderr, "fuzz_keymap: a copy no longer shares its sub-maps\n");
                abort();
            }
        }
    }
    if (size % 2) std::swap(copy, map); // either order frees each node once
    keymap_delete(copy);
    keymap_delete(map);
    return 0;
}
