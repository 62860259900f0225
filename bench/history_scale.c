/* A history at scale: loads DIR/term.history (a million lines, say), then
   reports the milliseconds the load took, the megabytes the process then
   holds, and the milliseconds of adding one line and saving the list. On
   Quorvel, or with USE_READLINE on GNU readline, whose file is the same
   plain lines. Quorvel's run also times Ctrl-R typed with the text of the
   oldest line (argument 2, "entry 0000000" by default): a search that
   walks the whole list.

     history-scale-quorvel DIR     history-scale-readline DIR            */
#define _GNU_SOURCE
#include <fcntl.h>
#include <pty.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#ifdef USE_READLINE
#include <readline/history.h>
#include <readline/readline.h>
#else
#include <quorvel.h>
#endif

static double now_ms(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

static long resident_kb(void) {
    FILE *f = fopen("/proc/self/status", "r");
    char line[256];
    long kb = -1;
    while (f && fgets(line, sizeof line, f))
        if (strncmp(line, "VmRSS:", 6) == 0) kb = atol(line + 6);
    if (f) fclose(f);
    return kb;
}

int main(int argc, char **argv) {
    if (argc < 2) return 2;
    char path[4096];
    snprintf(path, sizeof path, "%s/term.history", argv[1]);
    double t0, t1, t2, load_ms;
    long kb;
#ifdef USE_READLINE
    t0 = now_ms();
    if (read_history(path) != 0) return 1;
    t1 = now_ms();
    load_ms = t1 - t0;
    kb = resident_kb();
    add_history("one more line");
    if (write_history(path) != 0) return 1;
    t2 = now_ms();
#else
    /* The library draws on a terminal: a pseudo-terminal of its own when
       run without one. */
    if (!isatty(STDOUT_FILENO)) {
        int master, slave;
        struct winsize ws = {24, 80, 0, 0};
        if (openpty(&master, &slave, NULL, NULL, &ws) != 0) return 1;
        dup2(slave, STDIN_FILENO);
        dup2(slave, STDOUT_FILENO);
    }
    term_options options = {argv[1], 0, {0}};
    if (!term_init(&options)) return 1;
    term_setHistoryLimit(-1);
    t0 = now_ms();
    term_loadHistory();
    load_ms = now_ms() - t0;
    kb = resident_kb();
    {
        const char *oldest = argc > 2 ? argv[2] : "entry 0000000";
        char *line = NULL;
        double s0, s1;
        term_editStart(TERM_EDIT_UTF8, 0, "> ");
        term_editPush("\x12", 1);
        term_editFeed(&line);
        s0 = now_ms();
        term_editPush(oldest, (int)strlen(oldest));
        term_editFeed(&line);
        s1 = now_ms();
        term_editStop();
        fprintf(stderr, "search to the oldest %.1f ms, ", s1 - s0);
    }
    t1 = now_ms();
    term_addHistory("one more line");
    term_destroy();
    t2 = now_ms();
#endif
    fprintf(stderr, "load %.0f ms, %.0f MB resident, add and save %.0f ms\n", load_ms, kb / 1024.0, t2 - t1);
    return 0;
}
