#include "app/settings/settings.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <filesystem>

#include "tests/support/fault_child.h"
#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"

using veldan::TMessage;
namespace fs = std::filesystem;

namespace {

class Settings : public ::testing::Test {
  protected:
    void SetUp() override {
        pref() = TPref();
        exit_state() = TExitState();
    }
    fs::path Folder() const { return fConfig.Path() / "VELDAN" / "QuillMIDI"; }
    void WriteSettings(const char* name, const TMessage& message) {
        QByteArray data;
        ASSERT_TRUE(message.Flatten(&data));
        fConfig.Write(std::string("VELDAN/QuillMIDI/") + name,
                      std::vector<uint8_t>(data.begin(), data.end()));
    }

    TTempDir fConfig;
    TTempDir fHome;
    TScopedEnv fXdg{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
    TScopedEnv fHomeEnv{"HOME", fHome.Path().c_str()};
    TScopedEnv fNoReset{"QUILLMIDI_RESET_SETTINGS", nullptr};
};

// Positions of the keys in the flattened record must rise: the fields went in in order.
void expect_field_order(const veldan::TArchivable& record, const std::vector<const char*>& keys) {
    TMessage message;
    ASSERT_TRUE(record.Archive(&message));
    QByteArray flat;
    ASSERT_TRUE(message.Flatten(&flat));
    qsizetype last = -1;
    for (const char* key : keys) {
        // Each name is stored after its length byte, which tells "SiBS" from "SIBS".
        const qsizetype at = flat.indexOf(QByteArray(1, char(4)) + key);
        EXPECT_GT(at, last) << key;
        last = at;
    }
}

}  // namespace

TEST_F(Settings, PreferencesDefaultToTheTable) {
    const TPref defaults;
    EXPECT_TRUE(defaults.useAIDatabase);
    EXPECT_FALSE(defaults.waitBetweenSongs);
    EXPECT_FALSE(defaults.sendSysResets);
    EXPECT_EQ(defaults.autoSortKind, 1);
    EXPECT_EQ(defaults.sysResetCombination, 1);
    EXPECT_EQ(defaults.silenceAfterResetsUs, 300000);
    EXPECT_EQ(defaults.silenceBetweenSongsUs, 3000000);
    EXPECT_EQ(defaults.languageFile, "English.llt");
    EXPECT_FALSE(defaults.chaseOnSeek);
    EXPECT_FALSE(defaults.loops.on);
    EXPECT_EQ(defaults.loops.times, 2);
    EXPECT_EQ(defaults.loops.fadeSeconds, 8);
}

TEST_F(Settings, PreferencesArchiveEveryKeyWithItsTypeInOrder) {
    TMessage message;
    ASSERT_TRUE(TPref().Archive(&message));
    const std::pair<const char*, uint32_t> expected[] = {
        {"ClAI", veldan::kBoolType},  {"SiBS", veldan::kBoolType},   {"SSyR", veldan::kBoolType},
        {"ASKy", veldan::kInt32Type}, {"SRCb", veldan::kInt32Type},  {"SIAR", veldan::kInt64Type},
        {"SIBS", veldan::kInt64Type}, {"LLTF", veldan::kStringType}, {"ChOS", veldan::kBoolType},
        {"PMLp", veldan::kBoolType},  {"PMLT", veldan::kInt32Type},  {"PMLF", veldan::kInt32Type},
        {"SGan", veldan::kFloatType}, {"SRev", veldan::kBoolType},   {"SCho", veldan::kBoolType},
        {"SPol", veldan::kInt32Type}, {"SDrv", veldan::kStringType},
    };
    EXPECT_EQ(message.CountNames(), 17) << "no sound font field for the default list";
    for (const auto& [key, type] : expected) {
        uint32_t found = 0;
        EXPECT_TRUE(message.GetInfo(key, &found, nullptr)) << key;
        EXPECT_EQ(found, type) << key;
    }
    expect_field_order(
        TPref(), {"ClAI", "SiBS", "SSyR", "ASKy", "SRCb", "SIAR", "SIBS", "LLTF", "ChOS", "PMLp",
                  "PMLT", "PMLF", "SGan", "SRev", "SCho", "SPol", "SDrv"});
}

TEST_F(Settings, PreferencesRoundTripThroughTheirFile) {
    TPref& changed = pref();
    changed.useAIDatabase = false;
    changed.waitBetweenSongs = true;
    changed.sendSysResets = true;
    changed.autoSortKind = TPref::kSortDescending;
    changed.sysResetCombination = 1 | 8;
    changed.silenceAfterResetsUs = 1500000;
    changed.silenceBetweenSongsUs = 10000000;
    changed.languageFile = "";
    changed.chaseOnSeek = true;
    changed.loops = {true, 99, 0};
    changed.synth.soundFonts = {"/fonts/first.sf2", "/fonts/second.sf3"};
    changed.synth.gain = 0.5f;
    changed.synth.reverb = false;
    changed.synth.chorus = false;
    changed.synth.polyphony = 128;
    changed.synth.driver = "alsa";
    const TPref saved = changed;
    ASSERT_TRUE(save_pref(false));
    ASSERT_TRUE(fs::exists(Folder() / "QuillMIDI_Prefs.arc"));

    pref() = TPref();
    load_global();
    EXPECT_EQ(pref(), saved);
    EXPECT_EQ(pref().languageFile, "");  // the built-in texts
}

TEST_F(Settings, APreferencesFileWithSomeFieldsKeepsTheOtherDefaults) {
    TMessage partial;
    partial.AddInt32("ASKy", 0);
    partial.AddInt64("SIBS", 5000000);
    partial.AddString("ClAI", "a string where a bool belongs");
    WriteSettings("QuillMIDI_Prefs.arc", partial);

    TPref loaded;
    std::filesystem::path file;
    ASSERT_TRUE(settings_entry(kPrefsFile, &file));
    EXPECT_FALSE(loaded.Load(file));
    TPref expected;
    expected.autoSortKind = 0;
    expected.silenceBetweenSongsUs = 5000000;
    EXPECT_EQ(loaded, expected);
}

TEST_F(Settings, LoopValuesOutOfTheirRangeInTheFileAreBroughtIntoIt) {
    TMessage edited;
    edited.AddBool("PMLp", true);
    edited.AddInt32("PMLT", 0);
    edited.AddInt32("PMLF", 600);
    WriteSettings("QuillMIDI_Prefs.arc", edited);

    TPref loaded;
    std::filesystem::path file;
    ASSERT_TRUE(settings_entry(kPrefsFile, &file));
    loaded.Load(file);
    EXPECT_TRUE(loaded.loops.on);
    EXPECT_EQ(loaded.loops.times, 1);
    EXPECT_EQ(loaded.loops.fadeSeconds, 30);
}

TEST_F(Settings, ExitStateDefaultsToTheTable) {
    const TExitState defaults;
    EXPECT_TRUE(defaults.listShown);
    EXPECT_EQ(defaults.currentSongIndex, 0);
    EXPECT_EQ(defaults.expandedHeight, 200.0f);
    EXPECT_EQ(defaults.version, "");
    EXPECT_EQ(defaults.mainListFile, "");
    EXPECT_EQ(defaults.panelFolder, fHome.Path().string());
    EXPECT_TRUE(defaults.connections[0].empty());
    EXPECT_TRUE(defaults.connections[1].empty());
    EXPECT_EQ(defaults.frame, (veldan::TRect{5, 24, 300, 250}));
    EXPECT_EQ(defaults.playMode, 0);
}

TEST_F(Settings, ExitStateRoundTripsWithItsConnectionsAndTheRunningVersion) {
    TExitState& state = exit_state();
    state.listShown = false;
    state.currentSongIndex = 12;
    state.expandedHeight = 480.5f;
    state.version = "Ver 1.00";
    state.mainListFile = "/home/u/Lists/オルゴール.qml";
    state.panelFolder = "/home/u/Lists";
    state.connections[0] = {"Quill Synth", "USB MIDI 1", "Quill Synth"};
    state.connections[1] = {"Hardware Out"};
    state.frame = veldan::TRect{100, 50, 700, 650};
    state.playMode = 5;
    TExitState expected = state;
    expected.version = kAppVersion;
    ASSERT_TRUE(save_exit_state());

    exit_state() = TExitState();
    load_global();
    EXPECT_EQ(exit_state(), expected);
    expect_field_order(
        expected, {"AtEx", "CuSI", "ExWH", "_Ver", "MLFN", "PnFN", "CMO0", "CMO1", "_WFr", "PlyM"});
}

TEST_F(Settings, AnExitStateWithoutCMO1HasNoConnectionsForOutputOne) {
    TExitState older;
    older.connections[0] = {"Quill Synth"};
    TMessage message;
    ASSERT_TRUE(older.Archive(&message));
    message.AddInt32("FutureField", 1);
    WriteSettings("QuillMIDI_ExitStates.arc", message);
    EXPECT_FALSE(message.HasField("CMO1"));

    load_global();
    EXPECT_EQ(exit_state().connections[0], std::vector<std::string>{"Quill Synth"});
    EXPECT_TRUE(exit_state().connections[1].empty());
    EXPECT_EQ(exit_state().version, kAppVersion);
}

TEST_F(Settings, WithoutASettingsFolderTheFirstLoadMakesItAndKeepsEveryDefault) {
    ASSERT_FALSE(fs::exists(fConfig.Path() / "VELDAN"));
    EXPECT_FALSE(load_global());
    EXPECT_TRUE(fs::is_directory(Folder()));
    EXPECT_EQ(pref(), TPref());
    EXPECT_EQ(exit_state(), TExitState());
    EXPECT_TRUE(save_exit_state());
    EXPECT_TRUE(fs::exists(Folder() / "QuillMIDI_ExitStates.arc"));
}

TEST_F(Settings, LoadGlobalIsTrueOnlyWhenBothFilesLoad) {
    save_exit_state();
    EXPECT_FALSE(load_global());
    save_pref(false);
    EXPECT_TRUE(load_global());
}

TEST_F(Settings, TheResetChordRewritesThePreferencesAndIgnoresTheExitState) {
    pref().languageFile = "Japanese.llt";
    exit_state().playMode = 4;
    ASSERT_TRUE(save_pref(false));
    ASSERT_TRUE(save_exit_state());
    pref() = TPref();
    exit_state() = TExitState();

    TScopedEnv reset("QUILLMIDI_RESET_SETTINGS", "1");
    EXPECT_TRUE(is_reset_chord_held());
    EXPECT_FALSE(load_global());
    EXPECT_EQ(exit_state().playMode, 0);
    TPref onDisk;
    std::filesystem::path file;
    ASSERT_TRUE(settings_entry(kPrefsFile, &file));
    onDisk.languageFile = "not loaded";
    EXPECT_TRUE(onDisk.Load(file));
    EXPECT_EQ(onDisk, TPref());
}

TEST_F(Settings, WithTheResetChordHeldAtExitNothingIsWrittenUnlessForced) {
    TScopedEnv reset("QUILLMIDI_RESET_SETTINGS", "1");
    EXPECT_FALSE(save_exit_state());
    EXPECT_FALSE(save_pref(false));
    EXPECT_FALSE(fs::exists(Folder() / "QuillMIDI_ExitStates.arc"));
    EXPECT_FALSE(fs::exists(Folder() / "QuillMIDI_Prefs.arc"));
    EXPECT_TRUE(save_pref(true));
    EXPECT_TRUE(fs::exists(Folder() / "QuillMIDI_Prefs.arc"));
}

TEST_F(Settings, OnlyTheValueOneForcesTheReset) {
    TScopedEnv reset("QUILLMIDI_RESET_SETTINGS", "0");
    EXPECT_FALSE(is_reset_chord_held());
}

TEST_F(Settings, FileExistenceIsAboutTheEntry) {
    const fs::path file = fConfig.Write("present.mid", "MThd");
    EXPECT_TRUE(is_file_exists(file.c_str()));
    EXPECT_TRUE(is_file_exists(fConfig.Path().c_str()));
    EXPECT_FALSE(is_file_exists((fConfig.Path() / "absent.mid").c_str()));
    fs::create_symlink(fConfig.Path() / "gone.mid", fConfig.Path() / "link.mid");
    EXPECT_TRUE(is_file_exists((fConfig.Path() / "link.mid").c_str()));
    EXPECT_FALSE(is_file_exists(""));
    EXPECT_FALSE(is_file_exists(nullptr));
}

TEST_F(Settings, TheApplicationStateSplitsTheProgramPathAndLoadsTheDriveTable) {
    TDrvCvt table;
    table.SetBeDL('M', "/mnt/music");
    ASSERT_TRUE(table.Save());

    TAppPrivacy privacy;
    EXPECT_EQ(privacy.State(), kStateStopped);
    EXPECT_EQ(privacy.ExePath(), "");
    privacy.AnaExePath("/opt/quill/bin/quillmidi");
    EXPECT_EQ(privacy.ExePath(), "/opt/quill/bin/");
    EXPECT_EQ(privacy.ExeName(), "quillmidi");
    privacy.SetState(kStateAfterGS);
    EXPECT_EQ(privacy.State(), kStateAfterGS);
    std::string path;
    EXPECT_TRUE(privacy.GetBeDL('m', &path));
    EXPECT_EQ(path, "/mnt/music");
}

TEST_F(Settings, AFullDiskKeepsThePreferencesFileAndIsReportedOnce) {
    pref().languageFile = "Japanese.llt";
    ASSERT_TRUE(save_pref(false));
    const std::vector<uint8_t> before = read_file_bytes(Folder() / kPrefsFile);
    std::vector<fs::path> shown;
    set_settings_failure_fn([&shown](const fs::path& file) { shown.push_back(file); });
    pref().languageFile = std::string(4000, 'x') + ".llt";

    const int result = run_in_child(
        [] {
            TStderrCapture errors;
            const bool saved = save_pref(false);
            const std::string text = errors.Take();
            const bool oneLine =
                text.find(kPrefsFile) != std::string::npos && text.find('\n') == text.size() - 1;
            return saved ? 0 : oneLine ? 1 : 2;
        },
        TChildFaults{.fileSizeLimit = int64_t(before.size())});
    // The same failure in this process, for the status line.
    {
        TScopedFileSizeLimit full(int64_t(before.size()));
        TStderrCapture quiet;
        EXPECT_FALSE(save_pref(false));
    }
    set_settings_failure_fn(nullptr);

    EXPECT_EQ(result, 1) << "0: the save claimed success; 2: not one line naming the file";
    EXPECT_EQ(read_file_bytes(Folder() / kPrefsFile), before);
    EXPECT_EQ(shown, std::vector<fs::path>{Folder() / kPrefsFile});
    pref() = TPref();
    load_global();
    EXPECT_EQ(pref().languageFile, "Japanese.llt");
}

TEST_F(Settings, ADamagedExitStateGivesDefaultsAndIsKeptBeforeItIsReplaced) {
    exit_state().mainListFile = "/home/user/mine.qml";
    ASSERT_TRUE(save_exit_state());
    std::vector<uint8_t> cut = read_file_bytes(Folder() / kExitStateFile);
    cut.resize(cut.size() - 5);
    fConfig.Write(std::string("VELDAN/QuillMIDI/") + kExitStateFile, cut);
    exit_state() = TExitState();

    load_global();
    EXPECT_EQ(exit_state(), TExitState());
    ASSERT_TRUE(save_exit_state());
    EXPECT_EQ(read_file_bytes(Folder() / (std::string(kExitStateFile) + ".damaged")), cut);
}
