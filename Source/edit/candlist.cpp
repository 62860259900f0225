// Candidates laid out for the eye. Every width is in cells, as the terminal
// draws them: wide characters take two, marks none, a control character its
// caret form.
#include "candlist.h"

#include "highlight.h"
#include "termline.h"
#include "text.h"

namespace {

constexpr wchar_t kEllipsis = 0x2026;

struct Row {
    qv::CandidateGrid &g;
    int cells = 0;
    void put(wchar_t ch, uint32_t style) {
        g.text.push_back(ch);
        g.styles.push_back(style);
    }
    // Up to limit cells of s, each character as it is shown; an ellipsis
    // takes the last cell when the rest does not fit.
    void text(const wchar_t *s, int n, int limit, uint32_t style, int styled = 0, uint32_t head_style = 0) {
        int total = 0;
        for (int i = 0; i < n; i++) total += char_width(s[i]);
        const bool cut = cells + total > limit;
        for (int i = 0; i < n; i++) {
            const int w = char_width(s[i]);
            if (cut && cells + w > limit - 1) break;
            const uint32_t look = i < styled ? qv::style_over(style, head_style) : style;
            wchar_t form[4];
            if (const int f = qv::control_form(s[i], form))
                for (int k = 0; k < f; k++) put(form[k], look);
            else
                put(s[i], look);
            cells += w;
        }
        if (cut && cells < limit) {
            put(kEllipsis, style);
            cells++;
        }
    }
    void pad(int to, uint32_t style) {
        while (cells < to) {
            put(L' ', style);
            cells++;
        }
    }
    void end() {
        g.text.push_back(L'\n');
        g.styles.push_back(0);
    }
};

int cells_of(const wchar_t *s, int n) {
    int cells = 0;
    for (int i = 0; i < n; i++) cells += char_width(s[i]);
    return cells;
}

// The grid, or an empty one when memory ran out on the way.
qv::CandidateGrid whole(qv::CandidateGrid &&g) {
    if (g.text.failed() || g.styles.failed() || g.row_starts.failed()) return qv::CandidateGrid{};
    return std::move(g);
}

} // namespace

qv::CandidateGrid qv::lay_out_candidates(const ShownItem *items, int n, int cols, int prefix, bool across, int selected,
                                         uint32_t prefix_look, uint32_t selected_look, uint32_t description_look) {
    CandidateGrid g;
    g.count = n;
    g.across = across;
    if (n <= 0) return g;
    int widest = 1;
    bool described = false;
    for (int i = 0; i < n; i++) {
        const int w = cells_of(items[i].display, items[i].display_len) + (items[i].elided ? 3 : 0);
        if (w > widest) widest = w;
        described = described || items[i].description_len > 0;
    }
    // Never the last column: a row that fills it would wait to wrap.
    const int room = cols > 1 ? cols - 1 : 1;
    auto item = [&](Row &row, int i, int width) {
        const uint32_t look = i == selected ? selected_look : 0;
        const int limit = row.cells + width;
        if (items[i].elided) row.text(L"...", 3, limit, look, 3, prefix_look);
        row.text(items[i].display, items[i].display_len, limit, look, items[i].elided ? 0 : prefix, prefix_look);
    };
    if (described) {
        // One a row: the displays padded to one width, then " -- " and the
        // description in what is left.
        const int width = widest < room ? widest : room;
        static const wchar_t kSep[] = L"  -- ";
        g.rows = n;
        for (int i = 0; i < n; i++) {
            g.row_starts.push_back(static_cast<int>(g.text.size()));
            Row row{g};
            const int start = row.cells;
            item(row, i, width);
            row.pad(start + width, i == selected ? selected_look : 0);
            if (items[i].description_len > 0 && row.cells + 5 + 4 <= room) {
                row.text(kSep, 5, room, description_look);
                row.text(items[i].description, items[i].description_len, room, description_look);
            }
            row.end();
        }
        return whole(std::move(g));
    }
    const int width = widest + 2;
    g.per_row = cols / width > 0 ? cols / width : 1;
    g.rows = (n + g.per_row - 1) / g.per_row;
    for (int r = 0; r < g.rows; r++) {
        g.row_starts.push_back(static_cast<int>(g.text.size()));
        Row row{g};
        for (int k = 0; k < g.per_row; k++) {
            const int i = g.item_at(r, k);
            if (i < 0) break;
            const bool last = k + 1 == g.per_row || g.item_at(r, k + 1) < 0;
            const int start = row.cells;
            const int limit = width - 2 < room - start ? width - 2 : room - start;
            item(row, i, limit > 1 ? limit : 1);
            if (i == selected) row.pad(start + width - 2, selected_look);
            if (!last) row.pad(start + width, 0);
        }
        row.end();
    }
    return whole(std::move(g));
}
