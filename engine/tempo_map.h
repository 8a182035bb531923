#pragma once
// Ticks to microseconds. The play thread sleeps by TSongClock and the song's timeline is
// computed with it, so both agree to the microsecond.

#include <cstdint>
#include <vector>

// (ticks x tempo x 100) / (division x rate percent), truncated. A division or rate
// below 1 counts as 1: neither can be allowed to divide by zero.
int64_t ticks_to_us(uint64_t ticks, uint32_t usPerQuarter, int16_t division, int32_t ratePercent);

// A song position mapped to real time while the tempo and the tempo rate change. Kept
// exact: the position is counted in units of 1 / (100 x division) microsecond of the
// song's own time (ticks x tempo x 100), and a microsecond at rate r covers exactly
// division x r of them, so neither a Set Tempo nor a re-anchoring at a rate change rounds;
// the one truncation is in TimeOf, never carried into the next deadline.
class TSongClock {
  public:
    // Tick is at nowUs; the song goes on from there with this tempo and rate.
    void Start(int64_t nowUs, uint32_t tick, uint32_t usPerQuarter, int16_t division,
               int32_t ratePercent);
    // A Set Tempo at tick (not before the last tick given).
    void SetTempo(uint32_t tick, uint32_t usPerQuarter);
    // The rate changed at nowUs: the part of the song up to now stays at the old rate.
    void SetRate(int64_t nowUs, int32_t ratePercent);
    // When tick is due (CLOCK_MONOTONIC microseconds).
    int64_t TimeOf(uint32_t tick) const;
    uint32_t Tempo() const { return fTempo; }
    int32_t Rate() const { return fRate; }

  private:
    __int128 PositionOf(uint32_t tick) const;

    int64_t fDivision = 480;
    uint32_t fTempo = 500000;
    int32_t fRate = 100;
    // Where the current tempo took over.
    uint32_t fTempoTick = 0;
    __int128 fTempoPosition = 0;
    // The song was at fAnchorPosition at fAnchorUs; the current rate runs from there.
    int64_t fAnchorUs = 0;
    __int128 fAnchorPosition = 0;
};

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
