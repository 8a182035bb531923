#include "veldan/base/text_encoding.h"

#include <gtest/gtest.h>

using namespace veldan;

namespace {

// "Nihon" (日本) in Shift-JIS and in UTF-8.
const std::string kNihonSjis = "\x93\xFA\x96\x7B";
const std::string kNihonUtf8 = "\xE6\x97\xA5\xE6\x9C\xAC";

}  // namespace

TEST(TextEncoding, Utf8IsKeptAsItIs) {
    EXPECT_EQ(detect_encoding("plain ascii"), TTextEncoding::kUtf8);
    EXPECT_EQ(detect_encoding(kNihonUtf8), TTextEncoding::kUtf8);
    EXPECT_EQ(to_utf8(kNihonUtf8), kNihonUtf8);
}

TEST(TextEncoding, Utf8RefusesOverlongSurrogateAndCutShortForms) {
    EXPECT_FALSE(is_valid_utf8("\xC0\xAF"));          // overlong "/"
    EXPECT_FALSE(is_valid_utf8("\xE0\x80\xAF"));      // overlong "/"
    EXPECT_FALSE(is_valid_utf8("\xED\xA0\x80"));      // U+D800
    EXPECT_FALSE(is_valid_utf8("\xF4\x90\x80\x80"));  // past U+10FFFF
    EXPECT_FALSE(is_valid_utf8("ok \xE6\x97"));
    EXPECT_TRUE(is_valid_utf8("\xF0\x9F\x8E\xB5"));  // a musical note emoji
}

TEST(TextEncoding, ShiftJisWithoutHalfWidthKatakanaIsReadAsShiftJis) {
    EXPECT_EQ(detect_encoding(kNihonSjis), TTextEncoding::kShiftJis);
    EXPECT_EQ(to_utf8(kNihonSjis), kNihonUtf8);
    // Code page 932 keeps "~" a tilde, where plain Shift-JIS would give an overline.
    EXPECT_EQ(to_utf8(kNihonSjis + "~"), kNihonUtf8 + "~");
}

TEST(TextEncoding, AccentedLatin1CapitalsAreNotTakenForHalfWidthKatakana) {
    // "ÉTÉ" converts as Shift-JIS into half-width katakana; a user of Latin-1 meant the capitals.
    const std::string ete = "\xC9T\xC9";
    EXPECT_EQ(detect_encoding(ete), TTextEncoding::kLatin1);
    EXPECT_EQ(to_utf8(ete), "\xC3\x89T\xC3\x89");
}

TEST(TextEncoding, BytesThatAreNeitherUtf8NorShiftJisAreLatin1) {
    // 0x81 followed by a byte that cannot end a Shift-JIS pair.
    const std::string bytes = "caf\xE9 \x81\x20";
    EXPECT_EQ(detect_encoding(bytes), TTextEncoding::kLatin1);
    EXPECT_EQ(to_utf8(bytes), "caf\xC3\xA9 \xC2\x81\x20");
}

TEST(TextEncoding, ABadShiftJisByteFailsOrIsSubstitutedAsAsked) {
    const std::string bytes = kNihonSjis + "\x81\x20" + "x";
    std::string utf8 = "untouched";
    EXPECT_FALSE(sjis_to_utf8(bytes, &utf8));
    EXPECT_EQ(utf8, "untouched");
    ASSERT_TRUE(sjis_to_utf8(bytes, &utf8, TBadSjisByte::kSubstitute));
    EXPECT_EQ(utf8.substr(0, kNihonUtf8.size()), kNihonUtf8);
    EXPECT_NE(utf8.find('\x1A'), std::string::npos);
    EXPECT_EQ(utf8.back(), 'x');
}
