#pragma once
// The view of the chaos runs with its recorders: both ports heard directly, and two
// consumers in the roster for the MIDI OUT menu to connect and let go.

#include <memory>
#include <string>
#include <vector>

#include "midi/recorder.h"
#include "player/pref.h"
#include "player/quill_view.h"
#include "playlist/orvick_view.h"
#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"
#include "tests/support/widget_app.h"
#include "veldan/core/llt.h"

inline constexpr size_t kRecorderEvents = 1 << 18;

using quill::TQuillView;

inline std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += "\n  " + line;
    return text;
}

class ChaosTest : public TWidgetTest {
  protected:
    ChaosTest() {
        // Short silences and all four resets, so the preparing states are walked through
        // between songs too.
        fPrefs.waitBetweenSongs = true;
        fPrefs.silenceBetweenSongsUs = 150000;
        fPrefs.sendSysResets = true;
        fPrefs.sysResetCombination = 0x0F;
        fPrefs.silenceAfterResetsUs = 40000;
        fView = std::make_unique<TQuillView>(fTexts, fPrefs, fTemp.Path() / "no-loaders");
        fView->Controller().Chain().PublicOut(0)->Connect(&fPortA);
        fView->Controller().Chain().PublicOut(1)->Connect(&fPortB);
        fSynth1.Register();
        fSynth2.Register();
    }
    ~ChaosTest() override {
        fView.reset();
        fSynth1.Unregister();
        fSynth2.Unregister();
    }

    TTempDir fTemp;
    TTempDir fConfig;
    TScopedEnv fXdg{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
    veldan::TLLT fTexts;
    TPref fPrefs;
    TMidiRecorder fPortA{"port A", kRecorderEvents, kRecorderEvents * 8};
    TMidiRecorder fPortB{"port B", kRecorderEvents, kRecorderEvents * 8};
    TMidiRecorder fSynth1{"chaos synth 1", kRecorderEvents, kRecorderEvents * 8};
    TMidiRecorder fSynth2{"chaos synth 2", kRecorderEvents, kRecorderEvents * 8};
    std::unique_ptr<TQuillView> fView;
};
