/*
 * Quorvel: colour, looks and the highlighter. Part of <quorvel.h>, which includes it where it stands;
 * a host includes <quorvel.h>, never this file alone.
 */
#ifndef QUORVEL_COLOUR_H
#define QUORVEL_COLOUR_H

#ifndef QUORVEL_H
#error "include <quorvel.h>, which includes this file"
#endif

/* ---------------------------------------------------------------------------
   Colour. A style is an OR of at most one TERM_FG(n), at most one
   TERM_BG(n) (n from 0 to 255: the terminal's palette, 0-7 the basic
   colours, 8-15 their bright forms) and any of the flags; 0 is the
   terminal's default. A terminal without a colour or an attribute shows
   what it has: a palette colour past its range falls back to the basic
   colour it brightens (8-15) or to none, a missing attribute to none. */
#define TERM_FG(n) ((((unsigned)(n)) & 0xFFu) + 1u)
#define TERM_BG(n) (((((unsigned)(n)) & 0xFFu) + 1u) << 9)
#define TERM_BOLD 0x040000u
#define TERM_DIM 0x080000u
#define TERM_ITALIC 0x100000u
#define TERM_UNDERLINE 0x200000u
#define TERM_REVERSE 0x400000u

/* 24-bit colour, in the same style word: TERM_RGB_FG(r, g, b) and
   TERM_RGB_BG(r, g, b) (each 0-255) stand for at most one TERM_FG and one
   TERM_BG. The word names an entry of a table the library keeps for the
   process, made on first use, so these are calls, not constants; past 255
   distinct colours they give the nearest colour of the 256-colour palette.
   A terminal with direct colour (terminfo's RGB flag or setrgbf and setrgbb,
   or COLORTERM=truecolor or 24bit) draws the colour itself; any other the
   nearest of the 256, or of the 8 or 16, colours it has. A prompt's SGR
   sequences 38;2;r;g;b and 48;2;r;g;b mean the same. term_rgb() answers the
   colour field: TERM_FG's part of a style. */
QV_API unsigned term_rgb(int r, int g, int b);
#define TERM_RGB_FG(r, g, b) (term_rgb((r), (g), (b)))
#define TERM_RGB_BG(r, g, b) (term_rgb((r), (g), (b)) << 9)

/* The looks of what the library draws itself: the history hint (default
   TERM_DIM), the completion listing (default 0, the terminal's own), the
   bracket brace matching shows (default TERM_REVERSE, added to its own
   style), and in the completion listing the part the candidates share
   (default 0; readline's colored-completion-prefix makes it TERM_FG(5)
   while the look is 0), the candidate the menu has chosen (default
   TERM_REVERSE) and the descriptions (default TERM_DIM), each drawn over the
   listing's look. term_setLook answers the element's previous style, or -1
   for an unknown element. They belong to the session. */
#define TERM_LOOK_HINT 1
#define TERM_LOOK_LISTING 2
#define TERM_LOOK_MATCH 3
#define TERM_LOOK_COMPLETION_PREFIX 4
#define TERM_LOOK_COMPLETION_SELECTED 5
#define TERM_LOOK_COMPLETION_DESCRIPTION 6
QV_API int term_setLook(int element, unsigned style);

/* A prompt may be coloured: SGR sequences in it (ESC [ ... m) take no
   cells and are drawn as the style they mean, and so is everything between
   the markers \001 and \002 (readline's way of marking what takes no room). */

typedef struct term_highlight term_highlight; /* owned by the library */
/* Called once per render, before the input is drawn, with the whole input
   as UTF-8 (len bytes, NUL-terminated): it styles byte ranges with
   term_addHighlight(). It must not change the input, call a read or keep the
   text past the call. Not called while a mask hides the input. */
typedef void (*term_highlighter)(const char *text, int len, term_highlight *out, void *user);
/* Installs (fn NULL: removes) the highlighter. Works before term_init(). */
QV_API void term_setHighlighter(term_highlighter fn, void *user);
/* During the highlighter's call: the characters wholly inside bytes
   [start, end) take style, a later range over an earlier one. The range is
   clipped to the text; a character it only partly covers is left out.
   Answers the number of characters styled. */
QV_API int term_addHighlight(term_highlight *out, int start, int end, unsigned style);
/* During the highlighter's call, before its first term_addHighlight(): the
   byte offset up to which the text is the same as at the highlighter's last
   call in this read, and from there on no character has a style. The styles
   it gave that unchanged text are kept, so a highlighter that calls this
   need only style from there (from the start of the token there, or
   further back when a change there restyles earlier text; any range may
   still be added). The first call of a read, or after term_setHighlighter(),
   answers 0. A highlighter that never calls it starts from no styles at each
   call. Called later in the call, it answers 0 and keeps nothing more. */
QV_API int term_highlightFrom(term_highlight *out);

#endif /* QUORVEL_COLOUR_H */
