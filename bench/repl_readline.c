/* The same REPL on GNU readline (or libedit's readline interface). */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#ifdef USE_LIBEDIT
#include <editline/readline.h>
#else
#include <readline/history.h>
#include <readline/readline.h>
#endif

/* 10,000 candidates for Tab: item00000 to item09999. */
static char *next_item(const char *text, int state) {
    static int i;
    char item[16];
    if (!state) i = 0;
    while (i < 10000) {
        snprintf(item, sizeof item, "item%05d", i++);
        if (strncmp(item, text, strlen(text)) == 0) return strdup(item);
    }
    return NULL;
}

int main(void) {
    long n = 0;
    char *line;
    rl_completion_entry_function = next_item;
    while ((line = readline("> ")) != NULL) {
        if (strcmp(line, "quit") == 0) {
            free(line);
            break;
        }
        if (*line) {
            add_history(line);
            n++;
        }
        free(line);
    }
    fprintf(stderr, "%ld\n", n);
    return 0;
}
