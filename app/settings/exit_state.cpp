#include "app/settings/exit_state.h"

#include <algorithm>
#include <iterator>

#include "veldan/core/entry.h"

namespace {

constexpr char kKeyListShown[] = "AtEx";
constexpr char kKeyCurrentSong[] = "CuSI";
constexpr char kKeyExpandedHeight[] = "ExWH";
constexpr char kKeyVersion[] = "_Ver";
constexpr char kKeyMainListFile[] = "MLFN";
constexpr char kKeyPanelFolder[] = "PnFN";
constexpr char kKeyFrame[] = "_WFr";
constexpr char kKeyPlayMode[] = "PlyM";

// "CMO" followed by the output's digit.
std::string connections_key(int output) { return "CMO" + std::to_string(output); }

}  // namespace

TExitState::TExitState() : panelFolder(veldan::home_dir().string()) {}

bool TExitState::Archive(veldan::TMessage* into) const {
    const bool written = TArchivable::Archive(into) && into->AddBool(kKeyListShown, listShown) &&
                         into->AddInt32(kKeyCurrentSong, currentSongIndex) &&
                         into->AddFloat(kKeyExpandedHeight, expandedHeight) &&
                         into->AddString(kKeyVersion, kAppVersion) &&
                         into->AddString(kKeyMainListFile, mainListFile) &&
                         into->AddString(kKeyPanelFolder, panelFolder);
    if (!written) return false;
    for (int output = 0; output < kOutputCount; output++) {
        for (const std::string& name : connections[size_t(output)]) {
            if (!into->AddString(connections_key(output), name)) return false;
        }
    }
    return into->AddRect(kKeyFrame, frame) && into->AddInt32(kKeyPlayMode, playMode);
}

bool TExitState::Unarchive(const veldan::TMessage& from) {
    const bool found[] = {
        TArchivable::Unarchive(from),
        from.FindBool(kKeyListShown, &listShown),
        from.FindInt32(kKeyCurrentSong, &currentSongIndex),
        from.FindFloat(kKeyExpandedHeight, &expandedHeight),
        from.FindString(kKeyVersion, &version),
        from.FindString(kKeyMainListFile, &mainListFile),
        from.FindString(kKeyPanelFolder, &panelFolder),
    };
    for (int output = 0; output < kOutputCount; output++) {
        std::string name;
        for (int32_t index = 0; from.FindString(connections_key(output), index, &name); index++) {
            connections[size_t(output)].push_back(name);
        }
    }
    const bool foundFrame = from.FindRect(kKeyFrame, &frame);
    const bool foundPlayMode = from.FindInt32(kKeyPlayMode, &playMode);
    return std::all_of(std::begin(found), std::end(found), [](bool ok) { return ok; }) &&
           foundFrame && foundPlayMode;
}
