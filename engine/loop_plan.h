#pragma once
// TLoopPlan: how a song that marks a loop is played when the user wants marked loops played.
//
// Game music marks its loop with controller 111 (the loop's start; the song's end is the
// loop's end) or with the markers "loopStart" and "loopEnd" (any case). Played, the song
// runs to the loop's end, jumps back to its start for the extra passes asked for, then
// jumps once more and fades out over the fade time, looping on while the fade lasts.
//
// The played song is a sequence of passes: pass 0 runs from tick 0 to the loop's end,
// every later pass from the loop's start to its end. A "played tick" counts the ticks of
// the passes one after another, so that a slider and a clock can map over the whole
// played song; without a loop it is the song's own tick. The fade is measured in the
// song's own time (at a tempo rate of 100 %), so a faster tempo rate shortens it as it
// shortens the song.
//
// Made on the owner's thread when a song loads or the settings change; the play thread
// only reads it, and its look-ups allocate nothing.

#include <cstdint>

class TTempoMap;

struct TLoopSettings {
    static constexpr int32_t kMinTimes = 1;
    static constexpr int32_t kMaxTimes = 99;
    static constexpr int32_t kMaxFadeSeconds = 30;

    bool on = false;
    int32_t times = 2;        // extra passes through the loop's body
    int32_t fadeSeconds = 8;  // 0: the song ends at the loop's end after the last pass

    bool operator==(const TLoopSettings&) const = default;
};

// Where a song marks its loop; found when the song loads.
struct TLoopPoints {
    bool found = false;
    uint32_t startTick = 0;
    uint32_t endTick = 0;
};

class TLoopPlan {
  public:
    static constexpr int32_t kFadeFull = 1000;  // fade levels are per mille

    struct TPos {
        uint32_t pass = 0;
        uint32_t tick = 0;
    };

    TLoopPlan() = default;
    // Inactive unless settings are on and the points mark a loop whose end is after its start.
    TLoopPlan(const TLoopPoints& points, const TLoopSettings& settings, const TTempoMap& tempoMap);

    bool IsActive() const { return fActive; }
    uint32_t StartTick() const { return fStartTick; }
    uint32_t EndTick() const { return fEndTick; }
    // Where the played song ends: the pass and the tick in it.
    TPos Last() const { return fLast; }
    // The tick at which pass stops: there it jumps back to the loop's start, or the song ends
    // when pass is the last one.
    uint32_t StopTick(uint32_t pass) const { return pass < fLast.pass ? fEndTick : fLast.tick; }
    bool IsFading(uint32_t pass) const { return fFadeUs > 0 && pass > fTimes; }
    int64_t FadeUs() const { return fFadeUs; }
    // The fade level for a fade that has run elapsedUs of song time: from kFadeFull down
    // to 0 at its end.
    int32_t FadeLevel(int64_t elapsedUs) const;
    // Song time (at 100 %) of the fade already run at pos; 0 before it starts. Walks the
    // tempo map: for a seek, not for every step.
    int64_t FadeElapsedUs(TPos pos, const TTempoMap& tempoMap) const;

    // Played ticks: without an active plan, the song's own ticks.
    uint64_t PlayedTick(TPos pos) const;
    TPos PosOfPlayed(uint64_t playedTick) const;

  private:
    bool fActive = false;
    uint32_t fStartTick = 0;
    uint32_t fEndTick = 0;
    uint32_t fTimes = 0;
    int64_t fFadeUs = 0;
    TPos fLast;
};
