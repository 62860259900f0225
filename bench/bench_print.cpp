// Printing from another thread above an idle prompt, in a pseudo-terminal
// (xterm-256color, 80x24): 100,000 lines through term_print() while a read
// waits, against the same lines written with printf() to the same terminal
// and no read at all. Reports the printing program's CPU time and the bytes
// it wrote, per line, as the median of a few runs; and the time from a
// term_wake() on another thread to the read's return.
//
//   quorvel-bench-print
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <quorvel.h>

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kLines = 100000;
constexpr int kRuns = 3;
constexpr int kWakes = 20;

double cpu_ms() {
    struct rusage u {};
    getrusage(RUSAGE_SELF, &u);
    return (u.ru_utime.tv_sec + u.ru_stime.tv_sec) * 1e3 + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e3;
}

void line_of(char *buf, size_t n, int i) { snprintf(buf, n, "line %06d of the log, printed from a worker", i); }

// The programs, run in the terminal. Each writes its measurement to fd 3.
int child_quorvel() {
    if (!term_init(nullptr)) return 1;
    const double start = cpu_ms();
    std::thread worker([] {
        char line[64];
        for (int i = 0; i < kLines; i++) {
            line_of(line, sizeof line, i);
            term_print(line);
        }
        term_wake();
    });
    char *got = term_getLine(0, "> ");
    worker.join();
    term_free(got);
    dprintf(3, "%f\n", cpu_ms() - start);
    term_destroy();
    return 0;
}

int child_printf() {
    const double start = cpu_ms();
    std::thread worker([] {
        char line[64];
        for (int i = 0; i < kLines; i++) {
            line_of(line, sizeof line, i);
            printf("%s\n", line);
            fflush(stdout);
        }
    });
    worker.join();
    dprintf(3, "%f\n", cpu_ms() - start);
    return 0;
}

int child_wake() {
    if (!term_init(nullptr)) return 1;
    std::vector<double> us;
    for (int i = 0; i < kWakes; i++) {
        Clock::time_point asked;
        std::thread waker([&asked] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            asked = Clock::now();
            term_wake();
        });
        term_free(term_getLine(0, "> "));
        const Clock::time_point back = Clock::now();
        waker.join();
        us.push_back(std::chrono::duration<double, std::micro>(back - asked).count());
    }
    std::sort(us.begin(), us.end());
    dprintf(3, "%f\n", us[us.size() / 2]);
    term_destroy();
    return 0;
}

struct Result {
    double value = 0;
    size_t bytes = 0;
};

// Runs this program as `mode` in a terminal, reading everything it writes.
Result run(const char *self, const char *mode) {
    int report[2];
    if (pipe(report) != 0) return {};
    struct winsize ws {};
    ws.ws_row = 24;
    ws.ws_col = 80;
    int master = -1;
    const pid_t pid = forkpty(&master, nullptr, nullptr, &ws);
    if (pid == 0) {
        setenv("TERM", "xterm-256color", 1);
        dup2(report[1], 3);
        execl(self, self, mode, static_cast<char *>(nullptr));
        _exit(127);
    }
    close(report[1]);
    Result r;
    char buf[65536];
    struct pollfd p = {master, POLLIN, 0};
    for (;;) {
        if (poll(&p, 1, 100) <= 0) {
            if (waitpid(pid, nullptr, WNOHANG) == pid) break;
            continue;
        }
        const ssize_t n = read(master, buf, sizeof buf);
        if (n <= 0) break;
        r.bytes += static_cast<size_t>(n);
    }
    waitpid(pid, nullptr, 0);
    close(master);
    char text[64] = {};
    if (read(report[0], text, sizeof text - 1) > 0) r.value = atof(text);
    close(report[0]);
    return r;
}

Result median(const char *self, const char *mode) {
    std::vector<Result> runs;
    for (int i = 0; i < kRuns; i++) runs.push_back(run(self, mode));
    std::sort(runs.begin(), runs.end(), [](const Result &a, const Result &b) { return a.value < b.value; });
    return runs[runs.size() / 2];
}

} // namespace

int main(int argc, char **argv) {
    if (argc > 1 && strcmp(argv[1], "quorvel") == 0) return child_quorvel();
    if (argc > 1 && strcmp(argv[1], "printf") == 0) return child_printf();
    if (argc > 1 && strcmp(argv[1], "wake") == 0) return child_wake();
    printf("%-44s %14s %14s\n", "100,000 lines from a worker thread", "CPU / line", "bytes / line");
    for (const char *mode : {"quorvel", "printf"}) {
        const Result r = median(argv[0], mode);
        printf("%-44s %11.2f us %14.2f\n",
               strcmp(mode, "quorvel") == 0 ? "term_print above an idle prompt" : "printf, no read", r.value * 1e3 / kLines,
               static_cast<double>(r.bytes) / kLines);
    }
    const Result w = median(argv[0], "wake");
    printf("term_wake to the read's return (median of %d): %.0f us\n", kWakes, w.value);
    return 0;
}
