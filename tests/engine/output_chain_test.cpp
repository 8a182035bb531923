#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "engine/midi_filter.h"
#include "engine/sys_reset.h"
#include "tests/engine/chain_fixture.h"
#include "tests/support/note_balance.h"

namespace {

// Feeds lane 0 of the chain directly, as the play thread would.
struct TLaneFixture : TChainFixture {
    const TMidiLocalProducer& in = *producer.Producer(0);
    std::vector<std::string> Out() {
        Drain();
        return recorded(portA);
    }
};

TEST(MidiFilter, VolumeScalesNoteOnVelocitiesOnly) {
    EXPECT_EQ(TMidiFilter::ScaleVelocity(100, 100), 100);
    EXPECT_EQ(TMidiFilter::ScaleVelocity(127, 50), 63);
    EXPECT_EQ(TMidiFilter::ScaleVelocity(1, 50), 0);  // a quiet note-on becomes velocity 0
    EXPECT_EQ(TMidiFilter::ScaleVelocity(100, 200), 127);
    EXPECT_EQ(TMidiFilter::ScaleVelocity(100, 0), 0);

    TLaneFixture f;
    f.chain.SetVolume(50);
    f.in.SprayNoteOn(0, 60, 100, 0);
    f.in.SprayNoteOff(0, 60, 100, 0);
    f.in.SprayControlChange(0, 7, 100, 0);
    EXPECT_EQ(f.Out(), (std::vector<std::string>{"90 3c 32", "80 3c 64", "b0 07 64"}));
}

TEST(MidiFilter, KeyTransposesNotesClampsAndLeavesPercussionAlone) {
    EXPECT_EQ(TMidiFilter::Transpose(0, 120, 12), 127);
    EXPECT_EQ(TMidiFilter::Transpose(9, 120, 12), 120);
    EXPECT_EQ(TMidiFilter::Transpose(3, 5, -12), 0);

    TLaneFixture f;
    f.chain.SetKey(12);
    f.in.SprayNoteOn(0, 120, 64, 0);
    f.in.SprayNoteOn(9, 120, 64, 0);
    f.in.SprayNoteOff(0, 60, 0, 0);
    f.in.SprayKeyPressure(0, 60, 10, 0);
    EXPECT_EQ(f.Out(), (std::vector<std::string>{"90 7f 40", "99 78 40", "80 48 00", "a0 3c 0a"}));
}

TEST(MidiFilter, ANoteOffGoesToTheNoteItsNoteOnWasSentAs) {
    TLaneFixture f;
    f.in.SprayNoteOn(0, 60, 100, 0);
    f.in.SprayNoteOn(1, 62, 100, 0);
    f.Drain();
    f.chain.SetKey(3);
    f.in.SprayNoteOff(0, 60, 0, 0);
    f.in.SprayNoteOn(1, 62, 0, 0);  // a release written as a note-on
    f.in.SprayNoteOn(0, 60, 100, 0);
    f.Drain();
    f.chain.SetKey(-2);
    f.in.SprayNoteOff(0, 60, 0, 0);
    EXPECT_EQ(f.Out(), (std::vector<std::string>{"90 3c 64", "91 3e 64", "80 3c 00", "91 3e 00",
                                                 "90 3f 64", "80 3f 00"}));
    EXPECT_EQ(sounding_notes(f.portA), 0);
}

TEST(MidiFilter, EachNoteOnOfANoteNeedsItsOwnNoteOff) {
    TLaneFixture f;
    f.in.SprayNoteOn(0, 60, 100, 0);
    f.in.SprayNoteOn(0, 60, 100, 0);
    f.Drain();
    f.chain.SetKey(5);
    f.in.SprayNoteOff(0, 60, 0, 0);
    f.in.SprayNoteOff(0, 60, 0, 0);
    // Nothing of note 60 sounds any more: a third release is sent in the key in force.
    f.in.SprayNoteOff(0, 60, 0, 0);
    EXPECT_EQ(f.Out(), (std::vector<std::string>{"90 3c 64", "90 3c 64", "80 3c 00", "80 3c 00",
                                                 "80 41 00"}));
}

TEST(MidiFilter, ANoteStruckAgainInANewKeyEndsItsOldSoundFirst) {
    TLaneFixture f;
    f.in.SprayNoteOn(0, 60, 100, 0);
    f.Drain();
    f.chain.SetKey(2);
    f.in.SprayNoteOn(0, 60, 90, 0);
    f.in.SprayNoteOff(0, 60, 0, 0);
    EXPECT_EQ(f.Out(), (std::vector<std::string>{"90 3c 64", "80 3c 40", "90 3e 5a", "80 3e 00"}));
    EXPECT_EQ(sounding_notes(f.portA), 0);
}

TEST(OutputChain, KeyChangesAtAnyMomentLeaveNoNoteHanging) {
    TChainFixture f;
    ASSERT_EQ(f.producer.SetTo(dense_song(1500)), 0);
    ASSERT_EQ(f.producer.Play(), 0);
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int32_t> key(-12, 12);
    std::uniform_int_distribution<int> pauseUs(0, 3000);
    int changes = 0;
    // On the test's thread while the play thread and both lanes' receive threads run.
    while (f.ended.load() == 0 && changes < 100000) {
        f.chain.SetKey(key(random));
        ++changes;
        std::this_thread::sleep_for(std::chrono::microseconds(pauseUs(random)));
    }
    ASSERT_TRUE(wait_for([&] { return f.ended.load() > 0; }));
    f.Drain();
    EXPECT_GT(changes, 100);
    EXPECT_GT(f.portA.Count(), 1000u);
    EXPECT_GT(f.portB.Count(), 1000u);
    EXPECT_EQ(f.portA.Dropped() + f.portB.Dropped(), 0u);
    EXPECT_EQ(sounding_notes(f.portA), 0) << "port A, after " << changes << " key changes";
    EXPECT_EQ(sounding_notes(f.portB), 0) << "port B";
}

TEST(OutputChain, AMutedChannelDropsNoteOnsReleasesWhatSoundsAndPassesTheRest) {
    TLaneFixture f;
    f.in.SprayNoteOn(2, 60, 100, 0);
    f.in.SprayNoteOn(2, 64, 100, 0);
    f.in.SprayNoteOn(3, 67, 100, 0);
    f.Drain();
    EXPECT_EQ(f.chain.NoteOnManager(0).SoundingCount(2), 2);
    f.chain.SetMutedChannels(0, 1u << 2);
    EXPECT_EQ(f.chain.NoteOnManager(0).SoundingCount(2), 0) << "released at once";
    EXPECT_EQ(f.chain.NoteOnManager(0).SoundingCount(3), 1) << "other channels keep sounding";
    f.in.SprayNoteOn(2, 72, 100, 0);       // dropped
    f.in.SprayControlChange(2, 7, 90, 0);  // passes
    f.in.SprayNoteOn(2, 60, 0, 0);         // a release passes
    f.in.SprayNoteOn(3, 69, 100, 0);       // another channel plays on
    EXPECT_EQ(f.Out(), (std::vector<std::string>{"92 3c 64", "92 40 64", "93 43 64", "82 3c 40",
                                                 "82 40 40", "b2 07 5a", "92 3c 00", "93 45 64"}));
    f.chain.SetMutedChannels(0, 0);
    f.in.SprayNoteOn(2, 72, 100, 0);
    EXPECT_EQ(f.Out().back(), "92 48 64") << "unmuted, the channel plays again";
    EXPECT_EQ(f.chain.Filter(1).MutedChannels(), 0) << "each port has its own";
}

TEST(NoteOnManager, RecordsEachStrikeAndReleasesOnNoteOffOrVelocityZero) {
    TLaneFixture f;
    f.in.SprayNoteOn(0, 60, 100, 0);
    f.in.SprayNoteOn(0, 60, 100, 0);
    f.in.SprayNoteOff(0, 60, 0, 0);
    f.in.SprayNoteOff(0, 60, 0, 0);
    f.in.SprayNoteOn(1, 62, 100, 0);
    f.in.SprayNoteOn(1, 62, 0, 0);
    f.Drain();
    EXPECT_TRUE(f.chain.NoteOnManager(0).SoundingNotes(0).empty());
    EXPECT_TRUE(f.chain.NoteOnManager(0).SoundingNotes(1).empty());
    size_t before = f.portA.Entries().size();
    f.chain.QuickAllNotesOff();
    f.Drain();
    EXPECT_EQ(f.portA.Entries().size(), before);
}

TEST(NoteOnManager, QuickAllNotesOffReleasesChannelByChannelWithVelocity64) {
    TLaneFixture f;
    f.in.SprayNoteOn(9, 36, 100, 0);
    f.in.SprayNoteOn(2, 60, 100, 0);
    f.in.SprayNoteOn(2, 64, 100, 0);
    f.Drain();
    f.portA.Clear();
    f.chain.QuickAllNotesOff();
    EXPECT_EQ(f.Out(), (std::vector<std::string>{"82 3c 40", "82 40 40", "89 24 40"}));
    EXPECT_TRUE(f.chain.NoteOnManager(0).SoundingNotes(2).empty());
}

TEST(NoteOnManager, SilencesNotesThatWereStillOnTheirWayIn) {
    TLaneFixture f;
    for (uint8_t note = 0; note < 100; ++note) f.in.SprayNoteOn(0, note, 1, 0);
    f.chain.QuickAllNotesOff();  // no drain first: the manager must take them all in
    std::vector<std::string> out = f.Out();
    EXPECT_EQ(out.size(), 200u);
    EXPECT_EQ(out.back(), "80 63 40");
}

// A synthesizer behind a short queue that takes a while over every event: what the chain
// sends piles up in the chain's own queues. Sounding notes are counted per channel and
// note as the synthesizer would hear them.
class TSlowSynth : public TMidiLocalConsumer {
  public:
    TSlowSynth() : TMidiLocalConsumer("slow synth", 16) {}
    ~TSlowSynth() override { StopReceiving(); }
    void NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t) override {
        Take();
        if (velocity == 0)
            Release(channel, note);
        else
            ++fSounding[channel][note];
    }
    void NoteOff(uint8_t channel, uint8_t note, uint8_t, int64_t) override {
        Take();
        Release(channel, note);
    }
    void ControlChange(uint8_t, uint8_t, uint8_t, int64_t) override { Take(); }
    // Only once WaitIdle has returned.
    int32_t Sounding() const {
        int32_t total = 0;
        for (const auto& channel : fSounding)
            for (int32_t count : channel) total += count;
        return total;
    }

  private:
    void Take() { std::this_thread::sleep_for(std::chrono::microseconds(100)); }
    void Release(uint8_t channel, uint8_t note) {
        if (fSounding[channel][note] > 0) --fSounding[channel][note];
    }
    std::array<std::array<int32_t, 128>, 16> fSounding{};
};

// However long the chain takes to pass on what it was sent (here several tenths of a
// second), all notes off comes after every note-on sent before it, never in between.
TEST(NoteOnManager, SilencesEveryNoteSentBeforeItHoweverLongTheOutputTakes) {
    TSMFProducer producer;
    TOutputChain chain{producer};
    TSlowSynth synth;
    chain.PublicOut(0)->Connect(&synth);
    const TMidiLocalProducer& in = *producer.Producer(0);
    // Enough to fill the filter's queue and most of the manager's behind it.
    for (int i = 0; i < 6000; ++i) in.SprayControlChange(0, 7, 100, 0);
    int notes = 0;
    for (uint8_t channel = 0; channel < 8; ++channel)
        for (uint8_t note = 0; note < 128; ++note, ++notes) in.SprayNoteOn(channel, note, 100, 0);
    chain.QuickAllNotesOff();
    ASSERT_TRUE(chain.WaitIdle(30000000));
    ASSERT_TRUE(synth.WaitIdle(30000000));
    EXPECT_EQ(synth.SendDrops() + chain.Filter(0).SendDrops(), 0u);
    EXPECT_EQ(synth.Sounding(), 0) << "of " << notes << " notes";
}

// A synthesizer that stacks voices keeps the second strike of a note sounding after one
// note-off, so each strike is released on its own.
TEST(NoteOnManager, ANoteStruckTwiceIsReleasedOncePerStrike) {
    TLaneFixture f;
    f.in.SprayNoteOn(0, 60, 100, 0);
    f.in.SprayNoteOn(0, 60, 90, 0);
    f.in.SprayNoteOn(0, 62, 90, 0);
    f.in.SprayNoteOff(0, 62, 64, 0);
    f.Drain();
    EXPECT_EQ(f.chain.NoteOnManager(0).SoundingCount(0), 2);
    f.chain.QuickAllNotesOff();
    std::vector<std::string> out = f.Out();
    EXPECT_EQ(std::count(out.begin(), out.end(), "80 3c 40"), 2);
    EXPECT_EQ(f.chain.NoteOnManager(0).SoundingCount(0), 0);
}

TEST(NoteOnManager, OnlyControllerAllNotesOffEmptiesAChannel) {
    TLaneFixture f;
    f.in.SprayNoteOn(0, 60, 100, 0);
    f.in.SprayNoteOn(1, 60, 100, 0);
    f.in.SprayControlChange(0, 120, 0, 0);
    f.in.SprayControlChange(1, 121, 0, 0);
    f.Drain();
    EXPECT_EQ(f.chain.NoteOnManager(0).SoundingNotes(0).size(), 1u);
    f.in.SprayControlChange(0, 123, 0, 0);
    f.Drain();
    EXPECT_TRUE(f.chain.NoteOnManager(0).SoundingNotes(0).empty());
    EXPECT_EQ(f.chain.NoteOnManager(0).SoundingNotes(1).size(), 1u);
}

TEST(NoteOnManager, SongResetClearsTheTableAndTellsTheOwnerItsKind) {
    TLaneFixture f;
    TNoteOnManager& manager = f.chain.NoteOnManager(0);
    f.in.SprayNoteOn(0, 60, 100, 0);
    const std::vector<uint8_t> roland = {0x41, 0x10, 0x42, 0x12, 0x40,
                                         0x01, 0x30, 0x00, 0x0F, 0xF7};
    f.in.SpraySystemExclusive(roland.data(), roland.size(), 0);
    f.Drain();
    EXPECT_EQ(manager.TakeSysResets(), 0);
    EXPECT_EQ(manager.SoundingNotes(0).size(), 1u);

    const std::vector<uint8_t> gs = {0x41, 0x10, 0x42, 0x12, 0x40, 0x00, 0x7F, 0x00, 0x41, 0xF7};
    f.in.SpraySystemExclusive(gs.data(), gs.size(), 0);
    f.Drain();
    EXPECT_EQ(manager.TakeSysResets(), kSysResetGS);
    EXPECT_EQ(manager.TakeSysResets(), 0) << "each reset is told once";
    EXPECT_TRUE(manager.SoundingNotes(0).empty());
    EXPECT_EQ(recorded(f.portA).back(), "f0 41 10 42 12 40 00 7f 00 41 f7");

    f.in.SpraySystemExclusive(MIDI_NRT_XG_SYSTEM_ON, sizeof MIDI_NRT_XG_SYSTEM_ON, 0);
    f.in.SpraySystemExclusive(MIDI_NRT_GM_SYSTEM_ON, 3, 0);  // too short to be a reset
    f.in.SpraySystemExclusive(gs.data(), gs.size(), 0);
    f.Drain();
    EXPECT_EQ(manager.TakeSysResets(), kSysResetXG | kSysResetGS)
        << "resets seen between two looks are all told";
}

TEST(OutputChain, RawSystemResetByteAndMetaDataNeverLeave) {
    TLaneFixture f;
    f.in.SpraySystemRealTime(0xFF, 0);
    f.in.SprayTempoChange(120, 0);
    f.in.SpraySystemRealTime(0xF8, 0);
    const uint8_t raw[] = {0xFF, 0x2F, 0x00};
    f.in.SprayData(raw, sizeof raw, true, 0);
    EXPECT_EQ(f.Out(), (std::vector<std::string>{"f8"}));
}

TEST(OutputChain, PublicPortsAreTheOnlyRegisteredEndpointsAndCarryTheirNames) {
    TLaneFixture f;
    EXPECT_EQ(f.chain.PublicOut(0)->Name(), "Quill MIDI OUT A");
    EXPECT_EQ(f.chain.PublicOut(1)->Name(), "Quill MIDI OUT B");
    EXPECT_TRUE(f.chain.PublicOut(0)->IsRegistered());
    EXPECT_FALSE(f.chain.NoteOnManager(0).IsRegistered());
    EXPECT_FALSE(f.producer.Producer(0)->IsRegistered());
    EXPECT_EQ(f.producer.Producer(1)->Name(), "SMFProducer_1");
}

}  // namespace
