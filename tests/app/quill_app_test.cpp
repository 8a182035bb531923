// The application object end to end: start-up with the real built-in synthesizer rendering
// into a file, the playlist type installed once per version, songs given at start played
// to a recording consumer, the language switched through the application, the secondary
// windows made once, and quitting and starting again with the same state.

#include "app/quill_app.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QDropEvent>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QScreen>
#include <QSlider>
#include <QTest>
#include <QTimer>
#include <QUrl>

#include "app/settings/settings.h"
#include "midi/recorder.h"
#include "midi/roster.h"
#include "midi/synth.h"
#include "player/control_bar.h"
#include "player/quill_view.h"
#include "playlist/ai_selector.h"
#include "playlist/native_loader.h"
#include "playlist/orvick_view.h"
#include "tests/support/fault_child.h"
#include "tests/support/scoped_env.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"
#include "tests/support/widget_app.h"
#include "veldan/core/llt.h"

namespace fs = std::filesystem;
using quill::TQuillController;
using quill::TQuillView;

namespace {

// Two seconds of eighth notes, so that a key change lands while the song plays.
std::vector<uint8_t> running_song() {
    TSmfBuilder smf(1, 480);
    TTrackBuilder& track = smf.AddTrack().Name(0, "Runner");
    for (int i = 0; i < 16; ++i) track.NoteOn(0, 0, 60, 100).NoteOff(240, 0, 60);
    return smf.Bytes();
}

// The same, a third higher, so that the two songs can be told apart at the consumer.
std::vector<uint8_t> other_song() {
    TSmfBuilder smf(1, 480);
    TTrackBuilder& track = smf.AddTrack().Name(0, "Other");
    for (int i = 0; i < 16; ++i) track.NoteOn(0, 0, 64, 100).NoteOff(240, 0, 64);
    return smf.Bytes();
}

bool is_note_on(const std::vector<uint8_t>& bytes) {
    return bytes.size() == 3 && (bytes[0] & 0xF0) == 0x90 && bytes[2] > 0;
}

class QuillAppTest : public TWidgetTest {
  protected:
    QuillAppTest() {
        fs::create_directories(fExe.Path() / "Language");
        fs::create_directories(fExe.Path() / "Loader");
        for (const char* name : {"English.llt", "Japanese.llt"})
            fs::copy_file(fs::path(QUILL_SOURCE_DIR) / "resources/Language" / name,
                          fExe.Path() / "Language" / name);
        ResetRecords();
    }

    static void ResetRecords() {
        exit_state() = TExitState();
        pref() = TPref();
        language_table() = veldan::TLLT();
    }

    // The records as the next run reads them from the files this run wrote.
    static void Restart() {
        ASSERT_TRUE(save_exit_state());
        ResetRecords();
        load_global();
    }

    std::unique_ptr<TQuillApp> Start(std::vector<fs::path> files = {}) {
        TQuillApp::TOptions options;
        options.exeFolder = fExe.Path();
        options.wavPath = (fOut.Path() / "synth.wav").string();
        options.startSystemMidi = false;
        options.files = std::move(files);
        return std::make_unique<TQuillApp>(options);
    }

    size_t NoteOns(const TMidiRecorder& recorder, uint8_t note) const {
        size_t count = 0;
        for (size_t i = 0; i < recorder.Count(); ++i) {
            std::vector<uint8_t> bytes = recorder.EventBytes(i);
            if (is_note_on(bytes) && bytes[1] == note) ++count;
        }
        return count;
    }

    TTempDir fExe;
    TTempDir fOut;
    TTempDir fConfig;
    TTempDir fData;
    TScopedEnv fConfigHome{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
    TScopedEnv fDataHome{"XDG_DATA_HOME", fData.Path().c_str()};
};

TEST_F(QuillAppTest, FirstStartInstallsThePlaylistTypeOnceAndPlaysThroughTheSynthesizer) {
    const fs::path package = fData.Path() / "mime/packages/x-vnd.VELDAN-QuillMIDI-PlayList.xml";
    {
        auto app = Start();
        ASSERT_TRUE(fs::exists(package));
        std::vector<uint8_t> bytes = read_file_bytes(package);
        std::string xml(bytes.begin(), bytes.end());
        EXPECT_NE(xml.find(TCLNative100::kMimeType), std::string::npos);
        EXPECT_NE(xml.find("*.qml"), std::string::npos);
        std::vector<TMidiConsumer*> portA =
            app->MainWin()->View()->Controller().Chain().PublicOut(0)->Connections();
        ASSERT_EQ(portA.size(), 1u);
        EXPECT_EQ(portA[0]->Name(), TSynthConsumer::kName);
        EXPECT_EQ(app->MainWin()->View()->Controller().Chain().PublicOut(1)->Connections(), portA)
            << "port B plays through the same synthesizer";
        auto* status = app->MainWin()->findChild<QLabel*>("StatBar");
        ASSERT_NE(status, nullptr);
        EXPECT_TRUE(status->text().endsWith("synth.wav")) << status->text().toStdString();
        app->Quit();
    }
    Restart();
    EXPECT_EQ(exit_state().version, kAppVersion);
    fs::remove(package);
    auto again = Start();
    EXPECT_FALSE(fs::exists(package));
}

TEST_F(QuillAppTest, SongsGivenAtStartPlayAndAKeyChangeReachesTheConsumer) {
    TMidiRecorder recorder("Recording Synth", 1 << 12);
    recorder.Register();
    fs::path song = fOut.Write("runner.mid", running_song());
    auto app = Start({song});
    TQuillView* view = app->MainWin()->View();
    ASSERT_EQ(view->OrvickView()->Songs(), 1);
    ASSERT_EQ(view->Controller().Ports().ConnectMidiOut(0, recorder.ID()), 0);
    ASSERT_TRUE(process_until([&] { return NoteOns(recorder, 60) >= 2; }))
        << "state " << view->Controller().State();

    veldan::TMessage key(quill::kMsgKeyChanged);
    key.AddInt32(TQuillController::kSliderValueField, 2);
    veldan::post_message(view, key);
    EXPECT_TRUE(process_until([&] { return NoteOns(recorder, 62) >= 2; }));
    EXPECT_EQ(view->Controller().SongTitle(), "Runner");
    app->Quit();
    EXPECT_FALSE(app->IsRunning());
}

TEST_F(QuillAppTest, FilesHandedOverLaterPlayThemselvesNotTheSelectedRow) {
    TMidiRecorder recorder("Handed Over Synth", 1 << 12);
    recorder.Register();
    auto app = Start({fOut.Write("runner.mid", running_song())});
    TQuillView* view = app->MainWin()->View();
    ASSERT_EQ(view->Controller().Ports().ConnectMidiOut(0, recorder.ID()), 0);
    view->OrvickView()->Song(0)->setSelected(true);
    app->OpenFiles({fOut.Write("other.mid", other_song())});
    EXPECT_EQ(view->Controller().CurSongIdx(), 1);
    EXPECT_EQ(view->Controller().SongTitle(), "Other");
    EXPECT_TRUE(process_until([&] { return NoteOns(recorder, 64) >= 1; }));
    app->Quit();
}

TEST_F(QuillAppTest, QuittingAndStartingAgainRestoresTheSameState) {
    TMidiRecorder recorder("Remembered Synth", 256);
    recorder.Register();
    std::vector<fs::path> songs = {fOut.Write("a.mid", running_song()),
                                   fOut.Write("b.mid", running_song())};
    {
        auto app = Start(songs);
        TQuillView* view = app->MainWin()->View();
        view->Controller().StopSong();
        veldan::TMessage change(TOrvickView::kMsgChangeSongRqtd);
        change.AddInt32(TOrvickView::kSongIndexField, 1);
        view->ChangeSongRqtd(change);
        view->Controller().SetPlayMode(1);
        ASSERT_EQ(view->Controller().Ports().ConnectMidiOut(1, recorder.ID()), 0);
        app->MainWin()->setGeometry(40, 60, 640, 420);
        app->Quit();
    }
    Restart();
    auto app = Start();
    TQuillView* view = app->MainWin()->View();
    EXPECT_EQ(view->OrvickView()->Songs(), 2);
    EXPECT_EQ(view->Controller().CurSongIdx(), 1);
    EXPECT_EQ(view->Controller().PlayMode(), 1);
    const TAISelector::TScoreTable& scores = view->Controller().AISelector().Scores();
    // Each song was played once, which counts for it.
    for (const char* name : {"a.mid", "b.mid"}) {
        ASSERT_TRUE(scores.contains(name)) << name << ": what was learned is read again";
        EXPECT_EQ(scores.at(name).priority, TAISelector::kNeutralPriority + 1) << name;
    }
    EXPECT_TRUE(view->Controller().Chain().PublicOut(1)->IsConnected(&recorder));
    EXPECT_EQ(view->Controller().Chain().PublicOut(0)->Connections().size(),
              1u);  // the synthesizer
    EXPECT_EQ(app->MainWin()->geometry(), QRect(40, 60, 640, 420));
}

// What the next start needs is on disk once Quit returns, before the application lets
// go of the MIDI systems, which can wait on a server that stopped answering (a user who
// then kills the program loses nothing).
TEST_F(QuillAppTest, QuitWritesTheExitStateBeforeTheMidiSystemsAreLetGo) {
    auto app = Start({fOut.Write("a.mid", running_song())});
    app->MainWin()->View()->Controller().StopSong();
    app->MainWin()->View()->Controller().SetPlayMode(1);
    app->Quit();
    ResetRecords();
    load_global();
    EXPECT_EQ(exit_state().playMode, 1);
    EXPECT_EQ(exit_state().version, kAppVersion);
    EXPECT_FALSE(exit_state().mainListFile.empty());
}

TEST_F(QuillAppTest, AFrameLeftOnAMonitorThatIsGoneComesBackOnScreen) {
    exit_state().frame = veldan::TRect{5000, 4000, 5399, 4299};
    exit_state().expandedHeight = 300;
    auto app = Start();
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    const QRect frame = app->MainWin()->geometry();
    EXPECT_TRUE(screen.contains(frame.topLeft())) << frame.x() << "," << frame.y();
    EXPECT_EQ(frame.height(), 300) << "the size is kept";

    // A frame partly off a screen edge stays where the user put it.
    app->Quit();
    app.reset();
    exit_state().frame =
        veldan::TRect{float(screen.right() - 200), 40, float(screen.right() + 199), 339};
    auto again = Start();
    EXPECT_EQ(again->MainWin()->geometry().topLeft(), QPoint(screen.right() - 200, 40));
}

// A disk that fills up while the user plays: every file written at quit fails. What the
// last run left must stay whole, and the next start must show the same playlist.
class QuillAppFullDisk : public QuillAppTest {
  protected:
    fs::path SettingsFile(const char* name) const {
        return fConfig.Path() / "VELDAN" / "QuillMIDI" / name;
    }
    // A first run that plays three songs in a new list and quits normally.
    void FirstRun() {
        fSongs = {fOut.Write("one.mid", running_song()), fOut.Write("two.mid", running_song()),
                  fOut.Write("three.mid", other_song())};
        {
            auto app = Start(fSongs);
            ASSERT_EQ(app->MainWin()->View()->OrvickView()->Songs(), 3);
            app->Quit();
        }
        Restart();
        fListBefore = read_file_bytes(SettingsFile("QuillMIDI_UnsavedList.qml"));
        fStateBefore = read_file_bytes(SettingsFile(kExitStateFile));
        ASSERT_FALSE(fListBefore.empty());
        ASSERT_FALSE(fStateBefore.empty());
    }
    // The second run: the list grows by many songs, then the disk fills and the user quits.
    std::string SecondRunQuitsOnAFullDisk(int64_t limitBytes, bool* exitStateSaved,
                                          std::string* statusLine) {
        auto app = Start();
        TOrvickView* list = app->MainWin()->View()->OrvickView();
        EXPECT_EQ(list->Songs(), 3) << "the first run's list comes back";
        auto* top = static_cast<TQuillSItem*>(list->topLevelItem(0));
        for (int i = 0; i < 40; ++i)
            list->AddMidiFile(fOut.Write("a song with a longer name " + std::to_string(i) + ".mid",
                                         running_song()),
                              top, -1);
        app->MainWin()->View()->Controller().StopSong();
        TStderrCapture errors;
        {
            TScopedFileSizeLimit full(limitBytes);
            // The recent-lists file is written whenever its menus change: the failure shows
            // on the status line while the window is there to show it.
            app->MainWin()->RemoveHistoryRqtd("/no/such/list.qml");
            auto* statusBar = app->MainWin()->View()->ControlBar()->findChild<QLabel*>("StatBar");
            *statusLine = statusBar ? statusBar->text().toStdString() : std::string("<none>");
            app->Quit();
            *exitStateSaved = save_exit_state();
        }
        return errors.Take();
    }

    std::vector<fs::path> fSongs;
    std::vector<uint8_t> fListBefore;
    std::vector<uint8_t> fStateBefore;
};

TEST_F(QuillAppFullDisk, NothingCanBeWrittenAndTheNextStartShowsTheList) {
    FirstRun();
    bool exitStateSaved = true;
    std::string status;
    const std::string errors = SecondRunQuitsOnAFullDisk(1, &exitStateSaved, &status);

    EXPECT_FALSE(exitStateSaved);
    EXPECT_NE(status.find("Cannot save the settings file"), std::string::npos) << status;
    EXPECT_NE(status.find(kMRUPlaylistsFile), std::string::npos) << status;
    EXPECT_NE(errors.find("QuillMIDI_UnsavedList.qml"), std::string::npos) << errors;
    EXPECT_NE(errors.find(kExitStateFile), std::string::npos) << errors;
    EXPECT_EQ(read_file_bytes(SettingsFile("QuillMIDI_UnsavedList.qml")), fListBefore);
    EXPECT_EQ(read_file_bytes(SettingsFile(kExitStateFile)), fStateBefore);

    ResetRecords();
    load_global();
    auto app = Start();
    EXPECT_EQ(app->MainWin()->View()->OrvickView()->Songs(), 3);
}

TEST_F(QuillAppFullDisk, RoomForTheSettingsButNotForTheListStillShowsTheList) {
    FirstRun();
    bool exitStateSaved = false;
    std::string status;
    const std::string errors =
        SecondRunQuitsOnAFullDisk(int64_t(fStateBefore.size()) + 256, &exitStateSaved, &status);

    EXPECT_TRUE(exitStateSaved);
    EXPECT_NE(errors.find("QuillMIDI_UnsavedList.qml"), std::string::npos) << errors;
    EXPECT_EQ(read_file_bytes(SettingsFile("QuillMIDI_UnsavedList.qml")), fListBefore);

    ResetRecords();
    load_global();
    auto app = Start();
    EXPECT_EQ(app->MainWin()->View()->OrvickView()->Songs(), 3)
        << "the exit state names the list the first run kept";
}

TEST_F(QuillAppTest, ALanguageChangeReachesTheMenus) {
    auto app = Start();
    EXPECT_EQ(app->MainWin()->menuBar()->actions()[0]->text(), "File");
    pref().languageFile = "Japanese.llt";
    veldan::post_message(app.get(), veldan::TMessage(quill::kMsgReloadLanguage));
    EXPECT_TRUE(process_until([&] {
        return app->MainWin()->menuBar()->actions()[0]->text() == QString::fromUtf8("ファイル");
    })) << app->MainWin()->menuBar()->actions()[0]->text().toStdString();
}

// The first menu's title, which says which language is in use.
QString first_menu(const TQuillApp& app) { return app.MainWin()->menuBar()->actions()[0]->text(); }

// Drops a copy of the Japanese language, named "Mine.llt", on the running program.
void drop_language(TQuillApp& app, const TTempDir& elsewhere) {
    fs::path dropped = elsewhere.Path() / "Mine.llt";
    fs::copy_file(fs::path(QUILL_SOURCE_DIR) / "resources/Language/Japanese.llt", dropped);
    veldan::TMessage message(quill::kMsgLanguageFileDropped);
    message.AddRef(TPrefView::kRefsField, dropped);
    veldan::post_message(&app, message);
}

TEST_F(QuillAppTest, ALanguageFileDroppedOnThePreferencesBecomesTheLanguage) {
    auto app = Start();
    TTempDir elsewhere;
    drop_language(*app, elsewhere);
    EXPECT_TRUE(process_until([&] { return first_menu(*app) == QString::fromUtf8("ファイル"); }));
    EXPECT_TRUE(fs::exists(fExe.Path() / "Language" / "Mine.llt"));
    EXPECT_EQ(pref().languageFile, "Mine.llt");
}

TEST_F(QuillAppTest, ALanguageDroppedOnAnInstalledProgramGoesToTheUsersFolder) {
    // The program's own folder cannot take files (a root test can't take the right away,
    // so a file stands in its way); the built-in language is in use.
    fs::remove_all(fExe.Path() / "Language");
    fExe.Write("Language", std::string("in the way"));
    pref().languageFile.clear();
    auto app = Start();
    TTempDir elsewhere;
    drop_language(*app, elsewhere);
    EXPECT_TRUE(process_until([&] { return first_menu(*app) == QString::fromUtf8("ファイル"); }));
    EXPECT_TRUE(fs::exists(fData.Path() / "quillmidi/Language/Mine.llt"));
    app->Quit();
    // The next start finds it there.
    Restart();
    auto again = Start();
    EXPECT_EQ(first_menu(*again), QString::fromUtf8("ファイル"));
}

TEST_F(QuillAppTest, DroppingALanguageFileThatAlreadyLiesInTheLanguageFolderChoosesIt) {
    auto app = Start();
    veldan::TMessage message(quill::kMsgLanguageFileDropped);
    message.AddRef(TPrefView::kRefsField, fExe.Path() / "Language" / "Japanese.llt");
    veldan::post_message(app.get(), message);
    EXPECT_TRUE(process_until([&] { return first_menu(*app) == QString::fromUtf8("ファイル"); }))
        << first_menu(*app).toStdString();
    EXPECT_EQ(pref().languageFile, "Japanese.llt");
    EXPECT_GT(fs::file_size(fExe.Path() / "Language" / "Japanese.llt"), 0u);
}

TEST_F(QuillAppTest, ADroppedLanguageIsNotHiddenByAnOlderCopyOfTheSameNameInTheUsersFolder) {
    // An English copy named Mine.llt, added when the program's folder could not be written.
    const fs::path user = fData.Path() / "quillmidi/Language";
    fs::create_directories(user);
    fs::copy_file(fExe.Path() / "Language" / "English.llt", user / "Mine.llt");
    auto app = Start();
    TTempDir elsewhere;
    drop_language(*app, elsewhere);  // a Japanese Mine.llt
    EXPECT_TRUE(process_until([&] { return first_menu(*app) == QString::fromUtf8("ファイル"); }))
        << first_menu(*app).toStdString();
    EXPECT_EQ(pref().languageFile, "Mine.llt");
}

TEST_F(QuillAppTest, AMissingLanguageFileIsToldInTheFixedAlertAndTheProgramGoesOn) {
    pref().languageFile = "Gone.llt";
    // The alert comes while the application is being made: a timer looks for it.
    QString shown;
    QTimer watcher;
    QObject::connect(&watcher, &QTimer::timeout, [&] {
        auto* alert = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!alert) return;
        watcher.stop();
        shown = alert->windowTitle() + "|" + alert->text() + "|" + alert->buttons()[0]->text();
        QTest::keyClick(alert, Qt::Key_Return);  // the one button is the default
    });
    watcher.start(10);
    auto app = Start();
    const QString path = QString::fromStdString((fExe.Path() / "Language/Gone.llt").string());
    EXPECT_EQ(shown, "* Quill MIDI *|* Quill MIDI *\n\nCan't load language file:\n" + path +
                         "|U - Understand");
    EXPECT_TRUE(app->IsRunning());
    EXPECT_TRUE(app->MainWin()->isVisible());
    QStringList menus;
    for (QAction* menu : app->MainWin()->menuBar()->actions()) menus << menu->text();
    EXPECT_EQ(menus, QStringList({"File", "Play", "MIDI OUT", "Tools", "Help"}))
        << "the built-in texts stand in";
}

TEST_F(QuillAppTest, ATranslationThatLacksTextsShowsTheBuiltInOnesForThem) {
    fExe.Write("Language/Partial.llt",
               std::string("[Informations]\nHeader = LLT File Format 100\nLanguage = Partial\n"
                           "[Data]\nMenu_File = Datei\n"));
    pref().languageFile = "Partial.llt";
    auto app = Start();
    QStringList menus;
    for (QAction* menu : app->MainWin()->menuBar()->actions()) menus << menu->text();
    EXPECT_EQ(menus, QStringList({"Datei", "Play", "MIDI OUT", "Tools", "Help"}));
    EXPECT_EQ(language_table().LanguageName(), "Partial");
}

// Answers the next alert with its default button and gives its text.
class TAlertAnswer {
  public:
    TAlertAnswer() {
        QObject::connect(&fWatcher, &QTimer::timeout, [this] {
            auto* alert = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!alert) return;
            fWatcher.stop();
            text = alert->text();
            QTest::keyClick(alert, Qt::Key_Return);
        });
        fWatcher.start(10);
    }
    QString text;

  private:
    QTimer fWatcher;
};

TEST_F(QuillAppTest, NewSynthesizerSettingsRemakeItAndItKeepsItsConnections) {
    auto app = Start();
    ASSERT_NE(app->Synth(), nullptr);
    const int32_t before = app->Synth()->ID();  // a new consumer has a new id
    TQuillView* view = app->MainWin()->View();
    ASSERT_TRUE(view->Controller().Chain().PublicOut(0)->IsConnected(app->Synth()));
    pref().synth.reverb = false;
    pref().synth.polyphony = 64;
    veldan::post_message(app.get(), veldan::TMessage(quill::kMsgPrefChanged));
    ASSERT_TRUE(process_until([&] { return app->Synth() && app->Synth()->ID() != before; }));
    EXPECT_TRUE(view->Controller().Chain().PublicOut(0)->IsConnected(app->Synth()));
    EXPECT_EQ(view->Controller().Chain().PublicOut(0)->Connections().size(), 1u);
}

TEST_F(QuillAppTest, ASoundFontThatFailsIsToldByNameAndThePreviousSettingsStay) {
    auto app = Start();
    const fs::path missing = fOut.Path() / "gone.sf2";
    pref().synth.soundFonts = {missing.string()};
    TAlertAnswer answer;
    veldan::post_message(app.get(), veldan::TMessage(quill::kMsgPrefChanged));
    ASSERT_TRUE(process_until([&] { return !answer.text.isEmpty(); }));
    EXPECT_TRUE(answer.text.contains(QString::fromStdString(missing.string())))
        << answer.text.toStdString();
    EXPECT_TRUE(pref().synth.soundFonts.empty()) << "the settings in use are the preferences again";
    ASSERT_NE(app->Synth(), nullptr);
    EXPECT_TRUE(
        app->MainWin()->View()->Controller().Chain().PublicOut(0)->IsConnected(app->Synth()));
}

TEST_F(QuillAppTest, AtStartAFailingSoundFontGivesWayToTheDefaultOne) {
    pref().synth.soundFonts = {(fOut.Path() / "moved.sf2").string()};
    TAlertAnswer answer;
    auto app = Start();
    EXPECT_TRUE(answer.text.contains("moved.sf2")) << answer.text.toStdString();
    ASSERT_NE(app->Synth(), nullptr);
    EXPECT_TRUE(
        app->MainWin()->View()->Controller().Chain().PublicOut(0)->IsConnected(app->Synth()));
}

TEST_F(QuillAppTest, SecondaryWindowsAreMadeOnceAndClosedAtQuit) {
    auto app = Start();
    app->MItemPrefClicked();
    QPointer<TPrefWin> prefs = app->PrefWin();
    ASSERT_NE(prefs, nullptr);
    app->MItemPrefClicked();
    EXPECT_EQ(app->PrefWin(), prefs.data());
    app->AboutRequested();
    app->MItemDrvCvtSettingClicked();
    QPointer<TAboutWin> about = app->AboutWin();
    QPointer<TDrvCvtWin> drives = app->DrvCvtWin();
    EXPECT_TRUE(about && about->isVisible());
    EXPECT_TRUE(drives && drives->isVisible());
    app->Quit();
    EXPECT_EQ(prefs, nullptr);
    EXPECT_EQ(about, nullptr);
    EXPECT_EQ(drives, nullptr);
}

TEST_F(QuillAppTest, TheCloseBoxQuitsThroughTheApplication) {
    auto app = Start();
    app->MainWin()->close();
    EXPECT_TRUE(process_until([&] { return !app->IsRunning(); }));
}

}  // namespace

// As a user does it: drop two songs from a file manager, pick port A's consumer from the
// MIDI OUT menu, double-click the second song and press play, move the key slider while it
// plays, quit from the File menu; the next start shows the same state.
TEST_F(QuillAppTest, EndToEndDropDoubleClickPlayChangeKeyQuitRestart) {
    TMidiRecorder recorder("Desk Synth", 1 << 12);
    recorder.Register();
    const fs::path first = fOut.Write("first.mid", running_song());
    const fs::path second = fOut.Write("second.mid", other_song());
    {
        auto app = Start();
        TQuillWin* win = app->MainWin();
        TQuillView* view = win->View();
        TOrvickView* list = view->OrvickView();
        view->Controller().StopSong();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(win));

        QMimeData files;
        files.setUrls({QUrl::fromLocalFile(QString::fromStdString(first.string())),
                       QUrl::fromLocalFile(QString::fromStdString(second.string()))});
        const QPoint below(5, list->viewport()->height() - 2);
        // As a drag from a file manager arrives: it enters, moves, then drops.
        QDragEnterEvent enter(below, Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(list->viewport(), &enter);
        ASSERT_TRUE(enter.isAccepted()) << "the playlist takes files";
        QDragMoveEvent move(below, Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(list->viewport(), &move);
        QDropEvent drop(QPointF(below), Qt::CopyAction, &files, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(list->viewport(), &drop);
        ASSERT_EQ(list->Songs(), 2);

        QAction* deskSynth = nullptr;
        for (QAction* action : win->findChild<QMenu*>("Menu_MIDI_Port_0")->actions())
            if (action->text().endsWith("Desk Synth")) deskSynth = action;
        ASSERT_NE(deskSynth, nullptr);
        deskSynth->trigger();
        ASSERT_TRUE(process_until(
            [&] { return view->Controller().Chain().PublicOut(0)->IsConnected(&recorder); }));

        const QRect row = list->visualItemRect(list->Song(1));
        ASSERT_FALSE(row.isEmpty());
        QTest::mouseDClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, row.center());
        ASSERT_TRUE(process_until([&] { return view->Controller().CurSongIdx() == 1; }))
            << "the song changes";
        auto* play = view->ControlBar()->findChild<QWidget*>("ButtonPlay");
        ASSERT_NE(play, nullptr);
        QTest::mouseClick(play, Qt::LeftButton);
        ASSERT_TRUE(process_until([&] { return NoteOns(recorder, 64) >= 2; }))
            << "state " << view->Controller().State() << ", song "
            << view->Controller().CurSongIdx();
        EXPECT_EQ(NoteOns(recorder, 60), 0u) << "only the song clicked plays";

        auto* key = view->ControlBar()->findChild<QSlider*>("SliderKey");
        ASSERT_NE(key, nullptr);
        key->triggerAction(QAbstractSlider::SliderSingleStepAdd);
        EXPECT_TRUE(process_until([&] { return NoteOns(recorder, 65) >= 2; }))
            << "a semitone up while playing";

        list->SetAskSaveFn([](const TQuillSItem&) { return TOrvickView::TSaveAnswer::kNo; });
        for (QAction* action : win->findChild<QMenu*>("Menu_File")->actions())
            if (action->objectName() == "MItem_Quit") action->trigger();
        ASSERT_TRUE(process_until([&] { return !app->IsRunning(); }));
    }
    Restart();
    auto app = Start();
    TQuillView* view = app->MainWin()->View();
    ASSERT_EQ(view->OrvickView()->Songs(), 2);
    EXPECT_EQ(view->Controller().CurSongRef(), second);
    EXPECT_TRUE(view->Controller().Chain().PublicOut(0)->IsConnected(&recorder));
}
