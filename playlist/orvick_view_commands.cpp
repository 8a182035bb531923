// The playlist view's answers to the user: the pop-up menu and its commands, double clicks.

#include <QContextMenuEvent>
#include <QMouseEvent>
#include <algorithm>
#include <unordered_map>

#include "playlist/orvick_view.h"
#include "veldan/core/llt.h"

namespace {

struct TPopupItem {
    const char* key;
    uint32_t what;
    int32_t sortKey;  // 0: none
    bool listsOnly;   // shown only when a selected row is a list
    bool separatorAfter;
};

constexpr TPopupItem kPopupItems[] = {
    {"PopMItem_Del", TOrvickView::kMsgPopupDelete, 0, false, true},
    {"PopMItem_Add_New", TOrvickView::kMsgPopupAddNewList, 0, true, true},
    {"PopMItem_Save", TOrvickView::kMsgPopupSave, 0, true, false},
    {"PopMItem_Save_As", TOrvickView::kMsgPopupSaveAs, 0, true, true},
    {"PopMItem_Sort_File_Name_Up", TOrvickView::kMsgPopupSort, TOrvickView::kSortKeyUp, false,
     false},
    {"PopMItem_Sort_File_Name_Down", TOrvickView::kMsgPopupSort, TOrvickView::kSortKeyDown, false,
     true},
    {"PopMItem_Open_Doc", TOrvickView::kMsgPopupOpenDoc, 0, false, true},
    {"PopMItem_Deselect", TOrvickView::kMsgPopupDeselect, 0, false, false},
};

// The songs among row and the rows under it.
void collect_songs(QTreeWidgetItem* row, std::vector<const TQuillSItem*>* songs) {
    if (row->type() == TQuillSItem::kItemType && !static_cast<TQuillSItem*>(row)->Container()) {
        songs->push_back(static_cast<TQuillSItem*>(row));
    }
    for (int i = 0; i < row->childCount(); i++) collect_songs(row->child(i), songs);
}

}  // namespace

std::vector<TQuillSItem*> TOrvickView::SelectedRows() const {
    BuildFlatList();
    std::vector<TQuillSItem*> rows;
    for (TQuillSItem* row : fFlatRows) {
        if (row->isSelected()) rows.push_back(row);
    }
    return rows;
}

void TOrvickView::MarkModified(TQuillSItem* list) {
    if (!list) return;
    list->SetModified(true);
    list->UpdateText(fTexts);
}

std::unique_ptr<QMenu> TOrvickView::BuildPopup() {
    const std::vector<TQuillSItem*> selected = SelectedRows();
    if (selected.empty()) return nullptr;
    const bool listSelected = std::any_of(selected.begin(), selected.end(),
                                          [](const TQuillSItem* row) { return row->Container(); });
    auto menu = std::make_unique<QMenu>(this);
    menu->setObjectName("PopUp");
    for (const TPopupItem& item : kPopupItems) {
        if (item.listsOnly && !listSelected) continue;
        QAction* action = menu->addAction(QString::fromUtf8(fTexts.Text(item.key)));
        veldan::TMessage command(item.what);
        if (item.sortKey != 0) command.AddInt32(kSortKeyField, item.sortKey);
        QObject* target = item.what == kMsgPopupOpenDoc ? fOwner.data() : this;
        connect(action, &QAction::triggered, this, [command, target = QPointer<QObject>(target)] {
            veldan::post_message(target, command);
        });
        if (item.separatorAfter && &item != std::end(kPopupItems) - 1) menu->addSeparator();
    }
    return menu;
}

void TOrvickView::OpenPopup(const QPoint& where) {
    if (std::unique_ptr<QMenu> menu = BuildPopup()) menu->exec(where);
}

void TOrvickView::contextMenuEvent(QContextMenuEvent* event) { OpenPopup(event->globalPos()); }

void TOrvickView::mouseDoubleClickEvent(QMouseEvent* event) {
    const TQuillSItem* row = nullptr;
    if (QTreeWidgetItem* item = itemAt(event->position().toPoint())) {
        row = item->type() == TQuillSItem::kItemType ? static_cast<TQuillSItem*>(item) : nullptr;
    }
    if (!row || row->Container()) {
        QTreeWidget::mouseDoubleClickEvent(event);
        return;
    }
    SendChangeSongRqtd(SongIdx(FullListIndexOf(row)));
}

void TOrvickView::PopupAddNewListClicked() {
    for (TQuillSItem* selected : SelectedRows()) {
        auto* parent = static_cast<TQuillSItem*>(selected->parent());
        TQuillSItem* added = AddNewList(parent);
        // Beside the selected row rather than at the end of its list.
        QTreeWidgetItem* holder =
            parent ? static_cast<QTreeWidgetItem*>(parent) : invisibleRootItem();
        holder->removeChild(added);
        holder->insertChild(holder->indexOfChild(selected) + 1, added);
        MarkModified(parent);
    }
}

void TOrvickView::PopupDeleteFileClicked() {
    if (!AskSaveSelectedList(veldan::TMessage(kMsgPopupDelete), this)) return;
    BuildFlatList();
    // Song indexes as they were: the flat list goes stale as rows go.
    const std::vector<TQuillSItem*> rows(fFlatRows);
    std::unordered_map<const TQuillSItem*, int32_t> songIndexes;
    for (size_t i = 0; i < rows.size(); i++) songIndexes[rows[i]] = fFlatSongIndexes[i];

    const int32_t current = fCurSongIdx;
    int32_t removedBeforeCurrent = 0;
    bool currentRemoved = false;
    // Unlike other rows, the main list is kept when selected: without it files would be
    // added at the top level and a save would find its list deleted.
    const QTreeWidgetItem* mainList = topLevelItem(0);
    for (auto row = rows.rbegin(); row != rows.rend(); ++row) {
        if (!(*row)->isSelected() || *row == mainList) continue;
        std::vector<const TQuillSItem*> songs;
        collect_songs(*row, &songs);
        for (const TQuillSItem* song : songs) {
            const int32_t index = songIndexes[song];
            currentRemoved |= index == current;
            removedBeforeCurrent += index < current;
        }
        fSongs -= int32_t(songs.size());
        MarkModified(static_cast<TQuillSItem*>((*row)->parent()));
        delete *row;  // and every row under it
    }
    if (current >= 0) {
        fCurSongIdx = std::min(current - removedBeforeCurrent, fSongs - 1);
        if (currentRemoved && fCurSongIdx >= 0) SendChangeSongRqtd(fCurSongIdx);
    }
    SendCurSongIdxChanged();
}

void TOrvickView::PopupSortClicked(const veldan::TMessage& message) {
    int32_t key = 0;
    message.FindInt32(kSortKeyField, &key);
    if (key != kSortKeyUp && key != kSortKeyDown) return;
    const TItemCompareFunc compare =
        key == kSortKeyUp ? compare_func_by_file_name_up : compare_func_by_file_name_down;
    const TQuillSItem* current = Song(fCurSongIdx);
    for (TQuillSItem* row : SelectedRows()) {
        TQuillSItem* list = row->Container() ? row : static_cast<TQuillSItem*>(row->parent());
        if (!list) continue;
        sort_items_under(list, compare);
        MarkModified(list);
    }
    FollowCurrentSong(current);
    SendCurSongIdxChanged();
}

void TOrvickView::FollowCurrentSong(const TQuillSItem* current) {
    if (current) fCurSongIdx = SongIdx(FullListIndexOf(current));
}

void TOrvickView::SendCurSongIdxChanged() {
    veldan::TMessage changed(kMsgCurSongIdxChanged);
    changed.AddInt32(kSongIndexField, fCurSongIdx);
    veldan::post_message(fOwner, changed);
}
