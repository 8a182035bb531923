#include "engine/midi_filter.h"

#include <algorithm>

#include "midi/midi_defs.h"

TMidiFilter::TMidiFilter(const std::string& name) : TMidiPassThrough(name) {}

TMidiFilter::~TMidiFilter() { StopReceiving(); }

int32_t TMidiFilter::SetKey(int32_t semitones) {
    fKey.store(semitones, std::memory_order_relaxed);
    return 0;
}

int32_t TMidiFilter::SetVolume(int32_t percent) {
    fVolume.store(percent, std::memory_order_relaxed);
    return 0;
}

uint8_t TMidiFilter::ScaleVelocity(uint8_t velocity, int32_t volumePercent) {
    int64_t scaled = int64_t(velocity) * volumePercent / 100;
    return uint8_t(std::clamp<int64_t>(scaled, 0, 127));
}

uint8_t TMidiFilter::Transpose(uint8_t channel, uint8_t note, int32_t semitones) {
    if (channel == midi::kPercussionChannel) return note;
    return uint8_t(std::clamp<int64_t>(int64_t(note) + semitones, 0, 127));
}

void TMidiFilter::NoteOff(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) {
    fOutput.SprayNoteOff(channel, Transpose(channel, note, Key()), velocity, time);
}

void TMidiFilter::NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) {
    // A note-on of velocity 0 is a release, which a muted channel still needs.
    if (velocity != 0 && (MutedChannels() & (1u << (channel & 0x0F)))) return;
    fOutput.SprayNoteOn(channel, Transpose(channel, note, Key()),
                        ScaleVelocity(velocity, Volume()), time);
}
