/* Key decoding: bytes in, keys out, one byte at a time, so that a key may
   arrive in any number of pieces and a read may be fed whenever the host
   likes. Library-internal. */
#ifndef QUORVEL_KEYDECODE_H
#define QUORVEL_KEYDECODE_H

#include "keymap.h"

#ifdef __cplusplus
namespace qv {

/* The type of a sub-map's default entry whose action stands for the prefix
   alone: after the escape time-out, or before a byte the sub-map does not
   bind, which then starts the next key (vi's Escape). A default of type
   KM_FUNCTION keeps its old meaning, for lookups only. */
constexpr int32_t kKeyAlone = 3;

struct DecodedKey {
    enum Kind : int {
        kMore,    // the key is not complete yet
        kKey,     // a key: its action (NULL when no binding knows it) and arg
        kDropped, // the bytes made no key (broken UTF-8)
        kText,    // a character of UTF-8 text, in arg: the editor inserts it
    };
    Kind kind;
    action_fn action;
    int arg;    // the key's first byte, or the character of UTF-8 text
    bool again; // the byte fed belongs to the next key: feed it again
};

class KeyDecoder {
  public:
    /* One byte. root is the active key map; with utf8, a byte from 0xC2 to
       0xF4 starts a character of typed text. */
    DecodedKey feed(const keymap_entry *root, int b, bool utf8);
    /* An idle period passed without a byte. After two in a row a started
       key counts as finished: a lone Escape never waits for ever, yet the
       bytes of one key press arrive well within that. */
    DecodedKey pause();
    /* Starts in the middle of a key: its first byte selected map. */
    void begin_sequence(const keymap_entry *map, int first) {
        state_ = kSequence;
        map_ = map;
        first_ = first;
        count_ = 0;
    }
    bool pending() const { return state_ != kStart; }
    void reset() { state_ = kStart; }
    /* The byte fed last: the key's last, once it is complete (the digit of
       Alt-3). */
    int last_byte() const { return last_; }

  private:
    enum State : int { kStart, kSequence, kSwallowFirst, kSwallow, kUtf8 };
    DecodedKey done(action_fn action, int arg);
    State state_ = kStart;
    const keymap_entry *map_ = nullptr;
    int first_ = 0, second_ = 0, count_ = 0;
    int lead_ = 0, need_ = 0, got_ = 0;
    unsigned cp_ = 0;
    int pauses_ = 0;
    int last_ = 0;
};

} // namespace qv
#endif

#endif
