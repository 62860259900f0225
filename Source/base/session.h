/* Sessions: a terminal and the editor serving it. The modules below the
   engine keep what belongs to one terminal (its options, its description and
   output stream, its mode, its print queue, its input) in a record per
   session. The default session's records are each module's own static ones,
   so a process that never opens another session allocates nothing for them
   and behaves as it always has. A session's records are reached through the
   calling thread's current session, which the engine sets for the length of
   every call made for a session. Library-internal. */
#ifndef QUORVEL_SESSION_H
#define QUORVEL_SESSION_H

#ifdef __cplusplus
namespace qv {

enum SessionSlot : int {
    kSlotOptions,     /* options.cpp */
    kSlotOutput,      /* output.cpp */
    kSlotMode,        /* ttymode.cpp */
    kSlotPrinter,     /* printer.cpp */
    kSlotHistoryFile, /* historyfile.cpp */
    kSlotHighlight,   /* highlight.cpp */
    kSlotCompletion,  /* completion.cpp */
    kSlotInput,       /* input.cpp */
    kSlotTerminal,    /* terminal.cpp */
    kSlotCount
};

/* One session's records, by slot; a null slot is the default session's. */
struct Session {
    void *slot[kSlotCount];
};

/* The calling thread's session; null for the default one. */
Session *current_session();
/* Makes s (null: the default session) the calling thread's, answering the
   one it replaces. Safe in a signal handler. */
Session *use_session(Session *s);

/* The calling thread's record of a module: its session's, or the module's
   own for the default session. */
template <class T> inline T &session_record(SessionSlot k, T &own) {
    Session *s = current_session();
    T *mine = s ? static_cast<T *>(s->slot[k]) : nullptr;
    return mine ? *mine : own;
}

/* For the length of a scope, s is the calling thread's session. */
class SessionScope {
  public:
    explicit SessionScope(Session *s) : before_(use_session(s)) {}
    ~SessionScope() { use_session(before_); }
    SessionScope(const SessionScope &) = delete;
    SessionScope &operator=(const SessionScope &) = delete;

  private:
    Session *before_;
};

} // namespace qv
#endif

#endif
