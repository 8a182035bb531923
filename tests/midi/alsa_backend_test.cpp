// The ALSA backend against a kernel sequencer. Needs /dev/snd/seq ("Midi Through" at 14:0);
// skipped without it. Run in a virtual machine from a build folder:
//   ../shared/tools/qvm.sh ctest -L alsa --output-on-failure
// A second sequencer client of the test reads back what the backend sent.

#include "midi/alsa_backend.h"

#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "midi/backends.h"
#include "midi/local_producer.h"
#include "midi/roster.h"
#include "tests/support/wait.h"

namespace {

constexpr int kThroughClient = 14;

// A plain sequencer client with writable ports, which the backend lists as consumers.
class TReader {
  public:
    explicit TReader(int inputPool = 2000) {
        if (snd_seq_open(&fSeq, "default", SND_SEQ_OPEN_DUPLEX, SND_SEQ_NONBLOCK) < 0) {
            fSeq = nullptr;
            return;
        }
        snd_seq_set_client_name(fSeq, "Quill test reader");
        snd_seq_set_client_pool_input(fSeq, inputPool);
        fDecoder = nullptr;
        snd_midi_event_new(kDecodeBytes, &fDecoder);
        snd_midi_event_no_status(fDecoder, 1);
    }
    ~TReader() {
        if (fDecoder) snd_midi_event_free(fDecoder);
        if (fSeq) snd_seq_close(fSeq);
    }
    bool IsOpen() const { return fSeq != nullptr; }
    int Client() const { return snd_seq_client_id(fSeq); }
    snd_seq_t* Seq() const { return fSeq; }

    int MakePort(const char* name) {
        return snd_seq_create_simple_port(
            fSeq, name, SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
            SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
    }

    // Reads until bytes of raw MIDI have come (or timeout), as the bytes the events stand
    // for; sysexEvents counts SYSEX events among them.
    std::vector<uint8_t> Read(size_t bytes, int* sysexEvents = nullptr,
                              std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        std::vector<uint8_t> got;
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (got.size() < bytes && std::chrono::steady_clock::now() < deadline) {
            snd_seq_event_t* event = nullptr;
            if (snd_seq_event_input(fSeq, &event) < 0 || !event) {
                WaitReadable(10);
                continue;
            }
            if (sysexEvents && event->type == SND_SEQ_EVENT_SYSEX) ++*sysexEvents;
            uint8_t buffer[kDecodeBytes];
            long length = snd_midi_event_decode(fDecoder, buffer, sizeof buffer, event);
            if (length > 0) got.insert(got.end(), buffer, buffer + length);
        }
        return got;
    }

    // Drops whatever is waiting.
    void Discard() {
        snd_seq_event_t* event = nullptr;
        while (snd_seq_event_input(fSeq, &event) >= 0) {
        }
    }

  private:
    static constexpr size_t kDecodeBytes = 8192;

    void WaitReadable(int ms) {
        pollfd fds[4];
        int count = snd_seq_poll_descriptors(fSeq, fds, 4, POLLIN);
        poll(fds, count, ms);
    }

    snd_seq_t* fSeq = nullptr;
    snd_midi_event_t* fDecoder = nullptr;
};

bool subscribed(snd_seq_t* seq, int senderClient, int senderPort, int destClient, int destPort) {
    snd_seq_port_subscribe_t* subscription;
    snd_seq_port_subscribe_alloca(&subscription);
    snd_seq_addr_t sender{uint8_t(senderClient), uint8_t(senderPort)};
    snd_seq_addr_t dest{uint8_t(destClient), uint8_t(destPort)};
    snd_seq_port_subscribe_set_sender(subscription, &sender);
    snd_seq_port_subscribe_set_dest(subscription, &dest);
    return snd_seq_get_port_subscription(seq, subscription) == 0;
}

// The port number of the first port of client named name, or -1.
int find_port(snd_seq_t* seq, int client, const std::string& name, unsigned int* caps,
              unsigned int* type) {
    snd_seq_port_info_t* port;
    snd_seq_port_info_alloca(&port);
    snd_seq_port_info_set_client(port, client);
    snd_seq_port_info_set_port(port, -1);
    while (snd_seq_query_next_port(seq, port) >= 0) {
        if (name != snd_seq_port_info_get_name(port)) continue;
        *caps = snd_seq_port_info_get_capability(port);
        *type = snd_seq_port_info_get_type(port);
        return snd_seq_port_info_get_port(port);
    }
    return -1;
}

std::vector<uint8_t> sysex_of(size_t dataBytes, uint8_t seed) {
    std::vector<uint8_t> data(dataBytes);
    for (size_t i = 0; i < dataBytes; ++i) data[i] = uint8_t((i * 7 + seed) & 0x7F);
    return data;
}

class AlsaSequencer : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!reader.IsOpen()) GTEST_SKIP() << "no ALSA sequencer (/dev/snd/seq) here";
        out.Register();
        TMidiBackends::TOptions options;
        options.useJack = false;
        backends.SetProblemHandler([this](const std::string& problem) {
            std::lock_guard lock(fProblemsLock);
            fProblems.push_back(problem);
        });
        ASSERT_EQ(backends.Start(options), 1) << backends.Status();
        alsa = backends.Alsa();
        through = alsa->FindByAddress("14:0");
        ASSERT_NE(through, nullptr) << "Midi Through is missing";
        unsigned int caps = 0;
        unsigned int type = 0;
        outPort = find_port(reader.Seq(), alsa->ClientID(), "Quill MIDI OUT A", &caps, &type);
        ASSERT_GE(outPort, 0);
    }
    void TearDown() override {
        out.Unregister();
        backends.Stop();
    }
    std::vector<std::string> Problems() {
        std::lock_guard lock(fProblemsLock);
        return fProblems;
    }
    // The reader's port in, fed by Midi Through.
    int ReadThrough() {
        int in = reader.MakePort("from through");
        snd_seq_connect_from(reader.Seq(), in, kThroughClient, 0);
        return in;
    }

    TReader reader;
    TMidiLocalProducer out{"Quill MIDI OUT A"};
    TMidiBackends backends;
    TAlsaBackend* alsa = nullptr;
    TMidiSystemConsumer* through = nullptr;
    int outPort = -1;

  private:
    std::mutex fProblemsLock;
    std::vector<std::string> fProblems;
};

}  // namespace

TEST_F(AlsaSequencer, OurClientAndPublicPortExistAndOtherPortsAreConsumers) {
    snd_seq_client_info_t* client;
    snd_seq_client_info_alloca(&client);
    ASSERT_EQ(snd_seq_get_any_client_info(reader.Seq(), alsa->ClientID(), client), 0);
    EXPECT_STREQ(snd_seq_client_info_get_name(client), "Quill MIDI");
    unsigned int caps = 0;
    unsigned int type = 0;
    ASSERT_GE(find_port(reader.Seq(), alsa->ClientID(), "Quill MIDI OUT A", &caps, &type), 0);
    EXPECT_EQ(caps & (SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ),
              unsigned(SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ));
    EXPECT_EQ(caps & SND_SEQ_PORT_CAP_WRITE, 0u);
    EXPECT_EQ(type, unsigned(SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION));

    EXPECT_EQ(through->Name(), "Midi Through:Midi Through Port-0 14:0");
    EXPECT_EQ(TMidiRoster::Default().FindConsumerByName("Midi Through Port-0"), through);
    for (int virmidi = 16; virmidi <= 19; ++virmidi)
        EXPECT_NE(alsa->FindByAddress(std::to_string(virmidi) + ":0"), nullptr) << virmidi;
    EXPECT_EQ(alsa->FindByAddress(std::to_string(alsa->ClientID()) + ":" + std::to_string(outPort)),
              nullptr)
        << "our own ports are not consumers";

    TMidiLocalProducer late("Quill MIDI OUT B");
    late.Register();
    EXPECT_GE(find_port(reader.Seq(), alsa->ClientID(), "Quill MIDI OUT B", &caps, &type), 0);
    late.Unregister();
    EXPECT_LT(find_port(reader.Seq(), alsa->ClientID(), "Quill MIDI OUT B", &caps, &type), 0);
}

TEST_F(AlsaSequencer, ConnectingSubscribesAndDisconnectingUnsubscribes) {
    ASSERT_EQ(out.Connect(through), 0);
    EXPECT_TRUE(subscribed(reader.Seq(), alsa->ClientID(), outPort, kThroughClient, 0));
    ASSERT_EQ(out.Disconnect(through), 0);
    EXPECT_FALSE(subscribed(reader.Seq(), alsa->ClientID(), outPort, kThroughClient, 0));
}

TEST_F(AlsaSequencer, EventsArriveInOrderAndLongSysExArrivesWhole) {
    ReadThrough();
    ASSERT_EQ(out.Connect(through), 0);
    std::vector<uint8_t> expected;
    auto expect = [&](std::initializer_list<uint8_t> bytes) {
        expected.insert(expected.end(), bytes);
    };
    const std::vector<uint8_t> longSysEx = sysex_of(300, 1);
    const std::vector<uint8_t> hugeSysEx = sysex_of(9000, 2);
    for (uint8_t note = 40; note < 60; ++note) {
        out.SprayNoteOn(1, note, 100, 0);
        expect({0x91, note, 100});
    }
    out.SprayProgramChange(2, 17, 0);
    expect({0xC2, 17});
    out.SprayPitchBend(3, 0x01, 0x50, 0);
    expect({0xE3, 0x01, 0x50});
    out.SprayTempoChange(120, 0);  // a meta event: not on the wire
    out.SpraySystemExclusive(longSysEx.data(), longSysEx.size(), 0);
    expected.push_back(0xF0);
    expected.insert(expected.end(), longSysEx.begin(), longSysEx.end());
    expected.push_back(0xF7);
    out.SprayChannelPressure(4, 33, 0);
    expect({0xD4, 33});
    out.SpraySystemExclusive(hugeSysEx.data(), hugeSysEx.size(), 0);
    expected.push_back(0xF0);
    expected.insert(expected.end(), hugeSysEx.begin(), hugeSysEx.end());
    expected.push_back(0xF7);
    for (uint8_t note = 40; note < 60; ++note) {
        out.SprayNoteOff(1, note, 0, 0);
        expect({0x81, note, 0});
    }
    int sysexEvents = 0;
    std::vector<uint8_t> got = reader.Read(expected.size(), &sysexEvents);
    EXPECT_EQ(got, expected);
    EXPECT_EQ(sysexEvents, 1 + 3) << "300 bytes whole; 9002 bytes in pieces of 4096";
    EXPECT_TRUE(Problems().empty());
}

TEST_F(AlsaSequencer, DirectConsumerGetsEventsUntilDisconnectedThenTheSilencingMessages) {
    const int in = reader.MakePort("direct");
    const std::string address = TAlsaBackend::Address(reader.Client(), in);
    ASSERT_TRUE(wait_for([&] { return alsa->FindByAddress(address) != nullptr; }))
        << "the new port never became a consumer";
    TMidiSystemConsumer* consumer = alsa->FindByAddress(address);
    EXPECT_EQ(consumer->Name(), "Quill test reader:direct " + address);

    ASSERT_EQ(out.Connect(consumer), 0);
    EXPECT_TRUE(subscribed(reader.Seq(), alsa->ClientID(), outPort, reader.Client(), in));
    out.SprayNoteOn(0, 60, 90, 0);
    EXPECT_EQ(reader.Read(3), (std::vector<uint8_t>{0x90, 60, 90}));
    ASSERT_EQ(out.Disconnect(consumer), 0);
    out.SprayNoteOn(0, 61, 90, 0);

    // What the player sends a consumer it lets go: a producer of its own, unregistered.
    TMidiLocalProducer silencer("DisconnectProducer");
    ASSERT_EQ(silencer.Connect(consumer), 0);
    std::vector<uint8_t> expected;
    for (uint8_t channel = 0; channel < 16; ++channel) {
        for (uint8_t controller : {123, 120, 121}) {
            silencer.SprayControlChange(channel, controller, 0, 0);
            expected.insert(expected.end(), {uint8_t(0xB0 | channel), controller, 0});
        }
    }
    ASSERT_EQ(silencer.Disconnect(consumer), 0);
    EXPECT_EQ(reader.Read(expected.size() + 3, nullptr, std::chrono::seconds(2)), expected)
        << "48 control changes, and nothing sent on the port after the disconnection";
    unsigned int caps = 0;
    unsigned int type = 0;
    EXPECT_LT(find_port(reader.Seq(), alsa->ClientID(), "DisconnectProducer", &caps, &type), 0)
        << "the private port goes with its last connection";
}

TEST_F(AlsaSequencer, VanishingConsumerIsReportedOnceAndPlayGoesOn) {
    ReadThrough();
    const int doomed = reader.MakePort("doomed");
    const std::string address = TAlsaBackend::Address(reader.Client(), doomed);
    ASSERT_TRUE(wait_for([&] { return alsa->FindByAddress(address) != nullptr; }));
    TMidiSystemConsumer* consumer = alsa->FindByAddress(address);
    std::atomic<int> changes{0};
    int32_t watcher = TMidiRoster::Default().AddWatcher([&] { changes.fetch_add(1); });
    ASSERT_EQ(out.Connect(consumer), 0);
    ASSERT_EQ(out.Connect(through), 0);

    snd_seq_delete_simple_port(reader.Seq(), doomed);
    ASSERT_TRUE(wait_for([&] { return !Problems().empty(); }));
    TMidiRoster::Default().RemoveWatcher(watcher);
    EXPECT_GE(changes.load(), 1);
    EXPECT_TRUE(consumer->IsGone());
    EXPECT_FALSE(consumer->IsRegistered());
    EXPECT_FALSE(out.IsConnected(consumer));
    EXPECT_EQ(Problems(), (std::vector<std::string>{"ALSA: \"Quill test reader:doomed " + address +
                                                    "\" went away while connected"}));
    reader.Discard();
    out.SprayNoteOn(5, 70, 80, 0);
    EXPECT_EQ(reader.Read(3), (std::vector<uint8_t>{0x95, 70, 80}));
}

TEST_F(AlsaSequencer, FullReceiverNeverBlocksTheSenderAndTheOthersGetEverything) {
    ReadThrough();
    TReader stalled(50);  // a client that never reads, with room for 50 events
    const int stuck = stalled.MakePort("never reads");
    const std::string address = TAlsaBackend::Address(stalled.Client(), stuck);
    ASSERT_TRUE(wait_for([&] { return alsa->FindByAddress(address) != nullptr; }));
    ASSERT_EQ(out.Connect(alsa->FindByAddress(address)), 0);
    ASSERT_EQ(out.Connect(through), 0);

    constexpr int kBatches = 20;
    constexpr int kPerBatch = 100;
    size_t received = 0;
    size_t wrong = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int batch = 0; batch < kBatches; ++batch) {
        for (int i = 0; i < kPerBatch; ++i) out.SprayControlChange(0, 1, uint8_t(i), 0);
        std::vector<uint8_t> got = reader.Read(3 * kPerBatch);
        received += got.size() / 3;
        for (size_t i = 0; i + 2 < got.size(); i += 3) wrong += got[i + 2] != (i / 3) % kPerBatch;
    }
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(received, size_t(kBatches * kPerBatch));
    EXPECT_EQ(wrong, 0u);
    EXPECT_LT(elapsed, std::chrono::seconds(60)) << "the sender must not wait for the full one";
    ASSERT_TRUE(wait_for([&] { return !Problems().empty(); }));
    EXPECT_EQ(Problems(),
              (std::vector<std::string>{
                  "ALSA: events dropped on \"Quill MIDI OUT A\" (a receiver is not keeping up)"}));
}
