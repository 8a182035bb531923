#include "playlist/ai_selector.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string_view>

#include "playlist/quill_sitem.h"
#include "playlist/song_list.h"
#include "veldan/base/atomic_file.h"
#include "veldan/base/ini_file.h"
#include "veldan/base/random.h"
#include "veldan/core/entry.h"

namespace {

constexpr int32_t kMaxWeight = 1 << TAISelector::kMaxPriority;
constexpr int32_t kFirstMeetingWeight = 2;

int32_t clamp_priority(int64_t priority) {
    return int32_t(std::clamp<int64_t>(priority, 0, TAISelector::kMaxPriority));
}

// A decimal value; false for text that is no number.
bool parse_long(const std::string& text, long* value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    *value = std::strtol(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0';
}

}  // namespace

TAISelector::TAISelector() : fRandom(veldan::seeded_random()) {}

int32_t TAISelector::SetSongList(const TSongList* songs) {
    fSongs = songs;
    return 0;
}

bool TAISelector::DatabaseEntry(std::filesystem::path* database) {
    return veldan::get_entry(kDatabaseName, database, veldan::BD_SETTINGS, kSettingsFolder);
}

int32_t TAISelector::Load(const std::filesystem::path& database) {
    if (fLoaded) return 0;
    veldan::TIniFile ini(database, veldan::kReadOnly, kIniLineLength);
    // The pairs are walked directly: keys of the INI file match ignoring case, but song
    // names differing only in case are different songs.
    if (const auto* priorities = ini.FindSection(kPrioritySection)) {
        for (const veldan::TIniFilePair& pair : priorities->Pairs()) {
            long value = 0;
            // Kept within what Save writes, so that a hand-edited file can't make a weight
            // beyond the 32 per song that Select reserves room for.
            if (parse_long(pair.Value(), &value)) fScores[pair.Key()] = {clamp_priority(value), 0};
        }
    }
    if (const auto* counts = ini.FindSection(kCountSection)) {
        for (const veldan::TIniFilePair& pair : counts->Pairs()) {
            auto record = fScores.find(pair.Key());
            long value = 0;
            if (record != fScores.end() && parse_long(pair.Value(), &value)) {
                record->second.autoSelectCount = int32_t(std::clamp<long>(value, 0, INT32_MAX));
            }
        }
    }
    fLoaded = true;
    return 0;
}

int32_t TAISelector::Save(const std::filesystem::path& database, std::string* error) const {
    // Made in memory first: the learned scores are replaced whole or not at all.
    veldan::TMemoryIO text;
    veldan::TIniFile ini(&text, kIniLineLength);
    std::vector<const TScoreTable::value_type*> records;
    for (const auto& record : fScores) {
        if (record.second.priority != kNeutralPriority) records.push_back(&record);
    }
    std::sort(records.begin(), records.end(),
              [](const auto* a, const auto* b) { return a->first < b->first; });
    // Pairs are appended, not written by key: the INI file's keys match ignoring case, and
    // "Song.mid" and "song.mid" are two songs.
    ini.ChangeSection(kPrioritySection);
    for (const auto* record : records) {
        ini.CurrentSection()->CreatePair(record->first, std::to_string(record->second.priority));
    }
    ini.ChangeSection(kCountSection);
    for (const auto* record : records) {
        ini.CurrentSection()->CreatePair(record->first,
                                         std::to_string(record->second.autoSelectCount));
    }
    ini.Flush(true);
    const std::vector<uint8_t>& bytes = text.Bytes();
    return veldan::write_file_atomically(
               database,
               std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()),
               error) == 0
               ? 0
               : -1;
}

void TAISelector::ChangeScore(const TQuillSItem* song, int32_t delta) {
    if (song) ChangeScore(song->FileName(), delta);
}

void TAISelector::ChangeScore(const std::string& fileName, int32_t delta) {
    if (fileName.empty()) return;
    auto [record, added] = fScores.try_emplace(fileName);
    record->second.priority = clamp_priority(int64_t(record->second.priority) + delta);
}

int32_t TAISelector::Select() {
    const int32_t songs = fSongs->Songs();
    fCandidates.clear();
    fCandidates.reserve(size_t(songs) * kMaxWeight);
    // Room for a record of every song, so that meeting many new songs rehashes once.
    fScores.reserve(std::max(fScores.size(), size_t(songs)));
    for (int32_t i = 0; i < songs; i++) {
        const std::string& song = fSongs->SongFileName(i);
        if (song.empty()) continue;
        auto [record, added] = fScores.try_emplace(song);
        const int32_t weight = added ? kFirstMeetingWeight : (1 << record->second.priority);
        fCandidates.insert(fCandidates.end(), size_t(std::max(weight, 0)), i);
    }
    if (fCandidates.empty()) return 0;
    const int32_t chosen = fCandidates[fRandom() % fCandidates.size()];
    fScores[fSongs->SongFileName(chosen)].autoSelectCount++;
    return chosen;
}
