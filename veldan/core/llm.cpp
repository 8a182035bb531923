#include "veldan/core/llm.h"

#include <filesystem>

#include "veldan/core/entry.h"

namespace veldan {

namespace {

bool is_empty(const char* text) { return !text || !*text; }

}  // namespace

bool TLLM::Load(const char* folder, const char* file, const QString& resourceRoot) {
    TRsrcMsg source;
    std::filesystem::path entry;
    if (!is_empty(folder) && !is_empty(file) && get_entry(file, &entry, BD_PATH, folder)) {
        source.SetTo(entry);
    }
    fMessage.MakeEmpty();
    bool loaded = source.GetMessage(kMessageName, &fMessage, resourceRoot);
    if (!loaded) {
        source.Unset();
        source.GetMessage(kMessageName, &fMessage, resourceRoot);
    }
    fTexts.clear();
    std::string text;
    for (int32_t i = 0; fMessage.FindString(kTextsField, i, &text); ++i) fTexts.push_back(text);
    GenerateRelativeMsg();
    return loaded;
}

bool TLLM::Load(const char* folder, const char* const* files, TLang lang,
                const QString& resourceRoot) {
    bool known = files && (lang == LANG_JAPANESE || lang == LANG_ENGLISH);
    const char* file = known ? files[lang] : nullptr;
    bool loaded = Load(folder, file, resourceRoot);
    if (!loaded) ReportFailure(folder, file, lang);
    return loaded;
}

void TLLM::ReportFailure(const char* folder, const char* file, TLang lang) const {
    if (!fShowMsg) return;
    if (lang == LANG_JAPANESE) {
        fShowMsg("",
                 "日本語メッセージがロードできません。\n"
                 "実行ファイルが壊れている可能性があります。",
                 "ＯＫ", TAlertType::kWarning);
        return;
    }
    std::string path = folder ? folder : "";
    if (!path.empty() && path.back() != '/') path += '/';
    path += file ? file : "";
    fShowMsg("", ("Could not load the language file:\n" + path).c_str(), "OK",
             TAlertType::kWarning);
}

const char* TLLM::Msg(int index) const {
    if (index < 0 || size_t(index) >= fTexts.size()) return "";
    return fTexts[size_t(index)].c_str();
}

}  // namespace veldan
