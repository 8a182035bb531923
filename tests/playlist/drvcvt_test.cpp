#include "playlist/drvcvt.h"

#include <gtest/gtest.h>

#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"
#include "veldan/core/archivable.h"

using veldan::TMessage;
namespace fs = std::filesystem;

namespace {

// Shift-JIS (code page 932) bytes of the names used below.
const std::string kSjisOngaku = "\x89\xb9\x8a\x79";         // 音楽
const std::string kSjisKyoku = "\x8b\xc8";                  // 曲
const std::string kSjisSongu = "\x83\x5c\x83\x93\x83\x4f";  // ソング: its first trail byte is 0x5C
const std::string kSjisHalfKana = "\xb6\xc5";               // ｶﾅ

class DriveLetters : public ::testing::Test {
  protected:
    fs::path TableFile() const { return fConfig.Path() / "VELDAN" / "Shared" / "DriveLetter.arc"; }
    // Converts and returns the output, or "<false>" when the line is not converted.
    static std::string Convert(const TDrvCvt& table, const std::string& line,
                               const char* base = "/boot/home/lists/list.qml") {
        std::string out = "<untouched>";
        return table.CvtPathWinToBe(line.c_str(), &out, base) ? out : "<false>";
    }

    TTempDir fConfig;
    TScopedEnv fXdg{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
};

}  // namespace

TEST_F(DriveLetters, WithoutATableFileAAndCHaveTheirDefaults) {
    TDrvCvt table;
    std::string path;
    EXPECT_TRUE(table.GetBeDL('A', &path));
    EXPECT_EQ(path, "/no name");
    EXPECT_TRUE(table.GetBeDL('c', &path));
    EXPECT_EQ(path, "/windows");
    path = "kept";
    EXPECT_FALSE(table.GetBeDL('D', &path));
    EXPECT_FALSE(table.GetBeDL('1', &path));
    EXPECT_FALSE(table.GetBeDL('@', &path));
    EXPECT_EQ(path, "kept");
}

TEST_F(DriveLetters, ADrivePathIsConvertedThroughTheTableWhateverTheLettersCase) {
    TDrvCvt table;
    EXPECT_EQ(Convert(table, "c:\\Music\\Pop\\song.mid"), "/windows/Music/Pop/song.mid");
    EXPECT_EQ(Convert(table, "C:\\Music\\song.mid"), "/windows/Music/song.mid");
    table.SetBeDL('e', "/media/usb");
    EXPECT_EQ(Convert(table, "E:\\a.mid"), "/media/usb/a.mid");
}

TEST_F(DriveLetters, AnUnmappedLetterLeavesTheLineUnconverted) {
    TDrvCvt table;
    EXPECT_EQ(Convert(table, "D:\\Music\\song.mid"), "<false>");
    table.SetBeDL('C', "");
    EXPECT_EQ(Convert(table, "C:\\Music\\song.mid"), "<false>");
}

TEST_F(DriveLetters, ARootPathLandsOnThePlaylistsVolume) {
    TDrvCvt table;
    EXPECT_EQ(Convert(table, "\\Music\\song.mid", "/boot/home/lists/list.qml"),
              "/boot/Music/song.mid");
    EXPECT_EQ(Convert(table, "\\song.mid", "/list.qml"), "/list.qml/song.mid");
    EXPECT_EQ(Convert(table, "\\Music\\song.mid", ""), "<false>");
    EXPECT_EQ(Convert(table, "\\Music\\song.mid", nullptr), "<false>");
}

TEST_F(DriveLetters, RelativeAndEmptyLinesAreNotConverted) {
    TDrvCvt table;
    EXPECT_EQ(Convert(table, "Music\\song.mid"), "<false>");
    EXPECT_EQ(Convert(table, "song.mid"), "<false>");
    EXPECT_EQ(Convert(table, ""), "<false>");
    EXPECT_EQ(Convert(table, "C"), "<false>");
}

TEST_F(DriveLetters, ACarriageReturnAtTheEndIsCut) {
    TDrvCvt table;
    EXPECT_EQ(Convert(table, "C:\\Music\\song.mid\r"), "/windows/Music/song.mid");
    EXPECT_EQ(Convert(table, "\\song.mid\r", "/boot/x.qml"), "/boot/song.mid");
}

TEST_F(DriveLetters, AShiftJisNameComesOutAsUtf8) {
    TDrvCvt table;
    EXPECT_EQ(Convert(table, "C:\\" + kSjisOngaku + "\\" + kSjisKyoku + ".mid\r"),
              "/windows/音楽/曲.mid");
    EXPECT_EQ(Convert(table, "\\" + kSjisHalfKana + kSjisHalfKana + kSjisHalfKana + ".mid",
                      "/home/u/list.qml"),
              "/home/ｶﾅｶﾅｶﾅ.mid");
}

TEST_F(DriveLetters, AShiftJisTrailByteThatLooksLikeABackslashStaysInItsCharacter) {
    TDrvCvt table;
    EXPECT_EQ(Convert(table, "C:\\" + kSjisSongu + "\\~a.mid"), "/windows/ソング/~a.mid");
}

TEST_F(DriveLetters, Utf8NamesPassUnchanged) {
    TDrvCvt table;
    EXPECT_EQ(Convert(table, "C:\\音楽\\曲.mid"), "/windows/音楽/曲.mid");
}

TEST_F(DriveLetters, AnUnconvertibleShiftJisByteBecomesTheSubstitute) {
    TDrvCvt table;
    // 0x81 0x20 is no Shift-JIS character; an 0x80 byte has none either.
    EXPECT_EQ(Convert(table, "C:\\a\x81 b\x80.mid"), "/windows/a\x1A b\x1A.mid");
}

TEST_F(DriveLetters, TheTableSurvivesSaveAndLoad) {
    TDrvCvt edited;
    edited.SetBeDL('d', "/media/dvd");
    edited.SetBeDL('A', "");
    ASSERT_TRUE(edited.Save());
    ASSERT_TRUE(fs::exists(TableFile()));

    TMessage stored;
    ASSERT_TRUE(veldan::load_message(TableFile(), &stored));
    EXPECT_EQ(stored.CountNames(), 26);
    std::string value = "unset";
    EXPECT_TRUE(stored.FindString("B", &value));
    EXPECT_EQ(value, "");

    TDrvCvt loaded;
    std::string path;
    EXPECT_TRUE(loaded.GetBeDL('D', &path));
    EXPECT_EQ(path, "/media/dvd");
    EXPECT_FALSE(loaded.GetBeDL('A', &path));
    EXPECT_TRUE(loaded.GetBeDL('C', &path));
    EXPECT_EQ(path, "/windows");
}

TEST_F(DriveLetters, ATableFileWithoutCLeavesCUnmapped) {
    fs::create_directories(TableFile().parent_path());
    TMessage partial;
    partial.AddString("E", "/media/usb");
    QByteArray data;
    ASSERT_TRUE(partial.Flatten(&data));
    fConfig.Write("VELDAN/Shared/DriveLetter.arc", std::vector<uint8_t>(data.begin(), data.end()));

    TDrvCvt table;
    std::string path;
    EXPECT_FALSE(table.GetBeDL('C', &path));
    EXPECT_FALSE(table.GetBeDL('A', &path));
    EXPECT_TRUE(table.GetBeDL('E', &path));
    EXPECT_EQ(Convert(table, "C:\\song.mid"), "<false>");
}

TEST_F(DriveLetters, ADamagedTableFileKeepsTheTableAsItWas) {
    fConfig.Write("VELDAN/Shared/DriveLetter.arc", "C=/mnt/c\n");
    TDrvCvt table;
    std::string path;
    EXPECT_TRUE(table.GetBeDL('C', &path));
    EXPECT_EQ(path, "/windows");
    table.SetBeDL('C', "/mnt/c");
    EXPECT_FALSE(table.Load());
    EXPECT_TRUE(table.GetBeDL('C', &path));
    EXPECT_EQ(path, "/mnt/c");
}
