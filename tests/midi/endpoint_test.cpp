#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "midi/local_consumer.h"
#include "midi/local_producer.h"
#include "midi/recorder.h"
#include "midi/roster.h"
#include "tests/support/wait.h"

namespace {

// Writes every hook call down as text, to check the decoding of raw events.
class THookLog : public TMidiLocalConsumer {
  public:
    THookLog() : TMidiLocalConsumer("hook log") {}
    ~THookLog() override { StopReceiving(); }
    void NoteOff(uint8_t c, uint8_t n, uint8_t v, int64_t t) override { Log("off", c, n, v, t); }
    void NoteOn(uint8_t c, uint8_t n, uint8_t v, int64_t t) override { Log("on", c, n, v, t); }
    void KeyPressure(uint8_t c, uint8_t n, uint8_t p, int64_t t) override { Log("kp", c, n, p, t); }
    void ControlChange(uint8_t c, uint8_t n, uint8_t v, int64_t t) override {
        Log("cc", c, n, v, t);
    }
    void ProgramChange(uint8_t c, uint8_t p, int64_t t) override { Log("pc", c, p, 0, t); }
    void ChannelPressure(uint8_t c, uint8_t p, int64_t t) override { Log("cp", c, p, 0, t); }
    void PitchBend(uint8_t c, uint8_t l, uint8_t m, int64_t t) override { Log("pb", c, l, m, t); }
    void SystemExclusive(const uint8_t* d, size_t n, int64_t t) override {
        calls.push_back("sx " + hex_bytes(d, n) + " @" + std::to_string(t));
    }
    void SystemCommon(uint8_t s, uint8_t a, uint8_t b, int64_t t) override {
        Log("sc", s, a, b, t);
    }
    void SystemRealTime(uint8_t s, int64_t t) override { Log("rt", s, 0, 0, t); }
    void TempoChange(int32_t bpm, int64_t t) override { Log("tempo", 0, 0, 0, t, bpm); }

    std::vector<std::string> calls;

  private:
    void Log(const char* what, int a, int b, int c, int64_t t, int extra = 0) {
        calls.push_back(std::string(what) + " " + std::to_string(a) + " " + std::to_string(b) +
                        " " + std::to_string(c) + (extra ? " " + std::to_string(extra) : "") +
                        " @" + std::to_string(t));
    }
};

TEST(MidiEndpoints, EverySprayReachesItsHookWithItsArgumentsAndTime) {
    TMidiLocalProducer producer("test producer");
    THookLog log;
    ASSERT_EQ(producer.Connect(&log), 0);
    producer.SprayNoteOn(3, 60, 100, 11);
    producer.SprayNoteOff(3, 60, 0, 12);
    producer.SprayKeyPressure(1, 61, 5, 13);
    producer.SprayControlChange(15, 7, 127, 14);
    producer.SprayProgramChange(2, 42, 15);
    producer.SprayChannelPressure(2, 9, 16);
    producer.SprayPitchBend(0, 0x01, 0x40, 17);
    const uint8_t sysex[] = {0x7E, 0x7F, 0x09, 0x01, 0xF7};
    producer.SpraySystemExclusive(sysex, sizeof sysex, 18);
    producer.SpraySystemCommon(0xF2, 0x10, 0x20, 19);
    producer.SpraySystemRealTime(0xF8, 20);
    producer.SprayTempoChange(120, 21);
    ASSERT_TRUE(log.WaitIdle(2000000));
    EXPECT_EQ(log.calls,
              (std::vector<std::string>{
                  "on 3 60 100 @11", "off 3 60 0 @12", "kp 1 61 5 @13", "cc 15 7 127 @14",
                  "pc 2 42 0 @15", "cp 2 9 0 @16", "pb 0 1 64 @17", "sx 7e 7f 09 01 f7 @18",
                  "sc 242 16 32 @19", "rt 248 0 0 @20", "tempo 0 0 0 120 @21"}));
}

// A consumer whose owner gives it commands through its queue, here the same bytes as
// the note-on sprayed beside them.
class TCommandLog : public THookLog {
  public:
    ~TCommandLog() override { StopReceiving(); }
    bool Ask(const uint8_t* data, size_t length, int64_t time) {
        return EnqueueCommand(data, length, time);
    }
    void Command(const uint8_t* d, size_t n, int64_t t) override {
        calls.push_back("command " + hex_bytes(d, n) + " @" + std::to_string(t));
    }
};

TEST(MidiEndpoints, CommandsComeInOrderWithTheEventsAndNoEventPassesForOne) {
    TMidiLocalProducer producer("test producer");
    TCommandLog log;
    ASSERT_EQ(producer.Connect(&log), 0);
    const uint8_t bytes[] = {0x90, 0x3C, 0x64};
    producer.SprayNoteOn(0, 0x3C, 0x64, 1);
    ASSERT_TRUE(log.Ask(bytes, sizeof bytes, 2));
    producer.SprayData(bytes, sizeof bytes, true, 3);
    ASSERT_TRUE(log.WaitIdle(2000000));
    EXPECT_EQ(log.calls, (std::vector<std::string>{"on 0 60 100 @1", "command 90 3c 64 @2",
                                                   "on 0 60 100 @3"}));
}

// A consumer of one set of sixteen channels hears a port B producer as it hears port A.
TEST(MidiEndpoints, APortBProducerReachesAnOrdinaryConsumerUnchanged) {
    TMidiLocalProducer portB("port B");
    EXPECT_EQ(portB.Port(), 0) << "port A unless told";
    portB.SetPort(1);
    THookLog log;
    ASSERT_EQ(portB.Connect(&log), 0);
    portB.SprayNoteOn(3, 60, 100, 11);
    ASSERT_TRUE(log.WaitIdle(2000000));
    EXPECT_EQ(log.calls, (std::vector<std::string>{"on 3 60 100 @11"}));
}

// One that plays ports apart is told the port of each event.
TEST(MidiEndpoints, AConsumerOfTwoPortsLearnsWhichPortSentEachEvent) {
    class TPortLog : public TMidiConsumer {
      public:
        TPortLog() : TMidiConsumer("port log") {}
        bool IsLocal() const override { return true; }
        void Receive(const uint8_t* data, size_t, bool, int64_t) override {
            ports.push_back("A " + std::to_string(data[0]));
        }
        void ReceiveOnPort(int port, const uint8_t* data, size_t, bool, int64_t) override {
            ports.push_back(std::to_string(port) + " " + std::to_string(data[0]));
        }
        std::vector<std::string> ports;
    };
    TPortLog log;
    TMidiLocalProducer portA("port A"), portB("port B");
    portB.SetPort(1);
    ASSERT_EQ(portA.Connect(&log), 0);
    ASSERT_EQ(portB.Connect(&log), 0);
    portA.SprayNoteOn(0, 60, 100, 0);
    portB.SprayNoteOn(1, 60, 100, 0);
    EXPECT_EQ(log.ports, (std::vector<std::string>{"A 144", "1 145"}));
    portA.Disconnect(&log);
    portB.Disconnect(&log);
}

TEST(MidiEndpoints, ConnectionsAreCountedOnceAndDieWithTheConsumer) {
    TMidiLocalProducer producer;
    auto recorder = std::make_unique<TMidiRecorder>("r", 16);
    EXPECT_EQ(producer.Connect(recorder.get()), 0);
    EXPECT_EQ(producer.Connect(recorder.get()), -1);
    EXPECT_EQ(producer.Connect(nullptr), -1);
    EXPECT_TRUE(producer.IsConnected(recorder.get()));
    recorder.reset();
    EXPECT_TRUE(producer.Connections().empty());
    producer.SprayNoteOn(0, 1, 1, 0);  // must not reach a dead consumer
    TMidiRecorder other("o", 16);
    EXPECT_EQ(producer.Disconnect(&other), -1);
}

TEST(MidiEndpoints, ManySendersNeitherLoseNorReorderTheirEvents) {
    constexpr int kSenders = 4;
    constexpr int kEach = 50000;
    TMidiRecorder recorder("r", kSenders * kEach + 16);
    std::vector<std::unique_ptr<TMidiLocalProducer>> producers;
    for (int i = 0; i < kSenders; ++i) {
        producers.push_back(std::make_unique<TMidiLocalProducer>());
        producers.back()->Connect(&recorder);
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < kSenders; ++i)
        threads.emplace_back([&, i] {
            for (int n = 0; n < kEach; ++n)
                producers[i]->SprayNoteOn(uint8_t(i), uint8_t(n & 0x7F), uint8_t((n >> 7) & 0x7F),
                                          n);
        });
    for (auto& t : threads) t.join();
    ASSERT_TRUE(recorder.WaitIdle(10000000));
    ASSERT_EQ(recorder.Entries().size(), size_t(kSenders * kEach));
    std::vector<int64_t> next(kSenders, 0);
    for (const auto& entry : recorder.Entries()) {
        int sender = recorder.BytesOf(entry)[0] & 0x0F;
        ASSERT_EQ(entry.time, next[sender]) << "sender " << sender;
        ++next[sender];
    }
}

TEST(MidiEndpoints, LongSysExArrivesWhole) {
    TMidiRecorder recorder("r", 64, 1 << 20);
    TMidiLocalProducer producer;
    producer.Connect(&recorder);
    std::vector<uint8_t> sysex(5000);
    for (size_t i = 0; i < sysex.size(); ++i) sysex[i] = uint8_t(i % 0x7F);
    sysex.back() = 0xF7;
    for (int i = 0; i < 8; ++i) producer.SpraySystemExclusive(sysex.data(), sysex.size(), i);
    ASSERT_TRUE(recorder.WaitIdle(5000000));
    ASSERT_EQ(recorder.Entries().size(), 8u);
    std::vector<uint8_t> expected{0xF0};
    expected.insert(expected.end(), sysex.begin(), sysex.end());
    EXPECT_EQ(recorder.EventBytes(7), expected);
}

// Takes its time over each event, behind a queue of four slots.
class TSlowCounter : public TMidiLocalConsumer {
  public:
    TSlowCounter() : TMidiLocalConsumer("slow", 4) {}
    ~TSlowCounter() override { StopReceiving(); }
    void Data(const uint8_t*, size_t, bool, int64_t time) override {
        std::this_thread::sleep_for(std::chrono::microseconds(20));
        inOrder = inOrder && time == count;
        ++count;
    }
    int64_t count = 0;
    bool inOrder = true;
};

TEST(MidiEndpoints, AFullQueueHoldsTheSenderBackAndLosesNothing) {
    TSlowCounter slow;
    TMidiLocalProducer producer;
    producer.Connect(&slow);
    for (int i = 0; i < 2000; ++i) producer.SprayNoteOff(0, 60, 0, i);
    ASSERT_TRUE(slow.WaitIdle(10000000));
    EXPECT_EQ(slow.count, 2000);
    EXPECT_TRUE(slow.inOrder);
    EXPECT_GT(slow.Overflows(), 0u);
}

// Holds the first event it takes until the test opens the gate, behind a queue of four
// slots: a receiver that has stopped taking events.
class TGatedConsumer : public TMidiLocalConsumer {
  public:
    TGatedConsumer() : TMidiLocalConsumer("gated", 4) {}
    ~TGatedConsumer() override {
        Open();
        StopReceiving();
    }
    void Data(const uint8_t*, size_t, bool, int64_t) override {
        std::unique_lock lock(fMutex);
        fCondition.wait(lock, [this] { return fOpen; });
        handled.fetch_add(1);
    }
    void Open() {
        {
            std::lock_guard lock(fMutex);
            fOpen = true;
        }
        fCondition.notify_all();
    }
    std::atomic<uint64_t> handled{0};

  private:
    std::mutex fMutex;
    std::condition_variable fCondition;
    bool fOpen = false;
};

TEST(MidiEndpoints, AStuckReceiverHoldsTheSenderOnceThenItsEventsAreDroppedAndCounted) {
    constexpr uint64_t kEvents = 20;
    TGatedConsumer gated;
    TMidiLocalProducer producer;
    producer.Connect(&gated);
    std::atomic<uint64_t> sent{0};
    std::thread sender([&] {
        for (uint64_t i = 0; i < kEvents; ++i) {
            producer.SprayNoteOn(0, 60, 1, int64_t(i));
            sent.fetch_add(1);
        }
    });
    const bool finished = wait_for([&] { return sent.load() == kEvents; });
    gated.Open();  // a sender that would wait for ever is let go here
    sender.join();
    ASSERT_TRUE(finished) << "the sender is still held by a receiver that takes nothing";
    // One event in the receiver's hands and four in the queue at most; the rest dropped.
    EXPECT_GE(gated.SendDrops(), kEvents - 5);
    ASSERT_TRUE(gated.WaitIdle(5000000));
    EXPECT_EQ(gated.handled.load() + gated.SendDrops(), kEvents);
    // The receiver takes events again, and so the next one arrives.
    const uint64_t handled = gated.handled.load();
    const uint64_t dropped = gated.SendDrops();
    producer.SprayNoteOn(0, 61, 1, int64_t(kEvents));
    ASSERT_TRUE(gated.WaitIdle(5000000));
    EXPECT_EQ(gated.handled.load(), handled + 1);
    EXPECT_EQ(gated.SendDrops(), dropped);
}

TEST(MidiEndpoints, ASysExLongerThanTheQueueCanHoldIsDroppedAndCounted) {
    TMidiRecorder recorder("r", 64, 1 << 20);
    TMidiLocalProducer producer;
    producer.Connect(&recorder);
    std::vector<uint8_t> huge(TMidiLocalConsumer::kDefaultQueueCapacity * 64, 0x01);
    producer.SpraySystemExclusive(huge.data(), huge.size(), 1);
    producer.SprayNoteOn(0, 60, 1, 2);
    ASSERT_TRUE(recorder.WaitIdle(5000000));
    ASSERT_EQ(recorder.Entries().size(), 1u);
    EXPECT_EQ(recorder.Entries()[0].time, 2);
    EXPECT_EQ(recorder.SendDrops(), 1u);
}

TEST(MidiEndpoints, DisconnectingWhileAnotherThreadSpraysIsSafe) {
    TMidiLocalProducer producer;
    TMidiRecorder a("a", 1 << 20), b("b", 1 << 20);
    std::atomic<bool> run{true};
    std::thread sender([&] {
        while (run.load()) producer.SprayControlChange(0, 1, 2, 0);
    });
    for (int i = 0; i < 2000; ++i) {
        producer.Connect(i % 2 ? &a : &b);
        producer.Disconnect(i % 2 ? &b : &a);
    }
    run = false;
    sender.join();
    producer.Disconnect(&a);
    producer.Disconnect(&b);
    ASSERT_TRUE(a.WaitIdle(2000000));
    size_t count = a.Entries().size();
    producer.SprayControlChange(0, 1, 2, 0);
    ASSERT_TRUE(a.WaitIdle(2000000));
    EXPECT_EQ(a.Entries().size(), count);
}

// A consumer that sends every event on through a producer of its own, as the chain's
// stages do, and keeps the thread it ran on.
class TForwarder : public TMidiLocalConsumer {
  public:
    TForwarder() : TMidiLocalConsumer("forwarder") {}
    ~TForwarder() override { StopReceiving(); }
    void Data(const uint8_t* data, size_t length, bool atomic, int64_t time) override {
        thread = std::this_thread::get_id();
        out.SprayData(data, length, atomic, time);
    }
    // A command sprays count note-offs at once, as an all-notes-off does.
    bool Burst(uint16_t count) {
        const uint8_t bytes[] = {uint8_t(count >> 8), uint8_t(count)};
        return EnqueueCommand(bytes, sizeof bytes, 0);
    }
    void Command(const uint8_t* data, size_t, int64_t) override {
        for (int i = 0; i < (data[0] << 8 | data[1]); ++i) out.SprayNoteOff(0, 60, 0, i);
    }
    TMidiLocalProducer out{"forwarder out"};
    std::atomic<std::thread::id> thread{};
};

// Counts what it gets, in order by time stamp, and the threads it got it on.
class TRider : public TMidiLocalConsumer {
  public:
    TRider(TMidiLocalConsumer& host, size_t capacity = kDefaultQueueCapacity)
        : TMidiLocalConsumer(host, "rider", capacity) {}
    ~TRider() override { StopReceiving(); }
    void Data(const uint8_t*, size_t, bool, int64_t time) override { Note(time, "event"); }
    bool Ask(int64_t time) { return EnqueueCommand(nullptr, 0, time); }
    void Command(const uint8_t*, size_t, int64_t time) override { Note(time, "command"); }
    std::vector<std::string> calls;
    std::vector<std::thread::id> threads;
    std::atomic<int64_t> count{0};
    bool inOrder = true;

  private:
    void Note(int64_t time, const char* what) {
        if (calls.size() < 16) calls.push_back(what + (" @" + std::to_string(time)));
        if (threads.empty() || threads.back() != std::this_thread::get_id())
            threads.push_back(std::this_thread::get_id());
        inOrder = inOrder && time >= count;
        count = time + 1;
    }
};

TEST(MidiRiders, ARiderRunsOnItsHostsThreadInOrderWithWhatIsAskedOfItDirectly) {
    TMidiLocalProducer producer;
    TForwarder host;
    TRider rider(host);
    producer.Connect(&host);
    host.out.Connect(&rider);
    producer.SprayNoteOn(0, 60, 100, 1);
    ASSERT_TRUE(host.WaitIdle(2000000));
    // Asked directly while the host sleeps: the host's thread wakes for it.
    ASSERT_TRUE(rider.Ask(2));
    ASSERT_TRUE(rider.WaitIdle(2000000));
    producer.SprayNoteOn(0, 61, 100, 3);
    ASSERT_TRUE(host.WaitIdle(2000000));
    ASSERT_TRUE(rider.Ask(4));
    ASSERT_TRUE(rider.WaitIdle(2000000));
    EXPECT_EQ(rider.calls,
              (std::vector<std::string>{"event @1", "command @2", "event @3", "command @4"}));
    ASSERT_EQ(rider.threads.size(), 1u);
    EXPECT_EQ(rider.threads[0], host.thread.load());
    EXPECT_NE(rider.threads[0], std::this_thread::get_id());
}

// On a thread of its own the rider would free room for the host; riding, the host must,
// or it would wait for itself and drop the rest.
TEST(MidiRiders, AHostSendingMoreThanItsRiderCanQueueLosesNothing) {
    TForwarder host;
    TRider rider(host, 4);
    host.out.Connect(&rider);
    ASSERT_TRUE(host.Burst(3000));
    ASSERT_TRUE(host.WaitIdle(5000000));
    ASSERT_TRUE(rider.WaitIdle(5000000));
    EXPECT_EQ(rider.count, 3000);
    EXPECT_TRUE(rider.inOrder);
    EXPECT_EQ(rider.SendDrops(), 0u);
}

TEST(MidiRidersDeathTest, ARiderCarriesNoneAndAHostNoMoreThanItHasRoomFor) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TForwarder host;
    TRider first(host);
    EXPECT_DEATH(TRider onARider(static_cast<TMidiLocalConsumer&>(first)), "is a rider");
    TRider second(host);
    static_assert(TMidiLocalConsumer::kMaxRiders == 2);
    EXPECT_DEATH(TRider third(host), "carries 2 riders already");
}

TEST(MidiRiders, RidersComingAndGoingWhileTheHostCarriesMusicIsSafe) {
    TMidiLocalProducer producer;
    TForwarder host;
    producer.Connect(&host);
    std::atomic<bool> run{true};
    // Not flat out: the host runs at the music's real-time priority on the music core, and
    // a host that never sleeps would hold that core from other programs' music threads.
    std::thread sender([&] {
        for (int64_t time = 0; run.load(); ++time) {
            producer.SprayNoteOn(0, 60, 100, time);
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    });
    TRider steady(host);
    host.out.Connect(&steady);
    int reached = 0;
    for (int i = 0; i < 100; ++i) {
        TRider passing(host);
        host.out.Connect(&passing);
        reached += wait_for([&] { return passing.count.load() > 0; }) ? 1 : 0;
    }
    run = false;
    sender.join();
    ASSERT_TRUE(host.WaitIdle(2000000));
    ASSERT_TRUE(steady.WaitIdle(2000000));
    EXPECT_EQ(reached, 100);
    EXPECT_TRUE(steady.inOrder);
    EXPECT_GT(steady.count.load(), 0);
}

TEST(MidiRoster, ListsRegisteredConsumersByIdAndFindsThemByName) {
    TMidiRecorder synth("Test Synth Alpha", 1), other("Test Synth Beta", 1), hidden("Hidden", 1);
    std::atomic<int> changes{0};
    int32_t token = TMidiRoster::Default().AddWatcher([&] { changes.fetch_add(1); });
    synth.Register();
    other.Register();
    EXPECT_EQ(changes.load(), 2);
    EXPECT_EQ(synth.Register(), -1);
    TMidiRoster& roster = TMidiRoster::Default();
    EXPECT_EQ(roster.FindConsumer(synth.ID()), &synth);
    EXPECT_EQ(roster.FindConsumer(hidden.ID()), nullptr);
    EXPECT_EQ(roster.FindConsumerByName("Test Synth Beta"), &other);
    EXPECT_EQ(roster.FindConsumerByName("Alpha"), &synth);
    EXPECT_EQ(roster.FindConsumerByName("Test Synth"), nullptr);  // two match: no guess
    int32_t id = 0;
    std::vector<int32_t> ids;
    while (TMidiConsumer* consumer = roster.NextConsumer(&id)) ids.push_back(consumer->ID());
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
    other.Unregister();
    EXPECT_EQ(roster.FindConsumerByName("Beta"), nullptr);
    EXPECT_EQ(changes.load(), 3);
    roster.RemoveWatcher(token);
}

}  // namespace
