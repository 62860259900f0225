/* The Unix terminal driver, gathered for hosts that include it whole: terminal
   output and capabilities, terminal modes, key input, the default bindings and
   the text conversions each have a header of their own. */
#ifndef QUORVEL_OS_UNIX_H
#define QUORVEL_OS_UNIX_H

#include "bindings.h"
#include "input.h"
#include "output.h"
#include "text.h"
#include "ttymode.h"

#endif
