#include "playlist/loader_host.h"

#include <sys/stat.h>

#include <fstream>

#include "tests/playlist/playlist_fixture.h"

namespace fs = std::filesystem;

namespace {

const fs::path kAccepted = fs::path(TEST_LOADER_ROOT) / "v2" / "test_list_loader_v2.so";
const fs::path kOtherVersion = fs::path(TEST_LOADER_ROOT) / "v3" / "test_list_loader_v3.so";

std::vector<std::string> Names(const TLoaderList& loaders) {
    std::vector<std::string> names;
    for (const auto& loader : loaders) names.push_back(loader->Name());
    return names;
}

class LoaderHost : public PlaylistTest {
  protected:
    fs::path LoaderFolder(const std::vector<fs::path>& plugins) {
        const fs::path folder = fTemp.Path() / "Loader";
        fs::create_directories(folder);
        for (const fs::path& plugin : plugins) {
            fs::copy_file(plugin, folder / plugin.filename(), fs::copy_options::overwrite_existing);
        }
        return folder;
    }
};

}  // namespace

TEST_F(LoaderHost, AMissingFolderLeavesTheBuiltInLoaderOnly) {
    TLoaderList loaders;
    load_container_loader(&loaders, fTemp.Path() / "none");
    EXPECT_EQ(Names(loaders), std::vector<std::string>{"Container Loader Native 100"});
}

TEST_F(LoaderHost, APluginIsAcceptedAfterTheBuiltInLoaderAndOthersAreSkipped) {
    const fs::path folder = LoaderFolder({kAccepted, kOtherVersion});
    fTemp.Write("Loader/readme.txt", std::string("not a shared object"));
    fs::create_directories(folder / "subfolder.so");
    TLoaderList loaders;
    load_container_loader(&loaders, folder);
    ASSERT_EQ(Names(loaders),
              (std::vector<std::string>{"Container Loader Native 100", "Test List Loader"}));
    EXPECT_EQ(loaders[1]->Path(), (folder / kAccepted.filename()).string());
    EXPECT_EQ(loaders[1]->Version(), "2");
    unload_container_loader(&loaders);
    EXPECT_TRUE(loaders.empty());
}

TEST_F(LoaderHost, APluginReportingVersionThreeIsIgnoredEvenThoughItReadsTheFile) {
    auto view = MakeView(LoaderFolder({kOtherVersion}));
    const fs::path list = fTemp.Write("x.tlst", Song("a.mid").string() + "\n");
    EXPECT_EQ(view->Loaders().size(), 1u);
    EXPECT_FALSE(view->AddListFolderFileToTopLevel(list));
    EXPECT_EQ(fStatus, std::vector<std::string>{"Unsupported: x.tlst"});
}

TEST_F(LoaderHost, APluginsListIsLoadedIntoTheViewAsItsKind) {
    auto view = MakeView(LoaderFolder({kAccepted}));
    const fs::path list =
        fTemp.Write("x.tlst", Song("a.mid").string() + "\n/missing/quietly.mid\n");
    TSupportFmt kind = kFmtSong;
    ASSERT_NE(view->FindContainerLoader(list, &kind), nullptr);
    EXPECT_EQ(kind, kFmtSemiRawList);
    ASSERT_TRUE(view->AddListFolderFileToTopLevel(list));
    const auto* loaded = static_cast<TQuillSItem*>(view->topLevelItem(0)->child(0));
    EXPECT_EQ(loaded->text(0).toStdString(), "[S] x.tlst");
    EXPECT_EQ(loaded->childCount(), 1);
    EXPECT_TRUE(fStatus.empty());  // a semi-raw list skips missing files silently
}

TEST_F(LoaderHost, AnEmptySemiRawListDisappears) {
    auto view = MakeView(LoaderFolder({kAccepted}));
    const fs::path list = fTemp.Write("empty.tlst", std::string("/missing/a.mid\n"));
    EXPECT_FALSE(view->AddListFolderFileToTopLevel(list));
    EXPECT_EQ(view->FullListCountItems(), 1);
}

TEST_F(LoaderHost, TheBuiltInLoaderIsAskedFirst) {
    auto view = MakeView(LoaderFolder({kAccepted}));
    const fs::path native = fTemp.Write("native.tlst", "MarnelList$1\n");
    TSupportFmt kind = kFmtSong;
    EXPECT_EQ(view->FindContainerLoader(native, &kind)->Name(), "Container Loader Native 100");
    EXPECT_EQ(kind, kFmtNativeList);
}

TEST_F(LoaderHost, OnlySharedObjectsWithTheEntryPointAreLoaders) {
    EXPECT_TRUE(TOrvickView::IsContainerLoader(kAccepted));
    EXPECT_TRUE(TOrvickView::IsContainerLoader(kOtherVersion));
    EXPECT_FALSE(TOrvickView::IsContainerLoader(fTemp.Write("fake.so", std::string("ELF?"))));
    EXPECT_FALSE(TOrvickView::IsContainerLoader("libc.so.6"));
}

TEST_F(LoaderHost, AddingAPluginToTheWatchedFolderTakesEffectAtOnce) {
    const fs::path folder = LoaderFolder({});
    auto view = MakeView(folder);
    ASSERT_EQ(view->Loaders().size(), 1u);
    fs::copy_file(kAccepted, folder / "late.so");
    EXPECT_TRUE(process_events_until([&] { return view->Loaders().size() == 2; }));
    fs::remove(folder / "late.so");
    EXPECT_TRUE(process_events_until([&] { return view->Loaders().size() == 1; }));
}

TEST_F(LoaderHost, TheLoaderFolderMessageRebuildsTheList) {
    const fs::path folder = LoaderFolder({});
    auto view = MakeView(folder);
    // A folder removed and made again is no longer watched; the message rebuilds anyway.
    fs::remove(folder);
    LoaderFolder({kAccepted});
    veldan::post_message(view.get(), veldan::TMessage(quill::kMsgLoaderFolderChanged));
    EXPECT_TRUE(process_events_until([&] { return view->Loaders().size() == 2; }));
}

namespace {

const fs::path kNewRelease = fs::path(TEST_LOADER_ROOT) / "v2_raw" / "test_list_loader_v2_raw.so";

std::string Bytes(const fs::path& file) {
    const auto bytes = read_file_bytes(file);
    return std::string(bytes.begin(), bytes.end());
}

// The kind the view's loaders give a test list, kFmtSong when none reads it.
TSupportFmt KindOfTestList(const TOrvickView& view) {
    TSupportFmt kind = kFmtSong;
    view.FindContainerLoader("/any/list.tlst", &kind);
    return kind;
}

}  // namespace

TEST_F(LoaderHost, APluginReplacedByANewFileIsLoadedAgain) {
    const fs::path folder = LoaderFolder({kAccepted});
    auto view = MakeView(folder);
    ASSERT_EQ(KindOfTestList(*view), kFmtSemiRawList);
    // As installers do: the new release is written beside and renamed over the old one.
    const fs::path staged = fTemp.Path() / "staged.so";
    fs::copy_file(kNewRelease, staged);
    fs::rename(staged, folder / kAccepted.filename());
    EXPECT_TRUE(process_events_until([&] { return KindOfTestList(*view) == kFmtRawList; }));
    ASSERT_EQ(view->Loaders().size(), 2u);
    EXPECT_EQ(view->Loaders()[1]->Version(), "2 raw");
    EXPECT_EQ(view->Loaders()[1]->Path(), (folder / kAccepted.filename()).string());
}

TEST_F(LoaderHost, APluginOverwrittenInPlaceIsLoadedAgain) {
    const fs::path folder = LoaderFolder({kAccepted});
    auto view = MakeView(folder);
    ASSERT_EQ(KindOfTestList(*view), kFmtSemiRawList);
    const fs::path plugin = folder / kAccepted.filename();
    struct stat before {};
    ASSERT_EQ(::stat(plugin.c_str(), &before), 0);
    {
        std::ofstream out(plugin, std::ios::binary | std::ios::trunc);
        out << Bytes(kNewRelease);
    }
    struct stat after {};
    ASSERT_EQ(::stat(plugin.c_str(), &after), 0);
    ASSERT_EQ(after.st_ino, before.st_ino);
    EXPECT_TRUE(process_events_until([&] { return KindOfTestList(*view) == kFmtRawList; }));
}

TEST_F(LoaderHost, APluginCopiedInSlowlyIsLoadedOnceComplete) {
    const fs::path folder = LoaderFolder({});
    auto view = MakeView(folder);
    const std::string bytes = Bytes(kAccepted);
    std::ofstream out(folder / "slow.so", std::ios::binary);
    // The headers and some code: most of what the dynamic linker would map is not there.
    const size_t part = 6000;
    ASSERT_GT(bytes.size(), 3 * part);
    out << bytes.substr(0, part) << std::flush;
    // The folder saw a new file; the plug-in in it is not whole yet.
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < 500) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    EXPECT_EQ(view->Loaders().size(), 1u);
    out << bytes.substr(part) << std::flush;
    EXPECT_TRUE(process_events_until([&] { return view->Loaders().size() == 2; }));
    EXPECT_EQ(KindOfTestList(*view), kFmtSemiRawList);
}

TEST_F(LoaderHost, RebuildingTheListClosesTheImagesItLoadedBefore) {
    auto view = MakeView(LoaderFolder({kAccepted}));
    const auto openFiles = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto mappedCopies = [] {
        std::ifstream maps("/proc/self/maps");
        int lines = 0;
        for (std::string line; std::getline(maps, line);)
            lines += line.find("quill-loader") != std::string::npos;
        return lines;
    };
    const auto filesBefore = openFiles();
    const int mappedBefore = mappedCopies();
    ASSERT_GT(mappedBefore, 0);
    for (int i = 0; i < 5; i++) view->NodeLoaderChanged();
    EXPECT_EQ(openFiles(), filesBefore);
    EXPECT_EQ(mappedCopies(), mappedBefore);
    EXPECT_EQ(view->Loaders().size(), 2u);
}
