// Completion menus. Both put the candidates in place one at a time, the text
// as typed between the last and the first. The option's menu and a
// menu-complete with more than one candidate also list the candidates below
// the input, the one in place marked, in rows that scroll with the choice
// when there are more than the terminal has room for; the listing is part
// of the input area, so it goes when the menu does and never reaches the
// scrollback.
#include "menu.h"

#include <cstdlib>
#include <cwchar>
#include <memory>

#include "actions.h"
#include "below.h"
#include "candidates.h"
#include "console_record.h"
#include "editkeys.h"
#include "frame.h"
#include "options.h"
#include "variables.h"
#include "view.h"

#if QV_WITH_COMPLETION_MENU

struct qv::MenuState {
    Candidates *list;
    int at;        // the candidate in place; list->count: the text as typed
    int from, len; // the stretch the candidates replace, and its length now
    wchar_t *typed;
    int typed_len;
    bool open;      // listed below the input, and taking the keys
    bool selecting; // the option's menu: Return takes the choice
    int top;        // the first row of the listing shown
};

namespace {

qv::MenuState *of(const console *c) { return c->state ? c->state->menu : nullptr; }

void forget(qv::MenuState *m) {
    qv::drop_candidates(m->list);
    m->list = nullptr;
    free(m->typed);
    m->typed = nullptr;
    m->open = false;
}

// The listing below the input, the choice marked and in view.
void show(console *c, qv::MenuState *m) {
    const int chosen = m->at < m->list->count ? m->at : -1;
    const qv::CandidateGrid g = qv::candidates_grid(c, *m->list, chosen);
    if (g.rows <= 0) return;
    // Room below the input, and a row to spare so that the input's own rows
    // stay on the screen.
    int room = c->screen.rows - qv::view_input_rows(c) - 1;
    if (room < 1) room = 1;
    if (room > g.rows) room = g.rows;
    if (chosen >= 0) {
        const int row = g.row_of(chosen);
        if (row < m->top) m->top = row;
        if (row >= m->top + room) m->top = row - room + 1;
    }
    if (m->top > g.rows - room) m->top = g.rows - room;
    if (m->top < 0) m->top = 0;
    const int from = g.row_starts[static_cast<size_t>(m->top)];
    const int end = m->top + room < g.rows ? g.row_starts[static_cast<size_t>(m->top + room)]
                                           : static_cast<int>(g.text.size());
    qv::below_set(c, g.text.data() + from, g.styles.data() + from, end - from);
}

// Starts a menu on the candidates Tab finds now; false when there are none.
bool start(console *c, qv::MenuState *m, int direction) {
    forget(m);
    int from = 0;
    m->list = qv::takeable_candidates(c, &from);
    if (!m->list) return false;
    qv::tidy_candidates(*m->list);
    const int cursor = static_cast<int>(c->editor.cursor - c->editor.buffer);
    m->typed_len = cursor - from;
    m->typed = static_cast<wchar_t *>(malloc(sizeof(wchar_t) * (static_cast<size_t>(m->typed_len) + 1)));
    if (!m->typed) {
        forget(m);
        return false;
    }
    wmemcpy(m->typed, c->editor.buffer + from, static_cast<size_t>(m->typed_len));
    m->from = from;
    m->len = m->typed_len;
    m->at = direction > 0 ? -1 : m->list->count;
    m->top = 0;
    // readline's menu-complete-display-prefix: the first press puts in what
    // the candidates share, and the round starts from there.
    if (!m->selecting && qv::variable_on(c, "menu-complete-display-prefix")) {
        const qv::Candidates &l = *m->list;
        int common = l.items[0].start == from ? l.items[0].len : 0;
        for (int i = 1; i < l.count; i++) {
            int k = 0;
            while (k < common && k < l.items[i].len && l.items[i].start == from && l.items[i].text[k] == l.items[0].text[k])
                k++;
            common = l.items[i].start == from ? k : 0;
        }
        if (common >= m->typed_len) {
            auto *grown = static_cast<wchar_t *>(realloc(m->typed, sizeof(wchar_t) * (static_cast<size_t>(common) + 1)));
            if (grown) {
                m->typed = grown;
                wmemcpy(m->typed, l.items[0].text, static_cast<size_t>(common));
                m->typed_len = common;
            }
        }
        m->at = direction > 0 ? l.count - 1 : 0;
    }
    m->open = m->list->count > 1;
    return true;
}

// Whether the stretch the menu replaces is still in the line: the host may
// set the line from a callback while a menu is open.
bool in_line(const console *c, const qv::MenuState *m) {
    const int len = c->editor.buffer ? static_cast<int>(c->editor.lastchar - c->editor.buffer) : -1;
    return m->from >= 0 && m->len >= 0 && m->from + m->len <= len;
}

// Puts candidate `at` (count: the text as typed) in place.
void put(console *c, qv::MenuState *m, int at) {
    if (!in_line(c, m)) return;
    m->at = at;
    const bool typed = at == m->list->count;
    const qv::Candidate &cand = m->list->items[typed ? 0 : at];
    // A candidate's start may lie after the stretch's: the text between stays.
    const int head = typed ? 0 : cand.start - m->from;
    std::unique_ptr<wchar_t, decltype(&free)> text(
        static_cast<wchar_t *>(malloc(sizeof(wchar_t) * (static_cast<size_t>(head + cand.len) + 1))), &free);
    if (!text) return;
    if (typed) {
        wmemcpy(text.get(), m->typed, static_cast<size_t>(m->typed_len));
    } else {
        wmemcpy(text.get(), m->typed, static_cast<size_t>(head < m->typed_len ? head : m->typed_len));
        wmemcpy(text.get() + head, cand.text, static_cast<size_t>(cand.len));
    }
    m->len = qv::replace_stretch(c, m->from, m->len, text.get(), typed ? m->typed_len : head + cand.len, !typed);
    if (m->open && c->editor.buffer) show(c, m);
}

// The next candidate (the previous, backward), past the last the text as
// typed, and round again.
void step(console *c, qv::MenuState *m, int direction) {
    const int n = m->list->count + 1;
    put(c, m, ((m->at + direction) % n + n) % n);
}

// An arrow key: the candidate beside the chosen one in the listing's grid,
// round at the edges.
void move(console *c, qv::MenuState *m, int rows, int places) {
    const qv::CandidateGrid g = qv::candidates_grid(c, *m->list, -1);
    if (m->at >= m->list->count) {
        put(c, m, 0);
        return;
    }
    int r = g.row_of(m->at), k = g.place_of(m->at);
    for (int tries = 0; tries < g.rows * g.per_row + 1; tries++) {
        r = ((r + rows) % g.rows + g.rows) % g.rows;
        k = ((k + places) % g.per_row + g.per_row) % g.per_row;
        const int i = g.item_at(r, k);
        // A gap in the last row or column: on the same way past it.
        if (i >= 0) {
            put(c, m, i);
            return;
        }
    }
}

void menu_step(console *c, int direction) {
    qv::MenuState *m = of(c);
    if (!qv::has_completer() || !c->editor.buffer || !m || c->masked) return;
    const action_fn last = qv::frame_last_action(c);
    if (!m->list || !in_line(c, m) || (last != action_menu_complete && last != action_menu_complete_backward)) {
        m->selecting = false;
        if (!start(c, m, direction)) return;
    }
    step(c, m, direction);
}

} // namespace

void action_menu_complete(console *c, int) { menu_step(c, 1); }

void action_menu_complete_backward(console *c, int) { menu_step(c, -1); }

qv::MenuState *qv::menu_new() { return static_cast<MenuState *>(calloc(1, sizeof(MenuState))); }

void qv::menu_free(MenuState *m) {
    if (m) forget(m);
    free(m);
}

void qv::menu_open(console *c) {
    MenuState *m = of(c);
    if (!m) return;
    m->selecting = true;
    if (start(c, m, 1)) step(c, m, 1);
}

bool qv::menu_active(const console *c) {
    const MenuState *m = of(c);
    return m && m->open;
}

void qv::menu_end(console *c, bool restore) {
    MenuState *m = of(c);
    if (!m || !m->list) return;
    if (restore && c->editor.buffer) put(c, m, m->list->count);
    forget(m);
    below_clear(c);
}

bool qv::menu_key(console *c, action_fn action, int key, bool tab) {
    MenuState *m = of(c);
    if (!m || !m->open || !c->editor.buffer) return false;
    if (!in_line(c, m)) {
        menu_end(c, false); // the line changed under the menu: it has nothing left to choose in
        return false;
    }
    if (tab || action == action_menu_complete) {
        step(c, m, 1);
    } else if (action == action_menu_complete_backward) {
        step(c, m, -1);
    } else if (action == action_key_down || action == action_key_up) {
        move(c, m, action == action_key_down ? 1 : -1, 0);
    } else if (action == action_key_right || action == action_key_left) {
        move(c, m, 0, action == action_key_right ? 1 : -1);
    } else if (action == action_abandon_input || (!action && key == 27)) {
        menu_end(c, true);
    } else if (action == action_key_return && m->selecting) {
        menu_end(c, false);
    } else {
        menu_end(c, false);
        return false;
    }
    return true;
}

#else // a build without the completion menu: Tab lists, as without the option

struct qv::MenuState {};

qv::MenuState *qv::menu_new() { return static_cast<MenuState *>(calloc(1, sizeof(MenuState))); }
void qv::menu_free(MenuState *m) { free(m); }
void qv::menu_open(console *) {}
bool qv::menu_active(const console *) { return false; }
void qv::menu_end(console *, bool) {}
bool qv::menu_key(console *, action_fn, int, bool) { return false; }
void action_menu_complete(console *, int) {}
void action_menu_complete_backward(console *, int) {}

#endif
