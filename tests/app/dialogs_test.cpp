// The preferences and about windows, driven through their controls as a user would, with
// the settings folder and the language folder in temporary folders.

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMimeData>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTreeWidget>
#include <QUrl>
#include <filesystem>
#include <string>

#include "app/dialogs/about_win.h"
#include "app/dialogs/lang_files.h"
#include "app/dialogs/pref_win.h"
#include "app/dialogs/synth_box.h"
#include "app/settings/exit_state.h"
#include "app/settings/settings.h"
#include "midi/synth.h"
#include "tests/support/message_recorder.h"
#include "tests/support/render_check.h"
#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"
#include "tests/support/widget_app.h"
#include "veldan/core/llt.h"
#include "veldan/widgets/tool_tip.h"

namespace {

namespace fs = std::filesystem;

fs::path source_language_file(const char* name) {
    return fs::path(QUILL_SOURCE_DIR) / "resources" / "Language" / name;
}

veldan::TLLT load_language(const char* name) {
    veldan::TLLT texts;
    EXPECT_EQ(texts.Load(source_language_file(name).c_str()), 0) << name;
    return texts;
}

QString text_of(const veldan::TLLT& texts, const char* key) {
    return QString::fromUtf8(texts.Text(key));
}

// A settings folder and a "Language" folder holding both shipped language files, a file
// with the wrong header and a file that is no language file.
class DialogTest : public TWidgetTest {
  protected:
    DialogTest()
        : configHome(dir.Path() / "config"),
          xdg("XDG_CONFIG_HOME", configHome.c_str()),
          noReset("QUILLMIDI_RESET_SETTINGS", nullptr),
          languageFolder(dir.Path() / "Language"),
          texts(load_language("English.llt")) {
        fs::create_directories(languageFolder);
        fs::copy_file(source_language_file("English.llt"), languageFolder / "English.llt");
        fs::copy_file(source_language_file("Japanese.llt"), languageFolder / "Japanese.llt");
        dir.Write("Language/Broken.llt", std::string("[Informations]\nHeader = nonsense\n"));
        dir.Write("Language/ReadMe.txt", std::string("not a language\n"));
    }

    fs::path PrefsFile() const { return configHome / "VELDAN" / kSettingsFolder / kPrefsFile; }

    TTempDir dir;
    fs::path configHome;
    TScopedEnv xdg;
    TScopedEnv noReset;
    fs::path languageFolder;
    veldan::TLLT texts;
    TMessageRecorder recorder;
};

class PrefWin : public DialogTest {
  protected:
    PrefWin() {
        pref() = TPref();
        win = std::make_unique<TPrefWin>(texts, pref(), TLanguageFolders{languageFolder});
        win->SetTarget(&recorder);
        win->show();
    }
    ~PrefWin() override { pref() = TPref(); }

    template <class T>
    T* Child(const char* name) {
        T* child = win->findChild<T*>(name);
        EXPECT_NE(child, nullptr) << name;
        return child;
    }
    void Type(const char* field, const QString& text) {
        QLineEdit* edit = Child<QLineEdit>(field);
        edit->setText(text);
        emit edit->editingFinished();
    }
    void Click(const char* name) { Child<QAbstractButton>(name)->click(); }
    QComboBox* Menu() { return Child<QComboBox>("MFieldLanguage"); }
    int MenuIndexOf(const char* file) { return Menu()->findData(QString(file)); }
    void Choose(const char* file) {
        ASSERT_GE(MenuIndexOf(file), 0) << file;
        Menu()->setCurrentIndex(MenuIndexOf(file));
    }
    int Count(uint32_t code) {
        int count = 0;
        for (const veldan::TMessage& message : recorder.Deliver()) count += message.what == code;
        return count;
    }
    void Post(uint32_t code) {
        veldan::post_message(win.get(), veldan::TMessage(code));
        QCoreApplication::sendPostedEvents();
    }

    std::unique_ptr<TPrefWin> win;
};

TEST_F(PrefWin, EveryControlIsThereByNameAndLabelledFromTheLanguage) {
    EXPECT_EQ(win->InitCheck(), 0);
    for (const char* name :
         {"BoxSendSysResets", "CBoxSendSysResets", "CBoxSRGM", "CBoxSRGS", "CBoxSR88", "CBoxSRXG",
          "TxtCtrlSilenceIntervalAfterSysResets", "StrViewSilenceIntervalAfterSysResets",
          "CBoxSilenceBetweenSongs", "TxtCtrlSilenceIntervalBetweenSongs",
          "StrViewSilenceIntervalBetweenSongs", "CBoxChaseOnSeek", "BoxAutoSort",
          "RButtonAutoSortNone", "RButtonAutoSortUp", "RButtonAutoSortDown", "MFieldLanguage",
          "ButtonOK", "ButtonCancel"}) {
        EXPECT_NE(win->findChild<QWidget*>(name), nullptr) << name;
    }
    EXPECT_NE(Child<QGroupBox>("BoxSendSysResets")->findChild<QCheckBox*>("CBoxSendSysResets"),
              nullptr);
    EXPECT_NE(Child<QGroupBox>("BoxAutoSort")->findChild<QRadioButton*>("RButtonAutoSortDown"),
              nullptr);
    EXPECT_EQ(win->windowTitle(), text_of(texts, "Pref_Win_Title"));
    EXPECT_EQ(Child<QCheckBox>("CBoxSendSysResets")->text(),
              text_of(texts, "CBox_Send_Sys_Resets"));
    EXPECT_EQ(Child<QLabel>("TxtCtrlSilenceIntervalAfterSysResetsLabel")->text(),
              text_of(texts, "TxtCtrl_Silence_Interval_After_Sys_Resets"));
    EXPECT_EQ(Child<QLabel>("StrViewSilenceIntervalBetweenSongs")->text(),
              text_of(texts, "StrView_Silence_Interval_Between_Songs"));
    EXPECT_EQ(Child<QGroupBox>("BoxAutoSort")->title(), text_of(texts, "Box_Auto_Sort"));
    EXPECT_EQ(Child<QRadioButton>("RButtonAutoSortUp")->text(),
              text_of(texts, "RButton_Auto_Sort_Up"));
    EXPECT_EQ(Child<QPushButton>("ButtonCancel")->text(), text_of(texts, "Button_Cancel"));
    EXPECT_EQ(Child<QCheckBox>("CBoxChaseOnSeek")->text(), text_of(texts, "CBox_Chase_On_Seek"));
}

TEST_F(PrefWin, ChaseOnSeekIsOffByDefaultAndTheBoxSetsItUntilCancel) {
    EXPECT_FALSE(Child<QCheckBox>("CBoxChaseOnSeek")->isChecked());
    Child<QCheckBox>("CBoxChaseOnSeek")->click();
    EXPECT_TRUE(pref().chaseOnSeek);
    Click("ButtonCancel");
    EXPECT_FALSE(pref().chaseOnSeek);
    EXPECT_FALSE(Child<QCheckBox>("CBoxChaseOnSeek")->isChecked());
}

TEST_F(PrefWin, ControlsShowThePreferences) {
    pref().sendSysResets = true;
    pref().sysResetCombination = 2 | 8;
    pref().silenceAfterResetsUs = 450000;
    pref().waitBetweenSongs = true;
    pref().silenceBetweenSongsUs = 4000000;
    pref().autoSortKind = TPref::kSortDescending;
    pref().languageFile = "Japanese.llt";
    win->View()->UpdateCompos();
    EXPECT_TRUE(Child<QCheckBox>("CBoxSendSysResets")->isChecked());
    EXPECT_FALSE(Child<QCheckBox>("CBoxSRGM")->isChecked());
    EXPECT_TRUE(Child<QCheckBox>("CBoxSRGS")->isChecked());
    EXPECT_FALSE(Child<QCheckBox>("CBoxSR88")->isChecked());
    EXPECT_TRUE(Child<QCheckBox>("CBoxSRXG")->isChecked());
    EXPECT_EQ(Child<QLineEdit>("TxtCtrlSilenceIntervalAfterSysResets")->text(), "450");
    EXPECT_EQ(Child<QLineEdit>("TxtCtrlSilenceIntervalBetweenSongs")->text(), "4");
    EXPECT_TRUE(Child<QRadioButton>("RButtonAutoSortDown")->isChecked());
    EXPECT_EQ(Menu()->currentData().toString(), "Japanese.llt");
    // Setting the controls wrote nothing back and asked for no reload.
    EXPECT_EQ(pref().sysResetCombination, 2 | 8);
    EXPECT_EQ(Count(quill::kMsgReloadLanguage), 0);

    pref().autoSortKind = 7;
    win->View()->UpdateCompos();
    EXPECT_TRUE(Child<QRadioButton>("RButtonAutoSortNone")->isChecked());
}

TEST_F(PrefWin, BetweenSongsSilenceIsClampedToOneToFiveSeconds) {
    pref().waitBetweenSongs = true;
    win->View()->UpdateCompos();
    Type("TxtCtrlSilenceIntervalBetweenSongs", "0");
    EXPECT_EQ(pref().silenceBetweenSongsUs, 1000000);
    Type("TxtCtrlSilenceIntervalBetweenSongs", "9");
    EXPECT_EQ(pref().silenceBetweenSongsUs, 5000000);
    Type("TxtCtrlSilenceIntervalBetweenSongs", "2");
    EXPECT_EQ(pref().silenceBetweenSongsUs, 2000000);
    Type("TxtCtrlSilenceIntervalBetweenSongs", "-3");
    EXPECT_EQ(pref().silenceBetweenSongsUs, 1000000);
}

TEST_F(PrefWin, MarkedLoopsAreOffByDefaultAndTheirValuesKeptInRange) {
    EXPECT_FALSE(Child<QCheckBox>("CBoxPlayMarkedLoops")->isChecked());
    EXPECT_FALSE(Child<QLineEdit>("TxtCtrlLoopTimes")->isEnabled());
    EXPECT_FALSE(Child<QLineEdit>("TxtCtrlLoopFade")->isEnabled());
    EXPECT_EQ(Child<QLineEdit>("TxtCtrlLoopTimes")->text(), "2");
    EXPECT_EQ(Child<QLineEdit>("TxtCtrlLoopFade")->text(), "8");
    EXPECT_EQ(Child<QLabel>("StrViewLoopTimes")->text(), "more times, then fade out over");
    Child<QCheckBox>("CBoxPlayMarkedLoops")->click();
    EXPECT_TRUE(pref().loops.on);
    EXPECT_TRUE(Child<QLineEdit>("TxtCtrlLoopTimes")->isEnabled());
    Type("TxtCtrlLoopTimes", "0");
    EXPECT_EQ(pref().loops.times, 1);
    Type("TxtCtrlLoopTimes", "100");
    EXPECT_EQ(pref().loops.times, 99);
    EXPECT_EQ(Child<QLineEdit>("TxtCtrlLoopTimes")->text(), "99");
    Type("TxtCtrlLoopTimes", "5");
    EXPECT_EQ(pref().loops.times, 5);
    Type("TxtCtrlLoopFade", "45");
    EXPECT_EQ(pref().loops.fadeSeconds, 30);
    Type("TxtCtrlLoopFade", "-1");
    EXPECT_EQ(pref().loops.fadeSeconds, 0);
    Click("ButtonCancel");
    EXPECT_EQ(pref().loops, TLoopSettings());
}

TEST_F(PrefWin, AfterResetSilenceReadsNonNumbersAsZeroAndIsClampedToOneSecond) {
    pref().sendSysResets = true;
    win->View()->UpdateCompos();
    Type("TxtCtrlSilenceIntervalAfterSysResets", "250");
    EXPECT_EQ(pref().silenceAfterResetsUs, 250000);
    Type("TxtCtrlSilenceIntervalAfterSysResets", "abc");
    EXPECT_EQ(pref().silenceAfterResetsUs, 0);
    Type("TxtCtrlSilenceIntervalAfterSysResets", "99999999999999999999");
    EXPECT_EQ(pref().silenceAfterResetsUs, 1000000);
    Type("TxtCtrlSilenceIntervalAfterSysResets", "1001");
    EXPECT_EQ(pref().silenceAfterResetsUs, 1000000);
    // The field shows the clamped value once the controls are set again.
    win->View()->UpdateCompos();
    EXPECT_EQ(Child<QLineEdit>("TxtCtrlSilenceIntervalAfterSysResets")->text(), "1000");
}

TEST_F(PrefWin, TurningResetsOffGreysTheirControlsButKeepsTheirValues) {
    pref().sendSysResets = true;
    pref().sysResetCombination = 1 | 4;
    pref().silenceAfterResetsUs = 600000;
    win->View()->UpdateCompos();
    QLabel* unit = Child<QLabel>("StrViewSilenceIntervalAfterSysResets");
    const char* dependents[] = {"CBoxSRGM",
                                "CBoxSRGS",
                                "CBoxSR88",
                                "CBoxSRXG",
                                "TxtCtrlSilenceIntervalAfterSysResets",
                                "StrViewSilenceIntervalAfterSysResets"};
    for (const char* name : dependents) EXPECT_TRUE(Child<QWidget>(name)->isEnabled()) << name;
    EXPECT_EQ(unit->palette().color(QPalette::WindowText), QColor(0, 0, 0));

    Click("CBoxSendSysResets");
    EXPECT_FALSE(pref().sendSysResets);
    for (const char* name : dependents) EXPECT_FALSE(Child<QWidget>(name)->isEnabled()) << name;
    EXPECT_EQ(unit->palette().color(QPalette::WindowText), QColor(128, 128, 128));
    EXPECT_EQ(pref().sysResetCombination, 1 | 4);
    EXPECT_EQ(pref().silenceAfterResetsUs, 600000);
    EXPECT_TRUE(Child<QCheckBox>("CBoxSRGM")->isChecked());

    Click("CBoxSendSysResets");
    EXPECT_TRUE(pref().sendSysResets);
    for (const char* name : dependents) EXPECT_TRUE(Child<QWidget>(name)->isEnabled()) << name;
    EXPECT_EQ(unit->palette().color(QPalette::WindowText), QColor(0, 0, 0));
}

TEST_F(PrefWin, ResetBoxesMakeTheCombination) {
    pref().sendSysResets = true;
    pref().sysResetCombination = 1;
    win->View()->UpdateCompos();
    Click("CBoxSRGS");
    EXPECT_EQ(pref().sysResetCombination, 1 | 2);
    Click("CBoxSRXG");
    EXPECT_EQ(pref().sysResetCombination, 1 | 2 | 8);
    Click("CBoxSRGM");
    EXPECT_EQ(pref().sysResetCombination, 2 | 8);
    Click("CBoxSR88");
    EXPECT_EQ(pref().sysResetCombination, 2 | 4 | 8);
}

TEST_F(PrefWin, BetweenSongsBoxEnablesItsField) {
    EXPECT_FALSE(Child<QLineEdit>("TxtCtrlSilenceIntervalBetweenSongs")->isEnabled());
    Click("CBoxSilenceBetweenSongs");
    EXPECT_TRUE(pref().waitBetweenSongs);
    EXPECT_TRUE(Child<QLineEdit>("TxtCtrlSilenceIntervalBetweenSongs")->isEnabled());
    Click("CBoxSilenceBetweenSongs");
    EXPECT_FALSE(pref().waitBetweenSongs);
    EXPECT_FALSE(Child<QLineEdit>("TxtCtrlSilenceIntervalBetweenSongs")->isEnabled());
}

TEST_F(PrefWin, RadioButtonsSetTheSortKind) {
    Click("RButtonAutoSortDown");
    EXPECT_EQ(pref().autoSortKind, TPref::kSortDescending);
    Click("RButtonAutoSortNone");
    EXPECT_EQ(pref().autoSortKind, TPref::kSortNone);
    Click("RButtonAutoSortUp");
    EXPECT_EQ(pref().autoSortKind, TPref::kSortAscending);
}

TEST_F(PrefWin, TextFieldsCarryTipsWithTheirRange) {
    const veldan::TToolTip* after = win->View()->AfterResetsToolTip();
    const veldan::TToolTip* between = win->View()->BetweenSongsToolTip();
    EXPECT_EQ(after->Target(), Child<QLineEdit>("TxtCtrlSilenceIntervalAfterSysResets"));
    EXPECT_EQ(between->Target(), Child<QLineEdit>("TxtCtrlSilenceIntervalBetweenSongs"));
    EXPECT_EQ(after->Tip(), std::string(texts.Text("ToolTipSilenceIntervalAfterSysResets")) +
                                "\n 0 " + texts.Text("Range_Hyphen") + " 1000");
    EXPECT_EQ(between->Tip(), std::string(texts.Text("ToolTipSilenceIntervalBetweenSongs")) +
                                  "\n 1 " + texts.Text("Range_Hyphen") + " 5");
}

TEST_F(PrefWin, LanguageMenuListsTheLanguageFilesOfTheFolder) {
    ASSERT_EQ(Menu()->count(), 2);
    EXPECT_EQ(Menu()->itemText(MenuIndexOf("English.llt")), "English");
    EXPECT_EQ(Menu()->itemText(MenuIndexOf("Japanese.llt")), "日本語");
    EXPECT_EQ(MenuIndexOf("Broken.llt"), -1);
    EXPECT_EQ(Menu()->currentData().toString(), "English.llt");
}

TEST_F(PrefWin, ChoosingALanguageAsksForAReloadAndCancelPutsTheOldOneBack) {
    Choose("Japanese.llt");
    EXPECT_EQ(pref().languageFile, "Japanese.llt");
    EXPECT_EQ(Count(quill::kMsgReloadLanguage), 1);

    Click("ButtonCancel");
    EXPECT_FALSE(win->isVisible());
    EXPECT_EQ(pref().languageFile, "English.llt");
    EXPECT_EQ(Count(quill::kMsgReloadLanguage), 2);
    EXPECT_EQ(Menu()->currentData().toString(), "English.llt");
    EXPECT_FALSE(fs::exists(PrefsFile()));
}

TEST_F(PrefWin, CancelWithTheSameLanguageAsksForNoReload) {
    Click("RButtonAutoSortDown");
    Click("ButtonCancel");
    EXPECT_EQ(pref().autoSortKind, TPref().autoSortKind);
    EXPECT_TRUE(Child<QRadioButton>("RButtonAutoSortUp")->isChecked());
    EXPECT_EQ(Count(quill::kMsgReloadLanguage), 0);
}

TEST_F(PrefWin, OKWritesThePreferencesFileAndReportsTheChange) {
    Click("CBoxSendSysResets");
    Type("TxtCtrlSilenceIntervalAfterSysResets", "700");
    Click("RButtonAutoSortNone");
    Click("ButtonOK");
    EXPECT_FALSE(win->isVisible());
    ASSERT_TRUE(fs::exists(PrefsFile()));
    TPref saved;
    saved.sendSysResets = false;
    ASSERT_TRUE(saved.Load(PrefsFile()));
    EXPECT_TRUE(saved.sendSysResets);
    EXPECT_EQ(saved.silenceAfterResetsUs, 700000);
    EXPECT_EQ(saved.autoSortKind, TPref::kSortNone);

    ASSERT_EQ(Count(quill::kMsgPrefChanged), 1);
    std::string status;
    EXPECT_TRUE(recorder.received.back().FindString("StatBarString", &status));
    EXPECT_EQ(status, texts.Text("Stat_Str_Pref_Changed"));

    // What OK confirmed is what a later Cancel returns to.
    win->show();
    Click("RButtonAutoSortUp");
    Click("ButtonCancel");
    EXPECT_EQ(pref().autoSortKind, TPref::kSortNone);
    EXPECT_EQ(pref().silenceAfterResetsUs, 700000);
}

TEST_F(PrefWin, OKWritesNothingWhileTheResetChordIsHeld) {
    TScopedEnv chord("QUILLMIDI_RESET_SETTINGS", "1");
    Click("ButtonOK");
    EXPECT_FALSE(fs::exists(PrefsFile()));
    EXPECT_EQ(Count(quill::kMsgPrefChanged), 1);
}

TEST_F(PrefWin, TheCloseBoxActsAsCancel) {
    Choose("Japanese.llt");
    Click("CBoxSilenceBetweenSongs");
    EXPECT_TRUE(pref().waitBetweenSongs);
    EXPECT_TRUE(win->close());
    EXPECT_FALSE(win->isVisible());
    EXPECT_FALSE(pref().waitBetweenSongs);
    EXPECT_EQ(pref().languageFile, "English.llt");
    EXPECT_EQ(Count(quill::kMsgReloadLanguage), 2);
    EXPECT_FALSE(Child<QCheckBox>("CBoxSilenceBetweenSongs")->isChecked());
}

TEST_F(PrefWin, LanguageChangeRelabelsTheWindow) {
    texts = load_language("Japanese.llt");
    Post(quill::kMsgLanguageChanged);
    EXPECT_EQ(win->windowTitle(), "環境設定");
    EXPECT_EQ(Child<QCheckBox>("CBoxSendSysResets")->text(),
              text_of(texts, "CBox_Send_Sys_Resets"));
    EXPECT_EQ(Child<QPushButton>("ButtonOK")->text(), text_of(texts, "Button_OK"));
    EXPECT_NE(win->View()->AfterResetsToolTip()->Tip().find(texts.Text("Range_Hyphen")),
              std::string::npos);
}

TEST_F(PrefWin, AChangedLanguageFolderRebuildsTheMenu) {
    fs::copy_file(source_language_file("English.llt"), languageFolder / "Another.llt");
    fs::remove(languageFolder / "Japanese.llt");
    Post(quill::kMsgLanguageFolderChanged);
    ASSERT_EQ(Menu()->count(), 2);
    EXPECT_GE(MenuIndexOf("Another.llt"), 0);
    EXPECT_EQ(MenuIndexOf("Japanese.llt"), -1);
    EXPECT_EQ(Menu()->currentData().toString(), "English.llt");
    EXPECT_EQ(Count(quill::kMsgReloadLanguage), 0);
}

TEST_F(PrefWin, ADroppedLanguageSurvivesCancel) {
    // The application has copied the file and made it the language before passing 'lnfd'.
    fs::copy_file(source_language_file("Japanese.llt"), languageFolder / "Dropped.llt");
    pref().languageFile = "Dropped.llt";
    Post(quill::kMsgLanguageFileDropped);
    EXPECT_EQ(Menu()->currentData().toString(), "Dropped.llt");
    Click("ButtonCancel");
    EXPECT_EQ(pref().languageFile, "Dropped.llt");
    EXPECT_EQ(Count(quill::kMsgReloadLanguage), 0);
}

TEST_F(PrefWin, DroppingALanguageFileOnTheWindowTellsTheApplication) {
    const fs::path file = dir.Write("Elsewhere/Mine.llt", std::string("x"));
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(QString::fromStdString(file.string())),
                  QUrl::fromLocalFile("/tmp/song.mid")});
    QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(win.get(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(win.get(), &drop);
    EXPECT_TRUE(drop.isAccepted());
    ASSERT_EQ(Count(quill::kMsgLanguageFileDropped), 1);
    fs::path ref;
    EXPECT_TRUE(recorder.received.back().FindRef("refs", &ref));
    EXPECT_EQ(ref, file);

    QMimeData songOnly;
    songOnly.setUrls({QUrl::fromLocalFile("/tmp/song.mid")});
    QDropEvent songDrop(QPointF(5, 5), Qt::CopyAction, &songOnly, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(win.get(), &songDrop);
    EXPECT_EQ(Count(quill::kMsgLanguageFileDropped), 1);
}

TEST_F(PrefWin, TheSynthesizerBoxEditsItsPreferencesAndCancelPutsThemBack) {
    auto* box = win->findChild<TSynthBox*>("BoxSynth");
    ASSERT_NE(box, nullptr);
    auto* fonts = Child<QListWidget>("ListSoundFonts");
    ASSERT_EQ(fonts->count(), 1);
    EXPECT_EQ(fonts->item(0)->text(), TSynthConsumer::kDefaultSoundFont);
    EXPECT_FALSE(Child<QPushButton>("ButtonRemoveSoundFont")->isEnabled()) << "one font at least";

    box->SetFontPanelFn([] { return std::optional<fs::path>("/fonts/extra.sf2"); });
    Click("ButtonAddSoundFont");
    EXPECT_EQ(pref().synth.soundFonts,
              (std::vector<std::string>{TSynthConsumer::kDefaultSoundFont, "/fonts/extra.sf2"}));
    Click("ButtonSoundFontUp");  // the added one is selected
    EXPECT_EQ(pref().synth.soundFonts.front(), "/fonts/extra.sf2");
    fonts->setCurrentRow(1);
    Click("ButtonRemoveSoundFont");
    EXPECT_EQ(pref().synth.soundFonts, std::vector<std::string>{"/fonts/extra.sf2"});

    Child<QDoubleSpinBox>("SpinSynthGain")->setValue(1.5);
    Click("CBoxSynthReverb");
    Child<QSpinBox>("SpinSynthPolyphony")->setValue(5000);  // beyond the range
    auto* driver = Child<QComboBox>("MFieldSynthDriver");
    driver->setCurrentIndex(driver->findData("alsa"));
    EXPECT_FLOAT_EQ(pref().synth.gain, 1.5f);
    EXPECT_FALSE(pref().synth.reverb);
    EXPECT_EQ(pref().synth.polyphony, 4096);
    EXPECT_EQ(pref().synth.driver, "alsa");

    Click("ButtonCancel");
    EXPECT_EQ(pref().synth, TPref::TSynthSettings());
    EXPECT_EQ(fonts->count(), 1);
    EXPECT_EQ(driver->currentIndex(), 0);
}

TEST(LangFiles, AFolderThatCannotBeReadHasNone) {
    EXPECT_TRUE(get_lang_files({"/nonexistent/quill/Language"}).empty());
}

TEST(LangFiles, TheUsersFolderAddsLanguagesAndWinsForTheSameName) {
    TTempDir installed, user;
    const fs::path source = fs::path(QUILL_SOURCE_DIR) / "resources/Language";
    fs::copy_file(source / "English.llt", installed.Path() / "English.llt");
    fs::copy_file(source / "Japanese.llt", installed.Path() / "Mine.llt");
    fs::copy_file(source / "English.llt", user.Path() / "Mine.llt");
    fs::copy_file(source / "Japanese.llt", user.Path() / "Japanese.llt");
    const TLanguageFolders folders = {installed.Path(), user.Path()};
    std::vector<std::string> names;
    for (const TLangFileInfo& file : get_lang_files(folders)) {
        names.push_back(file.fileName);
        if (file.fileName == "Mine.llt") {
            EXPECT_EQ(file.languageName, "English");
        }
    }
    EXPECT_EQ(names, (std::vector<std::string>{"English.llt", "Japanese.llt", "Mine.llt"}));
    EXPECT_EQ(find_lang_file(folders, "Mine.llt"), user.Path() / "Mine.llt");
    EXPECT_EQ(find_lang_file(folders, "English.llt"), installed.Path() / "English.llt");
    EXPECT_TRUE(find_lang_file(folders, "Klingon.llt").empty());
}

TEST(LangFiles, AddedLanguagesGoWhereTheyCanBeWritten) {
    TTempDir dir;
    const fs::path user = dir.Path() / "data/quillmidi/Language";
    EXPECT_EQ(lang_drop_folder({dir.Path(), user}), dir.Path());
    // An installed program's folder that cannot take files: here a file stands in its way.
    const fs::path blocked = dir.Write("Language", std::string("not a folder"));
    EXPECT_EQ(lang_drop_folder({blocked, user}), user);
    EXPECT_TRUE(fs::is_directory(user)) << "made on first use";
    TScopedEnv data("XDG_DATA_HOME", (dir.Path() / "data").c_str());
    EXPECT_EQ(language_folders(blocked), (TLanguageFolders{blocked, user}));
}

class AboutWin : public DialogTest {
  protected:
    AboutWin() : loaderFolder(dir.Path() / "Loader") { fs::create_directories(loaderFolder); }

    QTreeWidget* List(const char* name) {
        auto* list = win->findChild<QTreeWidget*>(name);
        EXPECT_NE(list, nullptr) << name;
        return list;
    }
    QTreeWidgetItem* RowWith(QTreeWidget* list, const QString& first) {
        const QList<QTreeWidgetItem*> found = list->findItems(first, Qt::MatchStartsWith, 0);
        return found.isEmpty() ? nullptr : found.front();
    }
    void Make() {
        win = std::make_unique<TAboutWin>(texts, TLanguageFolders{languageFolder}, loaderFolder);
        win->show();
    }

    fs::path loaderFolder;
    std::unique_ptr<TAboutWin> win;
};

TEST_F(AboutWin, ApplicationTabShowsNameVersionAndAuthor) {
    Make();
    EXPECT_EQ(win->windowTitle(), text_of(texts, "About_Win_Title"));
    auto* tabs = win->findChild<QTabWidget*>("TabAbout");
    ASSERT_NE(tabs, nullptr);
    ASSERT_EQ(tabs->count(), 3);
    EXPECT_EQ(tabs->tabText(0), text_of(texts, "About_Tab_App"));
    EXPECT_EQ(tabs->tabText(1), text_of(texts, "About_Tab_Language"));
    EXPECT_EQ(tabs->tabText(2), text_of(texts, "About_Tab_Loader"));
    EXPECT_EQ(win->findChild<QLabel*>("StrViewAppName")->text(), "Quill MIDI");
    EXPECT_EQ(win->findChild<QLabel*>("StrViewVersion")->text(), "Ver 5.34");
    EXPECT_EQ(win->findChild<QLabel*>("StrViewVersion")->text(), kAppVersion);
    EXPECT_EQ(win->findChild<QLabel*>("StrViewVersionLabel")->text(),
              text_of(texts, "About_Version"));
    EXPECT_EQ(win->findChild<QLabel*>("StrViewAuthor")->text(), text_of(texts, "App_Author"));
}

TEST_F(AboutWin, LanguageTabListsEveryLanguageFileWithItsPeople) {
    Make();
    QTreeWidget* list = List("LViewLanguages");
    ASSERT_EQ(list->topLevelItemCount(), 2);
    const veldan::TLLT japanese = load_language("Japanese.llt");
    QTreeWidgetItem* row = RowWith(list, "日本語");
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->text(1), QString::fromStdString(japanese.Writer()));
    EXPECT_EQ(row->text(2), QString::fromStdString(japanese.SpecialThanks()));
    EXPECT_EQ(row->data(0, Qt::UserRole).toString(), "Japanese.llt");
    row = RowWith(list, "English");
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->text(1), "VELDAN");
    EXPECT_EQ(list->headerItem()->text(0), text_of(texts, "About_Language_Name"));
    EXPECT_EQ(list->headerItem()->text(1), text_of(texts, "About_Writer"));
    EXPECT_EQ(list->headerItem()->text(2), text_of(texts, "About_Special_Thanks"));

    fs::remove(languageFolder / "English.llt");
    veldan::post_message(win.get(), veldan::TMessage(quill::kMsgLanguageFolderChanged));
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(list->topLevelItemCount(), 1);
}

TEST_F(AboutWin, LoaderTabListsTheBuiltInLoaderAndThePlugIns) {
    Make();
    QTreeWidget* list = List("LViewLoaders");
    ASSERT_EQ(list->topLevelItemCount(), 1);
    EXPECT_NE(RowWith(list, "Container Loader Native 100"), nullptr);
    EXPECT_EQ(list->headerItem()->text(1), text_of(texts, "About_Loader_Formats"));

    const fs::path plugin(TEST_LOADER_PLUGIN);
    fs::copy_file(plugin, loaderFolder / plugin.filename());
    veldan::post_message(win.get(), veldan::TMessage(quill::kMsgLoaderFolderChanged));
    QCoreApplication::sendPostedEvents();
    ASSERT_EQ(list->topLevelItemCount(), 2);
    QTreeWidgetItem* row = RowWith(list, "Test List Loader");
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->text(1), "test lists");
}

TEST_F(AboutWin, LanguageChangeRelabelsAndTakesTheNewAuthorText) {
    Make();
    win->SetAppInfo("Other", "Ver 9", "Someone");
    EXPECT_EQ(win->findChild<QLabel*>("StrViewAppName")->text(), "Other");
    texts = load_language("Japanese.llt");
    veldan::post_message(win.get(), veldan::TMessage(quill::kMsgLanguageChanged));
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(win->windowTitle(), text_of(texts, "About_Win_Title"));
    EXPECT_EQ(win->findChild<QTabWidget*>("TabAbout")->tabText(2),
              text_of(texts, "About_Tab_Loader"));
    EXPECT_EQ(win->findChild<QLabel*>("StrViewAuthor")->text(), text_of(texts, "App_Author"));
    EXPECT_EQ(List("LViewLoaders")->headerItem()->text(0), text_of(texts, "About_Loader_Name"));
}

// Pictures of both windows in English and Japanese, for a person to look at; the checks
// make sure no text is cut.
class DialogRender : public DialogTest, public ::testing::WithParamInterface<const char*> {
  protected:
    void SetUp() override {
        if (std::string(GetParam()) == "ja") texts = load_language("Japanese.llt");
    }
    QString Name(const char* window) const { return QString(window) + "_" + GetParam(); }
};

TEST_P(DialogRender, PreferencesWindowCutsNothing) {
    pref() = TPref();
    pref().waitBetweenSongs = true;
    TPrefWin pw(texts, pref(), {languageFolder});
    pw.show();
    QCoreApplication::processEvents();
    expect_nothing_cut(pw);
    EXPECT_TRUE(
        has_more_than_one_colour(QImage(save_render(pw, Name("pref_win"), QUILL_RENDER_DIR))));
    pref() = TPref();
}

TEST_P(DialogRender, AboutWindowCutsNothingOnAnyTab) {
    fs::copy_file(fs::path(TEST_LOADER_PLUGIN),
                  dir.Path() / fs::path(TEST_LOADER_PLUGIN).filename());
    TAboutWin about(texts, {languageFolder}, dir.Path());
    about.show();
    auto* tabs = about.findChild<QTabWidget*>("TabAbout");
    ASSERT_NE(tabs, nullptr);
    const char* pages[] = {"about_app", "about_languages", "about_loaders"};
    for (int i = 0; i < tabs->count(); ++i) {
        tabs->setCurrentIndex(i);
        QCoreApplication::processEvents();
        expect_nothing_cut(about);
        EXPECT_TRUE(
            has_more_than_one_colour(QImage(save_render(about, Name(pages[i]), QUILL_RENDER_DIR))));
    }
}

INSTANTIATE_TEST_SUITE_P(Languages, DialogRender, ::testing::Values("en", "ja"));

}  // namespace
