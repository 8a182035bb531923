// The loader plug-ins the project ships, loaded from where the build puts them.

#include <unistd.h>

#include "loaders/plugins/m3u/m3u_parse.h"
#include "playlist/loader_host.h"
#include "tests/playlist/playlist_fixture.h"

namespace fs = std::filesystem;

namespace {

class ShippedLoaders : public PlaylistTest {
  protected:
    ShippedLoaders() { load_container_loader(&fLoaders, SHIPPED_LOADER_DIR); }

    TContainerLoader* Loader(const std::string& name) const {
        for (const auto& loader : fLoaders) {
            if (loader->Name() == name) return loader.get();
        }
        ADD_FAILURE() << "no loader " << name;
        return nullptr;
    }
    // Paths and container flags of what the named loader reads from file.
    std::vector<std::pair<std::string, bool>> Load(const std::string& name, const fs::path& file) {
        std::vector<TContainerEntry> entries;
        EXPECT_EQ(Loader(name)->Load(file.string(), &entries), 0);
        std::vector<std::pair<std::string, bool>> read;
        for (const auto& entry : entries) read.emplace_back(entry.path, entry.isContainer);
        return read;
    }
    bool Loadable(const std::string& name, const fs::path& file, TSupportFmt expected) const {
        TSupportFmt kind = kFmtSong;
        const bool loadable = Loader(name)->IsLoadable(file.string(), &kind);
        return loadable && kind == expected;
    }

    TLoaderList fLoaders;
};

constexpr char kFolder[] = "Container Loader Folder";
constexpr char kM3U[] = "Container Loader M3U";
constexpr char kTextList[] = "Container Loader Text List";

}  // namespace

TEST_F(ShippedLoaders, AllThreeAreFoundBesideTheExecutables) {
    ASSERT_EQ(fLoaders.size(), 4u);
    for (const char* name : {kFolder, kM3U, kTextList}) {
        const TContainerLoader* loader = Loader(name);
        ASSERT_NE(loader, nullptr);
        EXPECT_EQ(loader->SpecificationNumber(), kContainerLoaderInterface);
        EXPECT_EQ(fs::path(loader->Path()).parent_path(), fs::path(SHIPPED_LOADER_DIR));
    }
}

TEST_F(ShippedLoaders, TheFolderLoaderListsFilesInNameOrderAndMarksSubfolders) {
    Song("music/b.mid");
    Song("music/A.mid");
    Song("music/.hidden.mid");
    fTemp.Write("music/sub/c.mid", std::string("MThd"));
    const fs::path music = fTemp.Path() / "music";
    EXPECT_TRUE(Loadable(kFolder, music, kFmtFolderList));
    EXPECT_FALSE(Loadable(kFolder, music / "b.mid", kFmtFolderList));
    using Entries = std::vector<std::pair<std::string, bool>>;
    EXPECT_EQ(Load(kFolder, music), (Entries{{(music / "A.mid").string(), false},
                                             {(music / "b.mid").string(), false},
                                             {(music / "sub").string(), true}}));
    std::vector<TContainerEntry> entries;
    EXPECT_EQ(Loader(kFolder)->Load((fTemp.Path() / "none").string(), &entries), -1);
}

TEST_F(ShippedLoaders, AFolderBecomesNestedListsAndItsOtherFilesAreSkippedQuietly) {
    Song("music/a.mid");
    Song("music/deep.mid.folder/b.mid");  // a folder whose name holds ".mid"
    fTemp.Write("music/cover.jpg", std::string("\xff\xd8\xff"));
    fTemp.Write("music/quiet/readme.txt", std::string("no songs here"));
    auto view = MakeView(SHIPPED_LOADER_DIR);
    view->SetAutoSortKind(TOrvickView::kAutoSortByMagicNum);
    ASSERT_TRUE(view->AddListFolderFileToTopLevel(fTemp.Path() / "music"));
    const auto* music = static_cast<TQuillSItem*>(view->topLevelItem(0)->child(0));
    EXPECT_EQ(music->text(0).toStdString(), "[F] music");
    ASSERT_EQ(music->childCount(), 3);
    EXPECT_EQ(music->child(0)->text(0).toStdString(), "a.mid");
    EXPECT_EQ(music->child(1)->text(0).toStdString(), "[F] deep.mid.folder");
    EXPECT_EQ(music->child(2)->text(0).toStdString(), "[F] quiet");  // kept, though empty
    EXPECT_EQ(view->Songs(), 2);
    EXPECT_TRUE(fStatus.empty());
}

TEST_F(ShippedLoaders, AFolderLinkingToItselfIsListedOnce) {
    Song("loop/a.mid");
    fs::create_directory_symlink(fTemp.Path() / "loop", fTemp.Path() / "loop" / "again");
    auto view = MakeView(SHIPPED_LOADER_DIR);
    ASSERT_TRUE(view->AddListFolderFileToTopLevel(fTemp.Path() / "loop"));
    EXPECT_EQ(view->Songs(), 1);
    EXPECT_EQ(fStatus, std::vector<std::string>{"Already added: loop"});
}

TEST_F(ShippedLoaders, M3UCommentsAreSkippedAndRelativePathsResolved) {
    const fs::path list =
        fTemp.Write("lists/mix.m3u",
                    "#EXTM3U\r\n#EXTINF:123,Artist - Title\r\nsongs/a.mid\r\n\r\n..\\up.mid\r\n"
                    "/abs/b.mid\r\nC:\\Music\\c.mid\r\nfile:///music/with%20space.mid\r\n"
                    "http://example.org/stream.mid\r\n   # indented comment\r\n");
    EXPECT_TRUE(Loadable(kM3U, list, kFmtGeneralList));
    using Entries = std::vector<std::pair<std::string, bool>>;
    EXPECT_EQ(Load(kM3U, list), (Entries{{(fTemp.Path() / "lists/songs/a.mid").string(), false},
                                         {(fTemp.Path() / "up.mid").string(), false},
                                         {"/abs/b.mid", false},
                                         {"C:\\Music\\c.mid", false},
                                         {"/music/with space.mid", false}}));
}

TEST_F(ShippedLoaders, M3ULinesInLatin1OrShiftJisBecomeUtf8) {
    EXPECT_EQ(parse_m3u("caf\xe9.mid\n", "/m", false)[0].path, "/m/caf\xc3\xa9.mid");
    EXPECT_EQ(parse_m3u("\x89\xb9\x8a\x79.mid\n", "/m", false)[0].path,
              "/m/\xe9\x9f\xb3\xe6\xa5\xbd.mid");
    EXPECT_EQ(parse_m3u("\xe9\x9f\xb3.mid\n", "/m", false)[0].path, "/m/\xe9\x9f\xb3.mid");
    // An M3U8 file is UTF-8 by definition: its bytes are passed on as they are.
    EXPECT_EQ(parse_m3u("\xef\xbb\xbf"
                        "caf\xe9.mid\n",
                        "/m", true)[0]
                  .path,
              "/m/caf\xe9.mid");
}

TEST_F(ShippedLoaders, AnM3UWithoutItsExtensionIsKnownByItsHeader) {
    EXPECT_TRUE(Loadable(kM3U, fTemp.Write("list.playlist", "#EXTM3U\n/a.mid\n"), kFmtGeneralList));
    EXPECT_FALSE(Loadable(kM3U, fTemp.Write("list.other", "/a.mid\n"), kFmtGeneralList));
    EXPECT_TRUE(Loadable(kM3U, fTemp.Write("LIST.M3U8", "/a.mid\n"), kFmtGeneralList));
    EXPECT_FALSE(Loadable(kM3U, fTemp.Path(), kFmtGeneralList));
}

TEST_F(ShippedLoaders, AnM3UIntoTheViewAddsItsSongs) {
    Song("a.mid");
    Song("b.mid");
    const fs::path list = fTemp.Write("mix.m3u8", "#EXTM3U\nb.mid\na.mid\nmissing.mid\n");
    auto view = MakeView(SHIPPED_LOADER_DIR);
    view->SetAutoSortKind(TOrvickView::kAutoSortByMagicNum);
    ASSERT_TRUE(view->AddListFolderFileToTopLevel(list));
    const auto* loaded = static_cast<TQuillSItem*>(view->topLevelItem(0)->child(0));
    EXPECT_EQ(loaded->text(0).toStdString(), "[G] mix.m3u8");
    EXPECT_EQ(view->Song(0)->FileName(), "b.mid");
    EXPECT_EQ(view->Song(1)->FileName(), "a.mid");
    EXPECT_EQ(fStatus, std::vector<std::string>{"Not found: missing.mid"});
}

TEST_F(ShippedLoaders, TheTextListTakesLinuxAndWindowsPathsOnePerLine) {
    const fs::path list =
        fTemp.Write("songs.txt", "/music/a.mid\r\n\r\nD:\\Music\\b.mid\r\n\\Music\\c.mid\n");
    EXPECT_TRUE(Loadable(kTextList, list, kFmtRawList));
    using Entries = std::vector<std::pair<std::string, bool>>;
    EXPECT_EQ(
        Load(kTextList, list),
        (Entries{{"/music/a.mid", false}, {"D:\\Music\\b.mid", false}, {"\\Music\\c.mid", false}}));
    EXPECT_FALSE(
        Loadable(kTextList, fTemp.Write("prose.txt", "Dear diary\n/a.mid\n"), kFmtRawList));
    EXPECT_FALSE(Loadable(kTextList, fTemp.Write("paths.doc", "/a.mid\n"), kFmtRawList));
}

TEST_F(ShippedLoaders, ARawListWithNoSongsLeftDisappears) {
    const fs::path list = fTemp.Write("gone.lst", std::string("/nowhere/a.mid\n"));
    auto view = MakeView(SHIPPED_LOADER_DIR);
    EXPECT_FALSE(view->AddListFolderFileToTopLevel(list));
    EXPECT_EQ(view->FullListCountItems(), 1);
    EXPECT_EQ(fStatus, std::vector<std::string>{"Not found: a.mid"});
}

TEST_F(ShippedLoaders, FiftyMegabytePlaylistsAreRefused) {
    for (const char* name : {"huge.m3u", "huge.txt"}) {
        const fs::path huge = fTemp.Write(name, std::string("/a.mid\n"));
        ASSERT_EQ(truncate(huge.c_str(), 50 * 1024 * 1024), 0);
        std::vector<TContainerEntry> entries;
        const char* loader = std::string(name) == "huge.m3u" ? kM3U : kTextList;
        EXPECT_EQ(Loader(loader)->Load(huge.string(), &entries), -1) << name;
        EXPECT_TRUE(entries.empty());
    }
}
