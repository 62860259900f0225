// The key being handled and its screen requests.
#include "frame.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "actions.h"
#include "console_record.h"

struct qv::FrameState {
    action_fn action, last;
    int byte; // the key's last byte
    bool in_key;
    FrameStep *steps;
    int head, count, cap;
};

namespace {

qv::FrameState *frame_of(const console *c) { return c->state ? c->state->frame : nullptr; }

void drop_steps(qv::FrameState *f) {
    for (int i = f->head; i < f->count; i++) {
        free(f->steps[i].text);
        free(f->steps[i].styles);
    }
    f->head = f->count = 0;
}

// A request that cannot be kept (no memory) is lost: the screen then lags the
// state until the next paint, which draws from the state anyway.
void push(console *c, const qv::FrameStep &step) {
    qv::FrameState *f = frame_of(c);
    if (!f || !f->in_key) {
        free(step.text);
        free(step.styles);
        if (step.op == qv::kThen) step.then(c);
        return;
    }
    if (f->count == f->cap) {
        const int cap = f->cap ? f->cap * 2 : 8;
        auto *grown = static_cast<qv::FrameStep *>(realloc(f->steps, sizeof(qv::FrameStep) * static_cast<size_t>(cap)));
        if (!grown) {
            free(step.text);
            free(step.styles);
            if (step.op == qv::kThen) step.then(c); // the state must not lag
            return;
        }
        f->steps = grown;
        f->cap = cap;
    }
    f->steps[f->count++] = step;
}

} // namespace

qv::FrameState *qv::frame_new() { return static_cast<FrameState *>(calloc(1, sizeof(FrameState))); }

void qv::frame_free(FrameState *f) {
    if (!f) return;
    drop_steps(f);
    free(f->steps);
    free(f);
}

void qv::frame_begin_key(console *c, action_fn action, int last) {
    if (FrameState *f = frame_of(c)) {
        f->action = action;
        f->byte = last;
        f->in_key = true;
    }
}

int qv::frame_key_byte(const console *c) {
    const FrameState *f = frame_of(c);
    return f ? f->byte : -1;
}

void qv::frame_end_key(console *c) {
    if (FrameState *f = frame_of(c)) {
        f->last = f->action;
        f->in_key = false;
        drop_steps(f);
    }
}

void qv::frame_reset(console *c) {
    if (FrameState *f = frame_of(c)) f->action = f->last = nullptr;
}

action_fn qv::frame_last_action(const console *c) {
    const FrameState *f = frame_of(c);
    return f ? f->last : nullptr;
}

void qv::frame_request(console *c, FrameOp op) { push(c, FrameStep{op, nullptr, 0, nullptr, nullptr}); }

void qv::frame_write(console *c, const wchar_t *text, int n, const uint32_t *styles) {
    const FrameState *f = frame_of(c);
    if (!f || !f->in_key || n <= 0) return;
    auto *copy = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(n)));
    if (!copy) return;
    wmemcpy(copy, text, static_cast<size_t>(n));
    uint32_t *looks = nullptr;
    if (styles && (looks = static_cast<uint32_t *>(malloc(sizeof(uint32_t) * static_cast<size_t>(n)))))
        memcpy(looks, styles, sizeof(uint32_t) * static_cast<size_t>(n));
    push(c, FrameStep{kWrite, copy, n, nullptr, looks});
}

void qv::frame_keys(console *c, const char *bytes, int n) {
    const FrameState *f = frame_of(c);
    if (!f || !f->in_key || n <= 0) return;
    auto *copy = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(n)));
    if (!copy) return;
    for (int i = 0; i < n; i++) copy[i] = static_cast<unsigned char>(bytes[i]);
    push(c, FrameStep{kKeys, copy, n, nullptr, nullptr});
}

void qv::frame_repeat(console *c) {
    if (FrameState *f = frame_of(c)) f->last = f->action;
}

void qv::frame_then(console *c, void (*then)(console *c)) { push(c, FrameStep{kThen, nullptr, 0, then, nullptr}); }

bool qv::frame_next(console *c, FrameStep *step) {
    FrameState *f = frame_of(c);
    if (!f || f->head == f->count) return false;
    *step = f->steps[f->head++];
    if (f->head == f->count) f->head = f->count = 0;
    return true;
}
