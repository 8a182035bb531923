// Saving lists from the playlist view, asking to save them, moving rows by dragging and
// adding files dropped from a file manager.

#include <QDropEvent>
#include <QMimeData>
#include <QUrl>
#include <algorithm>
#include <map>
#include <set>

#include "playlist/native_loader.h"
#include "tests/playlist/playlist_fixture.h"
#include "tests/support/fault_child.h"
#include "tests/support/smf_builder.h"
#include "veldan/base/atomic_file.h"

namespace fs = std::filesystem;

namespace {

using TAnswer = TOrvickView::TSaveAnswer;

// Qt hands a drop event only to the window a drag in progress is over, so the tests call
// the view's drop handler as that delivery would.
class TDropView : public TOrvickView {
  public:
    using TOrvickView::dropEvent;
    using TOrvickView::TOrvickView;
};

class ViewSaveDrop : public PlaylistTest {
  protected:
    ViewSaveDrop() { fView = MakeTestView(); }

    // The dialogs answer from the test: panel answers by list id, questions in turn.
    std::unique_ptr<TDropView> MakeTestView(const fs::path& loaderFolder = {}) {
        auto view = std::make_unique<TDropView>(
            fTexts, false, loaderFolder.empty() ? fTemp.Path() / "no-loaders" : loaderFolder);
        view->SetOwner(&fOwner);
        view->SetStatusFn([this](const std::string& text) { fStatus.push_back(text); });
        view->SetSavePanelFn([this](const TQuillSItem& list) -> std::optional<fs::path> {
            fPanelAsked.push_back(list.ListId());
            const auto answer = fPanelAnswers.find(list.ListId());
            if (answer == fPanelAnswers.end()) return std::nullopt;
            return answer->second;
        });
        view->SetAskSaveFn([this](const TQuillSItem& list) {
            fQuestions.push_back(list.ListId());
            if (fAnswers.empty()) {
                ADD_FAILURE() << "asked about list " << list.ListId() << " unexpectedly";
                return TAnswer::kCancel;
            }
            const TAnswer answer = fAnswers.front();
            fAnswers.erase(fAnswers.begin());
            return answer;
        });
        view->SetFailureFn([this](const std::string& text) { fFailures.push_back(text); });
        return view;
    }

    TQuillSItem* TopList() const { return static_cast<TQuillSItem*>(fView->topLevelItem(0)); }
    static TQuillSItem* Child(const QTreeWidgetItem* list, int index) {
        return static_cast<TQuillSItem*>(list->child(index));
    }

    // A real one-track MIDI file in the temporary folder.
    fs::path Midi(const std::string& name) const {
        TSmfBuilder smf(0, 480);
        smf.AddTrack().Tempo(0, 500000).NoteOn(0, 0, 60, 100).NoteOff(480, 0, 60);
        return fTemp.Write(name, smf.Bytes());
    }
    TQuillSItem* AddSong(const std::string& name, TQuillSItem* list) {
        return fView->AddMidiFile(Midi(name), list, -1);
    }
    // A native list file holding songs, added under the first list. That marks the first
    // list modified, which the tests of the lists under it set aside.
    TQuillSItem* AddNativeList(const std::string& name, const std::vector<fs::path>& songs) {
        std::string text = "MarnelList$1\n";
        for (const fs::path& song : songs) text += song.string() + "\n";
        const fs::path file = fTemp.Write(name, text);
        EXPECT_TRUE(fView->AddListFolderFileToTopLevel(file));
        return Child(TopList(), TopList()->childCount() - 1);
    }

    // Delivers posted messages round by round, each round the continuations the last one
    // posted; a chain that never ended would show in the counts the tests check.
    void DrainMessages() {
        for (int round = 0; round < 50; round++) {
            QCoreApplication::sendPostedEvents(nullptr, veldan::TMessageEvent::EventType());
        }
    }

    std::vector<std::string> Lines(const fs::path& file) const {
        const std::vector<uint8_t> bytes = read_file_bytes(file);
        std::vector<std::string> lines;
        std::string line;
        for (uint8_t byte : bytes) {
            if (byte == '\n') {
                lines.push_back(line);
                line.clear();
            } else {
                line += char(byte);
            }
        }
        if (!line.empty()) lines.push_back(line);
        return lines;
    }
    // What the native loader reads back from a saved file.
    std::vector<std::string> ReadBack(const fs::path& file) const {
        TCLNative100 loader;
        TSupportFmt kind = kFmtSong;
        EXPECT_TRUE(loader.IsLoadable(file.string(), &kind)) << file;
        std::vector<TContainerEntry> entries;
        EXPECT_EQ(loader.Load(file.string(), &entries), 0);
        std::vector<std::string> paths;
        for (const TContainerEntry& entry : entries) paths.push_back(entry.path);
        return paths;
    }
    std::vector<std::string> Names(const QTreeWidgetItem* list) const {
        std::vector<std::string> names;
        for (int i = 0; i < list->childCount(); i++) names.push_back(Child(list, i)->FileName());
        return names;
    }
    // The indexes of the 'csic' messages received since the last call.
    std::vector<int32_t> IndexChanges() {
        DrainMessages();
        std::vector<int32_t> indexes;
        for (const veldan::TMessage& message : fOwner.received) {
            int32_t index = -99;
            if (message.what == TOrvickView::kMsgCurSongIdxChanged &&
                message.FindInt32(TOrvickView::kSongIndexField, &index))
                indexes.push_back(index);
        }
        fOwner.received.clear();
        return indexes;
    }

    // Lays the rows out where drops can find them, without showing a window.
    void ShowExpanded() {
        fView->resize(400, 600);
        fView->viewport()->resize(400, 600);
        fView->expandAll();
        fView->doItemsLayout();
    }
    // A point in the viewport on the upper edge of row: a drop there goes before it.
    QPoint Above(QTreeWidgetItem* row) const {
        return fView->visualItemRect(row).topLeft() + QPoint(5, 1);
    }
    QPoint Middle(QTreeWidgetItem* row) const { return fView->visualItemRect(row).center(); }
    QPoint Empty() const { return QPoint(5, fView->viewport()->height() - 2); }
    // Drops data at where (viewport coordinates); true when the view took it.
    bool Drop(QMimeData* data, const QPoint& where) {
        QDropEvent drop(QPointF(where), Qt::CopyAction | Qt::MoveAction, data, Qt::LeftButton,
                        Qt::NoModifier);
        drop.ignore();
        fView->dropEvent(&drop);
        delete data;
        return drop.isAccepted();
    }
    // What a drag of the selected rows carries.
    QMimeData* DraggedSelection(const TOrvickView& view) const {
        return view.model()->mimeData(view.selectionModel()->selectedIndexes());
    }

    std::unique_ptr<TDropView> fView;
    std::map<int32_t, fs::path> fPanelAnswers;
    std::vector<int32_t> fPanelAsked;
    std::vector<TAnswer> fAnswers;
    std::vector<int32_t> fQuestions;
    std::vector<std::string> fFailures;
};

}  // namespace

// Saving --------------------------------------------------------------------------------

TEST_F(ViewSaveDrop, SaveAsOnThreeSelectedListsOffersEachOnceFromTheLast) {
    TQuillSItem* first = TopList();
    TQuillSItem* second = fView->AddNewList(nullptr);
    TQuillSItem* third = fView->AddNewList(nullptr);
    std::map<int32_t, std::string> songOf;
    for (TQuillSItem* list : {first, second, third}) {
        const std::string name = "song" + std::to_string(list->ListId()) + ".mid";
        songOf[list->ListId()] = (fTemp.Path() / name).string();
        AddSong(name, list);
        list->setSelected(true);
        // Without an extension: the view gives new playlist files theirs.
        fPanelAnswers[list->ListId()] = fTemp.Path() / ("list" + std::to_string(list->ListId()));
    }
    veldan::post_message(fView.get(), veldan::TMessage(TOrvickView::kMsgPopupSaveAs));
    DrainMessages();

    EXPECT_EQ(fPanelAsked,
              (std::vector<int32_t>{third->ListId(), second->ListId(), first->ListId()}));
    EXPECT_EQ(std::set<int32_t>(fPanelAsked.begin(), fPanelAsked.end()).size(), 3u);
    EXPECT_TRUE(fFailures.empty());
    for (TQuillSItem* list : {first, second, third}) {
        const fs::path file = fTemp.Path() / ("list" + std::to_string(list->ListId()) + ".qml");
        EXPECT_EQ(ReadBack(file), std::vector<std::string>{songOf[list->ListId()]});
        EXPECT_EQ(list->EntryRef(), file);
        EXPECT_FALSE(list->UnnamedNewList());
        EXPECT_FALSE(list->Modified());
        EXPECT_EQ(list->text(0).toStdString(), "[L] " + file.filename().string());
    }
}

TEST_F(ViewSaveDrop, CancellingTheSavePanelEndsTheSaveAsChain) {
    TQuillSItem* second = fView->AddNewList(nullptr);
    TopList()->setSelected(true);
    second->setSelected(true);
    fPanelAnswers[TopList()->ListId()] = fTemp.Path() / "first.qml";  // never reached
    veldan::post_message(fView.get(), veldan::TMessage(TOrvickView::kMsgPopupSaveAs));
    DrainMessages();
    EXPECT_EQ(fPanelAsked, std::vector<int32_t>{second->ListId()});
    EXPECT_FALSE(fs::exists(fTemp.Path() / "first.qml"));
    EXPECT_TRUE(TopList()->UnnamedNewList());
}

TEST_F(ViewSaveDrop, SaveWritesOnlyDirectSongsAndSkipsAFileDeletedMeanwhile) {
    const fs::path a = Midi("a.mid");
    const fs::path b = Midi("b.mid");
    TQuillSItem* list = AddNativeList("mine.qml", {a, b});
    TQuillSItem* nested = fView->AddNewList(list);
    AddSong("nested.mid", nested);
    const TQuillSItem* c = AddSong("c.mid", list);
    ASSERT_EQ(list->childCount(), 4);
    fs::remove(b);
    list->SetModified(true);  // as the user's editing leaves it
    list->setSelected(true);

    fView->PopupSaveListClicked();
    DrainMessages();

    EXPECT_TRUE(fPanelAsked.empty());  // it has a native file of its own
    EXPECT_TRUE(fFailures.empty());
    EXPECT_EQ(Lines(fTemp.Path() / "mine.qml"),
              (std::vector<std::string>{"MarnelList$1", a.string(), c->EntryRef().string()}));
    EXPECT_FALSE(list->Modified());
    EXPECT_TRUE(nested->UnnamedNewList());  // only the selected list was saved
}

TEST_F(ViewSaveDrop, TheSaveChainSavesEverySelectedListThatNeedsItAndEnds) {
    TQuillSItem* clean = AddNativeList("clean.qml", {Midi("a.mid")});
    const std::vector<uint8_t> cleanBytes = read_file_bytes(fTemp.Path() / "clean.qml");
    TQuillSItem* second = fView->AddNewList(nullptr);
    TQuillSItem* third = fView->AddNewList(nullptr);
    for (TQuillSItem* list : {clean, second, third}) list->setSelected(true);
    fPanelAnswers[second->ListId()] = fTemp.Path() / "second.qml";
    fPanelAnswers[third->ListId()] = fTemp.Path() / "third.qml";

    veldan::post_message(fView.get(), veldan::TMessage(TOrvickView::kMsgPopupSave));
    DrainMessages();

    EXPECT_EQ(fPanelAsked, (std::vector<int32_t>{third->ListId(), second->ListId()}));
    EXPECT_EQ(ReadBack(fTemp.Path() / "second.qml"), std::vector<std::string>{});
    EXPECT_EQ(ReadBack(fTemp.Path() / "third.qml"), std::vector<std::string>{});
    EXPECT_EQ(read_file_bytes(fTemp.Path() / "clean.qml"), cleanBytes);
    EXPECT_FALSE(second->UnnamedNewList());
    EXPECT_FALSE(third->UnnamedNewList());
}

TEST_F(ViewSaveDrop, AFailedSaveIsReportedAndEndsTheChain) {
    TopList()->setSelected(true);
    fPanelAnswers[TopList()->ListId()] = fTemp.Path() / "missing-folder" / "x.qml";
    veldan::post_message(fView.get(), veldan::TMessage(TOrvickView::kMsgPopupSave));
    DrainMessages();
    EXPECT_EQ(fPanelAsked.size(), 1u);
    EXPECT_EQ(fFailures, std::vector<std::string>{"Cannot save: x.qml"});
    EXPECT_TRUE(TopList()->UnnamedNewList());
}

TEST_F(ViewSaveDrop, AFullDiskLeavesTheSavedListAndReportsItByName) {
    TQuillSItem* list = AddNativeList("mine.qml", {Midi("a.mid"), Midi("b.mid")});
    const std::vector<uint8_t> before = read_file_bytes(fTemp.Path() / "mine.qml");
    for (int i = 0; i < 60; i++) AddSong("more " + std::to_string(i) + ".mid", list);
    list->SetModified(true);
    list->setSelected(true);
    {
        TScopedFileSizeLimit full(int64_t(before.size()));
        fView->PopupSaveListClicked();
        DrainMessages();
    }
    EXPECT_EQ(fFailures, std::vector<std::string>{"Cannot save: mine.qml"});
    EXPECT_EQ(read_file_bytes(fTemp.Path() / "mine.qml"), before);
    EXPECT_TRUE(list->Modified());
    for (const auto& entry : fs::directory_iterator(fTemp.Path()))
        EXPECT_FALSE(veldan::is_atomic_temporary(entry.path().filename().string())) << entry;
}

TEST_F(ViewSaveDrop, SavingAListDeletedMeanwhileReportsIt) {
    veldan::TMessage save(TOrvickView::kMsgSaveRequested);
    save.AddInt32(TOrvickView::kListIdField, 999);
    EXPECT_FALSE(fView->SaveList(save));
    EXPECT_EQ(fFailures, std::vector<std::string>{"Deleted"});
}

// Asking to save ------------------------------------------------------------------------

TEST_F(ViewSaveDrop, CancelStopsQuittingAndWritesNothing) {
    TQuillSItem* first = AddNativeList("first.qml", {Midi("a.mid")});
    TQuillSItem* second = AddNativeList("second.qml", {Midi("b.mid")});
    const std::vector<uint8_t> before = read_file_bytes(fTemp.Path() / "first.qml");
    AddSong("extra.mid", first);
    first->SetModified(true);
    second->SetModified(true);
    fAnswers = {TAnswer::kCancel};
    TRecordingOwner quitter;

    EXPECT_FALSE(fView->AskSaveAllList(veldan::TMessage(veldan::kMsgQuitRequested), &quitter));
    DrainMessages();
    EXPECT_EQ(fQuestions, std::vector<int32_t>{first->ListId()});
    EXPECT_EQ(read_file_bytes(fTemp.Path() / "first.qml"), before);
    EXPECT_TRUE(quitter.received.empty());
    EXPECT_TRUE(fView->HasModifiedList());
}

TEST_F(ViewSaveDrop, NoLeavesTheFileAndQuittingGoesOnAtOnce) {
    TQuillSItem* list = AddNativeList("mine.qml", {Midi("a.mid")});
    const std::vector<uint8_t> before = read_file_bytes(fTemp.Path() / "mine.qml");
    AddSong("b.mid", list);
    list->SetModified(true);
    fAnswers = {TAnswer::kNo};
    TRecordingOwner quitter;

    EXPECT_TRUE(fView->AskSaveAllList(veldan::TMessage(veldan::kMsgQuitRequested), &quitter));
    DrainMessages();
    EXPECT_EQ(fQuestions, std::vector<int32_t>{list->ListId()});
    EXPECT_EQ(read_file_bytes(fTemp.Path() / "mine.qml"), before);
    EXPECT_TRUE(quitter.received.empty());  // the caller goes on itself
}

TEST_F(ViewSaveDrop, YesWritesEachModifiedListAndUnnamedOnesThroughThePanel) {
    TQuillSItem* named = AddNativeList("named.qml", {Midi("a.mid")});
    const fs::path b = Midi("b.mid");
    fView->AddMidiFile(b, named, -1);
    named->SetModified(true);
    TQuillSItem* unnamed = fView->AddNewList(nullptr);
    AddSong("c.mid", unnamed);
    unnamed->SetModified(true);
    TQuillSItem* untouched = AddNativeList("untouched.qml", {});
    fAnswers = {TAnswer::kYes, TAnswer::kYes};
    fPanelAnswers[unnamed->ListId()] = fTemp.Path() / "new.qml";
    TRecordingOwner quitter;

    EXPECT_TRUE(fView->AskSaveAllList(veldan::TMessage(veldan::kMsgQuitRequested), &quitter));
    DrainMessages();
    // Lists that are not modified are not asked about.
    EXPECT_EQ(fQuestions, (std::vector<int32_t>{named->ListId(), unnamed->ListId()}));
    EXPECT_EQ(fPanelAsked, std::vector<int32_t>{unnamed->ListId()});
    EXPECT_EQ(ReadBack(fTemp.Path() / "named.qml"),
              (std::vector<std::string>{(fTemp.Path() / "a.mid").string(), b.string()}));
    EXPECT_EQ(ReadBack(fTemp.Path() / "new.qml"),
              std::vector<std::string>{(fTemp.Path() / "c.mid").string()});
    EXPECT_FALSE(untouched->Modified());
    EXPECT_FALSE(fView->HasModifiedList());
    EXPECT_TRUE(quitter.received.empty());
}

TEST_F(ViewSaveDrop, YesWithACancelledPanelStopsQuitting) {
    TopList()->SetModified(true);
    fAnswers = {TAnswer::kYes};
    EXPECT_FALSE(fView->AskSaveAllList(veldan::TMessage(veldan::kMsgQuitRequested), &fOwner));
    EXPECT_EQ(fPanelAsked, std::vector<int32_t>{TopList()->ListId()});
    EXPECT_TRUE(fView->HasModifiedList());
}

TEST_F(ViewSaveDrop, NothingModifiedAsksNothing) {
    fView->AddNewList(nullptr);
    EXPECT_FALSE(fView->HasModifiedList());
    EXPECT_TRUE(fView->AskSaveAllList(veldan::TMessage(veldan::kMsgQuitRequested), &fOwner));
    EXPECT_TRUE(fQuestions.empty());
}

TEST_F(ViewSaveDrop, DeletingAModifiedListAsksFirst) {
    TQuillSItem* outer = fView->AddNewList(TopList());
    TQuillSItem* inner = fView->AddNewList(outer);
    AddSong("a.mid", inner);
    inner->SetModified(true);
    outer->setSelected(true);
    const int32_t innerId = inner->ListId();  // the row is gone after the delete

    fAnswers = {TAnswer::kCancel};
    fView->PopupDeleteFileClicked();
    EXPECT_EQ(fQuestions, std::vector<int32_t>{innerId});
    ASSERT_EQ(TopList()->childCount(), 1);
    EXPECT_EQ(fView->Songs(), 1);

    fAnswers = {TAnswer::kNo};
    fView->PopupDeleteFileClicked();
    EXPECT_EQ(fQuestions, (std::vector<int32_t>{innerId, innerId}));
    EXPECT_EQ(TopList()->childCount(), 0);
    EXPECT_EQ(fView->Songs(), 0);
}

TEST_F(ViewSaveDrop, DeletingWithYesSavesTheListBeforeItGoes) {
    const fs::path a = Midi("a.mid");
    TQuillSItem* list = AddNativeList("mine.qml", {a});
    AddSong("b.mid", list);
    list->SetModified(true);
    list->setSelected(true);
    fAnswers = {TAnswer::kYes};
    veldan::post_message(fView.get(), veldan::TMessage(TOrvickView::kMsgPopupDelete));
    DrainMessages();
    EXPECT_EQ(ReadBack(fTemp.Path() / "mine.qml"),
              (std::vector<std::string>{a.string(), (fTemp.Path() / "b.mid").string()}));
    EXPECT_EQ(TopList()->childCount(), 0);
}

// Moving rows ---------------------------------------------------------------------------

TEST_F(ViewSaveDrop, DraggingASongToAnotherListMarksBothAndKeepsTheCurrentSong) {
    TQuillSItem* a = AddSong("a.mid", TopList());
    AddSong("b.mid", TopList());
    TQuillSItem* other = fView->AddNewList(nullptr);
    TQuillSItem* c = AddSong("c.mid", other);
    TQuillSItem* d = AddSong("d.mid", other);
    fView->SetCurSongIdx(2);  // c.mid
    ShowExpanded();
    IndexChanges();
    a->setSelected(true);

    EXPECT_TRUE(Drop(DraggedSelection(*fView), Above(d)));

    EXPECT_EQ(Names(TopList()), std::vector<std::string>{"b.mid"});
    EXPECT_EQ(Names(other), (std::vector<std::string>{"c.mid", "a.mid", "d.mid"}));
    EXPECT_TRUE(TopList()->Modified());
    EXPECT_TRUE(other->Modified());
    EXPECT_EQ(fView->Songs(), 4);
    EXPECT_EQ(fView->Song(fView->CurSongIdx()), c);
    EXPECT_EQ(IndexChanges(), std::vector<int32_t>{1});
    EXPECT_EQ(fView->Song(2), a);  // the flat song cache follows the move
    EXPECT_TRUE(a->isSelected());
}

TEST_F(ViewSaveDrop, MovedRowsKeepTheirOrderAndAListTakesItsRowsAlong) {
    TQuillSItem* a = AddSong("a.mid", TopList());
    TQuillSItem* inner = fView->AddNewList(TopList());
    TQuillSItem* b = AddSong("b.mid", inner);
    TQuillSItem* c = AddSong("c.mid", TopList());
    TQuillSItem* other = fView->AddNewList(nullptr);
    ShowExpanded();
    for (QTreeWidgetItem* row :
         {static_cast<QTreeWidgetItem*>(a), static_cast<QTreeWidgetItem*>(inner),
          static_cast<QTreeWidgetItem*>(b), static_cast<QTreeWidgetItem*>(c)})
        row->setSelected(true);

    EXPECT_TRUE(Drop(DraggedSelection(*fView), Middle(other)));

    EXPECT_EQ(TopList()->childCount(), 0);
    ASSERT_EQ(other->childCount(), 3);
    EXPECT_EQ(other->child(0), a);
    EXPECT_EQ(other->child(1), inner);
    EXPECT_EQ(other->child(2), c);
    EXPECT_EQ(inner->child(0), b);
    EXPECT_TRUE(inner->isExpanded());
    EXPECT_FALSE(inner->Modified());
    EXPECT_EQ(fView->Songs(), 3);
}

TEST_F(ViewSaveDrop, ASongIsNeverPutAtTheTopLevel) {
    TQuillSItem* a = AddSong("a.mid", TopList());
    TQuillSItem* other = fView->AddNewList(nullptr);
    veldan::TMessage move(TOrvickView::kMsgChangeSongOrderRqtd);
    move.AddInt32(TOrvickView::kRowsField, fView->FullListIndexOf(a));
    move.AddInt32(TOrvickView::kDestListField, -1);
    move.AddInt32(TOrvickView::kDestIndexField, -1);
    EXPECT_FALSE(fView->ChangeSongOrderRqtd(move));
    EXPECT_EQ(a->parent(), TopList());
    EXPECT_FALSE(TopList()->Modified());

    // Dropped below the last list's row, the song goes into that list.
    ShowExpanded();
    a->setSelected(true);
    const QRect otherRow = fView->visualItemRect(other);
    EXPECT_TRUE(Drop(DraggedSelection(*fView), QPoint(5, otherRow.bottom())));
    EXPECT_EQ(a->parent(), other);
    EXPECT_EQ(fView->topLevelItemCount(), 2);
}

TEST_F(ViewSaveDrop, AListIsNeverPutInsideItselfAndTheMainListStaysFirst) {
    TQuillSItem* outer = fView->AddNewList(nullptr);
    TQuillSItem* inner = fView->AddNewList(outer);
    veldan::TMessage intoItself(TOrvickView::kMsgChangeSongOrderRqtd);
    intoItself.AddInt32(TOrvickView::kRowsField, fView->FullListIndexOf(outer));
    intoItself.AddInt32(TOrvickView::kDestListField, fView->FullListIndexOf(inner));
    intoItself.AddInt32(TOrvickView::kDestIndexField, -1);
    EXPECT_FALSE(fView->ChangeSongOrderRqtd(intoItself));
    EXPECT_EQ(inner->parent(), outer);

    veldan::TMessage toTheTop(TOrvickView::kMsgChangeSongOrderRqtd);
    toTheTop.AddInt32(TOrvickView::kRowsField, fView->FullListIndexOf(inner));
    toTheTop.AddInt32(TOrvickView::kDestListField, -1);
    toTheTop.AddInt32(TOrvickView::kDestIndexField, 0);
    EXPECT_TRUE(fView->ChangeSongOrderRqtd(toTheTop));
    EXPECT_EQ(fView->topLevelItem(1), inner);
    EXPECT_TRUE(outer->Modified());

    veldan::TMessage mainList(TOrvickView::kMsgChangeSongOrderRqtd);
    mainList.AddInt32(TOrvickView::kRowsField, 0);
    mainList.AddInt32(TOrvickView::kDestListField, fView->FullListIndexOf(outer));
    mainList.AddInt32(TOrvickView::kDestIndexField, -1);
    EXPECT_FALSE(fView->ChangeSongOrderRqtd(mainList));
}

TEST_F(ViewSaveDrop, RowsDraggedFromAnotherViewMoveNothing) {
    TQuillSItem* a = AddSong("a.mid", TopList());
    TQuillSItem* other = fView->AddNewList(nullptr);
    std::unique_ptr<TDropView> second = MakeTestView();
    auto* stranger =
        second->AddMidiFile(Midi("x.mid"), static_cast<TQuillSItem*>(second->topLevelItem(0)), -1);
    ShowExpanded();
    stranger->setSelected(true);
    EXPECT_FALSE(Drop(DraggedSelection(*second), Middle(other)));
    EXPECT_EQ(a->parent(), TopList());
    EXPECT_EQ(other->childCount(), 0);

    // Nor do rows of this view once the tree changed under the drag.
    a->setSelected(true);
    QMimeData* stale = DraggedSelection(*fView);
    AddSong("b.mid", TopList());
    EXPECT_FALSE(Drop(stale, Middle(other)));
    EXPECT_EQ(other->childCount(), 0);
}

// Dropping files ------------------------------------------------------------------------

TEST_F(ViewSaveDrop, DroppingAFolderAddsItsMidiFiles) {
    fView = MakeTestView(SHIPPED_LOADER_DIR);
    Midi("dropped/one.mid");
    Midi("dropped/two.mid");
    fTemp.Write("dropped/notes.txt", std::string("not a playlist\n"));
    ShowExpanded();
    auto* data = new QMimeData;
    data->setUrls(
        {QUrl::fromLocalFile(QString::fromStdString((fTemp.Path() / "dropped").string()))});

    EXPECT_TRUE(Drop(data, Empty()));

    EXPECT_EQ(fView->Songs(), 2);
    ASSERT_EQ(TopList()->childCount(), 1);
    const TQuillSItem* folder = Child(TopList(), 0);
    EXPECT_EQ(folder->Kind(), kFmtFolderList);
    EXPECT_EQ(Names(folder), (std::vector<std::string>{"one.mid", "two.mid"}));
    EXPECT_TRUE(TopList()->Modified());
}

TEST_F(ViewSaveDrop, FilesDroppedOnASongJoinItsListInTheAutoSortOrder) {
    AddSong("a.mid", TopList());
    TQuillSItem* other = fView->AddNewList(nullptr);
    TQuillSItem* c = AddSong("c.mid", other);
    fView->SetCurSongIdx(1);  // c.mid
    ShowExpanded();
    IndexChanges();
    auto* data = new QMimeData;
    data->setUrls({QUrl::fromLocalFile(QString::fromStdString(Midi("z.mid").string())),
                   QUrl::fromLocalFile(QString::fromStdString(Midi("m.mid").string())),
                   QUrl(QStringLiteral("https://example.org/remote.mid"))});

    EXPECT_TRUE(Drop(data, Middle(c)));

    EXPECT_EQ(Names(other), (std::vector<std::string>{"c.mid", "m.mid", "z.mid"}));
    EXPECT_EQ(Names(TopList()), std::vector<std::string>{"a.mid"});
    EXPECT_TRUE(other->Modified());
    EXPECT_FALSE(TopList()->Modified());
    EXPECT_EQ(fView->Songs(), 4);
    EXPECT_EQ(fView->Song(fView->CurSongIdx()), c);
}

TEST_F(ViewSaveDrop, FilesDroppedAboveTheCurrentSongMoveItsIndex) {
    TQuillSItem* other = fView->AddNewList(nullptr);
    TQuillSItem* c = AddSong("c.mid", other);
    fView->SetCurSongIdx(0);
    ShowExpanded();
    IndexChanges();
    auto* data = new QMimeData;
    data->setUrls({QUrl::fromLocalFile(QString::fromStdString(Midi("b.mid").string()))});

    EXPECT_TRUE(Drop(data, Middle(TopList())));

    EXPECT_EQ(Names(TopList()), std::vector<std::string>{"b.mid"});
    EXPECT_EQ(fView->CurSongIdx(), 1);
    EXPECT_EQ(fView->Song(1), c);
    EXPECT_EQ(IndexChanges(), std::vector<int32_t>{1});
}

TEST_F(ViewSaveDrop, SongsAddedToASavedMainListAreWrittenByThePopupSave) {
    const fs::path a = Midi("a.mid");
    const fs::path b = Midi("b.mid");
    const fs::path file = fTemp.Write("main.qml", "MarnelList$1\n" + a.string() + "\n");
    fView->ClearList();
    ASSERT_TRUE(fView->AddListFolderFile(file, nullptr, -1));
    ASSERT_FALSE(TopList()->Modified());

    ASSERT_TRUE(fView->AddListFolderFileToTopLevel(b));
    EXPECT_TRUE(fView->HasModifiedList());
    TopList()->setSelected(true);
    fView->PopupSaveListClicked();
    DrainMessages();

    EXPECT_EQ(ReadBack(file), (std::vector<std::string>{a.string(), b.string()}));
    EXPECT_FALSE(TopList()->Modified());
    EXPECT_TRUE(fPanelAsked.empty());
}

TEST_F(ViewSaveDrop, DeletingWithTheMainListSelectedNeitherAsksAboutNorRemovesIt) {
    AddSong("a.mid", TopList());
    TopList()->SetModified(true);
    TopList()->setSelected(true);
    fView->PopupDeleteFileClicked();
    EXPECT_TRUE(fQuestions.empty());
    ASSERT_EQ(fView->topLevelItemCount(), 1);
    EXPECT_EQ(TopList()->childCount(), 1);
    EXPECT_EQ(fView->Songs(), 1);
}
