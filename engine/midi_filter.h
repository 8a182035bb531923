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
// A song that plays its marked loops fades out at its end: the note-on velocities are
// scaled by the fade level (per mille) that the play thread writes as the song goes on, a
// ramp down to silence that costs the receive thread one atomic load per note-on.
//
// Threads: hooks on the filter's receive thread, which alone touches the note table (a
// fixed array: nothing allocates or locks there); SetKey/SetVolume from the owner's
// thread. Key, volume and the fade level are atomics read once per event.

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "engine/pass_through.h"

class TMidiFilter : public TMidiPassThrough {
  public:
    explicit TMidiFilter(const std::string& name);
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

    // Owner's thread, before events come: where the fade level is read (the producer's,
    // which must outlive the filter's receiving); null for no fade.
    void SetFadeSource(const std::atomic<int32_t>* level) {
        fFadeSource.store(level, std::memory_order_release);
    }

    static uint8_t ScaleVelocity(uint8_t velocity, int32_t volumePercent);
    // Also by a fade level from 1000 (full) down to 0 (silence).
    static uint8_t ScaleVelocity(uint8_t velocity, int32_t volumePercent, int32_t fadeLevel);
    static uint8_t Transpose(uint8_t channel, uint8_t note, int32_t semitones);

  private:
    // What went out for one incoming note of one channel.
    struct TSentNote {
        uint8_t note = 0;
        uint8_t owed = 0;  // note-ons sent as note that still wait for their note-off
    };
    // A note-off, or a note-on of velocity 0 when asNoteOn, for the note of channel.
    void Release(uint8_t channel, uint8_t note, uint8_t velocity, bool asNoteOn, int64_t time);

    std::array<std::array<TSentNote, 128>, 16> fSent{};
    std::atomic<int32_t> fKey{0};
    std::atomic<int32_t> fVolume{100};
    std::atomic<uint16_t> fMuted{0};
    std::atomic<const std::atomic<int32_t>*> fFadeSource{nullptr};
};
