#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "engine/midi_out_ports.h"
#include "engine/prepare_sequence.h"
#include "engine/sys_reset.h"
#include "tests/engine/chain_fixture.h"

namespace {

TEST(MidiOutPorts, LettingAConsumerGoSilencesAllSixteenChannels) {
    TSMFProducer producer;
    TOutputChain chain(producer);
    TMidiRecorder synth("Test Synth Gamma", 256);
    synth.Register();
    TMidiOutPorts ports(chain);
    EXPECT_FALSE(ports.IsPortConnected(0));
    ASSERT_TRUE(ports.ToggleMidiOut(0, synth.ID()));
    EXPECT_TRUE(ports.IsPortConnected(0));
    EXPECT_FALSE(ports.IsPortConnected(1));
    ASSERT_TRUE(ports.ToggleMidiOut(0, synth.ID()));
    EXPECT_FALSE(ports.IsPortConnected(0));
    ASSERT_TRUE(synth.WaitIdle(2000000));
    std::vector<std::string> out = recorded(synth);
    ASSERT_EQ(out.size(), 48u);
    EXPECT_EQ(out[0], "b0 7b 00");
    EXPECT_EQ(out[1], "b0 78 00");
    EXPECT_EQ(out[2], "b0 79 00");
    EXPECT_EQ(out[47], "bf 79 00");
}

TEST(MidiOutPorts, AConsumerOnBothPortsIsMutedTwiceAndAVanishedOneIsIgnored) {
    TChainFixture f;
    TMidiRecorder synth("Test Synth Delta", 256);
    synth.Register();
    TMidiOutPorts ports(f.chain);
    EXPECT_EQ(ports.ConnectMidiOut(0, synth.ID()), 0);
    EXPECT_EQ(ports.ConnectMidiOut(1, synth.ID()), 0);
    ports.MuteAllMidiOut();
    ASSERT_TRUE(synth.WaitIdle(2000000));
    EXPECT_EQ(synth.Count(), 96u);

    int32_t gone;
    {
        TMidiRecorder vanishing("Vanishing", 16);
        vanishing.Register();
        gone = vanishing.ID();
    }
    EXPECT_EQ(ports.ConnectMidiOut(0, gone), -1);
    EXPECT_FALSE(ports.ToggleMidiOut(0, gone));
}

// A consumer that plays each port on channels of its own (the built-in synthesizer): it
// learns which port an event came through.
class TTwoPortLog : public TMidiConsumer {
  public:
    explicit TTwoPortLog(std::string name) : TMidiConsumer(std::move(name)) { Register(); }
    ~TTwoPortLog() override { DisconnectAllProducers(); }
    bool IsLocal() const override { return true; }
    void Receive(const uint8_t* data, size_t length, bool, int64_t) override {
        std::lock_guard lock(fLock);
        events.push_back("A " + hex_bytes(data, length));
    }
    void ReceiveOnPort(int port, const uint8_t* data, size_t length, bool, int64_t) override {
        std::lock_guard lock(fLock);
        events.push_back(std::string(1, char('A' + port)) + " " + hex_bytes(data, length));
    }
    std::vector<std::string> events;

  private:
    std::mutex fLock;
};

TEST(MidiOutPorts, EachPublicPortSpeaksForItsOwnPort) {
    TSMFProducer producer;
    TOutputChain chain(producer);
    EXPECT_EQ(chain.PublicOut(0)->Port(), 0);
    EXPECT_EQ(chain.PublicOut(1)->Port(), 1);
}

// Letting go of port B silences port B's channels of the consumer, not port A's, which
// may still be playing there.
TEST(MidiOutPorts, LettingPortBGoSilencesPortBsChannels) {
    TSMFProducer producer;
    TOutputChain chain(producer);
    TTwoPortLog synth("Test Synth Epsilon");
    TMidiOutPorts ports(chain);
    ASSERT_EQ(ports.ConnectMidiOut(0, synth.ID()), 0);
    ASSERT_TRUE(ports.ToggleMidiOut(1, synth.ID()));
    ASSERT_TRUE(ports.ToggleMidiOut(1, synth.ID()));
    ASSERT_EQ(synth.events.size(), 48u);
    EXPECT_EQ(synth.events[0], "B b0 7b 00");
    EXPECT_EQ(synth.events[47], "B bf 79 00");
    synth.events.clear();
    ports.MuteAllMidiOut();
    ASSERT_EQ(synth.events.size(), 48u) << "port A's connection only";
    EXPECT_EQ(synth.events[0], "A b0 7b 00");
}

TEST(PrepareSequence, ResetsGoOutInFixedOrderEachFollowedByItsWait) {
    TChainFixture f;
    TPrepareSequence sequence(f.chain);
    std::vector<int32_t> lit;
    sequence.SetResetSentHandler([&](int32_t kind) { lit.push_back(kind); });
    TPrepareSettings settings;
    settings.sendResets = true;
    settings.resetMask = 0x0A;
    settings.silenceAfterResetsUs = 500000;
    sequence.SetSettings(settings);
    TMarnelState state = kStateStopped;
    EXPECT_EQ(sequence.StepToPlay(&state), 500000);
    EXPECT_EQ(state, kStateAfterGS);
    EXPECT_EQ(sequence.StepToPlay(&state), 500000);
    EXPECT_EQ(state, kStateAfterXG);
    EXPECT_EQ(sequence.StepToPlay(&state), 0);
    EXPECT_EQ(state, kStatePlaying);
    EXPECT_EQ(lit, (std::vector<int32_t>{kSysResetGS, kSysResetXG}));
    f.Drain();
    // Both ports, bypassing the note-on managers (which would otherwise report them).
    for (const TMidiRecorder* port : {&f.portA, &f.portB})
        EXPECT_EQ(recorded(*port), (std::vector<std::string>{"f0 41 10 42 12 40 00 7f 00 41",
                                                             "f0 43 10 4c 00 00 7e 00"}));
}

TEST(PrepareSequence, WithNothingToDoASongStartsAtOnceAndSilenceComesFirst) {
    TChainFixture f;
    TPrepareSequence sequence(f.chain);
    TMarnelState state = kStateStopped;
    EXPECT_EQ(sequence.StepToPlay(&state), 0);
    EXPECT_EQ(state, kStatePlaying);
    EXPECT_EQ(sequence.StepToPlay(&state), 0);  // playing: nothing more to do
    EXPECT_EQ(state, kStatePlaying);

    TPrepareSettings settings;
    settings.silenceBetweenSongs = true;
    settings.silenceBetweenSongsUs = 3000000;
    settings.sendResets = true;
    settings.resetMask = 1;
    settings.silenceAfterResetsUs = 0;
    sequence.SetSettings(settings);
    state = kStateStopped;
    EXPECT_EQ(sequence.StepToPlay(&state), 3000000);
    EXPECT_EQ(state, kStateAfterSilence);
    EXPECT_EQ(sequence.StepToPlay(&state), 0);  // GM sent, no wait after it
    EXPECT_EQ(state, kStatePlaying);
    f.Drain();
    EXPECT_EQ(recorded(f.portA), (std::vector<std::string>{"f0 7e 7f 09 01"}));
}

}  // namespace
