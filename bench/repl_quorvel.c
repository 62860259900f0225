/* Reads lines until end of input, as a minimal REPL would. --lean turns
   lean output on, --no-paste bracketed paste off, --lean-no-paste both (to
   set against libedit, which has no bracketed paste). */
#include <quorvel.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int done;

/* 10,000 candidates for Tab: item00000 to item09999. */
static void complete(const char *text, int cursor, term_completions *out, void *user) {
    int start = cursor, i;
    char item[16];
    (void)user;
    while (start > 0 && text[start - 1] != ' ') start--;
    for (i = 0; i < 10000; i++) {
        snprintf(item, sizeof item, "item%05d", i);
        if (strncmp(item, text + start, (size_t)(cursor - start)) == 0) term_addCompletion(out, start, item);
    }
}
static void on_end(void) { done = 1; }

int main(int argc, char **argv) {
    const char *dir = getenv("QV_BENCH_HISTORY");
    term_options opts = {dir ? dir : "/tmp", 0, {0}};
    term_callbacks cb = {0};
    long n = 0;
    if (!term_init(&opts)) return 1;
    for (int i = 1; i < argc; i++) {
        if (strncmp(argv[i], "--lean", 6) == 0) term_setOption(TERM_OPTION_LEAN_OUTPUT, 1);
        if (strstr(argv[i], "no-paste")) term_setOption(TERM_OPTION_BRACKETED_PASTE, 0);
    }
    term_setCompleter(complete, NULL);
    cb.onEndOfInput = on_end;
    term_setCallbacks(&cb);
    while (!done) {
        char *line = term_getLine(0, "> ");
        if (!line) break;
        if (strcmp(line, "quit") == 0) done = 1;
        if (*line) n++;
        term_free(line);
    }
    term_destroy();
    fprintf(stderr, "%ld\n", n);
    return 0;
}
