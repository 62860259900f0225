/* Completion menus: readline's menu-complete, which puts each candidate in
   place in turn, and the menu of TERM_OPTION_COMPLETION_MENU, which does so
   with the candidates listed below the input, the chosen one marked, and
   takes the keys that move through them. */
#ifndef QUORVEL_MENU_H
#define QUORVEL_MENU_H
#include "quorvel.h"
#include "keymap.h"
#ifdef __cplusplus
extern "C" {
#endif
struct console;
/* readline's menu-complete: each press puts in the next candidate (the
   previous, backward), then the text as typed, and round again. */
void action_menu_complete(struct console *c, int key);
void action_menu_complete_backward(struct console *c, int key);
#ifdef __cplusplus
}
#ifdef QUORVEL_INTERNAL
namespace qv {
struct MenuState;
MenuState *menu_new();
void menu_free(MenuState *m);
/* Tab found several candidates and the option wants a menu: opens it on
   the first. */
void menu_open(struct console *c);
/* Whether a menu is open: its keys go to menu_key() first. */
bool menu_active(const struct console *c);
/* A key while the menu is open (tab: its action is Tab's completion): true
   when the menu took it; otherwise the menu has ended, its choice in place,
   and the key acts as usual. */
bool menu_key(struct console *c, action_fn action, int key, bool tab);
/* Ends the menu, its listing erased; restore: the text as before it. */
void menu_end(struct console *c, bool restore);
} // namespace qv
#endif
#endif
#endif
