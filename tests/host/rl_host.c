/*
 * Test host for the readline-compatible library: a C99 program written for
 * readline's API, built unchanged against it. It reads lines with readline()
 * until the end of input and answers on the terminal:
 *
 *   !stifle N  !unstifle  !clear  !read F  !write F  !append N F  !trunc F N
 *   !where  !setpos N  !length  !stamps (time stamps on, with '#')
 *              the history call; prints "= <answer>"
 *   !get N     prints "entry[<line>]" for history_get(N); answers history_base
 *   !remove N  !replace N TEXT
 *              prints "old[<line>]" for the entry taken out; answers
 *              history_length
 *   anything else  prints "got[<line>]" and adds the line to the history
 *
 * QV_RL_PROMPT, when set, is the prompt instead of "rl> ".
 *
 * With QV_RL_CALLBACK set it reads through the callback interface instead,
 * in a select loop on standard input, as Python and gdb do. There
 *   !preset TEXT  puts TEXT in the next line from rl_pre_input_hook, with
 *                 rl_insert_text over text it deleted, the cursor at the
 *                 start
 *   !stuff TEXT   types TEXT into the next line with rl_stuff_char
 * and Ctrl-C, seen by a SIGINT handler as the select is interrupted, as
 * Python sees it, drops the line, prints "interrupted" and starts another.
 *
 * Tab completes the word before the cursor from a fixed list; a word starting
 * with "./" falls back to file names. Each completion call writes
 * "WORD <text> <start> <end> <rl_point> <rl_end> <rl_line_buffer>" to the
 * file named by QV_SIDE.
 */
#define _POSIX_C_SOURCE 200809L
#include <signal.h>
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

static char preset[64], stuffed[64];

static int pre_input(void) {
    if (preset[0]) {
        rl_insert_text("junk");
        rl_delete_text(0, rl_end);
        rl_insert_text(preset);
        rl_point = 0;
        rl_redisplay();
    }
    for (const char *p = stuffed; *p; p++) rl_stuff_char((unsigned char)*p);
    preset[0] = stuffed[0] = 0;
    return 0;
}

/* A display hook as programs write them: readline's own listing, then the
   prompt and line again. */
static void show_matches(char **matches, int len, int max) {
    fputc('\n', rl_outstream ? rl_outstream : stdout);
    rl_display_match_list(matches, len, max);
    rl_forced_update_display();
}

static int command(const char *line) {
    char file[256];
    if (sscanf(line, "!preset %63s", preset) == 1 || sscanf(line, "!stuff %63s", stuffed) == 1) return 0;
    int n = 0;
    if (sscanf(line, "!stifle %d", &n) == 1) {
        stifle_history(n);
        return history_is_stifled();
    }
    if (strcmp(line, "!unstifle") == 0) return unstifle_history();
    if (strcmp(line, "!hook") == 0) {
        rl_completion_display_matches_hook = show_matches;
        return 0;
    }
    if (strcmp(line, "!dump") == 0) {
        rl_macro_bind("\\C-xq", "quit()", rl_get_keymap());
        rl_function_dumper(1);
        rl_macro_dumper(0);
        rl_variable_dumper(1);
        return 0;
    }
    if (strcmp(line, "!vi") == 0) return rl_variable_bind("editing-mode", "vi") == 0 ? rl_editing_mode : -1;
    if (strcmp(line, "!clear") == 0) {
        clear_history();
        return 0;
    }
    if (sscanf(line, "!read %255s", file) == 1) return read_history(file);
    if (sscanf(line, "!write %255s", file) == 1) return write_history(file);
    if (sscanf(line, "!append %d %255s", &n, file) == 2) return append_history(n, file);
    if (sscanf(line, "!trunc %255s %d", file, &n) == 2) return history_truncate_file(file, n);
    if (strcmp(line, "!where") == 0) return where_history();
    if (sscanf(line, "!setpos %d", &n) == 1) return history_set_pos(n);
    if (strcmp(line, "!length") == 0) return history_length;
    if (strcmp(line, "!stamps") == 0) {
        history_comment_char = '#';
        history_write_timestamps = 1;
        return 0;
    }
    if (sscanf(line, "!get %d", &n) == 1) {
        HIST_ENTRY *e = history_get(n);
        printf("entry[%s]\n", e ? e->line : "(none)");
        return history_base;
    }
    int at = 0;
    if (sscanf(line, "!remove %d", &n) == 1 || sscanf(line, "!replace %d %n", &n, &at) == 1) {
        HIST_ENTRY *old = at ? replace_history_entry(n, line + at, NULL) : remove_history(n);
        printf("old[%s]\n", old ? old->line : "(none)");
        free_history_entry(old);
        return history_length;
    }
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
static volatile sig_atomic_t interrupted;

static void on_sigint(int sig) {
    (void)sig;
    interrupted = 1;
}

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
    const char *prompt = getenv("QV_RL_PROMPT") ? getenv("QV_RL_PROMPT") : "rl> ";
    rl_readline_name = "rl_host";
    rl_attempted_completion_function = complete;
    rl_initialize();
    using_history();
    if (getenv("QV_RL_CALLBACK")) {
        struct sigaction sa;
        memset(&sa, 0, sizeof sa);
        sa.sa_handler = on_sigint;
        sigaction(SIGINT, &sa, NULL);
        rl_pre_input_hook = pre_input;
        rl_callback_handler_install(prompt, on_line);
        while (running) {
            fd_set in;
            FD_ZERO(&in);
            FD_SET(STDIN_FILENO, &in);
            const int ready = select(STDIN_FILENO + 1, &in, NULL, NULL, NULL);
            if (ready > 0) rl_callback_read_char();
            if (ready < 0 && interrupted) {
                interrupted = 0;
                rl_callback_handler_remove();
                printf("\ninterrupted\n");
                rl_callback_handler_install(prompt, on_line);
            }
        }
    } else {
        while ((line = readline(prompt)) != NULL) {
            answer(line);
            free(line);
        }
    }
    printf("EOF\n");
    return 0;
}
