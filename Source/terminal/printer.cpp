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

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "quorvel.h"

namespace {

// Past this much text queued, printers wait for the loop to draw it.
constexpr size_t kQueueMax = 64 * 1024;

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t room = PTHREAD_COND_INITIALIZER;
char *queue = nullptr;
size_t queued = 0, capacity = 0;
bool reading = false;
int depth = 0; // a read inside a read (from a callback) keeps the outer one's queue
pthread_t reader;

std::atomic<int> pipe_read{-1}, pipe_write{-1};
std::atomic<int> wake_asked{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may set it");

pthread_once_t pipe_once = PTHREAD_ONCE_INIT;

extern "C" void make_pipe(void) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) return;
    pipe_read = fds[0];
    pipe_write = fds[1];
}

// Whether the pipe may hold bytes: the read loop empties it only then, so
// that a key costs no read of an empty pipe. Set after the write, so a
// byte is never left behind unseen (at worst the loop wakes once more).
std::atomic<int> poked{0};

void poke() {
    const int fd = pipe_write.load();
    if (fd < 0) return;
    const char b = 1;
    const ssize_t w = write(fd, &b, 1); // a full pipe wakes the loop already
    (void) w;
    poked.store(1);
}

class Held {
  public:
    Held() { pthread_mutex_lock(&lock); }
    ~Held() { pthread_mutex_unlock(&lock); }
    Held(const Held &) = delete;
    Held &operator=(const Held &) = delete;
};

// Outside a read the terminal is in the host's own mode, whose output
// processing ends a line as the host expects.
void write_now(const char *text, size_t n) {
    fwrite(text, 1, n, stdout);
    fflush(stdout);
}

bool append(const char *text, size_t n, bool line_end) {
    const size_t need = queued + n + (line_end ? 1 : 0);
    if (need > capacity) {
        size_t cap = capacity ? capacity : 4096;
        while (cap < need) cap *= 2;
        auto *grown = static_cast<char *>(realloc(queue, cap));
        if (!grown) return false;
        queue = grown;
        capacity = cap;
    }
    memcpy(queue + queued, text, n);
    queued += n;
    if (line_end) queue[queued++] = '\n';
    return true;
}

} // namespace

namespace qv {

void printer_init() { pthread_once(&pipe_once, make_pipe); }

int printer_fd() { return pipe_read.load(); }

void printer_begin_read() {
    Held held;
    if (depth++ > 0) return;
    reading = true;
    reader = pthread_self();
}

bool printer_wake_pending() { return wake_asked.load() != 0; }

bool printer_take_wake() {
    const int fd = pipe_read.load();
    char sink[64];
    if (poked.exchange(0))
        while (fd >= 0 && read(fd, sink, sizeof sink) > 0) {
        }
    return wake_asked.exchange(0) != 0;
}

char *printer_take(size_t *n) {
    Held held;
    *n = queued;
    if (queued == 0) return nullptr;
    char *text = queue;
    queue = nullptr;
    queued = capacity = 0;
    pthread_cond_broadcast(&room);
    return text;
}

void printer_end_read() {
    Held held;
    if (--depth > 0) return;
    if (queued > 0) write_now(queue, queued);
    queued = 0;
    reading = false;
    pthread_cond_broadcast(&room);
}

void printer_print(const char *text, size_t n) {
    const bool line_end = n == 0 || text[n - 1] != '\n';
    Held held;
    if (!reading) {
        write_now(text, n);
        if (line_end) write_now("\n", 1);
        return;
    }
    // The reading thread itself (a callback) must not wait for the loop it
    // is running in; others wait for room, unless the text could never fit.
    const bool self = pthread_equal(reader, pthread_self()) != 0;
    while (!self && reading && queued > 0 && queued + n > kQueueMax) pthread_cond_wait(&room, &lock);
    if (!reading) {
        write_now(text, n);
        if (line_end) write_now("\n", 1);
        return;
    }
    if (append(text, n, line_end)) poke();
}

} // namespace qv

void term_print(const char *text) {
    if (text) qv::printer_print(text, strlen(text));
}

void term_wake(void) {
    const int saved = errno;
    wake_asked.store(1);
    poke();
    errno = saved;
}
