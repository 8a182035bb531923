#pragma once
// Where the program finds its files: beside the executable, in the user's settings
// folder, or under a given folder. A file reference is an absolute path.
//
// The user settings folder is the XDG configuration folder: $XDG_CONFIG_HOME when it is
// an absolute path, else ~/.config. The maker's files lie in its "VELDAN" folder.

#include <cstdint>
#include <filesystem>

namespace veldan {

enum TBaseDir : int32_t {
    BD_PATH = 0,      // sub is an absolute folder
    BD_APP = 1,       // the executable's folder, then sub
    BD_SETTINGS = 2,  // the user settings folder, then "VELDAN", then sub
};

// Sets *entry to name inside the folder chosen by base and sub; an absolute name is
// taken as it is. The folder (not the file) is created, permissions 0777 less the umask,
// for BD_APP and BD_SETTINGS. False for an empty name or a folder that can't be had.
bool get_entry(const char* name, std::filesystem::path* entry, TBaseDir base, const char* sub);

// The entry name inside the folder dir; always true.
bool get_ref(const std::filesystem::path& dir, const char* name, std::filesystem::path* ref);

// The path of a reference; empty for none.
std::filesystem::path path_for_ref(const std::filesystem::path* ref);
// A path the user gave (on the command line, say) as a reference: made absolute against
// the working folder, or as it stands when that can't be done.
std::filesystem::path ref_for_path(const std::filesystem::path& path);

// The user's home folder ($HOME, else the password database); empty when unknown.
std::filesystem::path home_dir();

// The XDG configuration folder; empty when neither it nor a home folder is known.
std::filesystem::path user_settings_dir();

// The folder that holds the running executable (from /proc/self/exe).
std::filesystem::path app_dir();

}  // namespace veldan
