#pragma once
// TNoteOnManager: passes every event on unchanged (raw 0xFF data excepted) and keeps the notes that
// sound on each channel, so that pause, stop, seek and key changes can silence them at once. It
// also tells its owner when a song sends a GM, GS, 88 or XG system reset.
//
// Threads: the receive thread alone owns the note table. What the owner asks of it (notes
// off, an empty table, a look at a channel's notes) travels as a command through the
// manager's own queue, behind the music already sent to it: a note-on still on its way in
// is in the table before the command that silences it, so nothing has to drain first, and
// the receive thread sends the note-offs itself. The owner's call then waits until the
// command has been carried out, at most kCommandWaitUs; the receive thread never waits for
// the owner, takes no lock and allocates nothing. Owner calls from several threads are
// taken one at a time, among themselves only. Resets seen and the count of sounding notes
// are atomics that any thread reads without a lock.
// The table has room for 128 strikes on each channel; later strikes go out untracked.

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "engine/pass_through.h"

class TNoteOnManager : public TMidiPassThrough {
  public:
    // As long as a sender waits for room in a queue: the receive thread is stuck after that.
    static constexpr int64_t kCommandWaitUs = kSendWaitUs;

    TNoteOnManager();
    ~TNoteOnManager() override;

    // Any thread; wait-free. The resets seen in the song since the last call, one bit for
    // each kind: 1 (GM), 2 (GS), 4 (88), 8 (XG); 0 when none was.
    int32_t TakeSysResets() { return fResetsSeen.exchange(0, std::memory_order_relaxed); }

    void NoteOff(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override;
    void NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override;
    void ControlChange(uint8_t channel, uint8_t controller, uint8_t value, int64_t time) override;
    void SystemExclusive(const uint8_t* data, size_t length, int64_t time) override;

    // Owner's thread: a note-off (velocity 64) for every recorded note, channel by channel
    // in note-on order, then an empty table. False when the receive thread had not done
    // it within kCommandWaitUs (it still will, in order, unless the queue refused it).
    bool QuickAllNotesOff(int64_t time);
    // The same for the channels whose bits are set (bit 0 is channel 1).
    bool QuickNotesOff(uint16_t channels, int64_t time);
    bool ClearAllNoteOnState();

    // The owner's side of the calls above, for an owner of several managers that asks
    // them all before it waits: a ticket for the command, 0 when it was refused.
    uint32_t PostNotesOff(uint16_t channels, int64_t time);
    // Owner's thread: true once the command of ticket has been carried out, false when
    // timeoutUs passed first or the ticket is 0.
    bool WaitDone(uint32_t ticket, int64_t timeoutUs);

    // Owner's thread: the sounding notes of a channel in note-on order, as the receive
    // thread finds them when it comes to this request; empty if it did not in time.
    std::vector<uint8_t> SoundingNotes(uint8_t channel);
    // How many notes sound on a channel; any thread, without a lock, for meters.
    int32_t SoundingCount(uint8_t channel) const { return fTable[channel & 0x0F].Count(); }

  protected:
    void Command(const uint8_t* data, size_t length, int64_t time) override;

  private:
    enum : uint8_t { kCmdNotesOff = 1, kCmdClear, kCmdSnapshot };
    struct TCommand {
        uint32_t ticket;
        uint16_t channels;
        uint8_t code;
    };
    struct TChannelNotes {
        std::array<uint8_t, 128> notes;
        // Written by the receive thread alone; atomic so that meters may read it.
        std::atomic<uint8_t> count{0};
        uint8_t Count() const { return count.load(std::memory_order_relaxed); }
        void SetCount(uint8_t value) { count.store(value, std::memory_order_relaxed); }
    };

    // Receive thread only, as is everything that touches the table.
    void AddNoteOnInfo(uint8_t channel, uint8_t note);
    void RemoveNoteOnInfo(uint8_t channel, uint8_t note);
    void NotesOff(uint16_t channels, int64_t time);
    void ClearChannel(uint8_t channel) { fTable[channel & 0x0F].SetCount(0); }

    // Owner's side: the ticket of the command queued, 0 when the queue refused it.
    uint32_t Post(uint8_t code, uint16_t channels, int64_t time);

    std::array<TChannelNotes, 16> fTable{};
    std::atomic<int32_t> fResetsSeen{0};
    // Serialises owner threads among themselves; the receive thread never takes it.
    std::mutex fOwnerLock;
    uint32_t fLastTicket = 0;  // under fOwnerLock
    // The ticket of the last command carried out; the owner sleeps on it.
    std::atomic<uint32_t> fDone{0};
    std::atomic<uint32_t> fOwnerWaiting{0};
    // A channel's notes copied for SoundingNotes, written before fDone is.
    std::array<uint8_t, 128> fSnapshot{};
    uint8_t fSnapshotCount = 0;
};
