#include "app/settings/mruf.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

using veldan::TMessage;

namespace {

std::vector<std::string> entries(const TMRUF& list) {
    std::vector<std::string> paths;
    for (int32_t i = 0; i < list.CountMRUFs(); i++) paths.push_back(list.MRUFAt(i));
    return paths;
}

TMRUF list_of(std::initializer_list<const char*> oldestFirst) {
    TMRUF list;
    for (const char* path : oldestFirst) list.AddMRUF(path);
    return list;
}

std::string path_number(int i) { return "/lists/" + std::to_string(i) + ".qml"; }

}  // namespace

TEST(RecentPlaylists, NewestComesFirstWithoutDuplicates) {
    TMRUF list = list_of({"/a.qml", "/b.qml", "/c.qml"});
    EXPECT_EQ(entries(list), (std::vector<std::string>{"/c.qml", "/b.qml", "/a.qml"}));
    list.AddMRUF("/c.qml");
    EXPECT_EQ(entries(list), (std::vector<std::string>{"/c.qml", "/b.qml", "/a.qml"}));
    list.AddMRUF("/a.qml");
    EXPECT_EQ(entries(list), (std::vector<std::string>{"/a.qml", "/c.qml", "/b.qml"}));
}

TEST(RecentPlaylists, AnEleventhPathDropsTheOldestAtTheDefaultMaximum) {
    TMRUF list;
    for (int i = 0; i < 11; i++) list.AddMRUF(path_number(i));
    EXPECT_EQ(list.CountMRUFs(), 10);
    EXPECT_EQ(list.MRUFAt(0), path_number(10));
    EXPECT_EQ(list.FindMRUF(path_number(0)), -1);
    EXPECT_EQ(list.MRUFAt(9), path_number(1));
}

TEST(RecentPlaylists, TheMaximumIsClampedAndLoweringItDropsTheOldest) {
    TMRUF list;
    list.SetMaxMRUF(0);
    EXPECT_EQ(list.MaxMRUF(), 1);
    list.SetMaxMRUF(-5);
    EXPECT_EQ(list.MaxMRUF(), 1);
    list.SetMaxMRUF(25);
    EXPECT_EQ(list.MaxMRUF(), 20);
    for (int i = 0; i < 30; i++) list.AddMRUF(path_number(i));
    EXPECT_EQ(list.CountMRUFs(), 20);
    list.SetMaxMRUF(3);
    EXPECT_EQ(entries(list),
              (std::vector<std::string>{path_number(29), path_number(28), path_number(27)}));
}

TEST(RecentPlaylists, FindingIsExactAndCaseSensitive) {
    const TMRUF list = list_of({"/Lists/A.qml", "/lists/a.qml"});
    EXPECT_EQ(list.FindMRUF("/lists/a.qml"), 0);
    EXPECT_EQ(list.FindMRUF("/Lists/A.qml"), 1);
    EXPECT_EQ(list.FindMRUF("/LISTS/A.QML"), -1);
    EXPECT_EQ(list.FindMRUF("/Lists/A.qm"), -1);
    EXPECT_EQ(list.MRUFAt(2), "");
    EXPECT_EQ(list.MRUFAt(-1), "");
}

TEST(RecentPlaylists, RemovingHandsBackThePathOrNothing) {
    TMRUF list = list_of({"/a.qml", "/b.qml", "/c.qml"});
    EXPECT_EQ(list.RemoveMRUF(1), "/b.qml");
    EXPECT_EQ(list.RemoveMRUF("/a.qml"), "/a.qml");
    EXPECT_EQ(list.RemoveMRUF("/missing.qml"), std::nullopt);
    EXPECT_EQ(list.RemoveMRUF(5), std::nullopt);
    EXPECT_EQ(list.RemoveMRUF(-1), std::nullopt);
    EXPECT_EQ(entries(list), std::vector<std::string>{"/c.qml"});
    list.ClearMRUF();
    EXPECT_EQ(list.CountMRUFs(), 0);
}

TEST(RecentPlaylists, TheArchiveHoldsTheOldestFirst) {
    const TMRUF list = list_of({"/a.qml", "/b.qml", "/c.qml"});
    TMessage message;
    ASSERT_TRUE(list.Archive(&message));
    std::vector<std::string> stored;
    std::string path;
    for (int32_t i = 0; message.FindString("MRUF", i, &path); i++) stored.push_back(path);
    EXPECT_EQ(stored, (std::vector<std::string>{"/a.qml", "/b.qml", "/c.qml"}));

    TMessage empty;
    EXPECT_TRUE(TMRUF().Archive(&empty));
    EXPECT_TRUE(empty.IsEmpty());
}

TEST(RecentPlaylists, UnarchivingRestoresTheOrderCollapsesDuplicatesAndHoldsTheMaximum) {
    TMessage message;
    for (const char* path : {"/a.qml", "/b.qml", "/a.qml", "/c.qml", "/d.qml"}) {
        message.AddString("MRUF", path);
    }
    TMRUF list = list_of({"/old.qml"});
    list.SetMaxMRUF(3);
    EXPECT_TRUE(list.Unarchive(message));
    EXPECT_EQ(entries(list), (std::vector<std::string>{"/d.qml", "/c.qml", "/a.qml"}));
}

TEST(RecentPlaylists, TheListSurvivesItsFileAndAMissingFileGivesAnEmptyList) {
    TTempDir dir;
    const TMRUF saved = list_of({"/home/u/一覧.qml", "/home/u/b.qml"});
    ASSERT_TRUE(saved.Save(dir.Path() / "QuillMIDI_MRUPlaylists.arc"));
    TMRUF loaded;
    EXPECT_TRUE(loaded.Load(dir.Path() / "QuillMIDI_MRUPlaylists.arc"));
    EXPECT_EQ(entries(loaded), entries(saved));

    TMRUF fromNothing;
    EXPECT_FALSE(fromNothing.Load(dir.Path() / "absent.arc"));
    EXPECT_EQ(fromNothing.CountMRUFs(), 0);
}

TEST(RecentPlaylists, LabelsNumberFromTheTriggerBaseAndOnlyDigitsGetShortCuts) {
    TMRUF list;
    list.SetMaxMRUF(20);
    for (int i = 11; i >= 0; i--) list.AddMRUF("/lists/" + std::to_string(i) + ".qml");
    EXPECT_EQ(list.ItemLabel(0),
              "0\xE3\x83\xBB"
              "0.qml");
    EXPECT_EQ(list.ItemShortcut(0), '\0');  // short-cuts off by default
    list.SetShowSC(true);
    list.SetSeparator(": ");
    EXPECT_EQ(list.ItemLabel(9), "9: 9.qml");
    EXPECT_EQ(list.ItemShortcut(9), '9');
    EXPECT_EQ(list.ItemLabel(10), "A: 10.qml");
    EXPECT_EQ(list.ItemShortcut(10), '\0');
    EXPECT_EQ(list.ItemLabel(11), "B: 11.qml");
    list.SetTriggerBase(1);
    EXPECT_EQ(list.ItemLabel(0), "1: 0.qml");
    EXPECT_EQ(list.ItemShortcut(8), '9');
    EXPECT_EQ(list.ItemShortcut(9), '\0');
}

TEST(RecentPlaylists, TheItemMessageDefaultsToRecentFileAndCanBeReplaced) {
    TMRUF list;
    EXPECT_EQ(list.Message().what, uint32_t('_RRC'));
    TMessage open('olfr');
    open.AddInt32("Menu", 1);
    list.SetMessage(open);
    EXPECT_EQ(list.Message(), open);
}
