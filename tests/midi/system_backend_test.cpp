// The system backends' logic without a kernel sequencer or a JACK server: port and
// consumer bookkeeping through a scripted backend, the ALSA event encoding, names and
// addresses, JACK frame placement and the status line.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "midi/alsa_backend.h"
#include "midi/alsa_encoder.h"
#include "midi/backends.h"
#include "midi/byte_ring.h"
#include "midi/jack_backend.h"
#include "midi/local_producer.h"
#include "midi/roster.h"
#include "tests/support/wait.h"

namespace {

// A system whose peers the test sets, and whose ports write down what they get.
class TScriptedBackend final : public TMidiSystemBackend {
  public:
    struct TScriptedPort final : TPort {
        TScriptedPort(TScriptedBackend& backend, const std::string& name, bool isPublic)
            : TPort(backend, name), fOwner(backend), fPublic(isPublic) {}
        void Send(const uint8_t* data, size_t length, int64_t) override {
            std::lock_guard lock(fOwner.fLock);
            fOwner.fLog.push_back(Name() + " <- " + std::to_string(length) + " bytes " +
                                  std::to_string(data[0]));
            if (fOwner.fRefuseSends) NoteDrop();
        }
        TScriptedBackend& fOwner;
        const bool fPublic;
    };

    ~TScriptedBackend() override { Stop(); }

    std::string Status() const override { return "scripted"; }

    void SetPeers(std::vector<TPeer> peers) {
        {
            std::lock_guard lock(fLock);
            fPeers = std::move(peers);
        }
        RequestRescan();
    }
    void RefuseSends() { fRefuseSends.store(true); }
    std::vector<std::string> Log() {
        std::lock_guard lock(fLock);
        return fLog;
    }
    bool WaitForProblems(size_t count) {
        return wait_for([&] { return Problems().size() >= count; });
    }

  protected:
    const char* SystemName() const override { return "TEST"; }
    std::unique_ptr<TPort> OpenPort(const std::string& name, bool isPublic) override {
        Note("open " + name + (isPublic ? " public" : " private"));
        return std::make_unique<TScriptedPort>(*this, name, isPublic);
    }
    bool Link(TPort& port, const TMidiSystemConsumer& consumer) override {
        Note("link " + port.Name() + " -> " + consumer.Address());
        return true;
    }
    void Unlink(TPort& port, const TMidiSystemConsumer& consumer) override {
        Note("unlink " + port.Name() + " -> " + consumer.Address());
    }
    void Flush(TPort& port) override { Note("flush " + port.Name()); }
    bool ListPeers(std::vector<TPeer>* peers) override {
        std::lock_guard lock(fLock);
        *peers = fPeers;
        return true;
    }

  private:
    void Note(const std::string& line) {
        std::lock_guard lock(fLock);
        fLog.push_back(line);
    }

    std::mutex fLock;
    std::vector<TPeer> fPeers;
    std::vector<std::string> fLog;
    std::atomic<bool> fRefuseSends{false};
};

std::vector<std::string> roster_names() {
    std::vector<std::string> names;
    for (TMidiConsumer* consumer : TMidiRoster::Default().Consumers())
        names.push_back(consumer->Name());
    return names;
}

bool contains(const std::vector<std::string>& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

}  // namespace

// --- local producer sinks ------------------------------------------------------------

namespace {
struct TCountingSink final : TMidiPortSink {
    void Send(const uint8_t*, size_t, int64_t) override { ++sends; }
    int sends = 0;
};
}  // namespace

TEST(LocalProducer, SinkGetsEachSprayOnceAndIsNoConnection) {
    TMidiLocalProducer producer("p");
    TCountingSink sink;
    EXPECT_EQ(producer.AttachSink(&sink), 0);
    EXPECT_EQ(producer.AttachSink(&sink), -1);
    EXPECT_EQ(producer.AttachSink(nullptr), -1);
    producer.SprayNoteOn(0, 60, 100, 0);
    producer.SprayControlChange(0, 7, 100, 0);
    EXPECT_EQ(sink.sends, 2);
    EXPECT_TRUE(producer.Connections().empty());
    EXPECT_EQ(producer.DetachSink(&sink), 0);
    EXPECT_EQ(producer.DetachSink(&sink), -1);
    producer.SprayNoteOff(0, 60, 0, 0);
    EXPECT_EQ(sink.sends, 2);
}

// --- ports and consumers through the shared backend logic ----------------------------

TEST(SystemBackend, RegisteredProducersGetPublicPortsBeforeAndAfterStart) {
    TMidiLocalProducer early("Early OUT");
    early.Register();
    TScriptedBackend backend;
    ASSERT_EQ(backend.Start(), 0);
    TMidiLocalProducer late("Late OUT");
    late.Register();
    TMidiLocalProducer hidden("Hidden");  // never registered: no port of its own
    EXPECT_TRUE(contains(backend.Log(), "open Early OUT public"));
    EXPECT_TRUE(contains(backend.Log(), "open Late OUT public"));
    EXPECT_FALSE(contains(backend.Log(), "open Hidden public"));

    early.SprayNoteOn(0, 60, 100, 0);
    EXPECT_TRUE(contains(backend.Log(), "Early OUT <- 3 bytes 144"));
    late.Unregister();
    late.SprayNoteOn(0, 60, 100, 0);
    EXPECT_FALSE(contains(backend.Log(), "Late OUT <- 3 bytes 144"));
    backend.Stop();
    early.SprayNoteOn(0, 61, 100, 0);
    size_t count = 0;
    for (const std::string& line : backend.Log()) count += line == "Early OUT <- 3 bytes 144";
    EXPECT_EQ(count, 1u) << "a stopped backend must not hear the producer";
}

TEST(SystemBackend, PeersBecomeConsumersWithStableIdsAndRenamesAreNewConsumers) {
    TScriptedBackend backend;
    backend.SetNamePrefix("TEST: ");
    backend.SetPeers({{"1:0", "Synth one"}, {"2:0", "Synth two"}});
    ASSERT_EQ(backend.Start(), 0);
    TMidiSystemConsumer* one = backend.FindByAddress("1:0");
    ASSERT_NE(one, nullptr);
    EXPECT_EQ(one->Name(), "TEST: Synth one");
    EXPECT_FALSE(one->IsLocal());
    EXPECT_TRUE(one->IsRegistered());
    EXPECT_EQ(TMidiRoster::Default().FindConsumerByName("Synth two"), backend.FindByAddress("2:0"));
    const int32_t id = one->ID();

    std::atomic<int> notifications{0};
    int32_t watcher = TMidiRoster::Default().AddWatcher([&] { notifications.fetch_add(1); });
    backend.SetPeers({{"1:0", "Synth one"}, {"2:0", "Synth two renamed"}, {"3:0", "Three"}});
    ASSERT_TRUE(wait_for([&] { return backend.FindByAddress("3:0") != nullptr; }));
    ASSERT_TRUE(wait_for([&] { return notifications.load() >= 3; }))
        << "one retired and two new consumers are three roster changes";
    TMidiRoster::Default().RemoveWatcher(watcher);
    EXPECT_EQ(backend.FindByAddress("1:0"), one);
    EXPECT_EQ(one->ID(), id);
    EXPECT_EQ(TMidiRoster::Default().FindConsumer(id), one);
    EXPECT_EQ(backend.FindByAddress("2:0")->Name(), "TEST: Synth two renamed");
    EXPECT_FALSE(contains(roster_names(), "TEST: Synth two"));

    backend.Stop();
    EXPECT_FALSE(contains(roster_names(), "TEST: Synth one"));
    EXPECT_FALSE(one->IsRegistered());
}

TEST(SystemBackend, ConnectingLinksThePortAndDisconnectingFlushesBeforeUnlinking) {
    TScriptedBackend backend;
    backend.SetPeers({{"1:0", "Synth"}, {"2:0", "Other"}});
    TMidiLocalProducer out("Port OUT");
    out.Register();
    ASSERT_EQ(backend.Start(), 0);
    TMidiSystemConsumer* synth = backend.FindByAddress("1:0");
    TMidiSystemConsumer* other = backend.FindByAddress("2:0");
    ASSERT_TRUE(synth && other);

    ASSERT_EQ(out.Connect(synth), 0);
    ASSERT_EQ(out.Connect(other), 0);
    out.SprayProgramChange(0, 5, 0);
    size_t sends = 0;
    for (const std::string& line : backend.Log()) sends += line == "Port OUT <- 2 bytes 192";
    EXPECT_EQ(sends, 1u) << "one port carries the event to every consumer behind it";

    ASSERT_EQ(out.Disconnect(synth), 0);
    std::vector<std::string> log = backend.Log();
    auto flush = std::find(log.begin(), log.end(), "flush Port OUT");
    auto unlink = std::find(log.begin(), log.end(), "unlink Port OUT -> 1:0");
    ASSERT_NE(unlink, log.end());
    EXPECT_LT(flush, unlink);
    EXPECT_TRUE(contains(log, "link Port OUT -> 2:0"));
    backend.Stop();
    EXPECT_TRUE(backend.Problems().empty()) << "stopping while connected is no vanishing";
    EXPECT_FALSE(out.IsConnected(other));
}

TEST(SystemBackend, UnregisteredProducerSendsThroughAPrivatePortWhileConnected) {
    TScriptedBackend backend;
    backend.SetPeers({{"1:0", "Synth"}});
    ASSERT_EQ(backend.Start(), 0);
    TMidiSystemConsumer* synth = backend.FindByAddress("1:0");
    ASSERT_NE(synth, nullptr);
    {
        TMidiLocalProducer silencer("DisconnectProducer");
        ASSERT_EQ(silencer.Connect(synth), 0);
        EXPECT_TRUE(contains(backend.Log(), "open DisconnectProducer private"));
        EXPECT_TRUE(contains(backend.Log(), "link DisconnectProducer -> 1:0"));
        for (uint8_t channel = 0; channel < 16; ++channel)
            silencer.SprayControlChange(channel, 123, 0, 0);
        ASSERT_EQ(silencer.Disconnect(synth), 0);
        EXPECT_TRUE(contains(backend.Log(), "unlink DisconnectProducer -> 1:0"));
        silencer.SprayControlChange(0, 120, 0, 0);
    }
    size_t sends = 0;
    for (const std::string& line : backend.Log())
        sends += line.starts_with("DisconnectProducer <- 3 bytes ");
    EXPECT_EQ(sends, 16u);
}

TEST(SystemBackend, VanishedConsumerIsDisconnectedAndReportedOnce) {
    TScriptedBackend backend;
    std::vector<std::string> told;
    std::mutex toldLock;
    backend.SetProblemHandler([&](const std::string& problem) {
        std::lock_guard lock(toldLock);
        told.push_back(problem);
    });
    backend.SetPeers({{"1:0", "Synth"}, {"2:0", "Other"}});
    TMidiLocalProducer out("Port OUT");
    out.Register();
    ASSERT_EQ(backend.Start(), 0);
    TMidiSystemConsumer* synth = backend.FindByAddress("1:0");
    TMidiSystemConsumer* other = backend.FindByAddress("2:0");
    ASSERT_EQ(out.Connect(synth), 0);
    ASSERT_EQ(out.Connect(other), 0);

    backend.SetPeers({{"2:0", "Other"}});
    ASSERT_TRUE(backend.WaitForProblems(1));
    EXPECT_TRUE(synth->IsGone());
    EXPECT_FALSE(synth->IsRegistered());
    EXPECT_FALSE(out.IsConnected(synth));
    EXPECT_TRUE(out.IsConnected(other));
    EXPECT_FALSE(contains(backend.Log(), "unlink Port OUT -> 1:0"))
        << "the system has already dropped a vanished port's links";
    out.SprayNoteOn(0, 60, 1, 0);  // the player keeps playing to the others
    EXPECT_TRUE(contains(backend.Log(), "Port OUT <- 3 bytes 144"));

    EXPECT_EQ(out.Connect(synth), 0);  // a stale pointer: accepted by the roster, not linked
    backend.SetPeers({});
    ASSERT_TRUE(wait_for([&] { return backend.FindByAddress("2:0") == nullptr; }));
    backend.Stop();
    std::lock_guard lock(toldLock);
    EXPECT_EQ(told, (std::vector<std::string>{
                        "TEST: \"Synth\" went away while connected",
                        "TEST: cannot connect \"Port OUT\" to \"Synth\" (it has gone)",
                        "TEST: \"Other\" went away while connected"}));
}

TEST(SystemBackend, DroppedEventsAreReportedOncePerPort) {
    TScriptedBackend backend;
    TMidiLocalProducer out("Port OUT");
    out.Register();
    ASSERT_EQ(backend.Start(), 0);
    backend.RefuseSends();
    for (int i = 0; i < 100; ++i) out.SprayNoteOn(0, 60, 100, 0);
    ASSERT_TRUE(backend.WaitForProblems(1));
    backend.Stop();
    EXPECT_EQ(backend.Problems(),
              (std::vector<std::string>{
                  "TEST: events dropped on \"Port OUT\" (a receiver is not keeping up)"}));
}

// --- the ring between JACK's senders and its process callback ----------------------------

TEST(ByteRing, RecordsArePublishedWholeAndWrapAround) {
    TByteRing ring(16);
    const uint8_t first[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    ASSERT_TRUE(ring.Write({{first, 6}, {first + 6, 4}}));
    EXPECT_EQ(ring.ReadSpace(), 10u);
    EXPECT_FALSE(ring.Write({{first, 7}})) << "all or nothing";
    uint8_t got[10] = {};
    ASSERT_TRUE(ring.Peek(got, 2));
    EXPECT_EQ(got[1], 2);
    ring.Read(got, 10);
    EXPECT_EQ(std::vector<uint8_t>(got, got + 10), std::vector<uint8_t>(first, first + 10));
    EXPECT_FALSE(ring.Peek(got, 1));
    const uint8_t second[] = {11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22};
    ASSERT_TRUE(ring.Write({{second, sizeof second}}));  // crosses the end of the storage
    ring.Read(got, 10);
    EXPECT_EQ(std::vector<uint8_t>(got, got + 10), std::vector<uint8_t>(second, second + 10));
    ring.Skip(2);
    EXPECT_EQ(ring.ReadSpace(), 0u);
    EXPECT_EQ(ring.WriteSpace(), 16u);
}

TEST(ByteRing, OneWriterAndOneReaderOnTheirOwnThreadsLoseAndTearNothing) {
    TByteRing ring(256);
    constexpr uint32_t kRecords = 100000;
    std::thread writer([&] {
        for (uint32_t i = 0; i < kRecords;) {
            const uint32_t length = 1 + i % 40;
            uint8_t body[40];
            std::fill(body, body + length, uint8_t(i));
            if (ring.Write({{&length, sizeof length}, {body, length}})) ++i;
        }
    });
    uint32_t torn = 0;
    for (uint32_t i = 0; i < kRecords;) {
        uint32_t length;
        if (!ring.Peek(&length, sizeof length)) continue;
        ring.Skip(sizeof length);
        uint8_t body[40];
        ring.Read(body, length);
        torn += length != 1 + i % 40 || body[length - 1] != uint8_t(i);
        ++i;
    }
    writer.join();
    EXPECT_EQ(torn, 0u);
}

// --- ALSA event encoding ---------------------------------------------------------------

namespace {
std::vector<snd_seq_event_t> encode(TAlsaEncoder& encoder, std::vector<uint8_t> bytes,
                                    std::vector<std::vector<uint8_t>>* sysex = nullptr) {
    std::vector<snd_seq_event_t> events;
    encoder.Encode(bytes.data(), bytes.size(), [&](snd_seq_event_t* event) {
        events.push_back(*event);
        if (sysex && event->type == SND_SEQ_EVENT_SYSEX) {
            auto* data = static_cast<const uint8_t*>(event->data.ext.ptr);
            sysex->emplace_back(data, data + event->data.ext.len);
        }
    });
    return events;
}
}  // namespace

TEST(AlsaEncoder, ChannelMessagesBecomeTheirSequencerEvents) {
    TAlsaEncoder encoder;
    auto on = encode(encoder, {0x93, 60, 100});
    ASSERT_EQ(on.size(), 1u);
    EXPECT_EQ(on[0].type, SND_SEQ_EVENT_NOTEON);
    EXPECT_EQ(on[0].data.note.channel, 3);
    EXPECT_EQ(on[0].data.note.note, 60);
    EXPECT_EQ(on[0].data.note.velocity, 100);
    EXPECT_EQ(encode(encoder, {0x80, 60, 0})[0].type, SND_SEQ_EVENT_NOTEOFF);
    EXPECT_EQ(encode(encoder, {0xA0, 60, 9})[0].type, SND_SEQ_EVENT_KEYPRESS);

    auto cc = encode(encoder, {0xBF, 121, 0});
    EXPECT_EQ(cc[0].type, SND_SEQ_EVENT_CONTROLLER);
    EXPECT_EQ(cc[0].data.control.channel, 15);
    EXPECT_EQ(cc[0].data.control.param, 121u);
    auto program = encode(encoder, {0xC1, 42});
    EXPECT_EQ(program[0].type, SND_SEQ_EVENT_PGMCHANGE);
    EXPECT_EQ(program[0].data.control.value, 42);
    auto pressure = encode(encoder, {0xD2, 77});
    EXPECT_EQ(pressure[0].type, SND_SEQ_EVENT_CHANPRESS);
    EXPECT_EQ(pressure[0].data.control.value, 77);
    EXPECT_EQ(encode(encoder, {0xE0, 0x00, 0x40})[0].data.control.value, 0);
    EXPECT_EQ(encode(encoder, {0xE0, 0x7F, 0x7F})[0].data.control.value, 8191);
    EXPECT_EQ(encode(encoder, {0xE0, 0x00, 0x00})[0].data.control.value, -8192);
    EXPECT_FALSE(snd_seq_ev_is_variable(&on[0]));
}

TEST(AlsaEncoder, SystemMessagesAndWhatHasNoWireForm) {
    TAlsaEncoder encoder;
    auto songPosition = encode(encoder, {0xF2, 0x01, 0x02});
    EXPECT_EQ(songPosition[0].type, SND_SEQ_EVENT_SONGPOS);
    EXPECT_EQ(songPosition[0].data.control.value, 1 + (2 << 7));
    EXPECT_EQ(encode(encoder, {0xF3, 7})[0].type, SND_SEQ_EVENT_SONGSEL);
    EXPECT_EQ(encode(encoder, {0xF1, 0x35})[0].type, SND_SEQ_EVENT_QFRAME);
    EXPECT_EQ(encode(encoder, {0xF6})[0].type, SND_SEQ_EVENT_TUNE_REQUEST);
    EXPECT_EQ(encode(encoder, {0xF8})[0].type, SND_SEQ_EVENT_CLOCK);
    EXPECT_EQ(encode(encoder, {0xFA})[0].type, SND_SEQ_EVENT_START);
    EXPECT_EQ(encode(encoder, {0xFB})[0].type, SND_SEQ_EVENT_CONTINUE);
    EXPECT_EQ(encode(encoder, {0xFC})[0].type, SND_SEQ_EVENT_STOP);
    EXPECT_EQ(encode(encoder, {0xFE})[0].type, SND_SEQ_EVENT_SENSING);
    EXPECT_EQ(encode(encoder, {0xFF})[0].type, SND_SEQ_EVENT_RESET);

    EXPECT_TRUE(encode(encoder, {0xFF, 0x51, 3, 0x07, 0xA1, 0x20}).empty()) << "tempo meta event";
    EXPECT_TRUE(encode(encoder, {0x40, 0x40}).empty()) << "stray data bytes";
    EXPECT_TRUE(encode(encoder, {0xF9}).empty()) << "undefined status";
    EXPECT_TRUE(encode(encoder, {0x90, 60}).empty()) << "short of a data byte";
    EXPECT_TRUE(encode(encoder, {}).empty());
}

TEST(AlsaEncoder, SysExLeavesWholeAndClosed) {
    TAlsaEncoder encoder;
    std::vector<std::vector<uint8_t>> sysex;
    encode(encoder, {0xF0, 0x7E, 0x7F, 0x09, 0x01}, &sysex);  // GM on, as the chain sends it
    encode(encoder, {0xF0, 0x43, 0x10, 0x4C, 0xF7}, &sysex);
    ASSERT_EQ(sysex.size(), 2u);
    EXPECT_EQ(sysex[0], (std::vector<uint8_t>{0xF0, 0x7E, 0x7F, 0x09, 0x01, 0xF7}));
    EXPECT_EQ(sysex[1], (std::vector<uint8_t>{0xF0, 0x43, 0x10, 0x4C, 0xF7}));
}

TEST(AlsaEncoder, LongSysExLeavesInPiecesThatMakeTheWholeMessage) {
    TAlsaEncoder encoder;
    const size_t piece = TAlsaEncoder::kSysExPieceBytes;
    std::vector<uint8_t> raw{0xF0};
    for (size_t i = 0; raw.size() < 2 * piece + 10; ++i) raw.push_back(uint8_t(i & 0x7F));
    std::vector<std::vector<uint8_t>> sysex;
    auto events = encode(encoder, raw, &sysex);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(sysex[0].size(), piece);
    EXPECT_EQ(sysex[1].size(), piece);
    std::vector<uint8_t> joined;
    for (const auto& part : sysex) joined.insert(joined.end(), part.begin(), part.end());
    raw.push_back(0xF7);
    EXPECT_EQ(joined, raw);

    // Exactly one piece long and unclosed: the closing byte makes it one byte longer.
    std::vector<uint8_t> exact(piece, 0x11);
    exact[0] = 0xF0;
    sysex.clear();
    ASSERT_EQ(encode(encoder, exact, &sysex).size(), 1u);
    EXPECT_EQ(sysex[0].size(), piece + 1);
    EXPECT_EQ(sysex[0].back(), 0xF7);
}

// --- names, addresses, timing, status ----------------------------------------------------

TEST(AlsaBackend, AddressesNamesAndWhichPortsAreConsumers) {
    EXPECT_EQ(TAlsaBackend::Address(14, 0), "14:0");
    EXPECT_EQ(TAlsaBackend::PeerName("Midi Through", "Midi Through Port-0", 14, 0),
              "Midi Through:Midi Through Port-0 14:0");
    EXPECT_TRUE(TAlsaBackend::IsConsumerPort(SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE |
                                             SND_SEQ_PORT_CAP_READ));
    EXPECT_FALSE(TAlsaBackend::IsConsumerPort(SND_SEQ_PORT_CAP_WRITE));
    EXPECT_FALSE(TAlsaBackend::IsConsumerPort(SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ));
    EXPECT_FALSE(TAlsaBackend::IsConsumerPort(SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE |
                                              SND_SEQ_PORT_CAP_NO_EXPORT));
}

TEST(JackBackend, FrameOffsetKeepsTheSpacingOfThePreviousPeriod) {
    // 256 frames of 48 kHz: a period of 5333 us starting at 100000 us.
    const int64_t start = 100000;
    const int64_t period = 5333;
    EXPECT_EQ(TJackBackend::FrameOffset(start - period, start, period, 256), 0u);
    EXPECT_EQ(TJackBackend::FrameOffset(start - period / 2, start, period, 256), 128u);
    EXPECT_EQ(TJackBackend::FrameOffset(start - 1, start, period, 256), 255u);
    EXPECT_EQ(TJackBackend::FrameOffset(start, start, period, 256), 256u) << "waits a cycle";
    EXPECT_EQ(TJackBackend::FrameOffset(start + 10, start, period, 256), 256u);
    EXPECT_EQ(TJackBackend::FrameOffset(start - 10 * period, start, period, 256), 0u)
        << "late events go first, never dropped";
}

TEST(MidiBackends, StatusSaysWhenThereIsNoSequencer) {
    if (access("/dev/snd/seq", F_OK) == 0) GTEST_SKIP() << "this machine has a sequencer";
    std::string error;
    EXPECT_EQ(TAlsaBackend::Open(&error), nullptr);
    EXPECT_EQ(error, "ALSA sequencer: not available (cannot open /dev/snd/seq)");

    TMidiBackends backends;
    TMidiBackends::TOptions options;
    options.useJack = false;
    EXPECT_EQ(backends.Start(options), 0);
    EXPECT_EQ(backends.Status(), "ALSA sequencer: not available (cannot open /dev/snd/seq)");
    EXPECT_EQ(backends.Alsa(), nullptr);
}

TEST(MidiBackends, StatusSaysWhenNoJackServerAnswers) {
    TMidiBackends backends;
    TMidiBackends::TOptions options;
    options.useAlsa = false;
    options.jackServer = "quill-test-no-such-server";
    EXPECT_EQ(backends.Start(options), 0);
    EXPECT_EQ(backends.Status(), "JACK: no server running");
}
