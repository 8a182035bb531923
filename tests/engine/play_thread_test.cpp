#include <gtest/gtest.h>

#include "engine/tempo_map.h"
#include "tests/engine/chain_fixture.h"
#include "tests/support/smf_builder.h"
#include "veldan/base/clock.h"

namespace {

int64_t gap_ms(const TMidiRecorder& recorder, size_t from, size_t to) {
    return (recorder.Entries()[to].arrivalUs - recorder.Entries()[from].arrivalUs) / 1000;
}

TEST(PlayTiming, IntervalsFollowTicksTempoAndRate) {
    EXPECT_EQ(ticks_to_us(480, 500000, 480, 100), 500000);
    EXPECT_EQ(ticks_to_us(480, 500000, 480, 200), 250000);
    EXPECT_EQ(ticks_to_us(480, 500000, 480, 50), 1000000);
    EXPECT_EQ(ticks_to_us(480, 500000, 480, 0), ticks_to_us(480, 500000, 480, 1));
    EXPECT_EQ(ticks_to_us(1, 500000, 0, 100), 500000);       // a zero division must not divide by 0
    EXPECT_GT(ticks_to_us(0xFFFFFFFFu, 0xFFFFFF, 1, 1), 0);  // no overflow into negatives

    TTempoMap map({{480, 250000}, {960, 250000}, {960, 1000000}}, 480);
    EXPECT_EQ(map.TickToUs(480, 100), 500000);
    EXPECT_EQ(map.TickToUs(960, 100), 750000);
    EXPECT_EQ(map.TickToUs(1440, 100), 1750000);
    EXPECT_EQ(map.TempoAt(960), 1000000u);
}

TEST(SongClock, ARateChangeRetimesOnlyWhatIsLeft) {
    TSongClock clock;
    clock.Start(0, 0, 500000, 480, 200);
    EXPECT_EQ(clock.TimeOf(480), 250000);
    // 1000 us at rate 200 played 2000 us of the song; the other 498000 us go at rate 100.
    clock.SetRate(1000, 100);
    EXPECT_EQ(clock.TimeOf(480), 499000);
    clock.SetTempo(480, 250000);  // from tick 480 on, a quarter is 250 ms
    EXPECT_EQ(clock.TimeOf(960), 749000);
}

TEST(SongClock, RoundingNeverAccumulatesOverTempoEventsOrRateChanges) {
    // 333333 us per quarter at division 480: a tick is 694.44375 us, never whole.
    TSongClock once;
    once.Start(0, 0, 333333, 480, 100);
    TSongClock often;
    often.Start(0, 0, 333333, 480, 100);
    for (uint32_t tick = 1; tick <= 4800; ++tick) {
        often.SetTempo(tick, 333333);                // a Set Tempo on every tick
        often.SetRate(often.TimeOf(tick) + 7, 100);  // and a slider nudge after it
    }
    EXPECT_EQ(often.TimeOf(9600), once.TimeOf(9600));
    EXPECT_EQ(once.TimeOf(9600), 6666660);

    // Many rates in turn: the song time they covered adds up exactly.
    TSongClock clock;
    clock.Start(0, 0, 500000, 96, 100);
    __int128 covered = 0;  // in units of 1/(100 x division) us of song time
    int64_t now = 0;
    for (int i = 0; i < 10000; ++i) {
        const int32_t rate = 37 + (i * 53) % 400;
        clock.SetRate(now, rate);
        covered += __int128(13) * 96 * rate;
        now += 13;
    }
    clock.SetRate(now, 100);
    const __int128 total = __int128(960000) * 500000 * 100;  // 10000 quarters in units
    EXPECT_EQ(clock.TimeOf(960000), int64_t(now + (total - covered) / (96 * 100)));
    TTempoMap map({{0, 333333}}, 480);
    EXPECT_EQ(map.TickToUs(9600, 100), once.TimeOf(9600)) << "the timeline agrees with the thread";
}

TEST(PlayThread, SendsEventsAtTheirTimeWithTheTempoOfAnyTrack) {
    TChainFixture f;
    TSmfBuilder smf(1, 480);
    smf.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(480, 0, 60).NoteOn(480, 0, 62, 100);
    smf.AddTrack().Tempo(0, 250000);  // a tempo in the second track rules the first as well
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    f.producer.SetTempoRate(200);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 3));
    // 480 ticks at 250000 us per quarter and rate 200: 125 ms. The thread sleeps to absolute
    // deadlines, so nothing comes early; a busy machine may make it late, and only by far less
    // than the 500 ms that the default tempo or a lost rate would give the second note.
    EXPECT_GE(gap_ms(f.portA, 0, 1), 120);
    EXPECT_GE(gap_ms(f.portA, 0, 2), 245);
    EXPECT_LT(gap_ms(f.portA, 0, 2), 400);
}

TEST(PlayThread, EventsAtOneTickGoOutInTrackOrder) {
    TChainFixture f;
    TSmfBuilder smf;
    for (uint8_t track = 0; track < 4; ++track)
        smf.AddTrack().NoteOn(10, 0, uint8_t(60 + track), 1);
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 4));
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(f.portA.EventBytes(i)[1], 60 + i);
}

TEST(PlayThread, EndOfSongIsReportedOnceAndThePositionStaysAtTheEnd) {
    TChainFixture f;
    TSmfBuilder smf;
    smf.AddTrack().NoteOn(0, 0, 60, 1).NoteOff(96, 0, 60);
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    EXPECT_EQ(f.producer.SetCurrentTick(10), -1);  // no play thread yet
    f.producer.Play();
    ASSERT_TRUE(wait_for([&] { return f.ended.load() == 1; }));
    EXPECT_TRUE(wait_for([&] { return !f.producer.IsPlaying(); }));
    EXPECT_EQ(f.producer.CurrentTick(), 96u);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(f.ended.load(), 1);
}

TEST(PlayThread, ThePositionWalksThroughALongRestInsteadOfJumpingToItsEnd) {
    TChainFixture f;
    TSmfBuilder smf(1, 480);
    // A half-second note, a four-second rest, a note.
    constexpr uint32_t kNextNote = 480 + 480 * 8;
    smf.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(480, 0, 60).NoteOn(480 * 8, 0, 62, 100);
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 2));
    // One second into the rest.
    std::this_thread::sleep_until(std::chrono::steady_clock::time_point(
        std::chrono::microseconds(f.producer.PlayStartedUs() + 1500000)));
    const uint32_t first = f.producer.CurrentTick();
    const uint64_t firstPlayed = f.producer.PlayedTick();
    EXPECT_LT(first, kNextNote) << "the position ran ahead to the next event";
    EXPECT_GE(first, 480u) << "the position fell behind the last event sent";
    EXPECT_EQ(firstPlayed, first) << "without a loop, played ticks are the song's ticks";
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const uint32_t second = f.producer.CurrentTick();
    EXPECT_GT(second, first) << "the position stood still in the rest";
    EXPECT_LT(second, kNextNote);
    EXPECT_EQ(f.portA.Count(), 2u) << "the next note came early";
}

TEST(PlayThread, PauseInALongRestReturnsAtOnceAndResumeSendsTheAwaitedTick) {
    TChainFixture f;
    TSmfBuilder smf(1, 480);
    smf.AddTrack().NoteOn(0, 0, 60, 1).NoteOn(480 * 40, 0, 61, 1);  // 20 s later
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 1));
    int64_t before = veldan::system_time();
    f.producer.Pause();
    EXPECT_LT(veldan::system_time() - before, 1000000) << "Pause waited for the rest";
    EXPECT_FALSE(f.producer.IsPlaying());
    EXPECT_TRUE(f.producer.IsPaused());
    EXPECT_EQ(f.producer.CurrentTick(), 480u * 40);

    int64_t resumed = veldan::system_time();
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 2));
    EXPECT_LT(f.portA.Entries()[1].arrivalUs - resumed, 1000000);
    EXPECT_EQ(f.portA.EventBytes(1)[1], 61);
}

TEST(PlayThread, SeekWhilePausedMovesThePositionAndPlayContinuesThere) {
    TChainFixture f;
    TSmfBuilder smf(1, 480);
    smf.AddTrack().NoteOn(0, 0, 60, 1).NoteOn(4800, 0, 61, 1).NoteOn(4800, 0, 62, 1);
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 1));
    f.producer.Pause();
    uint32_t half = f.producer.CountTicks() * 50 / 100;
    EXPECT_EQ(f.producer.SetCurrentTick(half), 0);
    EXPECT_EQ(f.producer.CurrentTick(), half);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 2));
    EXPECT_EQ(f.portA.EventBytes(1)[1], 61);  // note 61 sits at 50%; 62 is still 5 s away
    f.Drain();
    EXPECT_EQ(f.portA.Entries().size(), 2u);
}

TEST(PlayThread, StopEndsTheThreadAtOnceWithoutEndOfSong) {
    TChainFixture f;
    TSmfBuilder smf(1, 480);
    smf.AddTrack().NoteOn(0, 0, 60, 1).NoteOn(48000, 0, 61, 1);
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 1));
    int64_t before = veldan::system_time();
    f.producer.Stop();
    EXPECT_LT(veldan::system_time() - before, 500000);
    EXPECT_FALSE(f.producer.IsPlaying());
    EXPECT_EQ(f.producer.CurrentTick(), 0u);
    f.Drain();
    EXPECT_EQ(f.portA.Entries().size(), 1u);
    EXPECT_EQ(f.ended.load(), 0);
}

TEST(PlayThread, PortMetaEventSendsTheRestOfTheTrackThroughPortB) {
    TChainFixture f;
    TSmfBuilder smf;
    smf.AddTrack()
        .NoteOn(0, 0, 60, 1)
        .Port(0, 0x05)
        .NoteOn(1, 0, 61, 1)
        .Port(1, 0x00)
        .NoteOn(1, 0, 62, 1);
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    f.producer.Play();
    ASSERT_TRUE(wait_for([&] { return f.ended.load() == 1; }));
    f.Drain();
    ASSERT_EQ(f.portA.Entries().size(), 2u);
    ASSERT_EQ(f.portB.Entries().size(), 1u);
    EXPECT_EQ(f.portB.EventBytes(0)[1], 61);
    EXPECT_EQ(f.portA.EventBytes(1)[1], 62);
}

TEST(PlayThread, PlayAfterStopStartsTheSongAgainFromTheTop) {
    TChainFixture f;
    TSmfBuilder smf;
    smf.AddTrack().Tempo(0, 100000).NoteOn(0, 0, 60, 1).Port(0, 1).NoteOn(10, 0, 61, 1);
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    for (int round = 0; round < 2; ++round) {
        f.producer.Play();
        ASSERT_TRUE(wait_for([&] { return f.ended.load() == round + 1; }));
        f.producer.Stop();
    }
    f.Drain();
    EXPECT_EQ(f.portA.Entries().size(), 2u);  // note 60 both times: the lane starts at A again
    EXPECT_EQ(f.portB.Entries().size(), 2u);
}

}  // namespace

namespace {

// Groups of controller events, each followed by a rest of kRestTicks: a request that the
// thread misses while it sends a group waits out the whole rest.
constexpr uint16_t kBoundaryDivision = 480;
constexpr uint32_t kRestTicks = kBoundaryDivision * 60;  // 30 s at rate 100
constexpr int kGroups = 8;
constexpr uint8_t kMarkerChannel = 15;

std::vector<uint8_t> groups_with_long_rests() {
    TSmfBuilder smf(1, kBoundaryDivision);
    TTrackBuilder& track = smf.AddTrack();
    for (int group = 0; group < kGroups; ++group) {
        track.NoteOn(group == 0 ? 0 : kRestTicks, kMarkerChannel, uint8_t(60 + group), 1);
        for (int i = 0; i < 48; ++i) track.Control(0, uint8_t(i % 15), 7, uint8_t(i));
    }
    // Play after a pause sends the awaited tick at once: the last group is followed by
    // two rests, so that the song never ends under the test.
    track.NoteOff(kRestTicks, kMarkerChannel, 60).NoteOff(kRestTicks, kMarkerChannel, 61);
    return smf.Bytes();
}

size_t count_marker(const TMidiRecorder& recorder, uint8_t note) {
    size_t count = 0;
    for (const auto& entry : recorder.Entries()) {
        const uint8_t* bytes = recorder.BytesOf(entry);
        if (entry.length == 3 && bytes[0] == (0x90 | kMarkerChannel) && bytes[1] == note) ++count;
    }
    return count;
}

}  // namespace

TEST(PlayThread, PauseRightAfterASeekNeverWaitsOutTheRest) {
    TChainFixture f;
    ASSERT_EQ(f.producer.SetTo(groups_with_long_rests()), 0);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 1));
    for (int round = 0; round < 300; ++round) {
        // The seek wakes the thread, which sends a group and goes back to sleep; the
        // pause lands somewhere in that stretch, often just before the sleep.
        ASSERT_EQ(f.producer.SetCurrentTick(uint32_t(round % kGroups) * kRestTicks), 0);
        const int64_t before = veldan::system_time();
        f.producer.Pause();
        ASSERT_LT(veldan::system_time() - before, 2000000)
            << "round " << round << ": Pause waited for the 30 s rest";
        ASSERT_TRUE(f.producer.IsPaused()) << "round " << round;
        f.producer.Play();
    }
}

TEST(PlayThread, ASeekRightAfterASeekIsNeverLeftWaitingForTheRest) {
    TChainFixture f;
    ASSERT_EQ(f.producer.SetTo(groups_with_long_rests()), 0);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 1));
    for (int round = 0; round < 200; ++round) {
        const int first = round % kGroups;
        const int second = (round + 3) % kGroups;
        const size_t seen = count_marker(f.portA, uint8_t(60 + second));
        // The second request comes while the thread sends the first group.
        ASSERT_EQ(f.producer.SetCurrentTick(uint32_t(first) * kRestTicks), 0);
        ASSERT_EQ(f.producer.SetCurrentTick(uint32_t(second) * kRestTicks), 0);
        ASSERT_TRUE(wait_for([&] { return count_marker(f.portA, uint8_t(60 + second)) > seen; },
                             std::chrono::milliseconds(2000)))
            << "round " << round << ": the second seek waited for the 30 s rest";
    }
}

TEST(PlayThread, ATempoRateChangedInALongRestRetimesTheRestAtOnce) {
    TChainFixture f;
    TSmfBuilder smf(1, 480);
    smf.AddTrack().NoteOn(0, 0, 60, 1).NoteOn(480 * 40, 0, 61, 1);  // 20 s at rate 100
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 1));
    const int64_t changed = veldan::system_time();
    f.producer.SetTempoRate(2000);  // what is left of the 20 s shrinks to under 1 s
    ASSERT_TRUE(f.WaitForEvents(f.portA, 2)) << "the rest still ran at the old rate";
    EXPECT_LT(f.portA.Entries()[1].arrivalUs - changed, 3000000);
    EXPECT_EQ(f.portA.EventBytes(1)[1], 61);
}

TEST(PlayThread, ASetTempoInTheMiddleTakesEffectFromItsOwnTick) {
    TChainFixture f;
    TSmfBuilder smf(1, 480);
    smf.AddTrack().NoteOn(0, 0, 60, 1).NoteOn(480, 0, 61, 1).NoteOn(480, 0, 62, 1);
    smf.AddTrack().Tempo(480, 100000);  // at note 61: a quarter becomes 100 ms
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 3));
    // Deadlines count from the start, and an event never leaves before its own; the
    // quarter before the change took its 500 ms, the one after it far less.
    EXPECT_GE(f.portA.Entries()[1].arrivalUs - f.producer.PlayStartedUs(), 500000);
    EXPECT_LT(gap_ms(f.portA, 1, 2), 400);
    EXPECT_EQ(f.producer.Tempo(), 100000u);
}

TEST(PlayThread, ASeekWhilePlayingJumpsAtOnceAndSkipsWhatLiesBetween) {
    TChainFixture f;
    TSmfBuilder smf(1, 480);
    // Notes 61 and 62 at 10 s and 20 s; the seek goes to 62 from the rest before 61.
    smf.AddTrack()
        .NoteOn(0, 0, 60, 1)
        .NoteOn(480 * 20, 0, 61, 1)
        .NoteOn(480 * 20, 0, 62, 1)
        .NoteOff(480 * 20, 0, 62);
    ASSERT_EQ(f.producer.SetTo(smf.Bytes()), 0);
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 1));
    const int64_t seeked = veldan::system_time();
    ASSERT_EQ(f.producer.SetCurrentTick(480 * 40), 0);
    // At once the target, or already the tick after it: never the rest before 61.
    EXPECT_GE(f.producer.CurrentTick(), 480u * 40);
    ASSERT_TRUE(f.WaitForEvents(f.portA, 2));
    EXPECT_LT(f.portA.Entries()[1].arrivalUs - seeked, 1000000);
    EXPECT_EQ(f.portA.EventBytes(1)[1], 62);
    EXPECT_TRUE(f.producer.IsPlaying());
    f.producer.Stop();
    f.Drain();
    EXPECT_EQ(f.portA.Entries().size(), 2u) << "note 61 was skipped";
}
