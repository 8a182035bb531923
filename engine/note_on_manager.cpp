#include "engine/note_on_manager.h"

#include <algorithm>
#include <cstring>

#include "engine/sys_reset.h"
#include "midi/midi_defs.h"

TNoteOnManager::TNoteOnManager() = default;

TNoteOnManager::~TNoteOnManager() { StopReceiving(); }

void TNoteOnManager::SetSysResetHandler(std::function<void(int32_t)> handler) {
    std::lock_guard lock(fLock);
    fSysReset = std::move(handler);
}

void TNoteOnManager::NoteOff(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) {
    fOutput.SprayNoteOff(channel, note, velocity, time);
    RemoveNoteOnInfo(channel, note);
}

void TNoteOnManager::NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) {
    fOutput.SprayNoteOn(channel, note, velocity, time);
    if (velocity != 0)
        AddNoteOnInfo(channel, note);
    else
        RemoveNoteOnInfo(channel, note);  // a note-on with velocity 0 is a release
}

void TNoteOnManager::ControlChange(uint8_t channel, uint8_t controller, uint8_t value,
                                   int64_t time) {
    fOutput.SprayControlChange(channel, controller, value, time);
    if (controller == midi::kCtrlAllNotesOff) {
        std::lock_guard lock(fLock);
        ClearChannel(channel);
    }
}

int32_t TNoteOnManager::ResetKind(const uint8_t* data, size_t length) {
    // Only the prefix counts: a closing 0xF7 or further bytes do not matter. Unlike the
    // original we never compare past the message's end; a shorter message is no reset.
    for (const TSysReset& reset : kSysResets)
        if (length >= reset.length && std::memcmp(data, reset.bytes, reset.length) == 0)
            return reset.kind;
    return 0;
}

void TNoteOnManager::SystemExclusive(const uint8_t* data, size_t length, int64_t time) {
    fOutput.SpraySystemExclusive(data, length, time);
    int32_t kind = ResetKind(data, length);
    if (kind == 0) return;
    std::lock_guard lock(fLock);
    for (uint8_t channel = 0; channel < midi::kChannels; ++channel) ClearChannel(channel);
    if (fSysReset) fSysReset(kind);
}

void TNoteOnManager::AddNoteOnInfo(uint8_t channel, uint8_t note) {
    // Every strike is kept, a note struck twice too: a synthesizer that stacks voices
    // needs a note-off for each, and the filter owes one for each.
    std::lock_guard lock(fLock);
    TChannelNotes& notes = fTable[channel & 0x0F];
    const uint8_t count = notes.Count();
    if (count < notes.notes.size()) {
        notes.notes[count] = note;
        notes.SetCount(uint8_t(count + 1));
    }
}

void TNoteOnManager::RemoveNoteOnInfo(uint8_t channel, uint8_t note) {
    std::lock_guard lock(fLock);
    TChannelNotes& notes = fTable[channel & 0x0F];
    auto end = notes.notes.begin() + notes.Count();
    auto at = std::find(notes.notes.begin(), end, note);
    if (at == end) return;
    std::copy(at + 1, end, at);
    notes.SetCount(uint8_t(notes.Count() - 1));
}

void TNoteOnManager::QuickAllNotesOff(int64_t time) { QuickNotesOff(0xFFFF, time); }

void TNoteOnManager::QuickNotesOff(uint16_t channels, int64_t time) {
    // Note-ons already on their way in (sent before the play thread stopped) must be in
    // the table first, or they would sound after the silence and hang.
    WaitIdle(kDrainTimeoutUs);
    std::lock_guard lock(fLock);
    for (uint8_t channel = 0; channel < midi::kChannels; ++channel) {
        if (!(channels & (1u << channel))) continue;
        const TChannelNotes& notes = fTable[channel];
        for (uint8_t i = 0; i < notes.Count(); ++i)
            fOutput.SprayNoteOff(channel, notes.notes[i], 64, time);
        ClearChannel(channel);
    }
}

void TNoteOnManager::ClearAllNoteOnState() {
    std::lock_guard lock(fLock);
    for (uint8_t channel = 0; channel < midi::kChannels; ++channel) ClearChannel(channel);
}

std::vector<uint8_t> TNoteOnManager::SoundingNotes(uint8_t channel) const {
    std::lock_guard lock(fLock);
    const TChannelNotes& notes = fTable[channel & 0x0F];
    return {notes.notes.begin(), notes.notes.begin() + notes.Count()};
}
