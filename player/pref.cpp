#include "player/pref.h"

#include <algorithm>
#include <iterator>

namespace {

// "SiBS" and "SIBS" are two fields: the switch and its interval.
constexpr char kKeyUseAIDatabase[] = "ClAI";
constexpr char kKeyWaitBetweenSongs[] = "SiBS";
constexpr char kKeySendSysResets[] = "SSyR";
constexpr char kKeyAutoSortKind[] = "ASKy";
constexpr char kKeySysResetCombination[] = "SRCb";
constexpr char kKeySilenceAfterResets[] = "SIAR";
constexpr char kKeySilenceBetweenSongs[] = "SIBS";
constexpr char kKeyLanguageFile[] = "LLTF";
constexpr char kKeyChaseOnSeek[] = "ChOS";
// "PMLp" is the switch, "PMLT" and "PMLF" its times and its fade in seconds.
constexpr char kKeyPlayMarkedLoops[] = "PMLp";
constexpr char kKeyLoopTimes[] = "PMLT";
constexpr char kKeyLoopFadeSeconds[] = "PMLF";
constexpr char kKeySoundFont[] = "SFnt";  // one string per font, in order
constexpr char kKeySynthGain[] = "SGan";
constexpr char kKeySynthReverb[] = "SRev";
constexpr char kKeySynthChorus[] = "SCho";
constexpr char kKeySynthPolyphony[] = "SPol";
constexpr char kKeySynthDriver[] = "SDrv";

}  // namespace

bool TPref::Archive(veldan::TMessage* into) const {
    return TArchivable::Archive(into) && into->AddBool(kKeyUseAIDatabase, useAIDatabase) &&
           into->AddBool(kKeyWaitBetweenSongs, waitBetweenSongs) &&
           into->AddBool(kKeySendSysResets, sendSysResets) &&
           into->AddInt32(kKeyAutoSortKind, autoSortKind) &&
           into->AddInt32(kKeySysResetCombination, sysResetCombination) &&
           into->AddInt64(kKeySilenceAfterResets, silenceAfterResetsUs) &&
           into->AddInt64(kKeySilenceBetweenSongs, silenceBetweenSongsUs) &&
           into->AddString(kKeyLanguageFile, languageFile) &&
           into->AddBool(kKeyChaseOnSeek, chaseOnSeek) &&
           into->AddBool(kKeyPlayMarkedLoops, loops.on) &&
           into->AddInt32(kKeyLoopTimes, loops.times) &&
           into->AddInt32(kKeyLoopFadeSeconds, loops.fadeSeconds) && ArchiveSynth(into);
}

bool TPref::ArchiveSynth(veldan::TMessage* into) const {
    for (const std::string& font : synth.soundFonts)
        if (!into->AddString(kKeySoundFont, font)) return false;
    return into->AddFloat(kKeySynthGain, synth.gain) &&
           into->AddBool(kKeySynthReverb, synth.reverb) &&
           into->AddBool(kKeySynthChorus, synth.chorus) &&
           into->AddInt32(kKeySynthPolyphony, synth.polyphony) &&
           into->AddString(kKeySynthDriver, synth.driver);
}

bool TPref::Unarchive(const veldan::TMessage& from) {
    // Every field is looked for, found or not: a missing one keeps its default.
    const bool found[] = {
        TArchivable::Unarchive(from),
        from.FindBool(kKeyUseAIDatabase, &useAIDatabase),
        from.FindBool(kKeyWaitBetweenSongs, &waitBetweenSongs),
        from.FindBool(kKeySendSysResets, &sendSysResets),
        from.FindInt32(kKeyAutoSortKind, &autoSortKind),
        from.FindInt32(kKeySysResetCombination, &sysResetCombination),
        from.FindInt64(kKeySilenceAfterResets, &silenceAfterResetsUs),
        from.FindInt64(kKeySilenceBetweenSongs, &silenceBetweenSongsUs),
        from.FindString(kKeyLanguageFile, &languageFile),
        from.FindBool(kKeyChaseOnSeek, &chaseOnSeek),
        from.FindBool(kKeyPlayMarkedLoops, &loops.on),
        from.FindInt32(kKeyLoopTimes, &loops.times),
        from.FindInt32(kKeyLoopFadeSeconds, &loops.fadeSeconds),
        from.FindFloat(kKeySynthGain, &synth.gain),
        from.FindBool(kKeySynthReverb, &synth.reverb),
        from.FindBool(kKeySynthChorus, &synth.chorus),
        from.FindInt32(kKeySynthPolyphony, &synth.polyphony),
        from.FindString(kKeySynthDriver, &synth.driver),
    };
    // No font at all is the default list, not a missing field.
    synth.soundFonts.clear();
    std::string font;
    for (int32_t index = 0; from.FindString(kKeySoundFont, index, &font); ++index)
        synth.soundFonts.push_back(font);
    // A hand-edited file gets values the window can show.
    loops.times = std::clamp(loops.times, TLoopSettings::kMinTimes, TLoopSettings::kMaxTimes);
    loops.fadeSeconds = std::clamp(loops.fadeSeconds, 0, TLoopSettings::kMaxFadeSeconds);
    return std::all_of(std::begin(found), std::end(found), [](bool ok) { return ok; });
}
