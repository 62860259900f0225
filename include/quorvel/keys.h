/*
 * Quorvel: keys of the user's choice, bindings files and readline's variables. Part of <quorvel.h>, which includes it where it stands;
 * a host includes <quorvel.h>, never this file alone.
 */
#ifndef QUORVEL_KEYS_H
#define QUORVEL_KEYS_H

#ifndef QUORVEL_H
#error "include <quorvel.h>, which includes this file"
#endif

/* ---------------------------------------------------------------------------
   Keys of the user's choice. Every action has a stable name, readline's where
   readline has the same action ("backward-char", "kill-line",
   "reverse-search-history"), and key sequences are written in readline's
   notation, so a binding carries over from one program to the next. */

/* The action names in a fixed order, ending with NULL; the array is the
   library's and lives as long as the process. */
QV_API const char *const *term_actionNames(void);

/* Binds keys to the named action in a key map: "emacs" (or NULL) is the
   default map; "emacs-meta" and "emacs-ctlx" stand for the keys after
   Escape and after Ctrl-X, as in readline; "vi-insert" and "vi-command"
   (also "vi", "vi-move") are the maps of vi mode's two modes. keys in
   readline's notation: "\C-a", "\M-f", "\e[1;5D", octal "\033" and hex
   "\x1b", any other byte as itself. The binding acts from the next key read. Answers 1, or 0
   without an instance, for an unknown map or action, or for keys that
   cannot be read (a NUL key, more than 60 bytes). */
QV_API int term_bindKey(const char *keymap, const char *keys, const char *action);

/* Binds keys, in a key map as term_bindKey() takes it, to type text: the
   text's escapes are read as in keys ("\\C-aprint(\\C-e)"), and each key
   it holds acts as typed. Answers 1, or 0 without an instance, for an
   unknown map, keys or text that cannot be read, or when the instance
   holds as many macros as it can (64). */
QV_API int term_bindMacro(const char *keymap, const char *keys, const char *text);

/* readline's variables, as "set NAME VALUE" in a bindings file sets them
   (quorvel-bindings(5) says which act here; the others are kept, to be read
   back). term_setVariable() answers 1, or 0 for a name readline does not
   know, a value too long, or without an instance. term_getVariable()
   answers the value as set or by default, the library's until the next
   set, or NULL for an unknown name or without an instance.
   term_variableNames() answers the names, alphabetical, ending with NULL. */
QV_API int term_setVariable(const char *name, const char *value);
QV_API const char *term_getVariable(const char *name);
QV_API const char *const *term_variableNames(void);

/* readline's listings of the key map in use (emacs, or vi's insert map):
   TERM_LIST_FUNCTIONS, each action and its keys; TERM_LIST_MACROS, each
   string macro; TERM_LIST_VARIABLES, each variable and its value. readable
   nonzero words them as lines of a bindings file ("\C-a": beginning-of-line,
   set bell-style audible), else as readline words them for a person
   (beginning-of-line can be found on "\C-a".). Answers the lines as one
   UTF-8 string to free with term_free(), or NULL for another what, without
   an instance, or when memory ran out. */
#define TERM_LIST_FUNCTIONS 0
#define TERM_LIST_MACROS 1
#define TERM_LIST_VARIABLES 2
QV_API char *term_listBindings(int what, int readable);

/* Told of each line of a bindings file that is not understood: the file,
   the line's number and text, and why. */
typedef void (*term_bindings_reporter)(const char *path, int line, const char *text, const char *why,
                                       void *user);
/* Sets the reporter; with NULL (the default) such lines go to the logger,
   appender "quorvel". */
QV_API void term_setBindingsReporter(term_bindings_reporter fn, void *user);

/* Reads a bindings file, in readline's init file syntax: "\"keys\": action",
   "Control-x: action" (also Meta-, C-, M-, and the key names DEL, Rubout,
   ESC, Escape, LFD, Newline, RET, Return, SPC, Space, TAB), string macros
   ("\"\C-xq\": \"quit()\"": the key types the text, its escapes read as
   keys), "set editing-mode emacs|vi" (sets TERM_OPTION_VI_MODE, and the
   bindings that follow go to that mode's map), "set keymap NAME" (as
   term_bindKey()), "set NAME VALUE" for each of readline's variables
   (quorvel-bindings(5) says which act here), "$if mode=emacs|vi",
   "$if term=NAME" (the terminal's name, or its part before the first '-'),
   "$if NAME" (the program's, term_setApplicationName()), "$if version OP
   N", "$else", "$endif", "$include FILE", and comments (#). Each line it
   does not understand is reported once, and the rest applies. Answers how
   many lines were reported, or -1 without an instance or when the file
   cannot be read. */
QV_API int term_readBindings(const char *path);

/* The program's name, for "$if NAME" in a bindings file (readline's
   rl_readline_name); until it is set, the name the program was run by. The
   name belongs to the process. */
QV_API void term_setApplicationName(const char *name);

#endif /* QUORVEL_KEYS_H */
