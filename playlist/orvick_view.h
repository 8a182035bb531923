#pragma once
// TOrvickView: the playlist, an outline of lists and songs.
//
// The player reaches songs only through the flat song sequence: every song row in tree
// order, at every level, collapsed lists included (Songs, Song, SongIdx, SelectedSongIdx).
// The sequence and the full list of rows are cached and rebuilt on the first query after
// any change of the tree, so that walking a playlist of 100,000 songs stays linear.
//
// Positions in the "full list" count every row in tree order (a list, then its children,
// then its next sibling), whether or not the rows are shown.
//
// Reports go out three ways: status texts (language text and file name) to the status
// function, change-song requests ('chsr' with int32 kSongIndexField) and window-title
// requests ('uwtr') as messages to the owner.
//
// Lives on the GUI thread, like every widget.

#include <QFileSystemWatcher>
#include <QMenu>
#include <QPointer>
#include <QTimer>
#include <QTreeWidget>
#include <QUrl>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "loaders/container_loader.h"
#include "playlist/app_messages.h"
#include "playlist/loader_host.h"
#include "playlist/quill_sitem.h"
#include "playlist/song_list.h"
#include "veldan/core/handler.h"

class TDrvCvt;
namespace veldan {
class TLLT;
}

class TOrvickView : public veldan::TMessageHandler<QTreeWidget>, public TSongList {
  public:
    static constexpr uint32_t kMsgChangeSongRqtd = 'chsr';
    static constexpr uint32_t kMsgUpdateWinTitle = 'uwtr';
    // Sent after deleting and sorting: song indexes have moved; int32 kSongIndexField holds
    // the current song's new index (-1 for none).
    static constexpr uint32_t kMsgCurSongIdxChanged = 'csic';
    // Pop-up menu commands.
    static constexpr uint32_t kMsgPopupDelete = 'pdlf';
    static constexpr uint32_t kMsgPopupAddNewList = 'panl';
    static constexpr uint32_t kMsgPopupSave = 'psvl';
    static constexpr uint32_t kMsgPopupSaveAs = 'psla';
    static constexpr uint32_t kMsgPopupSort = 'psrt';
    static constexpr uint32_t kMsgPopupOpenDoc = 'podc';  // handled by the owner
    static constexpr uint32_t kMsgPopupDeselect = 'pdsl';
    // The save panel's answer: int32 kListIdField, ref kSaveTargetField, and the next
    // message to send once the list is written.
    static constexpr uint32_t kMsgSaveRequested = 'SAVE';
    // Rows dragged to a new place: int32 kRowsField (full-list positions, one value per
    // row), int32 kDestListField (full-list position of the new parent list, -1 for the
    // top level) and int32 kDestIndexField (child index there, -1 for the end).
    static constexpr uint32_t kMsgChangeSongOrderRqtd = 'csor';
    static constexpr char kListIdField[] = "ListID";
    // The lists a save-as chain has offered already: ",id," for each.
    static constexpr char kSavedIdsField[] = "SvdID";
    static constexpr char kSaveTargetField[] = "SaveTarget";
    static constexpr char kRowsField[] = "Rows";
    static constexpr char kDestListField[] = "DestList";
    static constexpr char kDestIndexField[] = "DestIndex";
    // Rows dragged inside one view; see mimeData.
    static constexpr char kRowsMimeType[] = "application/x-quill-playlist-rows";
    // Given to a new playlist file whose chosen name has no extension.
    static constexpr char kPlaylistExtension[] = ".qml";
    static constexpr char kSongIndexField[] = "SongIdx";
    static constexpr char kSortKeyField[] = "SortKey";
    static constexpr int32_t kSortKeyUp = 1;
    static constexpr int32_t kSortKeyDown = 2;
    static constexpr char kWorkViewName[] = "WorkListView";

    // Values of the auto-sort setting, as the preferences store them.
    static constexpr int32_t kAutoSortByMagicNum = 0;
    static constexpr int32_t kAutoSortByNameUp = 1;
    static constexpr int32_t kAutoSortByNameDown = 2;

    // Containers nested deeper than this are not opened: a guard against folder trees and
    // playlists that never end.
    static constexpr int kMaxNesting = 64;
    // How long the loader folder stays unchanged before its plug-ins are loaded again.
    static constexpr int kLoaderSettleMs = 200;

    using TStatusFn = std::function<void(const std::string&)>;
    // Where to write list; nothing when the user cancelled.
    using TSavePanelFn = std::function<std::optional<std::filesystem::path>(const TQuillSItem&)>;
    enum class TSaveAnswer { kYes, kNo, kCancel };
    // Whether to save a modified list before it is lost.
    using TAskSaveFn = std::function<TSaveAnswer(const TQuillSItem&)>;
    // Tells the user why a list was not written.
    using TFailureFn = std::function<void(const std::string&)>;
    // Told of each list a save has written to its file.
    using TSavedFn = std::function<void(const TQuillSItem&)>;

    // texts must outlive the view. A work view starts with one empty native list row, the
    // main playlist with one new list. The loader list is built from loaderFolder, which is
    // watched for changes.
    TOrvickView(const veldan::TLLT& texts, bool workView,
                const std::filesystem::path& loaderFolder = default_loader_folder(),
                QWidget* parent = nullptr);
    ~TOrvickView() override;

    void SetOwner(QObject* owner) { fOwner = owner; }
    void SetStatusFn(TStatusFn status) { fStatus = std::move(status); }
    void SetAutoSortKind(int32_t kind) { fAutoSortKind = kind; }
    // The drive-letter table for Windows paths in playlists; it must outlive the view, and
    // a change of it holds for the next list read. Without one the view reads the table
    // file once, when it first meets a Windows path.
    void SetDrvCvt(const TDrvCvt* driveLetters) { fDrvCvt = driveLetters; }
    // The dialogs of saving; an empty function restores the default: a modal file dialog
    // titled "Save_Panel_Title", an alert asking "Ask_Save_List" with Yes, No and Cancel
    // (Escape), and the failure alert.
    void SetSavePanelFn(TSavePanelFn panel) { fSavePanel = std::move(panel); }
    void SetAskSaveFn(TAskSaveFn ask) { fAskSave = std::move(ask); }
    void SetFailureFn(TFailureFn failure) { fFailure = std::move(failure); }
    void SetSavedFn(TSavedFn saved) { fSaved = std::move(saved); }
    bool IsWorkView() const { return fWorkView; }

    // The song sequence.
    int32_t Songs() const override { return fSongs; }
    // Null when there are fewer songs.
    TQuillSItem* Song(int32_t songIndex) const;
    const std::filesystem::path& SongRef(int32_t songIndex) const override;
    const std::string& SongFileName(int32_t songIndex) const override;
    // -1 when the row there is a list or there is none.
    int32_t SongIdx(int32_t fullListIndex) const;
    // The song index of the n-th selected row (in full-list order); a negative selection
    // result is passed on as it stands.
    int32_t SelectedSongIdx(int32_t n) const;
    // The full-list position of the n-th selected row, -1 when there is none.
    int32_t CurrentSelection(int32_t n) const;
    int32_t CurSongIdx() const override { return fCurSongIdx; }
    void SetCurSongIdx(int32_t songIndex) override { fCurSongIdx = songIndex; }

    // The full list.
    int32_t FullListCountItems() const;
    TQuillSItem* FullListItemAt(int32_t fullListIndex) const;
    // -1 for a row of another view.
    int32_t FullListIndexOf(const TQuillSItem* row) const;

    // Adds a song, a folder or a container under parent (null: the top level); false with
    // a status text when it is missing, unsupported, a container already in the view, or
    // nested too deep. isContainer: a loader said so; the MIDI test is skipped. The current
    // song index follows its song.
    bool AddListFolderFile(const std::filesystem::path& ref, TQuillSItem* parent, int32_t magicNum,
                           bool isContainer = false);
    // Under the first row of the view, with insertion number -1; that list becomes
    // modified when something was added.
    bool AddListFolderFileToTopLevel(const std::filesystem::path& ref);
    // The first song added becomes current (a change-song request for song 0).
    TQuillSItem* AddMidiFile(const std::filesystem::path& ref, TQuillSItem* parent,
                             int32_t magicNum);
    // A native list without a file, numbered after the language text "New_List".
    TQuillSItem* AddNewList(TQuillSItem* parent);
    // Removes every row: no songs, no current song. Unsaved lists are the caller's concern.
    void ClearList();
    // Puts row under parent, or at the top level, where the window title follows the first
    // row ('uwtr').
    void AddSSItem(TQuillSItem* row, TQuillSItem* parent);
    // True, with a status text, when some row holds ref.
    bool DupliCheck(const std::filesystem::path& ref) const;
    // The MIME type is the MIDI type, or (kept as it always was) the lower-cased path holds
    // ".mid" anywhere: "SONG.MID", "a.midi", "a.mid.bak" and files in "x.mid/" all count.
    static bool IsMidiFile(const std::filesystem::path& ref);

    // Loads ref with loader and builds its list row of the given kind under parent; false
    // when the loader fails or nothing is left of a raw list.
    bool AddContainer(const std::filesystem::path& ref, TSupportFmt kind, TContainerLoader* loader,
                      TQuillSItem* parent, int32_t magicNum);
    // Writes the list with that id in the native format to target: the paths of the rows
    // directly under it whose files still exist, replacing target whole or not at all. Then
    // the row is clean, named by target, and native. False with *error (a language text and
    // a name) otherwise, target and the row as they were; the reason goes to stderr.
    bool OverwriteList(int32_t listId, const std::filesystem::path& target, std::string* error);
    TQuillSItem* FindList(int32_t listId) const;

    // Loaders.
    const TLoaderList& Loaders() const { return fLoaders; }
    TContainerLoader* FindContainerLoader(const std::filesystem::path& ref,
                                          TSupportFmt* kind) const;
    static bool IsContainerLoader(const std::filesystem::path& file);
    // Builds the loader list again from the folder. The view does so by itself, shortly
    // after a file in the folder was added, removed, renamed or written.
    void NodeLoaderChanged();

    void SendChangeSongRqtd(int32_t songIndex);
    void SendCurSongIdxChanged();

    // The pop-up menu for the selected rows, its items posting their commands to this
    // view (the open-document item to the owner); null when nothing is selected. The add,
    // save and save-as items appear only when a selected row is a list.
    std::unique_ptr<QMenu> BuildPopup();
    // Shows BuildPopup at a global position and runs it.
    void OpenPopup(const QPoint& where);

    // A new list beside each selected row, in full-list order.
    void PopupAddNewListClicked();
    // Removes the selected rows and everything under them, from the last up. The song count
    // drops by the songs removed; the current song index follows its song, and when the
    // current song itself goes the player is asked to change to the song that then holds
    // its index. The parent lists become modified. The first row, the main list, stays
    // (rows selected under it go): the window title, adding files and saving all need it.
    // First AskSaveSelectedList: nothing is removed when the user cancels.
    void PopupDeleteFileClicked();
    // Sorts, one level deep, each selected list or the list holding each selected song;
    // "SortKey" 1 ascending, 2 descending, anything else nothing.
    void PopupSortClicked(const veldan::TMessage& message);
    void PopupDeselectClicked() { clearSelection(); }

    // Saving. Each save message holds the list's id in kListIdField and may carry a next
    // message ("_NxMsg", "_NxMsgTgt"), sent once the list is written; a cancelled panel or
    // a failed write (the user is told why) ends the chain. The panel is modal, so each
    // returns true when the list was written by the time it returns.
    //
    // Saves the last selected list that is modified or unnamed, with 'psvl' as its next
    // message: the chain goes on until no selected list needs saving.
    void PopupSaveListClicked();
    // Offers the save panel for the last selected list whose id is not yet in "SvdID",
    // with the message, its id added, as the next one: one panel per selected list.
    void PopupSaveListAsClicked(const veldan::TMessage& message);
    // Writes a native list to its own file; any other list, which has no native file of
    // its own, goes through SaveListAs.
    bool SaveList(const veldan::TMessage& message);
    // Asks for the file, then SaveRequested with it in kSaveTargetField.
    bool SaveListAs(const veldan::TMessage& message);
    bool SaveRequested(const veldan::TMessage& message);

    // Ask to save, for each modified list that deleting the selection would remove (the
    // selected lists and the lists under selected rows), or for every modified list of the
    // view: Yes saves it (through the save panel when it has no native file), No leaves it,
    // Cancel, a cancelled panel or a failed save stop at once. True when the caller may go
    // on now. The dialogs are modal, so the answers are all in when these return: next is
    // NOT posted to target when they return true, and nothing is posted when they return
    // false. next and target are kept for a panel that answers later.
    bool AskSaveSelectedList(const veldan::TMessage& next, QObject* target);
    bool AskSaveAllList(const veldan::TMessage& next, QObject* target);
    bool HasModifiedList() const;

    // Moves the rows of a 'csor' message. The first row (the main list) stays first and
    // is never moved; songs are never put at the top level; a list is never put inside
    // itself; a row under another moved row goes with it. The moved rows keep their
    // order, the lists they left and joined become modified, and the current song index
    // follows its song ('csic' to the owner). False when nothing could be moved.
    bool ChangeSongOrderRqtd(const veldan::TMessage& message);
    // Adds each dropped file or folder (as AddListFolderFile does) to the list at where:
    // that list row, the list holding the song there, or the first list over empty space.
    // The dropped paths are put in the auto-sort order first; the list becomes modified
    // when something was added.
    void AddDroppedFiles(const QList<QUrl>& urls, const QPoint& where);
    // Every row's text again, after the language changed.
    void LanguageChanged();

    void MessageReceived(veldan::TMessage* message) override;

  protected:
    void contextMenuEvent(QContextMenuEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    // Dragging rows and dropping files: rows travel as kRowsMimeType, which names this
    // view and the state of its tree, so that a drop from another view, another process
    // or after the tree changed under the drag moves nothing.
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QList<QTreeWidgetItem*>& items) const override;
    Qt::DropActions supportedDropActions() const override;
    void startDrag(Qt::DropActions supportedActions) override;
    void dropEvent(QDropEvent* event) override;

  private:
    void BuildFlatList() const;
    std::vector<TQuillSItem*> SelectedRows() const;
    void MarkModified(TQuillSItem* list);
    // The current song index again from the row that was current before the tree changed.
    void FollowCurrentSong(const TQuillSItem* current);
    // The song that is current, read before a change of the tree; null when there is none.
    const TQuillSItem* CurrentSong() const {
        return fCurSongIdx >= 0 ? Song(fCurSongIdx) : nullptr;
    }
    bool AddOneFile(const std::filesystem::path& ref, TQuillSItem* parent, int32_t magicNum,
                    bool isContainer);
    void InvalidateFlatList() {
        fFlatValid = false;
        fTreeVersion++;
    }
    struct TDropPlace {
        TQuillSItem* list;  // null: the top level
        int index;          // -1: the end
    };
    TDropPlace DropPlace(const QPoint& where, bool withSongs) const;
    TQuillSItem* DropList(const QPoint& where) const;
    bool MoveDraggedRows(const QByteArray& rows, const QPoint& where);
    std::vector<TQuillSItem*> RowsToMove(const veldan::TMessage& message) const;
    TQuillSItem* ListOf(const veldan::TMessage& message) const;
    std::optional<std::filesystem::path> ChooseTarget(const TQuillSItem& list);
    std::optional<std::filesystem::path> RunSavePanel(const TQuillSItem& list);
    TSaveAnswer RunAskSave(const TQuillSItem& list) const;
    bool WriteList(int32_t listId, const std::filesystem::path& target);
    void ReportFailure(const std::string& text) const;
    bool AskSaveLists(const std::vector<TQuillSItem*>& lists);
    void Status(const char* key, const std::string& name) const;
    void AutoSort(TQuillSItem* list) const;
    void WatchLoaderFolder();
    const TDrvCvt& DriveLetters() const;

    const veldan::TLLT& fTexts;
    const bool fWorkView;
    std::filesystem::path fLoaderFolder;
    TLoaderList fLoaders;
    QFileSystemWatcher fLoaderWatcher;  // the folder and each file in it
    QTimer fLoaderSettle;
    QPointer<QObject> fOwner;
    TStatusFn fStatus;
    TSavePanelFn fSavePanel;
    TAskSaveFn fAskSave;
    TFailureFn fFailure;
    const TDrvCvt* fDrvCvt = nullptr;
    mutable std::unique_ptr<TDrvCvt> fOwnDrvCvt;
    TSavedFn fSaved;
    int32_t fAutoSortKind = kAutoSortByNameUp;
    int32_t fNextListId = 1;
    int32_t fNextNewListNumber = 1;
    int32_t fSongs = 0;
    int32_t fCurSongIdx = -1;
    int fNesting = 0;  // containers being loaded, one inside the other

    mutable bool fFlatValid = false;
    uint64_t fTreeVersion = 0;                      // raised by every change of the tree
    mutable std::vector<TQuillSItem*> fFlatRows;    // every row, full-list order
    mutable std::vector<int32_t> fFlatSongIndexes;  // per row: its song index or -1
    mutable std::vector<TQuillSItem*> fFlatSongs;   // the song rows, in order
};
