/* The key being handled: the action of the key before it, and what the
   screen must do for it besides showing the state it leaves. Actions change
   state only; the requests they leave here are carried out by the input
   loop, in order, after the action returns. Library-internal. */
#ifndef QUORVEL_FRAME_H
#define QUORVEL_FRAME_H

#include <wchar.h>

#include "keymap.h"

#ifdef __cplusplus
namespace qv {

struct FrameState;
FrameState *frame_new();
void frame_free(FrameState *f);

enum FrameOp : int {
    kPaintNow,     // draw the state as it is now, before the key changes more
    kFlushPending, // draw what a burst of keys held back, if anything
    kNewline,      // the terminal goes to the start of the row below
    kAfterNewline, // that row starts a further line of the input
    kStartInput,   // a fresh input area on the cursor's row, the prompt drawn
    kRedrawBelow,  // the rows from the cursor's row down are drawn whole
    kClearScreen,  // the screen is cleared and the input drawn at its top
    kMoveCursorFirst, // the key's paint moves the cursor before it draws
    kWrite,        // text written as it is, a line feed ending each row
    kThen,         // state changes that must come after the requests before
    kKeys,         // key bytes read next, before any the terminal sent (one byte a character)
};

struct FrameStep {
    FrameOp op;
    wchar_t *text; // kWrite: owned by the step's taker
    int len;
    void (*then)(struct console *c);
    uint32_t *styles; // kWrite: a style for each character, or NULL; owned so too
};

/* The loop starts and ends each key; between reads there is none. last is
   the key's last byte, -1 when none is known. */
void frame_begin_key(struct console *c, action_fn action, int last = -1);
int frame_key_byte(const struct console *c);
void frame_end_key(struct console *c);
/* A new read: no key before. */
void frame_reset(struct console *c);
/* The action of the key before the one being handled. */
action_fn frame_last_action(const struct console *c);

/* Outside a key (an action called by the host) nothing is drawn, so the
   screen requests are dropped, and a continuation runs at once. */
void frame_request(struct console *c, FrameOp op);
/* Text below the input, a line feed ending each row; styles, when given, a
   style for each character on top of the listing's look. */
void frame_write(struct console *c, const wchar_t *text, int n, const uint32_t *styles = nullptr);
void frame_then(struct console *c, void (*then)(struct console *c));
/* Key bytes the key types (a macro), read before anything the terminal sent. */
void frame_keys(struct console *c, const char *bytes, int n);
/* The key runs its action again (a numeric argument): the next run sees
   the key's own action as the one before. */
void frame_repeat(struct console *c);
/* Takes the oldest request; false when there is none. */
bool frame_next(struct console *c, FrameStep *step);

} // namespace qv
#endif

#endif
