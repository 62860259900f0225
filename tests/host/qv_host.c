/*
 * Test host: a C99 program that links libquorvel.so and performs the library
 * calls named on its command line, one argument per call. What it gets back
 * goes to the side file named by QV_SIDE, one record a line:
 *
 *   BEGIN n / END n  around read n; STATUS n <code> (term_getStatus after it)
 *   LINE n <len> <bytes>  NULL n  MODE n same|changed (the terminal mode after
 *   the read against before)  COMPLETE <len> <code points> (isInputComplete)
 *   KEEP  IDLE  TICK  EOI  SIGINT  CAUGHT <signal>  CHAR  INIT  CB  OPTION
 *   WIDTH  HEIGHT  ADDS (term_addCompletion's answers to bad arguments)
 *   LOCALE (the host's own LC_CTYPE at exit)
 *
 * Commands:
 *   init  init:sigint  init:dir=PATH  init:null
 *   cb:complete=brackets|backslash|marker  cb:keep=1|0|backslash  cb:none
 *   cb:idle=ANSWER@CALLS|tick|exit|churn|raise:SIG  cb:eoi
 *     (raise:SIG: the first onIdle raises signal SIG, as a crash would;
 *     tick: TICK records show the host has consumed all input; churn: as
 *     tick, and after each SIGUSR2 onIdle clears the history, sets its limit
 *     to 0 and back to 1000 and adds 1,100 entries, then records CHURN;
 *     marker: read n is complete once its text holds the letter 'A' + n)
 *   line:PROMPT  mask:C:PROMPT  raw:PROMPT  rawmask:C:PROMPT  utf8:PROMPT
 *   loop:PROMPT (the same read in a poll loop over term_editFd and a 2 ms
 *   timer; TIMER 1 records that the timer was served during the read)
 *   preset:N:TEXT (the next loop: read starts with TEXT, the cursor at byte N)
 *   lines:PROMPT (read until onEndOfInput)  getchar:ECHO
 *   put:S  putln:S  putchar:N  blanks:N  load  destroy  size  option:ID=VALUE
 *   catch (count SIGWINCH, SIGUSR1, SIGTERM, SIGHUP, SIGQUIT)
 *   sigint:default (no SIGINT handler)  completer:words|many=N|bad|hostile|described
 *   transient:PROMPT (empty: none)  pairs:PAIRS  right:PROMPT
 *   highlight:digits (digits yellow and bold, counting HIGHLIGHT calls)
 *   highlight:bad (ranges before, past, across and inside characters)
 *   highlight:from (digits, and blanks on blue, styling only what changed: FROM n)
 *   look:ELEMENT=STYLE (term_setLook; LOOK <previous> records the answer)
 *   bind:KEYS=ACTION (term_bindKey in the default map; BOUND <answer>)
 *   bindings:PATH (term_readBindings; REPORT <line> <why> for each line it
 *   reports, then BINDINGS <answer>)
 *   print:S  printers:TxN@US (T threads print N lines "T<t> L<nnn>" each, US
 *   microseconds apart, while the commands go on)  join (waits for them)  wake:MS (a thread calls
 *   term_wake after MS ms)  wake:signal (SIGUSR1 calls term_wake)
 *   wake:now  log:S (a line to the appender "qvhost")  later:MS:S (a thread
 *   prints S after MS ms)
 *   absent (for each feature the build left out, ABSENT <feature> and the
 *   answers of its calls)
 */
#include <quorvel.h>

#include <locale.h>
#include <pthread.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/timerfd.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include "logger.h"

static FILE *side;
static int reads;
static int idle_answer, idle_after, idle_calls, idle_raise;
static int keep_mode; /* the fixed answer of keepNewline */
static int complete_mode; /* 0 brackets, 1 backslash, 2 marker */
static int eoi_seen;
static const char *preset_text; /* preset:, for the next loop: read */
static int preset_cursor;
static volatile sig_atomic_t got_sigint, churn_asked;
static const int caught_signals[] = {SIGWINCH, SIGUSR1, SIGTERM, SIGHUP, SIGQUIT};
static const char *const caught_names[] = {"WINCH", "USR1", "TERM", "HUP", "QUIT"};
static volatile sig_atomic_t caught[5];

static void on_caught(int sig) {
    int i;
    for (i = 0; i < 5; i++)
        if (caught_signals[i] == sig) caught[i]++;
}

static void highlight_digits(const char *text, int len, term_highlight *out, void *user) {
    int i;
    (void)user;
    fprintf(side, "HIGHLIGHT %d\n", len);
    for (i = 0; i < len; i++)
        if (text[i] >= '0' && text[i] <= '9') term_addHighlight(out, i, i + 1, TERM_FG(3) | TERM_BOLD);
}

/* Digits in orange, 24 bits of it, on a dark blue. */
static void highlight_rgb(const char *text, int len, term_highlight *out, void *user) {
    int i;
    (void)user;
    for (i = 0; i < len; i++)
        if (text[i] >= '0' && text[i] <= '9')
            term_addHighlight(out, i, i + 1, TERM_RGB_FG(255, 128, 0) | TERM_RGB_BG(0, 0, 96));
}

/* The same looks, styled only from where the text changed. */
static void highlight_from(const char *text, int len, term_highlight *out, void *user) {
    int i = term_highlightFrom(out);
    (void)user;
    fprintf(side, "FROM %d\n", i);
    for (; i < len; i++)
        if (text[i] >= '0' && text[i] <= '9')
            term_addHighlight(out, i, i + 1, TERM_FG(3) | TERM_BOLD);
        else if (text[i] == ' ')
            term_addHighlight(out, i, i + 1, TERM_BG(4));
}

/* Ranges no highlighter should send: only whole characters inside the
   text may take a style. */
static void highlight_bad(const char *text, int len, term_highlight *out, void *user) {
    (void)text;
    (void)user;
    fprintf(side, "ADDS %d %d %d %d\n", term_addHighlight(out, -10, 1, TERM_FG(1)),
            term_addHighlight(out, len - 1, len + 50, TERM_FG(4)), term_addHighlight(out, 3, 2, TERM_FG(5)),
            term_addHighlight(NULL, 0, len, TERM_FG(6)));
}

/* Completes the word before the cursor from a fixed list, or from item000
   on when many_count is set. */
static const char *const words[] = {"print", "printf", "private", "prompt", "\xc3\xa9t\xc3\xa9",
                                    "\xe4\xb8\xad\xe6\x96\x87"};
static long many_count;

static int word_start(const char *text, int cursor) {
    int start = cursor;
    while (start > 0 && text[start - 1] != ' ') start--;
    return start;
}

static void complete_words(const char *text, int cursor, term_completions *out, void *user) {
    int start = word_start(text, cursor);
    long i, n = many_count ? many_count : (long)(sizeof words / sizeof words[0]);
    char item[32];
    (void)user;
    for (i = 0; i < n; i++) {
        if (many_count) snprintf(item, sizeof item, "item%03ld", i);
        if (strncmp(many_count ? item : words[i], text + start, (size_t)(cursor - start)) == 0)
            term_addCompletion(out, start, many_count ? item : words[i]);
    }
}

static void complete_bad(const char *text, int cursor, term_completions *out, void *user) {
    int start = word_start(text, cursor);
    (void)user;
    fprintf(side, "ADDS %d %d %d %d\n", term_addCompletion(NULL, start, "x"),
            term_addCompletion(out, start, NULL), term_addCompletion(out, -1, "x"),
            term_addCompletion(out, cursor + 1, "x"));
    term_addCompletion(out, start, "\xff\xfe"); /* not UTF-8: dropped */
    term_addCompletion(out, start, "ok");
}

/* A device console's commands, shown with what they do: a display form
   wider than the name, a description in wide text, one wider than any
   terminal. */
static void complete_described(const char *text, int cursor, term_completions *out, void *user) {
    static const char *const commands[][3] = {
        {"show", NULL, "display the running configuration"},
        {"shutdown", NULL, "power the device off"},
        {"shell", NULL, "\xe6\x89\x93\xe5\xbc\x80\xe5\xa4\x96\xe5\xa3\xb3"},
        {"set ", "set KEY VALUE", "assign a setting"},
    };
    int start = word_start(text, cursor);
    size_t i;
    (void)user;
    for (i = 0; i < sizeof commands / sizeof commands[0]; i++)
        if (strncmp(commands[i][0], text + start, (size_t)(cursor - start)) == 0)
            term_addCompletionEx(out, start, commands[i][0], commands[i][1], commands[i][2]);
}

/* Names as a directory anyone can write to may hold: escape sequences, a C1
   control, bytes that are not UTF-8. */
static void complete_hostile(const char *text, int cursor, term_completions *out, void *user) {
    int start = word_start(text, cursor);
    (void)user;
    term_addCompletion(out, start, "a\x1b]0;PWNED\aX");
    term_addCompletion(out, start, "a\x1b[2Jclear");
    term_addCompletion(out, start, "a\xc2\x9b" "2J");
    term_addCompletion(out, start, "a\xff\xfe");
}

static void on_usr2(int sig) {
    signal(sig, on_usr2); /* strict C99 handlers are one-shot */
    churn_asked = 1;
}

/* Changes the history under a read that may be showing a hint or a match
   from it, and a key binding under the key decoder. */
static void churn_history(void) {
    char entry[32];
    int i;
    churn_asked = 0;
    term_bindKey(NULL, "\\e[2", "beginning-of-line");
    term_clearHistory();
    term_setHistoryLimit(0);
    term_setHistoryLimit(1000);
    for (i = 0; i < 1100; i++) {
        snprintf(entry, sizeof entry, "churn %d", i);
        term_addHistory(entry);
    }
    fprintf(side, "CHURN\n");
}

/* idle_answer: what onIdle answers from call idle_after on; -1 records a
   TICK and answers 0; -2 exits; -3 is -1 with churn_history on SIGUSR2. */
static int on_idle(void) {
    idle_calls++;
    if (idle_raise) raise(idle_raise);
    if (idle_answer == -2) exit(3);
    if (idle_answer == -3 && churn_asked) churn_history();
    if (idle_answer == -1 || idle_answer == -3) fprintf(side, "TICK %d\n", idle_calls);
    if (idle_answer <= 0 || idle_calls < idle_after) return 0;
    fprintf(side, "IDLE %d\n", idle_calls);
    return idle_answer;
}

/* keepNewline has no arguments; in "backslash" mode (keep_mode -1) the host
   answers from the text it was last asked about, as a real REPL would. */
static int last_ended_in_backslash;

static int is_complete(const wchar_t *text, int length) {
    int depth = 0, i;
    fprintf(side, "COMPLETE %d", length);
    for (i = 0; i < length; i++) fprintf(side, " %X", (unsigned)text[i]);
    fprintf(side, "\n");
    last_ended_in_backslash = length > 0 && text[length - 1] == L'\\';
    if (complete_mode == 2) {
        for (i = 0; i < length; i++)
            if (text[i] == (wchar_t)('A' + reads - 1)) return 1;
        return 0;
    }
    if (last_ended_in_backslash) return 0;
    if (complete_mode == 1) return 1;
    for (i = 0; i < length; i++) {
        if (text[i] == L'(' || text[i] == L'[' || text[i] == L'{') depth++;
        if (text[i] == L')' || text[i] == L']' || text[i] == L'}') depth--;
    }
    return depth <= 0;
}

static int keep_newline(void) {
    int answer = keep_mode >= 0 ? keep_mode : !last_ended_in_backslash;
    fprintf(side, "KEEP %d\n", answer);
    return answer;
}

static void on_eoi(void) {
    eoi_seen = 1;
    fprintf(side, "EOI\n");
}

static void on_sigint(int sig) {
    (void)sig;
    got_sigint = 1;
}

static pthread_t printers[16];
static int printer_count;
static long lines_each, print_pause;

static void *print_lines(void *arg) {
    char line[32];
    long i;
    for (i = 0; i < lines_each; i++) {
        struct timespec pause;
        pause.tv_sec = 0;
        pause.tv_nsec = print_pause * 1000L;
        snprintf(line, sizeof line, "T%d L%03ld", (int)(long)arg, i);
        term_print(line);
        if (print_pause) nanosleep(&pause, NULL);
    }
    return NULL;
}

static void *wake_later(void *arg) {
    struct timespec pause;
    pause.tv_sec = (long)arg / 1000;
    pause.tv_nsec = (long)arg % 1000 * 1000000L;
    nanosleep(&pause, NULL);
    term_wake();
    return NULL;
}

static const char *later_text;

static void *print_later(void *arg) {
    struct timespec pause;
    pause.tv_sec = (long)arg / 1000;
    pause.tv_nsec = (long)arg % 1000 * 1000000L;
    nanosleep(&pause, NULL);
    term_print(later_text);
    return NULL;
}

static void wake_on_signal(int sig) {
    (void)sig;
    term_wake();
}

static int same_mode(const struct termios *a, const struct termios *b) {
    return a->c_iflag == b->c_iflag && a->c_oflag == b->c_oflag && a->c_cflag == b->c_cflag &&
           a->c_lflag == b->c_lflag && memcmp(a->c_cc, b->c_cc, sizeof a->c_cc) == 0;
}

/* A host with its own loop: the terminal's edit and a timer, in one poll. */
static char *loop_read(char mask, const char *prompt) {
    struct itimerspec every;
    char *line = NULL;
    long ticks = 0;
    int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    memset(&every, 0, sizeof every);
    every.it_interval.tv_nsec = every.it_value.tv_nsec = 2000000L;
    timerfd_settime(timer, 0, &every, NULL);
    if (term_editStart(0, mask, prompt)) {
        if (preset_text) {
            term_editSetLine(preset_text, preset_cursor);
            term_editRedraw(0);
            preset_text = NULL;
        }
        for (;;) {
            struct pollfd p[2];
            uint64_t n;
            p[0].fd = term_editFd();
            p[1].fd = timer;
            p[0].events = p[1].events = POLLIN;
            poll(p, 2, term_editTimeout());
            if ((p[1].revents & POLLIN) && read(timer, &n, sizeof n) == (ssize_t)sizeof n) ticks += (long)n;
            if (term_editFeed(&line)) break;
        }
    }
    close(timer);
    fprintf(side, "TIMER %d\n", ticks > 0);
    return line;
}

static void do_read(int kind, char mask, const char *prompt) {
    struct termios before, after;
    int n = reads++;
    int have = tcgetattr(1, &before) == 0;
    char *line;
    fprintf(side, "BEGIN %d\n", n);
    line = kind == 3 ? loop_read(mask, prompt)
           : kind == 2 ? term_getLineUtf8(mask, prompt)
           : kind   ? term_getRawLine(mask, prompt)
                    : term_getLine(mask, prompt);
    if (got_sigint) {
        fprintf(side, "SIGINT\n");
        got_sigint = 0;
    }
    for (int i = 0; i < 5; i++)
        for (; caught[i] > 0; caught[i]--) fprintf(side, "CAUGHT %s\n", caught_names[i]);
    fprintf(side, "STATUS %d %d\n", n, term_getStatus());
    if (line) {
        fprintf(side, "LINE %d %zu ", n, strlen(line));
        fwrite(line, 1, strlen(line), side);
        fputc('\n', side);
    } else {
        fprintf(side, "NULL %d\n", n);
    }
    if (have && tcgetattr(1, &after) == 0)
        fprintf(side, "MODE %d %s\n", n, same_mode(&before, &after) ? "same" : "changed");
    fprintf(side, "END %d\n", n);
    term_free(line);
}

static void set_callbacks(const char *setting) {
    term_callbacks cb;
    memset(&cb, 0, sizeof cb);
    static const char *const complete_modes[] = {"brackets", "backslash", "marker"};
    int k;
    if (strncmp(setting, "complete=", 9) == 0) {
        for (k = 0; k < 3; k++)
            if (strcmp(setting + 9, complete_modes[k]) == 0) complete_mode = k;
        cb.isInputComplete = is_complete;
    } else if (strncmp(setting, "keep=", 5) == 0) {
        keep_mode = strcmp(setting + 5, "backslash") == 0 ? -1 : atoi(setting + 5);
        cb.keepNewline = keep_newline;
    } else if (strncmp(setting, "idle=", 5) == 0) {
        idle_answer = strcmp(setting + 5, "tick") == 0    ? -1
                      : strcmp(setting + 5, "exit") == 0  ? -2
                      : strcmp(setting + 5, "churn") == 0 ? -3
                                                          : atoi(setting + 5);
        if (idle_answer == -3) signal(SIGUSR2, on_usr2);
        if (strncmp(setting + 5, "raise:", 6) == 0) idle_answer = 0, idle_raise = atoi(setting + 11);
        idle_after = strchr(setting, '@') ? atoi(strchr(setting, '@') + 1) : 1;
        cb.onIdle = on_idle;
    } else if (strcmp(setting, "eoi") == 0) {
        cb.onEndOfInput = on_eoi;
    }
    fprintf(side, "CB %d\n", term_setCallbacks(&cb));
}

static void report_binding(const char *path, int line, const char *text, const char *why, void *user) {
    (void)path;
    (void)text;
    (void)user;
    fprintf(side, "REPORT %d %s\n", line, why);
}

static int count_names(const char *const *names) {
    int n = 0;
    while (names[n]) n++;
    return n;
}

/* The calls of the features term_features() says are left out, and what
   they answered. */
static void absent(void) {
    const unsigned f = term_features();
    if (!(f & TERM_FEATURE_VI_MODE))
        fprintf(side, "ABSENT vi %d %d %d\n", term_setOption(TERM_OPTION_VI_MODE, 1),
                term_setOption(TERM_OPTION_VI_SHOW_MODE, 1), term_bindKey("vi-insert", "x", "self-insert"));
    if (!(f & TERM_FEATURE_BINDINGS)) {
        char *list = term_listBindings(TERM_LIST_FUNCTIONS, 1);
        const char *value = term_getVariable("bell-style");
        fprintf(side, "ABSENT bindings %d %d %d %s %s %d %d %d\n", term_bindKey(NULL, "\\C-a", "end-of-line"),
                term_bindMacro(NULL, "\\C-xq", "quit"), term_setVariable("bell-style", "none"),
                value ? value : "NULL", list ? "list" : "NULL", term_readBindings("/dev/null"),
                count_names(term_actionNames()), count_names(term_variableNames()));
        term_free(list);
    }
    if (!(f & TERM_FEATURE_HIGHLIGHT))
        fprintf(side, "ABSENT highlight %d\n", term_setOption(TERM_OPTION_BRACE_MATCH, 1));
    if (!(f & TERM_FEATURE_COMPLETION_MENU))
        fprintf(side, "ABSENT menu %d\n", term_setOption(TERM_OPTION_COMPLETION_MENU, 1));
    if (!(f & TERM_FEATURE_LEAN_OUTPUT))
        fprintf(side, "ABSENT lean %d\n", term_setOption(TERM_OPTION_LEAN_OUTPUT, 1));
    if (!(f & TERM_FEATURE_EVENT_LOOP)) {
        char *line = (char *)"untouched";
        const int started = term_editStart(TERM_EDIT_UTF8, 0, "> ");
        const int fed = term_editFeed(&line);
        fprintf(side, "ABSENT loop %d %d %s %d %d %d\n", started, fed, line ? "line" : "NULL", term_editFd(),
                term_editTimeout(), term_editPush("x", 1));
        term_editStop();
        term_editLeave();
    }
    if (!(f & TERM_FEATURE_THREAD_PRINT)) {
        term_print("printed");
        term_wake();
        fprintf(side, "ABSENT print %d\n", term_setOption(TERM_OPTION_LOG_TO_TERMINAL, 1));
    }
    if (!(f & TERM_FEATURE_SESSIONS)) {
        term_session *s = term_open(0, 1, NULL);
        fprintf(side, "ABSENT sessions %s %s %s\n", s ? "open" : "NULL", term_use(s) ? "used" : "NULL",
                term_current() ? "current" : "NULL");
        term_close(s);
    }
    fflush(side);
}

int main(int argc, char **argv) {
    int i;
    const char *path = getenv("QV_SIDE");
    side = fopen(path ? path : "/dev/null", "w");
    if (!side) return 2;
    setvbuf(side, NULL, _IOLBF, 0); /* the test reads records as they come */
    signal(SIGINT, on_sigint);
    for (i = 1; i < argc; i++) {
        const char *a = argv[i];
        if (strncmp(a, "init", 4) == 0) {
            term_options o;
            memset(&o, 0, sizeof o);
            o.sigint = strcmp(a, "init:sigint") == 0;
            if (strncmp(a, "init:dir=", 9) == 0) o.historydir = a + 9;
            fprintf(side, "INIT %d\n", term_init(strcmp(a, "init:null") == 0 ? NULL : &o));
        } else if (strncmp(a, "cb:", 3) == 0) {
            set_callbacks(a + 3);
        } else if (strncmp(a, "line:", 5) == 0 || strncmp(a, "utf8:", 5) == 0 || strncmp(a, "raw:", 4) == 0) {
            do_read(a[0] == 'u' ? 2 : a[0] == 'r', 0, strchr(a, ':') + 1);
        } else if (strncmp(a, "mask:", 5) == 0 || strncmp(a, "rawmask:", 8) == 0) {
            const char *m = strchr(a, ':') + 1; /* the mask character, then ':' and the prompt */
            do_read(a[0] == 'r', m[0], m + 2);
        } else if (strncmp(a, "preset:", 7) == 0) {
            preset_cursor = atoi(a + 7);
            preset_text = strchr(a + 7, ':') ? strchr(a + 7, ':') + 1 : "";
        } else if (strncmp(a, "loop:", 5) == 0) {
            do_read(3, 0, a + 5);
        } else if (strncmp(a, "lines:", 6) == 0) {
            while (!eoi_seen && reads < 100) do_read(0, 0, a + 6);
        } else if (strncmp(a, "getchar:", 8) == 0) {
            fprintf(side, "BEGIN %d\n", reads);
            fprintf(side, "CHAR %d\nEND %d\n", term_getChar(atoi(a + 8)), reads++);
        } else if (strncmp(a, "put:", 4) == 0) {
            term_putString(a + 4);
        } else if (strncmp(a, "putln:", 6) == 0) {
            term_putStringLn(a + 6);
        } else if (strncmp(a, "putchar:", 8) == 0) {
            term_putChar(atoi(a + 8));
            fflush(stdout);
        } else if (strncmp(a, "blanks:", 7) == 0) {
            term_putBlanks(atoi(a + 7));
        } else if (strcmp(a, "load") == 0) {
            term_loadHistory();
        } else if (strcmp(a, "destroy") == 0) {
            term_destroy();
        } else if (strcmp(a, "size") == 0) {
            fprintf(side, "WIDTH %d\nHEIGHT %d\n", term_getConsoleWidth(), term_getConsoleHeight());
        } else if (strcmp(a, "catch") == 0) {
            int k;
            for (k = 0; k < 5; k++) signal(caught_signals[k], on_caught);
        } else if (strncmp(a, "right:", 6) == 0) {
            fprintf(side, "RIGHT %d\n", term_setRightPrompt(a + 6, 0));
        } else if (strncmp(a, "pairs:", 6) == 0) {
            fprintf(side, "PAIRS %d\n", term_setPairs(a + 6));
        } else if (strncmp(a, "transient:", 10) == 0) {
            fprintf(side, "TRANSIENT %d\n", term_setTransientPrompt(a[10] ? a + 10 : NULL));
        } else if (strncmp(a, "look:", 5) == 0 && strchr(a, '=')) {
            fprintf(side, "LOOK %d\n", term_setLook(atoi(a + 5), (unsigned)strtoul(strchr(a, '=') + 1, NULL, 0)));
        } else if (strncmp(a, "highlight:", 10) == 0) {
            term_setHighlighter(strcmp(a + 10, "bad") == 0    ? highlight_bad
                                : strcmp(a + 10, "from") == 0 ? highlight_from
                                : strcmp(a + 10, "rgb") == 0  ? highlight_rgb
                                                              : highlight_digits,
                                NULL);
        } else if (strncmp(a, "completer:", 10) == 0) {
            many_count = strncmp(a + 10, "many=", 5) == 0 ? atol(a + 15) : 0;
            term_setCompleter(strcmp(a + 10, "bad") == 0         ? complete_bad
                              : strcmp(a + 10, "hostile") == 0   ? complete_hostile
                              : strcmp(a + 10, "described") == 0 ? complete_described
                                                                  : complete_words,
                              NULL);
        } else if (strncmp(a, "bind:", 5) == 0 && strchr(a, '=')) {
            char keys[64];
            const size_t n = (size_t)(strchr(a, '=') - (a + 5));
            snprintf(keys, sizeof keys, "%.*s", (int)n, a + 5);
            fprintf(side, "BOUND %d\n", term_bindKey(NULL, keys, strchr(a, '=') + 1));
        } else if (strncmp(a, "bindings:", 9) == 0) {
            term_setBindingsReporter(report_binding, NULL);
            fprintf(side, "BINDINGS %d\n", term_readBindings(a + 9));
        } else if (strcmp(a, "absent") == 0) {
            absent();
        } else if (strncmp(a, "option:", 7) == 0 && strchr(a, '=')) {
            fprintf(side, "OPTION %d\n", term_setOption(atoi(a + 7), atoi(strchr(a, '=') + 1)));
        } else if (strncmp(a, "print:", 6) == 0) {
            term_print(a + 6);
        } else if (strncmp(a, "printers:", 9) == 0) {
            printer_count = atoi(a + 9);
            lines_each = strchr(a, 'x') ? atol(strchr(a, 'x') + 1) : 0;
            print_pause = strchr(a, '@') ? atol(strchr(a, '@') + 1) : 0;
            if (printer_count > 16) printer_count = 16;
            for (int k = 0; k < printer_count; k++) pthread_create(&printers[k], NULL, print_lines, (void *)(long)k);
        } else if (strcmp(a, "join") == 0) {
            for (int k = 0; k < printer_count; k++) pthread_join(printers[k], NULL);
            printer_count = 0;
        } else if (strncmp(a, "later:", 6) == 0 && strchr(a + 6, ':')) {
            pthread_t printer;
            later_text = strchr(a + 6, ':') + 1;
            pthread_create(&printer, NULL, print_later, (void *)atol(a + 6));
            pthread_detach(printer);
        } else if (strcmp(a, "wake:now") == 0) {
            term_wake();
        } else if (strncmp(a, "log:", 4) == 0) {
            logger_write_fmt("qvhost", NULL, 0, "%s", a + 4);
            logger_finish("qvhost");
        } else if (strcmp(a, "wake:signal") == 0) {
            struct sigaction on;
            memset(&on, 0, sizeof on);
            on.sa_handler = wake_on_signal;
            sigaction(SIGUSR1, &on, NULL);
        } else if (strncmp(a, "wake:", 5) == 0) {
            pthread_t waker;
            pthread_create(&waker, NULL, wake_later, (void *)atol(a + 5));
            pthread_detach(waker);
        } else if (strcmp(a, "sigint:default") == 0) {
            signal(SIGINT, SIG_DFL);
        } else {
            fprintf(side, "UNKNOWN %s\n", a);
        }
    }
    fprintf(side, "LOCALE %s\nEXIT\n", setlocale(LC_CTYPE, NULL));
    fclose(side);
    return 0;
}
