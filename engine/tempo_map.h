#pragma once
// Ticks to microseconds: the one formula the play thread sleeps by and the song's
// timeline is computed by, so both agree to the microsecond.

#include <cstdint>
#include <vector>

// (ticks x tempo x 100) / (division x rate percent), truncated. A division or rate
// below 1 counts as 1: neither can be allowed to divide by zero.
int64_t ticks_to_us(uint64_t ticks, uint32_t usPerQuarter, int16_t division, int32_t ratePercent);

class TTempoMap {
public:
    struct TChange {
        uint32_t tick;
        uint32_t usPerQuarter;
    };

    TTempoMap() = default;
    // changes in play order (tick, then track order, then file order).
    TTempoMap(std::vector<TChange> changes, int16_t division);

    // Time of tick from the song's start, at a constant rate.
    int64_t TickToUs(uint32_t tick, int32_t ratePercent) const;
    // The tempo in force at tick (after every change at that tick).
    uint32_t TempoAt(uint32_t tick) const;
    const std::vector<TChange>& Changes() const { return fChanges; }

    static constexpr uint32_t kDefaultTempo = 500000;

private:
    std::vector<TChange> fChanges;
    int16_t fDivision = 480;
};
