// Help > Help opens the help document beside the program with the desktop's handler of
// its type (the browser, for an HTML file).

#include <gtest/gtest.h>

#include <QAction>
#include <QDesktopServices>
#include <QMenu>
#include <QMenuBar>
#include <QUrl>

#include "app/quill_app.h"
#include "app/quill_win.h"
#include "app/settings/settings.h"
#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"
#include "tests/support/widget_app.h"
#include "veldan/core/llt.h"

namespace fs = std::filesystem;

class TUrlCatcher : public QObject {
    Q_OBJECT
  public:
    QList<QUrl> opened;

  public slots:
    void Open(const QUrl& url) { opened.append(url); }
};

namespace {

class Help : public TWidgetTest {
  protected:
    Help() {
        fs::create_directories(fExe.Path() / "Language");
        fs::create_directories(fExe.Path() / "Loader");
        fs::copy_file(fs::path(QUILL_SOURCE_DIR) / "resources/Language/English.llt",
                      fExe.Path() / "Language/English.llt");
        fs::copy_file(fs::path(QUILL_SOURCE_DIR) / "resources/help/QuillMIDI.htm",
                      fExe.Path() / "QuillMIDI.htm");
        exit_state() = TExitState();
        pref() = TPref();
        language_table() = veldan::TLLT();
        QDesktopServices::setUrlHandler("file", &fCatcher, "Open");
    }
    ~Help() override { QDesktopServices::unsetUrlHandler("file"); }

    TTempDir fExe;
    TTempDir fOut;
    TTempDir fConfig;
    TTempDir fData;
    TScopedEnv fConfigHome{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
    TScopedEnv fDataHome{"XDG_DATA_HOME", fData.Path().c_str()};
    TUrlCatcher fCatcher;
};

TEST_F(Help, TheHelpItemOpensTheDocumentBesideTheProgram) {
    TQuillApp::TOptions options;
    options.exeFolder = fExe.Path();
    options.wavPath = (fOut.Path() / "synth.wav").string();
    options.startSystemMidi = false;
    TQuillApp app(options);
    QMenu* help = app.MainWin()->menuBar()->findChild<QMenu*>("Menu_Help");
    ASSERT_NE(help, nullptr);
    QAction* item = nullptr;
    for (QAction* action : help->actions())
        if (action->objectName() == "MItem_Help") item = action;
    ASSERT_NE(item, nullptr);
    item->trigger();
    ASSERT_TRUE(process_until([&] { return !fCatcher.opened.isEmpty(); }));
    EXPECT_EQ(fs::path(fCatcher.opened[0].toLocalFile().toStdString()),
              fExe.Path() / "QuillMIDI.htm");
    app.Quit();
}

}  // namespace

#include "help_test.moc"
