#include "midi/wav_renderer.h"

#include <algorithm>

#include "veldan/base/clock.h"

namespace {
// The file is only written to disk, nothing waits on it: no real-time priority, so a
// blocking write cannot hold up the music threads.
constexpr int32_t kRenderPriority = 10;
}  // namespace

TWavRenderer::TWavRenderer(fluid_synth_t* synth, int32_t sampleRate)
    : veldan::TThread("Quill Synth WAV", kRenderPriority),
      fSynth(synth),
      fSampleRate(sampleRate),
      fBuffer(new int16_t[kBufferFrames * TAudioFileWriter::kChannels]) {}

TWavRenderer::~TWavRenderer() {
    Stop();
    fWriter.Close();
}

bool TWavRenderer::Open(const std::string& path, std::string* error) {
    return fWriter.Open(path, fSampleRate, error);
}

void TWavRenderer::Start() {
    fStartUs = veldan::system_time();
    Resume();
}

bool TWavRenderer::Finish(int64_t tailUs) {
    if (IsStarted()) {
        fEndUs.store(veldan::system_time() + std::max<int64_t>(tailUs, 0),
                     std::memory_order_release);
        Interrupt();
        Wait();
    } else {
        RenderUpTo(fFramesRendered + FramesDueAt(fStartUs + std::max<int64_t>(tailUs, 0)));
    }
    return fWriter.Close();
}

void TWavRenderer::Discard() {
    Stop();
    fWriter.Discard();
}

int32_t TWavRenderer::Execute() {
    for (;;) {
        int64_t endUs = fEndUs.load(std::memory_order_acquire);
        int64_t nowUs = veldan::system_time();
        RenderUpTo(FramesDueAt(std::min(nowUs, endUs)));
        if (nowUs >= endUs) return 0;
        if (!SleepUntil(std::min(NextWakeUp(nowUs), endUs))) return 0;
    }
}

void TWavRenderer::RenderUntilUs(int64_t songUs) { RenderUpTo(FramesDueAt(fStartUs + songUs)); }

uint64_t TWavRenderer::FramesDueAt(int64_t timeUs) const {
    if (timeUs <= fStartUs) return 0;
    return uint64_t(timeUs - fStartUs) * uint64_t(fSampleRate) / 1000000u;
}

int64_t TWavRenderer::NextWakeUp(int64_t nowUs) const {
    return nowUs - (nowUs - fStartUs) % kPeriodUs + kPeriodUs;
}

void TWavRenderer::RenderUpTo(uint64_t frames) {
    while (fFramesRendered < frames) {
        int count = int(std::min<uint64_t>(frames - fFramesRendered, kBufferFrames));
        int16_t* buffer = fBuffer.get();
        fluid_synth_write_s16(fSynth, count, buffer, 0, TAudioFileWriter::kChannels, buffer, 1,
                              TAudioFileWriter::kChannels);
        fWriter.Append(buffer, size_t(count));
        fFramesRendered += uint64_t(count);
    }
}
