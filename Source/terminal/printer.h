/* The print channel: text from any thread, queued while a line is read and
   drawn by the read loop above the input; and the wake-up that ends a read.
   The exported calls are term_print() and term_wake() (quorvel.h).
   Library-internal. */
#ifndef QUORVEL_PRINTER_H
#define QUORVEL_PRINTER_H

#include <stddef.h>

#ifdef __cplusplus
namespace qv {

/* Makes the descriptor a wake-up writes to, so that term_wake() needs
   nothing but a write() later; called by term_init(). */
void printer_init();
/* The descriptor the read loop waits on besides the terminal; -1: none. */
int printer_fd();

/* A read starts on this thread, before the terminal leaves the host's mode:
   prints are queued from now on. */
void printer_begin_read();
/* A wake-up was asked and not yet taken: cheap enough for every key. */
bool printer_wake_pending();
/* Empties the descriptor and answers a wake-up asked since the last call
   (consumed), or false. */
bool printer_take_wake();
/* Takes the text queued so far (a malloc'ed string the caller frees; NULL
   when nothing is queued) and lets waiting printers go on. */
char *printer_take(size_t *n);
/* The read has ended and the terminal is in the host's mode again: what is
   still queued is written (with the channel held, so no later print
   overtakes it), and prints are written at once again. */
void printer_end_read();

/* The text of one print, as the host gave it: whole lines, a line end added
   where the text has none. Used by term_print() and the logger's mirror. */
void printer_print(const char *text, size_t n);

/* Wakes the read loop to look at its state again, ending nothing. */
void printer_nudge();

/* Another session's channel, with its own pipe; null when none could be
   made. */
struct PrinterState;
PrinterState *printer_new();
void printer_free(PrinterState *p);

} // namespace qv
#endif

#endif
