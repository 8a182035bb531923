#include "veldan/base/strings.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/temp_dir.h"

using namespace veldan;

TEST(Strings, TrimRemovesWhiteSpaceAtEachEndAndCountsWhatIsLeft) {
    char out[32];
    EXPECT_EQ(trimleft(out, " \t\r\nab c \v\f"), 7);
    EXPECT_STREQ(out, "ab c \v\f");
    EXPECT_EQ(trimright(out, " \t\r\nab c \v\f"), 8);
    EXPECT_STREQ(out, " \t\r\nab c");
    EXPECT_EQ(trim(out, " \t\r\nab c \v\f"), 4);
    EXPECT_STREQ(out, "ab c");
}

TEST(Strings, TrimOfBlanksGivesEmptyText) {
    char out[8] = "xxxxxxx";
    EXPECT_EQ(trim(out, "   \t "), 0);
    EXPECT_STREQ(out, "");
}

TEST(Strings, TrimMayWriteOverItsSource) {
    char text[] = "   moved left  ";
    EXPECT_EQ(trim(text, text), 10);
    EXPECT_STREQ(text, "moved left");
}

TEST(Strings, MidCountsFromOneAndTakesTheRestForZeroOrLongLengths) {
    char out[16];
    EXPECT_EQ(mid(out, "abc", 2, 0), 2);
    EXPECT_STREQ(out, "bc");
    EXPECT_EQ(mid(out, "abcdef", 2, 3), 3);
    EXPECT_STREQ(out, "bcd");
    EXPECT_EQ(mid(out, "abc", 2, 99), 2);
    EXPECT_STREQ(out, "bc");
}

TEST(Strings, MidGivesEmptyTextPastTheEndOrForNegativeLength) {
    char out[16] = "unchanged";
    EXPECT_EQ(mid(out, "abc", 4, 1), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(mid(out, "abc", 1, -1), 0);
    EXPECT_STREQ(out, "");
}

TEST(Strings, InstrFindsOneBasedPositionsFromTheStart) {
    EXPECT_EQ(instr("abcabc", "zz", 1), 0);
    EXPECT_EQ(instr("abcabc", "ab", 1), 1);
    EXPECT_EQ(instr("abcabc", "ab", 2), 4);
    EXPECT_EQ(instr("abcabc", "bc", 6), 0);
    EXPECT_EQ(instr("abc", "c", 9), 0);
}

TEST(Strings, RepstrReplacesTheFirstMatchAtOrAfterStart) {
    char out[32];
    EXPECT_EQ(repstr(out, "one two one", "one", "three", 2), 3);
    EXPECT_STREQ(out, "one two three");
    EXPECT_EQ(repstr(out, "a.b", ".", "--", 1), 1);
    EXPECT_STREQ(out, "a--b");
}

TEST(Strings, RepstrLeavesTheDestinationAloneWhenNothingMatches) {
    char out[16] = "untouched";
    EXPECT_EQ(repstr(out, "abc", "x", "y", 1), 0);
    EXPECT_STREQ(out, "untouched");
    EXPECT_EQ(repstr(out, "abcabc", "a", "y", 5), 0);
    EXPECT_STREQ(out, "untouched");
}

TEST(Strings, CStringReextCutsAtTheLastDotAnywhere) {
    char out[64];
    EXPECT_STREQ(reext("song.mid", "txt", out), "song.txt");
    EXPECT_STREQ(reext("song", "txt", out), "song.txt");
    EXPECT_STREQ(reext("/home/me/music.d/song", "txt", out), "/home/me/music.txt");
}

TEST(Strings, StringReextAndAddExtLookAtTheFileNameOnly) {
    EXPECT_EQ(reext(std::string("/home/me/music.d/song"), "txt"), "/home/me/music.d/song.txt");
    EXPECT_EQ(reext(std::string("/a/song.mid"), "txt"), "/a/song.txt");
    EXPECT_EQ(add_ext("/home/me/music.d/song", "mid"), "/home/me/music.d/song.mid");
    EXPECT_EQ(add_ext("/a/song.kar", "mid"), "/a/song.kar");
}

TEST(Strings, ExtractsNameBodyAndFolderOfPaths) {
    EXPECT_EQ(extract_file_name("/a/b/song.mid"), "song.mid");
    EXPECT_EQ(extract_file_name("song.mid"), "song.mid");
    EXPECT_EQ(extract_file_body("/a/b.c/song.v1.mid"), "song.v1");
    EXPECT_EQ(extract_file_body("/a/b.c/song"), "song");
    EXPECT_EQ(extract_file_path("/a/b/song.mid"), "/a/b/");
    EXPECT_EQ(extract_file_path("song.mid"), "");
}

TEST(Strings, BodyOfAHiddenFileIsEmpty) {
    EXPECT_EQ(extract_file_body("/home/me/.profile"), "");
    EXPECT_EQ(extract_file_body(".profile"), "");
}

TEST(Strings, CrTypeCountsLineFeedsAgainstCarriageReturns) {
    EXPECT_EQ(detect_cr_type("a\r\nb\r\n"), kCrTypeCRLF);
    EXPECT_EQ(detect_cr_type("a\r\nb\n"), kCrTypeLF);
    EXPECT_EQ(detect_cr_type("a\rb\r"), kCrTypeCR);
    EXPECT_EQ(detect_cr_type("no line ends"), kCrTypeLF);
}

TEST(Strings, CharsetPrefersEscapesThenBadUtf8) {
    EXPECT_EQ(detect_charset("plain ascii"), kUnicodeConversion);
    EXPECT_EQ(detect_charset("\xE6\x97\xA5\xE6\x9C\xAC"), kUnicodeConversion);
    // "Nihon" in Shift-JIS: 0x93 is a continuation byte where a lead byte belongs.
    EXPECT_EQ(detect_charset("\x93\xFA\x96\x7B"), kSJISConversion);
    EXPECT_EQ(detect_charset("\x1B$B"), kJISConversion);
    EXPECT_EQ(detect_charset("\x1B$B\x93\xFA"), kJISConversion);
}

TEST(Strings, CharsetCountsASequenceCutShortByTheEndAsBad) {
    EXPECT_EQ(detect_charset("ok \xE6\x97"), kSJISConversion);
    EXPECT_EQ(detect_charset("\xFF"), kSJISConversion);
}

TEST(Strings, CharBeginBytesAreAsciiAndUtf8LeadBytes) {
    EXPECT_TRUE(is_char_begin_byte('a'));
    EXPECT_TRUE(is_char_begin_byte('\xC3'));
    EXPECT_TRUE(is_char_begin_byte('\xF0'));
    EXPECT_FALSE(is_char_begin_byte('\x80'));
    EXPECT_FALSE(is_char_begin_byte('\xBF'));
}

TEST(CopyFile, DestinationGetsTheSourceBytes) {
    TTempDir dir;
    const char raw[] = "MThd\0\0\0\x06 with a \"quoted\" $name";
    std::string bytes(raw, sizeof raw - 1);
    auto source = dir.Write("a \"quoted\" $name.mid", bytes);
    auto target = dir.Path() / "copy `of` it.mid";
    dir.Write("copy `of` it.mid", std::string("older and longer content than the source"));
    EXPECT_TRUE(copy_file(source.c_str(), target.c_str()));
    EXPECT_EQ(read_file_bytes(target), std::vector<uint8_t>(bytes.begin(), bytes.end()));
}

TEST(CopyFile, IntoAFolderKeepsTheFileName) {
    TTempDir dir;
    auto source = dir.Write("song.mid", std::string("bytes"));
    std::filesystem::create_directory(dir.Path() / "sub");
    EXPECT_TRUE(copy_file(source.c_str(), (dir.Path() / "sub").c_str()));
    EXPECT_EQ(read_file_bytes(dir.Path() / "sub" / "song.mid"), read_file_bytes(source));
}

TEST(CopyFile, MissingSourceFails) {
    TTempDir dir;
    auto target = dir.Path() / "target";
    EXPECT_FALSE(copy_file((dir.Path() / "missing").c_str(), target.c_str()));
    EXPECT_FALSE(std::filesystem::exists(target));
}
