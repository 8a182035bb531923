#include "midi/local_consumer.h"

#include <pthread.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "midi/midi_defs.h"
#include "veldan/base/clock.h"
#include "veldan/base/thread.h"

namespace {
// The consumer whose receive thread this is; riders push on their host's thread.
thread_local const TMidiLocalConsumer* tReceiver = nullptr;
}  // namespace

TMidiLocalConsumer::TMidiLocalConsumer(std::string name, size_t queueCapacity,
                                       int32_t receivePriority)
    : TMidiConsumer(std::move(name)), fReceivePriority(receivePriority), fQueue(queueCapacity) {
    fThread = std::thread([this] { ReceiveLoop(); });
}

TMidiLocalConsumer::TMidiLocalConsumer(TMidiLocalConsumer& host, std::string name,
                                       size_t queueCapacity)
    : TMidiConsumer(std::move(name)),
      fHost(&host),
      fReceivePriority(host.fReceivePriority),
      fQueue(queueCapacity) {
    // A rider has no thread to carry another, so it could only ever drop what came to it.
    for (auto& slot : host.fRiders) {
        TMidiLocalConsumer* empty = nullptr;
        if (!host.fHost && slot.compare_exchange_strong(empty, this, std::memory_order_seq_cst))
            return;
    }
    std::fprintf(stderr, "quillmidi: %s: its host is a rider or carries %zu riders already\n",
                 Name().c_str(), kMaxRiders);
    std::abort();
}

TMidiLocalConsumer::~TMidiLocalConsumer() { StopReceiving(); }

void TMidiLocalConsumer::StopReceiving() {
    DisconnectAllProducers();
    fQuit.store(true, std::memory_order_seq_cst);
    RoomFreed();  // senders still waiting for room leave
    if (fHost) {
        fHost->Unride(this);
        return;
    }
    WakeReceiver();
    if (fThread.joinable()) fThread.join();
}

void TMidiLocalConsumer::Unride(TMidiLocalConsumer* rider) {
    for (auto& slot : fRiders) {
        TMidiLocalConsumer* expected = rider;
        slot.compare_exchange_strong(expected, nullptr, std::memory_order_seq_cst);
    }
    // The host's thread either saw the slot empty or has marked the rider in hand.
    while (fRiderInHand.load(std::memory_order_seq_cst) == rider) std::this_thread::yield();
}

void TMidiLocalConsumer::Receive(const uint8_t* data, size_t length, bool atomic, int64_t time) {
    Enqueue({{data, length}}, atomic, time);
}

void TMidiLocalConsumer::ReceivePieces(int /*port*/, const uint8_t* head, size_t headLength,
                                       const uint8_t* body, size_t bodyLength, bool atomic,
                                       int64_t time) {
    Enqueue({{head, headLength}, {body, bodyLength}}, atomic, time);
}

bool TMidiLocalConsumer::Enqueue(std::initializer_list<TMidiEventQueue::TPiece> pieces, bool atomic,
                                 int64_t time) {
    return Push(pieces, atomic, time, kKindEvent);
}

bool TMidiLocalConsumer::EnqueueCommand(const uint8_t* data, size_t length, int64_t time) {
    return Push({{data, length}}, false, time, kKindCommand);
}

bool TMidiLocalConsumer::Push(std::initializer_list<TMidiEventQueue::TPiece> pieces, bool atomic,
                              int64_t time, uint8_t kind) {
    int64_t deadline = -1;
    for (;;) {
        // Read before trying, so that room freed after a failed try ends the wait at once.
        const uint32_t freed = fFreed.load(std::memory_order_seq_cst);
        const TMidiEventQueue::TPush pushed = fQueue.TryPush(pieces, atomic, time, kind);
        if (pushed == TMidiEventQueue::TPush::kPushed) {
            if (fStalled.load(std::memory_order_relaxed))
                fStalled.store(false, std::memory_order_relaxed);
            fAccepted.fetch_add(1, std::memory_order_seq_cst);
            WakeReceiver();
            return true;
        }
        if (pushed == TMidiEventQueue::TPush::kTooLong) {
            fSendDrops.fetch_add(1, std::memory_order_relaxed);
            return false;
        }
        if (fQuit.load(std::memory_order_acquire)) return false;
        fOverflows.fetch_add(1, std::memory_order_relaxed);
        if (fHost && tReceiver == fHost) {
            // The host's thread is the one that would free room: it does so now.
            while (HandleOne()) {
            }
            continue;
        }
        WakeReceiver();
        const int64_t now = veldan::system_time();
        if (deadline < 0) deadline = now + kSendWaitUs;
        if (now >= deadline || fStalled.load(std::memory_order_relaxed)) {
            fStalled.store(true, std::memory_order_relaxed);
            fSendDrops.fetch_add(1, std::memory_order_relaxed);
            return false;
        }
        fSendersWaiting.fetch_add(1, std::memory_order_seq_cst);
        veldan::futex_wait_until(&fFreed, freed, deadline);
        fSendersWaiting.fetch_sub(1, std::memory_order_seq_cst);
    }
}

void TMidiLocalConsumer::RoomFreed() {
    fFreed.fetch_add(1, std::memory_order_seq_cst);
    if (fSendersWaiting.load(std::memory_order_seq_cst) != 0) veldan::futex_wake(&fFreed, INT_MAX);
}

void TMidiLocalConsumer::WakeReceiver() {
    if (fHost) {
        fHost->WakeReceiver();
        return;
    }
    // Sequentially consistent with the receiver's "sleeping" store and "accepted" load:
    // either it sees our event before it sleeps, or we see it asleep here and wake it.
    if (fSleeping.load(std::memory_order_seq_cst) != 0 &&
        fSleeping.exchange(0, std::memory_order_seq_cst) != 0)
        veldan::futex_wake(&fSleeping, 1);
}

bool TMidiLocalConsumer::HandleOne() {
    const bool popped = fQueue.TryPop(
        [this](const uint8_t* data, size_t length, bool atomic, int64_t time, uint8_t kind) {
            if (kind == kKindCommand)
                Command(data, length, time);
            else
                Data(data, length, atomic, time);
        });
    if (!popped) return false;
    fHandled.store(fHandled.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    RoomFreed();
    return true;
}

template <typename Visit>
bool TMidiLocalConsumer::AnyRider(Visit&& visit) {
    bool any = false;
    for (auto& slot : fRiders) {
        TMidiLocalConsumer* rider = slot.load(std::memory_order_seq_cst);
        if (!rider) continue;
        fRiderInHand.store(rider, std::memory_order_seq_cst);
        // Checked again once in hand: a rider that left meanwhile may be gone already.
        if (slot.load(std::memory_order_seq_cst) == rider && visit(*rider)) any = true;
        fRiderInHand.store(nullptr, std::memory_order_release);
    }
    return any;
}

bool TMidiLocalConsumer::HandleRiders() {
    return AnyRider([](TMidiLocalConsumer& rider) {
        bool handled = false;
        while (rider.HandleOne()) handled = true;
        return handled;
    });
}

bool TMidiLocalConsumer::HasQueued() const {
    return fAccepted.load(std::memory_order_seq_cst) != fHandled.load(std::memory_order_relaxed);
}

bool TMidiLocalConsumer::RidersHaveQueued() {
    return AnyRider([](const TMidiLocalConsumer& rider) { return rider.HasQueued(); });
}

void TMidiLocalConsumer::ReceiveLoop() {
    pthread_setname_np(pthread_self(), kReceiveThreadName);
    veldan::apply_thread_priority(fReceivePriority);
    tReceiver = this;
    for (;;) {
        // What an event sent on to a rider goes out at once, before the next event.
        while (HandleOne()) HandleRiders();
        if (HandleRiders()) continue;
        if (fQuit.load(std::memory_order_acquire)) return;
        fSleeping.store(1, std::memory_order_seq_cst);
        if (HasQueued() || RidersHaveQueued() || fQuit.load(std::memory_order_seq_cst)) {
            fSleeping.store(0, std::memory_order_relaxed);
            continue;
        }
        veldan::futex_wait_until(&fSleeping, 1, -1);
    }
}

bool TMidiLocalConsumer::WaitIdle(int64_t timeoutUs) const {
    uint64_t target = fAccepted.load(std::memory_order_acquire);
    int64_t deadline = veldan::system_time() + timeoutUs;
    while (fHandled.load(std::memory_order_acquire) < target) {
        if (veldan::system_time() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

void TMidiLocalConsumer::Data(const uint8_t* data, size_t length, bool /*atomic*/, int64_t time) {
    if (length == 0) return;
    uint8_t status = data[0];
    uint8_t channel = status & 0x0F;
    auto byte = [&](size_t i) -> uint8_t { return i < length ? data[i] : 0; };
    switch (status & 0xF0) {
        case midi::kNoteOff:
            NoteOff(channel, byte(1), byte(2), time);
            return;
        case midi::kNoteOn:
            NoteOn(channel, byte(1), byte(2), time);
            return;
        case midi::kKeyPressure:
            KeyPressure(channel, byte(1), byte(2), time);
            return;
        case midi::kControlChange:
            ControlChange(channel, byte(1), byte(2), time);
            return;
        case midi::kProgramChange:
            ProgramChange(channel, byte(1), time);
            return;
        case midi::kChannelPressure:
            ChannelPressure(channel, byte(1), time);
            return;
        case midi::kPitchBend:
            PitchBend(channel, byte(1), byte(2), time);
            return;
        default:
            break;
    }
    if (status == midi::kSysExStart) {
        SystemExclusive(data + 1, length - 1, time);
    } else if (status == midi::kMetaEvent && length >= 6 && data[1] == midi::kMetaTempo) {
        uint32_t usPerBeat = uint32_t(data[3]) << 16 | uint32_t(data[4]) << 8 | data[5];
        if (usPerBeat) TempoChange(int32_t(60000000 / usPerBeat), time);
    } else if (status >= 0xF8) {
        SystemRealTime(status, time);
    } else if (status >= 0xF1) {
        SystemCommon(status, byte(1), byte(2), time);
    }
}

void TMidiLocalConsumer::AllNotesOff(bool justChannel, int64_t time) {
    for (uint8_t channel = 0; channel < midi::kChannels; ++channel) {
        ControlChange(channel, midi::kCtrlAllNotesOff, 0, time);
        if (justChannel) continue;
        for (uint8_t note = 0; note < 128; ++note) NoteOff(channel, note, 0, time);
    }
}
