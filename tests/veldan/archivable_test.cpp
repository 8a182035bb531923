#include "veldan/core/archivable.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QString>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/fault_child.h"
#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"
#include "veldan/base/exception.h"
#include "veldan/core/entry.h"
#include "veldan/core/rsrc_msg.h"

using veldan::TMessage;
namespace fs = std::filesystem;

namespace {

class TSample : public veldan::TArchivable {
  public:
    int32_t count = 5;
    std::string name = "default";
    bool archiveFails = false;

    bool Archive(TMessage* into) const override {
        return !archiveFails && into->AddInt32("Cnt ", count) && into->AddString("Name", name);
    }
    bool Unarchive(const TMessage& from) override {
        const bool hasCount = from.FindInt32("Cnt ", &count);
        const bool hasName = from.FindString("Name", &name);
        return hasCount && hasName;
    }
};

std::string read_text(const fs::path& path) {
    std::vector<uint8_t> bytes = read_file_bytes(path);
    return std::string(bytes.begin(), bytes.end());
}

void write_message(const fs::path& file, const TMessage& message) {
    QByteArray data;
    ASSERT_TRUE(message.Flatten(&data));
    std::ofstream(file, std::ios::binary).write(data.constData(), data.size());
}

}  // namespace

TEST(ArchivableFiles, SaveThenLoadRestoresEveryField) {
    TTempDir dir;
    TSample saved;
    saved.count = 42;
    saved.name = "名前";
    ASSERT_TRUE(saved.Save(dir.Path() / "Sample.arc"));
    TSample loaded;
    EXPECT_TRUE(loaded.Load(dir.Path() / "Sample.arc"));
    EXPECT_EQ(loaded.count, 42);
    EXPECT_EQ(loaded.name, "名前");
}

TEST(ArchivableFiles, AFileWithSomeFieldsKeepsTheDefaultsForTheRest) {
    TTempDir dir;
    TMessage partial;
    partial.AddString("Name", "only the name");
    partial.AddBool("Unknown", true);
    write_message(dir.Path() / "Partial.arc", partial);
    TSample loaded;
    EXPECT_FALSE(loaded.Load(dir.Path() / "Partial.arc"));
    EXPECT_EQ(loaded.count, 5);
    EXPECT_EQ(loaded.name, "only the name");
}

TEST(ArchivableFiles, AMissingOrDamagedFileFailsAndKeepsTheDefaults) {
    TTempDir dir;
    TSample loaded;
    EXPECT_FALSE(loaded.Load(dir.Path() / "Missing.arc"));
    EXPECT_FALSE(loaded.Load(dir.Write("Text.arc", "[Section]\nkey=value\n")));
    EXPECT_FALSE(loaded.Load(dir.Path()));  // a folder
    EXPECT_EQ(loaded.count, 5);
    EXPECT_EQ(loaded.name, "default");
}

TEST(ArchivableFiles, AFailingArchiveLeavesTheOldFile) {
    TTempDir dir;
    const fs::path file = dir.Write("Old.arc", "previous contents");
    TSample sample;
    sample.archiveFails = true;
    std::string error;
    EXPECT_FALSE(sample.Save(file, &error));
    EXPECT_NE(error.find("Old.arc"), std::string::npos);
    EXPECT_EQ(read_text(file), "previous contents");
}

TEST(ArchivableFiles, AFullDiskLeavesTheOldSettingsByteForByte) {
    TTempDir dir;
    TSample old;
    old.name = "what the user had";
    const fs::path file = dir.Path() / "Sample.arc";
    ASSERT_TRUE(old.Save(file));
    const std::string before = read_text(file);
    TSample bigger;
    bigger.name = std::string(20000, 'x');

    const int result = run_in_child(
        [&] {
            std::string error;
            if (bigger.Save(file, &error)) return 0;
            return error.find("Sample.arc") != std::string::npos ? 1 : 2;
        },
        TChildFaults{.fileSizeLimit = int64_t(before.size())});

    EXPECT_EQ(result, 1) << "0: the save claimed success; 2: the reason names no file";
    EXPECT_EQ(read_text(file), before);
    TSample loaded;
    EXPECT_TRUE(loaded.Load(file));
    EXPECT_EQ(loaded.name, "what the user had");
}

TEST(ArchivableFiles, ADamagedFileGivesDefaultsAndIsKeptAside) {
    TTempDir dir;
    TSample saved;
    saved.name = "half a message";
    const fs::path file = dir.Path() / "Sample.arc";
    ASSERT_TRUE(saved.Save(file));
    std::string cut = read_text(file);
    cut.resize(cut.size() / 2);
    dir.Write("Sample.arc", cut);

    TSample loaded;
    EXPECT_FALSE(loaded.Load(file));
    EXPECT_EQ(loaded.name, "default");
    EXPECT_EQ(read_text(dir.Path() / "Sample.arc.damaged"), cut);
    // The defaults saved at the end go over the name, not over the kept copy.
    ASSERT_TRUE(loaded.Save(file));
    EXPECT_EQ(read_text(dir.Path() / "Sample.arc.damaged"), cut);
    EXPECT_TRUE(TSample().Load(file));
}

TEST(ArchivableFiles, AnEmptyFileGivesDefaultsAndLeavesNoCopy) {
    TTempDir dir;
    const fs::path file = dir.Write("Sample.arc", "");
    TSample loaded;
    EXPECT_FALSE(loaded.Load(file));
    EXPECT_EQ(loaded.count, 5);
    EXPECT_FALSE(fs::exists(dir.Path() / "Sample.arc.damaged"));
}

TEST(ArchivableFiles, SavingIntoAMissingFolderFails) {
    TTempDir dir;
    EXPECT_FALSE(TSample().Save(dir.Path() / "no" / "such" / "Sample.arc"));
}

TEST(ArchivableFiles, TheBaseArchivesNothingAndAcceptsAnything) {
    TTempDir dir;
    veldan::TArchivable base;
    ASSERT_TRUE(base.Save(dir.Path() / "Base.arc"));
    TMessage read('orig');
    ASSERT_TRUE(veldan::load_message(dir.Path() / "Base.arc", &read));
    EXPECT_TRUE(read.IsEmpty());
    EXPECT_EQ(read.what, 0u);
    EXPECT_TRUE(base.Load(dir.Path() / "Base.arc"));
}

class EntryLocation : public ::testing::Test {
  protected:
    TTempDir fConfig;
    TTempDir fHome;
    TScopedEnv fXdg{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
    TScopedEnv fHomeEnv{"HOME", fHome.Path().c_str()};
};

TEST_F(EntryLocation, SettingsLieUnderTheMakersFolderInTheXdgConfigFolder) {
    fs::path entry;
    ASSERT_TRUE(veldan::get_entry("QuillMIDI_Prefs.arc", &entry, veldan::BD_SETTINGS, "QuillMIDI"));
    EXPECT_EQ(entry, fConfig.Path() / "VELDAN" / "QuillMIDI" / "QuillMIDI_Prefs.arc");
    EXPECT_TRUE(fs::is_directory(fConfig.Path() / "VELDAN" / "QuillMIDI"));
    EXPECT_FALSE(fs::exists(entry));  // only the folder is made
}

TEST_F(EntryLocation, WithoutXdgConfigHomeTheSettingsFolderIsDotConfigInHome) {
    TScopedEnv noXdg("XDG_CONFIG_HOME", nullptr);
    fs::path entry;
    ASSERT_TRUE(veldan::get_entry("DriveLetter.arc", &entry, veldan::BD_SETTINGS, "Shared"));
    EXPECT_EQ(entry, fHome.Path() / ".config" / "VELDAN" / "Shared" / "DriveLetter.arc");
    EXPECT_TRUE(fs::is_directory(entry.parent_path()));
}

TEST_F(EntryLocation, ARelativeXdgConfigHomeIsIgnored) {
    TScopedEnv relative("XDG_CONFIG_HOME", "relative/config");
    EXPECT_EQ(veldan::user_settings_dir(), fHome.Path() / ".config");
}

TEST_F(EntryLocation, AnAbsoluteNameIgnoresBaseAndSub) {
    fs::path entry;
    ASSERT_TRUE(veldan::get_entry("/etc/some.arc", &entry, veldan::BD_SETTINGS, "QuillMIDI"));
    EXPECT_EQ(entry, "/etc/some.arc");
    EXPECT_FALSE(fs::exists(fConfig.Path() / "VELDAN"));
}

TEST_F(EntryLocation, AnEmptyNameFails) {
    fs::path entry = "/unchanged";
    EXPECT_FALSE(veldan::get_entry("", &entry, veldan::BD_SETTINGS, "QuillMIDI"));
    EXPECT_FALSE(veldan::get_entry(nullptr, &entry, veldan::BD_SETTINGS, "QuillMIDI"));
    EXPECT_EQ(entry, "/unchanged");
}

TEST_F(EntryLocation, PathBaseTakesAnAbsoluteFolderAndNormalisesIt) {
    fs::path entry;
    ASSERT_TRUE(veldan::get_entry("x.arc", &entry, veldan::BD_PATH, "/tmp/a/../b"));
    EXPECT_EQ(entry, "/tmp/b/x.arc");
    EXPECT_FALSE(veldan::get_entry("x.arc", &entry, veldan::BD_PATH, "relative"));
    EXPECT_FALSE(veldan::get_entry("x.arc", &entry, veldan::BD_PATH, nullptr));
}

TEST_F(EntryLocation, AppBaseIsTheExecutablesFolder) {
    fs::path entry;
    ASSERT_TRUE(veldan::get_entry("QuillMIDI.htm", &entry, veldan::BD_APP, nullptr));
    EXPECT_EQ(entry, fs::read_symlink("/proc/self/exe").parent_path() / "QuillMIDI.htm");
}

TEST_F(EntryLocation, AnUncreatableSettingsFolderFails) {
    const fs::path file = fConfig.Write("VELDAN", "a file where the folder should be");
    fs::path entry;
    EXPECT_FALSE(veldan::get_entry("x.arc", &entry, veldan::BD_SETTINGS, "QuillMIDI"));
    EXPECT_TRUE(fs::is_regular_file(file));
}

TEST(EntryRefs, ARefIsTheNameInsideItsFolder) {
    fs::path ref;
    EXPECT_TRUE(veldan::get_ref("/music/lists", "a.qml", &ref));
    EXPECT_EQ(ref, "/music/lists/a.qml");
    EXPECT_EQ(veldan::path_for_ref(&ref), "/music/lists/a.qml");
    EXPECT_EQ(veldan::path_for_ref(nullptr), fs::path());
}

TEST(Exception, CarriesItsIdentifierAndText) {
    const veldan::TException withId(17, "broken");
    EXPECT_EQ(withId.ID(), 17u);
    EXPECT_STREQ(withId.String(), "broken");
    const veldan::TException textOnly("only text");
    EXPECT_EQ(textOnly.ID(), 0u);
    EXPECT_STREQ(textOnly.what(), "only text");
    EXPECT_STREQ(veldan::TException(nullptr).String(), "");
}

TEST(ResourceMessages, AreReadFromTheResourceFolderByName) {
    TTempDir dir;
    TMessage table('tabl');
    table.AddString("Text", "hello");
    write_message(dir.Path() / "Menu", table);
    const QString root = QString::fromStdString(dir.Path().string());

    veldan::TRsrcMsg resources;
    TMessage out('none');
    EXPECT_TRUE(resources.GetMessage("Menu", &out, root));
    EXPECT_EQ(out, table);
    out = TMessage('none');
    EXPECT_FALSE(resources.GetMessage("Absent", &out, root));
    EXPECT_EQ(out.what, uint32_t('none'));
}

TEST(ResourceMessages, FromAFileTheNamedFieldOfItsMessageIsTaken) {
    TTempDir dir;
    TMessage menu('menu');
    menu.AddString("Text", "File");
    TMessage file;
    file.AddMessage("Menu", menu);
    file.AddInt32("NotAMessage", 3);
    write_message(dir.Path() / "Lang.arc", file);

    veldan::TRsrcMsg source;
    source.SetTo(dir.Path() / "Lang.arc");
    EXPECT_TRUE(source.IsFromFile());
    TMessage out('none');
    EXPECT_TRUE(source.GetMessage("Menu", &out));
    EXPECT_EQ(out, menu);
    out = TMessage('none');
    EXPECT_FALSE(source.GetMessage("NotAMessage", &out));
    EXPECT_FALSE(source.GetMessage("Absent", &out));
    EXPECT_EQ(out.what, uint32_t('none'));

    source.Unset();
    EXPECT_FALSE(source.IsFromFile());
    const QString root = QString::fromStdString(dir.Path().string());
    EXPECT_FALSE(source.GetMessage("Menu", &out, root));  // no resource file "Menu"
}
