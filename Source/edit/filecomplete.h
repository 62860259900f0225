/* File name completion, whatever the host completes: readline's
   complete-filename, and the rules its variables set. */
#ifndef QUORVEL_FILECOMPLETE_H
#define QUORVEL_FILECOMPLETE_H
#include "quorvel.h"
#ifdef __cplusplus
extern "C" {
#endif
struct console;
/* Tab's work with file names for candidates. */
void action_complete_filename(struct console *c, int key);
#ifdef __cplusplus
}
#endif
#endif
