/*
 * Quorvel's readline-compatible interface: the common calls of programs
 * written for GNU readline, on top of Quorvel. Link with -lquorvel-readline
 * (pkg-config quorvel-readline), which also puts <readline/readline.h> and
 * <readline/history.h> on the include path, so such a program builds
 * unchanged. A call not declared here is not provided: the link fails rather
 * than the program at run time.
 *
 * It also answers the names of libedit's readline-compatible interface
 * (history_init, libedit's history file format), so that a program built on
 * either can run on it with LD_PRELOAD.
 *
 * Differences from GNU readline, on purpose:
 * - Keys are Quorvel's. The init file ($INPUTRC, else ~/.inputrc; never
 *   /etc/inputrc), read when the editor starts, binds keys to the actions
 *   Quorvel has by readline's names, with $if mode= and term=; its other
 *   settings and bindings are kept for the program to read back. Tab's
 *   binding, and in the callback interface control keys bound to the
 *   program's own functions, also act (see Keys below). Lines not
 *   understood are logged (appender "quorvel-readline") only when isLogging
 *   is set, never written to the program's terminal. rl_readline_name is
 *   kept but not used.
 * - In the callback interface Ctrl-C, Ctrl-\ and Ctrl-Z are the terminal's,
 *   as with readline: the program's handlers get the signals while it
 *   waits. readline() keeps the behaviour below.
 * - Ctrl-C abandons the line being typed: the program's SIGINT disposition
 *   takes the signal, and when the program goes on, readline() starts a fresh
 *   line instead of returning.
 * - Up and Down skip an entry equal to the one before it and empty entries;
 *   the history list and its files keep every line as added.
 * - Prompt text between \001 and \002 takes no cells; the colours its SGR
 *   sequences set are drawn, any other sequence there is dropped.
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

/* Function types, as readline names them. */
typedef int rl_command_func_t(int count, int key);
typedef int rl_hook_func_t(void);
typedef int rl_getc_func_t(FILE *in);
typedef void rl_voidfunc_t(void);
typedef void rl_vintfunc_t(int);
typedef void rl_vcpfunc_t(char *line);
typedef char *rl_cpvfunc_t(void);
typedef int rl_icppfunc_t(char **);
typedef void rl_compdisp_func_t(char **matches, int count, int longest);
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

/* ---------------------------------------------------------------------------
   Reading a line. */

/* Reads a line with editing; prompt may be NULL. Answers a malloc'd UTF-8
   line without its line break, or NULL at the end of input (Ctrl-D on an
   empty line). The line is not added to the history. Reads without editing
   when rl_instream is not a terminal. rl_startup_hook runs before the prompt
   is drawn; with rl_already_prompted set the program has written the prompt
   itself and it is drawn over in place. */
QV_RL_API char *readline(const char *prompt);
/* Starts the editor if it has not started; answers 0. */
QV_RL_API int rl_initialize(void);

/* The callback interface: for a program that waits for its input itself.
   install draws the prompt and starts a line; whenever standard input is
   readable the program calls rl_callback_read_char, which takes what is
   there without waiting and, once a line is complete, calls the handler with
   it (malloc'ed: the handler frees it; NULL at the end of input). Unless the
   handler removes itself, the next line starts at once with the same
   prompt. remove ends a line under way and gives the terminal back. */
QV_RL_API void rl_callback_handler_install(const char *prompt, rl_vcpfunc_t *handler);
QV_RL_API void rl_callback_read_char(void);
QV_RL_API void rl_callback_handler_remove(void);
/* Nothing to clean up after a signal: the editor gives the terminal back
   itself. */
QV_RL_API void rl_callback_sigcleanup(void);

/* The line being edited as UTF-8, its length and the cursor in bytes: up to
   date whenever the program's code runs during an edit (a completion, a
   hook, between callback reads). A program may move rl_point, or change the
   text and rl_end; the editor takes the change at the next read or
   redisplay. */
QV_RL_API extern char *rl_line_buffer;
QV_RL_API extern int rl_point;
QV_RL_API extern int rl_end;
QV_RL_API extern int rl_mark;
/* Set once a line is complete. */
QV_RL_API extern int rl_done;
QV_RL_API extern int rl_eof_found;
QV_RL_API extern int rl_pending_input;
QV_RL_API extern int rl_erase_empty_line;
QV_RL_API extern int rl_already_prompted;
QV_RL_API extern char *rl_prompt;
QV_RL_API extern char *rl_display_prompt;
QV_RL_API extern const char *rl_readline_name;
QV_RL_API extern const char *rl_terminal_name;
QV_RL_API extern const char *rl_library_version; /* "8.2": the interface this follows */
QV_RL_API extern int rl_readline_version;        /* 0x0802 */
QV_RL_API extern int rl_gnu_readline_p;
/* Standard input and standard output when NULL at rl_initialize(), the
   first readline() or the first rl_callback_handler_install(). */
QV_RL_API extern FILE *rl_instream;
QV_RL_API extern FILE *rl_outstream;

/* The state bits programs test. */
QV_RL_API extern unsigned long rl_readline_state;
#define RL_STATE_INITIALIZED 0x0000002
#define RL_STATE_TERMPREPPED 0x0000004
#define RL_STATE_READCMD 0x0000008
#define RL_STATE_COMPLETING 0x0004000
#define RL_STATE_CALLBACK 0x0080000
#define RL_STATE_DONE 0x2000000
#define RL_STATE_EOF 0x8000000
#define RL_SETSTATE(x) (rl_readline_state |= (x))
#define RL_UNSETSTATE(x) (rl_readline_state &= ~(x))
#define RL_ISSTATE(x) (rl_readline_state & (x))

/* Hooks: startup before each prompt, pre_input once it is drawn, event
   while a blocking readline() waits (ten times a second). input_available,
   getc, redisplay_function and the terminal functions are kept for the
   program to read; the editor reads and draws itself. */
QV_RL_API extern rl_hook_func_t *rl_startup_hook;
QV_RL_API extern rl_hook_func_t *rl_pre_input_hook;
QV_RL_API extern rl_hook_func_t *rl_event_hook;
QV_RL_API extern rl_hook_func_t *rl_input_available_hook;
QV_RL_API extern rl_getc_func_t *rl_getc_function;
QV_RL_API extern rl_voidfunc_t *rl_redisplay_function;
QV_RL_API extern rl_vintfunc_t *rl_prep_term_function;
QV_RL_API extern rl_voidfunc_t *rl_deprep_term_function;
/* The editor always restores the terminal on a fatal signal and follows
   the window's size; these are kept for the program to read. */
QV_RL_API extern int rl_catch_signals;
QV_RL_API extern int rl_catch_sigwinch;
QV_RL_API extern int _rl_echoing_p; /* 1: the editor echoes what is typed */

/* Changing the line from the program's code during an edit. Text is
   UTF-8; positions are byte offsets. Each answers what readline answers. */
QV_RL_API int rl_insert_text(const char *text);
QV_RL_API int rl_delete_text(int start, int end);
QV_RL_API int rl_kill_text(int start, int end);
QV_RL_API void rl_replace_line(const char *text, int clear_undo);
/* Inserts the character at the cursor, as if typed. */
QV_RL_API int rl_stuff_char(int c);
/* Draws what changed; after rl_on_new_line (the program wrote output and a
   line break), the prompt and line are drawn again in full on the new row.
   rl_forced_update_display redraws them in full on the cursor's row. */
QV_RL_API void rl_redisplay(void);
QV_RL_API int rl_forced_update_display(void);
QV_RL_API int rl_on_new_line(void);
QV_RL_API int rl_on_new_line_with_prompt(void);
QV_RL_API void _rl_erase_entire_line(void);
QV_RL_API int rl_crlf(void);
QV_RL_API int rl_ding(void);
/* The prompt calls keep the text for the next line; the line under way
   keeps the prompt it has. rl_message writes nothing. */
QV_RL_API int rl_set_prompt(const char *prompt);
QV_RL_API int rl_expand_prompt(char *prompt);
QV_RL_API void rl_save_prompt(void);
QV_RL_API void rl_restore_prompt(void);
QV_RL_API int rl_message(const char *format, ...);
QV_RL_API int rl_clear_message(void);
/* One byte from the input, waiting for it. */
QV_RL_API int rl_read_key(void);
QV_RL_API int rl_getc(FILE *in);

/* The terminal: the editor puts it in raw mode for each line and back
   after it, whatever these say; prep and deprep do nothing, and the
   screen size follows the window. */
QV_RL_API void rl_prep_terminal(int meta);
QV_RL_API void rl_deprep_terminal(void);
QV_RL_API int rl_reset_terminal(const char *name);
QV_RL_API void rl_resize_terminal(void);
QV_RL_API void rl_set_screen_size(int rows, int cols);
QV_RL_API void rl_get_screen_size(int *rows, int *cols);
/* Signals: the editor restores the terminal itself. cleanup ends the line
   under way; the others do nothing. */
QV_RL_API void rl_cleanup_after_signal(void);
QV_RL_API void rl_reset_after_signal(void);
QV_RL_API void rl_free_line_state(void);
QV_RL_API int rl_check_signals(void);
QV_RL_API int rl_pending_signal(void);

/* ---------------------------------------------------------------------------
   Completion. */
QV_RL_API extern rl_completion_func_t *rl_attempted_completion_function;
/* Set by the completion function: nonzero keeps the fallback (the entry
   function, else file names) from running when it answered NULL. Reset to 0
   before each call. */
QV_RL_API extern int rl_attempted_completion_over;
/* The generator of the fallback; NULL: file names. */
QV_RL_API extern rl_compentry_func_t *rl_completion_entry_function;
/* Put after a single match (0: nothing); reset to ' ' before each Tab.
   suppress_append, reset to 0, nonzero leaves it out. A file name that
   names a directory gets a slash instead. */
QV_RL_API extern int rl_completion_append_character;
QV_RL_API extern int rl_completion_suppress_append;
QV_RL_API extern int rl_completion_type; /* '\t' during a completion */
QV_RL_API extern int rl_completion_query_items;
/* Where words break: the hook's answer, else the completer's characters,
   else the basic ones. */
QV_RL_API extern const char *rl_basic_word_break_characters;
QV_RL_API extern char *rl_completer_word_break_characters;
QV_RL_API extern rl_cpvfunc_t *rl_completion_word_break_hook;
QV_RL_API extern const char *rl_basic_quote_characters;
QV_RL_API extern const char *rl_completer_quote_characters;
QV_RL_API extern int rl_completion_quote_character;
/* When set, the program lists several matches itself: the first Tab
   extends the word to their common part, a second Tab in the same place
   calls the hook with the matches array (the common part first). */
QV_RL_API extern rl_compdisp_func_t *rl_completion_display_matches_hook;
/* For such a hook: prints matches[1..len] (max: the widest) in columns down
   the rows, as wide as the terminal, on rl_outstream. */
QV_RL_API void rl_display_match_list(char **matches, int len, int max);
QV_RL_API extern int rl_filename_completion_desired;
QV_RL_API extern int rl_filename_quoting_desired;
QV_RL_API extern int rl_ignore_completion_duplicates;
QV_RL_API extern int rl_sort_completion_matches;
QV_RL_API extern int rl_inhibit_completion;
QV_RL_API extern rl_icppfunc_t *rl_directory_completion_hook; /* kept, not called */
QV_RL_API extern int _rl_complete_mark_directories;
QV_RL_API extern int _rl_completion_prefix_display_length;
QV_RL_API extern int _rl_print_completions_horizontally;
/* Calls generator (state 0, 1, ...) until it answers NULL; answers the
   array described at rl_completion_func_t, its first string the longest
   common prefix of the matches, or NULL when there are none. */
QV_RL_API char **rl_completion_matches(const char *text, rl_compentry_func_t *generator);
/* The generator of file names: the word's directory, entries that start
   with its last part (hidden ones only for a word starting with a dot). */
QV_RL_API char *rl_filename_completion_function(const char *text, int state);
QV_RL_API int _rl_qsort_string_compare(char **a, char **b);

/* ---------------------------------------------------------------------------
   Keys. Keys are Quorvel's, with two exceptions. Tab's binding takes effect:
   bound to rl_insert or rl_tab_insert (or "tab-insert", "self-insert") Tab
   inserts a tab, bound to rl_complete ("complete", "menu-complete") it
   completes. And in the callback interface a single key byte (a control
   key, not part of an escape sequence or a paste) that the current keymap
   binds to one of the program's own functions runs that function, with
   rl_line_buffer and rl_point up to date; a function that sets rl_done
   completes the line where it stands, and one that calls rl_newline as
   Return would. Other bindings are recorded for the program to read back. */
typedef struct _keymap_entry {
    char type;
    rl_command_func_t *function;
} KEYMAP_ENTRY;
#define KEYMAP_SIZE 257
#define ISFUNC 0
#define ISKMAP 1
#define ISMACR 2
typedef KEYMAP_ENTRY KEYMAP_ENTRY_ARRAY[KEYMAP_SIZE];
typedef KEYMAP_ENTRY *Keymap;
QV_RL_API extern KEYMAP_ENTRY_ARRAY emacs_standard_keymap, emacs_meta_keymap, emacs_ctlx_keymap;
QV_RL_API extern KEYMAP_ENTRY_ARRAY vi_insertion_keymap, vi_movement_keymap;
QV_RL_API extern int rl_editing_mode; /* 1: emacs, 0: vi ("set editing-mode" switches the keys) */

QV_RL_API int rl_bind_key(int key, rl_command_func_t *function);
QV_RL_API int rl_bind_key_in_map(int key, rl_command_func_t *function, Keymap map);
QV_RL_API int rl_unbind_key(int key);
QV_RL_API int rl_unbind_key_in_map(int key, Keymap map);
QV_RL_API int rl_bind_keyseq(const char *keyseq, rl_command_func_t *function);
QV_RL_API int rl_bind_keyseq_in_map(const char *keyseq, rl_command_func_t *function, Keymap map);
QV_RL_API int rl_generic_bind(int type, const char *keyseq, char *data, Keymap map);
QV_RL_API int rl_macro_bind(const char *keyseq, const char *macro, Keymap map);
QV_RL_API int rl_add_defun(const char *name, rl_command_func_t *function, int key);
QV_RL_API rl_command_func_t *rl_named_function(const char *name);
QV_RL_API Keymap rl_make_bare_keymap(void);
QV_RL_API Keymap rl_make_keymap(void);
QV_RL_API Keymap rl_copy_keymap(Keymap map);
QV_RL_API void rl_discard_keymap(Keymap map);
QV_RL_API void rl_free_keymap(Keymap map);
QV_RL_API Keymap rl_get_keymap(void);
QV_RL_API void rl_set_keymap(Keymap map);
QV_RL_API Keymap rl_get_keymap_by_name(const char *name);
QV_RL_API char *rl_get_keymap_name(Keymap map);
QV_RL_API int rl_set_keymap_name(const char *name, Keymap map);
/* Settings: kept and answered back; none changes how the editor works. */
QV_RL_API int rl_variable_bind(const char *name, const char *value);
QV_RL_API char *rl_variable_value(const char *name);
QV_RL_API void rl_variable_dumper(int readable);
QV_RL_API void rl_macro_dumper(int readable);
QV_RL_API void rl_function_dumper(int readable);
QV_RL_API void rl_dump_functions(int count, int key);
/* A line of an init file: "set name value" or a binding "key: function";
   answers 0. read_init_file reads a file (NULL: $INPUTRC, else ~/.inputrc),
   binding the editor's actions once the editor has started, and answers 0,
   or an errno value. */
QV_RL_API int rl_parse_and_bind(char *line);
QV_RL_API int rl_read_init_file(const char *filename);

/* Commands, for binding and for calling from the program's code: insert
   and tab_insert put text in the line, newline completes it (rl_done), the
   rest answer 0 and ring the bell where readline would. */
QV_RL_API int rl_insert(int count, int key);
QV_RL_API int rl_tab_insert(int count, int key);
QV_RL_API int rl_complete(int ignore, int key);
QV_RL_API int rl_newline(int count, int key);
QV_RL_API int rl_abort(int count, int key);
QV_RL_API int rl_get_previous_history(int count, int key);
QV_RL_API int rl_get_next_history(int count, int key);

/* ---------------------------------------------------------------------------
   History: entries kept as added, oldest first. An entry's offset counts from
   0; its position, as history_get() takes it, from history_base. */
typedef void *histdata_t;
typedef struct _hist_entry {
    char *line;
    char *timestamp; /* "#" and seconds since the epoch; "" when unknown */
    histdata_t data;
} HIST_ENTRY;
typedef struct _hist_state {
    HIST_ENTRY **entries;
    int offset; /* the walk's place */
    int length;
    int size;
    int flags; /* 1: stifled */
} HISTORY_STATE;

QV_RL_API extern int history_base;        /* position of the oldest entry; 1 at first */
QV_RL_API extern int history_length;      /* entries in the list */
QV_RL_API extern int history_max_entries; /* the stifle limit, 0 when there is none */
/* Nonzero: write_history() and append_history() put each entry's time on
   a line of its own before it, as "#" and the seconds. */
QV_RL_API extern int history_write_timestamps;
QV_RL_API extern char history_comment_char;

/* Does nothing: the list is ready from the start. history_init is the name
   libedit programs call. */
QV_RL_API void using_history(void);
QV_RL_API int history_init(void);
/* Adds a copy of line, stamped with the time; past a stifle limit the
   oldest entry goes and history_base moves up. Also offered to the editor
   for Up and Down, which skip an empty entry or one equal to the last. */
QV_RL_API void add_history(const char *line);
/* Sets the newest entry's time stamp. */
QV_RL_API void add_history_time(const char *string);
QV_RL_API void clear_history(void);
/* Keeps at most max entries (max < 0 counts as 0), dropping the oldest. */
QV_RL_API void stifle_history(int max);
/* Removes the limit; answers it, or a negative number when there was none. */
QV_RL_API int unstifle_history(void);
QV_RL_API int history_is_stifled(void);

/* The entry at position offset (counted from history_base), or NULL. */
QV_RL_API HIST_ENTRY *history_get(int offset);
/* The list, oldest first and NULL-terminated; NULL when empty. Good until
   the list next changes. */
QV_RL_API HIST_ENTRY **history_list(void);
/* The walk: where_history() is its offset, history_length when it is past
   the newest entry; set_pos answers 0 for an offset out of range. */
QV_RL_API int where_history(void);
QV_RL_API int history_set_pos(int offset);
QV_RL_API HIST_ENTRY *current_history(void);
QV_RL_API HIST_ENTRY *previous_history(void);
QV_RL_API HIST_ENTRY *next_history(void);
/* Searches from the walk's place, backwards when direction < 0, for an
   entry containing (or, for the prefix search, starting with) string. On a
   match the walk moves there; answers the match's byte offset in the line
   (0 for a prefix), or -1. */
QV_RL_API int history_search(const char *string, int direction);
QV_RL_API int history_search_prefix(const char *string, int direction);
/* Takes the entry at offset which out of the list and answers it (free it
   with free_history_entry()), or NULL. */
QV_RL_API HIST_ENTRY *remove_history(int which);
/* Puts a copy of line and data in the entry at offset which, and answers the
   old entry for the caller to free; NULL when which is out of range. */
QV_RL_API HIST_ENTRY *replace_history_entry(int which, const char *line, histdata_t data);
/* Frees an entry removed or replaced; answers its data. */
QV_RL_API histdata_t free_history_entry(HIST_ENTRY *entry);
/* A malloc'ed snapshot of the counts (entries shared with the list). */
QV_RL_API HISTORY_STATE *history_get_history_state(void);
/* The bytes of every line together. */
QV_RL_API int history_total_bytes(void);
/* No '!' expansion: *output is a copy of string; answers 0. */
QV_RL_API int history_expand(const char *string, char **output);
/* ~ and ~user at the start of a word expanded; a malloc'ed copy. */
QV_RL_API char *tilde_expand(const char *filename);

/* History files. filename NULL means ~/.history. Each answers 0, or an
   errno value. A file is read in either format, readline's (a line an
   entry, optionally a "#seconds" line before each) or libedit's (a first
   line "_HiStOrY_V2_", then one encoded entry a line); it is written in the
   format it was in, a new one in libedit's when the process has libedit
   loaded and in readline's otherwise. */
/* Adds the file's entries to the list. */
QV_RL_API int read_history(const char *filename);
/* Adds the file's entries from position from up to (not including) to; to
   -1: to the end. */
QV_RL_API int read_history_range(const char *filename, int from, int to);
/* Replaces the file with the list (mode 0600 when it is created). */
QV_RL_API int write_history(const char *filename);
/* Appends the newest n entries to an existing file. */
QV_RL_API int append_history(int n, const char *filename);
/* Keeps the last lines entries of the file. */
QV_RL_API int history_truncate_file(const char *filename, int lines);

#ifdef __cplusplus
}
#endif

#endif /* QUORVEL_READLINE_H */
