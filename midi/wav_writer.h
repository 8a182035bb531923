#pragma once
// TWavWriter: a 16-bit stereo PCM WAV file written in pieces, whose RIFF sizes are fixed
// up on Close(). The file is made beside the target under a temporary name and takes the
// target's name only when Close() has written it whole (veldan::TAtomicFile): a failed,
// discarded or crashed recording leaves no half-file under the user's name, and an older
// file of that name stays as it was.
//
// Limits: one format (16-bit, 2 channels, any rate); at most 4 GiB of samples, which is
// about 6.7 hours at 44100 Hz: frames beyond that are counted but not written.
//
// Threads: one thread at a time. Append() does no allocation and no stdio buffering, so
// a render thread may call it while music plays.

#include <cstddef>
#include <cstdint>
#include <string>

#include "veldan/base/atomic_file.h"

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

    // Starts the file for path. False with *error set when it cannot be made (a missing or
    // read-only folder).
    bool Open(const std::string& path, int32_t sampleRate, std::string* error);
    // frames interleaved left/right samples, native 16-bit. False after a write error.
    bool Append(const int16_t* samples, size_t frames);
    // Writes the final sizes and puts the file in place; idempotent. False when any write
    // failed (nothing is then put in place).
    bool Close();
    // Drops the file: path stays as it was before Open. Idempotent.
    void Discard();

    bool IsOpen() const { return fFile.Descriptor() >= 0; }
    uint64_t FramesWritten() const { return fDataBytes / kBytesPerFrame; }

  private:
    bool WriteHeader(uint32_t dataBytes);
    bool WriteAt(const void* bytes, size_t length, uint64_t offset);

    veldan::TAtomicFile fFile;
    int32_t fSampleRate = 0;
    uint64_t fDataBytes = 0;
    bool fFailed = false;
};
