#pragma once
// TMRUF: the most recently used playlist files, newest first (index 0), without
// duplicates, at most MaxMRUF() of them; archived as the string field "MRUF", oldest
// first, in "QuillMIDI_MRUPlaylists.arc".
//
// Menu building (GenerateMenu with its target menu, handler and base) lives with the
// main window; this class gives it each item's label and short-cut.

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "veldan/core/archivable.h"

class TMRUF : public veldan::TArchivable {
  public:
    static constexpr int32_t kMinMax = 1;
    static constexpr int32_t kMaxMax = 20;
    static constexpr uint32_t kMsgRecentFile = '_RRC';  // the default item message
    static constexpr char kField[] = "MRUF";

    // Makes path the newest entry; a path already listed moves to the front.
    void AddMRUF(const std::string& path);
    // The removed path, or nothing when index or path is not in the list.
    std::optional<std::string> RemoveMRUF(int32_t index);
    std::optional<std::string> RemoveMRUF(const std::string& path);
    // Index of the entry equal to path (byte for byte), or -1.
    int32_t FindMRUF(const std::string& path) const;
    // "" for an index outside the list.
    std::string MRUFAt(int32_t index) const;
    int32_t CountMRUFs() const { return int32_t(fEntries.size()); }
    void ClearMRUF() { fEntries.clear(); }
    // Drops the oldest entries beyond the maximum.
    void DeleteExtraMRUF();

    // Clamped to kMinMax..kMaxMax; the oldest entries beyond it go at once.
    void SetMaxMRUF(int32_t max);
    int32_t MaxMRUF() const { return fMax; }
    void SetShowSC(bool show) { fShowSC = show; }
    void SetTriggerBase(int32_t base) { fTriggerBase = base; }
    void SetSeparator(const std::string& separator) { fSeparator = separator; }
    void SetMessage(const veldan::TMessage& message) { fMessage = message; }
    const veldan::TMessage& Message() const { return fMessage; }

    // The entry's number character ('0' + n up to 9, then 'A', 'B', ... for n = index plus
    // the trigger base), the separator, and the file name of its path.
    std::string ItemLabel(int32_t index) const;
    // '0' + n when short-cuts are shown and n is at most 9; '\0' for no short-cut.
    char ItemShortcut(int32_t index) const;

    // Archive: true when every entry was written. Unarchive: replaces the list by the
    // file's, oldest first, through AddMRUF (so duplicates collapse and the maximum
    // holds); always true.
    bool Archive(veldan::TMessage* into) const override;
    bool Unarchive(const veldan::TMessage& from) override;

  private:
    int32_t Number(int32_t index) const { return index + fTriggerBase; }

    bool fShowSC = false;
    int32_t fTriggerBase = 0;
    int32_t fMax = 10;
    std::deque<std::string> fEntries;
    std::string fSeparator = "\xE3\x83\xBB";  // katakana middle dot
    veldan::TMessage fMessage{kMsgRecentFile};
};
