// Saving a playlist in the native format under real faults: a full disk, a kill in the
// middle, a folder the user may not write, a folder that is gone.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "playlist/native_loader.h"
#include "tests/support/fault_child.h"
#include "tests/support/temp_dir.h"
#include "veldan/base/atomic_file.h"
#include "veldan/base/clock.h"

namespace fs = std::filesystem;

namespace {

std::string read_text(const fs::path& path) {
    std::vector<uint8_t> bytes = read_file_bytes(path);
    return std::string(bytes.begin(), bytes.end());
}

std::vector<std::string> song_paths(const std::string& folder, int count) {
    std::vector<std::string> paths;
    for (int i = 0; i < count; ++i)
        paths.push_back("/home/user/" + folder + "/track " + std::to_string(i) + " ソング.mid");
    return paths;
}

std::string list_text(const std::vector<std::string>& paths) {
    std::string text = "MarnelList$1\n";
    for (const std::string& path : paths) text += path + "\n";
    return text;
}

int count_temporaries(const fs::path& folder) {
    int count = 0;
    for (const auto& entry : fs::directory_iterator(folder))
        count += veldan::is_atomic_temporary(entry.path().filename().string()) ? 1 : 0;
    return count;
}

}  // namespace

TEST(NativeListWrite, WritesTheFormatAndTheType) {
    TTempDir dir;
    const fs::path target = dir.Path() / "list.qml";
    const std::vector<std::string> paths = song_paths("music", 3);
    std::string error;
    ASSERT_TRUE(write_native_list(target, paths, &error)) << error;
    EXPECT_EQ(read_text(target), list_text(paths));
    char type[128];
    const ssize_t length = ::getxattr(target.c_str(), "user.mime_type", type, sizeof type);
    ASSERT_GT(length, 0);
    EXPECT_EQ(std::string(type, size_t(length)), TCLNative100::kMimeType);

    TCLNative100 loader;
    std::vector<TContainerEntry> entries;
    ASSERT_EQ(loader.Load(target.string(), &entries), 0);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[2].path, paths[2]);
}

TEST(NativeListWrite, AFullDiskLeavesTheOldListByteForByte) {
    TTempDir dir;
    const std::string old = list_text(song_paths("old", 40));
    const fs::path target = dir.Write("list.qml", old);
    const std::vector<std::string> bigger = song_paths("new", 2000);

    const int result = run_in_child(
        [&] {
            std::string error;
            if (write_native_list(target, bigger, &error)) return 0;
            std::fprintf(stderr, "%s\n", error.c_str());
            return error.find("list.qml") != std::string::npos ? 1 : 2;
        },
        TChildFaults{.fileSizeLimit = int64_t(old.size())});

    EXPECT_EQ(result, 1) << "0: the save claimed success; 2: the message names no file";
    EXPECT_EQ(read_text(target), old);
    EXPECT_EQ(count_temporaries(dir.Path()), 0);
}

// What a saving child tells the test through memory shared across the fork.
struct TSaverReport {
    std::atomic<int> saves{0};
    std::atomic<int64_t> lastSaveUs{0};
};

// A child saves a large list over and over, alternating two contents, and is killed at
// random moments; after every kill the file must hold one of the two lists whole. Every
// other kill waits until the child has finished a save, so kills land inside the first save
// and inside later ones however slowly this machine's disk syncs.
TEST(NativeListWrite, KilledAtRandomMomentsTheListIsOldOrNewNeverBroken) {
    constexpr int kKills = 300;
    constexpr auto kTimeBudget = std::chrono::seconds(15);
    TTempDir dir;
    const std::vector<std::string> listA = song_paths("a", 3000);
    const std::vector<std::string> listB = song_paths("b", 2500);
    const std::string textA = list_text(listA);
    const std::string textB = list_text(listB);
    const fs::path target = dir.Path() / "big.qml";
    ASSERT_TRUE(write_native_list(target, listA, nullptr));

    void* shared = ::mmap(nullptr, sizeof(TSaverReport), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    TSaverReport* report = new (shared) TSaverReport;
    const int64_t firstSaveStart = veldan::system_time();
    ASSERT_TRUE(write_native_list(target, listA, nullptr));
    report->lastSaveUs = veldan::system_time() - firstSaveStart;

    std::mt19937 random(20261124);
    int kills = 0, intact = 0, sawA = 0, sawB = 0, mostTemporaries = 0, unfinished = 0;
    const auto start = std::chrono::steady_clock::now();
    while (kills < kKills && std::chrono::steady_clock::now() - start < kTimeBudget) {
        const bool afterASave = kills % 2 == 1;
        report->saves = 0;
        const pid_t saver = start_child([&] {
            for (bool b = true;; b = !b) {
                const int64_t began = veldan::system_time();
                write_native_list(target, b ? listB : listA, nullptr);
                report->lastSaveUs = veldan::system_time() - began;
                ++report->saves;
            }
        });
        ASSERT_GT(saver, 0);
        const auto waitFrom = std::chrono::steady_clock::now();
        while (afterASave && report->saves == 0 &&
               std::chrono::steady_clock::now() - waitFrom < std::chrono::seconds(2))
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        if (afterASave && report->saves == 0) ++unfinished;
        const int64_t oneSaveUs = std::max<int64_t>(report->lastSaveUs, 1000);
        std::uniform_int_distribution<int64_t> delayUs(0, oneSaveUs * 5 / 4);
        std::this_thread::sleep_for(std::chrono::microseconds(delayUs(random)));
        ASSERT_TRUE(kill_and_reap(saver));
        ++kills;
        const std::string content = read_text(target);
        if (content == textA) ++sawA;
        if (content == textB) ++sawB;
        if (content == textA || content == textB) ++intact;
        mostTemporaries = std::max(mostTemporaries, count_temporaries(dir.Path()));
    }
    std::printf(
        "kills %d, intact %d (old %d, new %d), most temporaries left %d, last save %lld us\n",
        kills, intact, sawA, sawB, mostTemporaries,
        static_cast<long long>(report->lastSaveUs.load()));
    ::munmap(shared, sizeof(TSaverReport));
    // 300 on an idle machine; a sanitizer build on a busy one syncs ten times slower.
    EXPECT_GE(kills, 25) << "too few kills in the time budget";
    EXPECT_EQ(unfinished, 0) << "a child never finished a save within 2 s";
    EXPECT_EQ(intact, kills);
    EXPECT_GT(sawA, 0);
    EXPECT_GT(sawB, 0);
    EXPECT_LE(mostTemporaries, 1);

    // The next save cleans up after the last killed saver.
    ASSERT_TRUE(write_native_list(target, listB, nullptr));
    EXPECT_EQ(count_temporaries(dir.Path()), 0);
    EXPECT_EQ(read_text(target), textB);
}

// Root writes anywhere, so the save runs as "nobody" in a child.
TEST(NativeListWrite, AReadOnlyFolderLeavesTheListAndTheFolderAlone) {
    TTempDir dir;
    ASSERT_EQ(::chmod(dir.Path().c_str(), 0755), 0);
    const fs::path folder = dir.Path() / "shared";
    fs::create_directory(folder);
    const std::string old = list_text(song_paths("old", 5));
    const fs::path target = dir.Write("shared/list.qml", old);
    ASSERT_EQ(::chmod(target.c_str(), 0666), 0);
    ASSERT_EQ(::chmod(folder.c_str(), 0555), 0);

    const int result = run_in_child(
        [&] {
            std::string error;
            if (::getuid() != kNobodyUid) return 3;
            if (write_native_list(target, song_paths("new", 5), &error)) return 0;
            return error.find("list.qml") != std::string::npos ? 1 : 2;
        },
        TChildFaults{.dropPrivileges = true});

    EXPECT_EQ(result, 1);
    EXPECT_EQ(read_text(target), old);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);
}

TEST(NativeListWrite, AListWhoseFolderWasDeletedIsAnErrorAndMakesNothing) {
    TTempDir dir;
    const fs::path folder = dir.Path() / "gone";
    fs::create_directory(folder);
    const fs::path target = folder / "list.qml";
    fs::remove(folder);
    std::string error;
    EXPECT_FALSE(write_native_list(target, song_paths("new", 5), &error));
    EXPECT_NE(error.find("list.qml"), std::string::npos);
    EXPECT_FALSE(fs::exists(folder));
}

TEST(NativeListWrite, ALinkToAListStaysALink) {
    TTempDir dir;
    const fs::path real = dir.Write("lists/real.qml", list_text(song_paths("old", 2)));
    const fs::path link = dir.Path() / "link.qml";
    fs::create_symlink(real, link);
    ASSERT_TRUE(write_native_list(link, song_paths("new", 4), nullptr));
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(link)));
    EXPECT_EQ(read_text(real), list_text(song_paths("new", 4)));
}
