// The table of RGB colours, and the palette colours nearest to one for a
// terminal without direct colour.
#include "rgb.h"

#include <atomic>

#include "quorvel.h"

namespace {

// Filled once each and never emptied, so any thread reads an entry without
// a lock: an entry is its colour with the top bit set, 0 while free.
// A process-wide table: a style word crosses sessions (a look, a host's
// highlighter constants), so its colour must mean the same in each.
std::atomic<uint32_t> table[qv::kRgbEntries];
constexpr uint32_t kUsed = 0x80000000u;

int squared(uint32_t a, uint32_t b) {
    int d = 0;
    for (int shift = 0; shift < 24; shift += 8) {
        const int x = static_cast<int>((a >> shift) & 0xFF) - static_cast<int>((b >> shift) & 0xFF);
        d += x * x;
    }
    return d;
}

uint32_t palette_rgb(int n) {
    // The 16 basic colours as xterm draws them by default.
    static constexpr uint32_t kBasic[16] = {0x000000, 0xcd0000, 0x00cd00, 0xcdcd00, 0x0000ee, 0xcd00cd,
                                            0x00cdcd, 0xe5e5e5, 0x7f7f7f, 0xff0000, 0x00ff00, 0xffff00,
                                            0x5c5cff, 0xff00ff, 0x00ffff, 0xffffff};
    if (n < 16) return kBasic[n];
    if (n < 232) {
        static constexpr uint32_t kLevel[6] = {0, 95, 135, 175, 215, 255};
        n -= 16;
        return kLevel[n / 36] << 16 | kLevel[n / 6 % 6] << 8 | kLevel[n % 6];
    }
    const uint32_t grey = 8 + 10 * static_cast<uint32_t>(n - 232);
    return grey << 16 | grey << 8 | grey;
}

int nearest(uint32_t rgb, int from, int to) {
    int best = from, distance = 1 << 30;
    for (int n = from; n < to; n++)
        if (const int d = squared(rgb, palette_rgb(n)); d < distance) {
            distance = d;
            best = n;
        }
    return best;
}

} // namespace

uint32_t qv::rgb_field(uint32_t rgb) {
    rgb &= 0xFFFFFFu;
    for (int i = 0; i < kRgbEntries; i++) {
        uint32_t v = table[i].load(std::memory_order_acquire);
        if (v == (rgb | kUsed)) return kRgbFirst + static_cast<uint32_t>(i);
        if (v == 0) {
            if (table[i].compare_exchange_strong(v, rgb | kUsed, std::memory_order_acq_rel)) return kRgbFirst + static_cast<uint32_t>(i);
            if (v == (rgb | kUsed)) return kRgbFirst + static_cast<uint32_t>(i);
        }
    }
    return static_cast<uint32_t>(nearest_256(rgb)) + 1;
}

uint32_t qv::rgb_of(uint32_t field) {
    return is_rgb_field(field) ? table[field - kRgbFirst].load(std::memory_order_acquire) & 0xFFFFFFu : 0;
}

int qv::nearest_256(uint32_t rgb) { return nearest(rgb, 16, 256); }

int qv::nearest_16(uint32_t rgb) { return nearest(rgb, 0, 16); }

unsigned term_rgb(int r, int g, int b) {
    auto clamp = [](int v) { return static_cast<uint32_t>(v < 0 ? 0 : v > 255 ? 255 : v); };
    return qv::rgb_field(clamp(r) << 16 | clamp(g) << 8 | clamp(b));
}
