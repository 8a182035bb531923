#include "veldan/base/vel_file.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/temp_dir.h"

using namespace veldan;

TEST(VELFile, ReadLineDropsLineEndsAndCountsTheCarriageReturn) {
    TTempDir dir;
    TVELFile file(dir.Write("a.txt", std::string("ab\r\ncd\n\nlast")).c_str(), kReadOnly);
    char buf[32];
    EXPECT_EQ(file.ReadLine(buf, sizeof buf), 3);
    EXPECT_STREQ(buf, "ab");
    EXPECT_EQ(file.ReadLine(buf, sizeof buf), 2);
    EXPECT_STREQ(buf, "cd");
    EXPECT_FALSE(file.Eof());
    EXPECT_EQ(file.ReadLine(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(file.ReadLine(buf, sizeof buf), 4);
    EXPECT_STREQ(buf, "last");
    EXPECT_TRUE(file.Eof());
    EXPECT_EQ(file.ReadLine(buf, sizeof buf), 0);
}

TEST(VELFile, LineLongerThanTheBufferComesInPieces) {
    TTempDir dir;
    TVELFile file(dir.Write("a.txt", std::string("abcdefg\nh\n")).c_str(), kReadOnly);
    char buf[4];
    EXPECT_EQ(file.ReadLine(buf, sizeof buf), 3);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(file.ReadLine(buf, sizeof buf), 3);
    EXPECT_STREQ(buf, "def");
    EXPECT_EQ(file.ReadLine(buf, sizeof buf), 1);
    EXPECT_STREQ(buf, "g");
    EXPECT_EQ(file.ReadLine(buf, sizeof buf), 1);
    EXPECT_STREQ(buf, "h");
}

TEST(VELFile, ReadValidLineSkipsEmptyLinesAndSlashesInEitherOfTheFirstTwoPlaces) {
    TTempDir dir;
    TVELFile file(
        dir.Write("a.txt", std::string("\n// note\na/b\n/x\n\r\nfirst\n\nsecond\n")).c_str(),
        kReadOnly);
    char buf[32];
    EXPECT_EQ(file.ReadValidLine(buf, sizeof buf), 5);
    EXPECT_STREQ(buf, "first");
    EXPECT_EQ(file.ReadValidLine(buf, sizeof buf), 6);
    EXPECT_STREQ(buf, "second");
    EXPECT_EQ(file.ReadValidLine(buf, sizeof buf), 0);
}

TEST(VELFile, WriteLineAddsALineFeedAndCountsIt) {
    TTempDir dir;
    auto path = dir.Path() / "out.txt";
    {
        TVELFile file(path.c_str(), kWriteOnly | kCreateFile | kEraseFile);
        ASSERT_EQ(file.InitCheck(), 0);
        EXPECT_EQ(file.WriteLine("/songs/a.mid"), 13);
        EXPECT_EQ(file.WriteLine(""), 1);
    }
    std::vector<uint8_t> bytes = read_file_bytes(path);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "/songs/a.mid\n\n");
}

TEST(VELFile, UnopenedFileReadsNothingAndIsAtItsEnd) {
    TTempDir dir;
    TVELFile file((dir.Path() / "missing").c_str(), kReadOnly);
    char buf[8] = "x";
    EXPECT_EQ(file.InitCheck(), -ENOENT);
    EXPECT_TRUE(file.Eof());
    EXPECT_EQ(file.ReadLine(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(file.ReadValidLine(buf, sizeof buf), 0);
}
