#include "pty_harness.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace qvtest {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kTimeout = std::chrono::seconds(15);

void write_all(int fd, const char *p, size_t n) {
    while (n > 0) {
        const ssize_t w = write(fd, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) throw std::runtime_error("write to the host failed");
        p += w;
        n -= static_cast<size_t>(w);
    }
}

// A process group whose parent is in another session is orphaned, and the
// kernel discards stop signals sent to it. So the host becomes the
// foreground job of a parent that stays in the terminal's session and waits
// for it, then leaves with the host's own exit status or signal.
void become_job() {
    const pid_t child = fork();
    if (child < 0) _exit(125);
    if (child == 0) {
        setpgid(0, 0);
        signal(SIGTTOU, SIG_IGN); // taking the terminal from the background
        tcsetpgrp(0, getpid());
        signal(SIGTTOU, SIG_DFL);
        return;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) {
        signal(WTERMSIG(status), SIG_DFL);
        kill(getpid(), WTERMSIG(status));
    }
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 125);
}

} // namespace

std::string terminfoDir() { return QV_TERMINFO_DIR; }

PtyHost::PtyHost(const std::vector<std::string> &commands, HostOptions options)
    : options_(std::move(options)) {
    side_path_ = tempDir() + "/side";
    // term_destroy writes term.history into the working directory.
    if (options_.cwd.empty()) options_.cwd = tempDir();
    int in_fds[2] = {-1, -1}, out_fds[2] = {-1, -1};
    if (options_.stdin_pipe && pipe(in_fds) != 0) throw std::runtime_error("pipe");
    if (options_.stdout_pipe && pipe(out_fds) != 0) throw std::runtime_error("pipe");

    struct winsize ws {};
    ws.ws_row = static_cast<unsigned short>(options_.rows);
    ws.ws_col = static_cast<unsigned short>(options_.cols);
    pid_ = forkpty(&master_, nullptr, nullptr, &ws);
    if (pid_ < 0) throw std::runtime_error("forkpty failed");
    if (pid_ == 0) {
        options_.term.empty() ? unsetenv("TERM") : setenv("TERM", options_.term.c_str(), 1);
        setenv("TERMINFO", terminfoDir().c_str(), 1);
        setenv("QV_SIDE", side_path_.c_str(), 1);
        unsetenv("LINES");
        unsetenv("COLUMNS");
        for (const std::string &e : options_.env) putenv(strdup(e.c_str()));
        if (!options_.cwd.empty() && chdir(options_.cwd.c_str()) != 0) _exit(126);
        if (options_.stdin_pipe) {
            dup2(in_fds[0], 0);
            close(in_fds[0]);
            close(in_fds[1]);
        }
        if (options_.stdout_pipe) {
            dup2(out_fds[1], 1);
            close(out_fds[0]);
            close(out_fds[1]);
        }
        if (options_.job) become_job();
        // The host may run under a command: an emulator for a host built for
        // another machine, or valgrind. Words are separated by spaces.
        std::vector<std::string> words;
        std::istringstream runner(getenv("QV_HOST_EMULATOR") && !options_.native ? getenv("QV_HOST_EMULATOR") : "");
        for (std::string w; runner >> w;) words.push_back(w);
        if (options_.program.empty()) words.push_back(QV_HOST_PATH);
        words.insert(words.end(), options_.program.begin(), options_.program.end());
        if (options_.program.empty()) words.insert(words.end(), commands.begin(), commands.end());
        std::vector<char *> argv;
        for (std::string &w : words) argv.push_back(&w[0]);
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    if (options_.stdin_pipe) {
        close(in_fds[0]);
        in_pipe_ = in_fds[1];
    }
    if (options_.stdout_pipe) {
        close(out_fds[1]);
        out_pipe_ = out_fds[0];
    }
    fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);
}

PtyHost::~PtyHost() {
    // Whatever a test did, the library wrote only what a terminal line
    // editor needs: never a sequence it did not compose itself.
    if (options_.program.empty() && !options_.raw_output) {
        drain(0);
        setenv("TERMINFO", terminfoDir().c_str(), 1);
        for (const std::string &e : foreignEscapes(output_, options_.term))
            ADD_FAILURE() << "the library wrote an escape sequence it may not: " << e;
    }
    if (!exited_ && pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (master_ >= 0) close(master_);
    if (in_pipe_ >= 0) close(in_pipe_);
    if (out_pipe_ >= 0) close(out_pipe_);
}

// Reads all the host has written, waiting up to timeout_ms for the first
// of it; answers whether anything came.
bool PtyHost::drain(int timeout_ms) {
    bool got = false;
    for (bool more = true; more; timeout_ms = 0) {
        struct pollfd fds[2] = {{master_, POLLIN, 0}, {out_pipe_, POLLIN, 0}};
        if (poll(fds, out_pipe_ >= 0 ? 2 : 1, timeout_ms) <= 0) break;
        more = false;
        for (const pollfd &p : fds) {
            char buf[4096];
            const ssize_t r = p.revents & (POLLIN | POLLHUP) ? read(p.fd, buf, sizeof buf) : 0;
            if (r > 0) output_.append(buf, static_cast<size_t>(r)), got = more = true;
        }
    }
    return got;
}

bool PtyHost::isRaw() {
    struct termios t;
    return tcgetattr(master_, &t) == 0 && !(t.c_lflag & ICANON);
}

bool PtyHost::isCooked() {
    struct termios t;
    return tcgetattr(master_, &t) == 0 && (t.c_lflag & ICANON) && (t.c_lflag & ECHO) &&
           (t.c_lflag & ISIG) && (t.c_oflag & OPOST) && (t.c_iflag & ICRNL);
}

// Reads the host's output until ready() holds. A time-out, or the host
// exiting first, throws with what was awaited.
void PtyHost::until(const std::function<bool()> &ready, const std::function<std::string()> &what) {
    const auto deadline = Clock::now() + kTimeout;
    while (!ready()) {
        if (!exited_ && waitpid(pid_, &status_, WNOHANG) == pid_) exited_ = true;
        if (exited_) {
            drain(0);
            if (ready()) return;
        }
        if (exited_ || Clock::now() > deadline)
            throw std::runtime_error((exited_ ? "the host exited while waiting for " : "timed out waiting for ") +
                                     what());
        drain(5);
    }
}

void PtyHost::keys(const std::string &bytes) {
    if (in_pipe_ >= 0) return write_all(in_pipe_, bytes.data(), bytes.size());
    // With standard output elsewhere the library cannot read the mode, so the
    // terminal never goes raw: write at once.
    if (!options_.stdout_pipe) waitRaw();
    write_all(master_, bytes.data(), bytes.size());
}

void PtyHost::keysSlowly(const std::string &bytes) {
    for (char b : bytes) {
        waitRaw();
        write_all(master_, &b, 1);
        while (drain(30)) {
        }
    }
}

void PtyHost::waitSide(const std::string &tag) {
    until([&] { return side().find(tag) != std::string::npos; }, [&] { return tag; });
}

size_t PtyHost::waitOutput(const std::string &text, size_t from) {
    until([&] { return output_.find(text, from) != std::string::npos; },
          [&] { return "\"" + text + "\" in " + visible(output_.substr(from)); });
    return output_.find(text, from) + text.size();
}

void PtyHost::waitScreen(const std::string &text) {
    until(
        [&] {
            const std::vector<std::string> rows = screen().rows;
            return std::any_of(rows.begin(), rows.end(), [&](const std::string &r) { return r.find(text) != r.npos; });
        },
        [&] { return "\"" + text + "\" on the screen " + ::testing::PrintToString(screen().shown()); });
}

void PtyHost::waitRead(int n) {
    waitSide("BEGIN " + std::to_string(n) + "\n");
    if (in_pipe_ < 0 && !options_.stdout_pipe) waitRaw();
}

void PtyHost::waitEnd(int n) {
    waitSide("END " + std::to_string(n) + "\n");
    drain(0);
}

void PtyHost::settle() {
    const size_t ticks = records("TICK").size() + 2;
    until([&] { return records("TICK").size() >= ticks; }, [] { return "the host to settle"; });
    drain(0);
}

void PtyHost::resize(int rows, int cols) {
    drain(0);
    resizes_.push_back(Resize{output_.size(), rows, cols});
    struct winsize ws {};
    ws.ws_row = static_cast<unsigned short>(rows);
    ws.ws_col = static_cast<unsigned short>(cols);
    ioctl(master_, TIOCSWINSZ, &ws);
}

void PtyHost::signal(int sig) {
    const pid_t job = options_.job ? tcgetpgrp(master_) : -1;
    kill(job > 0 ? -job : pid_, sig);
}

int PtyHost::finish() {
    try {
        until([this] { return exited_; }, [] { return "the host to exit"; });
    } catch (const std::runtime_error &) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        exited_ = true;
        return -1;
    }
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
}

Lines PtyHost::typed(const std::string &bytes) {
    if (!bytes.empty()) keys(bytes);
    if (in_pipe_ >= 0) close(in_pipe_), in_pipe_ = -1; // a pipe ends where the keys end
    const int status = finish();
    if (status != 0) throw std::runtime_error("the host exited with status " + std::to_string(status));
    return lines();
}

std::string PtyHost::side() const { return readFile(side_path_); }

std::vector<std::string> PtyHost::records(const std::string &tag) const {
    std::vector<std::string> out;
    std::istringstream in(side());
    std::string line;
    while (std::getline(in, line))
        if (line.compare(0, tag.size(), tag) == 0) out.push_back(line);
    return out;
}

// LINE records carry a byte count, because a line may hold line breaks.
std::vector<std::string> PtyHost::lines() const {
    std::vector<std::string> out;
    std::istringstream in(side());
    for (std::string tag; in >> tag;) {
        size_t n = 0, len = 0;
        if (tag == "NULL") out.push_back("<NULL>");
        if (tag != "LINE" || !(in >> n >> len) || in.get() != ' ') {
            std::getline(in, tag);
            continue;
        }
        out.emplace_back(len, '\0');
        in.read(&out.back()[0], static_cast<std::streamsize>(len));
    }
    return out;
}

Screen PtyHost::screen() const { return render(output_, options_.rows, options_.cols, resizes_); }

} // namespace qvtest
