#pragma once
// TAudioFileWriter: a 16-bit stereo audio file written in pieces: a PCM WAV file, whose RIFF
// sizes are fixed up on Close(), or a FLAC file when the name ends in ".flac" (any case),
// encoded as it comes through libsndfile. The file is made beside the target under a
// temporary name and takes the target's name only when Close() has written it whole
// (veldan::TAtomicFile): a failed, cancelled, discarded or crashed recording leaves no
// half-file under the user's name, and an older file of that name stays as it was.
//
// Limits: 16-bit, 2 channels, any rate. A WAV file holds at most 4 GiB of samples, which
// is about 6.7 hours at 44100 Hz: frames beyond that are counted but not written.
//
// Threads: one thread at a time. Append() to a WAV file does no allocation and no stdio
// buffering, so a render thread may call it while music plays; the FLAC encoder promises
// no such thing, so FLAC is for rendering off the music threads.

#include <cstddef>
#include <cstdint>
#include <string>

#include "veldan/base/atomic_file.h"

struct sf_private_tag;

class TAudioFileWriter {
  public:
    static constexpr int kChannels = 2;
    static constexpr int kBytesPerSample = 2;
    static constexpr int kBytesPerFrame = kChannels * kBytesPerSample;
    static constexpr size_t kHeaderBytes = 44;

    TAudioFileWriter() = default;
    ~TAudioFileWriter();
    TAudioFileWriter(const TAudioFileWriter&) = delete;
    TAudioFileWriter& operator=(const TAudioFileWriter&) = delete;

    // Whether path names a FLAC file.
    static bool IsFlacPath(const std::string& path);

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
    bool IsFlac() const { return fFlac != nullptr; }

  private:
    bool WriteHeader(uint32_t dataBytes);
    bool WriteAt(const void* bytes, size_t length, uint64_t offset);
    bool AppendFlac(const int16_t* samples, size_t frames);
    // Ends the FLAC stream; false when the encoder could not write.
    bool CloseFlac();

    veldan::TAtomicFile fFile;
    sf_private_tag* fFlac = nullptr;  // the encoder writing into fFile's descriptor
    int32_t fSampleRate = 0;
    uint64_t fDataBytes = 0;
    bool fFailed = false;
};
