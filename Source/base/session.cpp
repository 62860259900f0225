// The calling thread's session. Initial-exec: a signal handler may ask, and
// the pointer is read at every call that reaches a session's state.
#include "session.h"

namespace {
__attribute__((tls_model("initial-exec"))) thread_local qv::Session *current = nullptr;
}

qv::Session *qv::current_session() { return current; }

qv::Session *qv::use_session(Session *s) {
    Session *before = current;
    current = s;
    return before;
}
