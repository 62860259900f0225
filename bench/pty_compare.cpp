// Types the same burst of lines into three REPLs in a pseudo-terminal -- on
// Quorvel, GNU readline and libedit -- and reports the wall time from the
// first key to the program's exit, and the bytes each wrote to the terminal.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

struct Result {
    double seconds;
    size_t bytes_out;
};

Result run(const char *program, const std::string &input) {
    struct winsize ws {};
    ws.ws_row = 24;
    ws.ws_col = 80;
    int master = -1;
    const pid_t pid = forkpty(&master, nullptr, nullptr, &ws);
    if (pid == 0) {
        setenv("TERM", "xterm-256color", 1);
        setenv("INPUTRC", "/dev/null", 1);
        setenv("EDITRC", "/dev/null", 1);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 2);
        execl(program, program, static_cast<char *>(nullptr));
        _exit(127);
    }
    fcntl(master, F_SETFL, O_NONBLOCK);
    size_t out = 0, sent = 0;
    char buf[65536];
    // Start the clock once the program is reading in raw mode.
    for (struct termios t;;) {
        if (tcgetattr(master, &t) == 0 && !(t.c_lflag & ICANON)) break;
        ssize_t r = read(master, buf, sizeof buf);
        if (r > 0) out += static_cast<size_t>(r);
        usleep(1000);
    }
    out = 0;
    const auto start = std::chrono::steady_clock::now();
    int status = 0;
    bool exited = false;
    while (!exited) {
        struct pollfd p = {master, static_cast<short>(POLLIN | (sent < input.size() ? POLLOUT : 0)), 0};
        poll(&p, 1, 10);
        if (p.revents & POLLIN) {
            const ssize_t r = read(master, buf, sizeof buf);
            if (r > 0) out += static_cast<size_t>(r);
        }
        if ((p.revents & POLLOUT) && sent < input.size()) {
            const ssize_t w = write(master, input.data() + sent, std::min<size_t>(512, input.size() - sent));
            if (w > 0) sent += static_cast<size_t>(w);
        }
        if (waitpid(pid, &status, WNOHANG) == pid) exited = true;
        if (!exited && std::chrono::steady_clock::now() - start > std::chrono::seconds(60)) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            fprintf(stderr, "%s did not finish\n", program);
            exited = true;
        }
    }
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    for (ssize_t r; (r = read(master, buf, sizeof buf)) > 0;) out += static_cast<size_t>(r);
    close(master);
    return {secs, out};
}

} // namespace

int main(int argc, char **argv) {
    const int lines = argc > 1 ? atoi(argv[1]) : 2000;
    const int rounds = 5;
    std::string input;
    for (int i = 0; i < lines; i++) {
        std::string line = "let value_" + std::to_string(i) + " = compute(" + std::to_string(i * 7) + ")";
        // Editing, not only typing: Home, End and a few Left arrows.
        input += line + "\x01\x05\x1b[D\x1b[D\x1b[C\x1b[C\r";
    }
    // A line rather than Ctrl-D ends the run: a Ctrl-D that arrives while a
    // library has the terminal in its cooked mode between lines is taken by
    // the line discipline.
    input += "quit\r";
    setvbuf(stdout, nullptr, _IONBF, 0);
    printf("%d lines of about 40 characters with cursor keys, typed in one stream; median of %d runs\n\n",
           lines, rounds);
    printf("%-14s %12s %16s\n", "library", "wall time", "bytes written");
    const char *programs[][2] = {{"quorvel", QV_BENCH_DIR "/repl-quorvel"},
                                 {"GNU readline", QV_BENCH_DIR "/repl-readline"},
                                 {"libedit", QV_BENCH_DIR "/repl-libedit"}};
    for (const auto &p : programs) {
        std::vector<Result> results;
        for (int r = 0; r < rounds; r++) results.push_back(run(p[1], input));
        std::sort(results.begin(), results.end(),
                  [](const Result &a, const Result &b) { return a.seconds < b.seconds; });
        const Result &m = results[rounds / 2];
        printf("%-14s %10.1f ms %16zu\n", p[0], m.seconds * 1000, m.bytes_out);
    }
    return 0;
}
