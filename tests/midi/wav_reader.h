#pragma once
// Reads back a 16-bit PCM WAV file written by TAudioFileWriter, checking its header on the way.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

struct TWavFile {
    std::string problem;  // empty when the header is valid
    uint16_t format = 0;
    uint16_t channels = 0;
    uint32_t sampleRate = 0;
    uint32_t byteRate = 0;
    uint16_t blockAlign = 0;
    uint16_t bitsPerSample = 0;
    uint32_t dataBytes = 0;
    std::vector<int16_t> samples;  // interleaved

    size_t Frames() const { return channels ? samples.size() / channels : 0; }
    // The largest absolute sample of frames [first, end).
    int PeakOf(size_t firstFrame, size_t endFrame) const;
    // The root mean square of the samples of frames [first, end); 0 for none.
    double RmsOf(size_t firstFrame, size_t endFrame) const;
};

TWavFile read_wav(const std::filesystem::path& path);
