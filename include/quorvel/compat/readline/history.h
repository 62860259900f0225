/* Lets a program written for GNU readline build unchanged on Quorvel's
   readline-compatible interface: see <quorvel/readline.h>. */
#include <quorvel/readline.h>
