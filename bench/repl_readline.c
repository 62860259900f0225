/* The same REPL on GNU readline (or libedit's readline interface). */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#ifdef USE_LIBEDIT
#include <editline/readline.h>
#else
#include <readline/history.h>
#include <readline/readline.h>
#endif

int main(void) {
    long n = 0;
    char *line;
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
