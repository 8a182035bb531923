#include "tests/midi/wav_reader.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "tests/support/temp_dir.h"

namespace {

uint32_t le(const std::vector<uint8_t>& bytes, size_t at, int size) {
    uint32_t value = 0;
    for (int i = size - 1; i >= 0; --i) value = value << 8 | bytes[at + size_t(i)];
    return value;
}

bool tag_at(const std::vector<uint8_t>& bytes, size_t at, const char* tag) {
    return std::memcmp(bytes.data() + at, tag, 4) == 0;
}

}  // namespace

int TWavFile::PeakOf(size_t firstFrame, size_t endFrame) const {
    int peak = 0;
    endFrame = std::min(endFrame, Frames());
    for (size_t i = firstFrame * channels; i < endFrame * channels; ++i)
        peak = std::max(peak, std::abs(int(samples[i])));
    return peak;
}

double TWavFile::RmsOf(size_t firstFrame, size_t endFrame) const {
    endFrame = std::min(endFrame, Frames());
    if (firstFrame >= endFrame) return 0;
    double sum = 0;
    for (size_t i = firstFrame * channels; i < endFrame * channels; ++i)
        sum += double(samples[i]) * samples[i];
    return std::sqrt(sum / double((endFrame - firstFrame) * channels));
}

TWavFile read_wav(const std::filesystem::path& path) {
    TWavFile wav;
    std::vector<uint8_t> bytes = read_file_bytes(path);
    if (bytes.size() < 44) {
        wav.problem = "file of " + std::to_string(bytes.size()) + " bytes";
        return wav;
    }
    if (!tag_at(bytes, 0, "RIFF") || !tag_at(bytes, 8, "WAVE") || !tag_at(bytes, 12, "fmt ") ||
        le(bytes, 16, 4) != 16 || !tag_at(bytes, 36, "data")) {
        wav.problem = "not a canonical PCM WAV header";
        return wav;
    }
    if (le(bytes, 4, 4) != bytes.size() - 8) {
        wav.problem = "RIFF size " + std::to_string(le(bytes, 4, 4)) + " for a file of " +
                      std::to_string(bytes.size()) + " bytes";
        return wav;
    }
    wav.format = uint16_t(le(bytes, 20, 2));
    wav.channels = uint16_t(le(bytes, 22, 2));
    wav.sampleRate = le(bytes, 24, 4);
    wav.byteRate = le(bytes, 28, 4);
    wav.blockAlign = uint16_t(le(bytes, 32, 2));
    wav.bitsPerSample = uint16_t(le(bytes, 34, 2));
    wav.dataBytes = le(bytes, 40, 4);
    if (wav.dataBytes != bytes.size() - 44) {
        wav.problem = "data size " + std::to_string(wav.dataBytes) + " for a file of " +
                      std::to_string(bytes.size()) + " bytes";
        return wav;
    }
    wav.samples.resize(wav.dataBytes / 2);
    for (size_t i = 0; i < wav.samples.size(); ++i)
        wav.samples[i] = int16_t(le(bytes, 44 + 2 * i, 2));
    return wav;
}
