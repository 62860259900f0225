// vi's motions. A word is a run of letters and digits (any script) and
// underscores, or a run of other non-blanks; a big word is any run of
// non-blanks.
#include "vimotion.h"

#include "text.h"

namespace {

enum Class { kBlank, kWord, kPunct };

Class class_of(wchar_t ch, bool big) {
    if (ch == L' ' || ch == L'\t' || ch == L'\n') return kBlank;
    if (big) return kWord;
    return ch == L'_' || qv::is_word_char(ch) ? kWord : kPunct;
}

} // namespace

namespace qv {

int vi_next_word(const ViLine &l, int pos, bool big) {
    const wchar_t *t = l.text;
    if (pos >= l.end) return l.end;
    const Class k = class_of(t[pos], big);
    if (k != kBlank)
        while (pos < l.end && class_of(t[pos], big) == k) pos++;
    while (pos < l.end && class_of(t[pos], big) == kBlank) pos++;
    return pos;
}

int vi_word_end(const ViLine &l, int pos, bool big) {
    const wchar_t *t = l.text;
    if (pos + 1 >= l.end) return l.end > l.start ? l.end - 1 : l.start;
    pos++;
    while (pos < l.end && class_of(t[pos], big) == kBlank) pos++;
    if (pos >= l.end) return l.end - 1;
    const Class k = class_of(t[pos], big);
    while (pos + 1 < l.end && class_of(t[pos + 1], big) == k) pos++;
    return pos;
}

int vi_word_start(const ViLine &l, int pos, bool big) {
    const wchar_t *t = l.text;
    if (pos <= l.start) return l.start;
    pos--;
    while (pos > l.start && class_of(t[pos], big) == kBlank) pos--;
    const Class k = class_of(t[pos], big);
    while (pos > l.start && class_of(t[pos - 1], big) == k) pos--;
    return pos;
}

int vi_first_nonblank(const ViLine &l) {
    int pos = l.start;
    while (pos < l.end && (l.text[pos] == L' ' || l.text[pos] == L'\t')) pos++;
    return pos;
}

int vi_find(const ViLine &l, int pos, int kind, wchar_t ch, bool again) {
    const bool forward = kind == 'f' || kind == 't';
    const bool till = kind == 't' || kind == 'T';
    // A repeated till starts one further, or it would stay where it is.
    const int skip = till && again ? 2 : 1;
    if (forward) {
        for (int i = pos + skip; i < l.end; i++)
            if (l.text[i] == ch) return till ? i - 1 : i;
    } else {
        for (int i = pos - skip; i >= l.start; i--)
            if (l.text[i] == ch) return till ? i + 1 : i;
    }
    return -1;
}

} // namespace qv
