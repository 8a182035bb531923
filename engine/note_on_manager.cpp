#include "engine/note_on_manager.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "engine/sys_reset.h"
#include "midi/midi_defs.h"
#include "veldan/base/clock.h"

TNoteOnManager::TNoteOnManager() = default;

TNoteOnManager::~TNoteOnManager() { StopReceiving(); }

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
    if (controller == midi::kCtrlAllNotesOff) ClearChannel(channel);
}

void TNoteOnManager::SystemExclusive(const uint8_t* data, size_t length, int64_t time) {
    fOutput.SpraySystemExclusive(data, length, time);
    const int32_t kind = sys_reset_kind(data, length);
    if (kind == 0) return;
    for (uint8_t channel = 0; channel < midi::kChannels; ++channel) ClearChannel(channel);
    fResetsSeen.fetch_or(kind, std::memory_order_relaxed);
}

void TNoteOnManager::AddNoteOnInfo(uint8_t channel, uint8_t note) {
    // Every strike is kept, a note struck twice too: a synthesizer that stacks voices
    // needs a note-off for each, and the filter owes one for each.
    TChannelNotes& notes = fTable[channel & 0x0F];
    const uint8_t count = notes.Count();
    if (count < notes.notes.size()) {
        notes.notes[count] = note;
        notes.SetCount(uint8_t(count + 1));
    }
}

void TNoteOnManager::RemoveNoteOnInfo(uint8_t channel, uint8_t note) {
    TChannelNotes& notes = fTable[channel & 0x0F];
    auto end = notes.notes.begin() + notes.Count();
    auto at = std::find(notes.notes.begin(), end, note);
    if (at == end) return;
    std::copy(at + 1, end, at);
    notes.SetCount(uint8_t(notes.Count() - 1));
}

void TNoteOnManager::NotesOff(uint16_t channels, int64_t time) {
    for (uint8_t channel = 0; channel < midi::kChannels; ++channel) {
        if (!(channels & (1u << channel))) continue;
        const TChannelNotes& notes = fTable[channel];
        for (uint8_t i = 0; i < notes.Count(); ++i)
            fOutput.SprayNoteOff(channel, notes.notes[i], 64, time);
        ClearChannel(channel);
    }
}

void TNoteOnManager::Command(const uint8_t* data, size_t length, int64_t time) {
    TCommand command;
    if (length != sizeof command) return;
    std::memcpy(&command, data, sizeof command);
    switch (command.code) {
        case kCmdNotesOff:
            NotesOff(command.channels, time);
            break;
        case kCmdClear:
            for (uint8_t channel = 0; channel < midi::kChannels; ++channel) ClearChannel(channel);
            break;
        case kCmdSnapshot: {
            const TChannelNotes& notes = fTable[command.channels & 0x0F];
            fSnapshotCount = notes.Count();
            std::copy_n(notes.notes.begin(), fSnapshotCount, fSnapshot.begin());
            break;
        }
        default:
            break;
    }
    // Sequentially consistent with the owner's "waiting" store and its reload of fDone:
    // either it sees this ticket before it sleeps, or it is seen waiting and woken.
    fDone.store(command.ticket, std::memory_order_seq_cst);
    if (fOwnerWaiting.load(std::memory_order_seq_cst) != 0) veldan::futex_wake(&fDone, INT_MAX);
}

uint32_t TNoteOnManager::Post(uint8_t code, uint16_t channels, int64_t time) {
    uint32_t ticket = fLastTicket + 1;
    if (ticket == 0) ticket = 1;  // 0 means refused
    TCommand command{ticket, channels, code};
    uint8_t bytes[sizeof command];
    std::memcpy(bytes, &command, sizeof command);
    if (!EnqueueCommand(bytes, sizeof bytes, time)) return 0;
    fLastTicket = ticket;
    return ticket;
}

uint32_t TNoteOnManager::PostNotesOff(uint16_t channels, int64_t time) {
    std::lock_guard lock(fOwnerLock);
    return Post(kCmdNotesOff, channels, time);
}

bool TNoteOnManager::WaitDone(uint32_t ticket, int64_t timeoutUs) {
    if (ticket == 0) return false;
    const int64_t deadline = veldan::system_time() + timeoutUs;
    for (;;) {
        // Tickets go up by one per command and wrap: the difference tells which is later.
        const uint32_t done = fDone.load(std::memory_order_seq_cst);
        if (int32_t(done - ticket) >= 0) return true;
        if (veldan::system_time() >= deadline) return false;
        fOwnerWaiting.fetch_add(1, std::memory_order_seq_cst);
        if (fDone.load(std::memory_order_seq_cst) == done)
            veldan::futex_wait_until(&fDone, done, deadline);
        fOwnerWaiting.fetch_sub(1, std::memory_order_seq_cst);
    }
}

bool TNoteOnManager::QuickAllNotesOff(int64_t time) { return QuickNotesOff(0xFFFF, time); }

bool TNoteOnManager::QuickNotesOff(uint16_t channels, int64_t time) {
    return WaitDone(PostNotesOff(channels, time), kCommandWaitUs);
}

bool TNoteOnManager::ClearAllNoteOnState() {
    uint32_t ticket;
    {
        std::lock_guard lock(fOwnerLock);
        ticket = Post(kCmdClear, 0, 0);
    }
    return WaitDone(ticket, kCommandWaitUs);
}

std::vector<uint8_t> TNoteOnManager::SoundingNotes(uint8_t channel) {
    // Held until the copy is read: another owner thread's request would overwrite it.
    std::lock_guard lock(fOwnerLock);
    if (!WaitDone(Post(kCmdSnapshot, channel, 0), kCommandWaitUs)) return {};
    return {fSnapshot.begin(), fSnapshot.begin() + fSnapshotCount};
}
