// Sessions served from one thread: the CPU the serving thread spends per
// typed key when 1, 8 or 64 terminals type at once. Each session is on a
// pseudo-terminal of its own (xterm-256color, 80x24) under one poll loop of
// term_editFeed() calls. A typist thread types a key into every terminal,
// then waits for every echo before the next round; keys alternate between a
// letter and Backspace, so every key costs the same. The serving thread's
// own CPU time (RUSAGE_THREAD) divided by the keys it handled is reported.
//
//   quorvel-bench-sessions
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <unistd.h>

#include <quorvel.h>

namespace {

constexpr int kRounds = 2000;

double thread_cpu_us() {
    struct rusage u {};
    getrusage(RUSAGE_THREAD, &u);
    return (u.ru_utime.tv_sec + u.ru_stime.tv_sec) * 1e6 + static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec);
}

double per_key_us(int n) {
    std::vector<int> masters(static_cast<size_t>(n)), slaves(static_cast<size_t>(n));
    std::vector<term_session *> sessions(static_cast<size_t>(n));
    struct winsize ws {};
    ws.ws_row = 24;
    ws.ws_col = 80;
    for (int i = 0; i < n; i++) {
        const size_t k = static_cast<size_t>(i);
        if (openpty(&masters[k], &slaves[k], nullptr, nullptr, &ws) != 0) return -1;
        sessions[k] = term_open(slaves[k], slaves[k], nullptr);
        if (!sessions[k]) return -1;
        term_use(sessions[k]);
        term_editStart(0, 0, "> ");
    }
    term_use(nullptr);
    std::atomic<bool> typing{true};
    std::thread typist([&] {
        std::vector<struct pollfd> fds(static_cast<size_t>(n));
        char buf[4096];
        for (int i = 0; i < n; i++) fds[static_cast<size_t>(i)] = pollfd{masters[static_cast<size_t>(i)], POLLIN, 0};
        // The prompts first.
        usleep(100000);
        for (int i = 0; i < n; i++)
            while (poll(&fds[static_cast<size_t>(i)], 1, 0) > 0) (void)!read(masters[static_cast<size_t>(i)], buf, sizeof buf);
        for (int round = 0; round < kRounds; round++) {
            const char key = round % 2 ? '\x7f' : 'x';
            for (int m : masters) (void)!write(m, &key, 1);
            // Every terminal's echo before the next key.
            for (int i = 0; i < n; i++)
                if (poll(&fds[static_cast<size_t>(i)], 1, 1000) > 0) (void)!read(masters[static_cast<size_t>(i)], buf, sizeof buf);
        }
        typing = false;
    });
    const double start = thread_cpu_us();
    std::vector<struct pollfd> fds(static_cast<size_t>(n));
    while (typing) {
        for (int i = 0; i < n; i++) {
            term_use(sessions[static_cast<size_t>(i)]);
            fds[static_cast<size_t>(i)] = pollfd{term_editFd(), POLLIN, 0};
        }
        if (poll(fds.data(), fds.size(), 20) <= 0) continue;
        for (int i = 0; i < n; i++) {
            if (!(fds[static_cast<size_t>(i)].revents & POLLIN)) continue;
            term_use(sessions[static_cast<size_t>(i)]);
            char *line = nullptr;
            if (term_editFeed(&line) == 1) {
                term_free(line);
                term_editStart(0, 0, "> ");
            }
        }
    }
    const double spent = thread_cpu_us() - start;
    typist.join();
    for (int i = 0; i < n; i++) {
        term_close(sessions[static_cast<size_t>(i)]);
        close(masters[static_cast<size_t>(i)]);
        close(slaves[static_cast<size_t>(i)]);
    }
    term_use(nullptr);
    return spent / (static_cast<double>(kRounds) * n);
}

} // namespace

int main() {
    setenv("TERM", "xterm-256color", 1);
    printf("Sessions served from one thread, %d keys typed into each:\n", kRounds);
    printf("| sessions typing at once | 1 | 8 | 64 |\n|---|---:|---:|---:|\n| CPU / key (serving thread) |");
    for (int n : {1, 8, 64}) {
        const double us = per_key_us(n);
        if (us < 0) {
            printf(" failed |");
            continue;
        }
        printf(" %.1f µs |", us);
        fflush(stdout);
    }
    printf("\n");
    return 0;
}
