// Runs a fuzz target over saved inputs (files, or directories of them), so
// that the corpus and every input that once failed are replayed by the
// ordinary test build.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

static void replay(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

int main(int argc, char **argv) {
    namespace fs = std::filesystem;
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    int n = 0;
    for (int i = 1; i < argc; i++) {
        if (!fs::is_directory(argv[i])) {
            replay(argv[i]);
            n++;
            continue;
        }
        for (const auto &entry : fs::recursive_directory_iterator(argv[i]))
            if (entry.is_regular_file()) replay(entry.path()), n++;
    }
    printf("%d inputs replayed\n", n);
    return n > 0 ? 0 : 1;
}
