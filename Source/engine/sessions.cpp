// Sessions beyond the default one: each its own record in every module that
// keeps a terminal's state, made current on the thread that acts for it.
#include "sessions.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "completion.h"
#include "candidates.h"
#include "highlight.h"
#include "historyfile.h"
#include "input.h"
#include "options.h"
#include "output.h"
#include "printer.h"
#include "session.h"
#include "terminal.h"
#include "ttymode.h"

struct term_session {
    qv::Session slots; // first: the thread's current session points here
    FILE *out;         // a stream of its own over a copy of out_fd
    char *type;
};

namespace {

term_session *of(qv::Session *s) { return reinterpret_cast<term_session *>(s); }

} // namespace

#if QV_WITH_SESSIONS
namespace {

void release(term_session *s) {
    void **slot = s->slots.slot;
    qv::options_free(static_cast<qv::OptionsState *>(slot[qv::kSlotOptions]));
    qv::output_free(static_cast<qv::OutputState *>(slot[qv::kSlotOutput]));
    qv::mode_free(static_cast<qv::ModeState *>(slot[qv::kSlotMode]));
    qv::printer_free(static_cast<qv::PrinterState *>(slot[qv::kSlotPrinter]));
    qv::history_dir_free(static_cast<qv::HistoryDir *>(slot[qv::kSlotHistoryFile]));
    qv::highlighter_free(static_cast<qv::HighlighterState *>(slot[qv::kSlotHighlight]));
    qv::completer_free(static_cast<qv::CompleterState *>(slot[qv::kSlotCompletion]));
    qv::input_free(static_cast<qv::InputState *>(slot[qv::kSlotInput]));
    qv::engine_top_free(static_cast<qv::EngineTop *>(slot[qv::kSlotTerminal]));
    if (s->out) fclose(s->out);
    free(s->type);
    free(s);
}

} // namespace

static_assert(offsetof(term_session, slots) == 0, "a session is found from its slots");

term_session *term_open(int in_fd, int out_fd, const term_session_options *options) {
    if (in_fd < 0 || out_fd < 0 || fcntl(in_fd, F_GETFD) < 0 || fcntl(out_fd, F_GETFD) < 0) return nullptr;
    // A record from an older host is shorter: what it lacks reads as 0.
    term_session_options o{};
    if (options) memcpy(&o, options, options->size < sizeof o ? options->size : sizeof o);
    auto *s = static_cast<term_session *>(calloc(1, sizeof(term_session)));
    if (!s) return nullptr;
    if (o.terminal && !(s->type = strdup(o.terminal))) {
        release(s);
        return nullptr;
    }
    // Its own stream, so that closing it leaves the host's descriptor open.
    const int copy = fcntl(out_fd, F_DUPFD_CLOEXEC, 3);
    if (copy >= 0 && !(s->out = fdopen(copy, "w"))) close(copy);
    if (s->out) setvbuf(s->out, nullptr, _IOFBF, 16384);
    void **slot = s->slots.slot;
    slot[qv::kSlotOptions] = qv::options_new();
    slot[qv::kSlotOutput] = s->out ? qv::output_new(s->out, out_fd, s->type) : nullptr;
    slot[qv::kSlotMode] = qv::mode_new(o.stream ? -1 : in_fd);
    slot[qv::kSlotPrinter] = qv::printer_new();
    slot[qv::kSlotHistoryFile] = o.historydir ? qv::history_dir_new(o.historydir) : nullptr;
    slot[qv::kSlotHighlight] = qv::highlighter_new();
    slot[qv::kSlotCompletion] = qv::completer_new();
    slot[qv::kSlotInput] = qv::input_new(in_fd);
    slot[qv::kSlotTerminal] = qv::engine_top_new();
    for (int k = 0; k < qv::kSlotCount; k++)
        if (!slot[k] && !(k == qv::kSlotHistoryFile && !o.historydir)) {
            release(s);
            return nullptr;
        }
    if (o.stream) {
        qv::SessionScope use(&s->slots);
        qv::terminal_set_size(24, 80);
    }
    bool opened;
    {
        qv::SessionScope use(&s->slots);
        opened = qv::instance_open();
    }
    if (!opened) {
        release(s);
        return nullptr;
    }
    return s;
}

void term_close(term_session *s) {
    if (!s) return;
    {
        qv::SessionScope use(&s->slots);
        // A read on another thread ends before anything it uses goes.
        while (qv::instance_reading()) {
            term_wake();
            usleep(1000);
        }
        qv::instance_close();
    }
    if (qv::current_session() == &s->slots) qv::use_session(nullptr);
    release(s);
}

term_session *term_use(term_session *s) { return of(qv::use_session(s ? &s->slots : nullptr)); }

#else // a build with the default session only: no other opens

term_session *term_open(int, int, const term_session_options *) { return nullptr; }
void term_close(term_session *) {}
term_session *term_use(term_session *) { return nullptr; }

#endif

term_session *term_current(void) { return of(qv::current_session()); }

int term_setSize(term_session *s, int cols, int rows) {
    if (cols < 0 || rows < 0) return 0;
    qv::SessionScope use(s ? &s->slots : nullptr);
    qv::terminal_set_size(rows, cols);
    qv::session_note_resize();
    qv::printer_nudge();
    return 1;
}
