#pragma once
// TPrepareSequence: the steps between "play" and the first note of a song: the silence
// between songs, then the chosen system resets in the fixed order GM, GS, 88, XG, each
// sent through both public ports and followed by its own silence.
//
// The owner keeps the player state and calls StepToPlay() from its own thread; when the
// call asks for a wait, the owner starts a timer and calls again when it fires. Resets go
// out while no song plays, so they never interleave with a song's events.

#include <cstdint>
#include <functional>

#include "engine/marnel_state.h"
#include "engine/output_chain.h"

struct TPrepareSettings {
    bool silenceBetweenSongs = false;
    int64_t silenceBetweenSongsUs = 3000000;
    bool sendResets = false;
    int32_t resetMask = 1;  // 1 GM, 2 GS, 4 88, 8 XG
    int64_t silenceAfterResetsUs = 300000;
};

class TPrepareSequence {
  public:
    explicit TPrepareSequence(TOutputChain& chain) : fChain(chain) {}

    void SetSettings(const TPrepareSettings& settings) { fSettings = settings; }
    const TPrepareSettings& Settings() const { return fSettings; }
    // Told each reset kind just before it is sent (the control bar lights it half).
    void SetResetSentHandler(std::function<void(int32_t kind)> handler) {
        fResetSent = std::move(handler);
    }

    // Advances *state towards playing. Returns the microseconds to wait before the next
    // call, or 0 once *state is kStatePlaying (or was not stopped or preparing).
    int64_t StepToPlay(TMarnelState* state);

  private:
    TOutputChain& fChain;
    TPrepareSettings fSettings;
    std::function<void(int32_t)> fResetSent;
};
