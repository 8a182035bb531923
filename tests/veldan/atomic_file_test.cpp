#include "veldan/base/atomic_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/fault_child.h"
#include "tests/support/temp_dir.h"

namespace fs = std::filesystem;

namespace {

std::string read_text(const fs::path& path) {
    std::vector<uint8_t> bytes = read_file_bytes(path);
    return std::string(bytes.begin(), bytes.end());
}

std::vector<std::string> folder_names(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

int count_temporaries(const fs::path& folder) {
    int count = 0;
    for (const std::string& name : folder_names(folder))
        count += veldan::is_atomic_temporary(name) ? 1 : 0;
    return count;
}

std::string attribute(const fs::path& path, const char* name) {
    char value[256];
    const ssize_t length = ::getxattr(path.c_str(), name, value, sizeof value);
    return length < 0 ? std::string("<none>") : std::string(value, size_t(length));
}

}  // namespace

TEST(AtomicFile, WritesANewFile) {
    TTempDir dir;
    const fs::path target = dir.Path() / "new.txt";
    std::string error;
    ASSERT_EQ(veldan::write_file_atomically(target, "first\n", &error), 0) << error;
    EXPECT_EQ(read_text(target), "first\n");
    EXPECT_EQ(folder_names(dir.Path()), std::vector<std::string>{"new.txt"});
}

TEST(AtomicFile, ReplacesTheOldContentWhole) {
    TTempDir dir;
    const fs::path target = dir.Write("list.txt", std::string(10000, 'o'));
    ASSERT_EQ(veldan::write_file_atomically(target, "short"), 0);
    EXPECT_EQ(read_text(target), "short");
    EXPECT_EQ(count_temporaries(dir.Path()), 0);
}

TEST(AtomicFile, NothingChangesUntilCommit) {
    TTempDir dir;
    const fs::path target = dir.Write("list.txt", "old");
    {
        veldan::TAtomicFile file(target);
        ASSERT_EQ(file.InitCheck(), 0);
        ASSERT_TRUE(file.Write("new content"));
        EXPECT_EQ(read_text(target), "old");
        EXPECT_EQ(count_temporaries(dir.Path()), 1);
    }
    // Dropped without Commit: the old file stays and the temporary is gone.
    EXPECT_EQ(read_text(target), "old");
    EXPECT_EQ(count_temporaries(dir.Path()), 0);
}

TEST(AtomicFile, KeepsPermissionsAndUserAttributes) {
    TTempDir dir;
    const fs::path target = dir.Write("list.txt", "old");
    ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
    ASSERT_EQ(::setxattr(target.c_str(), "user.mime_type", "text/x-old", 10, 0), 0)
        << "the test folder's file system keeps no extended attributes";
    ASSERT_EQ(::setxattr(target.c_str(), "user.comment", "mine", 4, 0), 0);

    veldan::TAtomicFile file(target);
    file.Write("new");
    file.SetAttribute("user.mime_type", "text/x-new");
    ASSERT_EQ(file.Commit(), 0) << file.ErrorText();

    struct stat info;
    ASSERT_EQ(::stat(target.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_EQ(attribute(target, "user.comment"), "mine");
    EXPECT_EQ(attribute(target, "user.mime_type"), "text/x-new");
    EXPECT_EQ(read_text(target), "new");
}

TEST(AtomicFile, WritesThroughASymbolicLink) {
    TTempDir dir;
    fs::create_directory(dir.Path() / "real");
    const fs::path real = dir.Write("real/list.txt", "old");
    const fs::path link = dir.Path() / "link.txt";
    fs::create_symlink("real/list.txt", link);  // relative, as users make them

    ASSERT_EQ(veldan::write_file_atomically(link, "new"), 0);
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(link)));
    EXPECT_EQ(fs::read_symlink(link), fs::path("real/list.txt"));
    EXPECT_EQ(read_text(real), "new");
    EXPECT_EQ(count_temporaries(dir.Path()), 0);
    EXPECT_EQ(count_temporaries(dir.Path() / "real"), 0);
}

TEST(AtomicFile, ADanglingLinkGetsItsTargetMade) {
    TTempDir dir;
    const fs::path link = dir.Path() / "link.txt";
    fs::create_symlink(dir.Path() / "made.txt", link);
    ASSERT_EQ(veldan::write_file_atomically(link, "new"), 0);
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(link)));
    EXPECT_EQ(read_text(dir.Path() / "made.txt"), "new");
}

TEST(AtomicFile, AFullDiskLeavesTheOldFileByteForByte) {
    TTempDir dir;
    std::string old;
    for (int i = 0; i < 300; ++i) old += "/home/user/music/song " + std::to_string(i) + ".mid\n";
    const fs::path target = dir.Write("list.txt", old);
    const std::string bigger(64 * 1024, 'n');

    const int result = run_in_child(
        [&] {
            std::string error;
            const int status = veldan::write_file_atomically(target, bigger, &error);
            // The reason reaches the caller, naming the file.
            if (error.find(target.string()) == std::string::npos) return 3;
            return status == -EFBIG ? 1 : status == 0 ? 0 : 2;
        },
        TChildFaults{.fileSizeLimit = 4096});

    EXPECT_EQ(result, 1) << "0: the save claimed success; 2: another error; 3: no file named";
    EXPECT_EQ(read_text(target), old);
    EXPECT_EQ(count_temporaries(dir.Path()), 0);
}

TEST(AtomicFile, AReadOnlyFolderLeavesEverythingAsItWas) {
    TTempDir dir;
    ASSERT_EQ(::chmod(dir.Path().c_str(), 0755), 0);
    const fs::path folder = dir.Path() / "locked";
    fs::create_directory(folder);
    const fs::path target = dir.Write("locked/list.txt", "old");
    ASSERT_EQ(::chmod(target.c_str(), 0666), 0);  // the file is writable, its folder is not
    ASSERT_EQ(::chmod(folder.c_str(), 0555), 0);

    const int result = run_in_child(
        [&] {
            std::string error;
            const int status = veldan::write_file_atomically(target, "new", &error);
            return status == -EACCES && error.find("list.txt") != std::string::npos ? 1 : 2;
        },
        TChildFaults{.dropPrivileges = true});

    EXPECT_EQ(result, 1);
    EXPECT_EQ(read_text(target), "old");
    EXPECT_EQ(folder_names(folder), std::vector<std::string>{"list.txt"});
}

TEST(AtomicFile, AReadOnlyFileIsNotReplacedThroughItsWritableFolder) {
    TTempDir dir;
    ASSERT_EQ(::chmod(dir.Path().c_str(), 0777), 0);
    const fs::path target = dir.Write("list.txt", "old");
    ASSERT_EQ(::chmod(target.c_str(), 0444), 0);

    const int result = run_in_child(
        [&] { return veldan::write_file_atomically(target, "new") == -EACCES ? 1 : 2; },
        TChildFaults{.dropPrivileges = true});

    EXPECT_EQ(result, 1);
    EXPECT_EQ(read_text(target), "old");
    EXPECT_EQ(folder_names(dir.Path()), std::vector<std::string>{"list.txt"});
}

TEST(AtomicFile, AFolderDeletedMeanwhileIsAnError) {
    TTempDir dir;
    const fs::path target = dir.Path() / "gone" / "list.txt";
    std::string error;
    EXPECT_EQ(veldan::write_file_atomically(target, "new", &error), -ENOENT);
    EXPECT_NE(error.find("list.txt"), std::string::npos);
    EXPECT_EQ(folder_names(dir.Path()), std::vector<std::string>{});
}

TEST(AtomicFile, ATemporaryOfADeadWriterIsRemovedAtTheNextSave) {
    TTempDir dir;
    const fs::path target = dir.Write("list.txt", "old");
    // A writer killed before it could rename.
    const pid_t writer = start_child([&] {
        veldan::TAtomicFile file(target);
        file.Write("half");
        for (;;) ::pause();
    });
    ASSERT_GT(writer, 0);
    for (int i = 0; i < 2000 && count_temporaries(dir.Path()) == 0; ++i) ::usleep(1000);
    ASSERT_EQ(count_temporaries(dir.Path()), 1);
    ASSERT_TRUE(kill_and_reap(writer));
    ASSERT_EQ(count_temporaries(dir.Path()), 1);

    // Another file's save in the same folder leaves it: it is not that file's.
    ASSERT_EQ(veldan::write_file_atomically(dir.Path() / "other.txt", "x"), 0);
    EXPECT_EQ(count_temporaries(dir.Path()), 1);
    ASSERT_EQ(veldan::write_file_atomically(target, "new"), 0);
    EXPECT_EQ(count_temporaries(dir.Path()), 0);
    EXPECT_EQ(read_text(target), "new");
}

TEST(AtomicFile, ATemporaryOfALiveWriterIsLeftAlone) {
    TTempDir dir;
    const fs::path target = dir.Write("list.txt", "old");
    veldan::TAtomicFile first(target);
    ASSERT_TRUE(first.Write("first"));
    ASSERT_EQ(veldan::write_file_atomically(target, "second"), 0);
    EXPECT_EQ(first.Commit(), 0) << first.ErrorText();
    EXPECT_EQ(read_text(target), "first");
}

TEST(AtomicFile, AFailedWriterReportsThroughFail) {
    TTempDir dir;
    const fs::path target = dir.Write("list.txt", "old");
    veldan::TAtomicFile file(target);
    file.Write("new");
    file.Fail(-ENOSPC);
    EXPECT_EQ(file.Commit(), -ENOSPC);
    EXPECT_EQ(read_text(target), "old");
    EXPECT_EQ(count_temporaries(dir.Path()), 0);
}

TEST(AtomicFile, ACopyOnAFullDiskLeavesTheTargetAsItWas) {
    TTempDir dir;
    const fs::path source = dir.Write("English.llt", std::string(200000, 'e'));
    const fs::path target = dir.Write("installed.llt", "the language in use");
    const int result = run_in_child(
        [&] {
            std::string error;
            const int status = veldan::copy_file_atomically(source, target, &error);
            return status == -EFBIG && error.find("installed.llt") != std::string::npos ? 1 : 2;
        },
        TChildFaults{.fileSizeLimit = 65536});
    EXPECT_EQ(result, 1);
    EXPECT_EQ(read_text(target), "the language in use");
    EXPECT_EQ(count_temporaries(dir.Path()), 0);

    ASSERT_EQ(veldan::copy_file_atomically(source, target), 0);
    EXPECT_EQ(read_text(target), read_text(source));
    std::string error;
    EXPECT_EQ(veldan::copy_file_atomically(dir.Path() / "missing.llt", target, &error), -ENOENT);
    EXPECT_NE(error.find("missing.llt"), std::string::npos);
    EXPECT_EQ(read_text(target), read_text(source));
}

TEST(AtomicFile, KeepsADamagedFileAsideOnce) {
    TTempDir dir;
    const fs::path file = dir.Write("Prefs.arc", "garbage");
    EXPECT_TRUE(veldan::keep_damaged_file(file));
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(read_text(dir.Path() / "Prefs.arc.damaged"), "garbage");
    // Missing or empty: nothing to keep.
    EXPECT_FALSE(veldan::keep_damaged_file(file));
    dir.Write("Prefs.arc", "");
    EXPECT_FALSE(veldan::keep_damaged_file(file));
    EXPECT_EQ(read_text(dir.Path() / "Prefs.arc.damaged"), "garbage");
}
