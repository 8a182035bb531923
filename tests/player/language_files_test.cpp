#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "tests/player/language_fixture.h"

namespace {

std::set<std::string> keys_of(const veldan::TLLT& texts) {
    std::set<std::string> keys;
    for (const auto& [key, text] : texts.TextMap()) keys.insert(key);
    return keys;
}

std::string read_text(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Every key the program's sources look up: literals given to Text(...) or marked with
// llt_key(...), and constants named kText... .
std::set<std::string> keys_looked_up() {
    static const std::regex lookup(R"re(\b(?:llt_key|Text)\(\s*"([^"]+)"\s*\))re");
    static const std::regex constant(R"re(\bkText\w*\[\]\s*=\s*"([^"]+)")re");
    std::set<std::string> keys;
    const std::filesystem::path root(QUILL_SOURCE_DIR);
    for (const char* module :
         {"veldan", "midi", "engine", "playlist", "loaders", "player", "app"}) {
        if (!std::filesystem::is_directory(root / module)) continue;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root / module)) {
            const std::string extension = entry.path().extension().string();
            if (extension != ".cpp" && extension != ".h") continue;
            const std::string source = read_text(entry.path());
            for (const std::regex* pattern : {&lookup, &constant}) {
                for (std::sregex_iterator it(source.begin(), source.end(), *pattern), end;
                     it != end; ++it) {
                    keys.insert((*it)[1].str());
                }
            }
        }
    }
    return keys;
}

void expect_all_in(const std::set<std::string>& keys, const veldan::TLLT& texts,
                   const char* where) {
    for (const std::string& key : keys) {
        EXPECT_EQ(texts.TextMap().count(key), 1u) << key << " is missing from " << where;
    }
}

TEST(LanguageFiles, BothFilesLoadWithTheirNames) {
    EXPECT_EQ(file_language("English.llt").LanguageName(), "English");
    EXPECT_EQ(file_language("Japanese.llt").LanguageName(), "日本語");
}

TEST(LanguageFiles, JapaneseHasEveryEnglishKeyAndNoOther) {
    const veldan::TLLT english = file_language("English.llt");
    const veldan::TLLT japanese = file_language("Japanese.llt");
    ASSERT_GT(english.TextMap().size(), 100u);
    expect_all_in(keys_of(english), japanese, "Japanese.llt");
    expect_all_in(keys_of(japanese), english, "English.llt");
}

TEST(LanguageFiles, TheBuiltInLanguageHasEveryEnglishText) {
    const veldan::TLLT english = file_language("English.llt");
    const veldan::TLLT builtin = builtin_language();
    EXPECT_EQ(builtin.TextMap(), english.TextMap());
}

TEST(LanguageFiles, NoTextIsEmpty) {
    for (const char* name : {"English.llt", "Japanese.llt"}) {
        const veldan::TLLT texts = file_language(name);
        for (const auto& [key, text] : texts.TextMap()) {
            EXPECT_FALSE(text.empty()) << key << " in " << name;
        }
    }
}

TEST(LanguageFiles, EveryKeyTheProgramLooksUpIsInEnglish) {
    const std::set<std::string> keys = keys_looked_up();
    for (const char* known : {"ToolTip_Play", "ReadOut_Volume", "Alert_Caption"}) {
        EXPECT_EQ(keys.count(known), 1u) << "the source scan missed " << known;
    }
    expect_all_in(keys, file_language("English.llt"), "English.llt");
}

}  // namespace
