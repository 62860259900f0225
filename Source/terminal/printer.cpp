// The print channel.
//
// While a line is read, the read loop owns the terminal: a thread that wrote
// to it then would garble the input. So prints are queued under a lock, and a
// byte written to a pipe wakes the loop, which clears the input area, writes
// the whole batch and draws the input again below it. The queue is bounded:
// a printer faster than the terminal waits for room rather than losing text.
// Outside a read a print is written at once, under the same lock, so lines
// from different threads never mix and keep their order.
//
// The wake-up is a flag and one write() to the same pipe: both may be done
// from a signal handler.
#include "printer.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "output.h"
#include "quorvel.h"
#include "session.h"

#if QV_WITH_THREAD_PRINT

namespace {

// Past this much text queued, printers wait for the loop to draw it.
constexpr size_t kQueueMax = 64 * 1024;

} // namespace

// One session's print channel.
struct qv::PrinterState {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t room = PTHREAD_COND_INITIALIZER;
    char *queue = nullptr;
    size_t queued = 0, capacity = 0;
    bool reading = false;
    int depth = 0; // a read inside a read (from a callback) keeps the outer one's queue
    pthread_t reader{};
    std::atomic<int> pipe_read{-1}, pipe_write{-1};
    std::atomic<int> wake_asked{0};
    // Whether the pipe may hold bytes: the read loop empties it only then,
    // so that a key costs no read of an empty pipe. Set after the write, so
    // a byte is never left behind unseen (at worst the loop wakes once more).
    std::atomic<int> poked{0};
};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may set them");

namespace {

// The default session's print channel: threads may print before term_init
// and after term_destroy.
qv::PrinterState own;

qv::PrinterState &st() { return qv::session_record(qv::kSlotPrinter, own); }

bool make_pipe(qv::PrinterState &p) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    p.pipe_read = fds[0];
    p.pipe_write = fds[1];
    return true;
}

pthread_once_t pipe_once = PTHREAD_ONCE_INIT;
extern "C" void make_own_pipe(void) { make_pipe(own); }

void poke(qv::PrinterState &p) {
    const int fd = p.pipe_write.load();
    if (fd < 0) return;
    const char b = 1;
    const ssize_t w = write(fd, &b, 1); // a full pipe wakes the loop already
    (void) w;
    p.poked.store(1);
}

class Held {
  public:
    explicit Held(qv::PrinterState &p) : p_(p) { pthread_mutex_lock(&p.lock); }
    ~Held() { pthread_mutex_unlock(&p_.lock); }
    Held(const Held &) = delete;
    Held &operator=(const Held &) = delete;

  private:
    qv::PrinterState &p_;
};

// Outside a read the terminal is in the host's own mode, whose output
// processing ends a line as the host expects.
void write_now(const char *text, size_t n) {
    fwrite(text, 1, n, qv::terminal_stream());
    fflush(qv::terminal_stream());
}

bool append(qv::PrinterState &p, const char *text, size_t n, bool line_end) {
    const size_t need = p.queued + n + (line_end ? 1 : 0);
    if (need > p.capacity) {
        size_t cap = p.capacity ? p.capacity : 4096;
        while (cap < need) cap *= 2;
        auto *grown = static_cast<char *>(realloc(p.queue, cap));
        if (!grown) return false;
        p.queue = grown;
        p.capacity = cap;
    }
    memcpy(p.queue + p.queued, text, n);
    p.queued += n;
    if (line_end) p.queue[p.queued++] = '\n';
    return true;
}

} // namespace

namespace qv {

void printer_init() {
    if (current_session() == nullptr) pthread_once(&pipe_once, make_own_pipe);
}

int printer_fd() { return st().pipe_read.load(); }

void printer_begin_read() {
    PrinterState &p = st();
    Held held(p);
    if (p.depth++ > 0) return;
    p.reading = true;
    p.reader = pthread_self();
}

bool printer_wake_pending() { return st().wake_asked.load() != 0; }

bool printer_take_wake() {
    PrinterState &p = st();
    const int fd = p.pipe_read.load();
    char sink[64];
    if (p.poked.exchange(0))
        while (fd >= 0 && read(fd, sink, sizeof sink) > 0) {
        }
    return p.wake_asked.exchange(0) != 0;
}

char *printer_take(size_t *n) {
    PrinterState &p = st();
    Held held(p);
    *n = p.queued;
    if (p.queued == 0) return nullptr;
    char *text = p.queue;
    p.queue = nullptr;
    p.queued = p.capacity = 0;
    pthread_cond_broadcast(&p.room);
    return text;
}

void printer_end_read() {
    PrinterState &p = st();
    Held held(p);
    if (--p.depth > 0) return;
    if (p.queued > 0) write_now(p.queue, p.queued);
    p.queued = 0;
    p.reading = false;
    pthread_cond_broadcast(&p.room);
}

void printer_print(const char *text, size_t n) {
    PrinterState &p = st();
    const bool line_end = n == 0 || text[n - 1] != '\n';
    Held held(p);
    if (!p.reading) {
        write_now(text, n);
        if (line_end) write_now("\n", 1);
        return;
    }
    // The reading thread itself (a callback) must not wait for the loop it
    // is running in; others wait for room, unless the text could never fit.
    const bool self = pthread_equal(p.reader, pthread_self()) != 0;
    while (!self && p.reading && p.queued > 0 && p.queued + n > kQueueMax) pthread_cond_wait(&p.room, &p.lock);
    if (!p.reading) {
        write_now(text, n);
        if (line_end) write_now("\n", 1);
        return;
    }
    if (append(p, text, n, line_end)) poke(p);
}

void printer_nudge() { poke(st()); }

PrinterState *printer_new() {
    auto *p = new (std::nothrow) PrinterState;
    if (p && !make_pipe(*p)) {
        delete p;
        return nullptr;
    }
    return p;
}

// Nothing may print to or read for the session any more.
void printer_free(PrinterState *p) {
    if (!p) return;
    close(p->pipe_read);
    close(p->pipe_write);
    free(p->queue);
    pthread_mutex_destroy(&p->lock);
    pthread_cond_destroy(&p->room);
    delete p;
}

} // namespace qv

void term_print(const char *text) {
    if (text) qv::printer_print(text, strlen(text));
}

void term_wake(void) {
    const int saved = errno;
    qv::PrinterState &p = st();
    p.wake_asked.store(1);
    poke(p);
    errno = saved;
}

#else // a build without printing from threads: term_print() and term_wake() do nothing

struct qv::PrinterState {};

namespace qv {
void printer_init() {}
int printer_fd() { return -1; }
void printer_begin_read() {}
bool printer_wake_pending() { return false; }
bool printer_take_wake() { return false; }
char *printer_take(size_t *n) {
    *n = 0;
    return nullptr;
}
void printer_end_read() {}
void printer_print(const char *, size_t) {}
void printer_nudge() {}
PrinterState *printer_new() { return new (std::nothrow) PrinterState; }
void printer_free(PrinterState *p) { delete p; }
} // namespace qv

void term_print(const char *) {}
void term_wake(void) {}

#endif
