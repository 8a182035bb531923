#pragma once
// TAISelector: the chooser behind the AI random play mode. It keeps for every song file it
// has met a learned liking (Priority 0..5, 2 neutral) and a count of its selections, and
// draws the next song with a weight of 2^Priority.
//
// The record follows the song's leaf name, not its folder: two files of one name share a
// record, and a song keeps it when moved or listed elsewhere.
//
// The database is the INI file kDatabaseName in the settings folder kSettingsFolder, with
// sections "Priority" and "AutoSelectCount"; records at the neutral priority are not
// written, so their counts are forgotten between runs.
//
// Used on the GUI thread only; no locks.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

class TQuillSItem;
class TSongList;

class TAISelector {
  public:
    static constexpr char kDatabaseName[] = "QuillMIDI_AIDatabase.dat";
    static constexpr char kSettingsFolder[] = "QuillMIDI";
    static constexpr char kPrioritySection[] = "Priority";
    static constexpr char kCountSection[] = "AutoSelectCount";
    static constexpr int32_t kNeutralPriority = 2;
    static constexpr int32_t kMaxPriority = 5;
    static constexpr int kIniLineLength = 2048;

    struct TScore {
        int32_t priority = kNeutralPriority;
        int32_t autoSelectCount = 0;
        bool operator==(const TScore&) const = default;
    };
    // Hashed, for one look-up per song and call; Save writes the keys in byte-wise order.
    using TScoreTable = std::unordered_map<std::string, TScore>;
    // Returns a random number from 0 to 2^32 - 1.
    using TRandomFn = std::function<uint32_t()>;

    // Draws from an engine of its own, seeded anew on every start, until SetRandom gives
    // it the player's.
    TAISelector();

    // The songs to draw from; not owned, they must outlive the selector's use of them.
    int32_t SetSongList(const TSongList* songs);
    void SetRandom(TRandomFn random) { fRandom = std::move(random); }

    // Reads the database once; a second call does nothing. A missing or unreadable file
    // leaves the table as it was. Always 0.
    int32_t Load(const std::filesystem::path& database);
    // Writes the non-neutral records, replacing the file whole or not at all: 0, or -1
    // with the file as it was and *error (the path and the reason) when given.
    int32_t Save(const std::filesystem::path& database, std::string* error = nullptr) const;
    // The database file in the user's settings folder; false when there is none.
    static bool DatabaseEntry(std::filesystem::path* database);

    // Adds delta to the song's priority, clamped to 0..kMaxPriority; null is ignored.
    void ChangeScore(const TQuillSItem* song, int32_t delta);
    // The same for the song of that file name; an empty name is ignored.
    void ChangeScore(const std::string& fileName, int32_t delta);

    // An index into the song list, drawn by weight; the chosen song's count
    // rises by one. The list must hold at least one song.
    // Kept: a song met for the first time weighs 2, half of what the same neutral song
    // weighs from the next call on (4).
    int32_t Select();

    const TScoreTable& Scores() const { return fScores; }

  private:
    bool fLoaded = false;
    TScoreTable fScores;
    const TSongList* fSongs = nullptr;
    TRandomFn fRandom;
    std::vector<int32_t> fCandidates;  // reused so that its room is reserved only once
};
