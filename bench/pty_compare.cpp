// Drives the same key streams into four programs in a pseudo-terminal
// (xterm-256color, 80x24): a minimal REPL on Quorvel, on GNU readline and on
// libedit, and the raw-echo floor (one read and one write per key). For each
// workload it reports, as the median of a few runs, the CPU time the program
// used, the bytes it wrote to the terminal, and for keys typed one at a time
// the 99th percentile of the time from a key to its echo.
//
//   quorvel-bench-compare [workload ...]   (default: all of them)
//
// A program that finds the next key waiting may skip drawing the one before
// (GNU readline does): "middle-settled" sends each key only once the output
// has stopped, and shows what every key costs when it is drawn.
//
// Where strace is installed, each program runs once more under `strace -c`,
// and the system calls it made are reported per unit too.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// What is typed: a burst written as fast as the terminal takes it, then keys
// one at a time, each once the previous one's echo has come back.
struct Workload {
    std::string name;
    std::string burst;
    std::string then; // a second burst, once the program has drawn the first
    std::vector<std::string> typed;
    long units; // the characters or keys the costs are divided by
    // Each typed key waits until the output of the one before has stopped,
    // not just begun: no key arrives while a redraw is still going out.
    bool settled = false;
    // Bytes a second the terminal's side reads at (960: a 9,600-baud serial
    // line); 0: as fast as they come. Each typed key then waits until the
    // line has been quiet for 30 ms, and its latency is the time to the last
    // byte of its echo.
    int rate = 0;
    int rounds = 3;
    // A typed key's latency runs to the end of what it drew (a listing),
    // not to its first byte.
    bool to_end = false;
};

struct Result {
    double cpu_ms = 0;
    size_t bytes = 0;
    double p50_us = 0;
    double p99_us = 0;
    bool finished = true;
};

int rate = 0; // the workload's, for drain()

// Reads what the program wrote; answers when the last byte came. At a rate,
// sixteen bytes at a time, each read taking what they take on the line, and
// on until timeout_ms pass with nothing; otherwise whatever is there once
// something is.
Clock::time_point drain(int fd, size_t &out, int timeout_ms) {
    char buf[65536];
    Clock::time_point last{};
    struct pollfd p = {fd, POLLIN, 0};
    while (poll(&p, 1, timeout_ms) > 0) {
        const ssize_t r = read(fd, buf, rate ? 16 : sizeof buf);
        if (r <= 0) break;
        out += static_cast<size_t>(r);
        if (rate) usleep(static_cast<useconds_t>(r * 1000000L / rate));
        last = Clock::now();
        if (!rate) timeout_ms = 0;
    }
    return last;
}

// Set for the one extra run made under `strace -c` for the system calls;
// the timed runs go without, as tracing costs more than the calls.
const char *trace_file = nullptr;

Result run(const char *program, const char *arg, const Workload &w) {
    struct winsize ws {};
    ws.ws_row = 24;
    ws.ws_col = 80;
    char dir[] = "/tmp/quorvel-bench-XXXXXX";
    if (!mkdtemp(dir)) return {};
    int master = -1;
    const pid_t pid = forkpty(&master, nullptr, nullptr, &ws);
    if (pid == 0) {
        setenv("TERM", "xterm-256color", 1);
        // A listing goes out whole, unpaged, in every program.
        const std::string inputrc = std::string(dir) + "/inputrc";
        if (FILE *f = fopen(inputrc.c_str(), "w")) {
            fputs("set page-completions off\n", f);
            fclose(f);
        }
        setenv("INPUTRC", inputrc.c_str(), 1);
        setenv("EDITRC", "/dev/null", 1);
        setenv("QV_BENCH_HISTORY", dir, 1);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 2);
        if (const char *trace = trace_file)
            execlp("strace", "strace", "-c", "-o", trace, program, arg, static_cast<char *>(nullptr));
        execl(program, program, arg, static_cast<char *>(nullptr));
        _exit(127);
    }
    Result res;
    size_t out = 0;
    // Start once the program reads in raw mode.
    for (struct termios t;;) {
        if (tcgetattr(master, &t) == 0 && !(t.c_lflag & ICANON)) break;
        drain(master, out, 1);
    }
    drain(master, out, 20);
    out = 0;
    const auto deadline = Clock::now() + std::chrono::seconds(120);
    for (const std::string *burst : {&w.burst, &w.then}) {
        for (size_t sent = 0; sent < burst->size() && Clock::now() < deadline;) {
            struct pollfd p = {master, POLLIN | POLLOUT, 0};
            poll(&p, 1, 10);
            if (p.revents & POLLIN) drain(master, out, 0);
            if (p.revents & POLLOUT) {
                const ssize_t n = write(master, burst->data() + sent, std::min<size_t>(4096, burst->size() - sent));
                if (n > 0) sent += static_cast<size_t>(n);
            }
        }
        drain(master, out, 200);
    }
    std::vector<double> latencies;
    for (const std::string &key : w.typed) {
        drain(master, out, 0);
        const size_t before = out;
        const auto t0 = Clock::now();
        if (write(master, key.data(), key.size()) < 0) break;
        Clock::time_point last = Clock::now();
        while (out == before && Clock::now() - t0 < std::chrono::milliseconds(500)) last = drain(master, out, 5);
        if ((rate || w.to_end) && out != before) last = std::max(last, drain(master, out, w.to_end ? 100 : 30));
        latencies.push_back(std::chrono::duration<double, std::micro>(last - t0).count());
        if (w.settled) drain(master, out, 20);
    }
    if (write(master, "quit\r", 5) < 0) res.finished = false;
    int status = 0;
    struct rusage usage {};
    for (;;) {
        drain(master, out, 10);
        if (wait4(pid, &status, WNOHANG, &usage) == pid) break;
        if (Clock::now() > deadline) {
            kill(pid, SIGKILL);
            wait4(pid, &status, 0, &usage);
            res.finished = false;
            break;
        }
    }
    drain(master, out, 0);
    close(master);
    res.bytes = out;
    res.cpu_ms = (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
                 (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
    if (!latencies.empty()) {
        std::sort(latencies.begin(), latencies.end());
        res.p99_us = latencies[latencies.size() * 99 / 100];
        res.p50_us = latencies[latencies.size() / 2];
    }
    const std::string cleanup = std::string("rm -rf ") + dir;
    if (system(cleanup.c_str()) != 0) fprintf(stderr, "could not remove %s\n", dir);
    return res;
}

std::string text(long n) {
    std::string s;
    for (long i = 0; i < n; i++) s += static_cast<char>('a' + i % 26);
    return s;
}

std::vector<Workload> workloads() {
    std::vector<Workload> all;
    for (long n : {1000L, 10000L, 100000L, 1000000L})
        all.push_back({"paste-" + std::to_string(n), text(n) + "\r", "", {}, n});
    Workload typed{"typed-2000", "", "", {}, 2000};
    for (char ch : text(2000)) typed.typed.push_back(std::string(1, ch));
    typed.typed.push_back("\r");
    all.push_back(typed);
    // The moves come once the line is drawn: a program that took an arrow
    // key cut in two as other keys would edit somewhere else.
    Workload middle{"middle-edit", text(2000), "", {}, 200};
    for (int i = 0; i < 1000; i++) middle.then += "\x1b[D";
    for (char ch : text(200)) middle.typed.push_back(std::string(1, ch));
    middle.typed.push_back("\r");
    all.push_back(middle);
    Workload settled = middle;
    settled.name = "middle-settled";
    settled.settled = true;
    all.push_back(settled);
    Workload history{"history-walk", "", "", {}, 1000};
    for (int i = 0; i < 1000; i++) history.burst += "entry " + std::to_string(i) + "\r";
    for (int i = 0; i < 1000; i++) history.typed.push_back("\x1b[A");
    history.typed.push_back("\r");
    all.push_back(history);
    // At 9,600 baud: typing at the end, in the middle of a 400-character
    // line, and a walk through 30 entries.
    Workload serial_typed{"serial-typed", "", "", {}, 60};
    for (char ch : text(60)) serial_typed.typed.push_back(std::string(1, ch));
    Workload serial_middle{"serial-middle", text(400), "", {}, 20};
    for (int i = 0; i < 200; i++) serial_middle.then += "\x1b[D";
    for (char ch : text(20)) serial_middle.typed.push_back(std::string(1, ch));
    Workload serial_history{"serial-history", "", "", {}, 30};
    for (int i = 0; i < 30; i++) serial_history.burst += "entry " + std::to_string(i) + "\r";
    for (int i = 0; i < 30; i++) serial_history.typed.push_back("\x1b[A");
    // Tab over 10,000 candidates: the first Tab, the second that asks, the
    // yes that lists them all (its latency runs to the listing's end).
    Workload complete{"complete-10000", "item0", "", {"\t", "\t", "y", "\x15"}, 1};
    complete.settled = true;
    complete.to_end = true;
    all.push_back(complete);
    for (Workload *w : {&serial_typed, &serial_middle, &serial_history}) {
        w->typed.push_back("\r");
        w->rate = 960;
        w->rounds = 1;
        all.push_back(*w);
    }
    return all;
}

} // namespace

int main(int argc, char **argv) {
    // The readline-compatible library turns lean output on by itself.
    const char *programs[][3] = {{"quorvel", QV_BENCH_DIR "/repl-quorvel", nullptr},
                                 {"quorvel lean", QV_BENCH_DIR "/repl-quorvel", "--lean"},
                                 {"lean, no paste", QV_BENCH_DIR "/repl-quorvel", "--lean-no-paste"},
                                 {"quorvel-rl", QV_BENCH_DIR "/repl-quorvel-readline", nullptr},
                                 {"GNU readline", QV_BENCH_DIR "/repl-readline", nullptr},
                                 {"libedit", QV_BENCH_DIR "/repl-libedit", nullptr},
                                 {"raw echo", QV_BENCH_DIR "/raw-echo", nullptr}};
    setvbuf(stdout, nullptr, _IONBF, 0);
    char trace[] = "/tmp/quorvel-bench-strace-XXXXXX";
    const int trace_fd = system("strace -V >/dev/null 2>&1") == 0 ? mkstemp(trace) : -1;
    if (trace_fd >= 0) close(trace_fd);
    printf("median of 3 runs (1 at 9,600 baud); CPU and bytes per character (or key), p50 and p99: key to "
           "echo;\ncalls: system calls per unit of the whole program, from one more run under strace -c\n");
    for (const Workload &w : workloads()) {
        bool wanted = argc < 2;
        for (int i = 1; i < argc; i++) wanted = wanted || w.name == argv[i];
        if (!wanted) continue;
        rate = w.rate;
        const int rounds = w.rounds;
        printf("\n%s\n%-14s %14s %14s %12s%s%s\n", w.name.c_str(), "program", "CPU/unit", "bytes/unit",
               w.typed.empty() ? "" : "p99 latency", w.typed.empty() ? "" : "   p50 latency",
               trace_fd >= 0 ? "   calls" : "");
        for (const auto &p : programs) {
            std::vector<Result> results;
            for (int r = 0; r < rounds; r++) results.push_back(run(p[1], p[2], w));
            std::sort(results.begin(), results.end(),
                      [](const Result &a, const Result &b) { return a.cpu_ms < b.cpu_ms; });
            const Result &m = results[rounds / 2];
            printf("%-14s %11.3f us %14.2f", p[0], m.cpu_ms * 1000 / static_cast<double>(w.units),
                   static_cast<double>(m.bytes) / static_cast<double>(w.units));
            if (!w.typed.empty()) printf(" %9.0f us %11.0f us", m.p99_us, m.p50_us);
            // Tracing three million calls would take minutes: the largest
            // paste goes without a count.
            if (trace_fd >= 0 && w.units > 100000) printf("       -");
            if (trace_fd >= 0 && w.units <= 100000) {
                trace_file = trace;
                run(p[1], p[2], w);
                trace_file = nullptr;
                // The "total" line of strace -c: seconds, usecs/call, calls.
                FILE *f = fopen(trace, "r");
                char line[256];
                long calls = 0;
                while (f && fgets(line, sizeof line, f))
                    if (strstr(line, "total")) sscanf(line, "%*f %*f %*d %ld", &calls);
                if (f) fclose(f);
                printf(" %7.2f", static_cast<double>(calls) / static_cast<double>(w.units));
            }
            printf("%s\n", m.finished ? "" : "  (did not finish in 120 s)");
        }
    }
    if (trace_fd >= 0) unlink(trace);
    return 0;
}
