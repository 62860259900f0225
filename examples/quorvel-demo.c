/*
 * A small REPL on top of Quorvel.
 *
 * Input continues on further lines while brackets are open (the line break
 * is kept) or while a line ends in a backslash (the backslash is removed).
 * Every entered line is echoed back with its escapes decoded to UTF-8.
 * History lives in $XDG_STATE_HOME/quorvel/term.history (or
 * ~/.local/state/quorvel/term.history). Commands: :password, :raw, :size,
 * :ticker (a thread prints a line every second, above the input, until
 * :ticker again), :help. Tab opens a menu of the commands, with what each
 * does, and of the words of earlier lines. Ctrl-D on an empty line leaves.
 * The prompt is coloured, the time stands at the right of the first row, and
 * a finished line keeps a short prompt in the scrollback. Numbers and
 * strings are highlighted in 24-bit colour where the terminal has it, the
 * demo's own commands in the palette's, and a bracket's partner shows while
 * the cursor is on it.
 */
#include <quorvel.h>

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

static int done;

/* :ticker: a thread that prints while the user types. */
static pthread_t ticker;
static pthread_mutex_t tick_lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t tick_stop = PTHREAD_COND_INITIALIZER;
static int ticking;

static void *tick(void *unused) {
    struct timespec at;
    char line[64];
    int n = 0;
    (void)unused;
    pthread_mutex_lock(&tick_lock);
    clock_gettime(CLOCK_REALTIME, &at);
    while (ticking) {
        at.tv_sec += 1;
        if (pthread_cond_timedwait(&tick_stop, &tick_lock, &at) != ETIMEDOUT || !ticking) continue;
        pthread_mutex_unlock(&tick_lock);
        snprintf(line, sizeof line, "[tick %d]", ++n);
        term_print(line);
        pthread_mutex_lock(&tick_lock);
    }
    pthread_mutex_unlock(&tick_lock);
    return NULL;
}

static void toggle_ticker(void) {
    pthread_mutex_lock(&tick_lock);
    if (ticking) {
        ticking = 0;
        pthread_cond_signal(&tick_stop);
        pthread_mutex_unlock(&tick_lock);
        pthread_join(ticker, NULL);
        term_print("ticker stopped");
        return;
    }
    ticking = pthread_create(&ticker, NULL, tick, NULL) == 0;
    pthread_mutex_unlock(&tick_lock);
}

static int ended_in_backslash;

static int is_complete(const wchar_t *text, int length) {
    int depth = 0, i;
    ended_in_backslash = length > 0 && text[length - 1] == L'\\';
    if (ended_in_backslash) return 0;
    for (i = 0; i < length; i++) {
        if (text[i] == L'(' || text[i] == L'[' || text[i] == L'{') depth++;
        if (text[i] == L')' || text[i] == L']' || text[i] == L'}') depth--;
    }
    return depth <= 0;
}

static int keep_newline(void) { return !ended_in_backslash; }

static void on_end_of_input(void) { done = 1; }

/* The words of the lines entered so far, for completion. */
static char **seen;
static size_t nseen, capseen;

static void remember_words(const char *line) {
    const char *p = line;
    while (*p) {
        const char *start;
        size_t i, n;
        while (*p == ' ' || *p == '\n') p++;
        start = p;
        while (*p && *p != ' ' && *p != '\n') p++;
        n = (size_t)(p - start);
        if (n < 2) continue;
        for (i = 0; i < nseen; i++)
            if (strlen(seen[i]) == n && strncmp(seen[i], start, n) == 0) break;
        if (i < nseen) continue;
        if (nseen == capseen) {
            char **grown = realloc(seen, (capseen ? capseen * 2 : 16) * sizeof *seen);
            if (!grown) return;
            seen = grown;
            capseen = capseen ? capseen * 2 : 16;
        }
        if ((seen[nseen] = malloc(n + 1)) == NULL) return;
        memcpy(seen[nseen], start, n);
        seen[nseen++][n] = 0;
    }
}

static const char *const commands[][2] = {
    {":emacs", "emacs keys"},
    {":help", "the keys at a glance"},
    {":password", "read a line masked with *"},
    {":raw", "read a line, keys as typed"},
    {":size", "the terminal's size"},
    {":ticker", "print from a thread while you type"},
    {":vi", "vi keys"},
};

/* Completes the word before the cursor: a command, with what it does, or a
   word seen before. */
static void complete(const char *text, int cursor, term_completions *out, void *user) {
    int start = cursor;
    size_t i, n;
    (void)user;
    while (start > 0 && text[start - 1] != ' ' && text[start - 1] != '\n') start--;
    n = (size_t)(cursor - start);
    for (i = 0; i < sizeof commands / sizeof commands[0]; i++)
        if (start == 0 && strncmp(commands[i][0], text, n) == 0)
            term_addCompletionEx(out, start, commands[i][0], NULL, commands[i][1]);
    for (i = 0; i < nseen; i++)
        if (strncmp(seen[i], text + start, n) == 0) term_addCompletion(out, start, seen[i]);
}

static int hexval(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

/* The "\:XXXX" escape at p, or -1. */
static long escape_at(const char *p) {
    if (p[0] != '\\' || p[1] != ':') return -1;
    if (hexval(p[2]) < 0 || hexval(p[3]) < 0 || hexval(p[4]) < 0 || hexval(p[5]) < 0) return -1;
    return (long)(hexval(p[2]) << 12 | hexval(p[3]) << 8 | hexval(p[4]) << 4 | hexval(p[5]));
}

static void put_utf8(unsigned long cp) {
    if (cp < 0x80) {
        putchar((int)cp);
    } else if (cp < 0x800) {
        putchar((int)(0xC0 | (cp >> 6)));
        putchar((int)(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        putchar((int)(0xE0 | (cp >> 12)));
        putchar((int)(0x80 | ((cp >> 6) & 0x3F)));
        putchar((int)(0x80 | (cp & 0x3F)));
    } else {
        putchar((int)(0xF0 | (cp >> 18)));
        putchar((int)(0x80 | ((cp >> 12) & 0x3F)));
        putchar((int)(0x80 | ((cp >> 6) & 0x3F)));
        putchar((int)(0x80 | (cp & 0x3F)));
    }
}

/* Writes the line with every escape turned back into UTF-8 (a surrogate
   pair into the one character it stands for), then the line as it came. */
static void print_decoded(const char *line) {
    const char *p = line;
    while (*p) {
        long cp = escape_at(p);
        if (cp < 0) {
            /* The terminal is in its own mode again: a line break needs no CR. */
            putchar(*p++);
            continue;
        }
        p += 6;
        if (cp >= 0xD800 && cp < 0xDC00 && escape_at(p) >= 0xDC00 && escape_at(p) < 0xE000) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (escape_at(p) - 0xDC00);
            p += 6;
        }
        put_utf8((unsigned long)cp);
    }
    if (strstr(line, "\\:")) printf("   [as returned: %s]", line);
}

/* Creates dir and its missing parents; 0 on success. */
static int make_dirs(char *dir) {
    char *p;
    for (p = dir + 1; *p; p++) {
        if (*p != '/') continue;
        *p = 0;
        if (mkdir(dir, 0700) != 0 && errno != EEXIST) return -1;
        *p = '/';
    }
    return mkdir(dir, 0700) != 0 && errno != EEXIST ? -1 : 0;
}

/* The state directory, created when missing; NULL when there is none. */
static char *history_dir(void) {
    const char *state = getenv("XDG_STATE_HOME");
    const char *home = getenv("HOME");
    const char *base = state && *state ? state : home;
    const char *tail = state && *state ? "/quorvel" : "/.local/state/quorvel";
    size_t n;
    char *dir;
    if (!base || !*base) return NULL;
    n = strlen(base) + strlen(tail) + 1;
    dir = malloc(n);
    if (!dir) return NULL;
    snprintf(dir, n, "%s%s", base, tail);
    if (make_dirs(dir) != 0) {
        free(dir);
        return NULL;
    }
    return dir;
}

/* A line of the bindings file the library did not take: said once, before
   the first prompt, so the user can mend the file. */
static void report_binding(const char *path, int line, const char *text, const char *why, void *unused) {
    (void)unused;
    fprintf(stderr, "quorvel-demo: %s:%d: %s: %s\n", path, line, why, text);
}

/* The user's readline init file ($INPUTRC, else ~/.inputrc) first, as every
   readline program reads it, then the demo's own keys over it, from
   $XDG_CONFIG_HOME/quorvel/bindings or ~/.config/quorvel/bindings; a missing
   file is no error. */
static void read_bindings(void) {
    const char *config = getenv("XDG_CONFIG_HOME");
    const char *home = getenv("HOME");
    const char *inputrc = getenv("INPUTRC");
    const char *base = config && *config ? config : home;
    const char *tail = config && *config ? "/quorvel/bindings" : "/.config/quorvel/bindings";
    char *path;
    size_t n;
    term_setApplicationName("quorvel-demo");
    term_setBindingsReporter(report_binding, NULL);
    if (inputrc && *inputrc) {
        term_readBindings(inputrc);
    } else if (home && *home) {
        n = strlen(home) + sizeof "/.inputrc";
        path = malloc(n);
        if (path) {
            snprintf(path, n, "%s/.inputrc", home);
            term_readBindings(path);
            free(path);
        }
    }
    if (!base || !*base) return;
    n = strlen(base) + strlen(tail) + 1;
    path = malloc(n);
    if (!path) return;
    snprintf(path, n, "%s%s", base, tail);
    term_readBindings(path);
    free(path);
}

/* Numbers, quoted strings and a command at the start of the input, in
   24-bit colours (a terminal without them shows the nearest it has). */
static void highlight(const char *text, int len, term_highlight *out, void *unused) {
    int i = 0;
    (void)unused;
    if (text[0] == ':') {
        size_t k;
        for (k = 0; k < sizeof commands / sizeof commands[0]; k++) {
            const int n = (int)strlen(commands[k][0]);
            if (strncmp(text, commands[k][0], (size_t)n) == 0 && (text[n] == 0 || text[n] == ' ')) {
                term_addHighlight(out, 0, n, TERM_FG(6) | TERM_BOLD);
                i = n;
            }
        }
    }
    while (i < len) {
        if (text[i] == '"' || text[i] == '\'') {
            int end = i + 1;
            while (end < len && text[end] != text[i]) end++;
            if (end < len) end++;
            term_addHighlight(out, i, end, TERM_RGB_FG(152, 195, 121));
            i = end;
        } else if (text[i] >= '0' && text[i] <= '9') {
            int end = i;
            while (end < len && ((text[end] >= '0' && text[end] <= '9') || text[end] == '.')) end++;
            term_addHighlight(out, i, end, TERM_RGB_FG(229, 192, 123));
            i = end;
        } else {
            i++;
        }
    }
}

int main(void) {
    term_options options;
    term_callbacks callbacks;
    char *dir = history_dir();

    memset(&options, 0, sizeof options);
    options.historydir = dir;
    if (!term_init(&options)) {
        fprintf(stderr, "quorvel-demo: the terminal has no usable size\n");
        free(dir);
        return 1;
    }
    free(dir); /* the library keeps its own copy */
    memset(&callbacks, 0, sizeof callbacks);
    callbacks.isInputComplete = is_complete;
    callbacks.keepNewline = keep_newline;
    callbacks.onEndOfInput = on_end_of_input;
    term_setCallbacks(&callbacks);
    term_setCompleter(complete, NULL);
    term_setOption(TERM_OPTION_HINTS, 1);
    term_setOption(TERM_OPTION_BRACE_MATCH, 1);
    term_setOption(TERM_OPTION_COMPLETION_MENU, 1);
    /* Fewer bytes per key: a demo run over a serial line stays quick. */
    term_setOption(TERM_OPTION_LEAN_OUTPUT, 1);
    term_setHighlighter(highlight, NULL);
    term_loadHistory();
    read_bindings();

    printf("Quorvel demo: %dx%d terminal. Type :help for commands, Ctrl-D to leave.\n",
           term_getConsoleWidth(), term_getConsoleHeight());
    /* The finished lines keep a short prompt; the clock stands at the right. */
    term_setTransientPrompt("\x1b[34m>\x1b[0m ");
    while (!done) {
        char clock[32];
        const time_t now = time(NULL);
        char *line;
        strftime(clock, sizeof clock, "\x1b[2m%H:%M\x1b[0m", localtime(&now));
        term_setRightPrompt(clock, 0);
        line = term_getLine(0, "\x1b[1;34mquorvel\x1b[0m> ");
        if (!line) {
            fprintf(stderr, "out of memory\n");
            break;
        }
        if (strcmp(line, ":help") == 0) {
            printf("  :password  read a masked line\n  :raw       read a line without "
                   "continuation\n  :size      terminal size\n  :ticker    print a line every second "
                   "while you type (again to stop)\n  :vi :emacs  vi's keys, or back to these\n"
                   "  brackets or a trailing "
                   "backslash continue a line\n\n"
                   "  Left Right Home End Ctrl-B Ctrl-F   move        Up Down PgUp PgDn   history\n"
                   "  Alt-b Alt-f Ctrl-Left Ctrl-Right   words       Ctrl-R Ctrl-S       search\n"
                   "  Backspace Delete Ctrl-K Ctrl-U     delete      Ctrl-W Alt-d Alt-Bksp kill words\n"
                   "  Ctrl-Y Alt-y                       yank        Ctrl-_              undo\n"
                   "  Ctrl-T                             transpose   Ctrl-V              quoted insert\n"
                   "  Tab                                complete    Ctrl-L              clear screen\n"
                   "  Right or End on a dim hint         take it     Insert              overwrite\n"
                   "  Ctrl-G Ctrl-C                      abandon     Return / Ctrl-D     enter / leave\n");
        } else if (strcmp(line, ":password") == 0) {
            char *secret = term_getRawLine('*', "password: ");
            if (secret) printf("(%zu characters, not kept in the history)\n", strlen(secret));
            term_free(secret);
        } else if (strcmp(line, ":raw") == 0) {
            char *raw = term_getRawLine(0, "raw> ");
            if (raw) {
                printf("raw: ");
                print_decoded(raw);
                putchar('\n');
            }
            term_free(raw);
        } else if (strcmp(line, ":ticker") == 0) {
            toggle_ticker();
        } else if (strcmp(line, ":vi") == 0 || strcmp(line, ":emacs") == 0) {
            term_setOption(TERM_OPTION_VI_MODE, line[1] == 'v');
            term_setOption(TERM_OPTION_VI_SHOW_MODE, line[1] == 'v');
            printf(line[1] == 'v' ? "vi mode: Escape for command mode, i to insert again\n" : "emacs keys\n");
        } else if (strcmp(line, ":size") == 0) {
            printf("%d columns, %d rows\n", term_getConsoleWidth(), term_getConsoleHeight());
        } else if (*line) {
            printf("=> ");
            print_decoded(line);
            putchar('\n');
            remember_words(line);
        }
        term_free(line);
    }
    pthread_mutex_lock(&tick_lock);
    if (ticking) {
        pthread_mutex_unlock(&tick_lock);
        toggle_ticker();
    } else {
        pthread_mutex_unlock(&tick_lock);
    }
    term_destroy();
    while (nseen > 0) free(seen[--nseen]);
    free(seen);
    return 0;
}
