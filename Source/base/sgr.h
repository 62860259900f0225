/* Colour in text the host hands over: SGR sequences (ESC [ ... m) and
   readline's \001 ... \002 markers around what takes no room, turned into
   a style for each character that is left. Library-internal. */
#ifndef QUORVEL_SGR_H
#define QUORVEL_SGR_H

#ifdef __cplusplus
#include <cstdint>
#include <cwchar>

namespace qv {

// Takes the styling out of text in place: SGR sequences, and everything
// between \001 and \002 (whose SGR sequences still count), leaving what
// takes cells. Answers a malloc'ed style for each character left, or NULL
// when there was no styling (or no memory: the text is then shown bare).
uint32_t *take_styles(wchar_t *text);

// The style after one SGR sequence's parameters (digits and ';').
uint32_t apply_sgr(uint32_t style, const wchar_t *params, int n);

} // namespace qv
#endif

#endif
