#pragma once
// The language files the user can choose: every ".llt" file that loads as a language table,
// from the "Language" folder beside the executable and from the user's own, which holds the
// languages a user added where the program's folder cannot be written (an installed
// program). A file of the same name in a later folder wins.

#include <filesystem>
#include <string>
#include <vector>

struct TLangFileInfo {
    std::string fileName;  // leaf name, as the preference "LLTF" holds it
    std::string languageName;
    std::string writer;
    std::string specialThanks;
};

// The folders looked in, in rising precedence.
using TLanguageFolders = std::vector<std::filesystem::path>;

// In file-name order, each name once. A file without a valid header is left out; a folder
// that can't be read gives none.
std::vector<TLangFileInfo> get_lang_files(const TLanguageFolders& folders);
// The file of that leaf name in the folder of highest precedence that has it; empty when
// none has.
std::filesystem::path find_lang_file(const TLanguageFolders& folders, const std::string& name);
// Where a language the user adds is copied: the first folder that can be written (made
// when missing); empty when none can.
std::filesystem::path lang_drop_folder(const TLanguageFolders& folders);
// Where a language file of that leaf name is copied so that it is the one found: the
// first writable folder (made when missing) not below the folder that holds the name
// now, so that an older copy in a folder of higher precedence can't hide the new one.
// Empty when there is no such folder.
std::filesystem::path lang_drop_folder(const TLanguageFolders& folders, const std::string& name);

// "Language" beside the executable.
std::filesystem::path default_language_folder();
// "quillmidi/Language" in the user's data folder ($XDG_DATA_HOME, else ~/.local/share).
std::filesystem::path user_language_folder();
// The folder beside the executable (installed), then the user's.
TLanguageFolders language_folders(const std::filesystem::path& installed);
