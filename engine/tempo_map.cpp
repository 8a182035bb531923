#include "engine/tempo_map.h"

#include <algorithm>

int64_t ticks_to_us(uint64_t ticks, uint32_t usPerQuarter, int16_t division, int32_t ratePercent) {
    // 128-bit: a hostile file's 2^32 ticks times a 2^24 tempo overflows 64 bits.
    __int128 numerator = __int128(ticks) * usPerQuarter * 100;
    __int128 divisor = __int128(uint16_t(std::max<int16_t>(division, 1))) *
                       std::max<int32_t>(ratePercent, 1);
    __int128 us = numerator / divisor;
    constexpr __int128 kLimit = int64_t(1) << 62;
    return int64_t(std::min(us, kLimit));
}

TTempoMap::TTempoMap(std::vector<TChange> changes, int16_t division)
    : fChanges(std::move(changes)), fDivision(division) {}

int64_t TTempoMap::TickToUs(uint32_t tick, int32_t ratePercent) const {
    int64_t us = 0;
    uint32_t at = 0;
    uint32_t tempo = kDefaultTempo;
    for (const TChange& change : fChanges) {
        if (change.tick > tick) break;
        if (change.usPerQuarter == tempo) continue;  // the play thread re-times only on a change
        us += ticks_to_us(change.tick - at, tempo, fDivision, ratePercent);
        at = change.tick;
        tempo = change.usPerQuarter;
    }
    return us + ticks_to_us(tick - at, tempo, fDivision, ratePercent);
}

uint32_t TTempoMap::TempoAt(uint32_t tick) const {
    uint32_t tempo = kDefaultTempo;
    for (const TChange& change : fChanges) {
        if (change.tick > tick) break;
        tempo = change.usPerQuarter;
    }
    return tempo;
}
