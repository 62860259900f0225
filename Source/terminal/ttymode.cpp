// Terminal modes, and the signals that must not leave the terminal raw.
//
// While a read runs, the terminal is raw: no echo, no line editing by the
// driver, no output processing. A process that dies or stops in that state
// leaves the user a terminal that looks dead. So for the length of a read the
// library catches the signals that end or stop the process, gives the saved
// mode back, puts the host's own disposition back and re-raises the signal,
// which the host then receives as if the library had never been there. If the
// process lives on (a host handler returned, or the process was continued),
// the input loop takes the terminal back at its next wait.
#include "ttymode.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "options.h"
#include "session.h"

// A session other than the default one: the terminal a read sets the mode
// of (none for a stream whose peer keeps its own), and its mode before.
struct qv::ModeState {
    int fd;
    int depth = 0; // a read inside a read keeps the outer one's hold
    std::atomic<int> resized{0}; // the host gave a new size
    bool saved = false;
    struct termios before {};
};

namespace {

qv::ModeState *session_mode() {
    qv::Session *s = qv::current_session();
    return s ? static_cast<qv::ModeState *>(s->slot[qv::kSlotMode]) : nullptr;
}

// The default session's terminal is read on standard output and set raw on
// standard input, as it always was; another session's is its own descriptor.
int mode_fd_of(int standard) {
    const qv::ModeState *m = session_mode();
    return m ? m->fd : standard;
}

} // namespace

int console_get_mode(struct console *, struct termios *t) {
    if (!t) return 1;
    const int fd = mode_fd_of(fileno(stdout));
    return fd >= 0 && tcgetattr(fd, t) >= 0 ? 1 : 0;
}

void console_set_mode(struct console *, const struct termios *t) {
    const int fd = mode_fd_of(fileno(stdout));
    if (t && fd >= 0) tcsetattr(fd, TCSADRAIN, t);
}

void console_set_raw_mode(struct console *, const struct termios *t) {
    const int fd = mode_fd_of(fileno(stdin));
    if (!t || fd < 0) return;
    struct termios raw = *t;
    // IXON off: Ctrl-S and Ctrl-Q arrive as keys and never freeze output.
    raw.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ISTRIP | ICRNL | IXON);
    raw.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    raw.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB);
    raw.c_cflag |= CS8 | CLOCAL;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
    if (!qv::option(TERM_OPTION_SIGNAL_KEYS)) raw.c_lflag &= ~static_cast<tcflag_t>(ISIG);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(fd, TCSADRAIN, &raw);
}

qv::ModeState *qv::mode_new(int fd) {
    auto *m = new (std::nothrow) ModeState;
    if (m) m->fd = fd;
    return m;
}

void qv::mode_free(ModeState *m) { delete m; }

namespace {

// The signals a read listens to. The first five give the terminal back and
// then go to the host's disposition, whatever it is; SIGCONT and SIGWINCH
// only tell the read something. The rest, every other signal whose default
// action ends the process (the real-time ones included), are caught only
// while the host leaves them at that default: the terminal is given back,
// and the signal then takes its course.
constexpr int kHandled[] = {SIGTERM, SIGHUP, SIGQUIT, SIGINT, SIGTSTP, SIGCONT, SIGWINCH};
constexpr int kFatal[] = {SIGALRM, SIGUSR1, SIGUSR2,  SIGPIPE, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF, SIGIO,
                          SIGPWR,  SIGSYS,  SIGTRAP,  SIGSEGV, SIGBUS,  SIGFPE,  SIGILL,    SIGABRT, SIGSTKFLT};
constexpr int kHandledCount = sizeof(kHandled) / sizeof(kHandled[0]);
constexpr int kMax = kHandledCount + sizeof(kFatal) / sizeof(kFatal[0]) + 64;
int kSignals[kMax];
int kCount = 0;

// Filled once, before any handler can run: the real-time range is only
// known at run time.
void list_signals() {
    if (kCount) return;
    int n = 0;
    for (int sig : kHandled) kSignals[n++] = sig;
    for (int sig : kFatal) kSignals[n++] = sig;
    for (int sig = SIGRTMIN; sig <= SIGRTMAX && n < kMax; sig++) kSignals[n++] = sig;
    kCount = n;
}

// Shared with the handler, so plain data and lock-free atomic flags only:
// the kernel may run the handler on any of the host's threads.
using Flag = std::atomic<int>;
static_assert(Flag::is_always_lock_free, "a signal handler may only touch lock-free atomics");
struct sigaction host_action[kMax];
Flag installed[kMax];
Flag passed[kMax]; // given to the host; ours is no longer in place
Flag signalled;    // anything for session_resume to do
Flag continued;
Flag resized;
Flag have_saved;
Flag session_active;
struct termios saved_mode;
struct termios raw_mode; // as the session set it, to tell whether the host changed it since
int mode_fd = -1;
int wake_pipe[2] = {-1, -1};
// Bytes that undo what the read turned on in the terminal (bracketed paste),
// written before the mode is given back.
char exit_bytes[32];
Flag exit_len;

void write_exit_bytes() {
    if (exit_len > 0) {
        const ssize_t w = write(mode_fd, exit_bytes, static_cast<size_t>(exit_len));
        (void) w;
    }
}

int index_of(int sig) {
    for (int i = 0; i < kCount; i++)
        if (kSignals[i] == sig) return i;
    return -1;
}

void wake_loop() {
    if (wake_pipe[1] < 0) return;
    const char b = 1;
    const ssize_t w = write(wake_pipe[1], &b, 1); // a full pipe already wakes it
    (void) w;
}

// The host's own handler for a signal the library only listens to.
void chain(int i, int sig, siginfo_t *info, void *context) {
    const struct sigaction &h = host_action[i];
    if (h.sa_flags & SA_SIGINFO) {
        if (h.sa_sigaction) h.sa_sigaction(sig, info, context);
    } else if (h.sa_handler != SIG_DFL && h.sa_handler != SIG_IGN) {
        h.sa_handler(sig);
    }
}

extern "C" void on_signal(int sig, siginfo_t *info, void *context) {
    const int saved_errno = errno;
    const int i = index_of(sig);
    if (i >= 0) {
        if (sig == SIGCONT || sig == SIGWINCH) {
            (sig == SIGCONT ? continued : resized) = 1;
            chain(i, sig, info, context);
        } else {
            write_exit_bytes();
            if (have_saved) tcsetattr(mode_fd, TCSANOW, &saved_mode);
            sigaction(sig, &host_action[i], nullptr);
            installed[i] = 0;
            passed[i] = 1;
            // Blocked while this handler runs: delivered with the host's
            // disposition the moment it returns.
            raise(sig);
        }
        signalled = 1;
        wake_loop();
    }
    errno = saved_errno;
}

// Installs the library's handler for signal i, unless the host ignores a
// signal that would end or stop the process. SIGCONT and SIGWINCH only tell
// the library something: it listens to them always, and passes them on.
void install(int i) {
    struct sigaction ours {};
    ours.sa_sigaction = on_signal;
    sigemptyset(&ours.sa_mask);
    // Output interrupted by a signal must not be lost half-written.
    ours.sa_flags = SA_RESTART | SA_SIGINFO;
    struct sigaction current {};
    if (sigaction(kSignals[i], nullptr, &current) != 0) return;
    const bool listen_only = kSignals[i] == SIGCONT || kSignals[i] == SIGWINCH;
    if (current.sa_handler == SIG_IGN && !listen_only) return;
    // A host's own handler for a signal outside the first group is its
    // business alone.
    if (i >= kHandledCount && ((current.sa_flags & SA_SIGINFO) || current.sa_handler != SIG_DFL)) return;
    host_action[i] = current;
    if (sigaction(kSignals[i], &ours, nullptr) == 0) installed[i] = 1;
}

void uninstall_all() {
    for (int i = 0; i < kCount; i++) {
        if (installed[i]) sigaction(kSignals[i], &host_action[i], nullptr);
        installed[i] = passed[i] = 0;
    }
}

// Keeps the handled signals out while the shared state changes; on the way
// out, whatever arrived meanwhile is delivered.
class BlockSignals {
  public:
    BlockSignals() {
        sigset_t set;
        sigemptyset(&set);
        list_signals();
        for (int i = 0; i < kCount; i++) sigaddset(&set, kSignals[i]);
        pthread_sigmask(SIG_BLOCK, &set, &old_);
    }
    ~BlockSignals() { pthread_sigmask(SIG_SETMASK, &old_, nullptr); }
    BlockSignals(const BlockSignals &) = delete;
    BlockSignals &operator=(const BlockSignals &) = delete;

  private:
    sigset_t old_;
};

bool same_mode(const termios &a, const termios &b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
           memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

// A host that calls exit() from a callback still gets its terminal back;
// one that set the terminal's mode itself on its way out keeps what it set.
extern "C" void restore_at_exit(void) {
    if (!session_active) return;
    fflush(stdout);
    write_exit_bytes();
    struct termios now;
    if (have_saved && (tcgetattr(mode_fd, &now) != 0 || same_mode(now, raw_mode)))
        tcsetattr(mode_fd, TCSADRAIN, &saved_mode);
}

pthread_once_t exit_hook_once = PTHREAD_ONCE_INIT;
extern "C" void register_exit_hook(void) { atexit(restore_at_exit); }

void close_pipe() {
    for (int &fd : wake_pipe) {
        if (fd >= 0) close(fd);
        fd = -1;
    }
}

} // namespace

namespace qv {

// Another session's read sets its terminal raw and gives the mode back; the
// process's signals concern the default session, on the process's own
// terminal.
ReadSession::ReadSession(struct console *c) : active_(false) {
    if (ModeState *m = session_mode()) {
        if (m->depth++ > 0) return;
        m->saved = console_get_mode(c, &m->before) != 0;
        if (m->saved) console_set_raw_mode(c, &m->before);
        return;
    }
    active_ = !session_active;
    if (!active_) return; // a read inside a read keeps the outer one's hold
    pthread_once(&exit_hook_once, register_exit_hook);
    BlockSignals block;
    mode_fd = fileno(stdout);
    have_saved = console_get_mode(c, &saved_mode) != 0;
    if (have_saved) console_set_raw_mode(c, &saved_mode);
    if (have_saved && tcgetattr(mode_fd, &raw_mode) != 0) raw_mode = saved_mode;
    if (pipe2(wake_pipe, O_CLOEXEC | O_NONBLOCK) != 0) wake_pipe[0] = wake_pipe[1] = -1;
    signalled = continued = resized = 0;
    for (int i = 0; i < kCount; i++) install(i);
    session_active = 1;
}

void ReadSession::end() {
    if (ModeState *m = session_mode()) {
        if (ended_) return;
        ended_ = true;
        if (--m->depth == 0 && m->saved) console_set_mode(nullptr, &m->before);
        return;
    }
    if (!active_) return;
    active_ = false;
    BlockSignals block;
    uninstall_all();
    if (have_saved) console_set_mode(nullptr, &saved_mode);
    have_saved = 0;
    exit_len = 0;
    session_active = 0;
    signalled = continued = resized = 0;
    close_pipe();
}

int session_wake_fd() { return session_mode() ? -1 : wake_pipe[0]; }

void session_on_exit(const char *bytes) {
    if (session_mode()) return;
    BlockSignals block;
    const size_t n = bytes ? strlen(bytes) : 0;
    if (n >= sizeof exit_bytes) return;
    // A handler on another thread sees the old bytes or the new, never half.
    exit_len = 0;
    if (n > 0) memcpy(exit_bytes, bytes, n);
    exit_len = static_cast<int>(n);
}

void session_note_resize() {
    if (ModeState *m = session_mode()) {
        m->resized = 1;
        return;
    }
    resized = 1;
    signalled = 1;
    wake_loop();
}

int session_resume() {
    if (ModeState *m = session_mode()) return m->resized.exchange(0) ? kResized : kNothing;
    if (!signalled) return kNothing;
    BlockSignals block;
    signalled = 0;
    char sink[64];
    while (wake_pipe[0] >= 0 && read(wake_pipe[0], sink, sizeof sink) > 0) {
    }
    int event = kNothing;
    for (int i = 0; i < kCount; i++) {
        if (!passed[i]) continue;
        passed[i] = 0;
        install(i);
        event |= kRearmed;
        // A stop by SIGTSTP only returns here once the process continues.
        if (kSignals[i] == SIGTSTP) event |= kContinued;
    }
    if (continued) event |= kContinued;
    continued = 0;
    if ((event & (kRearmed | kContinued)) && have_saved) {
        console_set_raw_mode(nullptr, &saved_mode);
        if (tcgetattr(mode_fd, &raw_mode) != 0) raw_mode = saved_mode;
    }
    if (resized) event |= kResized;
    resized = 0;
    return event;
}

} // namespace qv
