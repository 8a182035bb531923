#include "veldan/core/entry.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>

namespace veldan {

namespace {

constexpr char kMakerFolder[] = "VELDAN";

// Folder with sub appended, created when missing; empty when it can't be had.
std::filesystem::path ensure_folder(const std::filesystem::path& base, const char* sub) {
    if (base.empty()) return {};
    const std::filesystem::path folder = (sub && sub[0] ? base / sub : base).lexically_normal();
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    return std::filesystem::is_directory(folder, error) ? folder : std::filesystem::path();
}

}  // namespace

std::filesystem::path home_dir() {
    const char* home = std::getenv("HOME");
    if (home && home[0] == '/') return home;
    const passwd* user = getpwuid(getuid());
    return user && user->pw_dir ? std::filesystem::path(user->pw_dir) : std::filesystem::path();
}

std::filesystem::path user_settings_dir() {
    const char* config = std::getenv("XDG_CONFIG_HOME");
    if (config && config[0] == '/') return config;
    const std::filesystem::path home = home_dir();
    return home.empty() ? home : home / ".config";
}

std::filesystem::path app_dir() {
    std::error_code error;
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path() : exe.parent_path();
}

bool get_entry(const char* name, std::filesystem::path* entry, TBaseDir base, const char* sub) {
    if (!name || !name[0] || !entry) return false;
    if (name[0] == '/') {
        *entry = name;
        return true;
    }
    std::filesystem::path folder;
    switch (base) {
        case BD_PATH:
            if (!sub || sub[0] != '/') return false;
            folder = std::filesystem::path(sub).lexically_normal();
            break;
        case BD_APP:
            folder = ensure_folder(app_dir(), sub);
            break;
        case BD_SETTINGS: {
            const std::filesystem::path settings = user_settings_dir();
            folder = ensure_folder(settings.empty() ? settings : settings / kMakerFolder, sub);
            break;
        }
    }
    if (folder.empty()) return false;
    *entry = folder / name;
    return true;
}

bool get_ref(const std::filesystem::path& dir, const char* name, std::filesystem::path* ref) {
    *ref = dir / (name ? name : "");
    return true;
}

std::filesystem::path path_for_ref(const std::filesystem::path* ref) {
    return ref ? *ref : std::filesystem::path();
}

std::filesystem::path ref_for_path(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(path, error);
    return error ? path : absolute;
}

}  // namespace veldan
