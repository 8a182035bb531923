// The empty playlist says how songs come in, in the user's language, and steps aside
// once a song is there. Pictures land in renders/ of the build folder.

#include "player/list_hint.h"

#include <gtest/gtest.h>

#include <QLabel>

#include "player/pref.h"
#include "player/quill_view.h"
#include "playlist/orvick_view.h"
#include "tests/player/language_fixture.h"
#include "tests/support/render_check.h"
#include "tests/support/scoped_env.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"
#include "tests/support/widget_app.h"

using quill::TListHint;
using quill::TQuillView;

namespace {

class ListHint : public TWidgetTest, public ::testing::WithParamInterface<const char*> {
  protected:
    std::unique_ptr<TQuillView> MakeView(const veldan::TLLT& texts) {
        // A first start: the view's one new list and no song in it.
        auto view = std::make_unique<TQuillView>(texts, fPrefs, fTemp.Path() / "no-loaders");
        view->resize(520, 320);
        view->show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(view.get()));
        return view;
    }
    std::filesystem::path Song() {
        TSmfBuilder smf(1, 480);
        smf.AddTrack().Name(0, "Tune").NoteOn(0, 0, 60, 100).NoteOff(480, 0, 60);
        return fTemp.Write("tune.mid", smf.Bytes());
    }

    TTempDir fTemp;
    TTempDir fConfig;
    TScopedEnv fXdg{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
    TPref fPrefs;
};

TEST_P(ListHint, AnEmptyListSaysHowToAddSongsUntilASongIsThere) {
    const veldan::TLLT texts = file_language(GetParam());
    auto view = MakeView(texts);
    auto* hint = view->OrvickView()->findChild<TListHint*>();
    ASSERT_NE(hint, nullptr);
    ASSERT_TRUE(hint->isVisible());
    EXPECT_EQ(hint->text(), QString::fromUtf8(texts.Text("List_Empty_Hint")));
    EXPECT_FALSE(hint->text().contains('#')) << "an escape was left in the text";
    EXPECT_EQ(hint->geometry(), view->OrvickView()->viewport()->rect());
    EXPECT_TRUE(hint->testAttribute(Qt::WA_TransparentForMouseEvents));
    expect_nothing_cut(*view->OrvickView());
    save_render(*view, QString("playlist_empty_") + QString(GetParam()).section('.', 0, 0),
                QUILL_RENDER_DIR);

    ASSERT_TRUE(view->OrvickView()->AddListFolderFileToTopLevel(Song()));
    EXPECT_FALSE(hint->isVisible());
    view->OrvickView()->ClearList();
    EXPECT_TRUE(hint->isVisible());
}

INSTANTIATE_TEST_SUITE_P(Languages, ListHint, ::testing::Values("English.llt", "Japanese.llt"));

TEST_F(ListHint, TheHintFollowsTheListsSize) {
    auto view = MakeView(builtin_language());
    auto* hint = view->OrvickView()->findChild<TListHint*>();
    ASSERT_NE(hint, nullptr);
    view->resize(700, 420);
    ASSERT_TRUE(
        process_until([&] { return hint->geometry() == view->OrvickView()->viewport()->rect(); }));
}

}  // namespace
