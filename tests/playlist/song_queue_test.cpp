// The command-line player's song list against the playlist view it stands in for.

#include "playlist/song_queue.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "playlist/orvick_view.h"
#include "tests/playlist/playlist_fixture.h"

namespace fs = std::filesystem;

namespace {

class SongQueueTest : public PlaylistTest {
  protected:
    // Whether each input was added, with the status texts told meanwhile.
    template <class TAdd>
    std::vector<bool> AddAll(const std::vector<fs::path>& inputs, TAdd add) {
        std::vector<bool> added;
        for (const fs::path& input : inputs) added.push_back(add(input));
        return added;
    }
};

TEST_F(SongQueueTest, HoldsTheSongsTheViewWouldInItsOrderAndSaysTheSameAboutTheRest) {
    const fs::path a = Song("a.mid");
    const fs::path b = Song("b.mid");
    fs::create_directories(fTemp.Path() / "folder");
    const fs::path y = Song("folder/y.mid");
    const fs::path x = Song("folder/x.mid");
    const fs::path list = fTemp.Write("list.qml", "MarnelList$1\n" + b.string() + "\n" +
                                                      (fTemp.Path() / "gone.mid").string() + "\n" +
                                                      a.string() + "\n");
    const std::vector<fs::path> inputs = {a,
                                          list,
                                          fTemp.Path() / "missing.mid",
                                          fTemp.Write("notes.txt", std::string("hello")),
                                          fTemp.Path() / "folder",
                                          list};

    auto view = MakeView(SHIPPED_LOADER_DIR);
    // What the command-line player asks of the view: the containers' own order.
    view->SetAutoSortKind(TOrvickView::kAutoSortByMagicNum);
    const std::vector<bool> viewAdded = AddAll(
        inputs, [&](const fs::path& input) { return view->AddListFolderFileToTopLevel(input); });
    const std::vector<std::string> viewStatus = fStatus;
    fStatus.clear();

    TSongQueue queue(fTexts, SHIPPED_LOADER_DIR);
    queue.SetStatusFn([this](const std::string& text) { fStatus.push_back(text); });
    const std::vector<bool> queueAdded =
        AddAll(inputs, [&](const fs::path& input) { return queue.Add(input); });

    EXPECT_EQ(queueAdded, viewAdded);
    EXPECT_EQ(fStatus, viewStatus);
    EXPECT_EQ(fStatus.size(), 4u) << "gone, missing, notes.txt and the list a second time";
    ASSERT_EQ(queue.Songs(), view->Songs());
    EXPECT_EQ(queue.Songs(), 5);
    for (int32_t i = 0; i < queue.Songs(); ++i) {
        EXPECT_EQ(queue.SongRef(i), view->SongRef(i)) << "song " << i;
        EXPECT_EQ(queue.SongFileName(i), view->SongFileName(i)) << "song " << i;
    }
    EXPECT_TRUE(queue.SongRef(queue.Songs()).empty());
    EXPECT_EQ(queue.CurSongIdx(), -1) << "the player chooses the first song itself";
}

}  // namespace
