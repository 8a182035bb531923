#include "veldan/core/llt.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QString>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

using namespace veldan;

namespace {

std::string llt_file(const std::string& informations, const std::string& data) {
    return "[Informations]\n" + informations + "\n[Data]\n" + data + "\n";
}

std::string valid_file(const std::string& data) {
    return llt_file("Header = LLT File Format 100", data);
}

// The text that a single data value decodes to.
std::string decoded(const std::string& value) {
    TLLT table;
    EXPECT_EQ(table.LoadData(QByteArray::fromStdString(valid_file("k = " + value))), 0);
    return table.Text("k");
}

struct TAlert {
    std::string title;
    std::string text;
    std::string button;
    TAlertType type;
};

}  // namespace

TEST(LLT, LoadsInformationAndTextsFromAFile) {
    TTempDir dir;
    auto path =
        dir.Write("English.llt", llt_file("Header = LLT File Format 100\nLanguage = English\n"
                                          "Writer = Someone\nSpecialThanks = Everybody",
                                          "Play = Play\nStop = Stop"));
    TLLT table;
    EXPECT_EQ(table.Load(path.c_str()), 0);
    EXPECT_EQ(table.LanguageName(), "English");
    EXPECT_EQ(table.Writer(), "Someone");
    EXPECT_EQ(table.SpecialThanks(), "Everybody");
    EXPECT_STREQ(table.Text("Play"), "Play");
    EXPECT_STREQ(table.Text("Stop"), "Stop");
    EXPECT_EQ(table.TextMap().size(), 2u);
}

TEST(LLT, HeaderFollowedByBlanksIsAccepted) {
    TLLT table;
    std::string file = llt_file("Header = LLT File Format 100   \t", "k = v");
    EXPECT_EQ(table.LoadData(QByteArray::fromStdString(file)), 0);
    EXPECT_STREQ(table.Text("k"), "v");
}

TEST(LLT, WrongOrMissingHeaderIsRejectedAndChangesNothing) {
    TLLT table;
    ASSERT_EQ(table.LoadData(QByteArray::fromStdString(
                  llt_file("Header = LLT File Format 100\nLanguage = First", "k = kept"))),
              0);
    for (const char* informations :
         {"Header = llt file format 100\nLanguage = Other",
          "Header = LLT File Format 101\nLanguage = Other", "Language = Other"}) {
        std::string file = llt_file(informations, "k = lost\nnew = lost");
        EXPECT_EQ(table.LoadData(QByteArray::fromStdString(file)), -1) << informations;
    }
    EXPECT_EQ(table.LanguageName(), "First");
    EXPECT_STREQ(table.Text("k"), "kept");
    EXPECT_EQ(table.TextMap().size(), 1u);
}

TEST(LLT, UnreadableFileIsRejected) {
    TTempDir dir;
    TLLT table;
    EXPECT_EQ(table.Load((dir.Path() / "missing.llt").c_str()), -1);
    EXPECT_EQ(table.Load(dir.Path().c_str()), -1);
}

TEST(LLT, EscapesDecodeByTheParityOfHashRuns) {
    EXPECT_EQ(decoded("a#nb"), "a\nb");
    EXPECT_EQ(decoded("a##nb"), "a#nb");
    EXPECT_EQ(decoded("a###nb"), "a#\nb");
    EXPECT_EQ(decoded("a####nb"), "a##nb");
    EXPECT_EQ(decoded("col1#tcol2"), "col1\tcol2");
    EXPECT_EQ(decoded("x#s"), "x ");
    EXPECT_EQ(decoded("#n#n"), "\n\n");
    EXPECT_EQ(decoded("#x#"), "#x#");
    EXPECT_EQ(decoded("###"), "##");
}

TEST(LLT, TwoLeadingSpaceEscapesKeepTwoSpaces) { EXPECT_EQ(decoded("#s#sindented"), "  indented"); }

TEST(LLT, DoubleHashAloneBecomesOneHash) { EXPECT_EQ(decoded("##"), "#"); }

TEST(LLT, KeysDifferingOnlyInCaseTakeTheFirstText) {
    TLLT table;
    ASSERT_EQ(table.LoadData(QByteArray::fromStdString(valid_file("Key = one\nKEY = two"))), 0);
    EXPECT_STREQ(table.Text("Key"), "one");
    EXPECT_STREQ(table.Text("KEY"), "one");
    EXPECT_STREQ(table.Text("key"), "");
}

TEST(LLT, SecondLoadAddsOnlyTheKeysTheFirstLacked) {
    TLLT table;
    ASSERT_EQ(table.LoadData(QByteArray::fromStdString(
                  llt_file("Header = LLT File Format 100\nLanguage = Built-in\nWriter = A",
                           "Play = Play\nStop = Stop"))),
              0);
    ASSERT_EQ(table.LoadData(QByteArray::fromStdString(
                  llt_file("Header = LLT File Format 100\nLanguage = Deutsch",
                           "Play = Abspielen\nPause = Pause"))),
              0);
    EXPECT_STREQ(table.Text("Play"), "Play");
    EXPECT_STREQ(table.Text("Stop"), "Stop");
    EXPECT_STREQ(table.Text("Pause"), "Pause");
    EXPECT_EQ(table.LanguageName(), "Deutsch");
    EXPECT_EQ(table.Writer(), "A");
}

TEST(LLT, InitLangInfoAndDataStartsAfresh) {
    TLLT table;
    ASSERT_EQ(table.LoadData(QByteArray::fromStdString(
                  llt_file("Header = LLT File Format 100\nLanguage = L\nWriter = W\n"
                           "SpecialThanks = S",
                           "Play = Play"))),
              0);
    table.InitLangInfoAndData();
    EXPECT_TRUE(table.TextMap().empty());
    EXPECT_EQ(table.LanguageName(), "");
    EXPECT_EQ(table.Writer(), "");
    EXPECT_EQ(table.SpecialThanks(), "");
    ASSERT_EQ(table.LoadData(QByteArray::fromStdString(valid_file("Play = Spielen"))), 0);
    EXPECT_STREQ(table.Text("Play"), "Spielen");
}

TEST(LLT, MissingKeyGivesEmptyTextAndAnAlertOnlyWhenAsked) {
    std::vector<TAlert> alerts;
    TLLT table;
    table.SetShowMsg(
        [&alerts](const char* title, const char* text, const char* button, TAlertType type) {
            alerts.push_back({title, text, button, type});
        });
    EXPECT_STREQ(table.Text("Nothing"), "");
    EXPECT_TRUE(alerts.empty());
    table.SET_SHOW_DB_INFO(true);
    EXPECT_STREQ(table.Text("Nothing"), "");
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].title, "TLLT::Text");
    EXPECT_EQ(alerts[0].text, "Nothing");
    EXPECT_EQ(alerts[0].button, "OK");
    EXPECT_EQ(alerts[0].type, TAlertType::kStop);
}

TEST(LLT, EmptyStoredTextIsFoundWithoutAnAlert) {
    int alerts = 0;
    TLLT table;
    table.SetShowMsg([&alerts](const char*, const char*, const char*, TAlertType) { ++alerts; });
    table.SET_SHOW_DB_INFO(true);
    ASSERT_EQ(table.LoadData(QByteArray::fromStdString(valid_file("Blank ="))), 0);
    EXPECT_STREQ(table.Text("Blank"), "");
    EXPECT_EQ(alerts, 0);
}

TEST(LLT, BuiltInResourceLoadsAndAMissingOneIsRejected) {
    TLLT table;
    EXPECT_EQ(table.LoadResource(QStringLiteral(":/no/such/language")), -1);
    EXPECT_EQ(table.LoadResource(QStringLiteral(":/test/builtin.llt")), 0);
    EXPECT_EQ(table.LanguageName(), "Built-in");
    EXPECT_STREQ(table.Text("Play"), "Play");
    EXPECT_STREQ(table.Text("Greeting"), " Hello,\nworld ");
}

TEST(LLT, AFallbackFillsOnlyTheKeysATranslationLacksAndKeepsItsInformation) {
    TLLT translation;
    ASSERT_EQ(translation.LoadData(QByteArray::fromStdString(
                  llt_file("Header = LLT File Format 100\nLanguage = Deutsch\nWriter = Jemand",
                           "Menu_File = Datei"))),
              0);
    TLLT builtin;
    ASSERT_EQ(builtin.LoadData(QByteArray::fromStdString(
                  llt_file("Header = LLT File Format 100\nLanguage = English\nWriter = Maker",
                           "Menu_File = File\nMenu_Help = Help"))),
              0);
    translation.AddMissingTexts(builtin);
    EXPECT_STREQ(translation.Text("Menu_File"), "Datei");
    EXPECT_STREQ(translation.Text("Menu_Help"), "Help");
    EXPECT_EQ(translation.LanguageName(), "Deutsch");
    EXPECT_EQ(translation.Writer(), "Jemand");
}
