// Rendering a song to a file: progress reaches the end, and a cancel or a full disk leaves
// no half-file under the user's name.

#include "engine/offline_render.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "engine/smf_producer.h"
#include "tests/support/fault_child.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"

namespace {

std::vector<std::string> folder_names(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

// Ten seconds of one long note at 120 beats a minute.
std::vector<uint8_t> long_song() {
    TSmfBuilder smf(1, 480);
    smf.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(480 * 20, 0, 60);
    return smf.Bytes();
}

TEST(OfflineRender, ProgressClimbsToTheSongsLengthAndACancelLeavesNoHalfFile) {
    TTempDir dir;
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(long_song()), 0);
    const auto wav = dir.Path() / "out.wav";
    std::vector<int64_t> done;
    int64_t total = 0;
    std::string error;
    ASSERT_EQ(render_song(
                  producer, wav.string(), {},
                  [&](int64_t doneUs, int64_t totalUs) {
                      done.push_back(doneUs);
                      total = totalUs;
                      return true;
                  },
                  &error),
              0)
        << error;
    EXPECT_EQ(total, 10000000);
    ASSERT_FALSE(done.empty());
    EXPECT_EQ(done.back(), total);
    EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));

    TRenderOptions twiceAsFast;
    twiceAsFast.tempoPercent = 200;
    twiceAsFast.tailUs = 0;
    ASSERT_EQ(render_song(producer, wav.string(), twiceAsFast, nullptr, &error), 0) << error;
    EXPECT_EQ((std::filesystem::file_size(wav) - 44) / 4, 5u * 44100) << "5 s, no tail";

    // A cancel leaves the export made before as it was, and nothing else.
    const std::vector<uint8_t> before = read_file_bytes(wav);
    EXPECT_EQ(render_song(
                  producer, wav.string(), {}, [](int64_t, int64_t) { return false; }, &error),
              -1);
    EXPECT_EQ(error, "cancelled");
    EXPECT_EQ(read_file_bytes(wav), before);
    EXPECT_EQ(folder_names(dir.Path()), std::vector<std::string>{"out.wav"});
    const auto fresh = dir.Path() / "fresh.wav";
    EXPECT_EQ(render_song(
                  producer, fresh.string(), {}, [](int64_t, int64_t) { return false; }, &error),
              -1);
    EXPECT_FALSE(std::filesystem::exists(fresh));
}

// A disk that fills up during an export: the earlier export of that name stays whole, the
// error is told, and no half-file or temporary is left.
class OfflineRenderFullDisk : public ::testing::TestWithParam<const char*> {};

TEST_P(OfflineRenderFullDisk, LeavesTheEarlierExportAndNoHalfFile) {
    TTempDir dir;
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(long_song()), 0);
    const auto target = dir.Path() / (std::string("song.") + GetParam());
    TRenderOptions shortRender;
    shortRender.tempoPercent = 1000;  // one second
    shortRender.tailUs = 0;
    std::string error;
    ASSERT_EQ(render_song(producer, target.string(), shortRender, nullptr, &error), 0) << error;
    const std::vector<uint8_t> before = read_file_bytes(target);

    const int result = run_in_child(
        [&] {
            std::string failure;
            if (render_song(producer, target.string(), {}, nullptr, &failure) == 0) return 0;
            return failure.find(target.filename().string()) != std::string::npos ? 1 : 2;
        },
        TChildFaults{.fileSizeLimit = int64_t(before.size()) + 1000}, 60000);

    EXPECT_EQ(result, 1) << "0: the export claimed success; 2: the error names no file";
    EXPECT_EQ(read_file_bytes(target), before);
    EXPECT_EQ(folder_names(dir.Path()), std::vector<std::string>{target.filename().string()});
}

INSTANTIATE_TEST_SUITE_P(WavAndFlac, OfflineRenderFullDisk, ::testing::Values("wav", "flac"));

}  // namespace

namespace {

constexpr char kFluid[] = "/usr/share/sounds/sf2/FluidR3_GM.sf2";
constexpr char kTimGM[] = "/usr/share/sounds/sf2/TimGM6mb.sf2";

std::vector<uint8_t> rendered(const TRenderOptions& options, const TTempDir& dir) {
    TSmfBuilder smf(1, 480);
    smf.AddTrack().Program(0, 0, 0).NoteOn(0, 0, 60, 100).NoteOff(480, 0, 60);
    TSMFProducer producer;
    EXPECT_EQ(producer.SetTo(smf.Bytes()), 0);
    const auto wav = dir.Path() / "note.wav";
    std::string error;
    EXPECT_EQ(render_song(producer, wav.string(), options, nullptr, &error), 0) << error;
    return read_file_bytes(wav);
}

}  // namespace

TEST(OfflineRender, AFlacNameGivesAFlacFileOfTheSameFrames) {
    TTempDir dir;
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(long_song()), 0);
    TRenderOptions noTail;
    noTail.tailUs = 0;
    const auto flac = dir.Path() / "out.FLAC";
    std::string error;
    ASSERT_EQ(render_song(producer, flac.string(), noTail, nullptr, &error), 0) << error;
    const std::vector<uint8_t> bytes = read_file_bytes(flac);
    ASSERT_GT(bytes.size(), 26u);
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "fLaC");
    // STREAMINFO: sample rate (20 bits), channels - 1 (3), bits - 1 (5), frames (36).
    uint64_t info = 0;
    for (size_t i = 18; i < 26; ++i) info = info << 8 | bytes[i];
    EXPECT_EQ(info >> 44, 44100u);
    EXPECT_EQ((info >> 41 & 7) + 1, 2u);
    EXPECT_EQ((info >> 36 & 31) + 1, 16u);
    EXPECT_EQ(info & ((uint64_t(1) << 36) - 1), 10u * 44100) << "the ten seconds of the song";
    EXPECT_LT(bytes.size(), 10u * 44100 * 4 / 4) << "compressed";
    EXPECT_FALSE(std::filesystem::exists(flac.string() + ".wav.part"));
}

TEST(OfflineRender, TheFirstSoundFontWithThePresetIsTheOneHeard) {
    if (!std::filesystem::exists(kTimGM))
        GTEST_SKIP() << "scripts/install-deps --test installs TimGM6mb";
    TTempDir dir;
    TRenderOptions fluidOnly, fluidFirst, timFirst;
    fluidOnly.soundFonts = {kFluid};
    fluidFirst.soundFonts = {kFluid, kTimGM};
    timFirst.soundFonts = {kTimGM, kFluid};
    const std::vector<uint8_t> alone = rendered(fluidOnly, dir);
    ASSERT_GT(alone.size(), 44u);
    EXPECT_EQ(rendered(fluidFirst, dir), alone) << "the piano of the first sound font";
    EXPECT_NE(rendered(timFirst, dir), alone);
}

TEST(OfflineRender, ReverbAndChorusCanBeTurnedOff) {
    TTempDir dir;
    TRenderOptions dry;
    dry.reverb = false;
    dry.chorus = false;
    EXPECT_NE(rendered(dry, dir), rendered(TRenderOptions(), dir));
    EXPECT_EQ(rendered(dry, dir), rendered(dry, dir)) << "rendering is repeatable";
}
