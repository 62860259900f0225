// vi's motions. A word is a run of letters and digits (any script) and
// underscores, or a run of other non-blanks; a big word is any run of
// non-blanks.
#include "vimotion.h"

#if QV_WITH_VI_MODE // nothing else moves by vi's rules

#include "text.h"

namespace {

enum Class { kBlank, kWord, kPunct };

Class class_of(wchar_t ch, bool big) {
    if (ch == L' ' || ch == L'\t' || ch == L'\n') return kBlank;
    if (big) return kWord;
    return ch == L'_' || qv::is_word_char(ch) ? kWord : kPunct;
}

// The cursor steps by grapheme cluster, as everywhere: a motion never
// lands inside one, and a cluster is of its base character's class.
int next(const qv::ViLine &l, int pos) { return pos < l.end ? qv::cluster_end(l.text, pos, l.end) : l.end; }
int prev(const qv::ViLine &l, int pos) {
    if (pos <= l.start) return l.start;
    const int p = qv::cluster_start(l.text, pos);
    return p < l.start ? l.start : p;
}

} // namespace

namespace qv {

int vi_next(const ViLine &l, int pos) { return next(l, pos); }
int vi_prev(const ViLine &l, int pos) { return prev(l, pos); }

int vi_next_word(const ViLine &l, int pos, bool big) {
    const wchar_t *t = l.text;
    if (pos >= l.end) return l.end;
    const Class k = class_of(t[pos], big);
    if (k != kBlank)
        while (pos < l.end && class_of(t[pos], big) == k) pos = next(l, pos);
    while (pos < l.end && class_of(t[pos], big) == kBlank) pos = next(l, pos);
    return pos;
}

int vi_word_end_at(const ViLine &l, int pos, bool big) {
    const Class k = class_of(l.text[pos], big);
    while (next(l, pos) < l.end && class_of(l.text[next(l, pos)], big) == k) pos = next(l, pos);
    return pos;
}

int vi_word_end(const ViLine &l, int pos, bool big) {
    const wchar_t *t = l.text;
    if (next(l, pos) >= l.end) return l.end > l.start ? prev(l, l.end) : l.start;
    pos = next(l, pos);
    while (pos < l.end && class_of(t[pos], big) == kBlank) pos = next(l, pos);
    if (pos >= l.end) return prev(l, l.end);
    return vi_word_end_at(l, pos, big);
}

int vi_word_start(const ViLine &l, int pos, bool big) {
    const wchar_t *t = l.text;
    if (pos <= l.start) return l.start;
    pos = prev(l, pos);
    while (pos > l.start && class_of(t[pos], big) == kBlank) pos = prev(l, pos);
    const Class k = class_of(t[pos], big);
    while (pos > l.start && class_of(t[prev(l, pos)], big) == k) pos = prev(l, pos);
    return pos;
}

int vi_first_nonblank(const ViLine &l) {
    int pos = l.start;
    while (pos < l.end && (l.text[pos] == L' ' || l.text[pos] == L'\t')) pos++;
    return pos;
}

// The character found is a cluster's base; t and T stop a cluster short.
int vi_find(const ViLine &l, int pos, int kind, wchar_t ch, bool again) {
    const bool forward = kind == 'f' || kind == 't';
    const bool till = kind == 't' || kind == 'T';
    // A repeated till starts one further, or it would stay where it is.
    const int skip = till && again ? 2 : 1;
    int i = pos;
    for (int k = 0; k < skip; k++) {
        if (forward ? i >= l.end : i <= l.start) return -1;
        i = forward ? next(l, i) : prev(l, i);
    }
    for (;;) {
        if (forward ? i >= l.end : i < l.start) return -1;
        if (l.text[i] == ch) return !till ? i : forward ? prev(l, i) : next(l, i);
        if (!forward && i == l.start) return -1;
        i = forward ? next(l, i) : prev(l, i);
    }
}

} // namespace qv

#endif
