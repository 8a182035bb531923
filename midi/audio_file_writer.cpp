#include "midi/audio_file_writer.h"

#include <sndfile.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace {

// Samples go to the file as they come from the synthesizer; WAV wants little-endian.
static_assert(std::endian::native == std::endian::little);

constexpr uint64_t kMaxDataBytes = 0xFFFFFFFFull - (TAudioFileWriter::kHeaderBytes - 8);

void put_le(uint8_t* at, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) at[i] = uint8_t(value >> (8 * i));
}

}  // namespace

TAudioFileWriter::~TAudioFileWriter() { Close(); }

bool TAudioFileWriter::IsFlacPath(const std::string& path) {
    constexpr std::string_view kSuffix = ".flac";
    return path.size() >= kSuffix.size() &&
           std::equal(
               kSuffix.begin(), kSuffix.end(), path.end() - std::ptrdiff_t(kSuffix.size()),
               [](char a, char b) { return a == std::tolower(static_cast<unsigned char>(b)); });
}

bool TAudioFileWriter::Open(const std::string& path, int32_t sampleRate, std::string* error) {
    Close();
    const bool flac = IsFlacPath(path);
    const char* kind = flac ? "FLAC" : "WAV";
    if (fFile.Open(path) != 0) {
        if (error)
            *error = std::string("cannot create ") + kind + " file " + path + ": " +
                     std::strerror(-fFile.InitCheck());
        return false;
    }
    fSampleRate = sampleRate;
    fDataBytes = 0;
    fFailed = false;
    if (flac) {
        SF_INFO format{};
        format.samplerate = sampleRate;
        format.channels = kChannels;
        format.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
        // The descriptor stays the atomic file's: it closes it on Commit or Discard.
        fFlac = sf_open_fd(fFile.Descriptor(), SFM_WRITE, &format, SF_FALSE);
        if (!fFlac) {
            if (error) *error = "cannot write FLAC file " + path + ": " + sf_strerror(nullptr);
            Discard();
            return false;
        }
        return true;
    }
    if (!WriteHeader(0)) {
        if (error)
            *error = "cannot write WAV file " + path + ": " + std::strerror(-fFile.InitCheck());
        Discard();
        return false;
    }
    return true;
}

bool TAudioFileWriter::Append(const int16_t* samples, size_t frames) {
    if (!IsOpen() || fFailed) return false;
    if (fFlac) return AppendFlac(samples, frames);
    uint64_t bytes =
        std::min<uint64_t>(uint64_t(frames) * kBytesPerFrame, kMaxDataBytes - fDataBytes);
    if (bytes == 0) return true;
    if (!WriteAt(samples, size_t(bytes), kHeaderBytes + fDataBytes)) return false;
    fDataBytes += bytes;
    return true;
}

bool TAudioFileWriter::Close() {
    if (!IsOpen()) return !fFailed;
    if (fFlac) {
        CloseFlac();
    } else {
        WriteHeader(uint32_t(fDataBytes));
    }
    if (fFile.Commit() != 0) fFailed = true;
    return !fFailed;
}

void TAudioFileWriter::Discard() {
    CloseFlac();
    fFile.Discard();
    fFailed = true;
}

bool TAudioFileWriter::AppendFlac(const int16_t* samples, size_t frames) {
    const sf_count_t count = sf_count_t(frames);
    if (sf_writef_short(fFlac, samples, count) != count) {
        fFailed = true;
        fFile.Fail(-EIO);
        return false;
    }
    fDataBytes += uint64_t(frames) * kBytesPerFrame;
    return true;
}

bool TAudioFileWriter::CloseFlac() {
    if (!fFlac) return true;
    // The encoder writes its last frames and fixes up its header here.
    const bool closed = sf_close(fFlac) == 0;
    fFlac = nullptr;
    if (!closed) {
        fFailed = true;
        fFile.Fail(-EIO);
    }
    return closed;
}

bool TAudioFileWriter::WriteHeader(uint32_t dataBytes) {
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

bool TAudioFileWriter::WriteAt(const void* bytes, size_t length, uint64_t offset) {
    if (!fFile.WriteAt(bytes, length, offset)) {
        fFailed = true;
        return false;
    }
    return true;
}
