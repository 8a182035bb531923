#pragma once
// TQuillSItem: one row of the playlist: a song (a MIDI file) or a list (a playlist file, a
// folder, another container a loader read, or a new list that has no file yet).
//
// The shown text is built by UpdateText from the kind's marker, the name and the modified
// mark; the texts come from the language table given.

#include <QTreeWidgetItem>
#include <cstdint>
#include <filesystem>
#include <string>

#include "loaders/container_loader.h"

namespace veldan {
class TLLT;
}

class TQuillSItem : public QTreeWidgetItem {
  public:
    // QTreeWidgetItem type of playlist rows.
    static constexpr int kItemType = QTreeWidgetItem::UserType + 1;

    // The reference is kept as given; its leaf name is the row's file name.
    TQuillSItem(const std::filesystem::path& ref, TSupportFmt kind);
    // Copies every field and the text; children are not copied, and expansion, which
    // belongs to the view, is set by whoever inserts the copy.
    TQuillSItem(const TQuillSItem& other);
    TQuillSItem& operator=(const TQuillSItem&) = delete;

    TSupportFmt Kind() const { return fKind; }
    void SetKind(TSupportFmt kind) { fKind = kind; }
    // True for every kind but a song.
    bool Container() const { return fKind != kFmtSong; }

    const std::filesystem::path& EntryRef() const { return fRef; }
    void SetEntryRef(const std::filesystem::path& ref);
    // The leaf name of the reference; the key of the learned scores.
    const std::string& FileName() const { return fFileName; }

    int32_t MagicNum() const { return fMagicNum; }
    void SetMagicNum(int32_t number) { fMagicNum = number; }
    bool Modified() const { return fModified; }
    void SetModified(bool modified) { fModified = modified; }
    bool UnnamedNewList() const { return fUnnamedNewList; }
    void SetUnnamedNewList(bool unnamed) { fUnnamedNewList = unnamed; }
    int32_t ListId() const { return fListId; }
    void SetListId(int32_t id) { fListId = id; }
    int32_t NewListNumber() const { return fNewListNumber; }
    void SetNewListNumber(int32_t number) { fNewListNumber = number; }

    // The text without the marker and the modified mark: "New_List" and the number for a
    // new list, else the file name.
    std::string ExpFName(const veldan::TLLT& texts) const;
    void UpdateText(const veldan::TLLT& texts);
    const std::string& Text() const { return fText; }

    // The order of the sort in progress under this row's list (see TOrvickView).
    bool operator<(const QTreeWidgetItem& other) const override;

  private:
    std::filesystem::path fRef;
    std::string fFileName;
    std::string fText;
    TSupportFmt fKind;
    int32_t fMagicNum = -1;  // position in the container it was read from; -1 otherwise
    bool fModified = false;
    bool fUnnamedNewList = false;
    int32_t fListId = 0;
    int32_t fNewListNumber = 0;
};

// The row kind's marker: "[G] ", "[F] ", "[R] ", "[S] ", "[L] ", or "" for songs and
// unknown kinds.
const char* kind_marker(TSupportFmt kind);

// Orders of the sorts of a list's direct children.
int32_t compare_func_by_file_name_up(const TQuillSItem* a, const TQuillSItem* b);
int32_t compare_func_by_file_name_down(const TQuillSItem* a, const TQuillSItem* b);
int32_t compare_func_by_magic_num_up(const TQuillSItem* a, const TQuillSItem* b);

using TItemCompareFunc = int32_t (*)(const TQuillSItem*, const TQuillSItem*);

// Sorts the direct children of list with compare, keeping equal rows in their order;
// expansion and selection are kept.
void sort_items_under(TQuillSItem* list, TItemCompareFunc compare);
