// Runs a fuzz target over saved inputs (files, or directories of them), so
// that the corpus and every input that once failed are replayed by the
// ordinary test build.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include <dirent.h>
#include <sys/stat.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

static int replay(const std::string &path) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return 0;
    if (S_ISDIR(st.st_mode)) {
        int n = 0;
        DIR *d = opendir(path.c_str());
        for (dirent *e; d && (e = readdir(d));)
            if (e->d_name[0] != '.') n += replay(path + "/" + e->d_name);
        if (d) closedir(d);
        return n;
    }
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    return 1;
}

int main(int argc, char **argv) {
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    int n = 0;
    for (int i = 1; i < argc; i++) n += replay(argv[i]);
    printf("%d inputs replayed\n", n);
    return n > 0 ? 0 : 1;
}
