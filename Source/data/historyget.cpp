// history_get() in an object file of its own: the readline-compatible
// library defines a history_get() of its own, and a static link of both
// then pulls in only the one the program calls. The library itself walks
// through qv::history_step().
#include "history.h"

history_line *history_get(console *c, int direction) {
    return qv::history_step(c, direction);
}
