// Rendering a song to a file: progress reaches the end, and a cancel leaves no file.

#include "engine/offline_render.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "engine/smf_producer.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"

namespace {

// Ten seconds of one long note at 120 beats a minute.
std::vector<uint8_t> long_song() {
    TSmfBuilder smf(1, 480);
    smf.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(480 * 20, 0, 60);
    return smf.Bytes();
}

TEST(OfflineRender, ProgressClimbsToTheSongsLengthAndACancelLeavesNoFile) {
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

    EXPECT_EQ(render_song(
                  producer, wav.string(), {}, [](int64_t, int64_t) { return false; }, &error),
              -1);
    EXPECT_EQ(error, "cancelled");
    EXPECT_FALSE(std::filesystem::exists(wav));
}

}  // namespace
