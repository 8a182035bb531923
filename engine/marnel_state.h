#pragma once
// The player's state, kept by the application and stepped by the controller.

#include <cstdint>

// Player states: 0 stopped, 1 playing, 2 paused, 3..7 preparing.
enum TMarnelState : int32_t {
    kStateStopped = 0,
    kStatePlaying = 1,
    kStatePaused = 2,
    kStateAfterSilence = 3,  // each preparing state names the step just taken
    kStateAfterGM = 4,
    kStateAfterGS = 5,
    kStateAfter88 = 6,
    kStateAfterXG = 7,
};
