// A stateful fuzzer: key bytes interleaved with the calls a host makes
// between and during reads (history changes, options, completers good and
// bad, a highlighter with bad ranges, resizes, prints from another thread,
// the line set from outside), all through the public calls of an edit under
// the host's loop, on a real pseudo-terminal. After every step the screen
// libvterm renders from what the library wrote must show the prompt and the
// line that term_editLine answers (what the read would return), with the
// cursor where the next key acts, laid out as a fresh read of that line
// lays it out (the property test holds the library's fresh reads to the
// same layout): however the line was reached, it looks the same. A long
// prompt, at the narrowest widths, ends in the last columns of its row.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdio_ext.h>
#include <string>
#include <thread>
#include <mutex>
#include <vector>

#include <csignal>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "quorvel.h"
#include "support.h"

namespace {

constexpr int kRows = 40;
constexpr size_t kMaxSize = 600;
const char kPrompt[] = "\x1b[32m>\x1b[0m ";
const std::wstring kVisiblePrompt = L"> ";
// Eleven cells: at the narrowest widths the window takes (12 and 13
// columns) it ends in the last two, where a wide character does not fit.
const char kLongPrompt[] = "\x1b[1m0123456789\x1b[0m>";
const std::wstring kVisibleLongPrompt = L"0123456789>";
bool long_prompt = false;       // the next edit starts with the long prompt
bool long_prompt_shown = false; // the edit under way has it

int master = -1;
const char *history_dir = nullptr; // a scratch directory for the history file
int cols = 30;
std::string out;                       // everything the library wrote since the input began
std::vector<qvtest::Resize> resizes;   // where the window changed, for the renderer

// A thread keeps reading the terminal's other side, as a terminal would:
// a step that writes more than the kernel's buffer holds (a long listing
// in a narrow window) must not block on a reader that waits for the step.
std::mutex taken_lock;
std::string taken; // read and not yet moved to out

void keep_reading() {
    char buf[65536];
    for (;;) {
        struct pollfd p = {master, POLLIN, 0};
        if (poll(&p, 1, -1) < 0 && errno != EINTR) return;
        const ssize_t n = read(master, buf, sizeof buf);
        if (n > 0) {
            std::lock_guard<std::mutex> hold(taken_lock);
            taken.append(buf, static_cast<size_t>(n));
        } else if (n < 0 && errno != EAGAIN && errno != EINTR) {
            return;
        }
    }
}

[[noreturn]] void fail(const char *what, const std::string &detail);

// Everything the library has written so far, exactly: a marker written
// after it comes out of the other side after it, however late the kernel
// hands it over, and a window change recorded at a position in `out` then
// stands where the library saw it. Output the library left in stdout's
// buffer would reach the screen only with some later write, so it fails.
void drain() {
    if (__fpending(stdout) != 0) fail("output left unflushed", std::to_string(__fpending(stdout)) + " bytes");
    static unsigned long serial = 0;
    const std::string marker = "\x1b_qv-sync " + std::to_string(++serial) + "\x1b\\";
    // While the terminal's buffer is full the write waits for the reading
    // thread, and a signal (libFuzzer's alarm) may cut it short.
    for (size_t done = 0; done < marker.size();) {
        const ssize_t n = write(1, marker.data() + done, marker.size() - done);
        if (n > 0)
            done += static_cast<size_t>(n);
        else if (n < 0 && (errno == EAGAIN || errno == EINTR))
            usleep(1000);
        else
            fail("drain", std::string("the marker could not be written: ") + strerror(errno));
    }
    for (int waited = 0;; waited++) {
        {
            std::lock_guard<std::mutex> hold(taken_lock);
            const size_t at = taken.find(marker);
            if (at != std::string::npos) {
                out.append(taken, 0, at);
                taken.erase(0, at + marker.size());
                return;
            }
        }
        if (waited == 10000) fail("drain", "the terminal's other side never saw the marker");
        usleep(1000);
    }
}

// ---------------------------------------------------------------------------
// Host behaviour the steps switch between

int completer_kind = 0;
bool vi_mode = false; // the steps typed are in vi mode

void complete(const char *text, int cursor, term_completions *outc, void *) {
    switch (completer_kind) {
    case 1: term_addCompletion(outc, cursor, "word "); break;
    case 2:
        for (int i = 0; i < 1000; i++) {
            char item[16];
            snprintf(item, sizeof item, "it%03d", i);
            term_addCompletion(outc, cursor, item);
        }
        break;
    case 3:
        term_addCompletion(outc, cursor, "\xff\xfe bad \xc3");
        // Described, in wide text and wider than any window.
        term_addCompletionEx(outc, cursor, "wide", "\xe4\xb8\xad\xe6\x96\x87 wide", std::string(80, 'd').c_str());
        term_addCompletionEx(outc, cursor, "mark", "mark\xcc\x81", "\xe4\xb8\xad");
        break;
    case 4:
        // Starts that are out of range or inside a character.
        term_addCompletion(outc, cursor + 3, "x");
        term_addCompletion(outc, -1, "y");
        term_addCompletion(outc, cursor > 0 ? 1 : 0, "\xc3\xa9z");
        (void)text;
        break;
    case 6:
        // Names anyone may have given a file: escape sequences, a C1
        // control, a character that is not UTF-8.
        term_addCompletion(outc, cursor, "\x1b]0;PWNED\x07");
        term_addCompletion(outc, cursor, "\x1b[2Jx\xc2\x9b" "1m\xff");
        break;
    case 5:
        // The state under the edit changes from inside the read.
        term_clearHistory();
        term_addHistory("from the completer");
        term_setOption(TERM_OPTION_BRACE_MATCH, 1);
        term_addCompletion(outc, 0, "((");
        break;
    default: break;
    }
}

void highlight(const char *, int len, term_highlight *h, void *) {
    term_addHighlight(h, -5, 2, TERM_FG(1));
    term_addHighlight(h, len / 2, len + 9, TERM_BG(4) | TERM_BOLD);
    term_addHighlight(h, 3, 1, TERM_REVERSE);
    term_addHighlight(h, 1, 2, TERM_UNDERLINE);
}

// Styles only from where the library says the text changed: what it says
// is unchanged must be.
std::string last_seen;
void highlight_from(const char *text, int len, term_highlight *h, void *) {
    const int from = term_highlightFrom(h);
    if (from < 0 || from > len || static_cast<size_t>(from) > last_seen.size() ||
        memcmp(text, last_seen.data(), static_cast<size_t>(from)) != 0)
        fail("term_highlightFrom", std::to_string(from) + " bytes of \"" + std::string(text, static_cast<size_t>(len)) +
                                       "\" said unchanged since \"" + last_seen + "\"");
    last_seen.assign(text, static_cast<size_t>(len));
    term_addHighlight(h, from, len, TERM_FG(2));
}

// ---------------------------------------------------------------------------
// The oracle

[[noreturn]] void fail(const char *what, const std::string &detail) {
    fprintf(stderr, "fuzz_session: %s: %s\n", what, detail.c_str());
    // QV_FUZZ_SHOW=1: the screen as rendered, to see what went wrong.
    if (getenv("QV_FUZZ_SHOW")) {
        const qvtest::Screen shown = qvtest::render(out, kRows, cols, resizes);
        for (int r = 0; r < kRows; r++) fprintf(stderr, "%2d|%s|\n", r, shown.row(r).c_str());
        fprintf(stderr, "cursor %d,%d\n", shown.cursor_row, shown.cursor_col);
        const size_t from = resizes.empty() ? 0 : resizes.back().at;
        std::string tail;
        for (size_t k = from; k < out.size(); k++) {
            const unsigned char ch = static_cast<unsigned char>(out[k]);
            char esc[8];
            snprintf(esc, sizeof esc, ch < 32 || ch >= 127 ? "\\x%02x" : "%c", ch);
            tail += esc;
        }
        fprintf(stderr, "written since the last resize: %s\n", tail.c_str());
    }
    abort();
}

// What differs between the screen and the line, or nothing.
std::string difference() {
    int cursor_bytes = 0;
    char *line = term_editLine(&cursor_bytes);
    if (!line) return "";
    const std::string head(line, static_cast<size_t>(cursor_bytes));
    const std::wstring text = qvtest::wideOf(line), before = qvtest::wideOf(head);
    free(line);
    const qvtest::Screen shown = qvtest::render(out, kRows, cols, resizes);
    // While the completion asks whether to list everything, the next key
    // answers it, and the cursor waits after the question.
    const std::string here = (shown.cursor_row > 0 ? shown.row(shown.cursor_row - 1) : "") + shown.row(shown.cursor_row);
    if (here.find("(y or n)") != std::string::npos) return "";
    const qvtest::Expected e =
        qvtest::expectedScreen(long_prompt_shown ? kVisibleLongPrompt : kVisiblePrompt, text, before.size(), cols);
    const int top = shown.cursor_row - e.cursor_row;
    if (shown.cursor_col != e.cursor_col)
        return "the cursor is not where the next key acts: column " + std::to_string(shown.cursor_col) +
               " against " + std::to_string(e.cursor_col);
    for (size_t r = 0; r < e.rows.size(); r++) {
        const int row = top + static_cast<int>(r);
        if (row < 0 || row >= kRows) continue; // scrolled away
        if (shown.row(row) != e.rows[r]) return "the screen differs from the line: " + shown.row(row) + " | " + e.rows[r];
    }
    return "";
}

bool start();

// Nothing the library did not compose reaches the terminal raw: the new
// output holds no escape sequence but the terminal's own, SGR and
// bracketed paste. A sequence the last check cut is read again whole.
size_t checked = 0;
void check_escapes() {
    const size_t from = checked > 64 ? checked - 64 : 0;
    const std::vector<std::string> found = qvtest::foreignEscapes(out.substr(from), "xterm-256color");
    if (!found.empty()) fail("a sequence the library may not write", found[0]);
    checked = out.size();
}

void check() {
    drain();
    check_escapes();
    // The kernel hands what was written to the pseudo-terminal's other side
    // a moment later, under load, and a paste still arriving is drawn at
    // most every 100 ms, by the next feed: only a difference that stays for
    // a second counts.
    for (int waited = 0; !difference().empty(); waited++) {
        if (waited == 10) fail("after the step", difference());
        usleep(100000);
        char *line = nullptr;
        if (term_editFeed(&line) == 1) {
            free(line);
            drain();
            if (!start()) abort();
            return;
        }
        drain();
    }
}

bool start() {
    long_prompt_shown = long_prompt;
    return term_editStart(TERM_EDIT_UTF8 | TERM_EDIT_RAW, 0, long_prompt ? kLongPrompt : kPrompt) == 1;
}

// Key bytes for one step: text, a wide character, a mark, clusters, and the editing
// keys that keep the prompt (no search, no quoted insert; in vi mode no /
// or ?, which search in command mode).
std::string keys_of(uint8_t b) {
    static const char *const kKeys[] = {"\x1b[D", "\x1b[C", "\x1b[H", "\x1b[F", "\x7f",  "\x1b[3~", "\x1b[A",
                                        "\x1b[B", "\x0b",   "\x15",   "\x17",   "\x19", "\t",      "\t\t",
                                        "\r",     "\x1b" "b", "\x1b" "f", "\x1b[200~pasted\ntext\x1b[201~"};
    if (b < 0x80) {
        // In vi mode a backslash stands for Escape.
        const char ch = static_cast<char>(32 + b % 95);
        if (vi_mode && ch == '\\') return "\x1b";
        return std::string(1, vi_mode && (ch == '/' || ch == '?') ? 'w' : ch);
    }
    if (b < 0x86) return "\xe4\xb8\xad";
    if (b < 0x8C) return "\xcc\x81";
    // Clusters whose cells every terminal agrees on: a flag, a Hangul
    // syllable in jamo, a character with a variation selector.
    if (b == 0x8C) return "\xf0\x9f\x87\xab\xf0\x9f\x87\xb7";
    if (b == 0x8D) return "\xe1\x84\x92\xe1\x85\xa1\xe1\x86\xab";
    if (b < 0x90) return "\xe2\x9d\xa4\xef\xb8\x8f";
    return kKeys[(b - 0x90) % (sizeof kKeys / sizeof kKeys[0])];
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // The steps run an edit under the host's loop; a build without it
    // skips the replay.
    if (!(term_features() & TERM_FEATURE_EVENT_LOOP)) exit(77);
    setenv("TERM", "xterm-256color", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    int slave = -1;
    struct winsize ws {};
    ws.ws_row = kRows;
    ws.ws_col = static_cast<unsigned short>(cols);
    if (openpty(&master, &slave, nullptr, nullptr, &ws) != 0) abort();
    fcntl(master, F_SETFL, O_NONBLOCK);
    dup2(slave, 0);
    dup2(slave, 1);
    close(slave);
    std::thread(keep_reading).detach();
    setvbuf(stdout, nullptr, _IOFBF, 1 << 16);
    static char dir[] = "/tmp/qv-fuzz-session-XXXXXX";
    if (!mkdtemp(dir)) abort();
    history_dir = dir;
    term_setCompleter(complete, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > kMaxSize) return 0;
    drain();
    out.clear();
    checked = 0;
    resizes.clear();
    cols = 30;
    struct winsize ws {};
    ws.ws_row = kRows;
    ws.ws_col = static_cast<unsigned short>(cols);
    ioctl(master, TIOCSWINSZ, &ws);
    // Every input from the same state: a fresh instance on a clean screen
    // the renderer starts from, the default options.
    fputs("\x1b[H\x1b[2J", stdout);
    fflush(stdout);
    // A history file to start from and to load again: a good line, invalid
    // UTF-8, and a line longer than the window.
    if (FILE *f = fopen((std::string(history_dir) + "/term.history").c_str(), "w")) {
        fputs("from the file (1)\n\xff\xfe\xc3\n", f);
        fprintf(f, "%s\n", std::string(90, 'h').c_str());
        fclose(f);
    }
    term_options options = {history_dir, 0, {}};
    if (!term_init(&options)) abort();
    term_setOption(TERM_OPTION_BRACE_MATCH, 0);
    term_setOption(TERM_OPTION_BRACKETED_PASTE, 1);
    term_setOption(TERM_OPTION_LEAN_OUTPUT, 0);
    term_setOption(TERM_OPTION_VI_MODE, 0);
    term_setOption(TERM_OPTION_KEEP_HISTORY_EDITS, 0);
    vi_mode = false;
    long_prompt = size > 0 && (data[size - 1] & 0x80) != 0; // half the inputs, from the start
    term_setHighlighter(nullptr, nullptr);
    completer_kind = 0;
    term_setOption(TERM_OPTION_COMPLETION_MENU, 0);
    if (!start()) {
        term_destroy();
        return 0;
    }
    for (size_t i = 0; i < size; i++) {
        const uint8_t op = data[i];
        const uint8_t arg = i + 1 < size ? data[i + 1] : 0;
        if (getenv("QV_FUZZ_SHOW")) fprintf(stderr, "step %02x %02x\n", op, arg);
        switch (op >> 5) {
        case 0:
        case 1:
        case 2: { // keys, the most common step, fed in two parts split anywhere
            const std::string k = keys_of(op < 0x60 ? static_cast<uint8_t>(op * 3 + arg) : arg);
            const size_t split = (op + arg) % (k.size() + 1);
            term_editPush(k.data(), static_cast<int>(split));
            char *line = nullptr;
            if (term_editFeed(&line) == 1) {
                free(line);
                drain();
                if (!start()) break;
            }
            term_editPush(k.data() + split, static_cast<int>(k.size() - split));
            break;
        }
        case 3: // the history changes under the edit
            if (arg % 5 == 0) term_clearHistory();
            if (arg % 5 == 1) term_setHistoryLimit(arg % 3);
            if (arg % 5 == 2)
                term_addHistory(arg & 8 ? "added \xc3\xa9 entry" : arg & 16 ? "esc \x1b]2;t\x07 \xc2\x9b" "2J" : "");
            if (arg % 5 == 3) term_setHistoryLimit(1000);
            if (arg % 5 == 4) term_loadHistory();
            i++;
            break;
        case 4: // options, completer, highlighter
            if (arg % 3 == 0) {
                term_setOption(TERM_OPTION_BRACE_MATCH, arg & 4);
                term_setOption(TERM_OPTION_LEAN_OUTPUT, arg & 8);
                // readline's way with recalled entries, from the next line on.
                term_setOption(TERM_OPTION_KEEP_HISTORY_EDITS, arg & 1);
                vi_mode = (arg & 16) != 0;
                long_prompt = (arg & 128) != 0; // from the next line on
                term_setOption(TERM_OPTION_VI_MODE, vi_mode);
                // A rebinding between the halves of a key: "\e[2" cuts off
                // the tree under it (Insert, the paste markers) while the
                // decoder may stand inside it.
                if (arg & 32) term_bindKey(arg & 64 ? "vi-insert" : nullptr, "\\e[2", "beginning-of-line");
            }
            if (arg % 3 == 1) {
                completer_kind = arg % 7;
                // Tab opens a menu listed below the input, half the time.
                term_setOption(TERM_OPTION_COMPLETION_MENU, (arg >> 3) & 1);
            }
            if (arg % 3 == 2) term_setHighlighter(arg & 4 ? (arg & 16 ? highlight_from : highlight) : nullptr, nullptr);
            i++;
            break;
        case 5: { // the window changes size
            drain();
            // One time in four the narrowest widths, where the long prompt
            // leaves one or two columns.
            cols = arg % 4 == 0 ? 12 + (arg >> 2) % 2 : 12 + arg % 40;
            struct winsize ws {};
            ws.ws_row = kRows;
            ws.ws_col = static_cast<unsigned short>(cols);
            ioctl(master, TIOCSWINSZ, &ws);
            resizes.push_back(qvtest::Resize{out.size(), kRows, cols});
            raise(SIGWINCH);
            i++;
            break;
        }
        case 6: { // a print from another thread, drawn above the input
            std::thread printer([arg] {
                const std::string text = "printed " + std::to_string(arg);
                term_print(text.c_str());
            });
            printer.join();
            break;
        }
        default: { // the line set from outside, the cursor anywhere
            const std::string text = std::string("set ") + static_cast<char>('a' + arg % 26) + "\xc3\xa9(x)";
            term_editSetLine(text.c_str(), arg % 12);
            term_editRedraw(0);
            i++;
            break;
        }
        }
        char *none = nullptr;
        if (term_editFeed(&none) == 1) {
            free(none);
            drain();
            if (!start()) break;
        }
        check();
    }
    term_editStop();
    term_destroy();
    drain();
    return 0;
}
