// Key decoding. A byte bound in the active map is a key. A prefix walks the
// sub-maps byte by byte; a sequence the maps do not know is dropped whole,
// a control sequence up to its final byte, so that no stray tail ("~", "2A")
// lands in the line, and it still counts as a key of no action, which a
// quoted insert or a search sees. Bytes above 127 start UTF-8 characters:
// an invalid or cut-short one makes no key, and the byte that broke it is
// the next key.
#include "keydecode.h"

#include "text.h"

namespace {

constexpr int kSequencePauses = 2;

bool is_csi_parameter(int b) { return b >= 0x20 && b <= 0x3F; }

} // namespace

namespace qv {

DecodedKey KeyDecoder::done(action_fn action, int arg) {
    state_ = kStart;
    return DecodedKey{DecodedKey::kKey, action, arg, false};
}

DecodedKey KeyDecoder::feed(const keymap_entry *root, int b, bool utf8) {
    const DecodedKey more{DecodedKey::kMore, nullptr, 0, false};
    pauses_ = 0;
    last_ = b;
    switch (state_) {
    case kStart: {
        const keymap_entry &e = root[b];
        if (e.type == KM_FUNCTION) return done(e.target.action, b);
        if (e.type == KM_SUBMAP) {
            state_ = kSequence;
            map_ = e.target.map;
            first_ = b;
            count_ = 0;
            return more;
        }
        if (utf8 && b >= 0xC2 && b <= 0xF4) {
            state_ = kUtf8;
            lead_ = b;
            need_ = b < 0xE0 ? 1 : b < 0xF0 ? 2 : 3;
            cp_ = static_cast<unsigned>(b) & (0x3Fu >> need_);
            got_ = 0;
            return more;
        }
        return done(nullptr, b);
    }
    case kSequence: {
        if (++count_ == 1) second_ = b;
        const keymap_entry &e = map_[b];
        if (e.type == KM_FUNCTION) return done(e.target.action, first_);
        if (e.type == KM_SUBMAP) {
            map_ = e.target.map;
            return more;
        }
        // A prefix that also acts alone ends at a byte its map does not
        // bind: it acts, and the byte starts the next key, as vi's Escape
        // needs when the next key follows it at once.
        if (count_ == 1 && map_[KEYMAP_DEFAULT].type == kKeyAlone) {
            state_ = kStart;
            return DecodedKey{DecodedKey::kKey, map_[KEYMAP_DEFAULT].target.action, first_, true};
        }
        const bool control = first_ == 27 && (second_ == '[' || second_ == 'O');
        if (control && count_ == 1) {
            state_ = kSwallowFirst;
            return more;
        }
        if (control && is_csi_parameter(b)) {
            state_ = kSwallow;
            return more;
        }
        return done(nullptr, first_);
    }
    case kSwallowFirst:
    case kSwallow:
        if (is_csi_parameter(b)) {
            state_ = kSwallow;
            return more;
        }
        return done(nullptr, first_);
    case kUtf8: {
        if (!utf8_follows(static_cast<unsigned>(lead_), got_, static_cast<unsigned>(b))) {
            state_ = kStart;
            return DecodedKey{DecodedKey::kDropped, nullptr, 0, true};
        }
        cp_ = (cp_ << 6) | (static_cast<unsigned>(b) & 0x3Fu);
        if (++got_ < need_) return more;
        state_ = kStart;
        return DecodedKey{DecodedKey::kText, nullptr, static_cast<int>(cp_), false};
    }
    }
    return more;
}

DecodedKey KeyDecoder::pause() {
    if (state_ == kStart || ++pauses_ < kSequencePauses) return DecodedKey{DecodedKey::kMore, nullptr, 0, false};
    pauses_ = 0;
    if (state_ == kUtf8) {
        state_ = kStart;
        return DecodedKey{DecodedKey::kDropped, nullptr, 0, false};
    }
    const bool lone = state_ == kSequence && count_ == 0 && map_[KEYMAP_DEFAULT].type == kKeyAlone;
    return done(lone ? map_[KEYMAP_DEFAULT].target.action : nullptr, first_);
}

} // namespace qv
