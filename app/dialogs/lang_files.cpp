#include "app/dialogs/lang_files.h"

#include <algorithm>
#include <system_error>

#include "veldan/base/strings.h"
#include "veldan/core/entry.h"
#include "veldan/core/llt.h"

std::vector<TLangFileInfo> get_lang_files(const std::filesystem::path& folder) {
    std::vector<TLangFileInfo> files;
    std::error_code error;
    std::filesystem::directory_iterator entries(folder, error);
    if (error) return files;
    for (const std::filesystem::directory_entry& entry : entries) {
        if (!entry.is_regular_file(error)) continue;
        if (!veldan::equals_ignoring_case(entry.path().extension().string(), ".llt")) continue;
        veldan::TLLT texts;
        if (texts.Load(entry.path().c_str()) != 0) continue;
        TLangFileInfo info;
        info.fileName = entry.path().filename().string();
        // A file that names no language is still offered, under its own name.
        info.languageName =
            texts.LanguageName().empty() ? entry.path().stem().string() : texts.LanguageName();
        info.writer = texts.Writer();
        info.specialThanks = texts.SpecialThanks();
        files.push_back(std::move(info));
    }
    std::sort(files.begin(), files.end(), [](const TLangFileInfo& a, const TLangFileInfo& b) {
        return a.fileName < b.fileName;
    });
    return files;
}

std::filesystem::path default_language_folder() { return veldan::app_dir() / "Language"; }
