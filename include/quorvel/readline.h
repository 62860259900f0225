/*
 * Quorvel's readline-compatible interface: the common calls of programs
 * written for GNU readline, on top of Quorvel. Link with -lquorvel-readline
 * (pkg-config quorvel-readline), which also puts <readline/readline.h> and
 * <readline/history.h> on the include path, so such a program builds
 * unchanged. A call not declared here is not provided: the link fails rather
 * than the program at run time.
 *
 * Differences from GNU readline, on purpose:
 * - Keys are Quorvel's; there is no inputrc, and rl_readline_name is kept
 *   but not used.
 * - Ctrl-C abandons the line being typed: the program's SIGINT disposition
 *   takes the signal, and when the program goes on, readline() starts a fresh
 *   line instead of returning.
 * - Up and Down skip an entry equal to the one before it and empty entries;
 *   the history list and its files keep every line as added.
 * - Prompt text between \001 and \002 (invisible escape sequences, usually
 *   colours) is left out of the prompt.
 */
#ifndef QUORVEL_READLINE_H
#define QUORVEL_READLINE_H

#include <stdio.h>

#if defined(__GNUC__)
#define QV_RL_API __attribute__((visibility("default")))
#else
#define QV_RL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The markers a prompt puts around bytes that take no room on the screen. */
#define RL_PROMPT_START_IGNORE '\001'
#define RL_PROMPT_END_IGNORE '\002'

/* A generator: called with state 0 for the first match of text, then with
   increasing states; answers a malloc'd match, or NULL when there are no
   more. */
typedef char *rl_compentry_func_t(const char *text, int state);
/* Called on Tab with the word before the cursor and its byte bounds in
   rl_line_buffer. Answers NULL, or a malloc'd NULL-terminated array of
   malloc'd strings: the text to put in place of the word, then the matches
   (none when the first is the only one). The library frees the array and
   every string in it. */
typedef char **rl_completion_func_t(const char *text, int start, int end);

/* Reads a line with editing; prompt may be NULL. Answers a malloc'd UTF-8
   line without its line break, or NULL at the end of input (Ctrl-D on an
   empty line). The line is not added to the history. Reads without editing
   when rl_instream is not a terminal. */
QV_RL_API char *readline(const char *prompt);
/* Does nothing; answers 0. */
QV_RL_API int rl_initialize(void);

/* Completion. */
QV_RL_API extern rl_completion_func_t *rl_attempted_completion_function;
/* The callback interface: for a program that waits for its input itself.
   install draws the prompt and starts a line; whenever standard input is
   readable the program calls rl_callback_read_char, which takes what is
   there without waiting and, once a line is complete, calls the handler with
   it (malloc'ed: the handler frees it; NULL at the end of input). Unless the
   handler removes itself, the next line starts at once with the same
   prompt. remove ends a line under way and gives the terminal back. */
typedef void rl_vcpfunc_t(char *line);
QV_RL_API void rl_callback_handler_install(const char *prompt, rl_vcpfunc_t *handler);
QV_RL_API void rl_callback_read_char(void);
QV_RL_API void rl_callback_handler_remove(void);
/* Nothing to clean up after a signal: the editor gives the terminal back
   itself. */
QV_RL_API void rl_callback_sigcleanup(void);

/* Set by the completion function: nonzero keeps the fallback (the entry
   function, else file names) from running when it answered NULL. Reset to 0
   before each call. */
QV_RL_API extern int rl_attempted_completion_over;
/* The generator of the fallback; NULL: file names. */
QV_RL_API extern rl_compentry_func_t *rl_completion_entry_function;
/* Put after a single match (0: nothing); reset to ' ' before each Tab. */
QV_RL_API extern int rl_completion_append_character;
/* Calls generator (state 0, 1, ...) until it answers NULL; answers the
   array described at rl_completion_func_t, its first string the longest
   common prefix of the matches, or NULL when there are none. */
QV_RL_API char **rl_completion_matches(const char *text, rl_compentry_func_t *generator);

/* The line being edited as UTF-8, during completion, and its length and the
   cursor in bytes. */
QV_RL_API extern char *rl_line_buffer;
QV_RL_API extern int rl_point;
QV_RL_API extern int rl_end;

QV_RL_API extern const char *rl_readline_name;
/* NULL: standard input and standard output. */
QV_RL_API extern FILE *rl_instream;
QV_RL_API extern FILE *rl_outstream;

/* History. Lines are kept as added, newest last. */
QV_RL_API void using_history(void);
QV_RL_API void add_history(const char *line);
QV_RL_API void clear_history(void);
/* Keeps at most max entries (max < 0 counts as 0), dropping the oldest. */
QV_RL_API void stifle_history(int max);
/* Removes the limit; answers it, or a negative number when there was none. */
QV_RL_API int unstifle_history(void);
QV_RL_API int history_is_stifled(void);

/* History files hold one entry a line. filename NULL means ~/.history.
   Each answers 0, or an errno value. */
/* Appends the file's lines to the history. */
QV_RL_API int read_history(const char *filename);
/* Replaces the file with the history (mode 0600 when it is created). */
QV_RL_API int write_history(const char *filename);
/* Appends the newest n entries to an existing file. */
QV_RL_API int append_history(int n, const char *filename);
/* Keeps the last lines lines of the file. */
QV_RL_API int history_truncate_file(const char *filename, int lines);

#ifdef __cplusplus
}
#endif

#endif /* QUORVEL_READLINE_H */
