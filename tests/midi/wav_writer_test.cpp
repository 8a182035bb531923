#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "midi/audio_file_writer.h"
#include "tests/midi/wav_reader.h"
#include "tests/support/fault_child.h"
#include "tests/support/temp_dir.h"

namespace {

std::vector<uint8_t> bytes_of(const std::string& text) {
    return std::vector<uint8_t>(text.begin(), text.end());
}

long folder_size(const std::filesystem::path& folder) {
    return long(std::distance(std::filesystem::directory_iterator(folder),
                              std::filesystem::directory_iterator()));
}

std::vector<int16_t> ramp(size_t frames) {
    std::vector<int16_t> samples(frames * 2);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = int16_t(int(i) * 37 - 30000);
    return samples;
}

TEST(WavWriter, ClosedFileHasSizesAndFormatInItsHeader) {
    TTempDir dir;
    auto path = dir.Path() / "ramp.wav";
    std::vector<int16_t> samples = ramp(300);
    TAudioFileWriter writer;
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

TEST(WavWriter, NothingTakesTheNameUntilClose) {
    TTempDir dir;
    auto path = dir.Path() / "open.wav";
    std::vector<int16_t> samples = ramp(100);
    TAudioFileWriter writer;
    ASSERT_TRUE(writer.Open(path.string(), 44100, nullptr));
    ASSERT_TRUE(writer.Append(samples.data(), 100));
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_TRUE(writer.Close());
    EXPECT_EQ(read_wav(path).dataBytes, 100u * 4);
    EXPECT_EQ(folder_size(dir.Path()), 1);
}

TEST(WavWriter, ADiscardedRecordingLeavesTheOldFileAsItWas) {
    TTempDir dir;
    const auto path = dir.Write("take.wav", std::string("the previous take"));
    std::vector<int16_t> samples = ramp(100);
    TAudioFileWriter writer;
    ASSERT_TRUE(writer.Open(path.string(), 44100, nullptr));
    ASSERT_TRUE(writer.Append(samples.data(), 100));
    writer.Discard();
    EXPECT_FALSE(writer.Close());
    EXPECT_EQ(read_file_bytes(path), bytes_of("the previous take"));
    EXPECT_EQ(folder_size(dir.Path()), 1);
}

TEST(WavWriter, AFullDiskLeavesTheOldFileAndCloseFails) {
    TTempDir dir;
    const auto path = dir.Write("take.wav", std::string("the previous take"));
    std::vector<int16_t> samples = ramp(4096);
    const int result = run_in_child(
        [&] {
            TAudioFileWriter writer;
            if (!writer.Open(path.string(), 44100, nullptr)) return 2;
            for (int i = 0; i < 10; ++i) writer.Append(samples.data(), 4096);
            return writer.Close() ? 0 : 1;
        },
        TChildFaults{.fileSizeLimit = 20000});
    EXPECT_EQ(result, 1) << "0: Close claimed success; 2: the file could not be started";
    EXPECT_EQ(read_file_bytes(path), bytes_of("the previous take"));
    EXPECT_EQ(folder_size(dir.Path()), 1);
}

TEST(WavWriter, FileThatCannotBeCreatedGivesAnErrorNamingIt) {
    TTempDir dir;
    std::string path = (dir.Path() / "no such folder" / "x.wav").string();
    TAudioFileWriter writer;
    std::string error;
    EXPECT_FALSE(writer.Open(path, 44100, &error));
    EXPECT_FALSE(writer.IsOpen());
    EXPECT_NE(error.find(path), std::string::npos) << error;
}

}  // namespace
