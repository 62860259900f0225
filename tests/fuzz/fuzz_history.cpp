// The history file's load and save round trip. Whatever the file holds, the
// load keeps the entries a model of its rules expects, and a save after it
// gives back every line the file held, byte for byte, then this session's
// entry: added at the end of the file as it stands when nothing has to go,
// or the non-empty lines written again with the oldest dropped beyond the
// history size.
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
    c.state->file = qv::history_file_new();
    qv::history_file_attach(&c);
    c.history_add_unchanged = 1;
    c.history_max = kMax;
    // The load keeps each non-empty line it can decode (a CR stays in it),
    // unless it repeats the one kept before it.
    std::vector<std::string> lines;
    std::vector<std::wstring> kept, got;
    for (size_t p = 0; p < in.size();) {
        size_t nl = in.find('\n', p);
        if (nl == std::string::npos) nl = in.size();
        if (nl > p) {
            const std::string line = in.substr(p, nl - p);
            lines.push_back(line);
            int n = 0;
            wchar_t *w = line.find('\0') == std::string::npos ? cp2wchar(&c, line.c_str(), &n) : nullptr;
            if (w && (kept.empty() || kept.back() != std::wstring(w, static_cast<size_t>(n)))) kept.emplace_back(w, n);
            free(w);
        }
        p = nl + 1;
    }
    history_load(&c, path.c_str());
    for (const history_entry *e = c.history->first; e; e = e->next) {
        int n = 0;
        wchar_t *w = cp2wchar(&c, e->text, &n);
        got.push_back(w ? std::wstring(w, static_cast<size_t>(n)) : L"(undecodable)");
        free(w);
    }
    if (kept.size() > kMax) kept.erase(kept.begin(), kept.end() - kMax);
    if (got != kept) {
        fprintf(stderr, "fuzz_history: the load kept other entries\n");
        abort();
    }
    history_add(&c, L"new", 3);
    history_save(&c, path.c_str());
    // The save gives back every line the file held, then the new entry.
    std::string want;
    if (!kept.empty() && kept.back() == L"new") {
        want = in; // nothing new: the file is not touched
    } else if (lines.size() + 1 <= kMax) {
        want = in + (in.empty() || in.back() == '\n' ? "" : "\n") + "new\n";
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
    qv::history_file_free(c.state->file);
    free(c.state);
    return 0;
}
