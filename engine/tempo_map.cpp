#include "engine/tempo_map.h"

#include <algorithm>

namespace {

int64_t clamp_us(__int128 us) {
    constexpr __int128 kLimit = int64_t(1) << 62;
    return int64_t(std::clamp(us, -kLimit, kLimit));
}

int64_t positive(int64_t value) { return std::max<int64_t>(value, 1); }

}  // namespace

int64_t ticks_to_us(uint64_t ticks, uint32_t usPerQuarter, int16_t division, int32_t ratePercent) {
    // 128-bit: a hostile file's 2^32 ticks times a 2^24 tempo overflows 64 bits.
    __int128 numerator = __int128(ticks) * usPerQuarter * 100;
    __int128 divisor =
        __int128(uint16_t(std::max<int16_t>(division, 1))) * std::max<int32_t>(ratePercent, 1);
    __int128 us = numerator / divisor;
    constexpr __int128 kLimit = int64_t(1) << 62;
    return int64_t(std::min(us, kLimit));
}

void TSongClock::Start(int64_t nowUs, uint32_t tick, uint32_t usPerQuarter, int16_t division,
                       int32_t ratePercent) {
    fDivision = positive(uint16_t(division));
    fTempo = usPerQuarter;
    fRate = int32_t(positive(ratePercent));
    fTempoTick = tick;
    fTempoPosition = 0;
    fAnchorUs = nowUs;
    fAnchorPosition = 0;
}

__int128 TSongClock::PositionOf(uint32_t tick) const {
    // A tick behind the tempo change (a hostile file's wrapped ticks) counts as at it.
    const uint32_t ticks = tick >= fTempoTick ? tick - fTempoTick : 0;
    return fTempoPosition + __int128(ticks) * fTempo * 100;
}

void TSongClock::SetTempo(uint32_t tick, uint32_t usPerQuarter) {
    fTempoPosition = PositionOf(tick);
    fTempoTick = std::max(tick, fTempoTick);
    fTempo = usPerQuarter;
}

void TSongClock::SetRate(int64_t nowUs, int32_t ratePercent) {
    fAnchorPosition += __int128(nowUs - fAnchorUs) * fDivision * fRate;
    fAnchorUs = nowUs;
    fRate = int32_t(positive(ratePercent));
}

int64_t TSongClock::TimeOf(uint32_t tick) const {
    const __int128 ahead = PositionOf(tick) - fAnchorPosition;
    return clamp_us(fAnchorUs + ahead / (__int128(fDivision) * fRate));
}

TTempoMap::TTempoMap(std::vector<TChange> changes, int16_t division)
    : fChanges(std::move(changes)), fDivision(division) {}

int64_t TTempoMap::TickToUs(uint32_t tick, int32_t ratePercent) const {
    TSongClock clock;
    clock.Start(0, 0, kDefaultTempo, fDivision, ratePercent);
    for (const TChange& change : fChanges) {
        if (change.tick > tick) break;
        clock.SetTempo(change.tick, change.usPerQuarter);
    }
    return clock.TimeOf(tick);
}

uint32_t TTempoMap::TempoAt(uint32_t tick) const {
    uint32_t tempo = kDefaultTempo;
    for (const TChange& change : fChanges) {
        if (change.tick > tick) break;
        tempo = change.usPerQuarter;
    }
    return tempo;
}
