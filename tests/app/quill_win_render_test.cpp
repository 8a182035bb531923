// Renders the main window with a playlist, in English and in Japanese, at whatever scale
// QT_SCALE_FACTOR sets, for a person to look at; and checks that the menus and controls
// keep their texts whole.

#include <gtest/gtest.h>

#include <QDir>
#include <QMenu>
#include <QMenuBar>
#include <cstring>

#include "app/app_icon.h"
#include "app/dialogs/about_win.h"
#include "app/quill_win.h"
#include "app/settings/exit_state.h"
#include "player/channel_panel.h"
#include "player/control_bar.h"
#include "player/lyrics_view.h"
#include "player/pref.h"
#include "player/quill_view.h"
#include "playlist/orvick_view.h"
#include "tests/player/language_fixture.h"
#include "tests/support/render_check.h"
#include "tests/support/scoped_env.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"
#include "tests/support/widget_app.h"

namespace fs = std::filesystem;

namespace {

class QuillWinRenderTest : public TWidgetTest, public ::testing::WithParamInterface<const char*> {
  protected:
    void Render(const char* language) {
        veldan::TLLT texts = file_language(language);
        TQuillWin win(texts, fPrefs, fExitState, nullptr, fTemp.Path() / "Loader");
        TSmfBuilder smf(1, 480);
        TTrackBuilder& track = smf.AddTrack().Name(0, "Gymnopédie No. 1");
        for (const char* syllable :
             {"Lent ", "et ", "dou", "lou", "reux\r", "tr\xc3\xa8s ", "doux"})
            track.Meta(0, 0x05, std::vector<uint8_t>(syllable, syllable + std::strlen(syllable)));
        track.NoteOn(0, 0, 60, 90).NoteOff(480, 0, 60);
        for (const char* name : {"gymnopedie.mid", "clair_de_lune.mid", "canon.mid"})
            win.View()->OrvickView()->AddListFolderFileToTopLevel(fTemp.Write(name, smf.Bytes()));
        win.View()->ControlBar()->SetPlayState(quill::kStatePlaying);
        win.View()->ControlBar()->SetPortLit(0, true);
        win.resize(560, 360);
        win.show();
        ASSERT_TRUE(process_until([&] { return !win.View()->Controller().SongTitle().empty(); }));
        win.View()->ExpSongTitle();
        // Loading the song set texts (the time read-out among them) whose new room the
        // layout takes on its next pass.
        QCoreApplication::sendPostedEvents();
        const QString name = QString("main_window_") + QString(language).section('.', 0, 0);
        const QImage image(save_render(win, name, QUILL_RENDER_DIR));
        EXPECT_TRUE(has_more_than_one_colour(image));
        for (QAction* menu : win.menuBar()->actions()) EXPECT_FALSE(menu->text().isEmpty());
        expect_nothing_cut(*win.View()->ControlBar());

        // The channel panel, from its menu item.
        for (QAction* action : win.findChild<QMenu*>("Menu_Play")->actions())
            if (action->objectName() == "MItem_Channels") action->trigger();
        ASSERT_TRUE(process_until([&] { return win.View()->IsChannelsShown(); }));
        win.resize(640, 420);
        ASSERT_TRUE(process_until([&] { return win.View()->ChannelPanel()->isVisible(); }));
        save_render(win, name + "_channels", QUILL_RENDER_DIR);
        expect_nothing_cut(*win.View()->ChannelPanel());
        win.View()->ShowChannels(false);

        // The lyrics, from their menu item.
        for (QAction* action : win.findChild<QMenu*>("Menu_Play")->actions())
            if (action->objectName() == "MItem_Lyrics") action->trigger();
        ASSERT_TRUE(process_until([&] { return win.View()->IsLyricsShown(); }));
        ASSERT_TRUE(process_until([&] { return win.View()->LyricsView()->isVisible(); }));
        EXPECT_TRUE(win.View()->LyricsView()->ShownText().startsWith("Lent et douloureux"));
        save_render(win, name + "_lyrics", QUILL_RENDER_DIR);
        win.View()->ShowLyrics(false);

        // With the playlist hidden, the window is its menus and the control bar.
        win.View()->ShowList(false);
        ASSERT_TRUE(process_until([&] { return win.height() < 360; }));
        save_render(win, name + "_collapsed", QUILL_RENDER_DIR);
        expect_nothing_cut(*win.View()->ControlBar());
    }

    TTempDir fTemp;
    TTempDir fConfig;
    TScopedEnv fConfigHome{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
    TPref fPrefs;
    TExitState fExitState;
};

TEST_P(QuillWinRenderTest, MainWindowRendersWhole) { Render(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Languages, QuillWinRenderTest,
                         ::testing::Values("English.llt", "Japanese.llt"));

TEST(AppIcon, IsReadFromItsSvgInEverySizeWithAClearCornerAndTheFaceInside) {
    widget_application();
    for (int size : kAppIconSizes) {
        const QImage image = render_app_icon(size);
        ASSERT_EQ(image.size(), QSize(size, size)) << "the SVG was not read";
        EXPECT_EQ(qAlpha(image.pixel(0, 0)), 0) << size;
        EXPECT_EQ(image.pixelColor(size / 2, size - 1 - size / 16).alpha(), 255) << size;
    }
    const QIcon icon = app_icon();
    for (int size : {16, 48, 256}) {
        const QPixmap pixmap = icon.pixmap(size, size);
        ASSERT_EQ(pixmap.deviceIndependentSize().toSize(), QSize(size, size));
        const QImage image = pixmap.toImage();
        const int pixels = image.width();  // more than size at 200 %
        EXPECT_EQ(qAlpha(image.pixel(0, 0)), 0) << size << ": the rounded corner is clear";
        // Right of the quill, the face colour of the drawing.
        EXPECT_EQ(image.pixelColor(pixels * 3 / 4, pixels * 3 / 4).name(), "#d8ff4a") << size;
    }
    QDir().mkpath(QUILL_RENDER_DIR);
    EXPECT_TRUE(icon.pixmap(256, 256).save(QString(QUILL_RENDER_DIR) + "/app_icon.png"));
}

TEST(AppIcon, TheAboutBoxShowsTheApplicationsIcon) {
    widget_application();
    const QIcon before = QApplication::windowIcon();
    QApplication::setWindowIcon(app_icon());
    TTempDir folders;
    TAboutWin about(builtin_language(), TLanguageFolders{folders.Path()}, folders.Path());
    QApplication::setWindowIcon(before);
    const auto* icon = about.findChild<QLabel*>("StrViewAppIcon");
    ASSERT_NE(icon, nullptr);
    const QImage image = icon->pixmap().toImage();
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.pixelColor(image.width() * 3 / 4, image.height() * 3 / 4).name(), "#d8ff4a");
    about.show();
    save_render(about, "about_with_icon", QUILL_RENDER_DIR);
}

}  // namespace
