#include "veldan/core/llm.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QString>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

using namespace veldan;

namespace {

TMessage texts_message(std::initializer_list<const char*> texts) {
    TMessage table;
    for (const char* text : texts) table.AddString(TLLM::kTextsField, text);
    return table;
}

std::vector<uint8_t> flattened(const TMessage& message) {
    QByteArray bytes;
    EXPECT_TRUE(message.Flatten(&bytes));
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

// A language's table file: one message holding the table under its name.
void write_table_file(const TTempDir& dir, const std::string& name, const TMessage& table) {
    TMessage file;
    file.AddMessage(TLLM::kMessageName, table);
    dir.Write(name, flattened(file));
}

// A resource folder that holds the built-in table, as the resources would.
QString write_resources(const TTempDir& dir, const TMessage& table) {
    dir.Write(std::string("rsrc/") + TLLM::kMessageName, flattened(table));
    return QString::fromStdString((dir.Path() / "rsrc").string());
}

struct TAlert {
    std::string title;
    std::string text;
    std::string button;
    TAlertType type;
};

class TRecordingLLM : public TLLM {
  public:
    std::vector<TAlert> alerts;
    std::vector<std::string> firstTextsSeen;

    TRecordingLLM() {
        SetShowMsg(
            [this](const char* title, const char* text, const char* button, TAlertType type) {
                alerts.push_back({title, text, button, type});
            });
    }

  protected:
    void GenerateRelativeMsg() override { firstTextsSeen.push_back(Msg(0)); }
};

}  // namespace

TEST(LLM, LoadsTheTextsOfTheLanguageFile) {
    TTempDir dir;
    write_table_file(dir, "English.rlm", texts_message({"Yes", "No"}));
    TRecordingLLM table;
    EXPECT_TRUE(
        table.Load(dir.Path().c_str(), "English.rlm", QStringLiteral(":/no/resources/here")));
    EXPECT_STREQ(table.Msg(0), "Yes");
    EXPECT_STREQ(table.Msg(1), "No");
    EXPECT_STREQ(table.Msg(2), "");
    EXPECT_STREQ(table.Msg(-1), "");
    EXPECT_EQ(table.firstTextsSeen, std::vector<std::string>{"Yes"});
}

TEST(LLM, FallsBackToTheResourcesWhenTheFileFails) {
    TTempDir dir;
    QString root = write_resources(dir, texts_message({"Built-in"}));
    TRecordingLLM table;
    EXPECT_FALSE(table.Load(dir.Path().c_str(), "missing.rlm", root));
    EXPECT_STREQ(table.Msg(0), "Built-in");
    EXPECT_EQ(table.firstTextsSeen, std::vector<std::string>{"Built-in"});
}

TEST(LLM, WithoutAFileTheResourcesAreTheFirstPlaceTried) {
    TTempDir dir;
    QString root = write_resources(dir, texts_message({"Built-in"}));
    TRecordingLLM table;
    EXPECT_TRUE(table.Load("", "", root));
    EXPECT_STREQ(table.Msg(0), "Built-in");
}

TEST(LLM, ReloadingReplacesTheTexts) {
    TTempDir dir;
    write_table_file(dir, "a.rlm", texts_message({"A0", "A1"}));
    write_table_file(dir, "b.rlm", texts_message({"B0"}));
    TRecordingLLM table;
    ASSERT_TRUE(table.Load(dir.Path().c_str(), "a.rlm"));
    ASSERT_TRUE(table.Load(dir.Path().c_str(), "b.rlm"));
    EXPECT_STREQ(table.Msg(0), "B0");
    EXPECT_STREQ(table.Msg(1), "");
}

TEST(LLM, FailureIsToldInTheLanguageAskedFor) {
    TTempDir dir;
    const char* files[] = {"Japanese.rlm", "English.rlm"};
    TRecordingLLM table;
    EXPECT_FALSE(table.Load("/no/such/folder", files, LANG_ENGLISH, QStringLiteral(":/none")));
    EXPECT_FALSE(table.Load("/no/such/folder", files, LANG_JAPANESE, QStringLiteral(":/none")));
    ASSERT_EQ(table.alerts.size(), 2u);
    EXPECT_EQ(table.alerts[0].title, "");
    EXPECT_EQ(table.alerts[0].text,
              "Could not load the language file:\n/no/such/folder/English.rlm");
    EXPECT_EQ(table.alerts[0].button, "OK");
    EXPECT_EQ(table.alerts[0].type, TAlertType::kWarning);
    EXPECT_EQ(table.alerts[1].text,
              "日本語メッセージがロードできません。\n実行ファイルが壊れている可能性があります。");
    EXPECT_EQ(table.alerts[1].button, "ＯＫ");
    EXPECT_EQ(table.alerts[1].type, TAlertType::kWarning);
}

TEST(LLM, LanguageFileThatLoadsRaisesNoAlert) {
    TTempDir dir;
    write_table_file(dir, "English.rlm", texts_message({"Yes"}));
    const char* files[] = {"Japanese.rlm", "English.rlm"};
    TRecordingLLM table;
    EXPECT_TRUE(table.Load(dir.Path().c_str(), files, LANG_ENGLISH));
    EXPECT_TRUE(table.alerts.empty());
    EXPECT_STREQ(table.Msg(0), "Yes");
}
