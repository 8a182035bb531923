// Moving rows of the playlist view by dragging them, and adding files dropped on it.
//
// A loader plug-in dropped on the list ('cldd') is not installed: it is offered to the
// loaders like any other file and reported as unsupported. Plug-ins are installed by
// copying them into the loader folder, which the view watches.

#include <unistd.h>

#include <QDataStream>
#include <QDrag>
#include <QDropEvent>
#include <QMimeData>
#include <QPointer>
#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "playlist/orvick_view.h"
#include "veldan/core/llt.h"

namespace fs = std::filesystem;

namespace {

TQuillSItem* row_of(QTreeWidgetItem* item) {
    return item && item->type() == TQuillSItem::kItemType ? static_cast<TQuillSItem*>(item)
                                                          : nullptr;
}

// Who wrote the dragged rows: this process, this view, this state of its tree.
struct TRowsOrigin {
    qint64 process = 0;
    quint64 view = 0;
    quint64 treeVersion = 0;
};

QByteArray encode_rows(const TRowsOrigin& origin, const QList<qint32>& positions) {
    QByteArray data;
    QDataStream out(&data, QIODevice::WriteOnly);
    out << origin.process << origin.view << origin.treeVersion << positions;
    return data;
}

bool decode_rows(const QByteArray& data, TRowsOrigin* origin, QList<qint32>* positions) {
    QDataStream in(data);
    in >> origin->process >> origin->view >> origin->treeVersion >> *positions;
    return in.status() == QDataStream::Ok;
}

bool is_under(const QTreeWidgetItem* row, const std::unordered_set<const QTreeWidgetItem*>& rows) {
    for (const QTreeWidgetItem* up = row; up; up = up->parent()) {
        if (rows.count(up)) return true;
    }
    return false;
}

// Taking a row out of the tree forgets which lists under it were open.
void collect_expanded(QTreeWidgetItem* row, std::vector<QTreeWidgetItem*>* expanded) {
    if (row->isExpanded()) expanded->push_back(row);
    for (int i = 0; i < row->childCount(); i++) collect_expanded(row->child(i), expanded);
}

// Dropped files in the order the auto-sort setting gives a list's rows; as dropped when
// it sorts by insertion number or not at all.
void sort_dropped(std::vector<fs::path>* paths, int32_t autoSortKind) {
    const auto byName = [](const fs::path& a, const fs::path& b) {
        return std::strcmp(a.filename().c_str(), b.filename().c_str()) < 0;
    };
    if (autoSortKind == TOrvickView::kAutoSortByNameUp) {
        std::stable_sort(paths->begin(), paths->end(), byName);
    } else if (autoSortKind == TOrvickView::kAutoSortByNameDown) {
        std::stable_sort(paths->begin(), paths->end(),
                         [&](const fs::path& a, const fs::path& b) { return byName(b, a); });
    }
}

}  // namespace

QStringList TOrvickView::mimeTypes() const { return {kRowsMimeType, "text/uri-list"}; }

QMimeData* TOrvickView::mimeData(const QList<QTreeWidgetItem*>& items) const {
    QList<qint32> positions;
    for (QTreeWidgetItem* item : items) {
        const int32_t position = FullListIndexOf(row_of(item));
        if (position >= 0) positions.push_back(position);
    }
    std::sort(positions.begin(), positions.end());
    auto* rowsData = new QMimeData;
    const TRowsOrigin origin{qint64(getpid()), quint64(quintptr(this)), fTreeVersion};
    rowsData->setData(kRowsMimeType, encode_rows(origin, positions));
    return rowsData;
}

Qt::DropActions TOrvickView::supportedDropActions() const {
    return Qt::MoveAction | Qt::CopyAction;
}

void TOrvickView::startDrag(Qt::DropActions) {
    const QList<QTreeWidgetItem*> rows = selectedItems();
    if (rows.isEmpty()) return;
    // Not the item view's own drag: after a move it would remove the selected rows, which
    // are the rows just moved.
    QPointer<QDrag> drag = new QDrag(this);
    drag->setMimeData(mimeData(rows));
    drag->exec(Qt::MoveAction);
    if (drag) drag->deleteLater();
}

void TOrvickView::dropEvent(QDropEvent* event) {
    const QMimeData* dropped = event->mimeData();
    const QPoint where = event->position().toPoint();
    bool taken = false;
    if (dropped->hasFormat(kRowsMimeType)) {
        taken = MoveDraggedRows(dropped->data(kRowsMimeType), where);
        if (taken) event->setDropAction(Qt::MoveAction);
    } else if (dropped->hasUrls()) {
        AddDroppedFiles(dropped->urls(), where);
        taken = true;
        event->setDropAction(Qt::CopyAction);
    }
    if (taken) {
        event->accept();
    } else {
        event->ignore();
    }
    stopAutoScroll();
    setState(NoState);
    viewport()->update();
}

TOrvickView::TDropPlace TOrvickView::DropPlace(const QPoint& where, bool withSongs) const {
    TQuillSItem* row = row_of(itemAt(where));
    if (!row) return {row_of(topLevelItem(0)), -1};
    const QRect rect = visualItemRect(row);
    const int edge = std::clamp(rect.height() / 4, 2, 12);
    const bool above =
        row->Container() ? where.y() < rect.top() + edge : where.y() < rect.center().y();
    const bool below = !above && (!row->Container() || where.y() > rect.bottom() - edge);
    if (row->Container() && !above && !below) return {row, -1};
    // Just below an open list's own row is where its first row is.
    if (below && row->Container() && row->isExpanded() && row->childCount() > 0) {
        return {row, 0};
    }
    auto* parent = row_of(row->parent());
    const QTreeWidgetItem* holder = parent ? parent : invisibleRootItem();
    const int index = holder->indexOfChild(row) + (below ? 1 : 0);
    if (parent || !withSongs) return {parent, index};
    // Songs belong in a list: the one shown just above the place, or the first list.
    if (index == 0) return {row_of(topLevelItem(0)), 0};
    return {row_of(topLevelItem(index - 1)), -1};
}

TQuillSItem* TOrvickView::DropList(const QPoint& where) const {
    TQuillSItem* row = row_of(itemAt(where));
    if (!row) return row_of(topLevelItem(0));
    return row->Container() ? row : row_of(row->parent());
}

bool TOrvickView::MoveDraggedRows(const QByteArray& rows, const QPoint& where) {
    TRowsOrigin origin;
    QList<qint32> positions;
    if (!decode_rows(rows, &origin, &positions) || origin.process != qint64(getpid()) ||
        origin.view != quint64(quintptr(this)) || origin.treeVersion != fTreeVersion) {
        return false;
    }
    veldan::TMessage move(kMsgChangeSongOrderRqtd);
    bool withSongs = false;
    for (const qint32 position : positions) {
        move.AddInt32(kRowsField, position);
        const TQuillSItem* row = FullListItemAt(position);
        withSongs |= row && !row->Container();
    }
    const TDropPlace place = DropPlace(where, withSongs);
    move.AddInt32(kDestListField, place.list ? FullListIndexOf(place.list) : -1);
    move.AddInt32(kDestIndexField, place.index);
    return ChangeSongOrderRqtd(move);
}

std::vector<TQuillSItem*> TOrvickView::RowsToMove(const veldan::TMessage& message) const {
    std::unordered_set<const QTreeWidgetItem*> named;
    for (int32_t i = 0; i < message.CountValues(kRowsField); i++) {
        int32_t position = -1;
        message.FindInt32(kRowsField, i, &position);
        if (TQuillSItem* row = FullListItemAt(position)) named.insert(row);
    }
    named.erase(topLevelItem(0));
    BuildFlatList();
    std::vector<TQuillSItem*> rows;
    for (TQuillSItem* row : fFlatRows) {
        // A row under another moved row goes along with it.
        if (named.count(row) && !is_under(row->parent(), named)) rows.push_back(row);
    }
    return rows;
}

bool TOrvickView::ChangeSongOrderRqtd(const veldan::TMessage& message) {
    const std::vector<TQuillSItem*> rows = RowsToMove(message);
    int32_t listPosition = -1;
    int32_t index = -1;
    message.FindInt32(kDestListField, &listPosition);
    message.FindInt32(kDestIndexField, &index);
    TQuillSItem* list = listPosition < 0 ? nullptr : FullListItemAt(listPosition);
    if (rows.empty() || (listPosition >= 0 && (!list || !list->Container()))) return false;
    const std::unordered_set<const QTreeWidgetItem*> moving(rows.begin(), rows.end());
    const bool withSongs = std::any_of(rows.begin(), rows.end(),
                                       [](const TQuillSItem* row) { return !row->Container(); });
    if ((!list && withSongs) || (list && is_under(list, moving))) return false;

    QTreeWidgetItem* holder = list ? static_cast<QTreeWidgetItem*>(list) : invisibleRootItem();
    // The main list stays first.
    if (!list && index >= 0) index = std::max(index, 1);
    // Where the rows go, named by the row that will follow them.
    QTreeWidgetItem* follower = nullptr;
    for (int i = std::max(index, 0); index >= 0 && i < holder->childCount(); i++) {
        if (!moving.count(holder->child(i))) {
            follower = holder->child(i);
            break;
        }
    }
    TQuillSItem* current = Song(fCurSongIdx);
    std::vector<QTreeWidgetItem*> expanded;
    QList<QTreeWidgetItem*> taken;
    for (TQuillSItem* row : rows) {
        collect_expanded(row, &expanded);
        auto* from = row_of(row->parent());
        (from ? static_cast<QTreeWidgetItem*>(from) : invisibleRootItem())->removeChild(row);
        MarkModified(from);
        taken.push_back(row);
    }
    holder->insertChildren(follower ? holder->indexOfChild(follower) : holder->childCount(), taken);
    for (QTreeWidgetItem* row : expanded) row->setExpanded(true);
    for (QTreeWidgetItem* row : taken) row->setSelected(true);
    MarkModified(list);
    InvalidateFlatList();
    FollowCurrentSong(current);
    SendCurSongIdxChanged();
    return true;
}

void TOrvickView::AddDroppedFiles(const QList<QUrl>& urls, const QPoint& where) {
    TQuillSItem* list = DropList(where);
    std::vector<fs::path> paths;
    for (const QUrl& url : urls) {
        if (url.isLocalFile()) paths.emplace_back(url.toLocalFile().toStdString());
    }
    sort_dropped(&paths, fAutoSortKind);
    const TQuillSItem* current = CurrentSong();
    bool added = false;
    // The current song is found again once for the whole drop.
    for (const fs::path& path : paths) added |= AddOneFile(path, list, -1, false);
    if (!added) return;
    MarkModified(list);
    // The user sees what was dropped.
    if (list) list->setExpanded(true);
    // Songs added above the current one move it.
    if (current) {
        FollowCurrentSong(current);
        SendCurSongIdxChanged();
    }
}
