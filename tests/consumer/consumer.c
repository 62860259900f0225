/* A host outside the source tree, built against an installed Quorvel. */
#include <quorvel.h>
#include <quorvel/keymap.h>
#include <stdio.h>

int main(void) {
    term_options options = {".", 0, {0}};
    keymap_entry *map = keymap_new();
    if (!map || !term_init(&options)) return 1;
    keymap_delete(map);
    printf("width %d\n", term_getConsoleWidth());
    term_destroy();
    printf("quorvel ok\n");
    return 0;
}
