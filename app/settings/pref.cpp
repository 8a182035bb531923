#include "app/settings/pref.h"

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
           into->AddBool(kKeyChaseOnSeek, chaseOnSeek);
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
    };
    return std::all_of(std::begin(found), std::end(found), [](bool ok) { return ok; });
}
