#pragma once
// TExitState: what the program remembers from one run to the next, stored in
// "QuillMIDI_ExitStates.arc".

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "veldan/core/archivable.h"

// The running version; stored with the exit state, a different stored one makes start-up
// install the playlist file type again.
inline constexpr char kAppVersion[] = "Ver 5.34";

class TExitState : public veldan::TArchivable {
  public:
    static constexpr int kOutputCount = 2;

    TExitState();

    bool listShown = true;  // the playlist part of the main window
    int32_t currentSongIndex = 0;
    float expandedHeight = 200.0f;  // main window height with the playlist shown
    std::string version;            // as stored; Archive writes kAppVersion
    std::string mainListFile;       // playlist file open in the main view
    std::string panelFolder;        // first folder of the file panels; the home folder
    // Per MIDI output, the names of the consumers connected at exit, in list order.
    std::array<std::vector<std::string>, kOutputCount> connections;
    veldan::TRect frame{5, 24, 300, 250};  // main window
    int32_t playMode = 0;

    // Archive: true when every field was written. Unarchive: true when every field but
    // the connection lists (absent when empty) was found; connections found are appended.
    bool Archive(veldan::TMessage* into) const override;
    bool Unarchive(const veldan::TMessage& from) override;

    bool operator==(const TExitState&) const = default;
};
