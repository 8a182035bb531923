#pragma once
// TWavRenderer: plays a FluidSynth synthesizer into a WAV file (or a FLAC file, by its name:
// see TAudioFileWriter) in real time, for machines without a sound device and for tests, or
// offline as fast as it goes. Its thread wakes every kPeriodUs on absolute
// CLOCK_MONOTONIC deadlines and renders exactly the frames due since Start(): frames =
// elapsed time x sample rate, so the file never drifts from the clock however late a
// wake-up comes; a late thread catches up in pieces of kBufferFrames. An event lands at
// the frame rendered last before it arrived: up to one period (plus the lateness of that
// wake-up) earlier than it was played.
//
// Threads: Open, Start, Finish and the destructor belong to the owner's thread. The
// render thread calls only fluid_synth_write_s16 (FluidSynth's API is thread-safe) and
// TAudioFileWriter::Append, on a buffer allocated up front. The file is written by the owner
// again only after the render thread has been joined.

#include <fluidsynth.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "midi/audio_file_writer.h"
#include "veldan/base/thread.h"

class TWavRenderer : public veldan::TThread {
  public:
    static constexpr int64_t kPeriodUs = 5000;
    static constexpr size_t kBufferFrames = 4096;

    TWavRenderer(fluid_synth_t* synth, int32_t sampleRate);
    ~TWavRenderer() override;

    bool Open(const std::string& path, std::string* error);
    // Frame 0 of the file is now.
    void Start();
    // system_time() of the file's first frame; 0 before Start().
    int64_t StartTime() const { return fStartUs; }
    // Keeps rendering until tailUs from now, so release tails reach the file, then
    // closes it; blocks for about tailUs. Idempotent. False when a write failed. Never
    // started (offline), it renders the tail at once instead.
    bool Finish(int64_t tailUs);
    // Stops at once and drops the file: its path stays as it was before Open.
    void Discard();
    // Offline, without Start(): renders every frame up to songUs after frame 0, as fast as
    // the synthesizer goes.
    void RenderUntilUs(int64_t songUs);

  protected:
    int32_t Execute() override;

  private:
    uint64_t FramesDueAt(int64_t timeUs) const;
    int64_t NextWakeUp(int64_t nowUs) const;
    void RenderUpTo(uint64_t frames);

    fluid_synth_t* fSynth;
    int32_t fSampleRate;
    TAudioFileWriter fWriter;
    std::unique_ptr<int16_t[]> fBuffer;
    int64_t fStartUs = 0;
    // Where the file ends, set by Finish(); the render thread stops there.
    std::atomic<int64_t> fEndUs{std::numeric_limits<int64_t>::max()};
    uint64_t fFramesRendered = 0;  // render thread only
};
