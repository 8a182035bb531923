#include "veldan/base/ini_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

using namespace veldan;

namespace {

constexpr int kMaxLen = 256;
const char* const kGlobal = TIniFile::kGlobalSectionName;

std::string text_of(const std::filesystem::path& path) {
    std::vector<uint8_t> bytes = read_file_bytes(path);
    return std::string(bytes.begin(), bytes.end());
}

std::string read(const TIniFile& ini, const char* key) {
    std::string value = "<missing>";
    ini.ReadValue(key, &value);
    return value;
}

std::vector<std::string> sections_of(const TIniFile& ini) {
    std::vector<std::string> names;
    ini.EnumSections(&names);
    return names;
}

std::vector<std::string> keys_of(const TIniFile& ini) {
    std::vector<std::string> keys;
    ini.EnumKeys(&keys);
    return keys;
}

// Loads text from a real file, rewrites it with force, and returns what the file holds.
std::string rewritten(const std::string& text) {
    TTempDir dir;
    auto path = dir.Write("in.ini", text);
    {
        TIniFile ini(path, kReadWrite, kMaxLen);
        EXPECT_TRUE(ini.Flush(true));
    }
    return text_of(path);
}

}  // namespace

TEST(IniFile, PairsMatchWhateverTheBlanksAndTheCaseOfTheKey) {
    TTempDir dir;
    for (const char* line :
         {"key=value", "  key   =   value  ", "KEY\t=\tvalue", "kEy = value\r"}) {
        TIniFile ini(dir.Write("a.ini", std::string(line) + "\n"), kReadOnly, kMaxLen);
        EXPECT_EQ(read(ini, "Key"), "value") << line;
    }
}

TEST(IniFile, ValueKeepsEqualsSignsAfterTheFirst) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("a = b = c\n")), kReadOnly, kMaxLen);
    EXPECT_EQ(read(ini, "a"), "b = c");
}

TEST(IniFile, SemicolonAfterTextAndHashStartNoComment) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("k = v ; still value\n#hash = h\n")), kReadOnly,
                 kMaxLen);
    EXPECT_EQ(read(ini, "k"), "v ; still value");
    EXPECT_EQ(read(ini, "#hash"), "h");
}

TEST(IniFile, LineWithoutEqualsIsAPairWithAnEmptyKey) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("  just text  \n")), kReadOnly, kMaxLen);
    EXPECT_EQ(keys_of(ini), std::vector<std::string>{""});
    EXPECT_EQ(read(ini, ""), "just text");
}

TEST(IniFile, CommentBeforeTheFirstHeaderIsWrittenBackAtTheTop) {
    EXPECT_EQ(rewritten(";   a note  \n[S]\nk=v\n"), "; a note\n\n[ S ]\nk = v\n\n");
}

TEST(IniFile, HeaderNameIsTrimmedAndTextAfterTheBracketIgnored) {
    TTempDir dir;
    // Shorter than what is written back, so no old tail remains after the flush.
    auto path = dir.Write("a.ini", std::string("[\tMy Section ]x\nk=v\n"));
    {
        TIniFile ini(path, kReadWrite, kMaxLen);
        EXPECT_EQ(sections_of(ini), (std::vector<std::string>{kGlobal, "My Section"}));
        ASSERT_TRUE(ini.Flush(true));
    }
    EXPECT_EQ(text_of(path), "\n[ My Section ]\nk = v\n\n");
}

TEST(IniFile, HeaderWithoutClosingBracketHasAnEmptyName) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("[Broken\nk=v\n")), kReadOnly, kMaxLen);
    EXPECT_EQ(sections_of(ini), (std::vector<std::string>{kGlobal, ""}));
    ini.ChangeSection("");
    EXPECT_EQ(read(ini, "k"), "v");
}

TEST(IniFile, CrlfFileReadsLikeLfAndIsWrittenBackWithLf) {
    const std::string lf = "; c\nk = v\n[S]\nx = 1\n";
    const std::string crlf = "; c\r\nk = v\r\n[S]\r\nx = 1\r\n";
    EXPECT_EQ(rewritten(crlf), rewritten(lf));
    EXPECT_EQ(rewritten(crlf), "; c\nk = v\n\n[ S ]\nx = 1\n\n");
}

TEST(IniFile, LoneCarriageReturnEndsNoLine) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("a = 1\rb = 2\n")), kReadOnly, kMaxLen);
    EXPECT_EQ(read(ini, "a"), "1\rb = 2");
    EXPECT_FALSE(ini.KeyExists("b"));
}

TEST(IniFile, LastLineWithoutLineFeedIsRead) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("a = 1\nb = 2")), kReadOnly, kMaxLen);
    EXPECT_EQ(read(ini, "b"), "2");
}

TEST(IniFile, LineLongerThanTheMaximumIsSplit) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("key=0123456789\n")), kReadOnly, 8);
    EXPECT_EQ(keys_of(ini), (std::vector<std::string>{"key", ""}));
    EXPECT_EQ(read(ini, "key"), "0123");
    EXPECT_EQ(read(ini, ""), "456789");
}

TEST(IniFile, NulByteEndsTheTextOfItsLine) {
    TTempDir dir;
    TIniFile ini(
        dir.Write("a.ini", std::vector<uint8_t>{'a', '=', '1', 0, '2', '\n', 'b', '=', '3', '\n'}),
        kReadOnly, kMaxLen);
    EXPECT_EQ(read(ini, "a"), "1");
    EXPECT_EQ(read(ini, "b"), "3");
}

TEST(IniFile, MissingKeyLeavesTheCallersDefault) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("present = 1\n")), kReadOnly, kMaxLen);
    std::string text = "default";
    bool flag = true;
    int32_t number32 = -5;
    int64_t number64 = -6;
    float real = 2.5f;
    rgb_color color{1, 2, 3, 4};
    EXPECT_FALSE(ini.ReadValue("absent", &text));
    EXPECT_FALSE(ini.ReadValue("absent", &flag));
    EXPECT_FALSE(ini.ReadValue("absent", &number32));
    EXPECT_FALSE(ini.ReadValue("absent", &number64));
    EXPECT_FALSE(ini.ReadValue("absent", &real));
    EXPECT_FALSE(ini.ReadValue("absent", &color));
    EXPECT_EQ(text, "default");
    EXPECT_TRUE(flag);
    EXPECT_EQ(number32, -5);
    EXPECT_EQ(number64, -6);
    EXPECT_EQ(real, 2.5f);
    EXPECT_EQ(color, (rgb_color{1, 2, 3, 4}));
}

TEST(IniFile, DuplicateSectionsFirstWinsAndBothAreWrittenBack) {
    TTempDir dir;
    auto path = dir.Write("a.ini", std::string("[Sec]\nk=1\n[SEC]\nk=2\n"));
    {
        TIniFile ini(path, kReadWrite, kMaxLen);
        ini.ChangeSection("sec");
        EXPECT_EQ(read(ini, "k"), "1");
        ini.ChangeSection("SEC");
        EXPECT_EQ(read(ini, "k"), "1");
        ASSERT_TRUE(ini.Flush(true));
    }
    EXPECT_EQ(text_of(path), "\n[ Sec ]\nk = 1\n\n[ SEC ]\nk = 2\n\n");
}

TEST(IniFile, DuplicateKeysFirstWinsAndWritingChangesTheFirst) {
    TTempDir dir;
    auto path = dir.Write("a.ini", std::string("k=1\nK=2\n"));
    {
        TIniFile ini(path, kReadWrite, kMaxLen);
        EXPECT_EQ(read(ini, "k"), "1");
        ini.WriteValue("K", "3");
    }
    EXPECT_EQ(text_of(path), "k = 3\nK = 2\n\n");
}

TEST(IniFile, CleanFlushWritesNothing) {
    TTempDir dir;
    const std::string original = "k=v\n[S]\nx=y\n";
    auto path = dir.Write("a.ini", original);
    {
        TIniFile ini(path, kReadWrite, kMaxLen);
        ini.ChangeSection("New");
        EXPECT_FALSE(ini.IsDirty());
        EXPECT_FALSE(ini.Flush());
    }
    EXPECT_EQ(text_of(path), original);
}

TEST(IniFile, GlobalPairIsWrittenWithoutAHeader) { EXPECT_EQ(rewritten("k=v"), "k = v\n\n"); }

TEST(IniFile, NewFileStartsWithTheEmptyGlobalSectionsLine) {
    TTempDir dir;
    auto path = dir.Path() / "new.ini";
    {
        TIniFile ini(path, kReadWrite | kCreateFile, kMaxLen);
        ini.ChangeSection("Main");
        ini.WriteComment("first line\nsecond line");
        ini.WriteValue("name", "Quill");
    }
    EXPECT_EQ(text_of(path), "\n[ Main ]\n; first line\n; second line\nname = Quill\n\n");
}

TEST(IniFile, FlushDoesNotTruncateTheStream) {
    TTempDir dir;
    auto path = dir.Write("a.ini", std::string("k = a rather long value\n"));
    {
        TIniFile ini(path, kReadWrite, kMaxLen);
        ini.WriteValue("k", "x");
    }
    EXPECT_EQ(text_of(path), "k = x\n\nather long value\n");
}

TEST(IniFile, ValuesAreWrittenInTheirTextForms) {
    TTempDir dir;
    auto path = dir.Path() / "forms.ini";
    {
        TIniFile ini(path, kReadWrite | kCreateFile, kMaxLen);
        ini.WriteValue("on", true);
        ini.WriteValue("off", false);
        ini.WriteValue("int32", int32_t{-2147483647 - 1});
        ini.WriteValue("int64", int64_t{9007199254740993});
        ini.WriteValue("half", 1.5f);
        ini.WriteValue("big", 1234567.0f);
        ini.WriteValue("orange", rgb_color{255, 128, 0, 255});
    }
    EXPECT_EQ(text_of(path),
              "on = 1\noff = 0\nint32 = -2147483648\nint64 = 9007199254740993\nhalf = 1.5\n"
              "big = 1.23457e+06\norange = 255 128 0 255\n\n");
}

TEST(IniFile, ValuesReadBackAsTheyWereWritten) {
    TIniFile ini(kMaxLen);
    ini.ChangeSection("S");
    ini.WriteValue("flag", true);
    ini.WriteValue("n", int32_t{-42});
    ini.WriteValue("big", int64_t{1} << 40);
    ini.WriteValue("f", 0.25f);
    ini.WriteValue("c", rgb_color{10, 20, 30, 40});
    bool flag = false;
    int32_t n = 0;
    int64_t big = 0;
    float f = 0;
    rgb_color c;
    EXPECT_TRUE(ini.ReadValue("flag", &flag));
    EXPECT_TRUE(ini.ReadValue("n", &n));
    EXPECT_TRUE(ini.ReadValue("big", &big));
    EXPECT_TRUE(ini.ReadValue("f", &f));
    EXPECT_TRUE(ini.ReadValue("c", &c));
    EXPECT_TRUE(flag);
    EXPECT_EQ(n, -42);
    EXPECT_EQ(big, int64_t{1} << 40);
    EXPECT_EQ(f, 0.25f);
    EXPECT_EQ(c, (rgb_color{10, 20, 30, 40}));
}

TEST(IniFile, NumbersParseLikeStreamExtraction) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("n = 42abc\nplus = +7\ntwo = 2\nzero = 0\n"
                                                "c = 256 -1 3 4 5\nf = 2.5e1x\n")),
                 kReadOnly, kMaxLen);
    int32_t n = 0;
    int32_t plus = 0;
    bool two = false;
    bool zero = true;
    rgb_color c;
    float f = 0;
    ini.ReadValue("n", &n);
    ini.ReadValue("plus", &plus);
    ini.ReadValue("two", &two);
    ini.ReadValue("zero", &zero);
    ini.ReadValue("c", &c);
    ini.ReadValue("f", &f);
    EXPECT_EQ(n, 42);
    EXPECT_EQ(plus, 7);
    EXPECT_TRUE(two);
    EXPECT_FALSE(zero);
    EXPECT_EQ(c, (rgb_color{0, 255, 3, 4}));
    EXPECT_EQ(f, 25.0f);
}

TEST(IniFile, PresentKeyThatDoesNotParseReadsTrueAndKeepsTheDefault) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("n = abc\nbig = 99999999999\nc = 1 2 3\n")),
                 kReadOnly, kMaxLen);
    int32_t n = 7;
    int32_t big = 8;
    rgb_color c{9, 9, 9, 9};
    EXPECT_TRUE(ini.ReadValue("n", &n));
    EXPECT_TRUE(ini.ReadValue("big", &big));
    EXPECT_TRUE(ini.ReadValue("c", &c));
    EXPECT_EQ(n, 7);
    EXPECT_EQ(big, 8);
    EXPECT_EQ(c, (rgb_color{9, 9, 9, 9}));
}

TEST(IniFile, DeleteKeyMakesDirtyOnlyWhenAPairGoes) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("a=1\nA=2\n")), kReadOnly, kMaxLen);
    EXPECT_FALSE(ini.DeleteKey("missing"));
    EXPECT_FALSE(ini.IsDirty());
    EXPECT_TRUE(ini.DeleteKey("a"));
    EXPECT_TRUE(ini.IsDirty());
    EXPECT_EQ(read(ini, "a"), "2");
}

TEST(IniFile, DeletingTheCurrentSectionMakesTheFrontCurrent) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("g=1\n[One]\nk=1\n[Two]\nk=2\n")), kReadOnly,
                 kMaxLen);
    ini.ChangeSection("Two");
    EXPECT_TRUE(ini.DeleteSection("two"));
    EXPECT_TRUE(ini.IsDirty());
    EXPECT_EQ(read(ini, "g"), "1");
    EXPECT_EQ(sections_of(ini), (std::vector<std::string>{kGlobal, "One"}));
    EXPECT_FALSE(ini.DeleteSection("Two"));
}

TEST(IniFile, DeletingTheGlobalSectionLeavesAnEmptyOneInFront) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string("g=1\n[One]\nk=1\n")), kReadOnly, kMaxLen);
    ini.ChangeSection("One");
    EXPECT_TRUE(ini.DeleteSection(kGlobal));
    EXPECT_EQ(sections_of(ini), (std::vector<std::string>{kGlobal, "One"}));
    EXPECT_EQ(read(ini, "k"), "1");
    ini.ChangeSection(kGlobal);
    EXPECT_TRUE(keys_of(ini).empty());
}

TEST(IniFile, CommentsAreReadInOrderPerSection) {
    TTempDir dir;
    TIniFile ini(dir.Write("a.ini", std::string(";top\n[S]\n; one\n;two\n")), kReadOnly, kMaxLen);
    std::string comment;
    EXPECT_TRUE(ini.ReadComment(&comment));
    EXPECT_EQ(comment, "top");
    EXPECT_FALSE(ini.ReadComment(&comment));
    ini.ChangeSection("s");
    EXPECT_TRUE(ini.ReadComment(&comment));
    EXPECT_EQ(comment, "one");
    EXPECT_TRUE(ini.ReadComment(&comment));
    EXPECT_EQ(comment, "two");
    EXPECT_FALSE(ini.ReadComment(&comment));
}

TEST(IniFile, FileThatCannotBeOpenedLoadsAsAnEmptyGlobalSection) {
    TTempDir dir;
    TIniFile ini(kMaxLen);
    EXPECT_EQ(ini.SetTo(dir.Path() / "no" / "such.ini", kReadOnly, kMaxLen), -ENOENT);
    EXPECT_EQ(sections_of(ini), std::vector<std::string>{kGlobal});
    std::string value = "default";
    EXPECT_FALSE(ini.ReadValue("k", &value));
    EXPECT_EQ(value, "default");
}

TEST(IniFile, DirectoryLoadsNoSectionAtAll) {
    TTempDir dir;
    TIniFile ini(dir.Path(), kReadOnly, kMaxLen);
    EXPECT_TRUE(sections_of(ini).empty());
    EXPECT_EQ(ini.CurrentSection(), nullptr);
    EXPECT_FALSE(ini.WriteValue("k", "v"));
    EXPECT_FALSE(ini.KeyExists("k"));
}

TEST(IniFile, WithoutAStreamThereIsNoSectionUntilOneIsChosen) {
    TIniFile ini(kMaxLen);
    EXPECT_TRUE(sections_of(ini).empty());
    EXPECT_FALSE(ini.WriteValue("k", "v"));
    ini.ChangeSection("S");
    EXPECT_TRUE(ini.WriteValue("k", "v"));
    EXPECT_EQ(read(ini, "K"), "v");
    EXPECT_FALSE(ini.Flush(true));
}

TEST(IniFile, FileInAFolderByName) {
    TTempDir dir;
    dir.Write("named.ini", std::string("[S]\nk=v\n"));
    TIniFile ini(dir.Path(), "named.ini", kReadOnly, kMaxLen);
    EXPECT_TRUE(ini.SectionExists("s"));
}

TEST(IniFile, MemoryStreamLoadsAndReceivesTheFlush) {
    const std::string text = "[S]\nk=v\n";
    TMemoryIO memory(text.data(), text.size());
    {
        TIniFile ini(&memory, kMaxLen);
        ini.ChangeSection("S");
        EXPECT_EQ(read(ini, "k"), "v");
        ini.WriteValue("k", "w");
    }
    const std::vector<uint8_t>& bytes = memory.Bytes();
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "\n[ S ]\nk = w\n\n");
}

TEST(IniFile, StreamLargerThanTheCapLoadsAsEmpty) {
    std::string text = "k = v\n";
    text.resize(TIniFile::kMaxStreamBytes + 1, ' ');
    TMemoryIO memory(text.data(), text.size());
    TIniFile ini(&memory, kMaxLen);
    EXPECT_EQ(sections_of(ini), std::vector<std::string>{kGlobal});
    EXPECT_FALSE(ini.KeyExists("k"));
}

TEST(IniFile, UnsetFlushesAndForgetsEverything) {
    TTempDir dir;
    auto path = dir.Write("a.ini", std::string("k=v\n"));
    TIniFile ini(path, kReadWrite, kMaxLen);
    ini.WriteValue("k", "w");
    ini.Unset();
    EXPECT_TRUE(sections_of(ini).empty());
    EXPECT_EQ(text_of(path), "k = w\n\n");
}
