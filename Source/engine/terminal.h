/* The terminal instance behind the term_* calls. */
#ifndef QUORVEL_TERMINAL_H
#define QUORVEL_TERMINAL_H

#include "console.h"
#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads one line into the console and answers it encoded (or NULL). */
char *do_readLine(console *c, const char *prompt);

#ifdef __cplusplus
}
#endif

#endif
