// UTF-8 conversions. They switch the calling thread's locale only
// (newlocale/uselocale), so the host's other threads never see a switch and
// the host's own locale setting stays as it was.
#include "text.h"

#include <climits>
#include <cstdint>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwctype>

#include <pthread.h>
#include <utf8proc.h>

namespace {

// Made once for the process, through pthread_once rather than a function
// static: a C host linking the static library then needs no C++ runtime
// support for it.
locale_t utf8 = static_cast<locale_t>(0);
pthread_once_t utf8_once = PTHREAD_ONCE_INIT;

extern "C" void make_utf8_locale(void) {
    utf8 = newlocale(LC_CTYPE_MASK, "C.utf-8", static_cast<locale_t>(0));
    if (!utf8) utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
}

locale_t utf8_locale() {
    pthread_once(&utf8_once, make_utf8_locale);
    return utf8;
}

class Utf8Scope {
  public:
    Utf8Scope() : loc_(utf8_locale()) {
        if (loc_) prev_ = uselocale(loc_);
    }
    ~Utf8Scope() {
        if (loc_) uselocale(prev_);
    }
    Utf8Scope(const Utf8Scope &) = delete;
    Utf8Scope &operator=(const Utf8Scope &) = delete;

  private:
    locale_t loc_;
    locale_t prev_ = static_cast<locale_t>(0);
};

} // namespace

wchar_t *cp2wchar(console *, const char *s, int *count) {
    if (!s) return nullptr;
    Utf8Scope utf8;
    const size_t n = mbstowcs(nullptr, s, 0);
    if (n == static_cast<size_t>(-1) || n == 0) return nullptr;
    auto *w = static_cast<wchar_t *>(malloc((n + 1) * sizeof(wchar_t)));
    if (!w) return nullptr;
    const size_t r = mbstowcs(w, s, n + 1);
    if (r == static_cast<size_t>(-1)) {
        free(w);
        return nullptr;
    }
    w[r] = 0;
    if (count) *count = static_cast<int>(r);
    return w;
}

char *wchar2cp(console *, const wchar_t *s, int count) {
    if (!s || count <= 0) return nullptr;
    // Plain ASCII, the common run, needs no conversion state at all.
    int ascii = 0;
    while (ascii < count && s[ascii] > 0 && s[ascii] < 0x80) ascii++;
    if (ascii == count || (ascii > 0 && s[ascii] == 0)) {
        auto *out = static_cast<char *>(malloc(static_cast<size_t>(ascii) + 1));
        if (!out) return nullptr;
        for (int i = 0; i < ascii; i++) out[i] = static_cast<char>(s[i]);
        out[ascii] = 0;
        return out;
    }
    Utf8Scope utf8;
    char unit[MB_LEN_MAX];
    size_t bytes = 0;
    mbstate_t st{};
    int n = 0;
    for (; n < count && s[n] != 0; n++) {
        const size_t r = wcrtomb(unit, s[n], &st);
        if (r == static_cast<size_t>(-1)) return nullptr;
        bytes += r;
    }
    if (bytes == 0) return nullptr;
    auto *out = static_cast<char *>(malloc(bytes + 1));
    if (!out) return nullptr;
    st = mbstate_t{};
    size_t pos = 0;
    for (int i = 0; i < n; i++) pos += wcrtomb(out + pos, s[i], &st);
    out[pos] = 0;
    return out;
}

char *qv::utf8_of(const wchar_t *s, int count) {
    Utf8Scope utf8;
    // At most four bytes a character; what UTF-8 cannot hold becomes U+FFFD.
    auto *out = static_cast<char *>(malloc(static_cast<size_t>(count > 0 ? count : 0) * 4 + 1));
    if (!out) return nullptr;
    size_t pos = 0;
    mbstate_t st{};
    for (int i = 0; i < count; i++) {
        const size_t r = wcrtomb(out + pos, s[i], &st);
        if (r == static_cast<size_t>(-1)) {
            st = mbstate_t{};
            pos += wcrtomb(out + pos, L'\uFFFD', &st);
        } else {
            pos += r;
        }
    }
    out[pos] = 0;
    return out;
}

bool qv::utf8_valid(const char *s, size_t n) {
    size_t i = 0;
    while (i < n && static_cast<unsigned char>(s[i]) - 1u < 0x7Fu) i++; // ASCII but NUL
    if (i == n) return true;
    Utf8Scope utf8;
    mbstate_t st{};
    while (i < n) {
        wchar_t wc;
        const size_t r = mbrtowc(&wc, s + i, n - i, &st);
        if (r == 0 || r == static_cast<size_t>(-1) || r == static_cast<size_t>(-2)) return false;
        i += r;
    }
    return true;
}

wchar_t *qv::utf8_decode(const char *s, size_t n, int *count) {
    auto *w = static_cast<wchar_t *>(malloc((n + 1) * sizeof(wchar_t)));
    if (!w) return nullptr;
    size_t k = 0, i = 0;
    for (; i < n && static_cast<unsigned char>(s[i]) < 0x80; i++) w[k++] = static_cast<wchar_t>(s[i]);
    if (i < n) {
        Utf8Scope utf8;
        mbstate_t st{};
        while (i < n) {
            const size_t r = mbrtowc(&w[k], s + i, n - i, &st);
            if (r == 0 || r == static_cast<size_t>(-1) || r == static_cast<size_t>(-2)) {
                free(w);
                return nullptr;
            }
            i += r;
            k++;
        }
    }
    w[k] = 0;
    if (count) *count = static_cast<int>(k);
    return w;
}

bool qv::cluster_break_slow(wchar_t prev, wchar_t ch, int *state) {
    utf8proc_int32_t s = *state;
    const bool breaks = utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(prev),
                                                         static_cast<utf8proc_int32_t>(ch), &s);
    *state = breaks ? 0 : s;
    return breaks;
}

namespace {

bool is_control(wchar_t ch) {
    wchar_t form[4];
    return qv::control_form(ch, form) > 0;
}

bool plain(wchar_t ch) { return static_cast<unsigned>(ch) >= 32 && static_cast<unsigned>(ch) < 127; }

} // namespace

int qv::cluster_end(const wchar_t *s, int o, int end) {
    int e = o + 1, state = 0;
    while (e < end && !is_control(s[e]) && !is_control(s[e - 1]) && !cluster_break(s[e - 1], s[e], &state)) e++;
    return e;
}

// Clusters are found forwards, from a place where one surely starts: a
// printable ASCII character after another or after a control character (no
// rule joins those), or the text's start. Text in ASCII finds one at once.
int qv::cluster_start(const wchar_t *s, int o) {
    int from = o - 1;
    while (from > 0 && !(plain(s[from]) && (plain(s[from - 1]) || is_control(s[from - 1])))) from--;
    int start = from;
    for (int k = from; k < o;) {
        start = k;
        k = cluster_end(s, k, o);
    }
    return start;
}

bool qv::cluster_unsure(const wchar_t *s, int n) {
    for (int i = 1; i < n; i++) {
        const auto u = static_cast<uint32_t>(s[i]);
        if (u == 0x200D || u == 0xFE0E || u == 0xFE0F || (u >= 0x1F3FB && u <= 0x1F3FF)) return true;
    }
    return false;
}

bool qv::is_word_char(wchar_t ch) {
    const auto u = static_cast<uint32_t>(ch);
    if (u < 128) return (u >= '0' && u <= '9') || (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z');
    Utf8Scope utf8;
    return iswalnum(static_cast<wint_t>(ch)) != 0;
}

wchar_t qv::other_case(wchar_t ch) {
    Utf8Scope utf8;
    const auto w = static_cast<wint_t>(ch);
    return static_cast<wchar_t>(iswupper(w) ? towlower(w) : towupper(w));
}

int qv::display_width_slow(wchar_t ch) {
    Utf8Scope utf8;
    return wcwidth(ch);
}

int qv::control_form_slow(wchar_t ch, wchar_t out[4]) {
    // wchar_t is signed on x86 and unsigned on ARM: compare as unsigned.
    const auto u = static_cast<uint32_t>(ch);
    if (u < 32 || u == 127) {
        out[0] = L'^';
        out[1] = static_cast<wchar_t>(u ^ 0x40);
        return 2;
    }
    if (u >= 0x80 && u < 0xA0) {
        static const wchar_t hex[] = L"0123456789abcdef";
        out[0] = L'\\';
        out[1] = L'x';
        out[2] = hex[u >> 4];
        out[3] = hex[u & 15];
        return 4;
    }
    return 0;
}

wchar_t *qv::visible_of(const char *s, int *n) {
    const auto *p = reinterpret_cast<const unsigned char *>(s);
    const size_t len = strlen(s);
    auto *out = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * (4 * len + 1)));
    if (!out) return nullptr;
    int k = 0;
    for (size_t i = 0; i < len;) {
        const unsigned b = p[i];
        const int need = b < 0x80 ? 0 : b >= 0xC2 && b <= 0xDF ? 1 : b >= 0xE0 && b <= 0xEF ? 2 : b >= 0xF0 && b <= 0xF4 ? 3 : -1;
        unsigned cp = need <= 0 ? b : b & (0x3Fu >> need);
        bool ok = need == 0 || (need > 0 && i + static_cast<size_t>(need) < len);
        for (int j = 1; ok && j <= need; j++) {
            const unsigned c = p[i + static_cast<size_t>(j)];
            ok = qv::utf8_follows(b, j - 1, c);
            cp = cp << 6 | (c & 0x3F);
        }
        if (ok) {
            out[k++] = static_cast<wchar_t>(cp);
            i += static_cast<size_t>(need) + 1;
        } else {
            static const wchar_t hex[] = L"0123456789abcdef";
            out[k++] = L'\\';
            out[k++] = L'x';
            out[k++] = hex[b >> 4];
            out[k++] = hex[b & 15];
            i++;
        }
    }
    out[k] = 0;
    *n = k;
    return out;
}

void get_os_encoding(console *) {}

int file_exists(const char *) { return 0; }
