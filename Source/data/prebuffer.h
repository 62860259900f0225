/* A small queue of key bytes read ahead from standard input, for the host. */
#ifndef QUORVEL_PREBUFFER_H
#define QUORVEL_PREBUFFER_H

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

struct console;

typedef struct prebuffer_t {
    int *buffer; /* len + 1 values, or NULL when empty */
    int *next;
    int len;
    int count; /* values not yet handed out */
} prebuffer_t;

QV_API void prebuffer_init(struct console *c);
QV_API int prebuffer_count(struct console *c);
/* Reads n >= 1 bytes with fgetc into an empty pre-buffer; answers n. */
QV_API int prebuffer_fill(struct console *c, int unused, int n);
/* The next value; requires prebuffer_count() > 0. */
QV_API int prebuffer_getchar(struct console *c);

#ifdef __cplusplus
}
#endif

#endif
