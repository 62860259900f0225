// Key bytes read ahead from the standard input stream, for the host.
#include "prebuffer.h"

#include <cstdio>
#include <cstdlib>

#include "console_record.h"
#include "qv_assert.h"

void prebuffer_init(console *c) { c->prebuffer = prebuffer_t{nullptr, nullptr, 0, 0}; }

int prebuffer_count(console *c) { return c->prebuffer.count; }

int prebuffer_fill(console *c, int, int n) {
    prebuffer_t *b = &c->prebuffer;
    QV_ASSERT(b->buffer == NULL);
    b->len = n;
    b->count = 0;
    b->buffer = static_cast<int *>(malloc(sizeof(int) * (static_cast<size_t>(n > 0 ? n : 0) + 1)));
    if (!b->buffer) return 0;
    b->next = b->buffer;
    QV_ASSERT(b->next - b->buffer < b->len);
    for (int i = 0; i < n; i++) {
        // End of file arrives as 255, as the byte reader of the terminal does.
        b->buffer[i] = static_cast<unsigned char>(fgetc(stdin));
        b->count++;
    }
    b->buffer[n] = 0;
    return b->count;
}

int prebuffer_getchar(console *c) {
    prebuffer_t *b = &c->prebuffer;
    QV_ASSERT(b->count > 0);
    const int value = *b->next++;
    if (--b->count == 0) {
        free(b->buffer);
        b->buffer = nullptr;
        b->next = nullptr;
    }
    return value;
}
