#include "app/settings/settings.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "veldan/core/entry.h"
#include "veldan/core/llt.h"

namespace {

constexpr char kResetEnvironment[] = "QUILLMIDI_RESET_SETTINGS";
constexpr Qt::KeyboardModifiers kResetChord =
    Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;

bool load_record(veldan::TArchivable& record, const char* name) {
    std::filesystem::path entry;
    return settings_entry(name, &entry) && record.Load(entry);
}

std::function<void(const std::filesystem::path&)>& failure_fn() {
    static std::function<void(const std::filesystem::path&)> show;
    return show;
}

}  // namespace

bool save_settings_file(const veldan::TArchivable& record, const char* name) {
    std::filesystem::path entry;
    if (!settings_entry(name, &entry)) {
        report_settings_failure(std::string("no settings folder for ") + name, name);
        return false;
    }
    std::string error;
    if (record.Save(entry, &error)) return true;
    report_settings_failure(error, entry);
    return false;
}

void report_settings_failure(const std::string& reason, const std::filesystem::path& file) {
    if (!reason.empty()) std::fprintf(stderr, "quillmidi: %s\n", reason.c_str());
    if (failure_fn()) failure_fn()(file);
}

void set_settings_failure_fn(std::function<void(const std::filesystem::path& file)> show) {
    failure_fn() = std::move(show);
}

TAppPrivacy& app_privacy() {
    static TAppPrivacy privacy;
    return privacy;
}

TExitState& exit_state() {
    static TExitState state;
    return state;
}

veldan::TLLT& language_table() {
    static veldan::TLLT texts;
    return texts;
}

TPref& pref() {
    static TPref preferences;
    return preferences;
}

bool is_reset_chord_held() {
    const char* forced = std::getenv(kResetEnvironment);
    if (forced && std::strcmp(forced, "1") == 0) return true;
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance())) return false;
    return (QGuiApplication::queryKeyboardModifiers() & kResetChord) == kResetChord;
}

bool load_global() {
    if (is_reset_chord_held()) {
        save_pref(true);
        return false;
    }
    const bool exitStateLoaded = load_record(exit_state(), kExitStateFile);
    const bool prefLoaded = load_record(pref(), kPrefsFile);
    return exitStateLoaded && prefLoaded;
}

bool save_exit_state() {
    return !is_reset_chord_held() && save_settings_file(exit_state(), kExitStateFile);
}

bool save_pref(bool force) {
    return (force || !is_reset_chord_held()) && save_settings_file(pref(), kPrefsFile);
}

bool is_file_exists(const char* path) {
    std::error_code error;
    return path && path[0] && std::filesystem::exists(std::filesystem::symlink_status(path, error));
}

bool settings_entry(const char* name, std::filesystem::path* entry) {
    return veldan::get_entry(name, entry, veldan::BD_SETTINGS, kSettingsFolder);
}
