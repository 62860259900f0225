// The history file's load and save round trip. Whatever the file holds, a
// save after a load gives back every line it held, byte for byte, then this
// session's entry, the oldest dropped beyond the history size.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "console.h"
#include "os-unix.h"
#include "support.h"

namespace {

std::string path;
constexpr int kMax = 50;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    path = qvtest::tempDir() + "/term.history";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string in(reinterpret_cast<const char *>(data), size);
    std::ofstream(path, std::ios::binary) << in;

    console c{};
    c.history = history_new();
    c.state = static_cast<console_state *>(calloc(1, sizeof(console_state)));
    c.history_add_unchanged = 1;
    c.history_max = kMax;
    history_load(&c, path.c_str());
    history_add(&c, L"new", 3);
    history_save(&c, path.c_str());

    std::vector<std::string> lines;
    std::string last_loaded; // the newest entry the load could take
    for (size_t p = 0; p < in.size();) {
        size_t nl = in.find('\n', p);
        if (nl == std::string::npos) nl = in.size();
        if (nl > p) {
            const std::string line = in.substr(p, nl - p);
            lines.push_back(line);
            int n = 0;
            wchar_t *w = line.find('\0') == std::string::npos ? cp2wchar(&c, line.c_str(), &n) : nullptr;
            if (w) last_loaded = line;
            free(w);
        }
        p = nl + 1;
    }
    std::string want;
    if (last_loaded == "new") {
        want = in; // nothing new: the file is not touched
    } else {
        lines.push_back("new");
        for (size_t i = lines.size() > kMax ? lines.size() - kMax : 0; i < lines.size(); i++)
            want += lines[i] + "\n";
    }
    if (qvtest::readFile(path) != want) {
        fprintf(stderr, "fuzz_history: the saved file lost or changed a line\n");
        abort();
    }
    history_clear(&c);
    free(c.history);
    qv::history_forget_new(&c);
    free(c.state);
    return 0;
}
