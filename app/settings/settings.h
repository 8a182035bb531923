#pragma once
// The process-wide settings records and the functions that load and save them.
//
// Settings files lie in the user settings folder under "VELDAN/QuillMIDI" (the folder is
// made on first use). A record that can't be read keeps what it had, the rest its defaults,
// silently. A file that can't be written is left as it was, and the user is told: one line
// on stderr, and the status line while a main window lives (report_settings_failure).
//
// The records are made on first use and live until the program ends, destroyed in the
// reverse order of their making; main touches app_privacy(), exit_state(),
// language_table() and pref() in that order before anything else.
//
// The settings-reset chord: Shift, Control, Alt and Meta held together at start (the
// original keyboard's Shift, Command, Control and Option). It is read from the keyboard
// only where a QGuiApplication exists; QUILLMIDI_RESET_SETTINGS=1 in the environment
// counts as the chord held, for machines without a display and for scripts.

#include <filesystem>
#include <functional>
#include <string>

#include "app/settings/app_privacy.h"
#include "app/settings/exit_state.h"
#include "player/pref.h"

namespace veldan {
class TArchivable;
class TLLT;
}  // namespace veldan

inline constexpr char kSettingsFolder[] = "QuillMIDI";
inline constexpr char kPrefsFile[] = "QuillMIDI_Prefs.arc";
inline constexpr char kExitStateFile[] = "QuillMIDI_ExitStates.arc";
inline constexpr char kMRUPlaylistsFile[] = "QuillMIDI_MRUPlaylists.arc";

TAppPrivacy& app_privacy();
TExitState& exit_state();
veldan::TLLT& language_table();
TPref& pref();

bool is_reset_chord_held();

// Loads the exit state, then the preferences; true only when both loaded. With the reset
// chord held, writes the default preferences over the file, loads nothing, and is false.
bool load_global();
// Writes the exit state, unless the reset chord is held.
bool save_exit_state();
// Writes the preferences, unless the reset chord is held and force is false.
bool save_pref(bool force);

// Writes record over the settings file name; on failure reports it and is false.
bool save_settings_file(const veldan::TArchivable& record, const char* name);

// A settings file (or the learned scores) could not be written: reason goes to stderr as
// one line (none when empty: the writer has told it already), and file to the function set
// below, which shows it on the status line.
void report_settings_failure(const std::string& reason, const std::filesystem::path& file);
// Set by the main window for its life; an empty function reports to stderr only.
void set_settings_failure_fn(std::function<void(const std::filesystem::path& file)> show);

// Whether the entry at path exists (a dangling link counts).
bool is_file_exists(const char* path);

// The settings file name in "VELDAN/QuillMIDI"; false when the folder can't be had.
bool settings_entry(const char* name, std::filesystem::path* entry);
