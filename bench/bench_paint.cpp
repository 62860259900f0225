// Cost of one keystroke (insert a character, paint it) at the end of inputs
// of 1 to 10,000 terminal rows. The cost should not grow with the input.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include "console.h"
#include "render.h"
#include "os-unix.h"

namespace {

constexpr int kCols = 80;

// A console on an 80-column xterm description whose output goes nowhere.
struct Bench {
    console c{};
    int saved_stdout = -1;
    Bench() {
        setenv("TERM", "xterm-256color", 1);
        unsetenv("COLUMNS");
        unsetenv("LINES");
        fflush(stdout);
        saved_stdout = dup(1);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        close(null);
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
    // Fills the edit buffer to the given number of rows, then lays it out
    // and paints it once.
    void fill(int rows) {
        const int chars = rows * c.screen.cols - 2 - 1;
        for (int i = 0; i < chars; i++) buffer_insert_char(&c, L'a');
        action_key_end(&c, 0);
        qv::render(&c, 0, false);
    }
};

void BM_KeystrokeAtEnd(benchmark::State &state) {
    Bench b;
    b.fill(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        action_insert_char(&b.c, 'x');
        qv::render(&b.c, 0, false);
    }
    state.counters["rows"] = b.c.screen.input.numlines;
    (void)kCols;
}
BENCHMARK(BM_KeystrokeAtEnd)->Arg(1)->Arg(100)->Arg(1000)->Arg(10000)->Iterations(20000);

} // namespace

BENCHMARK_MAIN();
