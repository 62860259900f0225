/* How completion candidates are shown: in columns, or one a row with their
   descriptions beside them, in the listing's looks. A pure function of the
   candidates and the width, for the plain listing and the menu alike.
   Library-internal. */
#ifndef QUORVEL_CANDLIST_H
#define QUORVEL_CANDLIST_H

#ifdef __cplusplus
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace qv {

/* A growing array on malloc: running out of memory marks it failed instead
   of throwing through the library's C calls. */
template <typename T> class Buf {
  public:
    Buf() = default;
    Buf(const Buf &) = delete;
    Buf &operator=(const Buf &) = delete;
    Buf(Buf &&o) noexcept : p_(std::exchange(o.p_, nullptr)), n_(o.n_), cap_(o.cap_), failed_(o.failed_) {}
    ~Buf() { free(p_); }
    void push_back(T v) {
        if (failed_) return;
        if (n_ == cap_) {
            const size_t cap = cap_ ? cap_ * 2 : 64;
            T *grown = static_cast<T *>(realloc(p_, sizeof(T) * cap));
            if (!grown) {
                failed_ = true;
                return;
            }
            p_ = grown;
            cap_ = cap;
        }
        p_[n_++] = v;
    }
    T *data() { return p_; }
    const T *data() const { return p_; }
    size_t size() const { return n_; }
    bool empty() const { return n_ == 0; }
    bool failed() const { return failed_; }
    const T &operator[](size_t i) const { return p_[i]; }

  private:
    T *p_ = nullptr;
    size_t n_ = 0, cap_ = 0;
    bool failed_ = false;
};

struct ShownItem {
    const wchar_t *display;
    int display_len;
    const wchar_t *description; // NULL or empty: none
    int description_len;
    bool elided; // the display follows a shared prefix shown as "..."
};

struct CandidateGrid {
    Buf<wchar_t> text;    // the rows, each ended by a line feed
    Buf<uint32_t> styles; // a style for each character of text
    Buf<int> row_starts;  // where each row starts in text
    int rows = 0, per_row = 1, count = 0;
    bool across = false;
    // Where item i stands, and which item stands at row r, place k (-1:
    // none).
    int row_of(int i) const { return across ? i / per_row : i % rows; }
    int place_of(int i) const { return across ? i % per_row : i / rows; }
    int item_at(int r, int k) const {
        const int i = across ? r * per_row + k : k * rows + r;
        return r >= 0 && r < rows && k >= 0 && k < per_row && i < count ? i : -1;
    }
};

/* Lays out n items in rows of fewer than cols cells: in columns, down them
   or across (readline's print-completions-horizontally), or, when any item
   has a description, one a row with the descriptions aligned after them.
   What does not fit is cut with an ellipsis. The first prefix characters of
   each display take the prefix look (an elided prefix's "..." takes it
   instead); item selected (-1: none) the selection look. Without memory
   for it all, the grid is empty. */
CandidateGrid lay_out_candidates(const ShownItem *items, int n, int cols, int prefix, bool across, int selected,
                                 uint32_t prefix_look, uint32_t selected_look, uint32_t description_look);

} // namespace qv
#endif

#endif
