// The edit engine: a decoded key's turn with the modes and its action, the
// frame's requests, and the render once per key or burst.
#include "engine.h"

#include <chrono>
#include <cstring>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "commands.h"
#include "completion.h"
#include "below.h"
#include "menu.h"
#include "console.h"
#include "editkeys.h"
#include "frame.h"
#include "highlight.h"
#include "hints.h"
#include "options.h"
#include "output.h"
#include "repeat.h"
#include "paste.h"
#include "render.h"
#include "search.h"
#include "undo.h"
#include "variables.h"
#include "vimode.h"
#include "view.h"

// A burst of keys changed the state and its paint waits for the burst's end.
struct qv::EngineState {
    bool held;
    bool handled; // a key was handled in this read
    KeyDecoder keys;
    std::chrono::steady_clock::time_point painted; // the last paint
    // Key bytes a key typed (a macro), for the input to read next.
    char typed[1024];
    size_t ntyped;
};

qv::EngineState *qv::engine_new() { return new (std::nothrow) EngineState{}; }

void qv::engine_free(EngineState *e) { delete e; }

namespace {

qv::EngineState *engine_of(const console *c) { return c->state ? c->state->engine : nullptr; }

using Steady = std::chrono::steady_clock;

// A paste still arriving is drawn at most this often: drawing each read of
// a long paste would lay out, and highlight, the whole input again for
// every few kilobytes, where drawing it once at its end costs one layout.
constexpr auto kPasteFrame = std::chrono::milliseconds(100);

// Draws the state now; compact when it ends a burst that was held back.
void paint_now(console *c, int flags) {
    qv::EngineState *e = engine_of(c);
    const bool compact = e && e->held;
    if (e) {
        e->held = false;
        e->painted = Steady::now();
    }
    qv::render(c, flags, compact, qv::vi_cursor_shape(c));
}

bool paste_holds(const console *c) {
    const qv::EngineState *e = engine_of(c);
    return e && qv::paste_active(c) && Steady::now() - e->painted < kPasteFrame;
}

void flush_held(console *c) {
    const qv::EngineState *e = engine_of(c);
    if (e && e->held) paint_now(c, 0);
}

// The key's paint, or, with more keys waiting or a paste still arriving, a
// note that one is due.
void paint_or_hold(console *c, int flags, bool more) {
    if (!more && !paste_holds(c))
        paint_now(c, flags);
    else if (qv::EngineState *e = engine_of(c))
        e->held = true;
}

void start_input(console *c, bool more) {
    if (qv::render_start_input(c)) paint_or_hold(c, 0, more);
}


// Whether a mode takes the keys first: a search, a paste, a question, a
// quoted key.
bool in_mode(const console *c) {
    return qv::search_active(c) || qv::paste_active(c) || qv::completion_asking(c) || qv::quoted_active(c) ||
           qv::char_search_active(c);
}

// A mode's turn at the key: true when it used it.
bool take_by_mode(console *c, action_fn action, int key) {
    if (qv::menu_active(c) && qv::menu_key(c, action, key, action == action_complete)) return true;
    if (qv::quoted_active(c)) {
        qv::quoted_key(c, key);
        return true;
    }
    if (qv::char_search_active(c)) {
        qv::char_search_key(c, action == action_insert_char ? key : qv::frame_key_byte(c));
        return true;
    }
    if (qv::completion_asking(c)) {
        qv::completion_answer(c, key);
        return true;
    }
    if (qv::paste_active(c)) {
        qv::paste_key(c, action, key);
        return true;
    }
    if (qv::vi_search_return(c, action)) return true;
    if (qv::search_active(c) && qv::search_key(c, action, key)) return true;
    return qv::vi_key(c, action, key);
}

// Text for the screen from a key (a completion listing, a question), written
// as it is; a line feed ends a row. Each stretch of one style goes out in
// the listing's look with that style on top, plain again before the line
// feed.
void write_text(console *c, const wchar_t *text, int n, const uint32_t *styles) {
    const uint32_t look = qv::look(TERM_LOOK_LISTING);
    int from = 0;
    for (int i = 0; i <= n; i++) {
        if (i < n && text[i] != L'\n' && (!styles || i == from || styles[i] == styles[from])) continue;
        if (i > from) {
            const uint32_t pen = qv::terminal_style(0, qv::style_over(look, styles ? styles[from] : 0));
            console_put_wstring(c, text + from, i - from);
            qv::terminal_style(pen, 0);
        }
        if (i < n && text[i] == L'\n') {
            console_newline(c);
            from = i + 1;
        } else {
            from = i;
        }
    }
    fflush(qv::terminal_stream());
}

// Carries out what the key asked of the screen, in order.
void run_requests(console *c, int *flags, bool more) {
    qv::FrameStep step;
    while (qv::frame_next(c, &step)) {
        switch (step.op) {
        case qv::kPaintNow: paint_now(c, 0); break;
        case qv::kFlushPending: flush_held(c); break;
        case qv::kNewline: console_newline(c); break;
        case qv::kAfterNewline: qv::render_after_newline(c); break;
        case qv::kStartInput: start_input(c, more); break;
        case qv::kRedrawBelow: qv::render_redraw_below(c); break;
        case qv::kClearScreen:
            if (qv::erase_screen()) qv::render_redraw_all(c);
            break;
        case qv::kMoveCursorFirst: *flags |= qv::kCursorFirst; break;
        case qv::kWrite: write_text(c, step.text, step.len, step.styles); break;
        case qv::kThen: step.then(c); break;
        case qv::kKeys:
            if (qv::EngineState *e = engine_of(c))
                for (int i = 0; i < step.len && e->ntyped < sizeof e->typed; i++)
                    e->typed[e->ntyped++] = static_cast<char>(step.text[i]);
            break;
        }
        free(step.text);
        free(step.styles);
    }
}

// One key: its action (unless a mode takes it), each key a step for undo
// but typing on (and a whole paste) one; then what it asked of the screen;
// then, while the read goes on, the hint and the key's paint, unless more
// keys wait. A read the key ended has drawn all it shows.
void dispatch(console *c, action_fn action, int key, bool more, int last) {
    const bool typing = action == action_insert_char && qv::frame_last_action(c) == action_insert_char &&
                        !qv::vi_commanding(c);
    qv::undo_boundary(c, in_mode(c) || typing || qv::vi_joins_step(c));
    qv::vi_observe(c, action, key);
    qv::frame_begin_key(c, action, last);
    if (!take_by_mode(c, action, key) && action) {
        // A numeric argument runs the command that many times, or its
        // opposite for a negative one; the command reads it itself where
        // readline's takes it otherwise.
        int count = 1;
        const action_fn run = qv::argument_apply(c, action, qv::reads_argument(action), &count);
        for (int i = 0; i < count; i++) {
            if (i > 0) qv::frame_repeat(c);
            run(c, key);
        }
    }
    qv::macro_key_done(c);
    int flags = 0;
    run_requests(c, &flags, more);
    qv::frame_end_key(c);
    if (c->status != ST_READING || c->eof == 1 || c->terminate) return;
    if (qv::hints_enabled(c)) qv::hint_update(c, in_mode(c));
    paint_or_hold(c, more ? 0 : flags, more);
}

// A read a wake-up ended leaves its text on the screen, as Return would,
// and the terminal on the row below it.
void leave_woken(console *c) {
    qv::hint_clear(c);
    qv::below_clear(c);
    qv::view_finish(c);
    if (c->editor.buffer) buffer_cursor_move_end(c);
    paint_now(c, 0);
    console_newline(c);
}

// The modes a read may leave running end with it.
void end_modes(console *c) {
    qv::search_reset(c);
    qv::paste_reset(c);
    qv::completion_end(c);
    qv::editkeys_reset(c);
    qv::frame_reset(c);
    qv::hint_clear(c);
    qv::undo_reset(c);
    qv::vi_end(c);
    qv::repeat_reset(c);
}

} // namespace

void qv::engine_begin(console *c) {
    // Every read walks the history afresh from the line being typed.
    history_set_latest(c);
    history_cleanup_temp(c);
    end_modes(c);
    qv::history_keep_edits(c, qv::option(TERM_OPTION_KEEP_HISTORY_EDITS) != 0);
    qv::commands_begin(c);
    qv::vi_begin(c);
    if (EngineState *e = engine_of(c)) {
        e->keys.reset();
        e->handled = false;
    }
    c->status = ST_READING;
    c->error = 0;
    start_input(c, false);
}

qv::KeyDecoder &qv::engine_keys(console *c) { return engine_of(c)->keys; }

void qv::engine_key(console *c, action_fn action, int key, bool more, int last) {
    if (EngineState *e = engine_of(c)) e->handled = true;
    dispatch(c, action, key, more, last);
}

// The end of input is a state of the console, not of one read: a read after
// it still takes one key, then ends.
bool qv::engine_over(const console *c) {
    const EngineState *e = engine_of(c);
    return c->status != ST_READING || c->terminate || c->cancel || (c->eof == 1 && e && e->handled);
}

void qv::engine_flush(console *c) {
    if (!paste_holds(c)) flush_held(c);
}

int qv::engine_paint_due(const console *c) {
    const EngineState *e = engine_of(c);
    if (!e || !e->held || !paste_active(c)) return -1;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(e->painted + kPasteFrame - Steady::now());
    return left.count() < 0 ? 0 : static_cast<int>(left.count()) + 1;
}

void qv::engine_end(console *c) {
    // A read that ends mid-burst shows what the user must see first.
    flush_held(c);
    qv::history_end_edits(c, qv::variable_on(c, "revert-all-at-newline"));
    if (c->status == ST_WOKEN) leave_woken(c);
    end_modes(c);
    qv::cursor_shape(0);
    if (c->eof == 1 && c->status == ST_READING) c->status = ST_EOF;
}

const keymap_entry *qv::engine_keymap(console *c) { return vi_keymap(c); }

size_t qv::engine_take_typed(console *c, char *out, size_t size) {
    EngineState *e = engine_of(c);
    if (!e || e->ntyped == 0) return 0;
    const size_t n = e->ntyped < size ? e->ntyped : size;
    memcpy(out, e->typed, n);
    memmove(e->typed, e->typed + n, e->ntyped - n);
    e->ntyped -= n;
    return n;
}
