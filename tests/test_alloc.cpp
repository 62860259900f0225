// Allocation failures. This executable replaces malloc and friends with
// wrappers that can fail every allocation from the n-th on, and remember
// which blocks allocated in a test window are still live. It is built
// without sanitizers, whose own allocators would get in the way.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include <thread>

#include <dlfcn.h>
#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

#include "console.h"
#include "os-unix.h"
#include "quorvel.h"
#include "support.h"

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);
}

namespace {

long fail_from = -1; // allocations left before all of them fail; -1: never
bool fail_once = false; // only the one allocation at fail_from fails
bool armed = true;      // false: the test's own allocations, never failed
bool tracking = false;
constexpr size_t kSlots = 1 << 14;
void *live[kSlots]; // blocks allocated while tracking, in no order
size_t live_count = 0;

// ncurses keeps its loaded description on purpose; only blocks that the
// library (or libc on its behalf) allocated are tracked.
bool from_terminfo(void *caller) {
    Dl_info info;
    return dladdr(caller, &info) && info.dli_fname && strstr(info.dli_fname, "libtinfo");
}

void remember(void *p, void *caller) {
    if (tracking && p && live_count < kSlots && !from_terminfo(caller)) live[live_count++] = p;
}

void forget(void *p) {
    for (size_t i = live_count; p && i-- > 0;)
        if (live[i] == p) {
            live[i] = live[--live_count];
            return;
        }
}

} // namespace

// ncurses does not survive its own allocations failing inside setupterm, so
// only allocations outside libtinfo, and outside setupterm, are made to fail.
bool in_setupterm = false;
bool fail_for(void *caller) {
    if (fail_from < 0 || !armed || in_setupterm || from_terminfo(caller)) return false;
    if (fail_from == 0) {
        if (fail_once) fail_from = -1;
        return true;
    }
    fail_from--;
    return false;
}

template <class F> void *tracked(void *caller, F allocate) {
    if (fail_for(caller)) return nullptr;
    void *p = allocate();
    remember(p, caller);
    return p;
}

extern "C" {
void *malloc(size_t n) { return tracked(__builtin_return_address(0), [&] { return __libc_malloc(n); }); }
void *calloc(size_t n, size_t size) {
    return tracked(__builtin_return_address(0), [&] { return __libc_calloc(n, size); });
}
void *realloc(void *p, size_t n) {
    return tracked(__builtin_return_address(0), [&] {
        void *q = __libc_realloc(p, n);
        if (q) forget(p);
        return q;
    });
}
void free(void *p) {
    forget(p);
    __libc_free(p);
}

int setupterm(const char *term, int fd, int *err) {
    using Fn = int (*)(const char *, int, int *);
    static Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "setupterm"));
    in_setupterm = true;
    const bool was_tracking = tracking;
    tracking = false; // the description it loads is kept on purpose
    const int r = real(term, fd, err);
    tracking = was_tracking;
    in_setupterm = false;
    return r;
}
}

namespace {

class AllocationFailure : public ::testing::Test {
  protected:
    void SetUp() override {
        setenv("TERMINFO", QV_TERMINFO_DIR, 1);
        setenv("TERM", "qv-readable", 1);
        fflush(stdout);
        saved_ = dup(1);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        close(null);
    }
    void TearDown() override {
        fail_from = -1;
        fail_once = false;
        tracking = false;
        fflush(stdout);
        dup2(saved_, 1);
        close(saved_);
    }
    int saved_ = -1;
};

// How many allocations f makes that could be made to fail.
template <class F> long allocations_of(F f) {
    fail_from = 1000000;
    f();
    const long used = 1000000 - fail_from;
    fail_from = -1;
    return used;
}

// All or nothing: whichever allocation fails, term_init answers 0 and leaves
// nothing behind; only when every one succeeds does it answer 1.
TEST_F(AllocationFailure, TermInitFailsAtEveryPointAndLeavesNothingBehind) {
    term_options opts = {"/tmp", 0, {}};
    // Warm-up: one-time state (the terminal description) exists before counting.
    ASSERT_EQ(term_init(&opts), 1);
    term_destroy();
    const long needed = allocations_of([&] { term_init(&opts); });
    term_destroy();
    for (long n = 0; n <= needed; n++) {
        live_count = 0;
        tracking = true;
        fail_from = n;
        const int ok = term_init(&opts);
        fail_from = -1;
        tracking = false;
        EXPECT_EQ(ok, n == needed ? 1 : 0) << "allocation " << n;
        if (ok) {
            term_destroy(); // the copy of the history directory outlives it by design
            break;
        }
        ASSERT_EQ(live_count, 0u) << "allocation " << n << " failed and left blocks behind";
    }
    EXPECT_GT(needed, 5);
}

// A load cut short by any failed allocation never costs the file an entry.
TEST_F(AllocationFailure, AFailedLoadNeverCostsTheFileAnEntry) {
    const std::string path = qvtest::tempDir() + "/term.history";
    const std::string before = "alpha\nbeta\ngamma\n";
    console c{};
    ASSERT_EQ(console_init(&c), 1);
    auto write = [&] { std::ofstream(path) << before; };
    write();
    const long needed = allocations_of([&] { history_load(&c, path.c_str()); });
    for (long n = 0; n < needed; n++) {
        history_clear(&c);
        write();
        fail_from = n;
        history_load(&c, path.c_str());
        fail_from = -1;
        history_add(&c, L"new", 3);
        history_save(&c, path.c_str());
        EXPECT_EQ(qvtest::readFile(path), before + "new\n") << "allocation " << n;
    }
    console_free(&c);
}

// Without memory for a fresh buffer Ctrl-G ends the read; without memory to
// encode or grow, the read fails with no buffer left to go out of step with
// the screen.
TEST_F(AllocationFailure, TheEditorFailsQuietly) {
    for (int what = 0; what < 2; what++) {
        console c{};
        ASSERT_EQ(console_init(&c), 1);
        ASSERT_EQ(console_init_editor(&c), 1);
        c.prompt = L"> ";
        screen_buffer_reset(&c);
        console_put_prompt(&c);
        buffer_insert_string(&c, L"\u00e9t\u00e9", 3);
        const std::wstring big(600, L'x');
        fail_from = 0; // no check may allocate until the next line
        char *encoded = what ? encode_input(&c) : nullptr;
        const uint32_t inserted = what ? buffer_insert_string(&c, big.data(), 600) : 0;
        if (!what) action_abandon_input(&c, 7);
        fail_from = -1;
        EXPECT_EQ(encoded, nullptr);
        EXPECT_EQ(inserted, 0u);
        EXPECT_EQ(c.status, what ? ST_NOMEMORY : ST_NOBUFFER);
        EXPECT_EQ(c.error, what);
        EXPECT_EQ(c.editor.buffer, nullptr);
        console_free(&c);
    }
}

// A session that uses every feature, run through the public calls on a
// pseudo-terminal with an allocation failing at each point in turn, once
// or for good from there: no run crashes or hangs, every read ends with a
// line or a status that says memory ran out, and the history file keeps
// every line it had.
void complete_two(const char *, int cursor, term_completions *out, void *) {
    term_addCompletion(out, 0, "alpha");
    term_addCompletion(out, 0, "alpine");
    (void)cursor;
}

void sweep_highlight(const char *text, int len, term_highlight *out, void *) {
    for (int i = term_highlightFrom(out); i < len; i++)
        if (text[i] != ' ') term_addHighlight(out, i, i + 1, TERM_FG(2));
}

class SessionSweep : public AllocationFailure {
  protected:
    void SetUp() override {
        AllocationFailure::SetUp();
        struct winsize ws {};
        ws.ws_row = 24;
        ws.ws_col = 40;
        int slave = -1;
        ASSERT_EQ(openpty(&master_, &slave, nullptr, nullptr, &ws), 0);
        fcntl(master_, F_SETFL, O_NONBLOCK);
        saved_in_ = dup(0);
        fflush(stdout);
        dup2(slave, 0);
        dup2(slave, 1);
        close(slave);
        dir_ = qvtest::tempDir();
        armed = false;
    }
    void TearDown() override {
        armed = true;
        fflush(stdout);
        dup2(saved_in_, 0);
        close(saved_in_);
        close(master_);
        AllocationFailure::TearDown();
    }
    // Only the library's own allocations are made to fail.
    template <class F> static auto lib(F f) {
        struct Arm {
            Arm() { armed = true; }
            ~Arm() { armed = false; }
        } arm;
        return f();
    }
    void drain() {
        char buf[4096];
        while (read(master_, buf, sizeof buf) > 0) {
        }
    }
    // One read: the keys of each step pushed and fed in turn. Answers
    // whether the read ended with a line or a status it documents for
    // memory that ran out.
    ::testing::AssertionResult read_line(const std::vector<std::string> &steps) {
        if (!lib([] { return term_editStart(TERM_EDIT_UTF8, 0, "> "); })) return ::testing::AssertionSuccess();
        for (const std::string &keys : steps) {
            if (keys == "print") {
                std::thread([this] { lib([] { term_print("printed from a thread"); }); }).join();
            } else {
                lib([&] { return term_editPush(keys.data(), static_cast<int>(keys.size())); });
            }
            char *line = nullptr;
            const int done = lib([&] { return term_editFeed(&line); });
            drain();
            if (done == 1) {
                const int status = term_getStatus();
                term_free(line);
                if (status == ST_NOBUFFER || status == ST_NOMEMORY || (status == ST_DONE && line))
                    return ::testing::AssertionSuccess();
                return ::testing::AssertionFailure() << "ended with status " << status;
            }
        }
        lib([] { term_editStop(); });
        drain();
        return ::testing::AssertionFailure() << "the read never ended";
    }
    ::testing::AssertionResult session() {
        term_options opts = {dir_.c_str(), 0, {}};
        if (!lib([&] { return term_init(&opts); })) return ::testing::AssertionFailure() << "no instance";
        lib([] {
            term_loadHistory();
            term_setOption(TERM_OPTION_HINTS, 1);
            term_setOption(TERM_OPTION_VI_MODE, 0);
            term_setCompleter(complete_two, nullptr);
            term_setHighlighter(sweep_highlight, nullptr);
        });
        // Hints, completion and its listing, kills and yanks, undo, text
        // beyond ASCII, a paste, a print queued during the read, and a
        // search, all highlighted.
        auto first = read_line({"al", "\t", "\t", "\t", " x", "\x1b[D\x0b", "\x01\x0b", "\x19", "\x1by",
                                "\x1f", "\x1f", "\xc3\xa9", "\x1b[200~pasted\ntext\x1b[201~", "print", "\x12" "bet", "\x1b[C",
                                "\x12", "\x07", "\r"});
        // Then vi mode: its maps are built, and its commands cut, put,
        // undo, repeat and search.
        lib([] { term_setOption(TERM_OPTION_VI_MODE, 1); });
        auto second = read_line({"\x1b[A", "\x1b[A", "\x1b[5~", "\x1b", "0dw", "u", "x", ".", "p", "A!", "\x1b",
                                 "/al", "\r", "\r"});
        lib([] { term_setOption(TERM_OPTION_VI_MODE, 0); });
        term_setHighlighter(nullptr, nullptr);
        lib([] { term_destroy(); });
        drain();
        return !first ? first : second;
    }
    int master_ = -1;
    int saved_in_ = -1;
    std::string dir_;
};

TEST_F(SessionSweep, EveryFeatureSurvivesEachFailedAllocation) {
    const std::string path = dir_ + "/term.history";
    const std::string before = "alpha one\nbeta two\ngamma three\n";
    std::ofstream(path) << before;
    ASSERT_TRUE(session()); // warm-up: one-time state exists before counting
    std::ofstream(path) << before;
    const long needed = allocations_of([&] { session(); });
    ASSERT_GT(needed, 50);
    // The terminal has stdout, so what went wrong is told once it is back.
    std::string problems;
    for (int once = 0; once < 2; once++)
        for (long n = 0; n < needed; n++) {
            std::ofstream(path) << before;
            fail_once = once;
            fail_from = n;
            const ::testing::AssertionResult ran = session();
            fail_from = -1;
            fail_once = false;
            const std::string which = "allocation " + std::to_string(n) + (once ? " failed alone: " : " failed for good: ");
            // Without an instance there is nothing to check but that it
            // did not crash.
            if (!ran && std::string(ran.message()) != "no instance") problems += which + ran.message() + "\n";
            const std::string after = qvtest::readFile(path);
            if (after.compare(0, before.size(), before) != 0) problems += which + "the file is " + after + "\n";
        }
    TearDown();
    EXPECT_EQ(problems, "");
    SetUp();
}

} // namespace
