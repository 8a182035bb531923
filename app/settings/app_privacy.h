#pragma once
// TAppPrivacy: where the executable lies and the player's current state, plus the
// program's drive-letter converter (loaded when the object is made).

#include <cstdint>
#include <string>

#include "playlist/drvcvt.h"

// The player state; the player controller steps through the preparing states.
enum TMarnelState : int32_t {
    MS_STOPPED = 0,
    MS_PLAYING = 1,
    MS_PAUSED = 2,
    MS_PREPARE_SILENCE = 3,  // silence between songs
    MS_PREPARE_GM = 4,       // then each chosen reset and the silence after it
    MS_PREPARE_GS = 5,
    MS_PREPARE_88 = 6,
    MS_PREPARE_XG = 7,
};

class TAppPrivacy : public TDrvCvt {
  public:
    // Splits the program's path into its folder (with the trailing "/") and file name.
    void AnaExePath(const char* path);
    std::string ExePath() const { return fExePath; }
    std::string ExeName() const { return fExeName; }

    TMarnelState State() const { return fState; }
    void SetState(TMarnelState state) { fState = state; }

  private:
    std::string fExePath;
    std::string fExeName;
    TMarnelState fState = MS_STOPPED;
};
