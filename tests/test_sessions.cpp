// Sessions: many terminals served by one process, each with its own
// description, size, mode, history and print queue. The terminals are
// pseudo-terminals and a socket pair this test holds the other side of; what
// the library wrote to each is rendered on its own.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "pty_harness.h"
#include "quorvel.h"

using namespace qvtest;

namespace {

// A terminal this test is the other side of: the session's end, and what
// the library has written to it so far.
struct Peer {
    int ours = -1, theirs = -1;
    std::string out;
    Peer(int cols, int rows) {
        struct winsize ws {};
        ws.ws_col = static_cast<unsigned short>(cols);
        ws.ws_row = static_cast<unsigned short>(rows);
        if (openpty(&ours, &theirs, nullptr, nullptr, &ws) != 0) ours = theirs = -1;
        fcntl(ours, F_SETFL, O_NONBLOCK);
    }
    explicit Peer(int) {
        int sv[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) == 0) ours = sv[0], theirs = sv[1];
        fcntl(ours, F_SETFL, O_NONBLOCK);
    }
    ~Peer() {
        if (ours >= 0) close(ours);
        if (theirs >= 0) close(theirs);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    void drain() {
        char buf[4096];
        for (ssize_t n; (n = read(ours, buf, sizeof buf)) > 0;) out.append(buf, static_cast<size_t>(n));
    }
    void type(const std::string &keys) { ASSERT_EQ(write(ours, keys.data(), keys.size()), static_cast<ssize_t>(keys.size())); }
};

class Sessions : public ::testing::Test {
  protected:
    void SetUp() override {
        setenv("TERMINFO", terminfoDir().c_str(), 1);
        setenv("TERM", "xterm-256color", 1);
        setenv("LC_ALL", "C.UTF-8", 1);
    }
};

term_session_options options(const char *terminal, int stream = 0) {
    term_session_options o{};
    o.size = sizeof o;
    o.terminal = terminal;
    o.stream = stream;
    return o;
}

// Feeds every session's edit from one poll loop until each has a line (or
// the time runs out); answers the lines in session order.
std::vector<std::string> serve(const std::vector<term_session *> &sessions, std::vector<Peer *> peers, int rounds = 2000) {
    std::vector<std::string> lines(sessions.size());
    std::vector<bool> done(sessions.size(), false);
    while (rounds-- > 0) {
        std::vector<struct pollfd> fds;
        for (term_session *s : sessions) {
            term_use(s);
            fds.push_back(pollfd{term_editFd(), POLLIN, 0});
        }
        term_use(nullptr);
        poll(fds.data(), fds.size(), 5);
        bool all = true;
        for (size_t i = 0; i < sessions.size(); i++) {
            if (done[i]) continue;
            term_use(sessions[i]);
            char *line = nullptr;
            if (term_editFeed(&line) == 1) {
                lines[i] = line ? line : "<NULL>";
                free(line);
                done[i] = true;
            }
            all = all && done[i];
        }
        term_use(nullptr);
        for (Peer *p : peers) p->drain();
        if (all) break;
    }
    return lines;
}

// Eight pseudo-terminals, eight sessions, one loop: keys typed into each at
// once come back as each one's own line, and each terminal shows only its
// own prompt and text, drawn with its own description at its own width.
TEST_F(Sessions, EightTerminalsOneLoop) {
    QV_NEEDS(TERM_FEATURE_SESSIONS | TERM_FEATURE_EVENT_LOOP);
    std::vector<std::unique_ptr<Peer>> peers;
    std::vector<Peer *> raw;
    std::vector<term_session *> sessions;
    for (int i = 0; i < 8; i++) {
        peers.push_back(std::make_unique<Peer>(i == 1 ? 30 : 20, 6));
        raw.push_back(peers.back().get());
        const term_session_options o = options(i == 1 ? "qv-readable" : nullptr);
        term_session *s = term_open(peers.back()->theirs, peers.back()->theirs, &o);
        ASSERT_NE(s, nullptr);
        sessions.push_back(s);
        term_use(s);
        ASSERT_EQ(term_editStart(TERM_EDIT_UTF8, 0, (std::to_string(i) + "> ").c_str()), 1);
        EXPECT_EQ(term_getConsoleWidth(), i == 1 ? 30 : 20);
        term_use(nullptr);
    }
    for (int i = 0; i < 8; i++) peers[static_cast<size_t>(i)]->type("line of " + std::to_string(i) + std::string(static_cast<size_t>(i), 'x') + "\r");
    const std::vector<std::string> got = serve(sessions, raw);
    for (int i = 0; i < 8; i++) {
        const std::string text = "line of " + std::to_string(i) + std::string(static_cast<size_t>(i), 'x');
        EXPECT_EQ(got[static_cast<size_t>(i)], text);
        const Peer &p = *peers[static_cast<size_t>(i)];
        if (i == 1) {
            // The readable description's own tokens, at its width.
            EXPECT_EQ(p.out.find("<hpa 0>1> " + std::string(27, ' ') + "<hpa 0><cuf 3>"), 0u) << visible(p.out);
            EXPECT_EQ(p.out.find("\x1b["), std::string::npos);
            continue;
        }
        const std::string all = std::to_string(i) + "> " + text;
        const Screen s = render(p.out, 6, 20);
        EXPECT_EQ(s.row(0), all.substr(0, 20)) << visible(p.out);
        EXPECT_EQ(s.row(1), all.size() > 20 ? all.substr(20) : "");
    }
    for (term_session *s : sessions) term_close(s);
}

// A socket whose peer keeps its own mode: no terminal mode is set, the size
// is the host's word, and a new size draws the line again.
TEST_F(Sessions, AStreamTakesItsSizeFromTheHost) {
    QV_NEEDS(TERM_FEATURE_SESSIONS);
    Peer p(0);
    const term_session_options o = options("xterm-256color", 1);
    term_session *s = term_open(p.theirs, p.theirs, &o);
    ASSERT_NE(s, nullptr);
    ASSERT_EQ(term_setSize(s, 12, 4), 1);
    term_use(s);
    EXPECT_EQ(term_getConsoleWidth(), 12);
    ASSERT_EQ(term_editStart(TERM_EDIT_UTF8, 0, "> "), 1);
    term_use(nullptr);
    p.type("abcdefghijklmn");
    serve({s}, {&p}, 40); // no line yet: the loop runs out of rounds
    EXPECT_EQ(render(p.out, 4, 12).row(1), "klmn");
    const size_t before = p.out.size();
    ASSERT_EQ(term_setSize(s, 30, 4), 1);
    p.type("\r");
    EXPECT_EQ(serve({s}, {&p}), std::vector<std::string>{"abcdefghijklmn"});
    EXPECT_NE(p.out.find("> abcdefghijklmn", before), std::string::npos);
    term_close(s);

    // A terminal opened as a stream keeps the mode its peer gave it.
    Peer t(20, 5);
    term_session *st = term_open(t.theirs, t.theirs, &o);
    ASSERT_NE(st, nullptr);
    term_use(st);
    ASSERT_EQ(term_editStart(0, 0, "> "), 1);
    struct termios mode {};
    ASSERT_EQ(tcgetattr(t.theirs, &mode), 0);
    EXPECT_TRUE(mode.c_lflag & ICANON);
    term_use(nullptr);
    term_close(st);
}

// A read on another thread, blocking in its own session: prints from a
// third thread go above its input; a close from this one ends it first; a
// terminal that goes away under a read ends it with end of input.
TEST_F(Sessions, ThreadsPrintsAndCloses) {
    QV_NEEDS(TERM_FEATURE_SESSIONS | TERM_FEATURE_THREAD_PRINT);
    Peer a(40, 30), b(40, 6);
    term_session *sa = term_open(a.theirs, a.theirs, nullptr);
    term_session *sb = term_open(b.theirs, b.theirs, nullptr);
    ASSERT_TRUE(sa && sb);
    std::atomic<int> ended{0};
    std::string line_a = "unset";
    int status_b = -1;
    std::thread reader_a([&] {
        term_use(sa);
        char *line = term_getLineUtf8(0, "a> ");
        line_a = line ? line : "<NULL>"; // and no call on the session after it: it is closing
        free(line);
        ended++;
    });
    std::thread reader_b([&] {
        term_use(sb);
        free(term_getLineUtf8(0, "b> "));
        status_b = term_getStatus();
        ended++;
    });
    std::thread printer([&] {
        for (int i = 0; i < 20; i++) {
            term_use(i % 2 ? sb : sa);
            term_print(("printed " + std::to_string(i)).c_str());
            term_use(i % 2 ? sa : sb);
            term_print(("printed " + std::to_string(i)).c_str());
        }
    });
    printer.join();
    for (int i = 0; i < 200 && a.out.find("printed 19") == std::string::npos; i++, usleep(5000)) a.drain();
    for (int i = 0; i < 200 && b.out.find("printed 19") == std::string::npos; i++, usleep(5000)) b.drain();
    EXPECT_EQ(render(b.out, 6, 40).row(4), "printed 19");
    close(b.ours); // the terminal goes away under b's read
    b.ours = -1;
    for (int i = 0; i < 400 && ended == 0; i++) usleep(5000);
    EXPECT_EQ(status_b, ST_EOF);
    term_close(sa); // a's read ends first
    reader_a.join();
    reader_b.join();
    EXPECT_EQ(line_a, "");
    a.drain();
    const Screen s = render(a.out, 30, 40);
    EXPECT_EQ(s.row(0), "printed 0");
    EXPECT_EQ(s.row(19), "printed 19");
    EXPECT_EQ(s.row(20), "a>");
    EXPECT_EQ(term_current(), nullptr);
    term_close(sb);
}

// The telnet example with Debian's telnet client: two clients at once, each
// told of the other, each getting its own lines back, each at its own size.
TEST_F(Sessions, TheTelnetServerServesTwoClients) {
    QV_NEEDS(TERM_FEATURE_SESSIONS | TERM_FEATURE_EVENT_LOOP);
    if (system("command -v telnet >/dev/null 2>&1") != 0) GTEST_SKIP() << "no telnet client";
    const std::string port = std::to_string(20000 + getpid() % 20000);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t server = fork();
    if (server == 0) {
        dup2(ready[1], 1);
        // A cross-built server runs under the emulator the tests run under.
        const char *emulator = getenv("QV_HOST_EMULATOR");
        if (emulator) execlp(emulator, emulator, QV_TELNETD, port.c_str(), static_cast<char *>(nullptr));
        execl(QV_TELNETD, QV_TELNETD, port.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    close(ready[1]);
    char said[64] = {};
    ASSERT_GT(read(ready[0], said, sizeof said - 1), 0);
    close(ready[0]);
    ASSERT_NE(std::string(said).find("listening"), std::string::npos) << said;
    HostOptions o = xterm(40, 12);
    o.program = {"telnet", "127.0.0.1", port};
    o.native = true;
    PtyHost one({}, o);
    one.waitScreen("client 1>");
    o.cols = 50;
    PtyHost two({}, o);
    two.waitScreen("client 2>");
    one.waitScreen("[client 2 connected]");
    one.keys("hello from one\r");
    two.keys("size\r");
    one.waitScreen("=> hello from one");
    two.waitScreen("50 columns, 12 rows");
    two.keys("quit\r");
    one.waitScreen("[client 2 left]");
    // Below the client's own three lines of greeting.
    const Lines a = one.screen().shown(), b = two.screen().shown();
    ASSERT_GT(a.size(), 3u);
    ASSERT_GT(b.size(), 3u);
    EXPECT_EQ(Lines(a.begin() + 3, a.end()), (Lines{"[client 2 connected]", "client 1> hello from one", "=> hello from one",
                                                 "[client 2 left]", "client 1>"}));
    EXPECT_EQ(Lines(b.begin() + 3, b.end()), (Lines{"client 2> size", "50 columns, 12 rows", "client 2>"}));
    kill(server, SIGTERM);
    waitpid(server, nullptr, 0);
}

} // namespace
