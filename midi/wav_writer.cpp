#include "midi/wav_writer.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

namespace {

// Samples go to the file as they come from the synthesizer; WAV wants little-endian.
static_assert(std::endian::native == std::endian::little);

constexpr uint64_t kMaxDataBytes = 0xFFFFFFFFull - (TWavWriter::kHeaderBytes - 8);

void put_le(uint8_t* at, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) at[i] = uint8_t(value >> (8 * i));
}

}  // namespace

TWavWriter::~TWavWriter() { Close(); }

bool TWavWriter::Open(const std::string& path, int32_t sampleRate, std::string* error) {
    Close();
    if (fFile.Open(path) != 0) {
        if (error)
            *error = "cannot create WAV file " + path + ": " + std::strerror(-fFile.InitCheck());
        return false;
    }
    fSampleRate = sampleRate;
    fDataBytes = 0;
    fFailed = false;
    if (!WriteHeader(0)) {
        if (error)
            *error = "cannot write WAV file " + path + ": " + std::strerror(-fFile.InitCheck());
        Discard();
        return false;
    }
    return true;
}

bool TWavWriter::Append(const int16_t* samples, size_t frames) {
    if (!IsOpen() || fFailed) return false;
    uint64_t bytes =
        std::min<uint64_t>(uint64_t(frames) * kBytesPerFrame, kMaxDataBytes - fDataBytes);
    if (bytes == 0) return true;
    if (!WriteAt(samples, size_t(bytes), kHeaderBytes + fDataBytes)) return false;
    fDataBytes += bytes;
    return true;
}

bool TWavWriter::Close() {
    if (!IsOpen()) return !fFailed;
    WriteHeader(uint32_t(fDataBytes));
    if (fFile.Commit() != 0) fFailed = true;
    return !fFailed;
}

void TWavWriter::Discard() {
    fFile.Discard();
    fFailed = true;
}

bool TWavWriter::WriteHeader(uint32_t dataBytes) {
    uint8_t header[kHeaderBytes];
    std::memcpy(header + 0, "RIFF", 4);
    put_le(header + 4, uint32_t(kHeaderBytes - 8) + dataBytes, 4);
    std::memcpy(header + 8, "WAVE", 4);
    std::memcpy(header + 12, "fmt ", 4);
    put_le(header + 16, 16, 4);  // size of the PCM format chunk
    put_le(header + 20, 1, 2);   // PCM
    put_le(header + 22, kChannels, 2);
    put_le(header + 24, uint32_t(fSampleRate), 4);
    put_le(header + 28, uint32_t(fSampleRate) * kBytesPerFrame, 4);
    put_le(header + 32, kBytesPerFrame, 2);
    put_le(header + 34, 8 * kBytesPerSample, 2);
    std::memcpy(header + 36, "data", 4);
    put_le(header + 40, dataBytes, 4);
    return WriteAt(header, sizeof header, 0);
}

bool TWavWriter::WriteAt(const void* bytes, size_t length, uint64_t offset) {
    if (!fFile.WriteAt(bytes, length, offset)) {
        fFailed = true;
        return false;
    }
    return true;
}
