// The configuration entry point. Nothing is loaded here: the one setting,
// "logging", is read by read_config_file in the logger module.
#include "config.h"

void config_file_load(void *, void *) {}
