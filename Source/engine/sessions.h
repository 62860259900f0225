/* Sessions beyond the default one: term_open(), term_close(), term_use(),
   term_current() and term_setSize() (quorvel.h). Library-internal. */
#ifndef QUORVEL_SESSIONS_H
#define QUORVEL_SESSIONS_H

#include "quorvel.h"

#endif
