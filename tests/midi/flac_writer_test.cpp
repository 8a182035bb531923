// FLAC files through the audio file writer: lossless, read back by libsndfile, and put in
// place whole or not at all, as WAV files are.

#include <gtest/gtest.h>
#include <sndfile.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "midi/audio_file_writer.h"
#include "tests/support/fault_child.h"
#include "tests/support/temp_dir.h"

namespace {

struct TReadBack {
    SF_INFO info{};
    std::vector<int16_t> samples;
    bool opened = false;
};

TReadBack read_back(const std::filesystem::path& path) {
    TReadBack back;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &back.info);
    if (!file) return back;
    back.opened = true;
    back.samples.resize(size_t(back.info.frames) * size_t(back.info.channels));
    back.samples.resize(size_t(sf_readf_short(file, back.samples.data(), back.info.frames)) *
                        size_t(back.info.channels));
    sf_close(file);
    return back;
}

// A sweep that uses the whole 16-bit range, so a lossy or truncated round trip shows.
std::vector<int16_t> sweep(size_t frames) {
    std::vector<int16_t> samples(frames * 2);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = int16_t(int(i * 7919 % 65536) - 32768);
    return samples;
}

long folder_size(const std::filesystem::path& folder) {
    return long(std::distance(std::filesystem::directory_iterator(folder),
                              std::filesystem::directory_iterator()));
}

TEST(FlacWriter, AFlacNameGivesAFlacFileWithTheSamplesWritten) {
    TTempDir dir;
    const auto path = dir.Path() / "sweep.Flac";
    const std::vector<int16_t> samples = sweep(30000);
    TAudioFileWriter writer;
    std::string error;
    ASSERT_TRUE(writer.Open(path.string(), 22050, &error)) << error;
    EXPECT_TRUE(writer.IsFlac());
    ASSERT_TRUE(writer.Append(samples.data(), 10000));
    ASSERT_TRUE(writer.Append(samples.data() + 20000, 20000));
    EXPECT_EQ(writer.FramesWritten(), 30000u);
    EXPECT_FALSE(std::filesystem::exists(path)) << "nothing under the name before Close";
    ASSERT_TRUE(writer.Close());

    const TReadBack back = read_back(path);
    ASSERT_TRUE(back.opened) << sf_strerror(nullptr);
    EXPECT_EQ(back.info.format & SF_FORMAT_TYPEMASK, SF_FORMAT_FLAC);
    EXPECT_EQ(back.info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_16);
    EXPECT_EQ(back.info.channels, 2);
    EXPECT_EQ(back.info.samplerate, 22050);
    EXPECT_EQ(back.info.frames, 30000);
    EXPECT_EQ(back.samples, samples) << "lossless";
    EXPECT_EQ(folder_size(dir.Path()), 1);
}

TEST(FlacWriter, OtherNamesGiveWavFiles) {
    EXPECT_TRUE(TAudioFileWriter::IsFlacPath("/x/a.flac"));
    EXPECT_TRUE(TAudioFileWriter::IsFlacPath("a.FLAC"));
    EXPECT_FALSE(TAudioFileWriter::IsFlacPath("a.wav"));
    EXPECT_FALSE(TAudioFileWriter::IsFlacPath("a.flac.wav"));
    EXPECT_FALSE(TAudioFileWriter::IsFlacPath("flac"));
}

TEST(FlacWriter, ADiscardedFileLeavesTheOldFileAsItWas) {
    TTempDir dir;
    const auto path = dir.Write("take.flac", std::string("the previous take"));
    const std::vector<int16_t> samples = sweep(5000);
    TAudioFileWriter writer;
    ASSERT_TRUE(writer.Open(path.string(), 44100, nullptr));
    ASSERT_TRUE(writer.Append(samples.data(), 5000));
    writer.Discard();
    EXPECT_FALSE(writer.Close());
    EXPECT_EQ(read_back(path).opened, false);
    EXPECT_EQ(folder_size(dir.Path()), 1);
}

TEST(FlacWriter, AFullDiskLeavesTheOldFileAndCloseFails) {
    TTempDir dir;
    const auto path = dir.Write("take.flac", std::string("the previous take"));
    const std::vector<int16_t> samples = sweep(44100);
    const int result = run_in_child(
        [&] {
            TAudioFileWriter writer;
            if (!writer.Open(path.string(), 44100, nullptr)) return 2;
            for (int i = 0; i < 10; ++i) writer.Append(samples.data(), 44100);
            return writer.Close() ? 0 : 1;
        },
        TChildFaults{.fileSizeLimit = 20000});
    EXPECT_EQ(result, 1) << "0: Close claimed success; 2: the file could not be started";
    EXPECT_EQ(std::filesystem::file_size(path), std::string("the previous take").size());
    EXPECT_EQ(folder_size(dir.Path()), 1);
}

}  // namespace
