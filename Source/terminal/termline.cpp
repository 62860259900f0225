// Cells and rows of the screen model.
#include "termline.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "text.h"

termline *termline_new(int n, const termchar *fill) {
    if (n < 0) n = 0;
    auto *line = static_cast<termline *>(malloc(sizeof(termline)));
    if (!line) return nullptr;
    // One spare cell so that a zero-width row still owns a block.
    line->chars = static_cast<termchar *>(malloc(sizeof(termchar) * (static_cast<size_t>(n) + 1)));
    if (!line->chars) {
        free(line);
        return nullptr;
    }
    for (int i = 0; i < n; i++) line->chars[i] = *fill;
    line->lflags = 0;
    line->cols = n;
    line->size = n;
    line->last = 0;
    line->firstcol = 0;
    return line;
}

void termline_free(termline *line) {
    if (!line) return;
    free(line->chars);
    free(line);
}

void termline_erase(termline *line, const termchar *fill) {
    for (int i = 0; i < line->size; i++) line->chars[i] = *fill;
    line->last = 0;
    line->firstcol = 0;
    line->lflags = 0;
}

void termline_erase_after(termline *line, const termchar *fill, int k) {
    if (k < 0) k = 0;
    for (int i = k; i < line->size; i++) line->chars[i] = *fill;
    line->last = k;
    line->lflags = 0;
}

// Cells past the width (size - cols of them) travel with the right edge, so
// they are moved before a shrink and after a growth.
void termline_resize(termline *line, int n, const termchar *fill) {
    if (n == line->cols || n < 0) return;
    const int old = line->cols;
    const int extra = line->size - line->cols;
    const int newsize = line->size + (n - old);
    if (n > old) {
        auto *cells = static_cast<termchar *>(
            realloc(line->chars, sizeof(termchar) * (static_cast<size_t>(newsize) + 1)));
        if (!cells) return;
        line->chars = cells;
        if (extra > 0) memmove(&cells[n], &cells[old], sizeof(termchar) * extra);
        for (int i = old; i < n; i++) cells[i] = *fill;
    } else {
        if (extra > 0) memmove(&line->chars[n], &line->chars[old], sizeof(termchar) * extra);
        // A failed shrink keeps the larger block, which is harmless.
        auto *cells = static_cast<termchar *>(
            realloc(line->chars, sizeof(termchar) * (static_cast<size_t>(newsize) + 1)));
        if (cells) line->chars = cells;
    }
    line->size = newsize;
    line->cols = n;
}

termchar *termchar_copy(termchar *dst, const termchar *src) {
    dst->ch = src->ch;
    dst->attr = src->attr;
    return dst;
}

int termchars_equal(const termchar *a, const termchar *b) {
    return termchars_equal_override(a, b, b->ch, b->attr);
}

int termchars_equal_override(const termchar *a, const termchar *b, wchar_t ch, uint32_t attr) {
    return a->ch == ch && ((a->attr ^ attr) & 0x0FFFFFFFu) == 0 && a->style == b->style;
}

int char_width(wchar_t ch) {
    wchar_t form[4];
    if (const int n = qv::control_form(ch, form)) return n;
    const int w = qv::display_width(ch);
    return w < 0 ? 1 : w;
}
