#include "playlist/orvick_view.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/playlist/playlist_fixture.h"

namespace fs = std::filesystem;

namespace {

class OrvickView : public PlaylistTest {
  protected:
    OrvickView() : fView(MakeView()) {}

    TQuillSItem* TopList() const { return static_cast<TQuillSItem*>(fView->topLevelItem(0)); }
    TQuillSItem* AddSong(const std::string& name, TQuillSItem* parent = nullptr) {
        return fView->AddMidiFile(fTemp.Path() / name, parent ? parent : TopList(), -1);
    }
    std::vector<std::string> ChildNames(const TQuillSItem* list) const {
        std::vector<std::string> names;
        for (int i = 0; i < list->childCount(); i++) {
            names.push_back(static_cast<const TQuillSItem*>(list->child(i))->FileName());
        }
        return names;
    }
    std::vector<std::string> SongNames() const {
        std::vector<std::string> names;
        for (int32_t i = 0; i < fView->Songs(); i++) names.push_back(fView->Song(i)->FileName());
        return names;
    }
    std::vector<int32_t> ChangeSongRequests() {
        QCoreApplication::processEvents();
        std::vector<int32_t> indexes;
        for (const veldan::TMessage& message : fOwner.received) {
            int32_t index = -99;
            if (message.what == TOrvickView::kMsgChangeSongRqtd) {
                message.FindInt32(TOrvickView::kSongIndexField, &index);
                indexes.push_back(index);
            }
        }
        return indexes;
    }

    std::unique_ptr<TOrvickView> fView;
};

// Gives pipes a writer now and then once the grace time is over, so that a reader stuck in
// opening one comes free: the test then fails instead of hanging.
class TPipeRescue {
  public:
    explicit TPipeRescue(std::vector<fs::path> pipes)
        : fThread([this, pipes = std::move(pipes)] {
              const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
              while (!fDone) {
                  if (std::chrono::steady_clock::now() > deadline) {
                      for (const fs::path& pipe : pipes) {
                          const int end = ::open(pipe.c_str(), O_RDWR | O_NONBLOCK);
                          if (end >= 0) ::close(end);
                      }
                      fRescued = true;
                  }
                  std::this_thread::sleep_for(std::chrono::milliseconds(20));
              }
          }) {}
    ~TPipeRescue() {
        fDone = true;
        fThread.join();
    }
    bool Rescued() const { return fRescued; }

  private:
    std::atomic<bool> fDone{false};
    std::atomic<bool> fRescued{false};
    std::thread fThread;
};

}  // namespace

TEST_F(OrvickView, AFreshViewHoldsOneNewListAndNoSongs) {
    ASSERT_EQ(fView->topLevelItemCount(), 1);
    EXPECT_EQ(TopList()->text(0).toStdString(), "[L] New List 1");
    EXPECT_EQ(TopList()->Kind(), kFmtNativeList);
    EXPECT_TRUE(TopList()->UnnamedNewList());
    EXPECT_EQ(fView->Songs(), 0);
    EXPECT_EQ(fView->Song(0), nullptr);
    EXPECT_EQ(fView->CurSongIdx(), -1);
}

TEST_F(OrvickView, NewListsAreNumberedOnAndAskForANewWindowTitleAtTheTopLevel) {
    TQuillSItem* second = fView->AddNewList(nullptr);
    TQuillSItem* nested = fView->AddNewList(second);
    EXPECT_EQ(second->text(0).toStdString(), "[L] New List 2");
    EXPECT_EQ(nested->text(0).toStdString(), "[L] New List 3");
    EXPECT_NE(second->ListId(), nested->ListId());
    QCoreApplication::processEvents();
    int titleRequests = 0;
    for (const auto& message : fOwner.received) {
        titleRequests += message.what == TOrvickView::kMsgUpdateWinTitle;
    }
    EXPECT_EQ(titleRequests, 1);  // the first list was made before the owner was set
}

TEST_F(OrvickView, AMissingLanguageTextFallsBackAsTheLanguageTableDoes) {
    veldan::TLLT empty;
    TOrvickView view(empty, false, fTemp.Path() / "no-loaders");
    EXPECT_EQ(view.topLevelItem(0)->text(0).toStdString(),
              std::string("[L] ") + empty.Text("New_List") + "1");
}

TEST_F(OrvickView, RowTextsCarryTheKindsMarkerAndTheModifiedMark) {
    const std::vector<std::pair<TSupportFmt, std::string>> kinds = {
        {kFmtSong, ""},         {kFmtGeneralList, "[G] "}, {kFmtFolderList, "[F] "},
        {kFmtRawList, "[R] "},  {kFmtSemiRawList, "[S] "}, {kFmtNativeList, "[L] "},
        {TSupportFmt(4242), ""}};
    for (const auto& [kind, marker] : kinds) {
        TQuillSItem row(fs::path("/music/name.lst"), kind);
        row.UpdateText(fTexts);
        EXPECT_EQ(row.Text(), marker + "name.lst") << kind;
        EXPECT_EQ(row.Container(), kind != kFmtSong);
        row.SetModified(true);
        row.UpdateText(fTexts);
        EXPECT_EQ(row.text(0).toStdString(), marker + "name.lst (modified)") << kind;
    }
}

TEST_F(OrvickView, ACopiedRowKeepsEveryField) {
    TQuillSItem row(fs::path("/music/x.lst"), kFmtRawList);
    row.SetMagicNum(7);
    row.SetModified(true);
    row.SetListId(5);
    row.SetNewListNumber(9);
    row.UpdateText(fTexts);
    const TQuillSItem copy(row);
    EXPECT_EQ(copy.EntryRef(), row.EntryRef());
    EXPECT_EQ(copy.Kind(), kFmtRawList);
    EXPECT_EQ(copy.MagicNum(), 7);
    EXPECT_TRUE(copy.Modified());
    EXPECT_EQ(copy.ListId(), 5);
    EXPECT_EQ(copy.NewListNumber(), 9);
    EXPECT_EQ(copy.text(0), row.text(0));
}

TEST_F(OrvickView, TheFirstSongAddedBecomesCurrentAndLaterOnesDoNotChangeIt) {
    AddSong("one.mid");
    AddSong("two.mid");
    AddSong("three.mid");
    EXPECT_EQ(ChangeSongRequests(), std::vector<int32_t>{0});
    EXPECT_EQ(fView->Songs(), 3);
}

TEST_F(OrvickView, SongsAreCountedInTreeOrderInsideCollapsedListsToo) {
    AddSong("a.mid");
    TQuillSItem* inner = fView->AddNewList(TopList());
    AddSong("b.mid", inner);
    TQuillSItem* deeper = fView->AddNewList(inner);
    AddSong("c.mid", deeper);
    AddSong("d.mid");
    inner->setExpanded(false);
    TopList()->setExpanded(false);

    EXPECT_EQ(SongNames(), (std::vector<std::string>{"a.mid", "b.mid", "c.mid", "d.mid"}));
    EXPECT_EQ(fView->Song(4), nullptr);
    EXPECT_EQ(fView->Song(-1), nullptr);
    // Full list: top, a, inner, b, deeper, c, d.
    EXPECT_EQ(fView->FullListCountItems(), 7);
    const std::vector<int32_t> songIndexes = {-1, 0, -1, 1, -1, 2, 3};
    for (int32_t position = 0; position < 7; position++) {
        EXPECT_EQ(fView->SongIdx(position), songIndexes[size_t(position)]) << position;
    }
    EXPECT_EQ(fView->SongIdx(7), -1);
    EXPECT_EQ(fView->FullListIndexOf(fView->Song(2)), 5);
}

TEST_F(OrvickView, TheSongSequenceFollowsEveryChangeOfTheTree) {
    AddSong("a.mid");
    TQuillSItem* b = AddSong("b.mid");
    EXPECT_EQ(SongNames(), (std::vector<std::string>{"a.mid", "b.mid"}));
    TQuillSItem* inserted = new TQuillSItem(fTemp.Path() / "first.mid", kFmtSong);
    TopList()->insertChild(0, inserted);
    EXPECT_EQ(fView->Song(0), inserted);
    delete b;
    EXPECT_EQ(fView->Song(2), nullptr);
    sort_items_under(TopList(), compare_func_by_file_name_down);
    EXPECT_EQ(fView->Song(0)->FileName(), "first.mid");
    EXPECT_EQ(fView->Song(1)->FileName(), "a.mid");
}

TEST_F(OrvickView, SelectedSongIndexesCountRowsInFullListOrder) {
    AddSong("a.mid");
    TQuillSItem* inner = fView->AddNewList(TopList());
    TQuillSItem* b = AddSong("b.mid", inner);
    b->setSelected(true);
    inner->setSelected(true);
    EXPECT_EQ(fView->CurrentSelection(0), 2);
    EXPECT_EQ(fView->SelectedSongIdx(0), -1);  // the list
    EXPECT_EQ(fView->SelectedSongIdx(1), 1);
    EXPECT_EQ(fView->SelectedSongIdx(2), -1);  // no third selection
}

TEST_F(OrvickView, AMissingFileIsReportedExceptInASemiRawList) {
    EXPECT_FALSE(fView->AddListFolderFileToTopLevel(fTemp.Path() / "gone.mid"));
    EXPECT_EQ(fStatus, std::vector<std::string>{"Not found: gone.mid"});
    TQuillSItem* semiRaw = new TQuillSItem(fTemp.Path() / "x.lst", kFmtSemiRawList);
    fView->AddSSItem(semiRaw, TopList());
    EXPECT_FALSE(fView->AddListFolderFile(fTemp.Path() / "gone2.mid", semiRaw, 0));
    EXPECT_FALSE(fView->AddListFolderFile(fs::path("relative.mid"), TopList(), 0));
    EXPECT_EQ(fStatus.size(), 2u);
    EXPECT_EQ(fView->Songs(), 0);
}

TEST_F(OrvickView, AFileNoLoaderReadsIsReportedExceptInAFolderList) {
    const fs::path notes = fTemp.Write("notes.txt", std::string("just words\n"));
    EXPECT_FALSE(fView->AddListFolderFileToTopLevel(notes));
    EXPECT_EQ(fStatus, std::vector<std::string>{"Unsupported: notes.txt"});
    TQuillSItem* folder = new TQuillSItem(fTemp.Path(), kFmtFolderList);
    fView->AddSSItem(folder, TopList());
    EXPECT_FALSE(fView->AddListFolderFile(notes, folder, 0));
    EXPECT_EQ(fStatus.size(), 1u);
}

TEST_F(OrvickView, TheMidiTestTakesTheMimeTypeOrAnyDotMidInThePath) {
    EXPECT_TRUE(TOrvickView::IsMidiFile(Song("plain.mid")));
    EXPECT_TRUE(TOrvickView::IsMidiFile(Song("LOUD.MID")));
    EXPECT_TRUE(TOrvickView::IsMidiFile(Song("long.midi")));
    EXPECT_TRUE(TOrvickView::IsMidiFile(Song("wrapped.RMI")));
    EXPECT_TRUE(TOrvickView::IsMidiFile(Song("backup.mid.bak")));
    EXPECT_TRUE(TOrvickView::IsMidiFile(fTemp.Write("songs.mid/readme.txt", std::string("x"))));
    // No extension at all: only the content tells (the "MThd" magic of the MIDI type).
    EXPECT_TRUE(TOrvickView::IsMidiFile(fTemp.Write("noname", std::string("MThd\0\0\0\6", 8))));
    EXPECT_FALSE(TOrvickView::IsMidiFile(fTemp.Write("list.txt", std::string("hello"))));
    EXPECT_FALSE(TOrvickView::IsMidiFile(fTemp.Write("middle.md", std::string("hello"))));
}

TEST_F(OrvickView, ASongMayBeListedTwiceButAContainerOnlyOnce) {
    const fs::path song = Song("twice.mid");
    EXPECT_TRUE(fView->AddListFolderFileToTopLevel(song));
    EXPECT_TRUE(fView->AddListFolderFileToTopLevel(song));
    EXPECT_EQ(fView->Songs(), 2);
    const fs::path list = fTemp.Write("list.qml", "MarnelList$1\n" + song.string() + "\n");
    EXPECT_TRUE(fView->AddListFolderFileToTopLevel(list));
    EXPECT_TRUE(fView->DupliCheck(list));
    fStatus.clear();
    EXPECT_FALSE(fView->AddListFolderFileToTopLevel(list));
    EXPECT_EQ(fStatus, std::vector<std::string>{"Already added: list.qml"});
    EXPECT_EQ(fView->Songs(), 3);
}

TEST_F(OrvickView, SortingByFileNameIsByBytesAndTheInsertionNumberRestoresTheOrder) {
    const std::vector<std::string> names = {"beta.mid", "Zulu.mid", "alpha.mid", "Alpha.mid"};
    for (size_t i = 0; i < names.size(); i++) {
        fView->AddMidiFile(fTemp.Path() / names[i], TopList(), int32_t(i));
    }
    sort_items_under(TopList(), compare_func_by_file_name_up);
    EXPECT_EQ(ChildNames(TopList()),
              (std::vector<std::string>{"Alpha.mid", "Zulu.mid", "alpha.mid", "beta.mid"}));
    sort_items_under(TopList(), compare_func_by_file_name_down);
    EXPECT_EQ(ChildNames(TopList()),
              (std::vector<std::string>{"beta.mid", "alpha.mid", "Zulu.mid", "Alpha.mid"}));
    sort_items_under(TopList(), compare_func_by_magic_num_up);
    EXPECT_EQ(ChildNames(TopList()), names);
    EXPECT_EQ(fView->Song(1)->FileName(), "Zulu.mid");
}

TEST_F(OrvickView, SortingKeepsNestedListsAndTheirExpansion) {
    TQuillSItem* inner = fView->AddNewList(TopList());
    AddSong("z.mid", inner);
    AddSong("a.mid");
    TopList()->setExpanded(true);
    inner->setExpanded(true);
    sort_items_under(TopList(), compare_func_by_file_name_down);  // a new list's name is ""
    EXPECT_EQ(TopList()->child(0)->text(0).toStdString(), "a.mid");
    EXPECT_EQ(TopList()->child(1), inner);
    EXPECT_TRUE(inner->isExpanded());
    EXPECT_EQ(inner->childCount(), 1);
}

TEST_F(OrvickView, ALoadedListIsAutoSortedByTheSetting) {
    const std::string songs = Song("c.mid").string() + "\n" + Song("A.mid").string() + "\n" +
                              Song("b.mid").string() + "\n";
    const std::vector<std::pair<int32_t, std::vector<std::string>>> cases = {
        {TOrvickView::kAutoSortByMagicNum, {"c.mid", "A.mid", "b.mid"}},
        {TOrvickView::kAutoSortByNameUp, {"A.mid", "b.mid", "c.mid"}},
        {TOrvickView::kAutoSortByNameDown, {"c.mid", "b.mid", "A.mid"}},
        {7, {"c.mid", "A.mid", "b.mid"}}};
    for (const auto& [setting, expected] : cases) {
        const fs::path list =
            fTemp.Write("sorted" + std::to_string(setting) + ".qml", "MarnelList$1\n" + songs);
        fView->SetAutoSortKind(setting);
        ASSERT_TRUE(fView->AddListFolderFileToTopLevel(list));
        const auto* loaded =
            static_cast<TQuillSItem*>(TopList()->child(TopList()->childCount() - 1));
        EXPECT_EQ(ChildNames(loaded), expected) << setting;
    }
}

TEST_F(OrvickView, LanguageChangesRebuildEveryRowText) {
    veldan::TLLT texts;
    texts.LoadData("[Informations]\nHeader = LLT File Format 100\n[Data]\nNew_List = Liste#s\n");
    TOrvickView view(texts, false, fTemp.Path() / "no-loaders");
    EXPECT_EQ(view.topLevelItem(0)->text(0).toStdString(), "[L] Liste 1");
    texts.InitLangInfoAndData();
    texts.LoadData("[Informations]\nHeader = LLT File Format 100\n[Data]\nNew_List = Lista#s\n");
    veldan::post_message(&view, veldan::TMessage(quill::kMsgLanguageChanged));
    EXPECT_TRUE(process_events_until(
        [&] { return view.topLevelItem(0)->text(0).toStdString() == "[L] Lista 1"; }));
}

TEST_F(OrvickView, AWorkViewStartsWithOneEmptyNativeList) {
    TOrvickView work(fTexts, true, fTemp.Path() / "no-loaders");
    EXPECT_EQ(work.objectName().toStdString(), TOrvickView::kWorkViewName);
    ASSERT_EQ(work.topLevelItemCount(), 1);
    const auto* row = static_cast<TQuillSItem*>(work.topLevelItem(0));
    EXPECT_EQ(row->Kind(), kFmtNativeList);
    EXPECT_TRUE(row->EntryRef().empty());
    EXPECT_FALSE(row->UnnamedNewList());
}

TEST_F(OrvickView, ANamedPipeIsRefusedWithoutWaitingForAWriter) {
    const fs::path listPipe = fTemp.Path() / "pipe.qml";
    const fs::path songPipe = fTemp.Path() / "pipe.mid";
    ASSERT_EQ(mkfifo(listPipe.c_str(), 0600), 0);
    ASSERT_EQ(mkfifo(songPipe.c_str(), 0600), 0);
    const TPipeRescue rescue({listPipe, songPipe});

    EXPECT_FALSE(fView->AddListFolderFileToTopLevel(listPipe));
    EXPECT_FALSE(fView->AddListFolderFileToTopLevel(songPipe));

    EXPECT_FALSE(rescue.Rescued()) << "the view waited in opening a pipe";
    EXPECT_EQ(fView->Songs(), 0);
    EXPECT_EQ(TopList()->childCount(), 0);
    EXPECT_EQ(fStatus,
              (std::vector<std::string>{"Unsupported: pipe.qml", "Unsupported: pipe.mid"}));
}

TEST_F(OrvickView, AFolderWhoseNameHoldsTheMidiExtensionIsNoSong) {
    const fs::path folder = fTemp.Path() / "Best.midi";
    fs::create_directories(folder);
    Song("Best.midi/a.mid");
    EXPECT_FALSE(fView->AddListFolderFileToTopLevel(folder));
    EXPECT_EQ(fView->Songs(), 0);
    EXPECT_EQ(fStatus, std::vector<std::string>{"Unsupported: Best.midi"});
}
