#pragma once
// TMidiFilter: applies the user's volume (note-on velocities only) and key (note numbers
// of note-ons and note-offs, the percussion channel exempt) and passes everything else
// on unchanged through its own producer, the public MIDI OUT endpoint of its lane.
//
// A note-off goes to the note that its note-on was sent as, whatever the key has become
// in between: the filter counts, per channel and incoming note, the note-ons still owed a
// note-off and remembers the note they went out as. So the key may change at any moment
// without leaving a note hanging. A note-off that nothing is owed to takes the key in
// force.
//
// A song that plays its marked loops fades out at its end by its channel volumes (see
// TVolumeFade): every controller 7 is passed on scaled by the fade level, and each step
// of the level, posted by the play thread, sends the channels their new volume, so that
// held notes fade as well as new ones. Velocities are not scaled by the fade: on top of
// the volume that would fade new notes twice as fast as held ones, and change their
// timbre where the sound set layers by velocity.
//
// Threads: hooks on the filter's receive thread, which alone touches the note table and
// the volumes (fixed arrays: nothing allocates or locks there); SetKey/SetVolume from the
// owner's thread, atomics read once per event. A fade step crosses to the receive thread
// as a command in the filter's own queue.

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "engine/pass_through.h"
#include "engine/volume_fade.h"

class TMidiFilter : public TMidiPassThrough {
  public:
    explicit TMidiFilter(const std::string& name);
    // A filter that rides on host's receive thread, the stage before it.
    TMidiFilter(TMidiLocalConsumer& host, const std::string& name);
    ~TMidiFilter() override;

    // kept: the setters check nothing and return 0; notes clamp to 0..127, velocities to 127.
    int32_t SetKey(int32_t semitones);
    int32_t Key() const { return fKey.load(std::memory_order_relaxed); }
    int32_t SetVolume(int32_t percent);
    int32_t Volume() const { return fVolume.load(std::memory_order_relaxed); }
    // Channels whose note-ons are dropped (bit 0 is channel 1); everything else passes,
    // note-offs included, so notes that sound can still end.
    void SetMutedChannels(uint16_t channels) { fMuted.store(channels, std::memory_order_relaxed); }
    uint16_t MutedChannels() const { return fMuted.load(std::memory_order_relaxed); }

    void NoteOff(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override;
    void NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override;

    void ControlChange(uint8_t channel, uint8_t controller, uint8_t value, int64_t time) override;
    void SystemExclusive(const uint8_t* data, size_t length, int64_t time) override;

    // Any thread, the play thread above all: the fade level (per mille) from now on, taken
    // after the events sent to the filter before. Wait-free while the queue has room.
    void PostFadeLevel(int32_t level);

    static uint8_t ScaleVelocity(uint8_t velocity, int32_t volumePercent);
    static uint8_t Transpose(uint8_t channel, uint8_t note, int32_t semitones);

  protected:
    void Command(const uint8_t* data, size_t length, int64_t time) override;

  private:
    // What went out for one incoming note of one channel.
    struct TSentNote {
        uint8_t note = 0;
        uint8_t owed = 0;  // note-ons sent as note that still wait for their note-off
    };
    // A note-off, or a note-on of velocity 0 when asNoteOn, for the note of channel.
    void Release(uint8_t channel, uint8_t note, uint8_t velocity, bool asNoteOn, int64_t time);

    std::array<std::array<TSentNote, 128>, 16> fSent{};
    TVolumeFade fVolumes;
    std::atomic<int32_t> fKey{0};
    std::atomic<int32_t> fVolume{100};
    std::atomic<uint16_t> fMuted{0};
};
