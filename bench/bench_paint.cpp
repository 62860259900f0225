// Cost of one keystroke (insert a character, paint it) at the end of inputs
// of 1 to 10,000 terminal rows. The cost should not grow with the input.
// Then colour: a 100,000-character paste and 2,000 typed keys, each without
// (argument 0) and with a highlighter that colours every word, at every
// call (1) or from where the text changed (2), with the bytes written per
// key.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include "console.h"
#include "engine.h"
#include "paste.h"
#include "render.h"
#include "os-unix.h"

namespace {

constexpr int kCols = 80;

// A console on an 80-column xterm description whose output goes to a
// scratch file, to be counted.
struct Bench {
    console c{};
    int saved_stdout = -1;
    Bench() {
        setenv("TERM", "xterm-256color", 1);
        unsetenv("COLUMNS");
        unsetenv("LINES");
        fflush(stdout);
        saved_stdout = dup(1);
        FILE *scratch = tmpfile();
        dup2(fileno(scratch), 1);
        fclose(scratch);
        if (!console_init(&c) || !console_init_editor(&c)) abort();
        c.prompt = L"> ";
        screen_buffer_reset(&c);
        console_put_prompt(&c);
    }
    ~Bench() {
        console_free(&c);
        fflush(stdout);
        dup2(saved_stdout, 1);
        close(saved_stdout);
    }
    long written() {
        fflush(stdout);
        return static_cast<long>(lseek(1, 0, SEEK_END));
    }
    // Fills the edit buffer to the given number of rows, then lays it out
    // and paints it once.
    void fill(int rows) {
        const int chars = rows * c.screen.cols - 2 - 1;
        for (int i = 0; i < chars; i++) buffer_insert_char(&c, L'a');
        action_key_end(&c, 0);
        qv::render(&c, 0, false, 0);
    }
};

void BM_KeystrokeAtEnd(benchmark::State &state) {
    Bench b;
    b.fill(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        action_insert_char(&b.c, 'x');
        qv::render(&b.c, 0, false, 0);
    }
    state.counters["rows"] = b.c.screen.input.numlines;
    (void)kCols;
}
BENCHMARK(BM_KeystrokeAtEnd)->Arg(1)->Arg(100)->Arg(1000)->Arg(10000)->Iterations(20000);

// Every word in one of six colours, chosen by its first letter, as a
// highlighter colours a token by what it is.
void colour_words_from(const char *text, int len, int i, term_highlight *out) {
    while (i < len) {
        if (text[i] == ' ') {
            i++;
            continue;
        }
        int end = i;
        while (end < len && text[end] != ' ') end++;
        term_addHighlight(out, i, end, TERM_FG(1 + static_cast<unsigned char>(text[i]) % 6));
        i = end;
    }
}

void colour_words(const char *text, int len, term_highlight *out, void *) { colour_words_from(text, len, 0, out); }

// The same colours, styled only from the start of the word where the text
// changed.
void colour_changed_words(const char *text, int len, term_highlight *out, void *) {
    int from = term_highlightFrom(out);
    while (from > 0 && text[from - 1] != ' ') from--;
    colour_words_from(text, len, from, out);
}

// 0: no highlighter; 1: one that styles the whole input at every call; 2:
// one that styles from where the text changed.
term_highlighter highlighter(long arg) {
    return arg == 0 ? nullptr : arg == 1 ? colour_words : colour_changed_words;
}

const char kWords[] = "let total = price * 12 + tax ";

// A bracketed paste arrives in reads of 8 KiB, through the engine a read
// uses: the end of each read is the end of a burst of keys.
void BM_Paste100k(benchmark::State &state) {
    term_setHighlighter(highlighter(state.range(0)), nullptr);
    constexpr int kChars = 100000;
    long bytes = 0;
    for (auto _ : state) {
        Bench b;
        qv::engine_begin(&b.c);
        const long before = b.written();
        qv::engine_key(&b.c, action_paste_begin, 27, true);
        for (int i = 0; i < kChars; i++)
            qv::engine_key(&b.c, action_insert_char, kWords[i % (sizeof kWords - 1)], i % 8192 != 8191);
        qv::engine_key(&b.c, action_paste_end, 27, false);
        bytes += b.written() - before;
        qv::engine_end(&b.c);
    }
    state.counters["bytes/key"] = static_cast<double>(bytes) / (static_cast<double>(state.iterations()) * kChars);
    term_setHighlighter(nullptr, nullptr);
}
BENCHMARK(BM_Paste100k)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->Iterations(5);

// Keys typed one at a time, each drawn: in lines of 80 characters (the
// second argument), or all in one line of 2,000 (0).
void BM_Typed2000(benchmark::State &state) {
    term_setHighlighter(highlighter(state.range(0)), nullptr);
    constexpr int kKeys = 2000;
    const int line = state.range(1) ? static_cast<int>(state.range(1)) : kKeys;
    long bytes = 0;
    for (auto _ : state) {
        Bench b;
        const long before = b.written();
        for (int i = 0; i < kKeys; i++) {
            if (i > 0 && i % line == 0) {
                buffer_clear(&b.c);
                qv::render(&b.c, 0, false, 0);
            }
            action_insert_char(&b.c, kWords[i % (sizeof kWords - 1)]);
            qv::render(&b.c, 0, false, 0);
        }
        bytes += b.written() - before;
    }
    state.counters["bytes/key"] = static_cast<double>(bytes) / (static_cast<double>(state.iterations()) * kKeys);
    term_setHighlighter(nullptr, nullptr);
}
BENCHMARK(BM_Typed2000)
    ->Args({0, 80})
    ->Args({1, 80})
    ->Args({2, 80})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({2, 0})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

} // namespace

BENCHMARK_MAIN();
