#include <unistd.h>

#include "playlist/drvcvt.h"
#include "playlist/native_loader.h"
#include "tests/playlist/playlist_fixture.h"

namespace fs = std::filesystem;

namespace {

class NativeList : public PlaylistTest {
  protected:
    NativeList() : fView(MakeView()) {}

    TQuillSItem* TopList() const { return static_cast<TQuillSItem*>(fView->topLevelItem(0)); }
    TQuillSItem* LastRow(const TQuillSItem* list) const {
        return static_cast<TQuillSItem*>(list->child(list->childCount() - 1));
    }
    bool IsLoadable(const std::string& text) {
        TSupportFmt kind = kFmtSong;
        const bool loadable = fLoader.IsLoadable(fTemp.Write("probe.qml", text).string(), &kind);
        EXPECT_EQ(kind, kFmtNativeList);
        return loadable;
    }
    std::vector<std::string> Load(const std::string& text) {
        std::vector<TContainerEntry> entries;
        EXPECT_EQ(fLoader.Load(fTemp.Write("load.qml", text).string(), &entries), 0);
        std::vector<std::string> paths;
        for (const auto& entry : entries) paths.push_back(entry.path);
        return paths;
    }
    std::string FileText(const fs::path& file) const {
        const auto bytes = read_file_bytes(file);
        return std::string(bytes.begin(), bytes.end());
    }

    TCLNative100 fLoader;
    std::unique_ptr<TOrvickView> fView;
};

}  // namespace

TEST_F(NativeList, OnlyAnExactFirstLineMakesANativeList) {
    EXPECT_TRUE(IsLoadable("MarnelList$1\n/a.mid\n"));
    EXPECT_TRUE(IsLoadable("MarnelList$1\r\n"));
    EXPECT_TRUE(IsLoadable("MarnelList$1"));
    EXPECT_FALSE(IsLoadable("MarnelList$1 \n"));
    EXPECT_FALSE(IsLoadable("marnelList$1\n"));
    EXPECT_FALSE(IsLoadable(""));
    TSupportFmt kind = kFmtSong;
    EXPECT_FALSE(fLoader.IsLoadable(fTemp.Path().string(), &kind));
    EXPECT_FALSE(fLoader.IsLoadable((fTemp.Path() / "none.qml").string(), &kind));
}

TEST_F(NativeList, LinesArePassedOnUnchangedWithoutTheirLineEnds) {
    EXPECT_EQ(Load("MarnelList$1\n/a.mid\r\n\n  /b c.mid \nC:\\x.mid"),
              (std::vector<std::string>{"/a.mid", "", "  /b c.mid ", "C:\\x.mid"}));
    EXPECT_TRUE(Load("MarnelList$1\n").empty());
}

TEST_F(NativeList, LinesLongerThanTheBufferAreSkipped) {
    const std::string longLine(TCLNative100::kMaxLineBytes + 1, 'x');
    EXPECT_EQ(Load("MarnelList$1\n/" + longLine + "\n/after.mid\n"),
              std::vector<std::string>{"/after.mid"});
}

TEST_F(NativeList, AFiftyMegabyteFileIsRefusedAtOnce) {
    const fs::path huge = fTemp.Write("huge.qml", std::string("MarnelList$1\n"));
    ASSERT_EQ(truncate(huge.c_str(), 50 * 1024 * 1024), 0);
    std::vector<TContainerEntry> entries;
    EXPECT_EQ(fLoader.Load(huge.string(), &entries), -1);
    EXPECT_TRUE(entries.empty());
    EXPECT_FALSE(fView->AddListFolderFileToTopLevel(huge));
    EXPECT_EQ(fStatus, std::vector<std::string>{"Unsupported: huge.qml"});
    EXPECT_EQ(TopList()->childCount(), 0);
}

TEST_F(NativeList, TheBuiltInLoaderDescribesItself) {
    EXPECT_EQ(fLoader.Name(), "Container Loader Native 100");
    EXPECT_EQ(fLoader.Version(), "Ver 1.10");
    EXPECT_EQ(fLoader.Description(),
              "Tells MIDI files in the Quill MIDI native playlist format #100.");
    EXPECT_EQ(fLoader.SpecificationNumber(), kContainerLoaderInterface);
    EXPECT_TRUE(fLoader.Path().empty());
    EXPECT_FALSE(fLoader.Copyright().empty());
}

TEST_F(NativeList, WindowsPathsAreConvertedThroughTheDriveLetterTable) {
    const fs::path song = Song("songs/dance.mid");
    TDrvCvt table;
    table.SetBeDL('M', fTemp.Path().string());
    ASSERT_TRUE(table.Save());
    // A root path lands on the volume of the playlist file: the first folder of its path.
    const fs::path volume = fTemp.Path().root_path() / *std::next(fTemp.Path().begin());
    std::string rootLine = "\\" + song.lexically_relative(volume).string();
    for (char& c : rootLine) c = c == '/' ? '\\' : c;
    const fs::path list =
        fTemp.Write("windows.qml", "MarnelList$1\r\nm:\\songs\\dance.mid\r\n" + rootLine + "\r\n");
    ASSERT_TRUE(fView->AddListFolderFileToTopLevel(list));
    const TQuillSItem* loaded = LastRow(TopList());
    ASSERT_EQ(loaded->childCount(), 2) << (fStatus.empty() ? "" : fStatus[0]);
    EXPECT_EQ(static_cast<TQuillSItem*>(loaded->child(0))->EntryRef(), song);
    EXPECT_EQ(static_cast<TQuillSItem*>(loaded->child(1))->EntryRef(), song);
}

TEST_F(NativeList, ShiftJisNamesAreConvertedToUtf8) {
    const fs::path song = Song("\xe9\x9f\xb3\xe6\xa5\xbd.mid");  // 音楽.mid in UTF-8
    const std::string sjisLine = (fTemp.Path() / "\x89\xb9\x8a\x79.mid").string();
    const fs::path list = fTemp.Write("sjis.qml", "MarnelList$1\n" + sjisLine + "\n");
    ASSERT_TRUE(fView->AddListFolderFileToTopLevel(list));
    const TQuillSItem* loaded = LastRow(TopList());
    ASSERT_EQ(loaded->childCount(), 1);
    EXPECT_EQ(static_cast<TQuillSItem*>(loaded->child(0))->EntryRef(), song);
}

TEST_F(NativeList, AListOfMissingFilesStaysAndReportsEachMissingFile) {
    const fs::path list =
        fTemp.Write("missing.qml", "MarnelList$1\n/nowhere/a.mid\n\nnot/a/path.mid\n");
    ASSERT_TRUE(fView->AddListFolderFileToTopLevel(list));
    const TQuillSItem* loaded = LastRow(TopList());
    EXPECT_EQ(loaded->text(0).toStdString(), "[L] missing.qml");
    EXPECT_EQ(loaded->childCount(), 0);
    EXPECT_EQ(fStatus,
              (std::vector<std::string>{"Not found: a.mid", "Not found: ", "Not found: path.mid"}));
}

TEST_F(NativeList, AListNamingItselfDirectlyOrThroughAnotherIsAddedOnce) {
    const fs::path self = fTemp.Path() / "self.qml";
    fTemp.Write("self.qml", "MarnelList$1\n" + self.string() + "\n" + Song("s.mid").string());
    const fs::path first = fTemp.Path() / "first.qml";
    const fs::path second = fTemp.Path() / "second.qml";
    fTemp.Write("first.qml", "MarnelList$1\n" + second.string() + "\n");
    // The second names the first through a detour that reads differently.
    fTemp.Write("second.qml",
                "MarnelList$1\n" + (fTemp.Path() / "." / "first.qml").string() + "\n");

    EXPECT_TRUE(fView->AddListFolderFileToTopLevel(self));
    EXPECT_TRUE(fView->AddListFolderFileToTopLevel(first));
    EXPECT_EQ(fView->FullListCountItems(), 5);  // top, self, s.mid, first, second
    EXPECT_EQ(fStatus,
              (std::vector<std::string>{"Already added: self.qml", "Already added: first.qml"}));
}

TEST_F(NativeList, WritingAListWritesThePathsDirectlyUnderItAndCleansTheRow) {
    const fs::path kept = Song("kept.mid");
    const fs::path removed = Song("removed.mid");
    fView->AddMidiFile(kept, TopList(), -1);
    fView->AddMidiFile(removed, TopList(), -1);
    TQuillSItem* nested = fView->AddNewList(TopList());
    fView->AddMidiFile(Song("nested.mid"), nested, -1);
    TopList()->SetModified(true);
    fs::remove(removed);

    const fs::path target = fTemp.Path() / "saved.qml";
    std::string error;
    ASSERT_TRUE(fView->OverwriteList(TopList()->ListId(), target, &error)) << error;
    EXPECT_EQ(FileText(target), "MarnelList$1\n" + kept.string() + "\n");
    EXPECT_FALSE(TopList()->Modified());
    EXPECT_FALSE(TopList()->UnnamedNewList());
    EXPECT_EQ(TopList()->EntryRef(), target);
    EXPECT_EQ(TopList()->Kind(), kFmtNativeList);
    EXPECT_EQ(TopList()->text(0).toStdString(), "[L] saved.qml");

    // And what was written reads back as the same songs.
    std::vector<TContainerEntry> entries;
    TSupportFmt kind = kFmtSong;
    ASSERT_TRUE(fLoader.IsLoadable(target.string(), &kind));
    fLoader.Load(target.string(), &entries);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].path, kept.string());
}

TEST_F(NativeList, WritingShorterContentLeavesNoOldTail) {
    const fs::path target = fTemp.Write("short.qml", std::string(500, 'x'));
    std::string error;
    ASSERT_TRUE(fView->OverwriteList(TopList()->ListId(), target, &error));
    EXPECT_EQ(FileText(target), "MarnelList$1\n");
}

TEST_F(NativeList, WritingADeletedListOrToAnUnwritablePlaceFails) {
    std::string error;
    EXPECT_FALSE(fView->OverwriteList(999, fTemp.Path() / "x.qml", &error));
    EXPECT_EQ(error, "Deleted");
    EXPECT_FALSE(
        fView->OverwriteList(TopList()->ListId(), fTemp.Path() / "no" / "dir.qml", &error));
    EXPECT_EQ(error, "Cannot save: dir.qml");
    EXPECT_TRUE(TopList()->UnnamedNewList());
}

TEST_F(NativeList, WindowsPathsGoThroughTheConverterHandedToTheView) {
    const fs::path first = Song("first/dance.mid");
    const fs::path second = Song("second/dance.mid");
    // The table file says otherwise: it must not be read again for each line.
    TDrvCvt onDisk;
    onDisk.SetBeDL('M', (fTemp.Path() / "elsewhere").string());
    ASSERT_TRUE(onDisk.Save());
    TDrvCvt converter;
    converter.SetBeDL('M', (fTemp.Path() / "first").string());
    fView->SetDrvCvt(&converter);

    ASSERT_TRUE(fView->AddListFolderFileToTopLevel(
        fTemp.Write("one.qml", "MarnelList$1\r\nm:\\dance.mid\r\n")));
    const TQuillSItem* one = LastRow(TopList());
    ASSERT_EQ(one->childCount(), 1) << (fStatus.empty() ? "" : fStatus[0]);
    EXPECT_EQ(static_cast<TQuillSItem*>(one->child(0))->EntryRef(), first);

    // A change of the table takes effect with the next list read.
    converter.SetBeDL('M', (fTemp.Path() / "second").string());
    ASSERT_TRUE(fView->AddListFolderFileToTopLevel(
        fTemp.Write("two.qml", "MarnelList$1\r\nm:\\dance.mid\r\n")));
    const TQuillSItem* two = LastRow(TopList());
    ASSERT_EQ(two->childCount(), 1);
    EXPECT_EQ(static_cast<TQuillSItem*>(two->child(0))->EntryRef(), second);
}
