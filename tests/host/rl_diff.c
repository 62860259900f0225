/*
 * One readline program, built twice: on GNU readline, the control, and on
 * libquorvel-readline (scripts/rl_diff.py types the same keys into both).
 * It starts with a fixed history, reads lines with readline("> ") until the
 * end of input, adds each non-empty one to the history, and writes each to
 * the file named by QV_DIFF_OUT as hexadecimal bytes, a line each. Tab
 * completes from a fixed list of words.
 */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <readline/history.h>
#include <readline/readline.h>

static const char *const words[] = {"print", "printf", "private", "prompt", "quit", NULL};

static char *next_word(const char *text, int state) {
    static int i;
    if (!state) i = 0;
    while (words[i])
        if (strncmp(words[i++], text, strlen(text)) == 0) return strdup(words[i - 1]);
    return NULL;
}

int main(void) {
    static const char *const history[] = {"make test", "git commit -m first", "echo one two three",
                                          "ls -la /tmp", "git status", NULL};
    const char *path = getenv("QV_DIFF_OUT");
    FILE *out = path ? fopen(path, "w") : NULL;
    char *line;
    int i;
    if (!out) return 2;
    rl_readline_name = "rldiff";
    rl_completion_entry_function = next_word;
    for (i = 0; history[i]; i++) add_history(history[i]);
    while ((line = readline("> ")) != NULL) {
        const unsigned char *p;
        for (p = (const unsigned char *)line; *p; p++) fprintf(out, "%02x", *p);
        fputc('\n', out);
        fflush(out);
        if (*line) add_history(line);
        free(line);
    }
    fclose(out);
    return 0;
}
