#pragma once
// TPref: what the user sets in the preferences window, stored in "QuillMIDI_Prefs.arc".
// A value type: the preferences window edits a copy and assigns it back.

#include <cstdint>
#include <string>
#include <vector>

#include "engine/loop_plan.h"
#include "veldan/core/archivable.h"

class TPref : public veldan::TArchivable {
  public:
    // Values of autoSortKind.
    static constexpr int32_t kSortNone = 0;
    static constexpr int32_t kSortAscending = 1;
    static constexpr int32_t kSortDescending = 2;

    bool useAIDatabase = true;  // load and save the learning database with the main view
    bool waitBetweenSongs = false;
    bool sendSysResets = false;
    int32_t autoSortKind = kSortAscending;  // how songs are sorted when added
    int32_t sysResetCombination = 1;        // bit set: 1 GM, 2 GS, 4 88, 8 XG
    int64_t silenceAfterResetsUs = 300000;
    int64_t silenceBetweenSongsUs = 3000000;
    std::string languageFile = "English.llt";  // leaf name in "Language"; "" is built in
    // After a seek, send the programs, controllers and bends in force at the new place.
    bool chaseOnSeek = false;
    // Play the loop that game music marks: how many extra times, and the fade after it.
    TLoopSettings loops;

    // The built-in synthesizer's part: a change of any of these makes it again.
    struct TSynthSettings {
        std::vector<std::string> soundFonts;  // in order; empty: the General MIDI font of Debian
        float gain = 0.2f;                    // 0 to 10
        bool reverb = true;
        bool chorus = true;
        int32_t polyphony = 256;  // 16 to 4096
        std::string driver;       // "" tries the systems in turn; else one FluidSynth driver
        bool operator==(const TSynthSettings&) const = default;
    };
    TSynthSettings synth;

    // Both true only when every field was written or found.
    bool Archive(veldan::TMessage* into) const override;
    bool Unarchive(const veldan::TMessage& from) override;

    bool operator==(const TPref&) const = default;

  private:
    bool ArchiveSynth(veldan::TMessage* into) const;
};
