/*
 * One readline program, built twice: on GNU readline, the control, and on
 * libquorvel-readline (scripts/rl_diff.py types the same keys into both).
 * It starts with a fixed history, reads lines with readline("> ") until the
 * end of input, adds each non-empty one to the history, and writes each to
 * the file named by QV_DIFF_OUT as hexadecimal bytes, a line each. Tab
 * completes from a fixed list of words. With QV_DIFF_GETC set it reads the
 * keys itself, through rl_getc_function from a buffered stream of its own,
 * as programs with their own input ports do; with QV_DIFF_INSTREAM it points
 * rl_instream at a stream of its own over the terminal; with QV_DIFF_CALLS
 * it binds a macro and sets a variable through readline's calls; with
 * QV_DIFF_ICASE its words match in any case.
 */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <readline/history.h>
#include <readline/readline.h>

static const char *const words[] = {"print", "printf", "private", "prompt", "quit", NULL};

static int any_case; /* QV_DIFF_ICASE: the words match in any case */

static char *next_word(const char *text, int state) {
    static int i;
    if (!state) i = 0;
    while (words[i]) {
        const char *w = words[i++];
        if ((any_case ? strncasecmp(w, text, strlen(text)) : strncmp(w, text, strlen(text))) == 0) return strdup(w);
    }
    return NULL;
}

static FILE *own_keys;

static int own_getc(FILE *unused) {
    (void)unused;
    return getc(own_keys);
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
    any_case = getenv("QV_DIFF_ICASE") != NULL;
    if (getenv("QV_DIFF_GETC")) {
        own_keys = fdopen(dup(0), "r");
        if (!own_keys) return 2;
        rl_getc_function = own_getc;
    }
    if (getenv("QV_DIFF_INSTREAM") && !(rl_instream = fdopen(dup(0), "r"))) return 2;
    if (getenv("QV_DIFF_CALLS")) {
        rl_macro_bind("\\C-xm", "from a call", rl_get_keymap());
        rl_variable_bind("comment-begin", ";;");
    }
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
