// The main window through its menus: the menu tree, play-mode and MIDI OUT marks across a
// language change, the recent playlists, the close box, and the exit state it writes and
// restores.

#include "app/quill_win.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QDialogButtonBox>
#include <QFileSystemModel>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMenuBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QTimer>

#include "app/settings/exit_state.h"
#include "app/settings/settings.h"
#include "midi/recorder.h"
#include "player/control_bar.h"
#include "player/pref.h"
#include "player/quill_view.h"
#include "playlist/orvick_view.h"
#include "playlist/quill_sitem.h"
#include "tests/player/language_fixture.h"
#include "tests/support/message_recorder.h"
#include "tests/support/scoped_env.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"
#include "tests/support/widget_app.h"

namespace fs = std::filesystem;
using quill::TQuillView;

namespace {

std::vector<uint8_t> short_song() {
    TSmfBuilder smf(1, 480);
    smf.AddTrack().Name(0, "Tune").NoteOn(0, 0, 60, 100).NoteOff(480, 0, 60);
    return smf.Bytes();
}

QMenu* top_menu(QMainWindow& win, const char* name) {
    return win.menuBar()->findChild<QMenu*>(name, Qt::FindDirectChildrenOnly);
}

QAction* item(QMenu* menu, const char* name) {
    for (QAction* action : menu->actions())
        if (action->objectName() == name) return action;
    return nullptr;
}

std::vector<QAction*> checked(QMenu* menu) {
    std::vector<QAction*> marked;
    for (QAction* action : menu->actions())
        if (action->isChecked()) marked.push_back(action);
    return marked;
}

class QuillWinTest : public TWidgetTest {
  protected:
    QuillWinTest() {
        fTexts = builtin_language();
        fLoaders = fTemp.Path() / "Loader";
        fs::create_directories(fLoaders);
    }

    std::unique_ptr<TQuillWin> MakeWin() {
        auto win = std::make_unique<TQuillWin>(fTexts, fPrefs, fExitState, &fApp, fLoaders);
        win->SetAskFn([this](const std::string& question) {
            fQuestions.push_back(question);
            return fAnswer;
        });
        // No modal alert may wait for a click: a changed list is given up unless a test
        // answers otherwise.
        win->View()->OrvickView()->SetAskSaveFn(
            [](const TQuillSItem&) { return TOrvickView::TSaveAnswer::kNo; });
        return win;
    }

    fs::path Song(const std::string& name) { return fTemp.Write(name, short_song()); }

    fs::path Playlist(const std::string& name, const std::vector<fs::path>& songs) {
        std::string text = "MarnelList$1\n";
        for (const fs::path& song : songs) text += song.string() + "\n";
        return fTemp.Write(name, text);
    }

    TTempDir fTemp;
    TTempDir fConfig;
    TScopedEnv fConfigHome{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
    veldan::TLLT fTexts;
    TPref fPrefs;
    TExitState fExitState;
    TMessageRecorder fApp;
    fs::path fLoaders;
    std::vector<std::string> fQuestions;
    bool fAnswer = true;
};

TEST_F(QuillWinTest, MenuTreeHasEveryMenuInOrderWithItsShortcuts) {
    auto win = MakeWin();
    QStringList titles;
    for (QAction* menu : win->menuBar()->actions()) titles << menu->text();
    EXPECT_EQ(titles, QStringList({"File", "Play", "MIDI OUT", "Tools", "Help"}));

    QMenu* file = top_menu(*win, "Menu_File");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(item(file, "MItem_New")->shortcut(), QKeySequence("Ctrl+N"));
    EXPECT_EQ(item(file, "MItem_Add_New")->shortcut(), QKeySequence("Ctrl+L"));
    EXPECT_EQ(item(file, "MItem_Save")->shortcut(), QKeySequence("Ctrl+S"));
    EXPECT_EQ(item(file, "MItem_Save_As")->shortcut(), QKeySequence("Ctrl+2"));
    EXPECT_EQ(item(file, "MItem_Quit")->shortcut(), QKeySequence("Ctrl+Q"));
    EXPECT_EQ(item(top_menu(*win, "Menu_Play"), "MItem_All_Notes_Off")->shortcut(),
              QKeySequence("Ctrl+F"));
    for (const char* name : {"MItem_Open_Cur_Doc", "MItem_Prefs", "MItem_Drv_Cvt_Prefs"})
        EXPECT_NE(item(top_menu(*win, "Menu_Tool"), name), nullptr) << name;
    for (const char* name : {"MItem_Help", "MItem_Author_Web", "MItem_About"})
        EXPECT_NE(item(top_menu(*win, "Menu_Help"), name), nullptr) << name;
}

TEST_F(QuillWinTest, ApplicationItemsPostTheirCodesToTheApplication) {
    auto win = MakeWin();
    item(top_menu(*win, "Menu_Tool"), "MItem_Prefs")->trigger();
    item(top_menu(*win, "Menu_Help"), "MItem_About")->trigger();
    item(top_menu(*win, "Menu_File"), "MItem_Quit")->trigger();
    const auto& received = fApp.Deliver();
    ASSERT_EQ(received.size(), 3u);
    EXPECT_EQ(received[0].what, TQuillWin::kMsgPrefs);
    EXPECT_EQ(received[1].what, TQuillWin::kMsgAboutRequested);
    EXPECT_EQ(received[2].what, veldan::kMsgQuitRequested);
}

TEST_F(QuillWinTest, CloseBoxAsksTheApplicationAndKeepsTheWindow) {
    auto win = MakeWin();
    win->show();
    win->close();
    ASSERT_EQ(fApp.Deliver().size(), 1u);
    EXPECT_EQ(fApp.received[0].what, veldan::kMsgQuitRequested);
    EXPECT_TRUE(win->isVisible());
}

TEST_F(QuillWinTest, PlayModeItemMarksTheModeAndALanguageChangeKeepsEveryMark) {
    TMidiRecorder synth("Test Synth", 256);
    synth.Register();
    auto win = MakeWin();
    QMenu* play = top_menu(*win, "Menu_Play");
    item(play, "MItem_Play_Mode_Mono_Rep")->trigger();
    QMenu* portA = win->findChild<QMenu*>("Menu_MIDI_Port_0");
    ASSERT_NE(portA, nullptr);
    QAction* synthItem = nullptr;
    for (QAction* action : portA->actions())
        if (action->text().endsWith("Test Synth")) synthItem = action;
    ASSERT_NE(synthItem, nullptr);
    synthItem->trigger();
    ASSERT_TRUE(process_until(
        [&] { return win->View()->Controller().PlayMode() == 3 && checked(portA).size() == 1; }));
    EXPECT_TRUE(win->View()->Controller().Chain().PublicOut(0)->IsConnected(&synth));

    fTexts = file_language("Japanese.llt");
    win->LanguageChanged();
    play = top_menu(*win, "Menu_Play");
    EXPECT_EQ(win->menuBar()->actions()[0]->text().toStdString(), fTexts.Text("Menu_File"));
    std::vector<QAction*> modes = checked(play);
    ASSERT_EQ(modes.size(), 1u);
    EXPECT_EQ(modes[0]->text().toStdString(), fTexts.Text("MItem_Play_Mode_Mono_Rep"));
    portA = win->findChild<QMenu*>("Menu_MIDI_Port_0");
    std::vector<QAction*> connected = checked(portA);
    ASSERT_EQ(connected.size(), 1u);
    EXPECT_TRUE(connected[0]->text().endsWith("Test Synth"));
    EXPECT_TRUE(checked(win->findChild<QMenu*>("Menu_MIDI_Port_1")).empty());
}

TEST_F(QuillWinTest, MidiOutMenusFollowConsumersAsTheyComeAndGo) {
    auto win = MakeWin();
    QMenu* portB = win->findChild<QMenu*>("Menu_MIDI_Port_1");
    auto count = [&] { return portB->actions().size(); };
    const qsizetype before = count();
    {
        TMidiRecorder newcomer("Newcomer", 16);
        newcomer.Register();
        ASSERT_TRUE(process_until([&] { return count() == before + 1; }));
        QString label = portB->actions().back()->text();
        EXPECT_TRUE(label.endsWith(": Newcomer")) << label.toStdString();
    }
    EXPECT_TRUE(process_until([&] { return count() == before; }));
}

TEST_F(QuillWinTest, OpeningAPlaylistListsItFirstInBothRecentMenus) {
    fs::path older = Playlist("older.qml", {Song("a.mid")});
    fs::path newer = Playlist("newer.qml", {Song("b.mid"), Song("c.mid")});
    auto win = MakeWin();
    QMenu* open = win->findChild<QMenu*>("Menu_Open");
    QAction* clearAll = item(open, "MItem_Del_All_MRUFs");
    ASSERT_NE(clearAll, nullptr);
    EXPECT_FALSE(clearAll->isEnabled());

    win->OpenListFolderFileRqtd(older, false);
    win->OpenListFolderFileRqtd(newer, false);
    EXPECT_EQ(win->View()->OrvickView()->Songs(), 2);
    ASSERT_EQ(win->RecentLists().CountMRUFs(), 2);
    EXPECT_EQ(win->RecentLists().MRUFAt(0), newer.string());
    for (const char* name : {"Menu_Open", "Menu_Add"}) {
        QMenu* menu = win->findChild<QMenu*>(name);
        QStringList labels;
        for (QAction* action : menu->actions())
            if (action->text().contains(".qml")) labels << action->text();
        EXPECT_EQ(labels, QStringList({"0: newer.qml", "1: older.qml"})) << name;
        EXPECT_TRUE(item(menu, "MItem_Del_All_MRUFs")->isEnabled());
    }
    fs::path stored;
    ASSERT_TRUE(settings_entry(kMRUPlaylistsFile, &stored));
    EXPECT_TRUE(fs::exists(stored));
}

TEST_F(QuillWinTest, ChoosingARecentPlaylistOpensOrAddsIt) {
    fs::path list = Playlist("list.qml", {Song("a.mid"), Song("b.mid")});
    fs::path other = Playlist("other.qml", {Song("c.mid"), Song("d.mid")});
    auto win = MakeWin();
    win->OpenListFolderFileRqtd(list, false);
    win->OpenListFolderFileRqtd(other, false);
    auto chosen = [&](const char* menu) {
        for (QAction* action : win->findChild<QMenu*>(menu)->actions())
            if (action->text().endsWith("list.qml")) return action;
        return static_cast<QAction*>(nullptr);
    };
    chosen("Menu_Add")->trigger();
    ASSERT_TRUE(process_until([&] { return win->View()->OrvickView()->Songs() == 4; }));
    chosen("Menu_Open")->trigger();
    EXPECT_TRUE(process_until([&] { return win->View()->OrvickView()->Songs() == 2; }));
}

TEST_F(QuillWinTest, ClearingRecentPlaylistsAsksAndRespectsNo) {
    fs::path list = Playlist("list.qml", {Song("a.mid")});
    auto win = MakeWin();
    win->OpenListFolderFileRqtd(list, false);
    fAnswer = false;
    win->MItemDelAllMRUFClicked();
    ASSERT_EQ(fQuestions.size(), 1u);
    EXPECT_NE(fQuestions[0].find(fTexts.Text("Hint_How_To_Del_One_MRUF")), std::string::npos);
    EXPECT_EQ(win->RecentLists().CountMRUFs(), 1);
    fAnswer = true;
    win->MItemDelAllMRUFClicked();
    EXPECT_EQ(win->RecentLists().CountMRUFs(), 0);
    EXPECT_FALSE(item(win->findChild<QMenu*>("Menu_Open"), "MItem_Del_All_MRUFs")->isEnabled());
}

TEST_F(QuillWinTest, SaveWritesTheMainListAndRemembersIt) {
    fs::path a = Song("a.mid");
    fs::path list = Playlist("list.qml", {a});
    auto win = MakeWin();
    win->OpenListFolderFileRqtd(list, false);
    win->View()->OrvickView()->AddListFolderFileToTopLevel(Song("b.mid"));
    win->MItemSaveClicked(false);
    std::vector<uint8_t> bytes = read_file_bytes(list);
    std::string text(bytes.begin(), bytes.end());
    EXPECT_EQ(text,
              "MarnelList$1\n" + a.string() + "\n" + (fTemp.Path() / "b.mid").string() + "\n");
}

TEST_F(QuillWinTest, ExitStateRoundTripRestoresPlaylistSongModeAndConnections) {
    TMidiRecorder synth("Round Trip Synth", 256);
    synth.Register();
    fs::path list = Playlist("list.qml", {Song("a.mid"), Song("b.mid"), Song("c.mid")});
    {
        auto win = MakeWin();
        win->OpenListFolderFileRqtd(list, false);
        veldan::TMessage change(TOrvickView::kMsgChangeSongRqtd);
        change.AddInt32(TOrvickView::kSongIndexField, 2);
        win->View()->ChangeSongRqtd(change);
        win->View()->Controller().SetPlayMode(5);
        ASSERT_EQ(win->View()->Controller().Ports().ConnectMidiOut(1, synth.ID()), 0);
        win->WriteExitState();
    }
    EXPECT_EQ(fExitState.mainListFile, list.string());
    EXPECT_EQ(fExitState.currentSongIndex, 2);
    EXPECT_EQ(fExitState.connections[1], std::vector<std::string>{"Round Trip Synth"});

    fExitState.version = kAppVersion;  // not a first start
    auto win = MakeWin();
    win->RestoreExitState();
    EXPECT_EQ(win->View()->OrvickView()->Songs(), 3);
    EXPECT_EQ(win->View()->Controller().CurSongIdx(), 2);
    EXPECT_EQ(win->View()->Controller().PlayMode(), 5);
    EXPECT_TRUE(win->View()->Controller().Chain().PublicOut(1)->IsConnected(&synth));
    EXPECT_TRUE(win->View()->Controller().Chain().PublicOut(0)->Connections().empty());
    std::vector<QAction*> modes = checked(top_menu(*win, "Menu_Play"));
    ASSERT_EQ(modes.size(), 1u);
    EXPECT_EQ(modes[0]->objectName(), "MItem_Play_Mode_AI_Random");
}

// Both ports: two-port songs are whole through the synthesizer's 32 channels.
TEST_F(QuillWinTest, FirstStartConnectsBothPortsToTheBuiltInSynthesizerByName) {
    TMidiRecorder synth("Quill Synth", 16);
    synth.Register();
    auto win = MakeWin();
    win->RestoreExitState();
    EXPECT_TRUE(win->View()->Controller().Chain().PublicOut(0)->IsConnected(&synth));
    EXPECT_TRUE(win->View()->Controller().Chain().PublicOut(1)->IsConnected(&synth));
    EXPECT_EQ(win->View()->Controller().Chain().PublicOut(1)->Connections().size(), 1u);
}

TEST_F(QuillWinTest, ANeverSavedListComesBackUnnamedWithItsSongs) {
    {
        auto win = MakeWin();
        win->OpenListFolderFileRqtd(Song("a.mid"), true);
        win->OpenListFolderFileRqtd(Song("b.mid"), true);
        win->WriteExitState();
    }
    fExitState.version = kAppVersion;
    auto win = MakeWin();
    win->RestoreExitState();
    EXPECT_EQ(win->View()->OrvickView()->Songs(), 2);
    auto* first = static_cast<TQuillSItem*>(win->View()->OrvickView()->topLevelItem(0));
    EXPECT_TRUE(first->UnnamedNewList());
    EXPECT_EQ(win->RecentLists().CountMRUFs(), 0);
}

TEST_F(QuillWinTest, AVanishedPlaylistStartsWithAnEmptyNewList) {
    fExitState.version = kAppVersion;
    fExitState.mainListFile = (fTemp.Path() / "gone.qml").string();
    fExitState.currentSongIndex = 4;
    auto win = MakeWin();
    win->RestoreExitState();
    EXPECT_EQ(win->View()->OrvickView()->Songs(), 0);
    EXPECT_EQ(win->View()->OrvickView()->topLevelItemCount(), 1);
}

}  // namespace

TEST_F(QuillWinTest, TheListButtonCollapsesTheWindowToTheBarAndTheExitStateKeepsBoth) {
    auto win = MakeWin();
    win->resize(500, 420);
    win->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(win.get()));
    auto* list = win->View()->ControlBar()->findChild<QWidget*>("ButtonList");
    ASSERT_NE(list, nullptr);

    QTest::mouseClick(list, Qt::LeftButton);
    ASSERT_TRUE(process_until([&] { return win->height() < 420; }));
    EXPECT_FALSE(win->View()->OrvickView()->isVisible());
    EXPECT_GE(win->height(), win->View()->ControlBar()->height());
    win->WriteExitState();
    EXPECT_FALSE(fExitState.listShown);
    EXPECT_EQ(fExitState.expandedHeight, 420.0f) << "the height to come back to";

    QTest::mouseClick(list, Qt::LeftButton);
    ASSERT_TRUE(process_until([&] { return win->height() == 420; }));
    EXPECT_TRUE(win->View()->OrvickView()->isVisible());
    win->WriteExitState();
    EXPECT_TRUE(fExitState.listShown);

    // A start after quitting with the list hidden opens collapsed.
    fExitState.listShown = false;
    auto again = MakeWin();
    again->resize(500, 420);
    again->show();
    again->RestoreExitState();
    ASSERT_TRUE(process_until([&] { return again->height() < 420; }));
    EXPECT_EQ(again->View()->ControlBar()->IsListShown(), false);
}

TEST_F(QuillWinTest, ExportWritesTheCurrentSongAtTheSlidersTempoAndCancelLeavesNothing) {
    auto win = MakeWin();
    TSmfBuilder smf(1, 480);
    smf.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(480 * 8, 0, 60);  // 4 s
    const fs::path song = fTemp.Write("export.mid", smf.Bytes());
    win->OpenListFolderFileRqtd(song, true);
    ASSERT_TRUE(process_until([&] { return win->View()->Controller().CurSongRef() == song; }));
    win->View()->ControlBar()->SetSliderValue(quill::TControlBar::kTempo, 200);
    const fs::path target = fTemp.Path() / "export.wav";
    fs::path suggested;
    win->SetExportPanelFn([&](const fs::path& suggestion) -> std::optional<fs::path> {
        suggested = suggestion;
        return target;
    });
    QMenu* file = top_menu(*win, "Menu_File");
    item(file, "MItem_Export_WAV")->trigger();
    QCoreApplication::sendPostedEvents();  // the item posts its request to the window
    EXPECT_EQ(suggested, fTemp.Path() / "export.wav");
    ASSERT_TRUE(fs::exists(target));
    // 2 s at twice the tempo, and the release tail.
    EXPECT_NEAR(double((fs::file_size(target) - 44) / 4) / 44100.0, 2.0 + 1.5, 0.01);
    auto* status = win->findChild<QLabel*>("StatBar");
    EXPECT_TRUE(status->text().contains("export.wav")) << status->text().toStdString();

    // A long song, cancelled as soon as its progress shows.
    TSmfBuilder longSmf(1, 480);
    longSmf.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(480 * 2 * 600, 0, 60);  // 10 minutes
    const fs::path longSong = fTemp.Write("long.mid", longSmf.Bytes());
    win->OpenListFolderFileRqtd(longSong, false);
    ASSERT_TRUE(process_until([&] { return win->View()->Controller().CurSongRef() == longSong; }));
    fs::remove(target);
    QTimer canceller;
    bool cancelled = false;
    QObject::connect(&canceller, &QTimer::timeout, [&] {
        if (auto* progress = win->findChild<QProgressDialog*>("ExportProgress")) {
            progress->cancel();
            cancelled = true;
        }
    });
    canceller.start(1);
    item(top_menu(*win, "Menu_File"), "MItem_Export_WAV")->trigger();
    QCoreApplication::sendPostedEvents();
    EXPECT_TRUE(cancelled);
    EXPECT_FALSE(fs::exists(target)) << "a cancelled export leaves no file";
}

namespace {

QAction* recent_item(TQuillWin& win, const char* menu, const char* name) {
    for (QAction* action : win.findChild<QMenu*>(menu)->actions())
        if (action->text().endsWith(name)) return action;
    return nullptr;
}

}  // namespace

TEST_F(QuillWinTest, ARecentListsShortcutOpensItWithoutAskingToRemoveIt) {
    fs::path list = Playlist("list.qml", {Song("a.mid"), Song("b.mid")});
    fs::path other = Playlist("other.qml", {Song("c.mid")});
    auto win = MakeWin();
    win->OpenListFolderFileRqtd(list, false);
    win->OpenListFolderFileRqtd(other, false);
    win->show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(win.get()));
    QAction* older = recent_item(*win, "Menu_Open", "list.qml");
    ASSERT_NE(older, nullptr);
    ASSERT_EQ(older->shortcut(), QKeySequence("Ctrl+Shift+1"));

    QTest::keyClick(win.get(), Qt::Key_1, Qt::ControlModifier | Qt::ShiftModifier);
    ASSERT_TRUE(process_until([&] { return win->View()->OrvickView()->Songs() == 2; }))
        << "the short-cut opens the list; questions: " << fQuestions.size();
    EXPECT_TRUE(fQuestions.empty());
    EXPECT_EQ(win->RecentLists().CountMRUFs(), 2);
    EXPECT_EQ(win->RecentLists().MRUFAt(0), list.string());
}

TEST_F(QuillWinTest, DeleteOnAHighlightedRecentListAsksAndRemovesOnlyIt) {
    fs::path list = Playlist("list.qml", {Song("a.mid")});
    fs::path other = Playlist("other.qml", {Song("c.mid")});
    auto win = MakeWin();
    win->OpenListFolderFileRqtd(list, false);
    win->OpenListFolderFileRqtd(other, false);
    for (bool answer : {false, true}) {
        fAnswer = answer;
        QMenu* open = win->findChild<QMenu*>("Menu_Open");
        QAction* older = recent_item(*win, "Menu_Open", "list.qml");
        ASSERT_NE(older, nullptr);
        open->popup(QPoint(0, 0));
        ASSERT_TRUE(QTest::qWaitForWindowExposed(open));
        open->setActiveAction(older);
        QTest::keyClick(open, Qt::Key_Delete);
        ASSERT_TRUE(process_until([&] { return fQuestions.size() == (answer ? 2u : 1u); }));
        EXPECT_NE(fQuestions.back().find(list.string()), std::string::npos) << fQuestions.back();
        QCoreApplication::sendPostedEvents();
        if (open->isVisible()) open->close();
    }
    ASSERT_EQ(win->RecentLists().CountMRUFs(), 1);
    EXPECT_EQ(win->RecentLists().MRUFAt(0), other.string());
    EXPECT_EQ(recent_item(*win, "Menu_Add", "list.qml"), nullptr);
    EXPECT_EQ(win->View()->OrvickView()->Songs(), 1) << "nothing was opened";
}

TEST_F(QuillWinTest, NewAndOpenAskToSaveAChangedListAndCancelKeepsIt) {
    fs::path list = Playlist("list.qml", {Song("a.mid")});
    fs::path other = Playlist("other.qml", {Song("b.mid"), Song("c.mid")});
    auto win = MakeWin();
    TOrvickView* view = win->View()->OrvickView();
    std::vector<std::string> asked;
    view->SetAskSaveFn([&](const TQuillSItem& row) {
        asked.push_back(row.EntryRef().filename().string());
        return TOrvickView::TSaveAnswer::kCancel;
    });
    win->OpenListFolderFileRqtd(list, false);
    win->OpenListFolderFileRqtd(Song("d.mid"), true);  // File > Add changes the list
    ASSERT_EQ(view->Songs(), 2);

    item(top_menu(*win, "Menu_File"), "MItem_New")->trigger();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(asked, std::vector<std::string>{"list.qml"});
    EXPECT_EQ(view->Songs(), 2) << "cancelled: the changed list stays";

    win->OpenListFolderFileRqtd(other, false);
    EXPECT_EQ(asked.size(), 2u);
    EXPECT_EQ(view->Songs(), 2);
    EXPECT_EQ(static_cast<TQuillSItem*>(view->topLevelItem(0))->EntryRef(), list);

    // No: the list is given up and the other one opens.
    view->SetAskSaveFn([&](const TQuillSItem&) { return TOrvickView::TSaveAnswer::kNo; });
    win->OpenListFolderFileRqtd(other, false);
    EXPECT_EQ(static_cast<TQuillSItem*>(view->topLevelItem(0))->EntryRef(), other);
}

TEST_F(QuillWinTest, NewAsksAboutANeverSavedListThatHoldsSongs) {
    auto win = MakeWin();
    TOrvickView* view = win->View()->OrvickView();
    int asked = 0;
    view->SetAskSaveFn([&](const TQuillSItem&) {
        ++asked;
        return TOrvickView::TSaveAnswer::kCancel;
    });
    win->MItemNewClicked();
    EXPECT_EQ(asked, 0) << "an empty new list holds nothing to lose";
    win->OpenListFolderFileRqtd(Song("a.mid"), true);
    win->MItemNewClicked();
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(view->Songs(), 1);
    EXPECT_FALSE(static_cast<TQuillSItem*>(view->topLevelItem(0))->Modified())
        << "kept at quit anyway: quitting need not ask about it";
}

TEST_F(QuillWinTest, ARecentListWhoseFileIsGoneLeavesThePlaylistAsItIs) {
    fs::path list = Playlist("list.qml", {Song("a.mid")});
    fs::path gone = Playlist("gone.qml", {Song("b.mid")});
    auto win = MakeWin();
    win->OpenListFolderFileRqtd(gone, false);
    win->OpenListFolderFileRqtd(list, false);
    TOrvickView* view = win->View()->OrvickView();
    ASSERT_TRUE(view->AddListFolderFileToTopLevel(Song("c.mid")));
    bool asked = false;
    view->SetAskSaveFn([&](const TQuillSItem&) {
        asked = true;
        return TOrvickView::TSaveAnswer::kNo;
    });
    fs::remove(gone);
    recent_item(*win, "Menu_Open", "gone.qml")->trigger();
    QCoreApplication::sendPostedEvents();
    EXPECT_FALSE(asked) << "nothing would replace the list";
    EXPECT_EQ(view->Songs(), 2);
    EXPECT_EQ(static_cast<TQuillSItem*>(view->topLevelItem(0))->EntryRef(), list);
    auto* status = win->findChild<QLabel*>("StatBar");
    EXPECT_TRUE(status->text().contains("gone.qml")) << status->text().toStdString();
}

TEST_F(QuillWinTest, SavesFromThePopUpMenuAndAtQuitMakeTheListTheNewestRecentOne) {
    fs::path list = Playlist("list.qml", {Song("a.mid")});
    fs::path other = Playlist("other.qml", {Song("b.mid")});
    auto win = MakeWin();
    TOrvickView* view = win->View()->OrvickView();
    win->OpenListFolderFileRqtd(list, false);
    win->OpenListFolderFileRqtd(other, false);
    win->OpenListFolderFileRqtd(Song("c.mid"), true);
    ASSERT_EQ(win->RecentLists().MRUFAt(0), other.string());
    // The recent order changes without a save; then the pop-up menu's save brings it back.
    win->RecentLists().AddMRUF(list.string());
    view->topLevelItem(0)->setSelected(true);
    view->PopupSaveListClicked();
    EXPECT_EQ(win->RecentLists().MRUFAt(0), other.string()) << "the pop-up menu's save";

    win->RecentLists().AddMRUF(list.string());
    win->OpenListFolderFileRqtd(Song("d.mid"), true);
    view->SetAskSaveFn([](const TQuillSItem&) { return TOrvickView::TSaveAnswer::kYes; });
    EXPECT_TRUE(win->QuitRequested());
    EXPECT_EQ(win->RecentLists().MRUFAt(0), other.string()) << "the save at quit";
    fs::path stored;
    ASSERT_TRUE(settings_entry(kMRUPlaylistsFile, &stored));
    TMRUF again;
    ASSERT_TRUE(again.Load(stored));
    EXPECT_EQ(again.MRUFAt(0), other.string());
}

TEST_F(QuillWinTest, TheWindowTitleNamesTheCurrentSongBeforeTheList) {
    fs::path list = Playlist("list.qml", {Song("a.mid")});
    auto win = MakeWin();
    win->OpenListFolderFileRqtd(list, false);
    const QString expected = QString::fromStdString("Tune - " + win->View()->WinTitle());
    ASSERT_TRUE(process_until([&] { return win->windowTitle() == expected; }))
        << win->windowTitle().toStdString();
    // The list's name changes (a save under another name): the song stays in front.
    const fs::path renamed = fTemp.Path() / "renamed.qml";
    win->View()->OrvickView()->SetSavePanelFn([&](const TQuillSItem&) { return renamed; });
    win->MItemSaveClicked(true);
    ASSERT_TRUE(process_until([&] {
        return win->windowTitle().toStdString() == "Tune - " + win->View()->WinTitle();
    })) << win->windowTitle().toStdString();
    EXPECT_TRUE(win->windowTitle().contains("renamed"));

    win->MItemNewClicked();
    ASSERT_TRUE(process_until([&] {
        return win->windowTitle().toStdString() == win->View()->WinTitle();
    })) << win->windowTitle().toStdString();
}

namespace {

// The folder the next save panel starts in; it is cancelled, or saves under the name given
// in that folder.
class TSavePanelSpy {
  public:
    explicit TSavePanelSpy(std::string saveAs = {}) : fSaveAs(std::move(saveAs)) {
        QObject::connect(&fWatcher, &QTimer::timeout, [this] {
            auto* panel = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
            if (!panel || panel->objectName() != "SavePanel") return;
            fWatcher.stop();
            folder = panel->directory().absolutePath().toStdString();
            if (fSaveAs.empty()) {
                panel->reject();
                return;
            }
            // Typed, as a user does: selectFile leaves a focused name field alone.
            auto* name = panel->findChild<QLineEdit*>("fileNameEdit");
            ASSERT_NE(name, nullptr);
            name->setText(QString::fromStdString(fSaveAs));
            QMetaObject::invokeMethod(panel, "accept");
        });
        fWatcher.start(10);
    }
    std::string folder;

  private:
    std::string fSaveAs;
    QTimer fWatcher;
};

}  // namespace

TEST_F(QuillWinTest, TheOpenAndSavePanelsShareTheLastFolderAndARestoredListKeepsIt) {
    const fs::path music = fTemp.Path() / "music";
    const fs::path lists = fTemp.Path() / "lists";
    const fs::path elsewhere = fTemp.Path() / "elsewhere";
    for (const fs::path& folder : {music, lists, elsewhere}) fs::create_directories(folder);
    fExitState.version = kAppVersion;
    fExitState.panelFolder = music.string();
    fExitState.mainListFile = Playlist("elsewhere/list.qml", {Song("a.mid")}).string();
    auto win = MakeWin();
    win->RestoreExitState();
    EXPECT_EQ(win->OpenPanel()->directory().absolutePath().toStdString(), music.string())
        << "the restored list's folder is not the last folder used";

    // An unnamed list's Save As starts in the last folder, not the working folder.
    win->MItemNewClicked();
    {
        TSavePanelSpy spy;
        win->MItemSaveClicked(true);
        EXPECT_EQ(spy.folder, music.string());
    }

    // The open panel shows another folder and is closed: the save panel starts there.
    std::string failure;
    win->View()->OrvickView()->SetFailureFn([&](const std::string& text) { failure = text; });
    win->OpenPanel()->setDirectory(QString::fromStdString(lists.string()));
    win->OpenPanel()->open();
    win->OpenPanel()->reject();
    {
        TSavePanelSpy spy("new.qml");
        win->MItemSaveClicked(true);
        EXPECT_EQ(spy.folder, lists.string());
    }
    ASSERT_TRUE(fs::exists(lists / "new.qml")) << failure;
    win->WriteExitState();
    EXPECT_EQ(fExitState.panelFolder, lists.string());
}

TEST_F(QuillWinTest, TheOpenPanelTakesAFolder) {
    const fs::path folder = fTemp.Path() / "album";
    fs::create_directories(folder);
    Song("album/one.mid");
    Song("album/two.mid");
    // Folders are read by the folder loader, as in the installed program.
    fs::copy_file(FOLDER_LOADER_PLUGIN, fLoaders / fs::path(FOLDER_LOADER_PLUGIN).filename());
    auto win = MakeWin();
    win->show();
    win->MessageReceived(std::make_unique<veldan::TMessage>(TQuillWin::kMsgAdd).get());
    QFileDialog* panel = win->OpenPanel();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(panel));
    panel->setDirectory(QString::fromStdString(fTemp.Path().string()));
    // As a user picks it: one click on the folder in the panel's list.
    auto* files = panel->findChild<QListView*>("listView");
    auto* model = panel->findChild<QFileSystemModel*>();
    ASSERT_TRUE(files && model);
    QModelIndex album;
    ASSERT_TRUE(process_until([&] {
        album = model->index(QString::fromStdString(folder.string()));
        return album.isValid() && !files->visualRect(album).isEmpty();
    }));
    QTest::mouseClick(files->viewport(), Qt::LeftButton, Qt::NoModifier,
                      files->visualRect(album).center());
    auto* buttons = panel->findChild<QDialogButtonBox*>();
    ASSERT_NE(buttons, nullptr);
    QPushButton* accept = buttons->button(QDialogButtonBox::Open);
    ASSERT_NE(accept, nullptr);
    ASSERT_TRUE(process_until([&] { return accept->isEnabled(); }))
        << accept->text().toStdString() << " " << panel->selectedFiles().join(",").toStdString();
    accept->click();
    EXPECT_TRUE(process_until([&] { return win->View()->OrvickView()->Songs() == 2; }))
        << win->View()->OrvickView()->Songs() << " songs; panel in "
        << panel->directory().absolutePath().toStdString();
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(QuillWinTest, OpeningSeveralFilesFromThePanelKeepsThemAll) {
    const fs::path a = Song("a.mid");
    const fs::path b = Song("b.mid");
    auto win = MakeWin();
    win->MessageReceived(std::make_unique<veldan::TMessage>(TQuillWin::kMsgOpen).get());
    emit win->OpenPanel()->filesSelected(
        {QString::fromStdString(a.string()), QString::fromStdString(b.string())});
    EXPECT_EQ(win->View()->OrvickView()->Songs(), 2)
        << "the second file does not replace the first";
}
