#include "app/dialogs/lang_files.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <system_error>

#include "veldan/base/strings.h"
#include "veldan/core/entry.h"
#include "veldan/core/llt.h"

namespace fs = std::filesystem;

namespace {

constexpr char kLanguageFolder[] = "Language";

void add_lang_files(const fs::path& folder, std::vector<TLangFileInfo>* into) {
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    if (error) return;
    for (const fs::directory_entry& entry : entries) {
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
        auto same = std::find_if(into->begin(), into->end(), [&](const TLangFileInfo& known) {
            return known.fileName == info.fileName;
        });
        if (same != into->end())
            *same = std::move(info);
        else
            into->push_back(std::move(info));
    }
}

bool is_writable_folder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    return fs::is_directory(folder, error) && access(folder.c_str(), W_OK) == 0;
}

}  // namespace

std::vector<TLangFileInfo> get_lang_files(const TLanguageFolders& folders) {
    std::vector<TLangFileInfo> files;
    for (const fs::path& folder : folders) add_lang_files(folder, &files);
    std::sort(files.begin(), files.end(), [](const TLangFileInfo& a, const TLangFileInfo& b) {
        return a.fileName < b.fileName;
    });
    return files;
}

fs::path find_lang_file(const TLanguageFolders& folders, const std::string& name) {
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        std::error_code error;
        if (fs::is_regular_file(*folder / name, error)) return *folder / name;
    }
    return {};
}

fs::path lang_drop_folder(const TLanguageFolders& folders) {
    for (const fs::path& folder : folders)
        if (is_writable_folder(folder)) return folder;
    return {};
}

fs::path lang_drop_folder(const TLanguageFolders& folders, const std::string& name) {
    size_t from = 0;
    for (size_t i = 0; i < folders.size(); ++i) {
        std::error_code error;
        if (fs::is_regular_file(folders[i] / name, error)) from = i;
    }
    for (size_t i = from; i < folders.size(); ++i)
        if (is_writable_folder(folders[i])) return folders[i];
    return {};
}

fs::path default_language_folder() { return veldan::app_dir() / kLanguageFolder; }

fs::path user_language_folder() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && data[0] == '/') return fs::path(data) / "quillmidi" / kLanguageFolder;
    const char* home = std::getenv("HOME");
    if (!home || !home[0]) return {};
    return fs::path(home) / ".local/share/quillmidi" / kLanguageFolder;
}

TLanguageFolders language_folders(const fs::path& installed) {
    TLanguageFolders folders = {installed};
    if (fs::path user = user_language_folder(); !user.empty()) folders.push_back(user);
    return folders;
}
