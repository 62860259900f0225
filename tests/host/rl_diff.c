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
 * QV_DIFF_ICASE its words match in any case; with QV_DIFF_FILES it completes
 * file names, readline's default, in the directory that variable names; with
 * QV_DIFF_CALLBACK it reads the terminal itself, as a program with its own
 * event loop does, and hands readline's callback interface each key through
 * rl_getc_function.
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

static FILE *out;
static int done;
static unsigned char keys[256];
static size_t keys_at, keys_len;

static int queued_getc(FILE *unused) {
    (void)unused;
    return keys_at < keys_len ? keys[keys_at++] : EOF;
}

static void write_line(char *line) {
    const unsigned char *p;
    if (!line) {
        done = 1;
        rl_callback_handler_remove();
        return;
    }
    for (p = (const unsigned char *)line; *p; p++) fprintf(out, "%02x", *p);
    fputc('\n', out);
    fflush(out);
    if (*line) add_history(line);
    free(line);
}

/* The history as the program sees it at the end, each entry as a line
   "H:" and its text: edits kept with recalled entries show here. */
static void write_history_list(void) {
    int i;
    for (i = 0; i < history_length; i++) {
        HIST_ENTRY *e = history_get(history_base + i);
        const unsigned char *p;
        if (!e) continue;
        fprintf(out, "%02x%02x", 'H', ':');
        for (p = (const unsigned char *)e->line; *p; p++) fprintf(out, "%02x", *p);
        fputc('\n', out);
    }
}

int main(void) {
    static const char *const history[] = {"make test", "git commit -m first", "echo one two three",
                                          "ls -la /tmp", "git status", NULL};
    const char *path = getenv("QV_DIFF_OUT");
    char *line;
    int i;
    out = path ? fopen(path, "w") : NULL;
    if (!out) return 2;
    rl_readline_name = "rldiff";
    rl_completion_entry_function = next_word;
    any_case = getenv("QV_DIFF_ICASE") != NULL;
    if (getenv("QV_DIFF_FILES")) {
        rl_completion_entry_function = NULL;
        if (chdir(getenv("QV_DIFF_FILES")) != 0) return 2;
    }
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
    if (getenv("QV_DIFF_CALLBACK")) {
        rl_getc_function = queued_getc;
        rl_callback_handler_install("> ", write_line);
        while (!done) {
            const ssize_t n = read(0, keys, sizeof keys);
            if (n <= 0) break;
            keys_len = (size_t)n;
            for (keys_at = 0; keys_at < keys_len && !done;) rl_callback_read_char();
        }
        write_history_list();
        fclose(out);
        return 0;
    }
    while ((line = readline("> ")) != NULL) {
        const unsigned char *p;
        for (p = (const unsigned char *)line; *p; p++) fprintf(out, "%02x", *p);
        fputc('\n', out);
        fflush(out);
        if (*line) add_history(line);
        free(line);
    }
    write_history_list();
    fclose(out);
    return 0;
}
