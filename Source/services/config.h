/* The configuration entry point kept for hosts; the reader of
   /tmp/Quorvel.conf is read_config_file in logger.h. */
#ifndef QUORVEL_CONFIG_H
#define QUORVEL_CONFIG_H

#include "quorvel.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Does nothing. */
QV_API void config_file_load(void *unused1, void *unused2);

#ifdef __cplusplus
}
#endif

#endif
