/* The host's completer and what it offers: candidates with their start, a
   display form and a description, as the editor takes them. Library-
   internal. */
#ifndef QUORVEL_CANDIDATES_H
#define QUORVEL_CANDIDATES_H

#include "quorvel.h"

#ifdef __cplusplus
#include <cwchar>

#include "candlist.h"

struct console;

namespace qv {

/* A candidate as the editor takes it: the characters from start to the
   cursor become text. */
struct Candidate {
    int start; // character offset in the edit buffer
    wchar_t *text;
    int len;
    // Not UTF-8: listed as it looks (bad bytes as \xNN), never put in the
    // line, which cannot hold it.
    bool listed_only;
    wchar_t *display; // how the listing shows it; NULL: as text
    int display_len;
    wchar_t *description; // shown beside it; NULL: none
    int description_len;
    const wchar_t *shown() const { return display ? display : text; }
    int shown_len() const { return display ? display_len : len; }
};

struct Candidates {
    Candidate *items;
    int count;
};

/* Whether a completer is installed. */
bool has_completer();
/* Asks the completer about the edit buffer; fills out with what it offered
   (out.items NULL when it offered nothing or memory ran out). */
void ask_completer(struct console *c, Candidates &out);
/* Frees a list from ask_completer() allocated with calloc, and the list. */
void drop_candidates(Candidates *list);
/* Orders candidates by their text, for qsort. */
int compare_candidates(const void *a, const void *b);

/* Sorts the candidates by their text, each once. */
void tidy_candidates(Candidates &list);
/* The candidates laid out at the terminal's width in the session's looks,
   selected (-1: none) marked. */
CandidateGrid candidates_grid(struct console *c, const Candidates &list, int selected);
/* Asks the completer and keeps what the line can take, sorted; with the
   earliest start in *from. NULL when nothing is left. */
Candidates *takeable_candidates(struct console *c, int *from);
/* Puts text (n characters) in place of the len characters from `from`, then
   a space when space is set and it ends a word; answers the new length. */
int replace_stretch(struct console *c, int from, int len, const wchar_t *text, int n, bool space);

/* The completer of the session, and its copy for a new one. */
struct CompleterState;
CompleterState *completer_new();
void completer_free(CompleterState *s);
/* Forgets the completer. */
void completion_reset();

/* Runs fn with another completer in the host's place, then puts the host's
   back. */
void with_completer(term_completer other, void *user, void (*fn)(struct console *c, int key), struct console *c,
                    int key);

} // namespace qv
#endif

#endif
