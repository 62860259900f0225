/*
 * Test host for the readline-compatible library: a C99 program written for
 * readline's API, built unchanged against it. It reads lines with readline()
 * until the end of input and answers on the terminal:
 *
 *   !stifle N  !unstifle  !clear  !read F  !write F  !append N F  !trunc F N
 *              the history call; prints "= <answer>"
 *   anything else  prints "got[<line>]" and adds the line to the history
 *
 * With QV_RL_CALLBACK set it reads through the callback interface instead,
 * in a select loop on standard input, as Python and gdb do.
 *
 * Tab completes the word before the cursor from a fixed list; a word starting
 * with "./" falls back to file names. Each completion call writes
 * "WORD <text> <start> <end> <rl_point> <rl_end> <rl_line_buffer>" to the
 * file named by QV_SIDE.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <unistd.h>

#include <readline/history.h>
#include <readline/readline.h>

static const char *const words[] = {"select", "selection", "session", "seven", NULL};

static char *word_generator(const char *text, int state) {
    static int next;
    size_t n = strlen(text);
    if (state == 0) next = 0;
    while (words[next]) {
        const char *w = words[next++];
        if (strncmp(w, text, n) == 0) return strdup(w);
    }
    return NULL;
}

static char **complete(const char *text, int start, int end) {
    const char *path = getenv("QV_SIDE");
    FILE *side = path ? fopen(path, "a") : NULL;
    if (side) {
        fprintf(side, "WORD %s %d %d %d %d %s\n", text, start, end, rl_point, rl_end, rl_line_buffer);
        fclose(side);
    }
    if (strncmp(text, "./", 2) == 0) return NULL;
    rl_attempted_completion_over = 1;
    if (strcmp(text, "sev") == 0) rl_completion_append_character = '(';
    return rl_completion_matches(text, word_generator);
}

static int command(const char *line) {
    char file[256];
    int n = 0;
    if (sscanf(line, "!stifle %d", &n) == 1) {
        stifle_history(n);
        return history_is_stifled();
    }
    if (strcmp(line, "!unstifle") == 0) return unstifle_history();
    if (strcmp(line, "!clear") == 0) {
        clear_history();
        return 0;
    }
    if (sscanf(line, "!read %255s", file) == 1) return read_history(file);
    if (sscanf(line, "!write %255s", file) == 1) return write_history(file);
    if (sscanf(line, "!append %d %255s", &n, file) == 2) return append_history(n, file);
    if (sscanf(line, "!trunc %255s %d", file, &n) == 2) return history_truncate_file(file, n);
    return -1000;
}

static void answer(const char *line) {
    if (line[0] == '!') {
        printf("= %d\n", command(line));
    } else {
        printf("got[%s]\n", line);
        add_history(line);
    }
}

static int running = 1;

static void on_line(char *line) {
    if (!line) {
        rl_callback_handler_remove();
        running = 0;
        return;
    }
    answer(line);
    free(line);
}

int main(void) {
    char *line;
    rl_readline_name = "rl_host";
    rl_attempted_completion_function = complete;
    rl_initialize();
    using_history();
    if (getenv("QV_RL_CALLBACK")) {
        rl_callback_handler_install("rl> ", on_line);
        while (running) {
            fd_set in;
            FD_ZERO(&in);
            FD_SET(STDIN_FILENO, &in);
            if (select(STDIN_FILENO + 1, &in, NULL, NULL, NULL) > 0) rl_callback_read_char();
        }
    } else {
        while ((line = readline("rl> ")) != NULL) {
            answer(line);
            free(line);
        }
    }
    printf("EOF\n");
    return 0;
}
