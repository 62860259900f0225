// Runs the test host in a pseudo-terminal and hands a test what a user would
// see: the exact bytes written, and the screen libvterm renders from them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "needs.h"
#include "support.h"


namespace qvtest {

struct HostOptions {
    std::string term = "qv-readable"; // empty: TERM unset
    int rows = 10;
    int cols = 20;
    bool stdin_pipe = false;         // standard input is a pipe the test writes
    bool stdout_pipe = false;        // standard output is a pipe, not the terminal
    std::string cwd;                 // working directory; empty: a fresh scratch one
    std::vector<std::string> env;    // extra NAME=VALUE settings
    // The host runs as a job of its own under a waiting parent, as under a
    // shell with job control, so that a stop signal really stops it.
    bool job = false;
    // Non-empty: run this program and arguments instead of the test host
    // (whose commands are then ignored), under QV_HOST_EMULATOR as the host.
    std::vector<std::string> program;
    // The program is the build machine's own (a telnet client), never run
    // under the emulator of a cross-built test.
    bool native = false;
    // The test writes escape sequences of its own through the host's raw
    // channel (term_print, term_putString): the output is not checked.
    bool raw_output = false;
};

class PtyHost {
  public:
    PtyHost(const std::vector<std::string> &commands, HostOptions options = {});
    ~PtyHost();
    PtyHost(const PtyHost &) = delete;
    PtyHost &operator=(const PtyHost &) = delete;

    // Waits until the output from byte `from` on holds text; answers where
    // the text ends.
    size_t waitOutput(const std::string &text, size_t from = 0);
    // Waits until a row of the rendered screen holds text.
    void waitScreen(const std::string &text);
    int pid() const { return pid_; }
    // Waits until a read is in raw mode, then writes the keys in one burst.
    void keys(const std::string &bytes);
    // Writes the keys one byte at a time, each once the output has gone quiet.
    void keysSlowly(const std::string &bytes);
    // Waits until the host has started read number n (counted from 0) and
    // the terminal is in raw mode.
    void waitRead(int n);
    void waitEnd(int n);
    // Waits until a host in tick mode (cb:idle=tick) has been idle twice:
    // everything typed before has been handled and drawn.
    void settle();
    // Changes the window's size (the kernel tells the host with SIGWINCH);
    // the screen is rendered with the change at this point of the output.
    void resize(int rows, int cols);
    void signal(int sig); // to the host's job, with options.job
    // The terminal is in the mode a shell expects: line editing by the
    // driver, echo, signal keys, output processing, Return read as a newline.
    bool isCooked();
    void waitCooked() { until([this] { return isCooked(); }, [] { return "the terminal's own mode"; }); }
    // Waits for the host to exit; answers its exit status (-1 on a time-out).
    int finish();
    // Types keys (closing a pipe after them), waits for the host to exit
    // (throwing unless it exits with status 0), and answers the lines its
    // reads returned.
    std::vector<std::string> typed(const std::string &keys);

    const std::string &output() const { return output_; }
    std::string side() const;
    // The side file's records that start with the given tag.
    std::vector<std::string> records(const std::string &tag) const;
    // The lines the reads returned, in order ("<NULL>" for a NULL result).
    std::vector<std::string> lines() const;
    Screen screen() const;

  private:
    bool drain(int timeout_ms);
    void until(const std::function<bool()> &ready, const std::function<std::string()> &what);
    void waitSide(const std::string &tag);
    void waitRaw() { until([this] { return isRaw(); }, [] { return "raw mode"; }); }
    bool isRaw();

    HostOptions options_;
    int master_ = -1;
    int in_pipe_ = -1;
    int out_pipe_ = -1;
    int pid_ = -1;
    int status_ = -1;
    bool exited_ = false;
    std::string side_path_;
    std::string output_;
    std::vector<Resize> resizes_;
};

using Lines = std::vector<std::string>;

// Bytes with control characters escaped, for messages.
inline std::string visible(const std::string &bytes) { return ::testing::PrintToString(bytes); }

// Keys as xterm sends them.
inline const std::string kUp = "\x1b[A", kDown = "\x1b[B", kRight = "\x1b[C", kLeft = "\x1b[D",
                         kPageUp = "\x1b[5~", kPageDown = "\x1b[6~", kDelete = "\x1b[3~";

inline HostOptions xterm(int cols = 20, int rows = 10) {
    HostOptions o;
    o.term = "xterm-256color";
    o.cols = cols;
    o.rows = rows;
    return o;
}

// Directory of the compiled test terminal descriptions.
std::string terminfoDir();

} // namespace qvtest
