// UTF-8 conversions and the result encoding: valid text survives the round
// trip exactly, invalid text is refused, and a returned line is 7-bit ASCII.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "console.h"
#include "os-unix.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string s(reinterpret_cast<const char *>(data), strnlen(reinterpret_cast<const char *>(data), size));
    int n = 0;
    wchar_t *w = cp2wchar(nullptr, s.c_str(), &n);
    if (!w) return 0;
    char *back = wchar2cp(nullptr, w, n);
    if (!back || s != back) {
        fprintf(stderr, "fuzz_text: UTF-8 did not survive the round trip\n");
        abort();
    }
    free(back);
    console c{};
    if (console_init_editor(&c)) {
        buffer_insert_string(&c, w, static_cast<uint32_t>(n));
        char *line = encode_input(&c);
        for (const char *p = line; p && *p; p++)
            if (static_cast<unsigned char>(*p) > 127) {
                fprintf(stderr, "fuzz_text: a returned line is not ASCII\n");
                abort();
            }
        free(line);
        console_free_editor(&c);
    }
    free(w);
    return 0;
}
