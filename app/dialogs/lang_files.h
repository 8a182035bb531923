#pragma once
// The language files the user can choose: every ".llt" file of the "Language" folder
// beside the executable that loads as a language table.

#include <filesystem>
#include <string>
#include <vector>

struct TLangFileInfo {
    std::string fileName;  // leaf name, as the preference "LLTF" holds it
    std::string languageName;
    std::string writer;
    std::string specialThanks;
};

// In file-name order. A file without a valid header is left out; a folder that can't be
// read gives none.
std::vector<TLangFileInfo> get_lang_files(const std::filesystem::path& folder);

// "Language" beside the executable.
std::filesystem::path default_language_folder();
