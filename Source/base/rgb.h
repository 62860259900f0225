/* 24-bit colours in the style word. The colour fields hold 1 to 256 for the
   palette; 257 to 511 name an entry of a process-wide table of RGB colours,
   so that a style stays one 32-bit word. Library-internal. */
#ifndef QUORVEL_RGB_H
#define QUORVEL_RGB_H

#ifdef __cplusplus
#include <cstdint>

namespace qv {

constexpr uint32_t kRgbFirst = 257; // the colour field of the table's first entry
constexpr int kRgbEntries = 255;

/* The colour field for 0xRRGGBB: its table entry, made on first use; once
   the table is full, the nearest colour of the 256-colour palette. */
uint32_t rgb_field(uint32_t rgb);
/* Whether a colour field names a table entry, and its 0xRRGGBB. */
inline bool is_rgb_field(uint32_t field) { return field >= kRgbFirst && field < kRgbFirst + kRgbEntries; }
uint32_t rgb_of(uint32_t field);
/* The nearest palette index: of the 256 colours (xterm's cube and greys), or
   of the 16 basic ones. */
int nearest_256(uint32_t rgb);
int nearest_16(uint32_t rgb);

} // namespace qv
#endif

#endif
