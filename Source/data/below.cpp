// Rows below the input. They are a copy, so that whoever set them may change
// or free its own text at any time.
#include "below.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "console_record.h"

struct qv::BelowState {
    wchar_t *text;
    uint32_t *styles;
    int len;
    unsigned version;
};

namespace {

qv::BelowState *of(const console *c) { return c && c->state ? c->state->below : nullptr; }

void empty(qv::BelowState *b) {
    free(b->text);
    free(b->styles);
    b->text = nullptr;
    b->styles = nullptr;
    b->len = 0;
}

} // namespace

qv::BelowState *qv::below_new() { return static_cast<BelowState *>(calloc(1, sizeof(BelowState))); }

void qv::below_free(BelowState *b) {
    if (b) empty(b);
    free(b);
}

bool qv::below_set(console *c, const wchar_t *text, const uint32_t *styles, int n) {
    BelowState *b = of(c);
    if (!b) return false;
    empty(b);
    b->version++;
    if (n <= 0) return true;
    b->text = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * static_cast<size_t>(n)));
    b->styles = static_cast<uint32_t *>(calloc(static_cast<size_t>(n), sizeof(uint32_t)));
    if (!b->text || !b->styles) {
        empty(b);
        return false;
    }
    wmemcpy(b->text, text, static_cast<size_t>(n));
    if (styles) memcpy(b->styles, styles, sizeof(uint32_t) * static_cast<size_t>(n));
    b->len = n;
    return true;
}

void qv::below_clear(console *c) {
    BelowState *b = of(c);
    if (!b || !b->len) return;
    empty(b);
    b->version++;
}

const wchar_t *qv::below_text(const console *c, int *len, const uint32_t **styles, unsigned *version) {
    const BelowState *b = of(c);
    if (version) *version = b ? b->version : 0;
    if (styles) *styles = b ? b->styles : nullptr;
    *len = b ? b->len : 0;
    return b && b->len ? b->text : nullptr;
}
