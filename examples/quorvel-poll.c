/*
 * A host with its own event loop: one poll() over the terminal's edit and a
 * one-second timer. The timer's ticks are printed above the prompt while
 * the user edits; each entered line is echoed. Ctrl-D on an empty line
 * leaves. The editor never blocks the loop: term_editFeed() takes what is
 * ready and returns.
 */
#include <quorvel.h>

#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

int main(void) {
    struct itimerspec every;
    int timer, ticks = 0, done = 0;
    if (!(term_features() & TERM_FEATURE_EVENT_LOOP)) {
        fprintf(stderr, "quorvel-poll: this build of the library has no event loop\n");
        return 1;
    }
    if (!term_init(NULL)) return 1;
    timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    memset(&every, 0, sizeof every);
    every.it_interval.tv_sec = every.it_value.tv_sec = 1;
    timerfd_settime(timer, 0, &every, NULL);
    printf("A poll loop: the timer ticks above the prompt while you type. Ctrl-D leaves.\n");
    while (!done && term_editStart(0, 0, "poll> ")) {
        char *line = NULL;
        for (;;) {
            struct pollfd p[2];
            uint64_t n;
            p[0].fd = term_editFd();
            p[1].fd = timer;
            p[0].events = p[1].events = POLLIN;
            if (poll(p, 2, term_editTimeout()) < 0) continue;
            if ((p[1].revents & POLLIN) && read(timer, &n, sizeof n) == (ssize_t)sizeof n) {
                char text[32];
                ticks += (int)n;
                snprintf(text, sizeof text, "[tick %d]", ticks);
                term_print(text);
            }
            if (term_editFeed(&line)) break;
        }
        if (term_getStatus() == ST_EOF || !line) done = 1;
        else if (*line) printf("=> %s\n", line);
        term_free(line);
    }
    close(timer);
    term_destroy();
    return 0;
}
