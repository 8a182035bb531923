#include <QAction>
#include <QMenu>

#include "tests/playlist/playlist_fixture.h"

namespace fs = std::filesystem;

namespace {

class ViewCommands : public PlaylistTest {
  protected:
    ViewCommands() : fView(MakeView()) {
        fTexts.LoadData(
            "[Informations]\nHeader = LLT File Format 100\n[Data]\nPopMItem_Del = Delete\n"
            "PopMItem_Add_New = Add list\nPopMItem_Save = Save\nPopMItem_Save_As = Save as\n"
            "PopMItem_Sort_File_Name_Up = Sort up\nPopMItem_Sort_File_Name_Down = Sort down\n"
            "PopMItem_Open_Doc = Open\nPopMItem_Deselect = Deselect\n");
    }

    TQuillSItem* TopList() const { return static_cast<TQuillSItem*>(fView->topLevelItem(0)); }
    TQuillSItem* AddSong(const std::string& name, TQuillSItem* parent = nullptr) {
        return fView->AddMidiFile(fTemp.Path() / name, parent ? parent : TopList(), -1);
    }
    std::vector<std::string> MenuTexts() {
        std::vector<std::string> texts;
        std::unique_ptr<QMenu> menu = fView->BuildPopup();
        if (!menu) return texts;
        for (const QAction* action : menu->actions()) {
            texts.push_back(action->isSeparator() ? "-" : action->text().toStdString());
        }
        return texts;
    }
    std::vector<std::string> SongNames() const {
        std::vector<std::string> names;
        for (int32_t i = 0; i < fView->Songs(); i++) names.push_back(fView->Song(i)->FileName());
        return names;
    }
    // The song indexes of the change-song requests received since the last call.
    std::vector<int32_t> ChangeRequests() {
        QCoreApplication::processEvents();
        std::vector<int32_t> indexes;
        for (const veldan::TMessage& message : fOwner.received) {
            int32_t index = -99;
            if (message.what == TOrvickView::kMsgChangeSongRqtd &&
                message.FindInt32(TOrvickView::kSongIndexField, &index))
                indexes.push_back(index);
        }
        fOwner.received.clear();
        return indexes;
    }

    std::unique_ptr<TOrvickView> fView;
};

}  // namespace

TEST_F(ViewCommands, NothingSelectedShowsNoMenu) { EXPECT_TRUE(MenuTexts().empty()); }

TEST_F(ViewCommands, WithOnlySongsSelectedTheMenuHasNoListItems) {
    AddSong("a.mid")->setSelected(true);
    EXPECT_EQ(MenuTexts(), (std::vector<std::string>{"Delete", "-", "Sort up", "Sort down", "-",
                                                     "Open", "-", "Deselect"}));
    TopList()->setSelected(true);
    EXPECT_EQ(MenuTexts(),
              (std::vector<std::string>{"Delete", "-", "Add list", "-", "Save", "Save as", "-",
                                        "Sort up", "Sort down", "-", "Open", "-", "Deselect"}));
}

TEST_F(ViewCommands, MenuItemsPostTheirCommands) {
    AddSong("b.mid");
    AddSong("a.mid")->setSelected(true);
    std::unique_ptr<QMenu> menu = fView->BuildPopup();
    menu->actions()[2]->trigger();  // "Sort up"
    ASSERT_TRUE(process_events_until([&] { return fView->Song(0)->FileName() == "a.mid"; }));
    EXPECT_TRUE(TopList()->Modified());
    menu->actions().back()->trigger();  // "Deselect"
    EXPECT_TRUE(process_events_until([&] { return fView->selectedItems().isEmpty(); }));
}

TEST_F(ViewCommands, AddingANewListPutsItBesideEachSelectedRow) {
    TQuillSItem* a = AddSong("a.mid");
    AddSong("b.mid");
    a->setSelected(true);
    fView->PopupAddNewListClicked();
    ASSERT_EQ(TopList()->childCount(), 3);
    EXPECT_EQ(TopList()->child(1)->text(0).toStdString(), "[L] New List 2");
    EXPECT_TRUE(TopList()->Modified());
    TopList()->setSelected(true);
    a->setSelected(false);
    fView->PopupAddNewListClicked();
    EXPECT_EQ(fView->topLevelItemCount(), 2);
    EXPECT_EQ(fView->topLevelItem(1)->text(0).toStdString(), "[L] New List 3");
}

TEST_F(ViewCommands, DeletingLowersTheSongCountByEverySongRemoved) {
    AddSong("a.mid");
    TQuillSItem* inner = fView->AddNewList(TopList());
    AddSong("b.mid", inner);
    AddSong("c.mid", inner);
    AddSong("d.mid");
    ChangeRequests();
    fView->SetCurSongIdx(3);  // d.mid
    inner->setSelected(true);
    fView->PopupDeleteFileClicked();
    EXPECT_EQ(fView->Songs(), 2);
    EXPECT_EQ(SongNames(), (std::vector<std::string>{"a.mid", "d.mid"}));
    EXPECT_EQ(fView->CurSongIdx(), 1);  // still d.mid
    EXPECT_TRUE(ChangeRequests().empty());
    EXPECT_TRUE(TopList()->Modified());
}

TEST_F(ViewCommands, DeletingTheCurrentSongChangesToTheSongThatTakesItsIndex) {
    AddSong("a.mid");
    TQuillSItem* b = AddSong("b.mid");
    AddSong("c.mid");
    ChangeRequests();
    fView->SetCurSongIdx(1);
    b->setSelected(true);
    fView->PopupDeleteFileClicked();
    EXPECT_EQ(ChangeRequests(), std::vector<int32_t>{1});
    EXPECT_EQ(fView->Song(fView->CurSongIdx())->FileName(), "c.mid");
    // The last song, when it goes, hands over to the one before it.
    fView->Song(1)->setSelected(true);
    fView->PopupDeleteFileClicked();
    EXPECT_EQ(ChangeRequests(), std::vector<int32_t>{0});
    EXPECT_EQ(fView->CurSongIdx(), 0);
    fView->Song(0)->setSelected(true);
    fView->PopupDeleteFileClicked();
    EXPECT_TRUE(ChangeRequests().empty());
    EXPECT_EQ(fView->CurSongIdx(), -1);
    EXPECT_EQ(fView->Songs(), 0);
}

TEST_F(ViewCommands, SortingASongSortsTheListHoldingItOneLevelDeep) {
    TQuillSItem* inner = fView->AddNewList(TopList());
    AddSong("z.mid", inner);
    AddSong("y.mid", inner);
    AddSong("b.mid");
    TQuillSItem* a = AddSong("a.mid");
    a->setSelected(true);
    veldan::TMessage sort(TOrvickView::kMsgPopupSort);
    sort.AddInt32(TOrvickView::kSortKeyField, TOrvickView::kSortKeyUp);
    fView->PopupSortClicked(sort);
    // The new list's name is "", so it sorts first; its own songs keep their order.
    EXPECT_EQ(SongNames(), (std::vector<std::string>{"z.mid", "y.mid", "a.mid", "b.mid"}));
    EXPECT_TRUE(TopList()->Modified());
    EXPECT_FALSE(inner->Modified());
}

TEST_F(ViewCommands, AnUnknownSortKeyDoesNothing) {
    AddSong("b.mid");
    AddSong("a.mid")->setSelected(true);
    veldan::TMessage sort(TOrvickView::kMsgPopupSort);
    fView->PopupSortClicked(sort);
    sort.AddInt32(TOrvickView::kSortKeyField, 3);
    fView->PopupSortClicked(sort);
    EXPECT_EQ(SongNames(), (std::vector<std::string>{"b.mid", "a.mid"}));
    EXPECT_FALSE(TopList()->Modified());
}

TEST_F(ViewCommands, SortingKeepsTheCurrentSongCurrent) {
    AddSong("b.mid");
    AddSong("c.mid");
    AddSong("a.mid");
    fView->SetCurSongIdx(0);  // b.mid
    TopList()->setSelected(true);
    veldan::TMessage sort(TOrvickView::kMsgPopupSort);
    sort.AddInt32(TOrvickView::kSortKeyField, TOrvickView::kSortKeyUp);
    fView->PopupSortClicked(sort);
    ASSERT_EQ(SongNames(), (std::vector<std::string>{"a.mid", "b.mid", "c.mid"}));
    EXPECT_EQ(fView->CurSongIdx(), 1);
    sort.ReplaceInt32(TOrvickView::kSortKeyField, 0, TOrvickView::kSortKeyDown);
    fView->PopupSortClicked(sort);
    EXPECT_EQ(fView->Song(fView->CurSongIdx())->FileName(), "b.mid");
}

TEST_F(ViewCommands, SongsAddedToASavedMainListMarkItModified) {
    const fs::path file = fTemp.Write("main.qml", "MarnelList$1\n" + Song("a.mid").string() + "\n");
    fView->ClearList();
    ASSERT_TRUE(fView->AddListFolderFile(file, nullptr, -1));
    ASSERT_FALSE(TopList()->Modified());
    ASSERT_TRUE(fView->AddListFolderFileToTopLevel(Song("b.mid")));
    EXPECT_TRUE(TopList()->Modified());
    EXPECT_EQ(TopList()->text(0).toStdString(), "[L] main.qml (modified)");
}

TEST_F(ViewCommands, SongsAddedToANeverSavedListLeaveNothingToAskAtQuit) {
    ASSERT_TRUE(fView->AddListFolderFileToTopLevel(Song("a.mid")));
    EXPECT_FALSE(TopList()->Modified()) << "it is kept at quit without a question";
}

TEST_F(ViewCommands, NothingAddedToTheMainListLeavesItClean) {
    EXPECT_FALSE(fView->AddListFolderFileToTopLevel(fTemp.Path() / "missing.mid"));
    EXPECT_FALSE(TopList()->Modified());
}

TEST_F(ViewCommands, AddingUnderTheMainListMovesTheCurrentSongOfALaterList) {
    AddSong("a.mid");
    TQuillSItem* later = fView->AddNewList(nullptr);
    TQuillSItem* x = AddSong("x.mid", later);
    fView->SetCurSongIdx(1);  // x.mid
    ASSERT_TRUE(fView->AddListFolderFileToTopLevel(Song("b.mid")));
    EXPECT_EQ(fView->Song(fView->CurSongIdx()), x);
}

TEST_F(ViewCommands, TheMainListIsNeverDeleted) {
    AddSong("a.mid")->setSelected(true);
    AddSong("b.mid");
    TQuillSItem* second = fView->AddNewList(nullptr);
    TopList()->setSelected(true);
    second->setSelected(true);
    fView->PopupDeleteFileClicked();
    ASSERT_EQ(fView->topLevelItemCount(), 1);
    EXPECT_EQ(SongNames(), std::vector<std::string>{"b.mid"});
    EXPECT_EQ(TopList()->text(0).toStdString(), "[L] New List 1 (modified)");
    // Whatever is added next still lands in it.
    ASSERT_TRUE(fView->AddListFolderFileToTopLevel(Song("c.mid")));
    EXPECT_EQ(TopList()->childCount(), 2);
}
