// The drive-letter settings window, driven through its controls, with the settings folder
// in a temporary folder.

#include "playlist/drvcvt_win.h"

#include <gtest/gtest.h>

#include <QAbstractItemView>
#include <QComboBox>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <filesystem>
#include <string>

#include "tests/support/message_recorder.h"
#include "tests/support/render_check.h"
#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"
#include "tests/support/widget_app.h"
#include "veldan/core/llt.h"

namespace {

namespace fs = std::filesystem;

veldan::TLLT load_language(const char* name) {
    veldan::TLLT texts;
    const fs::path file = fs::path(QUILL_SOURCE_DIR) / "resources" / "Language" / name;
    EXPECT_EQ(texts.Load(file.c_str()), 0) << name;
    return texts;
}

class DrvCvtWin : public TWidgetTest {
  protected:
    DrvCvtWin()
        : xdg("XDG_CONFIG_HOME", (dir.Path() / "config").c_str()),
          texts(load_language("English.llt")),
          win(texts) {
        win.SetTarget(&recorder);
        win.show();
    }

    fs::path TableFile() const {
        return dir.Path() / "config" / "VELDAN" / TDrvCvt::kSubFolder / TDrvCvt::kFileName;
    }
    template <class T>
    T* Child(const char* name) {
        T* child = win.findChild<T*>(name);
        EXPECT_NE(child, nullptr) << name;
        return child;
    }
    QStringList Rows() {
        QStringList rows;
        auto* list = Child<QListWidget>("LViewTable");
        for (int i = 0; i < list->count(); ++i) rows << list->item(i)->text();
        return rows;
    }
    void Mark(char letter) { Child<QComboBox>("MenuField")->setCurrentIndex(letter - 'A'); }
    QString PathText() { return Child<QLineEdit>("TxtCtrlBeDL")->text(); }
    void Register(char letter, const QString& path) {
        Mark(letter);
        Child<QLineEdit>("TxtCtrlBeDL")->setText(path);
        Click("ButtonRegist");
    }
    void Select(int row) { Child<QListWidget>("LViewTable")->setCurrentRow(row); }
    void Click(const char* name) { Child<QPushButton>(name)->click(); }
    int Count(uint32_t code) {
        int count = 0;
        for (const veldan::TMessage& message : recorder.Deliver()) count += message.what == code;
        return count;
    }

    TTempDir dir;
    TScopedEnv xdg;
    veldan::TLLT texts;
    TMessageRecorder recorder;
    TDrvCvtWin win;
};

const QStringList kDefaultRows = {"A:  <-->  /no name", "C:  <-->  /windows"};

TEST_F(DrvCvtWin, EveryChildIsThereByNameAndLabelledFromTheLanguage) {
    for (const char* name :
         {"DrvCvtView", "StrViewDesc", "ScrlViewTable", "LViewTable", "MFieldWinDL", "MenuField",
          "TxtCtrlBeDL", "ButtonRegist", "ButtonRemove", "BoxSep", "ButtonOK", "ButtonCancel"}) {
        EXPECT_NE(win.findChild<QWidget*>(name), nullptr) << name;
    }
    EXPECT_NE(Child<QWidget>("ScrlViewTable")->findChild<QListWidget*>("LViewTable"), nullptr);
    EXPECT_NE(Child<QWidget>("MFieldWinDL")->findChild<QComboBox*>("MenuField"), nullptr);
    EXPECT_EQ(Child<QComboBox>("MenuField")->view()->objectName(), "PopMenu");
    EXPECT_EQ(Child<QComboBox>("MenuField")->count(), 26);
    EXPECT_EQ(Child<QComboBox>("MenuField")->itemText(25), "Z");
    EXPECT_EQ(win.windowTitle(), QString::fromUtf8(texts.Text("DLC_Drv_Cvt_Prefs_Win_Title")));
    EXPECT_EQ(Child<QLabel>("StrViewDesc")->text(),
              QString::fromUtf8(texts.Text("DLC_Description")));
    EXPECT_EQ(Child<QPushButton>("ButtonRegist")->text(),
              QString::fromUtf8(texts.Text("DLC_Button_Regist")));
    EXPECT_EQ(Child<QPushButton>("ButtonRemove")->text(),
              QString::fromUtf8(texts.Text("DLC_Button_Remove")));
}

TEST_F(DrvCvtWin, WithoutATableFileTheDefaultsAreListed) { EXPECT_EQ(Rows(), kDefaultRows); }

TEST_F(DrvCvtWin, ChoosingALetterShowsItsPath) {
    Mark('A');
    EXPECT_EQ(PathText(), "/no name");
    Mark('C');
    EXPECT_EQ(PathText(), "/windows");
    Mark('Q');
    EXPECT_EQ(PathText(), "");
}

TEST_F(DrvCvtWin, ChoosingARowMarksItsLetter) {
    Select(1);
    EXPECT_EQ(Child<QComboBox>("MenuField")->currentText(), "C");
    EXPECT_EQ(PathText(), "/windows");
}

TEST_F(DrvCvtWin, RegisterPutsASlashInFrontAndListsTheLetterInOrder) {
    Register('D', "mnt/data");
    Register('B', "/media/floppy");
    EXPECT_EQ(Rows(), (QStringList{"A:  <-->  /no name", "B:  <-->  /media/floppy",
                                   "C:  <-->  /windows", "D:  <-->  /mnt/data"}));
    Register('C', "/mnt/c");
    EXPECT_EQ(Rows().at(2), "C:  <-->  /mnt/c");
    // An empty path unmaps the letter.
    Register('B', "");
    EXPECT_EQ(Rows().size(), 3);
}

TEST_F(DrvCvtWin, RemoveTakesTheSelectedRowAndNothingWithoutOne) {
    Child<QListWidget>("LViewTable")->clearSelection();
    Click("ButtonRemove");
    EXPECT_EQ(Rows(), kDefaultRows);
    Select(1);
    Click("ButtonRemove");
    EXPECT_EQ(Rows(), QStringList{"A:  <-->  /no name"});
}

TEST_F(DrvCvtWin, OKWritesTheTableFileAndTellsTheApplication) {
    Register('D', "mnt/data");
    Select(0);
    Click("ButtonRemove");
    Click("ButtonOK");
    EXPECT_FALSE(win.isVisible());
    ASSERT_TRUE(fs::exists(TableFile()));
    const TDrvCvt saved;
    std::string path;
    EXPECT_TRUE(saved.GetBeDL('D', &path));
    EXPECT_EQ(path, "/mnt/data");
    EXPECT_TRUE(saved.GetBeDL('C', &path));
    EXPECT_EQ(path, "/windows");
    EXPECT_FALSE(saved.GetBeDL('A', &path));
    EXPECT_EQ(Count(quill::kMsgDrvCvtChanged), 1);

    // Opened again, the window shows what was saved.
    win.show();
    EXPECT_EQ(Rows(), (QStringList{"C:  <-->  /windows", "D:  <-->  /mnt/data"}));
}

TEST_F(DrvCvtWin, CancelDiscardsTheEdits) {
    Register('E', "/mnt/e");
    Select(0);
    Click("ButtonRemove");
    Click("ButtonCancel");
    EXPECT_FALSE(win.isVisible());
    EXPECT_FALSE(fs::exists(TableFile()));
    EXPECT_EQ(Rows(), kDefaultRows);
    EXPECT_EQ(Count(quill::kMsgDrvCvtChanged), 0);
}

TEST_F(DrvCvtWin, TheCloseBoxActsAsCancel) {
    Register('E', "/mnt/e");
    EXPECT_TRUE(win.close());
    EXPECT_FALSE(win.isVisible());
    EXPECT_EQ(Rows(), kDefaultRows);
    EXPECT_FALSE(fs::exists(TableFile()));
}

TEST_F(DrvCvtWin, ReopeningReadsTheFileAgain) {
    Register('E', "/mnt/e");
    win.hide();
    TDrvCvt other;
    other.SetBeDL('C', "");
    other.SetBeDL('Z', "/zip");
    ASSERT_TRUE(other.Save());
    win.show();
    EXPECT_EQ(Rows(), (QStringList{"A:  <-->  /no name", "Z:  <-->  /zip"}));
}

TEST_F(DrvCvtWin, LanguageChangeRelabels) {
    texts = load_language("Japanese.llt");
    veldan::post_message(&win, veldan::TMessage(quill::kMsgLanguageChanged));
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(win.windowTitle(), QString::fromUtf8(texts.Text("DLC_Drv_Cvt_Prefs_Win_Title")));
    EXPECT_EQ(Child<QPushButton>("ButtonRegist")->text(), "登録");
    EXPECT_EQ(Child<QPushButton>("ButtonCancel")->text(),
              QString::fromUtf8(texts.Text("Button_Cancel")));
}

class DrvCvtRender : public TWidgetTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(DrvCvtRender, WindowCutsNothing) {
    TTempDir dir;
    TScopedEnv xdg("XDG_CONFIG_HOME", (dir.Path() / "config").c_str());
    const veldan::TLLT texts =
        load_language(std::string(GetParam()) == "ja" ? "Japanese.llt" : "English.llt");
    TDrvCvtWin win(texts);
    win.show();
    auto* list = win.findChild<QListWidget*>("LViewTable");
    ASSERT_NE(list, nullptr);
    list->setCurrentRow(1);
    QCoreApplication::processEvents();
    expect_nothing_cut(win);
    const QString path =
        save_render(win, QString("drvcvt_win_") + GetParam(), QString(QUILL_RENDER_DIR));
    EXPECT_TRUE(has_more_than_one_colour(QImage(path)));
}

INSTANTIATE_TEST_SUITE_P(Languages, DrvCvtRender, ::testing::Values("en", "ja"));

}  // namespace
