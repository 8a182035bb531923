#include "engine/midi_filter.h"

#include <algorithm>
#include <cstring>

#include "midi/midi_defs.h"

TMidiFilter::TMidiFilter(const std::string& name) : TMidiPassThrough(name) {}

TMidiFilter::TMidiFilter(TMidiLocalConsumer& host, const std::string& name)
    : TMidiPassThrough(host, name) {}

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

void TMidiFilter::PostFadeLevel(int32_t level) {
    uint8_t bytes[sizeof level];
    std::memcpy(bytes, &level, sizeof level);
    EnqueueCommand(bytes, sizeof bytes, 0);
}

void TMidiFilter::Command(const uint8_t* data, size_t length, int64_t time) {
    int32_t level = 0;
    if (length != sizeof level) return;
    std::memcpy(&level, data, sizeof level);
    fVolumes.SetLevel(level, [&](uint8_t channel, uint8_t volume) {
        fOutput.SprayControlChange(channel, TVolumeFade::kVolumeController, volume, time);
    });
}

void TMidiFilter::ControlChange(uint8_t channel, uint8_t controller, uint8_t value, int64_t time) {
    fOutput.SprayControlChange(channel, controller,
                               fVolumes.ControlChange(channel, controller, value), time);
}

void TMidiFilter::SystemExclusive(const uint8_t* data, size_t length, int64_t time) {
    fVolumes.SystemExclusive(data, length);
    fOutput.SpraySystemExclusive(data, length, time);
}

uint8_t TMidiFilter::Transpose(uint8_t channel, uint8_t note, int32_t semitones) {
    if (channel == midi::kPercussionChannel) return note;
    return uint8_t(std::clamp<int64_t>(int64_t(note) + semitones, 0, 127));
}

namespace {
// As the note-on manager silences notes.
constexpr uint8_t kReleaseVelocity = 64;
}  // namespace

void TMidiFilter::Release(uint8_t channel, uint8_t note, uint8_t velocity, bool asNoteOn,
                          int64_t time) {
    TSentNote& sent = fSent[channel & 0x0F][note & 0x7F];
    uint8_t out = sent.note;
    if (sent.owed > 0)
        --sent.owed;
    else
        out = Transpose(channel, note, Key());
    if (asNoteOn)
        fOutput.SprayNoteOn(channel, out, 0, time);
    else
        fOutput.SprayNoteOff(channel, out, velocity, time);
}

void TMidiFilter::NoteOff(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) {
    Release(channel, note, velocity, false, time);
}

void TMidiFilter::NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) {
    // A note-on of velocity 0 is a release, which a muted channel still needs.
    if (velocity == 0) {
        Release(channel, note, 0, true, time);
        return;
    }
    if (MutedChannels() & (1u << (channel & 0x0F))) return;
    const uint8_t out = Transpose(channel, note, Key());
    const uint8_t scaled = ScaleVelocity(velocity, Volume());
    // Turned into a release by the volume: it starts nothing that a note-off would owe.
    if (scaled == 0) {
        fOutput.SprayNoteOn(channel, out, 0, time);
        return;
    }
    TSentNote& sent = fSent[channel & 0x0F][note & 0x7F];
    if (sent.owed > 0 && sent.note != out) {
        // Struck again after a key change while its old sound lasts: one note cannot owe
        // note-offs to two notes, so the old sound ends here.
        for (; sent.owed > 0; --sent.owed)
            fOutput.SprayNoteOff(channel, sent.note, kReleaseVelocity, time);
    }
    sent.note = out;
    if (sent.owed < UINT8_MAX) ++sent.owed;
    fOutput.SprayNoteOn(channel, out, scaled, time);
}
