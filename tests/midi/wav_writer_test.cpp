#include "midi/wav_writer.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/midi/wav_reader.h"
#include "tests/support/temp_dir.h"

namespace {

std::vector<int16_t> ramp(size_t frames) {
    std::vector<int16_t> samples(frames * 2);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = int16_t(int(i) * 37 - 30000);
    return samples;
}

TEST(WavWriter, ClosedFileHasSizesAndFormatInItsHeader) {
    TTempDir dir;
    auto path = dir.Path() / "ramp.wav";
    std::vector<int16_t> samples = ramp(300);
    TWavWriter writer;
    std::string error;
    ASSERT_TRUE(writer.Open(path.string(), 22050, &error)) << error;
    ASSERT_TRUE(writer.Append(samples.data(), 100));
    ASSERT_TRUE(writer.Append(samples.data() + 200, 200));
    EXPECT_EQ(writer.FramesWritten(), 300u);
    ASSERT_TRUE(writer.Close());

    TWavFile wav = read_wav(path);
    ASSERT_EQ(wav.problem, "");
    EXPECT_EQ(wav.format, 1);
    EXPECT_EQ(wav.channels, 2);
    EXPECT_EQ(wav.sampleRate, 22050u);
    EXPECT_EQ(wav.byteRate, 22050u * 4);
    EXPECT_EQ(wav.blockAlign, 4);
    EXPECT_EQ(wav.bitsPerSample, 16);
    EXPECT_EQ(wav.dataBytes, 300u * 4);
    EXPECT_EQ(wav.samples, samples);
}

TEST(WavWriter, FileStillOpenReadsAsValidAndEmpty) {
    TTempDir dir;
    auto path = dir.Path() / "open.wav";
    TWavWriter writer;
    ASSERT_TRUE(writer.Open(path.string(), 44100, nullptr));
    TWavFile wav = read_wav(path);
    EXPECT_EQ(wav.problem, "");
    EXPECT_EQ(wav.dataBytes, 0u);
}

TEST(WavWriter, FileThatCannotBeCreatedGivesAnErrorNamingIt) {
    TTempDir dir;
    std::string path = (dir.Path() / "no such folder" / "x.wav").string();
    TWavWriter writer;
    std::string error;
    EXPECT_FALSE(writer.Open(path, 44100, &error));
    EXPECT_FALSE(writer.IsOpen());
    EXPECT_NE(error.find(path), std::string::npos) << error;
}

}  // namespace
