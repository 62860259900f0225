/*
 * Quorvel: line editing for Linux character terminals.
 *
 * Conventions
 * -----------
 * - One terminal instance per session (see Sessions below): term_init()
 *   creates the default session's, term_open() another's. Call term_init()
 *   first and term_destroy() last; every other term_* call except
 *   term_free(), term_setCallbacks() and the session calls requires a live
 *   instance in the calling thread's session and aborts the process
 *   (assertion "theTerminal != NULL") when called without one.
 * - Threads. term_print(), term_wake(), term_setOption(), the logger and the
 *   thread layer may be called from any thread at any time; term_wake() also
 *   from a signal handler. Every other call belongs to the one thread that
 *   reads in the session. Callbacks are called on that thread, inside the
 *   read that calls them; they may use the calls above and the history,
 *   option and completer calls, and must not call the reading functions.
 * - Strings passed in are UTF-8 and stay owned by the caller; the library keeps
 *   no pointer to them. Lines returned by term_getLine() and term_getRawLine()
 *   belong to the caller, who releases them with term_free().
 * - A line from term_getLine() or term_getRawLine() is 7-bit ASCII: every
 *   character above 127 is written as a backslash, a colon and four
 *   upper-case hexadecimal digits ("\:00E9" for e-acute); one above U+FFFF as
 *   its UTF-16 surrogate pair, two such escapes ("\:D83D\:DE00" for U+1F600).
 *   Typed text that looks like an escape cannot be told apart from one:
 *   term_getLineUtf8() and term_getRawLineUtf8() return plain UTF-8 instead.
 * - The screen. The input area shows the same prompt, text and cursor
 *   however the line was reached. The one exception is a line taller than
 *   the window: its rows above the window's top are in the terminal's
 *   scrollback, and which part of the line the window holds depends on where
 *   the cursor has been. A key that acts above the window draws the window
 *   again from a row that shows where it acts.
 * - Failures are quiet: a history file that cannot be read or written is
 *   skipped, output errors are not reported. The line calls answer NULL only
 *   when memory for the line ran out.
 *
 * The console layer underneath (edit buffer, key maps, history, screen model)
 * is exported as well; its headers are installed under <quorvel/...>.
 */
#ifndef QUORVEL_H
#define QUORVEL_H

#include <stddef.h>
#include <wchar.h>

#if defined(__GNUC__)
#define QV_API __attribute__((visibility("default")))
#else
#define QV_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Options of term_init(). The host owns the record and zeroes it first
   ("= {0}" or memset): the reserved slots are for options a later version
   adds under the same SONAME, which read 0 as the present behaviour. */
typedef struct term_options {
    /* Directory of the history file "term.history"; NULL leaves the current
       history_directory as it is. */
    const char *historydir;
    /* Nonzero: Ctrl-C abandons the line, ends the read and raises SIGINT in
       the process. 0: Ctrl-C only abandons the line and reading goes on. */
    int sigint;
    void *reserved[4];
} term_options;

/* Host callbacks, eight slots in this order. A NULL slot passed to
   term_setCallbacks() leaves the installed callback as it is. The four
   reserved slots are for callbacks a later version adds under the same
   SONAME; the host leaves them NULL. */
typedef struct term_callbacks {
    /* Called each 50 ms while waiting for a key, also between the bytes of a
       key sequence. 0: keep waiting; 1 or 2: end this read and every later
       one (final); the read returns the text typed so far. */
    int (*onIdle)(void);
    void (*reserved1)(void);
    void (*reserved2)(void);
    void (*reserved3)(void);
    void (*reserved4)(void); /* never stored */
    /* Called on Return in term_getLine() with the whole input so far (not
       necessarily terminated). Nonzero: complete; 0: continue on a new line. */
    int (*isInputComplete)(const wchar_t *text, int length);
    /* Asked right after isInputComplete() answered 0. Nonzero: keep a line
       break in the text; 0: the text ends in a backslash, which is removed. */
    int (*keepNewline)(void);
    /* Called after a read during which end of input (Ctrl-D on an empty
       line) was seen. */
    void (*onEndOfInput)(void);
} term_callbacks;

/* Directory of the history file; set by term_init() to a private copy of
   term_options.historydir. NULL: "term.history" in the working directory. */
QV_API extern char *history_directory;

/* Creates the terminal instance: reads the terminfo description of the
   terminal on standard output, its size and modes. Answers 1 when ready (also
   when an instance already exists; the options are then ignored), 0 when
   memory ran out or the terminal reports zero rows or columns. Does not read
   the history file. */
QV_API int term_init(const term_options *options);

/* Writes the history to its file, releases the instance and all it owns. */
QV_API void term_destroy(void);

/* What this build has. A build for a small device may leave features out
   (the README lists the build options); their calls stay, and answer as
   below, never crashing. Any time, from any thread.
   - TERM_FEATURE_VI_MODE: without it TERM_OPTION_VI_MODE and
     TERM_OPTION_VI_SHOW_MODE answer -1, and no key map is named "vi-*".
   - TERM_FEATURE_BINDINGS: without it term_bindKey(), term_bindMacro() and
     term_setVariable() answer 0, term_getVariable() and term_listBindings()
     NULL, term_readBindings() -1; term_actionNames() and term_variableNames()
     are empty; the reporter and application name are ignored.
   - TERM_FEATURE_READLINE_COMMANDS: readline's further commands (case and
     transposition of words, the mark and region, character search, history
     search by prefix, yank-last-arg, numeric arguments, keyboard and string
     macros, operate-and-get-next, insert-comment) and the keys bound to them.
   - TERM_FEATURE_HIGHLIGHT: without it the highlighter is never called,
     term_addHighlight() and term_highlightFrom() answer 0, and
     TERM_OPTION_BRACE_MATCH answers -1. Looks and prompt styles stay.
   - TERM_FEATURE_COMPLETION_MENU: without it TERM_OPTION_COMPLETION_MENU
     answers -1, Shift-Tab is unbound, and term_addCompletionEx() adds the
     replacement alone, listed in columns as term_addCompletion() adds it.
   - TERM_FEATURE_LEAN_OUTPUT: without it TERM_OPTION_LEAN_OUTPUT answers -1.
   - TERM_FEATURE_EVENT_LOOP: without it term_editStart() answers 0,
     term_editFeed() -1, term_editFd() and term_editTimeout() -1,
     term_editPush() 0, and term_editStop() and term_editLeave() do nothing.
     term_editLine(), term_editSetLine() and term_editRedraw() stay, for a
     read's callbacks.
   - TERM_FEATURE_THREAD_PRINT: without it term_print() and term_wake() do
     nothing, and TERM_OPTION_LOG_TO_TERMINAL answers -1.
   - TERM_FEATURE_SESSIONS: without it term_open() answers NULL, term_use()
     NULL (the default session stays), and term_close() does nothing. */
#define TERM_FEATURE_VI_MODE 0x001u
#define TERM_FEATURE_BINDINGS 0x002u
#define TERM_FEATURE_READLINE_COMMANDS 0x004u
#define TERM_FEATURE_HIGHLIGHT 0x008u
#define TERM_FEATURE_COMPLETION_MENU 0x010u
#define TERM_FEATURE_LEAN_OUTPUT 0x020u
#define TERM_FEATURE_EVENT_LOOP 0x040u
#define TERM_FEATURE_THREAD_PRINT 0x080u
#define TERM_FEATURE_SESSIONS 0x100u
QV_API unsigned term_features(void);

/* ---------------------------------------------------------------------------
   Sessions. A session is one terminal and the editor serving it: its
   description and size, its mode, its options, history, key maps,
   completer, highlighter, callbacks, print queue and wake-up. The default
   session is the one term_init() opens on standard input and output; a host
   that serves more terminals (a serial line, telnet or SSH clients, a
   pseudo-terminal it created) opens a session for each.

   Every term_* call acts on the calling thread's session: the default one,
   unless term_use() chose another. Different sessions may be used from
   different threads at once; one session's calls belong to one thread at a
   time, except term_print(), term_wake() and term_setOption(), which any
   thread may make after choosing the session with term_use(). Callbacks run
   with their session chosen. The logger and the thread layer are shared.
   The process's signals (giving the terminal back when the process dies or
   stops, SIGWINCH, SIGCONT) concern the default session alone; a host tells
   another session its size with term_setSize(). Writing to a peer that went
   away raises SIGPIPE, which a server ignores. */
typedef struct term_session term_session;

/* Options of term_open(). The host owns the record; size is
   sizeof(term_session_options), so that the record may grow. */
typedef struct term_session_options {
    size_t size;
    /* The terminal type, as in $TERM; NULL: $TERM. */
    const char *terminal;
    /* Directory of the session's "term.history"; NULL: the history is kept
       in memory only. */
    const char *historydir;
    /* Nonzero: the descriptors are a stream whose peer is already in
       character mode (a telnet or SSH channel): the library sets no terminal
       mode, and the size comes from term_setSize() (80 by 24 until then).
       0: a terminal, set raw for each read and given back after it. */
    int stream;
} term_session_options;

/* Opens a session on the descriptors in_fd and out_fd (they may be the
   same), which stay the host's: term_close() does not close them. The
   session starts with the default session's options, completer,
   highlighter and looks, its own default key maps and an empty history
   (term_loadHistory() reads its file). Answers NULL when memory ran out or
   a descriptor is invalid. */
QV_API term_session *term_open(int in_fd, int out_fd, const term_session_options *options);

/* Closes a session: a line read under way in it on another thread ends
   first (as term_wake() ends it), and that thread makes no call on the
   session once its read returns; an edit under the host's loop is stopped;
   the history is saved, and everything the session held is freed. The
   calling thread, if it had chosen the session, has the default one again.
   NULL is ignored. */
QV_API void term_close(term_session *session);

/* Makes session (NULL: the default session) the calling thread's, for every
   call it makes from now on; answers the session chosen before. */
QV_API term_session *term_use(term_session *session);

/* The calling thread's session; NULL for the default one. */
QV_API term_session *term_current(void);

/* Tells session (NULL: the default one) its window size, for a terminal the
   kernel knows no size of (a telnet NAWS or an SSH window change): a read
   under way draws again at the new size. 0 for either gives the size back to
   the kernel and the description. Answers 1, or 0 for a negative size. */
QV_API int term_setSize(term_session *session, int cols, int rows);

/* Reads one edited line. mask 0 echoes typed characters; any other byte is
   echoed in their place and keeps the line out of the history. prompt (UTF-8,
   may be NULL) is shown before the line. Return asks isInputComplete() and
   may continue the input on further lines. Answers the encoded line (free it
   with term_free()), an empty string after Ctrl-D on an empty line or an
   interrupt, the text typed so far when onIdle() stopped the read or the
   input ended or failed, or NULL when memory ran out. term_getStatus() tells
   these apart.
   Only the user ends a line: a signal the host catches does not. While the
   read runs, SIGTERM, SIGHUP, SIGQUIT, SIGINT and SIGTSTP give the terminal
   its mode back before the host's disposition takes them; if the process
   lives on or continues, the read takes the terminal back and goes on. */
QV_API char *term_getLine(char mask, const char *prompt);

/* As term_getLine(), but Return always completes the input. */
QV_API char *term_getRawLine(char mask, const char *prompt);

/* As term_getLine() and term_getRawLine(), but the line is plain UTF-8,
   without escapes (a character UTF-8 cannot hold becomes U+FFFD). Free it
   with term_free(). */
QV_API char *term_getLineUtf8(char mask, const char *prompt);
QV_API char *term_getRawLineUtf8(char mask, const char *prompt);

/* A transient prompt: once Return ends a read, its input is drawn once more
   with prompt (UTF-8, may hold SGR) in place of the read's prompt, so the
   scrollback keeps the commands, not long prompts. Continuation rows keep
   their indent. NULL turns it off. Kept until term_destroy(); answers 1, or
   0 without an instance or when memory ran out. */
QV_API int term_setTransientPrompt(const char *prompt);

/* A right prompt (UTF-8, may hold SGR; NULL or "": none), drawn at the right
   end of the input's first row while a blank cell still parts it from the
   input (the prompt and the text): the input reaching it hides it, and
   moving back shows it again. It is never part of the line. keep nonzero:
   a finished input keeps it in the scrollback's copy; 0: it goes when the
   input is left. Shown from the next time the input is drawn (a key, a
   resize, term_editRedraw()). Kept until term_destroy(); answers 1, or 0
   without an instance or when memory ran out. */
QV_API int term_setRightPrompt(const char *prompt, int keep);

/* ---------------------------------------------------------------------------
   Completion. The completer is called on Tab with the whole input so far as
   UTF-8 text (earlier continuation lines and kept line breaks included,
   NUL-terminated) and the cursor's byte offset in it. It offers candidates
   with term_addCompletion(); each replaces the bytes from start to the
   cursor. One candidate is put in at once; several extend the input to
   their longest common prefix, and a second Tab lists them (asking first
   past 100). The listing shows control characters as ^X (a C1 control as
   \x9b); a candidate that is not valid UTF-8 is listed with each bad byte
   as \xNN but never put in the line.
   The completer runs on the reading thread inside the read, and must not
   call the reading functions. */
typedef struct term_completions term_completions; /* owned by the library */
typedef void (*term_completer)(const char *text, int cursor, term_completions *out, void *user);

/* Installs fn (with user passed back to it), or removes it with NULL. Works
   before term_init(); the completer is kept until term_destroy() or until it
   is replaced. */
QV_API void term_setCompleter(term_completer fn, void *user);

/* Offers a candidate from inside the completer: the bytes from start to the
   cursor become replacement (copied). Answers 1, or 0 when out or
   replacement is NULL, start < 0, start > the cursor, or memory ran out; the
   candidate is then dropped and nothing else changes. */
QV_API int term_addCompletion(term_completions *out, int start, const char *replacement);

/* As term_addCompletion(), with how the listing shows the candidate:
   display (UTF-8; NULL: the replacement) in its place, and description
   (NULL or empty: none) beside it. Once any candidate has a description the
   listing shows one candidate a row, the descriptions in an aligned column
   after " -- ", each cut with an ellipsis at the terminal's width. Answers
   as term_addCompletion() does. */
QV_API int term_addCompletionEx(term_completions *out, int start, const char *replacement, const char *display,
                                const char *description);

#include "quorvel/colour.h"

/* Options, one set per session (see Sessions): the default session's may be
   set before term_init(), and a new session starts with them. */
#define TERM_OPTION_BRACKETED_PASTE 1 /* default 1: pasted text is inserted, never run */
/* default 0. 1: with the cursor at the end of the input, the rest of the
   newest history entry that starts with the text is shown dim after it;
   Right, End or Ctrl-F take it, Alt-f its next word; it is never part of
   the line unless taken. Needs a terminal with the dim attribute. */
#define TERM_OPTION_HINTS 2
#define TERM_OPTION_UTF8_INPUT 3      /* default 1; 0: key bytes above 127 do nothing */
/* default 1: a completed line enters the history. 0: the host decides, with
   term_addHistory(). */
#define TERM_OPTION_AUTO_HISTORY 4
/* default 0. 1: each whole line a logger appender writes (logger_write_fmt)
   is also printed with term_print(), as the appender's name, ": " and the
   text. */
#define TERM_OPTION_LOG_TO_TERMINAL 5
/* default 0. 1: Ctrl-C, Ctrl-\ and Ctrl-Z stay the terminal's during a read,
   as in a cooked terminal: it sends SIGINT, SIGQUIT and SIGTSTP to the
   process group and the editor never sees those keys. The host's handlers
   decide what follows; a read goes on after them unless one ends it
   (term_wake(), or term_editLeave() between feeds). Taken at the start of
   each read. */
#define TERM_OPTION_SIGNAL_KEYS 6

/* default 0. 1: with the cursor on a bracket ( [ { ) ] }, or just after
   one, its partner is shown in reverse video while the cursor stays there. */
#define TERM_OPTION_BRACE_MATCH 7

/* default 0. 1: fewer bytes for a slow line (a serial console). Typed
   characters go out as they are when the cursor is already in place, an
   insertion or a deletion in mid-line uses the terminal's insert and delete
   capabilities where it has them, and only the cells that differ are
   written, with the cursor moved only where it must be. The screen shows
   the same; only the bytes that draw it differ. One assumption, the one
   other line editors make: a read that starts on a row a line feed reached
   (the one that started the program, or one after the library's own output)
   takes that row to be blank and does not clear it. A host that moves the
   cursor back over text of its own and starts a read there leaves this
   option off. */
#define TERM_OPTION_LEAN_OUTPUT 8

/* default 0. 1: vi's keys. Each read starts in insert mode, which keeps the
   default keys except the Alt ones; Escape (alone, or before a key that
   starts no control sequence) enters command mode: motions h l 0 ^ $ w W b
   B e E f F t T ; , with counts; operators d c y with a motion, and dd cc yy
   D C; x X r R s S p P u . ~ i a I A; j k for the history, / ? to search it
   (Return takes the match) and n N to search again. On a terminal with the
   Ss capability the cursor is a bar in insert mode and a block in command
   mode, and goes back to the terminal's own at the end of the read. Takes
   effect from the next key; "set editing-mode vi" in a bindings file sets
   it too. */
#define TERM_OPTION_VI_MODE 9

/* default 0. 1: in vi mode the prompt starts with the mode, "(ins) " or
   "(cmd) ", for terminals without a cursor shape (a serial console). */
#define TERM_OPTION_VI_SHOW_MODE 10
/* default 0. 1: an edit made to a recalled history entry stays with it for
   the rest of the read, and at the read's end the entries the read left
   keep theirs, while the one the line was entered from takes back its text
   from before any kept edit, as in readline; none keeps one when the
   bindings file set revert-all-at-newline (0: the history keys show every
   entry as it was added). term_setHistoryReporter() tells of each. The
   readline-compatible library turns it on. */
#define TERM_OPTION_KEEP_HISTORY_EDITS 11
/* default 0. 1: when Tab finds several candidates it opens a menu: the
   first candidate goes in place and the candidates are listed below the
   input, the chosen one marked (TERM_LOOK_COMPLETION_SELECTED). Tab and
   Shift-Tab choose the next and the previous, the arrow keys move through
   the columns and rows; a listing taller than the room below the input
   scrolls with the choice. Return takes the chosen candidate and ends
   the menu (a second Return enters the line); typing or any other key goes
   on from it; Ctrl-G, or Escape once the next key is late, puts back the
   text as it was before the first Tab. The listing is erased when the menu
   ends and never reaches the scrollback. readline's menu-complete, bound in
   a bindings file, opens the same menu, with Return entering the line as
   readline's does. */
#define TERM_OPTION_COMPLETION_MENU 12
/* default 0. 1: bracket insertion. Typing an opening character of a pair
   (term_setPairs(); by default ( [ { and the quotes " ') types the closing
   one too, the cursor between, where nothing is written against the cursor
   (the end, a blank or a closing character) and, for a quote, not right
   after a letter or digit; typing a closing character over the same one
   steps over it; Backspace between a pair with nothing in it deletes both.
   Never in a masked read, in overwrite mode or for pasted text. */
#define TERM_OPTION_AUTO_PAIRS 13

/* Sets an option to value (0 or 1). Answers the previous value, or -1 for
   an unknown option or one the build left out (term_features()). */
QV_API int term_setOption(int option, int value);

/* The pairs bracket insertion types: pairs, UTF-8, read two characters at a
   time, an opening then a closing one (a quote twice), at most 8 pairs, for
   example "()[]{}\"\"''". Answers 1, or 0 (nothing changed) for NULL, an odd
   number of characters, more than 8 pairs or text that is not UTF-8. Works
   before term_init(); one set per session. */
QV_API int term_setPairs(const char *pairs);

#include "quorvel/keys.h"

/* Read status codes, as term_getStatus() answers them. */
#define ST_READING 1     /* a read is in progress */
#define ST_INTERRUPTED 2 /* Ctrl-C with the sigint option */
#define ST_NOBUFFER 4    /* no memory for the edit buffer: the line is NULL */
#define ST_IOERROR 5     /* reading the terminal failed */
#define ST_STOPPED 6     /* onIdle() asked to stop */
#define ST_NOMEMORY 9    /* the edit buffer could not grow, or the line could not be copied out: the line is NULL */
#define ST_DONE 10       /* Return completed the line; a key was read */
#define ST_EOF 11        /* Ctrl-D on an empty line, or the end of the input */
#define ST_WOKEN 12      /* term_wake() ended the read */

/* How the last term_getLine(), term_getRawLine() or term_getChar() ended:
   one of the ST_* codes; 0 before the first read or without an instance. */
QV_API int term_getStatus(void);

/* ---------------------------------------------------------------------------
   Edits under the host's own loop. The same editor as term_getLine(), for a
   host that waits for its terminal, sockets and timers in one poll() loop:
   start an edit, poll term_editFd() for reading with term_editTimeout() as
   the time-out, and call term_editFeed() whenever poll returns; it takes
   what is ready and never waits. The terminal is raw from the start to the
   end of the edit, and everything a read does (continuation lines, masks,
   history, completion, search, hints, paste, resizes, signals, term_print
   from other threads, term_wake) works the same. The reading thread's calls. */
#define TERM_EDIT_RAW 1  /* Return always completes, as term_getRawLine() */
#define TERM_EDIT_UTF8 2 /* the line in plain UTF-8, as term_getLineUtf8() */

/* Starts an edit: draws the prompt (UTF-8, may be NULL) and takes the
   terminal. mask as for term_getLine(). Answers 1, or 0 when an edit is
   under way already or memory ran out. */
QV_API int term_editStart(int flags, char mask, const char *prompt);

/* Feeds the edit what the terminal has, without waiting. Answers 0 while the
   edit goes on; 1 when it has ended: *line (when line is not NULL) receives
   the line as term_getLine() would have answered it (free it with
   term_free()), term_getStatus() says how it ended, and the terminal is the
   host's again. Answers -1 without an edit under way. */
QV_API int term_editFeed(char **line);

/* Ends an edit under way as term_wake() would: its text stays on the screen,
   the terminal goes to the row below and is the host's again; the line is
   dropped and term_getStatus() answers ST_WOKEN. */
QV_API void term_editStop(void);

/* Ends an edit under way where it stands: the screen keeps what it shows,
   the cursor stays where the last render left it, the terminal is the
   host's again, the line is dropped and term_getStatus() answers
   ST_STOPPED. For a host that clears or rewrites the row itself. */
QV_API void term_editLeave(void);

/* Queues n bytes as input of the edit under way, ahead of what the terminal
   has: for a host that reads the terminal itself, or types for the user.
   The next term_editFeed() takes them. Answers how many were queued (fewer
   when the queue is full), 0 without an edit. */
QV_API int term_editPush(const char *bytes, int n);

/* The descriptor the calling thread's session reads its keys from (the
   default session's: standard input); -1: none, the keys come only from
   term_editPush(), for a host that reads the keys itself (readline's
   rl_getc_function). The terminal's mode is set as before. Answers the
   descriptor read until now, or -1 for none. */
QV_API int term_setInputFd(int fd);

/* The descriptor to poll for reading while an edit is under way: it becomes
   readable when the terminal has input, a signal arrived or another thread
   printed. -1 without an edit. */
QV_API int term_editFd(void);

/* Milliseconds until the edit wants feeding even without input (onIdle's
   rhythm, a key cut short that must count as finished, a paste still
   arriving that is due to be drawn), or -1 for none: the host passes it to
   poll(). */
QV_API int term_editTimeout(void);

/* The line being read, for a callback during a read (a completer, onIdle)
   or for the host between feeds: a malloc'ed UTF-8 copy, and in *cursor
   (when not NULL) the cursor's offset in it in bytes. NULL when no line is
   being read or memory ran out. */
QV_API char *term_editLine(int *cursor);

/* Puts text (UTF-8) in place of the line being read, with the cursor at
   byte offset cursor, clipped to the text and moved back to the start of
   its character. The screen shows it at the next render: after the key
   under way, or at term_editRedraw(). Answers 1, or 0 when no line is being
   read or text is NULL. */
QV_API int term_editSetLine(const char *text, int cursor);

/* Between feeds of an edit, draws what changed since the last render. With
   fresh nonzero the host has written to the terminal itself and left the
   cursor at the start of an empty row: the prompt and the line are drawn
   again there in full. Does nothing without an edit under way. */
QV_API void term_editRedraw(int fresh);

/* Releases a line returned by term_getLine() or term_getRawLine(); NULL is
   ignored. */
QV_API void term_free(char *line);

/* Appends the lines of the history file to the history list. */
QV_API void term_loadHistory(void);

/* Adds a UTF-8 line to the history list as if it had been typed: it is
   recalled with Up and saved by term_destroy(). An empty line, or one equal
   to the newest entry, is not added. Answers 1 when the line is in the list
   now, 0 when it is not (no instance, NULL, invalid UTF-8, an empty line, a
   limit of 0, memory ran out). */
QV_API int term_addHistory(const char *line);

/* Empties the history list; the lines added since the last save are not
   saved either. The history file is not touched. */
QV_API void term_clearHistory(void);

/* Told, as a read ends, of each history entry that takes an edit kept with
   it (TERM_OPTION_KEEP_HISTORY_EDITS): the entry's place, 0 for the newest,
   1 for the one before it, and its text now, UTF-8, good for the call. For
   a host that keeps its own copy of the history, as the readline-compatible
   library does; it makes no call of the library from it. NULL (the
   default) tells nobody. Without an instance it does nothing. */
typedef void (*term_history_reporter)(int from_newest, const char *text, void *user);
QV_API void term_setHistoryReporter(term_history_reporter fn, void *user);

/* Keeps at most max entries in the list, dropping the oldest now and as new
   ones arrive; max < 0 removes the limit. Answers the previous limit (-1 for
   none), or -2 without an instance. The default is 1000. */
QV_API int term_setHistoryLimit(int max);

/* Installs the non-NULL slots of callbacks. Answers 1, or 0 when there is no
   instance (or callbacks is NULL). Safe to call at any time. */
QV_API int term_setCallbacks(const term_callbacks *callbacks);

/* The terminal's size now, as the kernel has it (the size found at
   term_init() when it has none). A read notices a change of size while it
   runs and draws its input again at the new width. */
QV_API int term_getConsoleWidth(void);
QV_API int term_getConsoleHeight(void);

/* Writes the low byte of ch to the terminal, unconverted and unbuffered by
   the screen model (not flushed: flush stdout yourself when needed). */
QV_API void term_putChar(int ch);

/* Reads one key byte (0..255) in raw mode, echoing it when echo is nonzero.
   A key that sends a sequence comes byte by byte over several calls. Answers 0
   when no byte could be read (end of input, a stop by onIdle()). */
QV_API int term_getChar(int echo);

/* Writes a UTF-8 string, then repaints the input area. An empty string writes
   nothing; text that is not valid UTF-8 is not written. */
QV_API void term_putString(const char *s);

/* As term_putString() followed by a line end. An empty string writes only the
   line end; invalid text writes nothing at all. */
QV_API void term_putStringLn(const char *s);

/* Puts n blanks into the input area at its cursor and repaints. */
QV_API void term_putBlanks(int n);

/* Prints UTF-8 text as whole lines: a line end is added where the text has
   none, so the input always goes on on a row of its own, and text that
   should share a line is passed in one call. Safe from any thread, from
   callbacks, and with or without an instance.
   During a line read the text appears above the input area, and the input,
   with its hint, search or listing, is drawn again below it, the cursor
   where it was; prints that arrive together are drawn as one batch. Lines
   from one thread keep their order, and the text of one call is never split
   by another's. When more text waits than the terminal has taken (64 KiB),
   the call waits for room, except on the reading thread itself. Outside a
   line read the text is written at once. NULL prints nothing. */
QV_API void term_print(const char *text);

/* Ends the line read that is running at once, or the next one when none is:
   the read returns the text typed so far, drawn on its row with the terminal
   on the row below, and term_getStatus() answers ST_WOKEN. A single-key read
   ends too and answers 0. Safe from any thread and from a signal handler
   (async-signal-safe once term_init() has run). Keys typed after the last
   one the read took wait for the next read. */
QV_API void term_wake(void);

#ifdef __cplusplus
}
#endif

#endif /* QUORVEL_H */
