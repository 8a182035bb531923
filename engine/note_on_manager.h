#pragma once
// TNoteOnManager: passes every event on unchanged (raw 0xFF data excepted) and keeps the notes that
// sound on each channel, so that pause, stop, seek and key changes can silence them at once. It
// also tells its owner when a song sends a GM, GS, 88 or XG system reset.
//
// Threads: the hooks run on the manager's receive thread; QuickAllNotesOff and
// ClearAllNoteOnState on the owner's thread. The note table is guarded by a recursive
// lock that the receive thread holds only for a table update, so the owner rarely waits.
// The table has room for every note of every channel: it never allocates.

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "engine/pass_through.h"

class TNoteOnManager : public TMidiPassThrough {
  public:
    TNoteOnManager();
    ~TNoteOnManager() override;

    // Called on the receive thread with 1 (GM), 2 (GS), 4 (88) or 8 (XG).
    void SetSysResetHandler(std::function<void(int32_t kind)> handler);

    void NoteOff(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override;
    void NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override;
    void ControlChange(uint8_t channel, uint8_t controller, uint8_t value, int64_t time) override;
    void SystemExclusive(const uint8_t* data, size_t length, int64_t time) override;

    void AddNoteOnInfo(uint8_t channel, uint8_t note);
    void RemoveNoteOnInfo(uint8_t channel, uint8_t note);
    // Owner's thread: a note-off (velocity 64) for every recorded note, channel by channel
    // in note-on order, then an empty table.
    void QuickAllNotesOff(int64_t time);
    // The same for the channels whose bits are set (bit 0 is channel 1).
    void QuickNotesOff(uint16_t channels, int64_t time);
    void ClearAllNoteOnState();
    // The sounding notes of a channel in note-on order (a copy, taken under the lock).
    std::vector<uint8_t> SoundingNotes(uint8_t channel) const;
    // How many notes sound on a channel; any thread, without the lock, for meters.
    int32_t SoundingCount(uint8_t channel) const { return fTable[channel & 0x0F].Count(); }

  private:
    static constexpr int64_t kDrainTimeoutUs = 200000;
    struct TChannelNotes {
        std::array<uint8_t, 128> notes;
        // Written only under the lock, so plain loads and stores do; atomic so that meters
        // may read it without the lock.
        std::atomic<uint8_t> count{0};
        uint8_t Count() const { return count.load(std::memory_order_relaxed); }
        void SetCount(uint8_t value) { count.store(value, std::memory_order_relaxed); }
    };
    void ClearChannel(uint8_t channel) { fTable[channel & 0x0F].SetCount(0); }
    static int32_t ResetKind(const uint8_t* data, size_t length);

    mutable std::recursive_mutex fLock;
    std::array<TChannelNotes, 16> fTable{};
    std::function<void(int32_t)> fSysReset;
};
