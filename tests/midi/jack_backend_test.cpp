// The JACK backend against a real server: each test starts its own jackd on the dummy
// driver (48 kHz, 256-frame periods) under a name of its own, and stops it after. A JACK
// client of the test with a MIDI input port writes down what arrives and at which frame.
// Skipped when jackd is not installed.

#include "midi/jack_backend.h"

#include <gtest/gtest.h>
#include <jack/jack.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "midi/backends.h"
#include "midi/local_producer.h"
#include "midi/roster.h"
#include "tests/support/jack_server.h"
#include "tests/support/wait.h"

namespace {

// An event placed within this of its sending is on time: a frame is 21 us.
constexpr int64_t kOnTimeUs = 100;

class JackServer : public ::testing::Test {
  protected:
    void SetUp() override {
        if (access(kJackd, X_OK) != 0) GTEST_SKIP() << "jackd is not installed";
        server = std::make_unique<TJackServer>();
        ASSERT_TRUE(server->WaitUntilUp()) << "jackd did not come up";
        reader = std::make_unique<TJackReader>(server->Name(), "Quill test reader");
        ASSERT_TRUE(reader->IsOpen());
        out.Register();
        backends.SetProblemHandler([this](const std::string& problem) {
            std::lock_guard lock(fProblemsLock);
            fProblems.push_back(problem);
        });
        TMidiBackends::TOptions options;
        options.useAlsa = false;
        options.jackServer = server->Name();
        ASSERT_EQ(backends.Start(options), 1) << backends.Status();
        jack = backends.Jack();
        consumer = jack->FindByAddress(reader->PortName());
        ASSERT_NE(consumer, nullptr);
    }
    void TearDown() override {
        out.Unregister();
        backends.Stop();
        reader.reset();
        server.reset();
    }
    std::vector<std::string> Problems() {
        std::lock_guard lock(fProblemsLock);
        return fProblems;
    }
    bool Connected(const char* ourPort) {
        std::string name = jack->ClientName() + ":" + ourPort;
        jack_port_t* port = jack_port_by_name(Client(), name.c_str());
        return port && jack_port_connected_to(port, reader->PortName().c_str());
    }
    // A client of the test for asking the server about ports.
    jack_client_t* Client() {
        if (!fAsker) {
            jack_status_t status;
            fAsker = jack_client_open("asker", jack_options_t(JackNoStartServer | JackServerName),
                                      &status, server->Name().c_str());
        }
        return fAsker;
    }

    std::unique_ptr<TJackServer> server;
    std::unique_ptr<TJackReader> reader;
    TMidiLocalProducer out{"Quill MIDI OUT A"};
    TMidiBackends backends;
    TJackBackend* jack = nullptr;
    TMidiSystemConsumer* consumer = nullptr;

  private:
    struct TAskerCloser {
        jack_client_t** client;
        ~TAskerCloser() {
            if (*client) jack_client_close(*client);
        }
    };
    jack_client_t* fAsker = nullptr;
    TAskerCloser fAskerCloser{&fAsker};  // closed before the server stops
    std::mutex fProblemsLock;
    std::vector<std::string> fProblems;
};

}  // namespace

// jackd has room for eight running servers and frees a killed one's room only for a server
// of the same name: the tests' servers must never use it up, however many of them die.
TEST(JackServers, ServersKilledOneAfterAnotherNeverFillTheServerRegistry) {
    if (access(kJackd, X_OK) != 0) GTEST_SKIP() << "jackd is not installed";
    for (int round = 0; round < 10; ++round) {
        TJackServer server;
        ASSERT_TRUE(server.WaitUntilUp()) << "server " << round + 1 << " did not come up";
        server.Kill();
    }
}

TEST_F(JackServer, OurClientHasTheOutputPortAndOtherInputsAreConsumers) {
    std::string name = jack->ClientName() + ":Quill MIDI OUT A";
    jack_port_t* port = jack_port_by_name(Client(), name.c_str());
    ASSERT_NE(port, nullptr) << name;
    EXPECT_TRUE(jack_port_flags(port) & JackPortIsOutput);
    EXPECT_STREQ(jack_port_type(port), JACK_DEFAULT_MIDI_TYPE);
    EXPECT_EQ(jack->ClientName(), "Quill MIDI");
    EXPECT_EQ(consumer->Name(), "Quill test reader:in");
    EXPECT_EQ(TMidiRoster::Default().FindConsumerByName("Quill test reader:in"), consumer);
    EXPECT_EQ(backends.Status(),
              "JACK: client \"Quill MIDI\" on server \"" + server->Name() + "\"");
}

TEST_F(JackServer, EventsArriveInOrderWithTheirSpacing) {
    ASSERT_EQ(out.Connect(consumer), 0);
    EXPECT_TRUE(Connected("Quill MIDI OUT A"));
    constexpr int kEvents = 20;
    constexpr auto kGap = std::chrono::milliseconds(20);
    // The sender is not the subject here, so its own lateness is measured, not assumed.
    std::vector<jack_time_t> sentUs;
    auto next = std::chrono::steady_clock::now();
    for (int i = 0; i < kEvents; ++i) {
        std::this_thread::sleep_until(next);
        sentUs.push_back(jack_get_time());
        out.SprayNoteOn(uint8_t(i % 16), uint8_t(40 + i), 100, 0);
        next += kGap;
    }
    const uint8_t gs[] = {0x41, 0x10, 0x42, 0x12, 0x40, 0x00, 0x7F, 0x00, 0x41};
    out.SpraySystemExclusive(gs, sizeof gs, 0);
    // A server without real-time scheduling on a loaded machine runs cycles late (xruns),
    // and what a late client writes in one may never reach the reader: that loss is the
    // server's, told by its xruns. Without an xrun, every event must come.
    const bool all = reader->WaitFor(kEvents + 1);
    const size_t xruns = reader->Xruns();
    if (!all) {
        ASSERT_GT(xruns, 0u) << "events lost without an xrun: " << reader->Count();
        ASSERT_GT(reader->Count(), 0u) << "nothing came";
    }
    const size_t received = std::min(reader->Count(), size_t(kEvents + 1));
    const bool sysExCame = all || reader->Bytes(received - 1)[0] == 0xF0;
    if (sysExCame) {
        EXPECT_EQ(reader->Bytes(received - 1),
                  (std::vector<uint8_t>{0xF0, 0x41, 0x10, 0x42, 0x12, 0x40, 0x00, 0x7F, 0x00, 0x41,
                                        0xF7}));
    }
    // In the order sent, each note once; the note number tells which event it is.
    std::vector<int> sent;
    for (size_t k = 0; k < received - (sysExCame ? 1 : 0); ++k) {
        const std::vector<uint8_t> bytes = reader->Bytes(k);
        const int i = bytes.size() == 3 ? int(bytes[1]) - 40 : -1;
        ASSERT_TRUE(i >= 0 && i < kEvents && (sent.empty() || i > sent.back()))
            << "event " << k << " out of order or unknown";
        EXPECT_EQ(bytes, (std::vector<uint8_t>{uint8_t(0x90 | (i % 16)), uint8_t(40 + i), 100}));
        sent.push_back(i);
    }
    // The events sent during one period are played in the next at the same place, so each
    // stands for a moment one period before its frame, by the server's own timing of the
    // cycle it came in; placed on time, that is when it was sent, to a frame. A late cycle
    // puts what was sent before the period it follows at its start: later, never earlier.
    // Placed early, the spacing is squeezed or lost (an event put at the start of its
    // cycle stands for a moment before it was sent). Frames are not compared with the
    // clock: a loaded server's frame count falls behind it. An xrun can mistime a cycle
    // either way, so a few stray events are allowed; a fault moves most or all of them.
    int onTime = 0;
    std::vector<int64_t> earlyUs;
    for (size_t k = 0; k < sent.size(); ++k) {
        const TJackReader::TEvent& event = reader->Event(k);
        const int64_t frameUs = event.periodUs / event.cycleFrames;
        const int64_t standsForUs = event.cycleStartUs - event.periodUs +
                                    int64_t(event.offset) * event.periodUs / event.cycleFrames;
        const int64_t latenessUs = standsForUs - int64_t(sentUs[size_t(sent[k])]);
        if (latenessUs < -2 * frameUs)
            earlyUs.push_back(-latenessUs);
        else if (latenessUs <= kOnTimeUs)
            ++onTime;
    }
    EXPECT_LE(earlyUs.size(), xruns > 0 ? 2u : 0u)
        << "events placed before they were sent, the first by " << earlyUs.front() << " us ("
        << xruns << " xruns)";
    EXPECT_GE(onTime, int(sent.size()) / 5)
        << "events placed on time, of " << sent.size() << " (" << xruns << " xruns)";
    EXPECT_TRUE(Problems().empty());
}

TEST_F(JackServer, DisconnectingLeavesThePortAndTheSilencingMessagesStillArrive) {
    ASSERT_EQ(out.Connect(consumer), 0);
    out.SprayNoteOn(0, 60, 100, 0);
    ASSERT_EQ(out.Disconnect(consumer), 0);
    EXPECT_FALSE(Connected("Quill MIDI OUT A"));
    out.SprayNoteOn(0, 61, 100, 0);  // no longer reaches the reader

    TMidiLocalProducer silencer("DisconnectProducer");
    ASSERT_EQ(silencer.Connect(consumer), 0);
    for (uint8_t channel = 0; channel < 16; ++channel)
        for (uint8_t controller : {123, 120, 121})
            silencer.SprayControlChange(channel, controller, 0, 0);
    ASSERT_EQ(silencer.Disconnect(consumer), 0);

    ASSERT_TRUE(reader->WaitFor(1 + 48)) << reader->Count();
    EXPECT_EQ(reader->Bytes(0), (std::vector<uint8_t>{0x90, 60, 100}));
    size_t index = 1;
    for (uint8_t channel = 0; channel < 16; ++channel)
        for (uint8_t controller : {123, 120, 121})
            EXPECT_EQ(reader->Bytes(index++),
                      (std::vector<uint8_t>{uint8_t(0xB0 | channel), controller, 0}));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(reader->Count(), 49u) << "nothing after the disconnection";
    std::string privatePort = jack->ClientName() + ":DisconnectProducer";
    EXPECT_EQ(jack_port_by_name(Client(), privatePort.c_str()), nullptr)
        << "the private port goes with its last connection";
}

TEST_F(JackServer, ClientsAppearingAndVanishingChangeTheRoster) {
    std::atomic<int> changes{0};
    int32_t watcher = TMidiRoster::Default().AddWatcher([&] { changes.fetch_add(1); });
    auto extra = std::make_unique<TJackReader>(server->Name(), "Quill test extra");
    ASSERT_TRUE(extra->IsOpen());
    ASSERT_TRUE(wait_for([&] { return jack->FindByAddress("Quill test extra:in") != nullptr; }));
    TMidiSystemConsumer* extraConsumer = jack->FindByAddress("Quill test extra:in");
    EXPECT_TRUE(extraConsumer->IsRegistered());
    const int afterAppearing = changes.load();
    EXPECT_GE(afterAppearing, 1);
    ASSERT_EQ(out.Connect(extraConsumer), 0);

    extra.reset();
    ASSERT_TRUE(wait_for([&] { return jack->FindByAddress("Quill test extra:in") == nullptr; }));
    ASSERT_TRUE(wait_for([&] { return changes.load() > afterAppearing; }));
    TMidiRoster::Default().RemoveWatcher(watcher);
    EXPECT_FALSE(extraConsumer->IsRegistered());
    EXPECT_FALSE(out.IsConnected(extraConsumer));
    ASSERT_TRUE(wait_for([&] { return !Problems().empty(); }));
    EXPECT_EQ(
        Problems(),
        (std::vector<std::string>{"JACK: \"Quill test extra:in\" went away while connected"}));
}

TEST_F(JackServer, ServerStoppingWhilePlayingIsReportedOnceAndNeverBlocksTheSender) {
    ASSERT_EQ(out.Connect(consumer), 0);
    std::atomic<bool> stop{false};
    std::atomic<int64_t> slowestUs{0};
    std::atomic<int64_t> sprays{0};
    std::thread player([&] {
        while (!stop.load()) {
            auto before = std::chrono::steady_clock::now();
            out.SprayNoteOn(0, 60, 100, 0);
            out.SprayNoteOff(0, 60, 0, 0);
            auto took = std::chrono::duration_cast<std::chrono::microseconds>(
                            std::chrono::steady_clock::now() - before)
                            .count();
            if (took > slowestUs.load()) slowestUs.store(took);
            sprays.fetch_add(1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    ASSERT_TRUE(reader->WaitFor(10));
    server->Stop();
    const bool reported = wait_for([&] { return !Problems().empty(); });
    const int64_t spraysAtReport = sprays.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    stop.store(true);
    player.join();
    ASSERT_TRUE(reported);
    EXPECT_GT(sprays.load(), spraysAtReport) << "the player went on after the server stopped";
    EXPECT_LT(slowestUs.load(), 50000) << "a spray waited for the dead server";
    EXPECT_TRUE(jack->ServerGone());
    EXPECT_EQ(jack->FindByAddress(reader->PortName()), nullptr);
    EXPECT_FALSE(out.IsConnected(consumer));
    EXPECT_EQ(Problems(), (std::vector<std::string>{"JACK: the server \"" + server->Name() +
                                                    "\" stopped; its ports are gone"}));
    EXPECT_EQ(backends.Status(), "JACK: the server \"" + server->Name() + "\" stopped");
}

// A server that stops answering (on its way down, or held) must not hold the thread that
// lets a consumer go and silences it, which is the window's: the requests wait for the
// server in order, and once it runs again they are carried out and leave nothing behind.
TEST_F(JackServer, AServerThatStopsAnsweringNeverHoldsTheDisconnectingThread) {
    ASSERT_EQ(out.Connect(consumer), 0);
    out.SprayNoteOn(0, 60, 100, 0);
    ASSERT_TRUE(reader->WaitFor(1));
    server->Freeze();

    TMidiLocalProducer silencer("DisconnectProducer");
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(out.Disconnect(consumer), 0);
    ASSERT_EQ(silencer.Connect(consumer), 0);
    for (uint8_t channel = 0; channel < 16; ++channel)
        for (uint8_t controller : {123, 120, 121})
            silencer.SprayControlChange(channel, controller, 0, 0);
    ASSERT_EQ(silencer.Disconnect(consumer), 0);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took, std::chrono::milliseconds(500))
        << std::chrono::duration_cast<std::chrono::milliseconds>(took).count()
        << " ms: the disconnecting thread waited for a server that does not answer";

    server->Resume();
    const std::string privatePort = jack->ClientName() + ":DisconnectProducer";
    EXPECT_TRUE(wait_for([&] {
        return !Connected("Quill MIDI OUT A") && !jack_port_by_name(Client(), privatePort.c_str());
    })) << "the requests left behind were not carried out";
    // The port works as before once the server answers again.
    const size_t before = reader->Count();
    ASSERT_EQ(out.Connect(consumer), 0);
    out.SprayNoteOn(0, 62, 100, 0);
    ASSERT_TRUE(reader->WaitFor(before + 1)) << reader->Count();
    EXPECT_EQ(reader->Bytes(reader->Count() - 1), (std::vector<uint8_t>{0x90, 62, 100}));
    EXPECT_TRUE(Problems().empty()) << Problems().front();
}

// Quitting while the server does not answer (held, or on its way down): stopping the
// backends, as the program does at quit, leaves the client behind rather than wait for the
// server; when the server runs again and then stops, nothing of the stopped backends is
// called on.
TEST_F(JackServer, StoppingWhileTheServerDoesNotAnswerNeverWaitsForIt) {
    ASSERT_EQ(out.Connect(consumer), 0);
    out.SprayNoteOn(0, 60, 100, 0);
    ASSERT_TRUE(reader->WaitFor(1));
    server->Freeze(std::chrono::seconds(5));

    const auto start = std::chrono::steady_clock::now();
    backends.Stop();
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took, std::chrono::milliseconds(1500))
        << std::chrono::duration_cast<std::chrono::milliseconds>(took).count()
        << " ms: stopping waited for a server that does not answer";
    EXPECT_EQ(backends.Jack(), nullptr);

    // The client left behind hears from the server again: its cycles, the requests still
    // queued, and then the server's end.
    server->Resume();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    server->Stop();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(Problems().empty()) << Problems().front();
}
