#pragma once
// TMidiFilter: applies the user's volume (note-on velocities only) and key (note numbers
// of note-ons and note-offs, the percussion channel exempt) and passes everything else
// on unchanged through its own producer, the public MIDI OUT endpoint of its lane.
//
// Threads: hooks on the filter's receive thread; SetKey/SetVolume from the owner's thread.
// Key and volume are atomics read once per event.

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

    static uint8_t ScaleVelocity(uint8_t velocity, int32_t volumePercent);
    static uint8_t Transpose(uint8_t channel, uint8_t note, int32_t semitones);

private:
    std::atomic<int32_t> fKey{0};
    std::atomic<int32_t> fVolume{100};
    std::atomic<uint16_t> fMuted{0};
};
