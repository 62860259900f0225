// The history list and the history file.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <csignal>

#include <dirent.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <sys/stat.h>
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
        dir = qvtest::tempDir();
        path = dir + "/term.history";
    }
    void TearDown() override {
        history_clear(&c);
        free(c.history);
        qv::history_forget_new(&c);
        free(c.state);
    }
    void add(const std::wstring &s) {
        history_add(&c, s.c_str(), static_cast<uint32_t>(s.size()));
    }
    std::vector<std::wstring> entries() const {
        std::vector<std::wstring> out;
        for (history_entry *e = c.history->first; e; e = e->next) out.emplace_back(e->text, e->length);
        return out;
    }
    void write_file(const std::string &bytes) {
        std::ofstream(path, std::ios::binary) << bytes;
    }
    std::string read_file() const { return qvtest::readFile(path); }
    std::wstring got(history_line *l) { return l ? std::wstring(l->text, l->length) : L"<none>"; }

    console c{};
    std::string dir, path;
};

TEST_F(History, DuplicatesOfTheNewestAndMaskedLinesAreNotAdded) {
    add(L"one");
    add(L"one");
    add(L"two");
    add(L"one");
    EXPECT_EQ(entries(), (std::vector<std::wstring>{L"one", L"two", L"one"}));
    c.masked = 1;
    add(L"secret");
    EXPECT_EQ(c.history->count, 3);
    c.masked = 0;
    c.history_add_unchanged = 0;
    add(L"unedited");
    EXPECT_EQ(c.history->count, 3);
    history_set_dirty(&c);
    add(L"edited");
    EXPECT_EQ(c.history->count, 4);
    EXPECT_EQ(history_is_dirty(&c), 0);
}

TEST_F(History, EntriesBecomeSingleLines) {
    uint32_t k = 0;
    std::unique_ptr<wchar_t, decltype(&free)> a(encode_special_chars(L"ab\\\ncd", 6, &k), &free);
    EXPECT_EQ(std::wstring(a.get(), k), L"abcd");
    std::unique_ptr<wchar_t, decltype(&free)> b(encode_special_chars(L"ab\ncd\r", 6, &k), &free);
    EXPECT_EQ(std::wstring(b.get(), k), L"ab cd ");
    std::unique_ptr<wchar_t, decltype(&free)> d(encode_special_chars(L"end\\", 4, &k), &free);
    EXPECT_EQ(std::wstring(d.get(), k), L"end\\");
}

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
    std::vector<std::string> names; // and no temporary file is left behind
    DIR *d = opendir(dir.c_str());
    while (dirent *e = readdir(d))
        if (e->d_name[0] != '.') names.push_back(e->d_name);
    closedir(d);
    EXPECT_EQ(names, std::vector<std::string>{"term.history"});
}

// A new history file takes the mode the user's umask gives new files.
TEST_F(History, ANewFileFollowsTheUmask) {
    const mode_t old = umask(027);
    add(L"one");
    history_save(&c, path.c_str());
    umask(old);
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(read_file(), "one\n");
}

// Where the new file cannot be made whole, the old one stays as it was.
TEST_F(History, AFailedSaveLeavesTheOldFileUntouched) {
    write_file("keep me\n");
    add(L"lost");
    // A full disk: no byte may be written.
    struct rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit none = old;
    none.rlim_cur = 0;
    setrlimit(RLIMIT_FSIZE, &none);
    history_save(&c, path.c_str());
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(read_file(), "keep me\n");
    // A read-only directory, for a user it applies to.
    chmod(dir.c_str(), 0555);
    const pid_t child = fork();
    if (child == 0) {
        _exit(setgid(65534) == 0 && setuid(65534) == 0 ? (history_save(&c, path.c_str()), 0) : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    chmod(dir.c_str(), 0700);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(read_file(), "keep me\n");
}

// A symlinked file keeps its link; a FIFO or a directory never blocks.
TEST_F(History, LinksAndSpecialFiles) {
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
    unlink(path.c_str());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    add(L"three");
    history_load(&c, path.c_str());
    history_save(&c, path.c_str());
    history_load(&c, dir.c_str());
    EXPECT_EQ(entries(), (std::vector<std::wstring>{L"one", L"two", L"three"}));
}

// Empty lines give no entry, a CR stays in its entry, the last line needs
// no line break, and a line that cannot be decoded (Latin-1, a NUL) costs
// only itself.
TEST_F(History, LoadTakesEveryLineItCan) {
    const std::pair<std::string, std::vector<std::wstring>> cases[] = {
        {"", {}},
        {"\n\n\n", {}},
        {"a\r\nb\r\nno newline", {L"a\r", L"b\r", L"no newline"}},
        {std::string("good\nbad \xe9 latin1\nx\0hidden\nafter\n", 33), {L"good", L"after"}},
    };
    for (const auto &k : cases) {
        history_clear(&c);
        write_file(k.first);
        history_load(&c, path.c_str());
        EXPECT_EQ(entries(), k.second) << k.first;
    }
}

TEST_F(History, LoadAppliesTheAddRulesAndAppends) {
    std::string text;
    for (int i = 0; i < 1500; i++) text += "l" + std::to_string(i) + "\n";
    write_file("dup\ndup\nmid\ndup\n");
    history_load(&c, path.c_str());
    EXPECT_EQ(entries(), (std::vector<std::wstring>{L"dup", L"mid", L"dup"}));
    history_load(&c, path.c_str()); // appended; the joining duplicate is dropped
    EXPECT_EQ(c.history->count, 5);
    write_file(text);
    history_clear(&c);
    history_load(&c, path.c_str());
    EXPECT_EQ(c.history->count, 1000);
    EXPECT_EQ(entries().front(), L"l500");
}

} // namespace
