#pragma once
// TMidiLocalConsumer: a consumer inside this program. Events sprayed to it cross one
// TMidiEventQueue and are handled on the consumer's own receive thread, which calls
// Data(); the default Data() decodes the raw event and calls the hook for its kind with
// the arguments and time stamp that were sprayed.
//
// Back-pressure: a sender that finds the queue full (counted in Overflows()) sleeps on
// it until the receive thread frees room, at most kSendWaitUs. Sleeping, not yielding:
// with the music threads pinned to one core at a higher real-time priority than the
// receiver, a yielding sender would never let the receiver run.
// When the bound passes, the receiver is taken to be stuck (a hung synthesizer, a
// consumer that stopped reading): the event is dropped and counted in SendDrops(), and so
// is every further event while the queue stays full, without waiting again, until the
// receiver takes events once more. What a user wants from a stuck output is that the
// song and the other outputs keep their time and the stop button answers: one pause of
// kSendWaitUs, not one per event and never a frozen player. The bound is far above any
// honest hold-up (a synthesizer loading a preset takes up to tens of milliseconds).
// Reporting is the owner's: SendDrops() is read without a lock from any thread, and a
// change in it is worth telling the user once.
// An event longer than the queue can ever hold (TMidiEventQueue::MaxEventBytes) is
// dropped and counted at once.
// A class that overrides hooks calls StopReceiving() first thing in its destructor, so
// no hook runs on a half-destroyed object.
//
// Riding: a consumer made with a host has no receive thread of its own; what is queued to
// it is handled on the host's receive thread, right after each event the host handles
// and whenever the host wakes. A stage that always follows another (the chain's filter
// behind its note-on manager) so costs no thread hand-off per event: on a machine with
// few cores each hand-off is a wake-up and a context switch, and they add up in the
// lateness of every note. Order is kept as on a thread of its own. A rider must go before
// its host; a host carries at most kMaxRiders, and a rider carries none.

#include <array>
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <thread>

#include "midi/endpoint.h"
#include "midi/event_queue.h"
#include "veldan/base/thread.h"

class TMidiLocalConsumer : public TMidiConsumer {
  public:
    static constexpr size_t kDefaultQueueCapacity = 4096;
    // Receive threads carry the music on its way out, so by default they ask for the play
    // thread's real-time priority too; refused, they run at normal priority.
    static constexpr int32_t kReceivePriority = veldan::kMusicPriority;
    // Every receive thread carries this name, so that profilers and tests can tell the
    // threads that carry music from the rest (15 characters at most).
    static constexpr const char* kReceiveThreadName = "MidiReceive";

    static constexpr size_t kMaxRiders = 2;

    explicit TMidiLocalConsumer(std::string name = {}, size_t queueCapacity = kDefaultQueueCapacity,
                                int32_t receivePriority = kReceivePriority);
    // A rider on host (see above); host carries no more than kMaxRiders.
    TMidiLocalConsumer(TMidiLocalConsumer& host, std::string name,
                       size_t queueCapacity = kDefaultQueueCapacity);
    ~TMidiLocalConsumer() override;

    bool IsLocal() const override { return true; }
    static constexpr int64_t kSendWaitUs = 200000;

    // Sending side: any thread; lock-free and allocation-free while the queue has room,
    // at most one wait of kSendWaitUs when it has none.
    void Receive(const uint8_t* data, size_t length, bool atomic, int64_t time) final;
    // The same with the event in two pieces, taken into the queue as they are. Every port
    // alike; a consumer with ports of its own overrides this and ReceiveOnPort.
    void ReceivePieces(int port, const uint8_t* head, size_t headLength, const uint8_t* body,
                       size_t bodyLength, bool atomic, int64_t time) override;

    // Hooks, called on the receive thread.
    virtual void Data(const uint8_t* data, size_t length, bool atomic, int64_t time);
    virtual void NoteOff(uint8_t /*channel*/, uint8_t /*note*/, uint8_t /*velocity*/,
                         int64_t /*time*/) {}
    virtual void NoteOn(uint8_t /*channel*/, uint8_t /*note*/, uint8_t /*velocity*/,
                        int64_t /*time*/) {}
    virtual void KeyPressure(uint8_t /*channel*/, uint8_t /*note*/, uint8_t /*pressure*/,
                             int64_t /*time*/) {}
    virtual void ControlChange(uint8_t /*channel*/, uint8_t /*controller*/, uint8_t /*value*/,
                               int64_t /*time*/) {}
    virtual void ProgramChange(uint8_t /*channel*/, uint8_t /*program*/, int64_t /*time*/) {}
    virtual void ChannelPressure(uint8_t /*channel*/, uint8_t /*pressure*/, int64_t /*time*/) {}
    virtual void PitchBend(uint8_t /*channel*/, uint8_t /*lsb*/, uint8_t /*msb*/,
                           int64_t /*time*/) {}
    // data excludes the leading 0xF0.
    virtual void SystemExclusive(const uint8_t* /*data*/, size_t /*length*/, int64_t /*time*/) {}
    virtual void SystemCommon(uint8_t /*status*/, uint8_t /*data1*/, uint8_t /*data2*/,
                              int64_t /*time*/) {}
    virtual void SystemRealTime(uint8_t /*status*/, int64_t /*time*/) {}
    virtual void TempoChange(int32_t /*beatsPerMinute*/, int64_t /*time*/) {}
    // Controller 123 on every channel, and with justChannel false a note-off for every
    // note as well, through this consumer's own hooks.
    virtual void AllNotesOff(bool justChannel, int64_t time);

    // Blocks until every event accepted before the call has been handled; false when
    // timeoutUs passes first. Not for real-time threads.
    bool WaitIdle(int64_t timeoutUs) const;
    uint64_t Overflows() const { return fOverflows.load(std::memory_order_relaxed); }
    uint64_t SendDrops() const { return fSendDrops.load(std::memory_order_relaxed); }

  protected:
    void StopReceiving();
    // Sending side, for the hooks above and for subclasses that put a few bytes in front
    // of an event: the pieces back to back become one event. False when it was dropped.
    bool Enqueue(std::initializer_list<TMidiEventQueue::TPiece> pieces, bool atomic, int64_t time);
    // Sending side, for a subclass's owner: a request that the receive thread carries out
    // in Command(), after every event accepted before it and before every later one. It
    // is marked as a command in the queue, beside its bytes, so nothing sprayed to this
    // consumer can pass for one. Waits for room and is dropped as an event would be.
    bool EnqueueCommand(const uint8_t* data, size_t length, int64_t time);
    // Receive thread: a command queued with EnqueueCommand, its bytes as they were given.
    virtual void Command(const uint8_t* /*data*/, size_t /*length*/, int64_t /*time*/) {}

  private:
    enum : uint8_t { kKindEvent = 0, kKindCommand = 1 };
    bool Push(std::initializer_list<TMidiEventQueue::TPiece> pieces, bool atomic, int64_t time,
              uint8_t kind);
    void ReceiveLoop();
    // Receive thread (the host's, for a rider): handles the oldest queued event; false when
    // there was none.
    bool HandleOne();
    // Host's receive thread: handles everything queued to its riders; true when there was
    // anything.
    bool HandleRiders();
    bool HasQueued() const;
    bool RidersHaveQueued();
    // Host's receive thread: visit(rider) for each rider, safe from riders leaving
    // meanwhile; true when a visit returned true.
    template <typename Visit>
    bool AnyRider(Visit&& visit);
    void Unride(TMidiLocalConsumer* rider);
    void WakeReceiver();
    void RoomFreed();

    TMidiLocalConsumer* fHost = nullptr;
    std::array<std::atomic<TMidiLocalConsumer*>, kMaxRiders> fRiders{};
    // The rider the host's thread is handling; a rider leaving waits until it is not.
    std::atomic<TMidiLocalConsumer*> fRiderInHand{nullptr};

    int32_t fReceivePriority;
    TMidiEventQueue fQueue;
    // 1 while the receive thread sleeps; senders that find it set wake the thread.
    std::atomic<uint32_t> fSleeping{0};
    std::atomic<bool> fQuit{false};
    std::atomic<uint64_t> fAccepted{0};
    std::atomic<uint64_t> fHandled{0};
    std::atomic<uint64_t> fOverflows{0};
    std::atomic<uint64_t> fSendDrops{0};
    // Bumped by the receive thread whenever it frees room; full senders sleep on it.
    std::atomic<uint32_t> fFreed{0};
    std::atomic<uint32_t> fSendersWaiting{0};
    // Set when a wait ran out, cleared when an event is taken again.
    std::atomic<bool> fStalled{false};
    std::thread fThread;
};
