#pragma once
// TAppPrivacy: where the executable lies and the player's current state, plus the
// program's drive-letter converter (loaded when the object is made).

#include <cstdint>
#include <string>

#include "engine/marnel_state.h"
#include "playlist/drvcvt.h"

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
    TMarnelState fState = kStateStopped;
};
