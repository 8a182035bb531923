#pragma once
// TWavWriter: a 16-bit stereo PCM WAV file written in pieces, whose RIFF sizes are fixed
// up on Close(). Until then the header says "empty", so a file cut short by a crash is
// still a valid, silent WAV rather than garbage.
//
// Limits: one format (16-bit, 2 channels, any rate); at most 4 GiB of samples, which is
// about 6.7 hours at 44100 Hz: frames beyond that are counted but not written.
//
// Threads: one thread at a time. Append() does no allocation and no stdio buffering, so
// a render thread may call it while music plays.

#include <cstddef>
#include <cstdint>
#include <string>

class TWavWriter {
public:
    static constexpr int kChannels = 2;
    static constexpr int kBytesPerSample = 2;
    static constexpr int kBytesPerFrame = kChannels * kBytesPerSample;
    static constexpr size_t kHeaderBytes = 44;

    TWavWriter() = default;
    ~TWavWriter();
    TWavWriter(const TWavWriter&) = delete;
    TWavWriter& operator=(const TWavWriter&) = delete;

    // Creates or truncates path. False with *error set when the file cannot be made.
    bool Open(const std::string& path, int32_t sampleRate, std::string* error);
    // frames interleaved left/right samples, native 16-bit. False after a write error.
    bool Append(const int16_t* samples, size_t frames);
    // Writes the final sizes and closes; idempotent. False when any write failed.
    bool Close();

    bool IsOpen() const { return fFd >= 0; }
    uint64_t FramesWritten() const { return fDataBytes / kBytesPerFrame; }

private:
    bool WriteHeader(uint32_t dataBytes);
    bool WriteAt(const void* bytes, size_t length, uint64_t offset);

    int fFd = -1;
    int32_t fSampleRate = 0;
    uint64_t fDataBytes = 0;
    bool fFailed = false;
};
