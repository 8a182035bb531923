// Chase on seek: after a seek, what the channels receive leaves them as a full play up to
// that tick would have; with chase off, nothing of the skipped part is sent.

#include <gtest/gtest.h>

#include <map>
#include <tuple>

#include "engine/chase_index.h"
#include "tests/engine/chain_fixture.h"
#include "tests/support/smf_builder.h"

namespace {

constexpr uint16_t kDivision = 96;
constexpr uint32_t kTarget = kDivision * 8;
constexpr uint8_t kMarkerNote = 127;

// (port, channel, kind, number) -> value; kind 'c' controller, 'p' program, 'b' bend,
// 'a' channel pressure.
using TChannelState = std::map<std::tuple<uint32_t, int, char, int>, int>;

void apply(uint32_t port, const uint8_t* bytes, size_t length, TChannelState* state) {
    if (length < 2) return;
    const int channel = bytes[0] & 0x0F;
    switch (bytes[0] & 0xF0) {
        case 0xB0:
            if (bytes[1] < 120) (*state)[{port, channel, 'c', bytes[1]}] = bytes[2];
            break;
        case 0xC0:
            (*state)[{port, channel, 'p', 0}] = bytes[1];
            break;
        case 0xD0:
            (*state)[{port, channel, 'a', 0}] = bytes[1];
            break;
        case 0xE0:
            (*state)[{port, channel, 'b', 0}] = bytes[1] | bytes[2] << 7;
            break;
        default:
            break;
    }
}

// The state the reader's walk leaves before tick: what a full play sends up to there.
class TStateBefore : public TSMFEventSink {
  public:
    explicit TStateBefore(uint32_t tick) : fTick(tick) {}
    void Event(const TSMFEvent& e) override {
        if (e.tick >= fTick || e.status < 0x80 || e.status >= 0xF0) return;
        uint8_t bytes[3] = {e.status, e.data[0], uint8_t(e.length > 1 ? e.data[1] : 0)};
        apply(e.port, bytes, e.length + 1, &state);
    }
    TChannelState state;

  private:
    uint32_t fTick;
};

// Settings spread over both lanes and the song, a tempo change before the target, and a
// marker note at the target on each lane.
std::vector<uint8_t> busy_song() {
    TSmfBuilder smf(1, kDivision);
    TTrackBuilder& a = smf.AddTrack();
    a.Control(0, 0, 0, 1).Control(0, 0, 32, 2).Program(0, 0, 5).Control(0, 0, 7, 100);
    a.Tempo(kDivision, 400000).Event(kDivision, {0xE3, 0x10, 0x50}).Control(0, 3, 10, 20);
    a.Program(kDivision, 3, 40).Control(kDivision, 0, 7, 90).Event(0, {0xD9, 0x33});
    a.Control(kDivision, 0, 121, 0);  // a reset of controllers is an act, not a setting
    a.NoteOn(kTarget - 5 * kDivision, 15, kMarkerNote, 1);  // at the target
    a.Control(kDivision, 0, 7, 10).Program(0, 0, 99).NoteOff(kDivision * 8, 15, kMarkerNote);
    TTrackBuilder& b = smf.AddTrack().Port(0, 1);
    b.Program(0, 2, 11).Control(kDivision * 2, 2, 64, 127).Event(kDivision, {0xE2, 0x00, 0x40});
    b.Control(0, 2, 64, 0).Control(0, 2, 1, 60);
    b.NoteOn(kTarget - 3 * kDivision, 15, kMarkerNote, 1).Program(kDivision, 2, 12);
    return smf.Bytes();
}

class Chase : public ::testing::Test {
  protected:
    // Plays the first tick, pauses, seeks to the target, plays on until the marker note has
    // arrived on both lanes, and gives the channel state that what arrived before it leaves.
    TChannelState StateAfterSeek(bool chase) {
        fChain.producer.SetChase(chase);
        EXPECT_EQ(fChain.producer.SetTo(busy_song()), 0) << fChain.producer.LastError();
        EXPECT_EQ(fChain.producer.HasChaseIndex(), chase);
        fChain.producer.Play();
        EXPECT_TRUE(fChain.WaitForEvents(fChain.portA, 1));
        fChain.producer.Pause();
        EXPECT_EQ(fChain.producer.SetCurrentTick(kTarget), 0);
        fChain.producer.Play();
        EXPECT_TRUE(wait_for([&] { return MarkerIn(fChain.portA) && MarkerIn(fChain.portB); }));
        fChain.producer.Pause();
        fTempoAfter = fChain.producer.Tempo();
        fChain.Drain();
        TChannelState state;
        Collect(fChain.portA, 0, &state);
        Collect(fChain.portB, 1, &state);
        return state;
    }
    TChannelState Expected() {
        TSMFProducer reader;
        EXPECT_EQ(reader.SetTo(busy_song()), 0);
        TStateBefore before(kTarget);
        reader.Walk(before);
        return before.state;
    }
    static bool IsMarker(const TMidiRecorder& recorder, const TMidiRecorder::TEntry& entry) {
        const uint8_t* bytes = recorder.BytesOf(entry);
        return entry.length == 3 && bytes[0] == 0x9F && bytes[1] == kMarkerNote && bytes[2] > 0;
    }
    static bool MarkerIn(const TMidiRecorder& recorder) {
        for (const auto& entry : recorder.Entries())
            if (IsMarker(recorder, entry)) return true;
        return false;
    }
    static void Collect(const TMidiRecorder& recorder, uint32_t port, TChannelState* state) {
        for (const auto& entry : recorder.Entries()) {
            if (IsMarker(recorder, entry)) return;
            apply(port, recorder.BytesOf(entry), entry.length, state);
        }
    }

    TChainFixture fChain;
    uint32_t fTempoAfter = 0;
};

TEST_F(Chase, ASeekLeavesEveryChannelAsAFullPlayToThereWould) {
    TChannelState expected = Expected();
    ASSERT_GE(expected.size(), 10u);
    EXPECT_EQ(StateAfterSeek(true), expected);
    EXPECT_EQ(fTempoAfter, 400000u) << "the tempo in force at the target";
}

TEST_F(Chase, OffByDefaultTheSkippedPartIsNotSent) {
    EXPECT_FALSE(fChain.producer.IsChaseOn());
    TChannelState state = StateAfterSeek(false);
    // Only what the first tick sent: bank, program and volume of channel 1, and port B's
    // first program.
    const TChannelState firstTick = {{{0, 0, 'c', 0}, 1},
                                     {{0, 0, 'c', 32}, 2},
                                     {{0, 0, 'p', 0}, 5},
                                     {{0, 0, 'c', 7}, 100},
                                     {{1, 2, 'p', 0}, 11}};
    EXPECT_EQ(state, firstTick);
}

TEST(ChaseIndex, ALongSongIsAnsweredFromItsSnapshotsExactly) {
    // More events than several snapshots hold, the controller climbing tick by tick.
    TSmfBuilder smf(1, kDivision);
    TTrackBuilder& track = smf.AddTrack();
    const int kEvents = int(TChaseIndex::kSnapshotEvery) * 3 + 17;
    for (int i = 0; i < kEvents; ++i) track.Control(1, uint8_t(i % 16), 11, uint8_t(i % 128));
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0);
    TChaseIndex index(producer);
    EXPECT_EQ(index.CountEvents(), size_t(kEvents));
    TChaseIndex::TState state;
    for (int tick : {1, 2, 4096, 4097, 8193, kEvents, kEvents + 1}) {
        index.StateAt(uint32_t(tick), &state);
        // Events sit at ticks 1..kEvents; the one at `tick` itself is not yet in force.
        const int last = tick - 2;  // index of the last event before tick
        for (int channel = 0; channel < 16; ++channel) {
            int expected = TChaseIndex::kUnset;
            for (int i = last; i >= 0; --i)
                if (i % 16 == channel) {
                    expected = i % 128;
                    break;
                }
            EXPECT_EQ(state.ports[0][size_t(channel)].controllers[11], expected)
                << "tick " << tick << ", channel " << channel;
        }
    }
}

}  // namespace

namespace {

// Registered and non-registered parameters as a receiver that follows the MIDI rules
// holds them: the selects pick a parameter; data entry MSB gives it a new value (its LSB
// back to 0), data entry LSB refines it; the null parameter takes nothing.
struct TParameterModel {
    struct TChannelSelect {
        int rpn[2] = {-1, -1}, nrpn[2] = {-1, -1};
        char kind = 0;  // 'r' or 'n' once selected
    };
    std::map<std::pair<uint32_t, int>, TChannelSelect> selects;
    // (port, channel, kind, msb, lsb) -> (data msb, data lsb)
    std::map<std::tuple<uint32_t, int, char, int, int>, std::pair<int, int>> values;
    int increments = 0;

    void Apply(uint32_t port, const uint8_t* bytes, size_t length) {
        if (length < 3 || (bytes[0] & 0xF0) != 0xB0) return;
        TChannelSelect& s = selects[{port, bytes[0] & 0x0F}];
        const int number = bytes[1], value = bytes[2];
        switch (number) {
            case 101:
                s.rpn[0] = value;
                s.kind = 'r';
                return;
            case 100:
                s.rpn[1] = value;
                s.kind = 'r';
                return;
            case 99:
                s.nrpn[0] = value;
                s.kind = 'n';
                return;
            case 98:
                s.nrpn[1] = value;
                s.kind = 'n';
                return;
            case 96:
            case 97:
                ++increments;
                return;
            case 6:
            case 38:
                break;
            default:
                return;
        }
        if (s.kind == 0) return;
        const int* select = s.kind == 'r' ? s.rpn : s.nrpn;
        if (select[0] == 127 && select[1] == 127) return;
        auto& v = values[{port, bytes[0] & 0x0F, s.kind, select[0], select[1]}];
        if (number == 6)
            v = {value, 0};
        else
            v.second = value;
    }
};

std::vector<uint8_t> parameter_song() {
    TSmfBuilder smf(1, kDivision);
    TTrackBuilder& a = smf.AddTrack();
    a.Program(0, 0, 1);
    a.Control(0, 0, 101, 0).Control(0, 0, 100, 0).Control(0, 0, 6, 12).Control(0, 0, 38, 50);
    a.Control(kDivision, 0, 100, 1).Control(0, 0, 6, 70).Control(0, 0, 38, 21);
    a.Control(0, 0, 99, 1).Control(0, 0, 98, 9).Control(0, 0, 6, 33);
    a.Control(kDivision, 0, 101, 0).Control(0, 0, 100, 0).Control(0, 0, 6, 2);  // LSB back to 0
    a.Control(0, 3, 101, 127).Control(0, 3, 100, 127).Control(0, 3, 6, 99);     // the null one
    a.Control(0, 3, 99, 2).Control(0, 3, 98, 3).Control(0, 3, 38, 7);
    a.Control(0, 0, 96, 0);  // an increment: not replayed by a chase
    a.NoteOn(kTarget - 2 * kDivision, 15, kMarkerNote, 1);
    TTrackBuilder& b = smf.AddTrack().Port(0, 1);
    b.Control(kDivision, 5, 101, 0).Control(0, 5, 100, 2).Control(0, 5, 6, 60);
    b.NoteOn(kTarget - kDivision, 15, kMarkerNote, 1);
    return smf.Bytes();
}

class TModelBefore : public TSMFEventSink {
  public:
    explicit TModelBefore(uint32_t tick) : fTick(tick) {}
    void Event(const TSMFEvent& e) override {
        if (e.tick >= fTick || (e.status & 0xF0) != 0xB0) return;
        const uint8_t bytes[3] = {e.status, e.data[0], e.data[1]};
        model.Apply(e.port, bytes, 3);
    }
    TParameterModel model;

  private:
    uint32_t fTick;
};

}  // namespace

TEST_F(Chase, ParametersComeBackSelectThenDataAndIncrementsAreNotReplayed) {
    TSMFProducer reader;
    ASSERT_EQ(reader.SetTo(parameter_song()), 0);
    TModelBefore before(kTarget);
    reader.Walk(before);
    ASSERT_EQ(before.model.values.size(), 5u);
    ASSERT_EQ(before.model.increments, 1);

    fChain.producer.SetChase(true);
    ASSERT_EQ(fChain.producer.SetTo(parameter_song()), 0);
    fChain.producer.Play();
    ASSERT_TRUE(fChain.WaitForEvents(fChain.portA, 1));
    fChain.producer.Pause();
    ASSERT_EQ(fChain.producer.SetCurrentTick(kTarget), 0);
    fChain.producer.Play();
    ASSERT_TRUE(wait_for([&] { return MarkerIn(fChain.portA) && MarkerIn(fChain.portB); }));
    fChain.producer.Pause();
    fChain.Drain();
    TParameterModel chased;
    for (uint32_t port : {0u, 1u}) {
        const TMidiRecorder& recorder = port == 0 ? fChain.portA : fChain.portB;
        for (const auto& entry : recorder.Entries()) {
            if (IsMarker(recorder, entry)) break;
            chased.Apply(port, recorder.BytesOf(entry), entry.length);
        }
    }
    EXPECT_EQ(chased.values, before.model.values);
    EXPECT_EQ(chased.increments, 0);
    for (const auto& [channel, select] : before.model.selects) {
        EXPECT_EQ(chased.selects[channel].kind, select.kind);
        EXPECT_EQ(chased.selects[channel].rpn[0], select.rpn[0]);
        EXPECT_EQ(chased.selects[channel].rpn[1], select.rpn[1]);
        EXPECT_EQ(chased.selects[channel].nrpn[0], select.nrpn[0]);
        EXPECT_EQ(chased.selects[channel].nrpn[1], select.nrpn[1]);
    }
}
