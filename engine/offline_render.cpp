#include "engine/offline_render.h"

#include <array>
#include <memory>

#include "engine/midi_filter.h"
#include "engine/smf_producer.h"
#include "engine/volume_fade.h"
#include "midi/midi_defs.h"
#include "midi/synth.h"

namespace {

// How often the caller hears of the progress, in song time.
constexpr int64_t kProgressEveryUs = 1000000;

// Takes the walked events to the synthesizer at their time in the song as played.
class TRenderSink : public TPlaySink {
  public:
    TRenderSink(TSMFProducer& producer, TSynthConsumer& synth, const TRenderOptions& options,
                const TRenderProgressFn& progress)
        : fProducer(producer),
          fSynth(synth),
          fOptions(options),
          fProgress(progress),
          fTotalUs(producer.PlayedTickToUs(producer.CountPlayedTicks(), options.tempoPercent)) {}

    bool Cancelled() const { return fCancelled; }
    int64_t TotalUs() const { return fTotalUs; }

    // As the output chain's filters do it: the channel volumes follow the fade.
    void FadeLevelChanged(int32_t level, uint32_t tick) override {
        if (fCancelled) return;
        RenderUntil(tick);
        for (int port = 0; port < 2; ++port) {
            fSynth.SelectPort(port);
            fVolumes[size_t(port)].SetLevel(level, [&](uint8_t channel, uint8_t volume) {
                fSynth.ControlChange(channel, TVolumeFade::kVolumeController, volume, 0);
            });
        }
    }

  protected:
    void Deliver(const TSMFEvent& e) override {
        if (fCancelled || e.status < 0x80) return;
        const int64_t us = RenderUntil(e.tick);
        if (us >= fNextProgressUs) {
            fNextProgressUs = us + kProgressEveryUs;
            if (fProgress && !fProgress(us, fTotalUs)) fCancelled = true;
        }
        fSynth.SelectPort(int(e.port));
        Send(e);
    }

  private:
    // The sound up to tick of the current pass; its time in the song as played.
    int64_t RenderUntil(uint32_t tick) {
        const int64_t us = fProducer.PlayedTickToUs(fProducer.LoopPlan().PlayedTick({Pass(), tick}),
                                                    fOptions.tempoPercent);
        fSynth.RenderUntilUs(us);
        return us;
    }

    void Send(const TSMFEvent& e) {
        TVolumeFade& volumes = fVolumes[e.port & 1];
        const uint8_t channel = e.status & 0x0F;
        const uint8_t* d = e.data;
        switch (e.status & 0xF0) {
            case midi::kNoteOff:
                fSynth.NoteOff(channel, TMidiFilter::Transpose(channel, d[0], fOptions.key), d[1],
                               0);
                return;
            case midi::kNoteOn:
                // Velocity 0 is a note-off, whatever the volume.
                fSynth.NoteOn(channel, TMidiFilter::Transpose(channel, d[0], fOptions.key),
                              d[1] ? TMidiFilter::ScaleVelocity(d[1], fOptions.volumePercent) : 0,
                              0);
                return;
            case midi::kKeyPressure:
                fSynth.KeyPressure(channel, d[0], d[1], 0);
                return;
            case midi::kControlChange:
                fSynth.ControlChange(channel, d[0], volumes.ControlChange(channel, d[0], d[1]), 0);
                return;
            case midi::kProgramChange:
                fSynth.ProgramChange(channel, d[0], 0);
                return;
            case midi::kChannelPressure:
                fSynth.ChannelPressure(channel, d[0], 0);
                return;
            case midi::kPitchBend:
                fSynth.PitchBend(channel, d[0], d[1], 0);
                return;
            default:
                break;
        }
        if (e.status != midi::kSysExStart) return;
        volumes.SystemExclusive(e.data, e.length);
        fSynth.SystemExclusive(e.data, e.length, 0);
    }

    TSMFProducer& fProducer;
    TSynthConsumer& fSynth;
    const TRenderOptions& fOptions;
    const TRenderProgressFn& fProgress;
    const int64_t fTotalUs;
    // Per port: the synthesizer here is fresh, so both start as the filters do.
    std::array<TVolumeFade, 2> fVolumes;
    int64_t fNextProgressUs = 0;
    bool fCancelled = false;
};

}  // namespace

int32_t render_song(TSMFProducer& producer, const std::string& path, const TRenderOptions& options,
                    const TRenderProgressFn& progress, std::string* error) {
    TSynthConsumer::TOptions synthOptions;
    // The synthesizer's file writer takes the format from the name.
    synthOptions.wavPath = path;
    synthOptions.offline = true;
    if (!options.soundFonts.empty()) synthOptions.soundFonts = options.soundFonts;
    synthOptions.reverb = options.reverb;
    synthOptions.chorus = options.chorus;
    std::unique_ptr<TSynthConsumer> synth = TSynthConsumer::Create(synthOptions, error);
    if (!synth) return -1;
    TRenderSink sink(producer, *synth, options, progress);
    producer.WalkPlayed(sink);
    if (sink.Cancelled()) {
        synth->DiscardWav();
        *error = "cancelled";
        return -1;
    }
    // The song's last tick may come after its last event (a long End of Track), and a
    // fade may end between two events.
    synth->RenderUntilUs(sink.TotalUs());
    if (!synth->Finish(options.tailUs)) {
        *error = "cannot write " + path;
        return -1;
    }
    if (progress) progress(sink.TotalUs(), sink.TotalUs());
    return 0;
}
