#include "playlist/orvick_view.h"

#include <QMimeDatabase>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <system_error>

#include "playlist/drvcvt.h"
#include "playlist/native_loader.h"
#include "veldan/base/strings.h"
#include "veldan/base/text_encoding.h"
#include "veldan/base/vel_file.h"
#include "veldan/core/llt.h"

namespace fs = std::filesystem;

namespace {

constexpr char kFileNotFoundKey[] = "Stat_Str_File_Not_Found";
constexpr char kUnsupportedKey[] = "Stat_Str_Unsupported_File";
constexpr char kAlreadyAddedKey[] = "Stat_Str_Already_Added";
constexpr char kAlreadyDeletedKey[] = "Err_Already_Deled";
constexpr char kCannotSaveKey[] = "Err_Cannot_Save_List";
constexpr char kTextPlaylistName[] = "Access_Playlist";  // what a screen reader calls the list

bool names_a_file(const fs::path& ref) {
    std::error_code error;
    return ref.is_absolute() && fs::exists(ref, error);
}

// Containers are held by their real path, so that a container naming itself through a
// link or a relative detour is caught as already added.
fs::path real_path(const fs::path& ref) {
    std::error_code error;
    fs::path real = fs::weakly_canonical(ref, error);
    return error ? ref.lexically_normal() : real;
}

TQuillSItem* row_of(QTreeWidgetItem* item) {
    return item && item->type() == TQuillSItem::kItemType ? static_cast<TQuillSItem*>(item)
                                                          : nullptr;
}

void append_rows(QTreeWidgetItem* row, std::vector<TQuillSItem*>* rows) {
    if (TQuillSItem* own = row_of(row)) rows->push_back(own);
    for (int i = 0; i < row->childCount(); i++) append_rows(row->child(i), rows);
}

}  // namespace

TOrvickView::TOrvickView(const veldan::TLLT& texts, bool workView, const fs::path& loaderFolder,
                         QWidget* parent)
    : veldan::TMessageHandler<QTreeWidget>(parent),
      fTexts(texts),
      fWorkView(workView),
      fLoaderFolder(loaderFolder) {
    setHeaderHidden(true);
    setColumnCount(1);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(QString::fromStdString(fTexts.Text(kTextPlaylistName)));
    setDragEnabled(true);
    setAcceptDrops(true);
    setDragDropMode(QAbstractItemView::DragDrop);
    setDefaultDropAction(Qt::MoveAction);
    setDropIndicatorShown(true);
    QAbstractItemModel* rows = model();
    connect(rows, &QAbstractItemModel::rowsInserted, this, [this] { InvalidateFlatList(); });
    connect(rows, &QAbstractItemModel::rowsRemoved, this, [this] { InvalidateFlatList(); });
    connect(rows, &QAbstractItemModel::rowsMoved, this, [this] { InvalidateFlatList(); });
    connect(rows, &QAbstractItemModel::layoutChanged, this, [this] { InvalidateFlatList(); });
    connect(rows, &QAbstractItemModel::modelReset, this, [this] { InvalidateFlatList(); });
    // A plug-in copied in slowly changes many times; the list is built again once the
    // folder has been quiet for a moment.
    fLoaderSettle.setSingleShot(true);
    fLoaderSettle.setInterval(kLoaderSettleMs);
    connect(&fLoaderSettle, &QTimer::timeout, this, [this] { NodeLoaderChanged(); });
    connect(&fLoaderWatcher, &QFileSystemWatcher::directoryChanged, &fLoaderSettle,
            qOverload<>(&QTimer::start));
    // The folder reports new, removed and renamed files, not a file written over in place.
    connect(&fLoaderWatcher, &QFileSystemWatcher::fileChanged, &fLoaderSettle,
            qOverload<>(&QTimer::start));

    if (workView) {
        setObjectName(kWorkViewName);
        AddSSItem(new TQuillSItem(fs::path(), kFmtNativeList), nullptr);
    } else {
        AddNewList(nullptr);
    }
    load_container_loader(&fLoaders, fLoaderFolder);
    WatchLoaderFolder();
}

TOrvickView::~TOrvickView() {
    // The tree widget removes its rows after this object is gone; they must not reach the
    // cache any more.
    disconnect(model(), nullptr, this, nullptr);
    unload_container_loader(&fLoaders);
}

void TOrvickView::BuildFlatList() const {
    if (fFlatValid) return;
    fFlatRows.clear();
    fFlatSongIndexes.clear();
    fFlatSongs.clear();
    append_rows(invisibleRootItem(), &fFlatRows);
    fFlatSongIndexes.reserve(fFlatRows.size());
    for (TQuillSItem* row : fFlatRows) {
        if (row->Container()) {
            fFlatSongIndexes.push_back(-1);
        } else {
            fFlatSongIndexes.push_back(int32_t(fFlatSongs.size()));
            fFlatSongs.push_back(row);
        }
    }
    fFlatValid = true;
}

TQuillSItem* TOrvickView::Song(int32_t songIndex) const {
    BuildFlatList();
    if (songIndex < 0 || size_t(songIndex) >= fFlatSongs.size()) return nullptr;
    return fFlatSongs[size_t(songIndex)];
}

const fs::path& TOrvickView::SongRef(int32_t songIndex) const {
    static const fs::path none;
    const TQuillSItem* song = Song(songIndex);
    return song ? song->EntryRef() : none;
}

const std::string& TOrvickView::SongFileName(int32_t songIndex) const {
    static const std::string none;
    const TQuillSItem* song = Song(songIndex);
    return song ? song->FileName() : none;
}

int32_t TOrvickView::SongIdx(int32_t fullListIndex) const {
    BuildFlatList();
    if (fullListIndex < 0 || size_t(fullListIndex) >= fFlatSongIndexes.size()) return -1;
    return fFlatSongIndexes[size_t(fullListIndex)];
}

int32_t TOrvickView::CurrentSelection(int32_t n) const {
    BuildFlatList();
    if (n < 0) return -1;
    for (size_t i = 0; i < fFlatRows.size(); i++) {
        if (fFlatRows[i]->isSelected() && n-- == 0) return int32_t(i);
    }
    return -1;
}

int32_t TOrvickView::SelectedSongIdx(int32_t n) const {
    const int32_t position = CurrentSelection(n);
    return position < 0 ? position : SongIdx(position);
}

int32_t TOrvickView::FullListCountItems() const {
    BuildFlatList();
    return int32_t(fFlatRows.size());
}

TQuillSItem* TOrvickView::FullListItemAt(int32_t fullListIndex) const {
    BuildFlatList();
    if (fullListIndex < 0 || size_t(fullListIndex) >= fFlatRows.size()) return nullptr;
    return fFlatRows[size_t(fullListIndex)];
}

int32_t TOrvickView::FullListIndexOf(const TQuillSItem* row) const {
    BuildFlatList();
    auto found = std::find(fFlatRows.begin(), fFlatRows.end(), row);
    return found == fFlatRows.end() ? -1 : int32_t(found - fFlatRows.begin());
}

void TOrvickView::Status(const char* key, const std::string& name) const {
    if (fStatus) fStatus(fTexts.Text(key) + name);
}

bool TOrvickView::AddListFolderFile(const fs::path& ref, TQuillSItem* parent, int32_t magicNum,
                                    bool isContainer) {
    if (fNesting > 0) return AddOneFile(ref, parent, magicNum, isContainer);
    // Songs added above the current one move it, whatever list they join.
    const TQuillSItem* current = CurrentSong();
    const bool added = AddOneFile(ref, parent, magicNum, isContainer);
    if (added) FollowCurrentSong(current);
    return added;
}

bool TOrvickView::AddOneFile(const fs::path& ref, TQuillSItem* parent, int32_t magicNum,
                             bool isContainer) {
    const TSupportFmt parentKind = parent ? parent->Kind() : kFmtNativeList;
    if (!names_a_file(ref)) {
        if (parentKind != kFmtSemiRawList) {
            Status(kFileNotFoundKey, ref.filename().string());
            if (parent) parent->UpdateText(fTexts);
        }
        return false;
    }
    std::error_code error;
    const fs::file_status status = fs::status(ref, error);  // follows links
    if (!fs::is_regular_file(status) && !fs::is_directory(status)) {
        // A pipe, a device or a socket is neither a song nor a list, and opening one can
        // wait for a writer for ever: the window would freeze.
        if (parentKind != kFmtFolderList) Status(kUnsupportedKey, ref.filename().string());
        return false;
    }
    // The broad MIDI test would take a folder such as "Best.midi" for a song.
    if (!isContainer && fs::is_regular_file(status) && IsMidiFile(ref))
        return AddMidiFile(ref, parent, magicNum) != nullptr;

    const fs::path container = real_path(ref);
    TSupportFmt kind = kFmtGeneralList;
    TContainerLoader* loader = FindContainerLoader(container, &kind);
    if (!loader || fNesting >= kMaxNesting) {
        if (parentKind != kFmtFolderList) Status(kUnsupportedKey, ref.filename().string());
        return false;
    }
    if (DupliCheck(container)) {
        if (parent) parent->UpdateText(fTexts);
        return false;
    }
    return AddContainer(container, kind, loader, parent, magicNum);
}

bool TOrvickView::AddListFolderFileToTopLevel(const fs::path& ref) {
    TQuillSItem* first = row_of(topLevelItem(0));
    if (!AddListFolderFile(ref, first, -1)) return false;
    // File > Add, the files given at start and those a second start hands over all come
    // here: the list now differs from its file. A list never saved has no file to differ
    // from and is kept at quit anyway, so quitting need not ask about it.
    if (first && !first->UnnamedNewList()) MarkModified(first);
    // What the user just added is what the user wants to see.
    if (first) expandItem(first);
    return true;
}

TQuillSItem* TOrvickView::AddMidiFile(const fs::path& ref, TQuillSItem* parent, int32_t magicNum) {
    auto* row = new TQuillSItem(ref, kFmtSong);
    row->SetMagicNum(magicNum);
    AddSSItem(row, parent);
    if (fSongs++ == 0) SendChangeSongRqtd(0);
    return row;
}

TQuillSItem* TOrvickView::AddNewList(TQuillSItem* parent) {
    auto* row = new TQuillSItem(fs::path(), kFmtNativeList);
    row->SetListId(fNextListId++);
    row->SetNewListNumber(fNextNewListNumber++);
    row->SetUnnamedNewList(true);
    AddSSItem(row, parent);
    return row;
}

void TOrvickView::ClearList() {
    clear();
    fSongs = 0;
    fCurSongIdx = -1;
    InvalidateFlatList();
}

void TOrvickView::AddSSItem(TQuillSItem* row, TQuillSItem* parent) {
    if (row->Container() && row->ListId() == 0) row->SetListId(fNextListId++);
    row->UpdateText(fTexts);
    // Rows are dropped beside a song, never into it.
    if (!row->Container()) row->setFlags(row->flags() & ~Qt::ItemIsDropEnabled);
    if (parent) {
        parent->addChild(row);
        return;
    }
    addTopLevelItem(row);
    veldan::post_message(fOwner, veldan::TMessage(kMsgUpdateWinTitle));
}

bool TOrvickView::DupliCheck(const fs::path& ref) const {
    BuildFlatList();
    for (const TQuillSItem* row : fFlatRows) {
        if (row->EntryRef() == ref) {
            Status(kAlreadyAddedKey, ref.filename().string());
            return true;
        }
    }
    return false;
}

bool TOrvickView::IsMidiFile(const fs::path& ref) {
    static const QMimeDatabase mimeTypes;
    const QString type = mimeTypes.mimeTypeForFile(QString::fromStdString(ref.string())).name();
    if (type == "audio/midi" || type == "audio/x-midi") return true;
    std::string lower = ref.string();
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; });
    // RIFF-wrapped songs (RMID) carry ".rmi", which neither test above knows.
    if (lower.ends_with(".rmi")) return true;
    return veldan::instr(lower.c_str(), ".mid", 1) > 0;
}

const TDrvCvt& TOrvickView::DriveLetters() const {
    if (fDrvCvt) return *fDrvCvt;
    if (!fOwnDrvCvt) fOwnDrvCvt = std::make_unique<TDrvCvt>();
    return *fOwnDrvCvt;
}

bool TOrvickView::AddContainer(const fs::path& ref, TSupportFmt kind, TContainerLoader* loader,
                               TQuillSItem* parent, int32_t magicNum) {
    std::vector<TContainerEntry> entries;
    if (loader->Load(ref.string(), &entries) != 0) {
        Status(kUnsupportedKey, ref.filename().string());
        return false;
    }
    auto* list = new TQuillSItem(ref, kind);
    list->SetMagicNum(magicNum);
    AddSSItem(list, parent);

    fNesting++;
    int32_t index = 0;
    for (const TContainerEntry& entry : entries) {
        AddListFolderFile(resolve_list_entry(entry.path, ref, DriveLetters()), list, index++,
                          entry.isContainer);
    }
    fNesting--;

    if (list->childCount() > 0) {
        AutoSort(list);
    } else if (kind == kFmtRawList || kind == kFmtSemiRawList) {
        delete list;  // a QTreeWidgetItem leaves its tree as it is destroyed
        return false;
    }
    return true;
}

void TOrvickView::AutoSort(TQuillSItem* list) const {
    switch (fAutoSortKind) {
        case kAutoSortByMagicNum:
            sort_items_under(list, compare_func_by_magic_num_up);
            break;
        case kAutoSortByNameUp:
            sort_items_under(list, compare_func_by_file_name_up);
            break;
        case kAutoSortByNameDown:
            sort_items_under(list, compare_func_by_file_name_down);
            break;
        default:
            break;
    }
}

TQuillSItem* TOrvickView::FindList(int32_t listId) const {
    BuildFlatList();
    for (TQuillSItem* row : fFlatRows) {
        if (row->Container() && row->ListId() == listId) return row;
    }
    return nullptr;
}

bool TOrvickView::OverwriteList(int32_t listId, const fs::path& target, std::string* error) {
    TQuillSItem* list = FindList(listId);
    if (!list) {
        *error = fTexts.Text(kAlreadyDeletedKey);
        return false;
    }
    std::vector<std::string> paths;
    for (int i = 0; i < list->childCount(); i++) {
        const TQuillSItem* row = row_of(list->child(i));
        std::error_code missing;
        // A row whose file went away since it was added is left out silently.
        if (row && row->EntryRef().is_absolute() &&
            fs::exists(fs::symlink_status(row->EntryRef(), missing))) {
            paths.push_back(row->EntryRef().string());
        }
    }
    // Written whole or not at all: a full disk or a crash must not cost the old list.
    std::string reason;
    if (!write_native_list(target, paths, &reason)) {
        std::fprintf(stderr, "quillmidi: %s\n", reason.c_str());
        *error = fTexts.Text(kCannotSaveKey) + target.filename().string();
        return false;
    }
    list->SetModified(false);
    list->SetUnnamedNewList(false);
    list->SetEntryRef(target);
    list->SetKind(kFmtNativeList);
    list->UpdateText(fTexts);
    return true;
}

TContainerLoader* TOrvickView::FindContainerLoader(const fs::path& ref, TSupportFmt* kind) const {
    return find_container_loader(fLoaders, ref.string(), kind);
}

bool TOrvickView::IsContainerLoader(const fs::path& file) { return is_container_loader(file); }

void TOrvickView::NodeLoaderChanged() {
    unload_container_loader(&fLoaders);
    load_container_loader(&fLoaders, fLoaderFolder);
    WatchLoaderFolder();
}

void TOrvickView::WatchLoaderFolder() {
    // A folder that was removed and made again, and files replaced by new ones, must be
    // watched anew.
    if (!fLoaderWatcher.directories().isEmpty()) {
        fLoaderWatcher.removePaths(fLoaderWatcher.directories());
    }
    if (!fLoaderWatcher.files().isEmpty()) fLoaderWatcher.removePaths(fLoaderWatcher.files());
    std::error_code error;
    if (!fs::is_directory(fLoaderFolder, error)) return;
    QStringList paths{QString::fromStdString(fLoaderFolder.string())};
    for (fs::directory_iterator entry(fLoaderFolder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->is_regular_file(error)) paths.push_back(QString::fromStdString(entry->path()));
    }
    fLoaderWatcher.addPaths(paths);
}

void TOrvickView::SendChangeSongRqtd(int32_t songIndex) {
    veldan::TMessage request(kMsgChangeSongRqtd);
    request.AddInt32(kSongIndexField, songIndex);
    veldan::post_message(fOwner, request);
}

void TOrvickView::LanguageChanged() {
    setAccessibleName(QString::fromStdString(fTexts.Text(kTextPlaylistName)));
    BuildFlatList();
    for (TQuillSItem* row : fFlatRows) row->UpdateText(fTexts);
}

void TOrvickView::MessageReceived(veldan::TMessage* message) {
    switch (message->what) {
        case quill::kMsgLoaderFolderChanged:
            NodeLoaderChanged();
            break;
        case quill::kMsgLanguageChanged:
            LanguageChanged();
            break;
        case kMsgPopupAddNewList:
            PopupAddNewListClicked();
            break;
        case kMsgPopupDelete:
            PopupDeleteFileClicked();
            break;
        case kMsgPopupSort:
            PopupSortClicked(*message);
            break;
        case kMsgPopupDeselect:
            PopupDeselectClicked();
            break;
        case kMsgPopupSave:
            PopupSaveListClicked();
            break;
        case kMsgPopupSaveAs:
            PopupSaveListAsClicked(*message);
            break;
        case kMsgSaveRequested:
            SaveRequested(*message);
            break;
        case kMsgChangeSongOrderRqtd:
            ChangeSongOrderRqtd(*message);
            break;
        default:
            veldan::TMessageHandler<QTreeWidget>::MessageReceived(message);
            break;
    }
}
