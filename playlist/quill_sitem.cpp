#include "playlist/quill_sitem.h"

#include <cstring>

#include "veldan/core/llt.h"

namespace {

constexpr char kNewListKey[] = "New_List";
constexpr char kModifiedKey[] = "Container_Stat_Modified";

// The comparison of the sort in progress. QTreeWidgetItem sorting reaches the rows only
// through operator<, so sort_items_under hands its function over here; sorting happens on
// the GUI thread only.
TItemCompareFunc gSortCompare = nullptr;

}  // namespace

TQuillSItem::TQuillSItem(const std::filesystem::path& ref, TSupportFmt kind)
    : QTreeWidgetItem(kItemType), fKind(kind) {
    SetEntryRef(ref);
    fText = ref.filename().string();
    setText(0, QString::fromStdString(fText));
}

TQuillSItem::TQuillSItem(const TQuillSItem& other)
    : QTreeWidgetItem(other),
      fRef(other.fRef),
      fFileName(other.fFileName),
      fText(other.fText),
      fKind(other.fKind),
      fMagicNum(other.fMagicNum),
      fModified(other.fModified),
      fUnnamedNewList(other.fUnnamedNewList),
      fListId(other.fListId),
      fNewListNumber(other.fNewListNumber) {}

void TQuillSItem::SetEntryRef(const std::filesystem::path& ref) {
    fRef = ref;
    fFileName = ref.filename().string();
}

std::string TQuillSItem::ExpFName(const veldan::TLLT& texts) const {
    if (fUnnamedNewList) return texts.Text(kNewListKey) + std::to_string(fNewListNumber);
    return fFileName;
}

void TQuillSItem::UpdateText(const veldan::TLLT& texts) {
    fText = kind_marker(fKind) + ExpFName(texts);
    if (fModified) fText += std::string(" ") + texts.Text(kModifiedKey);
    setText(0, QString::fromStdString(fText));
}

bool TQuillSItem::operator<(const QTreeWidgetItem& other) const {
    if (!gSortCompare || other.type() != kItemType) return QTreeWidgetItem::operator<(other);
    return gSortCompare(this, static_cast<const TQuillSItem*>(&other)) < 0;
}

const char* kind_marker(TSupportFmt kind) {
    switch (kind) {
        case kFmtGeneralList:
            return "[G] ";
        case kFmtFolderList:
            return "[F] ";
        case kFmtRawList:
            return "[R] ";
        case kFmtSemiRawList:
            return "[S] ";
        case kFmtNativeList:
            return "[L] ";
        default:
            return "";
    }
}

int32_t compare_func_by_file_name_up(const TQuillSItem* a, const TQuillSItem* b) {
    return std::strcmp(a->FileName().c_str(), b->FileName().c_str());
}

int32_t compare_func_by_file_name_down(const TQuillSItem* a, const TQuillSItem* b) {
    return -compare_func_by_file_name_up(a, b);
}

int32_t compare_func_by_magic_num_up(const TQuillSItem* a, const TQuillSItem* b) {
    // Wider than int32 so that no pair of numbers overflows the difference.
    const int64_t difference = int64_t(a->MagicNum()) - int64_t(b->MagicNum());
    return difference < 0 ? -1 : (difference > 0 ? 1 : 0);
}

void sort_items_under(TQuillSItem* list, TItemCompareFunc compare) {
    gSortCompare = compare;
    list->sortChildren(0, Qt::AscendingOrder);
    gSortCompare = nullptr;
}
