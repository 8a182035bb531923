#include "engine/loop_plan.h"

#include <algorithm>

#include "engine/tempo_map.h"

TLoopPlan::TLoopPlan(const TLoopPoints& points, const TLoopSettings& settings,
                     const TTempoMap& tempoMap) {
    if (!settings.on || !points.found || points.endTick <= points.startTick) return;
    fActive = true;
    fStartTick = points.startTick;
    fEndTick = points.endTick;
    fTimes =
        uint32_t(std::clamp(settings.times, TLoopSettings::kMinTimes, TLoopSettings::kMaxTimes));
    fLast = {fTimes, fEndTick};
    const int64_t startUs = tempoMap.TickToUs(fStartTick, 100);
    const int64_t bodyUs = tempoMap.TickToUs(fEndTick, 100) - startUs;
    // A body that takes no time (a Set Tempo of 0) would loop for ever under a fade.
    if (bodyUs <= 0) return;
    fFadeUs =
        int64_t(std::clamp(settings.fadeSeconds, 0, TLoopSettings::kMaxFadeSeconds)) * 1000000;
    if (fFadeUs == 0) return;
    // The fade's end: whole bodies, then the first tick of the next at or past the rest.
    const int64_t bodies = fFadeUs / bodyUs;
    const int64_t restUs = fFadeUs - bodies * bodyUs;
    uint32_t low = fStartTick;
    uint32_t high = fEndTick;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (tempoMap.TickToUs(middle, 100) - startUs < restUs)
            low = middle + 1;
        else
            high = middle;
    }
    fLast = {fTimes + 1 + uint32_t(bodies), low};
}

int32_t TLoopPlan::FadeLevel(int64_t elapsedUs) const {
    if (fFadeUs <= 0 || elapsedUs <= 0) return kFadeFull;
    if (elapsedUs >= fFadeUs) return 0;
    return int32_t(int64_t(kFadeFull) * (fFadeUs - elapsedUs) / fFadeUs);
}

int64_t TLoopPlan::FadeElapsedUs(TPos pos, const TTempoMap& tempoMap) const {
    if (!IsFading(pos.pass)) return 0;
    const int64_t startUs = tempoMap.TickToUs(fStartTick, 100);
    const int64_t bodyUs = tempoMap.TickToUs(fEndTick, 100) - startUs;
    return int64_t(pos.pass - fTimes - 1) * bodyUs + tempoMap.TickToUs(pos.tick, 100) - startUs;
}

uint64_t TLoopPlan::PlayedTick(TPos pos) const {
    if (!fActive || pos.pass == 0) return pos.tick;
    return uint64_t(pos.tick) + uint64_t(pos.pass) * (fEndTick - fStartTick);
}

TLoopPlan::TPos TLoopPlan::PosOfPlayed(uint64_t playedTick) const {
    if (!fActive) return {0, uint32_t(std::min<uint64_t>(playedTick, UINT32_MAX))};
    playedTick = std::min(playedTick, PlayedTick(fLast));
    if (playedTick < fEndTick) return {0, uint32_t(playedTick)};
    const uint64_t body = fEndTick - fStartTick;
    // The last pass may end on the loop's end itself.
    const uint32_t pass =
        uint32_t(std::min<uint64_t>((playedTick - fStartTick) / body, fLast.pass));
    return {pass, uint32_t(playedTick - uint64_t(pass) * body)};
}
