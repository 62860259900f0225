// Bracketed paste. The paste arrives as one burst of keys, so the input loop
// paints it once; here each of its keys only becomes text.
#include "paste.h"

#include "console.h"

namespace {

int last_key = 0; // a CR LF pair is one line break

int paste_key(console *c, action_fn action, int key) {
    if (action == action_paste_end) {
        c->state->modal = nullptr;
        return 1;
    }
    if (action == action_insert_char) {
        action_insert_char(c, key);
    } else if (key == 13 || (key == 10 && last_key != 13)) {
        if (buffer_insert_char(c, L'\n') != 0) {
            history_set_dirty(c);
            qv::screen_refresh(c, 0);
        }
    }
    last_key = key;
    return 1; // nothing in a paste runs a command
}

} // namespace

void action_paste_begin(console *c, int) {
    if (!c->state) return;
    last_key = 0;
    c->state->modal = paste_key;
}

void action_paste_end(console *, int) {}
