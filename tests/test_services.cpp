// Threads, mutexes, conditions, thread-local storage, process priority, the
// logger and the configuration file.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "config.h"
#include "logger.h"
#include "pty_harness.h"
#include "threads-unix.h"

namespace {

// ---------------------------------------------------------------------------
// Threads and synchronisation

// Starts body on a thread of its own with the given priority code.
KThread start(std::function<void()> &body, int priority = 1) {
    return KThreadCreate(
        [](void *p) -> void * {
            (*static_cast<std::function<void()> *>(p))();
            return nullptr;
        },
        &body, priority);
}

void join(KThread t) {
    ASSERT_NE(t, nullptr);
    KThreadWaitForExit(t);
    Delete_KThread(t);
}

void run(std::function<void()> body, int priority = 1) { join(start(body, priority)); }

// The other thread sees the owner's lock, its own empty local storage and
// an id of its own.
TEST(Threads, MutexesLocalStorageAndSleeps) {
    KMutex m = New_KMutex();
    KThreadLocalStorage tls = New_KThreadLocalStorage();
    int mine = 5, answer = -1;
    void *theirs = &mine;
    unsigned long their_id = 0;
    KThreadLocalStorageSet(tls, &mine);
    auto try_lock = [&] {
        answer = KMutexTryLock(m);
        if (answer == 1) KMutexUnlock(m);
        theirs = KThreadLocalStorageGet(tls);
        their_id = KThreadID();
    };
    KMutexLock(m);
    KMutexLock(m); // the owner may lock again
    run(try_lock, 2);
    EXPECT_EQ(answer, 0);
    EXPECT_EQ(theirs, nullptr);
    EXPECT_NE(their_id, KThreadID());
    EXPECT_EQ(KThreadLocalStorageGet(tls), &mine);
    KMutexUnlock(m);
    KMutexUnlock(m);
    run(try_lock, 7); // an unknown priority code runs at the default priority
    EXPECT_EQ(answer, 1);
    Delete_KMutex(m);
    Delete_KThreadLocalStorage(tls);

    KMutex plain = New_KMutex_NonRecursive();
    EXPECT_EQ(KMutexTryLock(plain), 1);
    EXPECT_EQ(KMutexTryLock(plain), 0); // not recursive
    KMutexUnlock(plain);
    Delete_KMutex(plain);
    const auto begun = std::chrono::steady_clock::now();
    KThread_Sleep(0);
    KThread_Sleep(-5);
    KThread_Sleep(30);
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(30));
}

TEST(Threads, TimedWaitTellsATimeOutFromASignal) {
    KMutex m = New_KMutexTryable();
    KCondition cond = New_KCondition();
    std::atomic<int> flag{0};
    KMutexLock(m);
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(KConditionTimedWait(cond, m, 120), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(100));
    std::function<void()> signaller = [&] {
        KMutexLock(m);
        flag = 1;
        KConditionSignal(cond);
        KMutexUnlock(m);
    };
    KThread t = start(signaller, 0);
    int woke = 1;
    while (flag != 1) woke = KConditionTimedWait(cond, m, 10000);
    EXPECT_EQ(woke, 0);
    KMutexUnlock(m);
    join(t);
    Delete_KCondition(cond);
    Delete_KMutex(m);
}

// In a child, so the test run keeps its own priority. Raising priority needs
// privilege; where it is refused the class must stay as it was. Every nice
// value that can be set maps to its class.
TEST(Priority, ClassesReadBackAfterSetting) {
    const pid_t child = fork();
    if (child == 0) {
        int failures = setProcessPriorityClass(7) != 0 || setProcessPriorityClass(-3) != 0;
        for (int cls : {2, 1, 0, -1, -2}) {
            const int before = getProcessPriorityClass();
            const int ok = setProcessPriorityClass(cls);
            failures += getProcessPriorityClass() != (ok ? cls : before);
        }
        const int table[][2] = {{0, 0}, {-1, 1}, {-9, 1}, {-10, 2}, {-20, 2}, {1, -1}, {18, -1}, {19, -2}};
        for (const auto &row : table)
            if (setpriority(PRIO_PROCESS, 0, row[0]) == 0) failures += getProcessPriorityClass() != row[1];
        _exit(failures);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

// ---------------------------------------------------------------------------
// Logger

std::vector<std::string> split_lines(const std::string &s) {
    std::vector<std::string> out;
    std::istringstream in(s);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

class Logger : public ::testing::Test {
  protected:
    void TearDown() override {
        for (const std::string &f : files) unlink(f.c_str());
        logger_finish_all();
    }
    std::string file_of(const char *name) {
        appender *a = logger_get_appender(name);
        files.push_back(a->filename ? a->filename : "");
        return files.back();
    }
    std::vector<std::string> files;
};

// The whole process id always makes it into the name, so two processes never
// share a file; a long name gives way to it.
TEST_F(Logger, FileNamesAndLineFormat) {
    auto name = [](const char *n, int pid) {
        std::unique_ptr<char, decltype(&free)> p(qv::log_file_name(n, pid), &free);
        return std::string(p.get());
    };
    EXPECT_EQ(name("x", 812), "/tmp/x-00812.log");
    EXPECT_EQ(name("x", 123456), "/tmp/x-123456.log");
    const std::string long_name = name(std::string(300, 'n').c_str(), 1234567);
    EXPECT_EQ(long_name.size(), 260u);
    EXPECT_EQ(long_name.substr(long_name.size() - 13), "n-1234567.log");

    const std::string path = file_of("qvtest-format");
    EXPECT_EQ(path, name("qvtest-format", getPID()));
    logger_write_fmt("qvtest-format", "/home/u/src/screen", 42, "value %d", 7);
    logger_write_fmt("qvtest-format", nullptr, 0, "plain");
    logger_write_fmt("qvtest-format", "/x", 9, "root");
    const std::vector<std::string> lines = split_lines(qvtest::readFile(path));
    ASSERT_EQ(lines.size(), 3u);
    const std::string stamp = "[0-2][0-9]:[0-5][0-9]:[0-5][0-9]\\.[0-9]{3}\t";
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(stamp + "screen:42\tvalue 7"))) << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(stamp + "\tplain"))) << lines[1];
    EXPECT_TRUE(std::regex_match(lines[2], std::regex(stamp + "/x:9\troot"))) << lines[2];
    // Another pointer to the same text reaches the same appender.
    EXPECT_EQ(logger_get_appender(std::string("qvtest-format").c_str()), logger_get_appender("qvtest-format"));
}

// A link or another user's file planted at the appender's path gets nothing.
TEST_F(Logger, PlantedFilesAreRefused) {
    const std::string target = qvtest::tempDir() + "/victim", path = file_of("qvtest-planted");
    auto afresh = [&] {
        logger_finish_all();
        unlink(path.c_str());
    };
    afresh();
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
    logger_write_fmt("qvtest-planted", nullptr, 0, "secret");
    EXPECT_NE(access(target.c_str(), F_OK), 0);
    afresh();
    std::ofstream(path) << "theirs\n";
    if (chown(path.c_str(), 65534, 65534) == 0) { // only root can plant for another user
        logger_write_fmt("qvtest-planted", nullptr, 0, "secret");
        EXPECT_EQ(qvtest::readFile(path), "theirs\n");
    }
    afresh();
    logger_write_fmt("qvtest-planted", nullptr, 0, "mine");
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(Logger, StopStartAndFinish) {
    logger_stop("qvtest-pause"); // creates the appender and its empty file, paused
    const std::string path = file_of("qvtest-pause");
    EXPECT_EQ(access(path.c_str(), F_OK), 0);
    logger_write_fmt("qvtest-pause", nullptr, 0, "dropped");
    logger_start("qvtest-pause");
    logger_write_fmt("qvtest-pause", nullptr, 0, "kept");
    logger_finish("qvtest-pause");
    logger_start("qvtest-pause");
    logger_write_fmt("qvtest-pause", nullptr, 0, "after finish");
    logger_finish("qvtest-pause"); // twice is harmless
    const std::vector<std::string> lines = split_lines(qvtest::readFile(path));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("\t\tkept"), std::string::npos);
    EXPECT_EQ(appender_active(logger_get_appender("qvtest-pause")), 0);
}

TEST_F(Logger, ConcurrentLinesStayWhole) {
    const std::string a = file_of("qvtest-many-a"), b = file_of("qvtest-many-b");
    std::vector<std::function<void()>> bodies;
    for (int n = 0; n < 4; n++)
        bodies.emplace_back([n] {
            for (int i = 0; i < 200; i++) {
                logger_write_fmt(n % 2 ? "qvtest-many-a" : "qvtest-many-b", "src/t.c", static_cast<unsigned>(i),
                                 "thread %d line %d %s", n, i, std::string(50, 'x').c_str());
                logger_write_fmt("qvtest-many-shared", nullptr, 0, "thread %d %d", n, i);
            }
        });
    std::vector<KThread> threads;
    for (auto &body : bodies) threads.push_back(start(body));
    for (KThread t : threads) join(t);
    const std::regex line("[0-9:.]{12}\tt\\.c:[0-9]+\tthread [0-3] line [0-9]+ x{50}");
    for (const std::string &path : {a, b}) {
        const std::vector<std::string> lines = split_lines(qvtest::readFile(path));
        EXPECT_EQ(lines.size(), 400u);
        for (const std::string &l : lines) ASSERT_TRUE(std::regex_match(l, line)) << l;
    }
    EXPECT_EQ(split_lines(qvtest::readFile(file_of("qvtest-many-shared"))).size(), 800u);
}

// ---------------------------------------------------------------------------
// Configuration file. The path is fixed, so one test walks every rule and
// puts back whatever file was there.

TEST(Config, EveryRule) {
    const char *path = "/tmp/Quorvel.conf";
    const std::string kept = qvtest::readFile(path);
    const bool existed = access(path, F_OK) == 0;
    struct Case {
        const char *content;
        int start;
        int expected;
    };
    const Case cases[] = {
        {nullptr, 0, 0}, // no file: unchanged
        {"logging=TRUE\r\n", 0, 1},
        {"logging = TRUE\n", 0, 0},
        {"Logging=TRUE\n", 0, 0},
        {"logging=true\nlogging=TRUE\n", 0, 0}, // a bad value stops the reading
        {"logging=TRUE\nlogging=FALSE\n", 0, 0},
        {"logging=FALSE\nlogging=TRUE  \n", 0, 1},
        {"logging=TRUE\t\n", 0, 0},
        {"free text\n\nother=1\nlogging=TRUE", 0, 1},
        {"logging=maybe\n", 1, 1}, // stops; the flag keeps its value
    };
    for (const Case &c : cases) {
        unlink(path);
        if (c.content) std::ofstream(path) << c.content;
        isLogging = c.start;
        read_config_file();
        EXPECT_EQ(isLogging, c.expected) << (c.content ? c.content : "(no file)");
    }
    // Anyone can create a file in /tmp: only one of this user's or root's is
    // honoured, never through a link, and a FIFO does not block the read.
    const std::string link = qvtest::tempDir() + "/conf";
    std::ofstream(link) << "logging=TRUE\n";
    const struct {
        const char *what;
        int (*make)(const char *path, const std::string &link);
    } foreign[] = {
        {"another user's file",
         [](const char *p, const std::string &) {
             std::ofstream(p) << "logging=TRUE\n";
             return getuid() == 0 ? chown(p, 4242, 4242) : -1;
         }},
        {"a link", [](const char *p, const std::string &l) { return symlink(l.c_str(), p); }},
        {"a FIFO", [](const char *p, const std::string &) { return mkfifo(p, 0600); }},
    };
    for (const auto &f : foreign) {
        unlink(path);
        if (f.make(path, link) != 0) continue; // not root: no other owner to give
        isLogging = 0;
        read_config_file();
        EXPECT_EQ(isLogging, 0) << f.what;
    }
    config_file_load(nullptr, nullptr);
    unlink(path);
    if (existed) std::ofstream(path) << kept;
    isLogging = 0;
}

} // namespace
