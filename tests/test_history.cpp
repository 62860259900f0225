// The history list and the history file.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "console.h"
#include "pty_harness.h"

namespace {

class History : public ::testing::Test {
  protected:
    void SetUp() override {
        c.history = history_new();
        c.history_add_unchanged = 1;
        c.history_allow_duplicates = 0;
        c.history_max = 1000;
        c.state = static_cast<console_state *>(calloc(1, sizeof(console_state)));
        c.state->file = qv::history_file_new();
        qv::history_file_attach(&c);
        dir = qvtest::tempDir();
        path = dir + "/term.history";
    }
    void TearDown() override {
        history_clear(&c);
        free(c.history);
        qv::history_file_free(c.state->file);
        free(c.state);
    }
    void add(const std::wstring &s) { history_add(&c, s.c_str(), static_cast<uint32_t>(s.size())); }
    void write_file(const std::string &bytes) { std::ofstream(path, std::ios::binary) << bytes; }
    std::string read_file() const { return qvtest::readFile(path); }

    console c{};
    std::string dir, path;
};

// A save adds this session's entries to the file as it is now, whatever the
// list in memory holds, and keeps the bytes it could not decode.
TEST_F(History, SaveMergesIntoTheFileAndKeepsItsPermissions) {
    write_file(std::string("old\nbad \xe9\nnul\0x\n", 16));
    chmod(path.c_str(), 0640);
    add(L"new");
    history_save(&c, path.c_str());
    EXPECT_EQ(read_file(), std::string("old\nbad \xe9\nnul\0x\nnew\n", 20));
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    history_save(&c, path.c_str()); // nothing new since: nothing added twice
    EXPECT_EQ(read_file(), std::string("old\nbad \xe9\nnul\0x\nnew\n", 20));
    // Loaded entries are not new; the newest history_max survive.
    write_file("1\n2\n3\n");
    history_clear(&c);
    history_load(&c, path.c_str());
    c.history_max = 3;
    add(L"4");
    history_save(&c, path.c_str());
    EXPECT_EQ(read_file(), "2\n3\n4\n");
    // No temporary file is left behind.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator()), 1);
}

// Entries are kept as UTF-8: what the file holds comes back character for
// character however wide or long, a line that is not UTF-8 or holds a NUL
// stays in the file and out of the list, an entry ends at a NUL, and a save
// that drops nothing adds to the end of the file as it stands.
TEST_F(History, EntriesRoundTripAsUtf8) {
    const std::string wide = "caf\xc3\xa9 \xe4\xb8\xad \xf0\x9f\x98\x80", longest(200000, 'x');
    const std::string file = wide + "\nbad \xff\n" + std::string("nul\0x\n", 6) + "\n" + longest + "\n";
    write_file(file);
    history_load(&c, path.c_str());
    ASSERT_EQ(c.history->count, 2);
    const history_line *e = qv::history_step(&c, -1);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(std::wstring(e->text, e->length), std::wstring(200000, L'x'));
    e = qv::history_step(&c, -1);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(std::wstring(e->text, e->length), L"caf\u00e9 \u4e2d \U0001F600");
    add(L"tab\there \u00e9");
    add(std::wstring(L"a\0b", 3));
    EXPECT_EQ(top_is_duplicate(&c, L"a", 1), 1);
    history_save(&c, path.c_str());
    EXPECT_EQ(read_file(), file + "tab\there \xc3\xa9\na\n");
}

// A read-only directory, for a user it applies to, leaves the old file as
// it was.
TEST_F(History, AFailedSaveLeavesTheOldFileUntouched) {
    write_file("keep me\n");
    add(L"lost");
    chmod(dir.c_str(), 0555);
    const pid_t child = fork();
    // Root writes anywhere, so a root run saves as nobody.
    if (child == 0)
        _exit(geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0) ? (history_save(&c, path.c_str()), 0) : 1);
    int status = 0;
    waitpid(child, &status, 0);
    chmod(dir.c_str(), 0700);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(read_file(), "keep me\n");
}

// A symlinked file keeps its link, and a dangling one gets its target.
TEST_F(History, SymlinksAreKeptAndFollowed) {
    const std::string real = dir + "/dotfiles-history";
    std::ofstream(real) << "linked\n";
    ASSERT_EQ(symlink("dotfiles-history", path.c_str()), 0);
    add(L"one");
    history_save(&c, path.c_str());
    struct stat st;
    ASSERT_EQ(lstat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ(qvtest::readFile(real), "linked\none\n");
    unlink(real.c_str()); // dangling: the save creates what it points to
    add(L"two");
    history_save(&c, path.c_str());
    EXPECT_EQ(qvtest::readFile(real), "two\n");
}

} // namespace
