// Marked loops of game music: found where the song marks them, played the number of times
// asked with no note left hanging at a jump, faded out at the end, and nothing of it when
// the setting is off.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "engine/loop_plan.h"
#include "engine/midi_filter.h"
#include "engine/offline_render.h"
#include "engine/volume_fade.h"
#include "tests/engine/chain_fixture.h"
#include "tests/midi/wav_reader.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"

namespace {

constexpr uint32_t kLoopStart = 480;
constexpr uint32_t kLoopEnd = 1440;
// A quarter lasts 50 ms: the whole song is a few tenths of a second.
constexpr uint32_t kFastTempo = 50000;

// An intro note (60), then the loop's body from tick 480 to 1440: note 62, and note 64
// that still sounds at the loop's end, its note-off on the end's own tick. Program 5 is in
// force when the body starts; the body switches to program 9.
std::vector<uint8_t> cc111_song(uint32_t tempo = kFastTempo) {
    TSmfBuilder smf(1, 480);
    smf.AddTrack()
        .Tempo(0, tempo)
        .Program(0, 0, 5)
        .NoteOn(0, 0, 60, 100)
        .NoteOff(480, 0, 60)
        .Control(0, 0, 111, 0)
        .NoteOn(0, 0, 62, 100)
        .Program(240, 0, 9)
        .NoteOff(240, 0, 62)
        .NoteOn(240, 0, 64, 100)
        .NoteOff(240, 0, 64);
    return smf.Bytes();
}

std::vector<uint8_t> marker_text(const std::string& text) {
    return std::vector<uint8_t>(text.begin(), text.end());
}

// The same music marked with markers on a track of its own, in odd case, and a tail
// after the loop's end that a played loop never reaches.
std::vector<uint8_t> marker_song() {
    TSmfBuilder smf(1, 480);
    smf.AddTrack()
        .Tempo(0, kFastTempo)
        .Meta(kLoopStart, 0x06, marker_text("LoopStart"))
        .Meta(kLoopEnd - kLoopStart, 0x06, marker_text("LOOPEND"));
    smf.AddTrack()
        .Program(0, 0, 5)
        .NoteOn(0, 0, 60, 100)
        .NoteOff(480, 0, 60)
        .NoteOn(0, 0, 62, 100)
        .Program(240, 0, 9)
        .NoteOff(240, 0, 62)
        .NoteOn(240, 0, 64, 100)
        .NoteOff(240, 0, 64)
        .NoteOn(0, 0, 70, 100)
        .NoteOff(480, 0, 70);
    return smf.Bytes();
}

TLoopSettings loops(int32_t times, int32_t fadeSeconds) {
    TLoopSettings settings;
    settings.on = true;
    settings.times = times;
    settings.fadeSeconds = fadeSeconds;
    return settings;
}

// What a walk of the played song delivers, with the pass and fade level it came in.
struct TWalked {
    uint32_t pass;
    uint32_t tick;
    uint8_t status;
    uint8_t data0;
    uint8_t data1;
    int32_t fadeLevel;
};

class TWalkRecorder : public TPlaySink {
  public:
    std::vector<TWalked> events;

  protected:
    void Deliver(const TSMFEvent& e) override {
        if (e.status < 0x80 || e.status >= 0xF0) return;
        events.push_back({Pass(), e.tick, e.status, e.data[0],
                          uint8_t(e.length > 1 ? e.data[1] : 0), FadeLevel()});
    }
};

// A note held through the whole loop's body (six quarters), on channel 1 of port A and on
// channel 2 of port B, with the loop marked from the song's start. A volume of -1 leaves
// controller 7 unsent.
std::vector<uint8_t> held_song(uint32_t tempo, int volume = -1, uint8_t program = 0) {
    TSmfBuilder smf(1, 480);
    TTrackBuilder& a = smf.AddTrack().Tempo(0, tempo).Control(0, 0, 111, 0);
    TTrackBuilder& b = smf.AddTrack().Port(0, 1);
    if (volume >= 0) {
        a.Control(0, 0, 7, uint8_t(volume));
        b.Control(0, 1, 7, uint8_t(volume));
    }
    a.Program(0, 0, program).NoteOn(0, 0, 60, 100).NoteOff(6 * 480, 0, 60);
    b.Program(0, 1, program).NoteOn(0, 1, 67, 100).NoteOff(6 * 480, 1, 67);
    return smf.Bytes();
}

// The controller-7 values a recorder received on channel, in order.
std::vector<int> volumes_of(const TMidiRecorder& recorder, uint8_t channel) {
    std::vector<int> values;
    for (const TMidiRecorder::TEntry& entry : recorder.Entries()) {
        const uint8_t* bytes = recorder.BytesOf(entry);
        if (entry.length == 3 && bytes[0] == (0xB0 | channel) && bytes[1] == 7)
            values.push_back(bytes[2]);
    }
    return values;
}

// How many controller-7 messages of channel came while its note sounded for the last time.
int volumes_while_last_note_sounds(const TMidiRecorder& recorder, uint8_t channel) {
    int count = 0;
    bool sounding = false;
    for (const TMidiRecorder::TEntry& entry : recorder.Entries()) {
        const uint8_t* bytes = recorder.BytesOf(entry);
        if (entry.length != 3 || (bytes[0] & 0x0F) != channel) continue;
        const uint8_t kind = bytes[0] & 0xF0;
        if (kind == 0x90 && bytes[2] > 0) {
            sounding = true;
            count = 0;
        } else if (kind == 0x80 || kind == 0x90) {
            sounding = false;
        } else if (kind == 0xB0 && bytes[1] == 7 && sounding) {
            ++count;
        }
    }
    return count;
}

int count_note_ons(const std::vector<TWalked>& events, uint8_t note) {
    int count = 0;
    for (const TWalked& e : events)
        if ((e.status & 0xF0) == 0x90 && e.data0 == note && e.data1 > 0) ++count;
    return count;
}

// Notes sounding after each event of a recorder: a stacked note needs a release per strike.
std::vector<int32_t> running_balance(const TMidiRecorder& recorder) {
    std::map<std::pair<uint8_t, uint8_t>, int32_t> sounding;
    std::vector<int32_t> balance;
    int32_t total = 0;
    for (const TMidiRecorder::TEntry& entry : recorder.Entries()) {
        const uint8_t* bytes = recorder.BytesOf(entry);
        const uint8_t kind = bytes[0] & 0xF0;
        if (entry.length == 3 && (kind == 0x80 || kind == 0x90)) {
            int32_t& count = sounding[{uint8_t(bytes[0] & 0x0F), bytes[1]}];
            if (kind == 0x90 && bytes[2] != 0) {
                ++count;
                ++total;
            } else if (count > 0) {
                --count;
                --total;
            }
        }
        balance.push_back(total);
    }
    return balance;
}

TEST(LoopPoints, ControllerOneHundredElevenStartsALoopThatEndsWithTheSong) {
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(cc111_song()), 0);
    EXPECT_TRUE(producer.LoopPoints().found);
    EXPECT_EQ(producer.LoopPoints().startTick, kLoopStart);
    EXPECT_EQ(producer.LoopPoints().endTick, kLoopEnd);
}

TEST(LoopPoints, MarkersOfAnyCaseNameBothEnds) {
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(marker_song()), 0);
    EXPECT_TRUE(producer.LoopPoints().found);
    EXPECT_EQ(producer.LoopPoints().startTick, kLoopStart);
    EXPECT_EQ(producer.LoopPoints().endTick, kLoopEnd);
}

TEST(LoopPoints, AnEndNotAfterItsStartOrNoMarkIsNoLoop) {
    TSMFProducer producer;
    TSmfBuilder backwards(1, 480);
    backwards.AddTrack()
        .Meta(480, 0x06, marker_text("loopEnd"))
        .Meta(480, 0x06, marker_text("loopstart"))
        .NoteOn(0, 0, 60, 100)
        .NoteOff(480, 0, 60);
    ASSERT_EQ(producer.SetTo(backwards.Bytes()), 0);
    EXPECT_FALSE(producer.LoopPoints().found);

    TSmfBuilder atTheEnd(1, 480);
    atTheEnd.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(480, 0, 60).Control(0, 0, 111, 0);
    ASSERT_EQ(producer.SetTo(atTheEnd.Bytes()), 0);
    EXPECT_FALSE(producer.LoopPoints().found);

    TSmfBuilder plain(1, 480);
    plain.AddTrack()
        .Meta(0, 0x06, marker_text("loopStartle"))
        .Control(0, 0, 110, 0)
        .NoteOn(0, 0, 60, 100)
        .NoteOff(480, 0, 60);
    ASSERT_EQ(producer.SetTo(plain.Bytes()), 0);
    EXPECT_FALSE(producer.LoopPoints().found);
    producer.SetLoopSettings(loops(2, 0));
    EXPECT_FALSE(producer.LoopPlan().IsActive());
    EXPECT_EQ(producer.CountPlayedTicks(), producer.CountTicks());
}

TEST(LoopPlan, PlayedTicksRunThroughEveryPassAndBack) {
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(cc111_song()), 0);
    producer.SetLoopSettings(loops(2, 0));
    const TLoopPlan& plan = producer.LoopPlan();
    ASSERT_TRUE(plan.IsActive());
    EXPECT_EQ(producer.CountPlayedTicks(), uint64_t(kLoopEnd + 2 * (kLoopEnd - kLoopStart)));
    for (uint64_t played = 0; played <= producer.CountPlayedTicks(); played += 37) {
        const TLoopPlan::TPos pos = plan.PosOfPlayed(played);
        EXPECT_EQ(plan.PlayedTick(pos), played);
        EXPECT_LE(pos.pass, 2u);
        if (pos.pass > 0) {
            EXPECT_GE(pos.tick, kLoopStart);
        }
    }
    // 50 ms a quarter: the first pass 150 ms, each loop 100 ms.
    EXPECT_EQ(producer.PlayedTickToUs(producer.CountPlayedTicks(), 100), 350000);
    EXPECT_EQ(producer.PlayedTickToUs(producer.CountPlayedTicks(), 200), 175000);
}

TEST(LoopPlan, TheFadeEndsWhereItsTimeIsRunAndItsLevelFallsToSilence) {
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(cc111_song()), 0);
    producer.SetLoopSettings(loops(1, 1));
    const TLoopPlan& plan = producer.LoopPlan();
    // One second of fade is ten 100 ms bodies after the extra pass.
    EXPECT_EQ(plan.Last().pass, 12u);
    EXPECT_EQ(plan.Last().tick, kLoopStart);
    EXPECT_EQ(producer.PlayedTickToUs(producer.CountPlayedTicks(), 100), 150000 + 100000 + 1000000);
    int32_t previous = TLoopPlan::kFadeFull;
    for (int64_t us = 0; us <= 1000000; us += 50000) {
        const int32_t level = plan.FadeLevel(us);
        EXPECT_LE(level, previous);
        previous = level;
    }
    EXPECT_EQ(plan.FadeLevel(0), TLoopPlan::kFadeFull);
    EXPECT_EQ(plan.FadeLevel(1000000), 0);
    EXPECT_EQ(TVolumeFade::Scale(100, 500), 50);
    EXPECT_EQ(TVolumeFade::Scale(80, TLoopPlan::kFadeFull), 80);
    EXPECT_EQ(TVolumeFade::Scale(127, 0), 0);
}

TEST(LoopWalk, TheBodyPlaysOnceMorePerTimeWithNothingSoundingAtAJump) {
    for (const auto& song : {cc111_song(), marker_song()}) {
        TSMFProducer producer;
        ASSERT_EQ(producer.SetTo(song), 0);
        producer.SetLoopSettings(loops(3, 0));
        TWalkRecorder walk;
        producer.WalkPlayed(walk);
        EXPECT_EQ(count_note_ons(walk.events, 60), 1);
        EXPECT_EQ(count_note_ons(walk.events, 62), 4);
        EXPECT_EQ(count_note_ons(walk.events, 64), 4);
        EXPECT_EQ(count_note_ons(walk.events, 70), 0) << "the tail after the loop's end";
        // At every change of pass the notes of the pass before have all been released,
        // and the first thing of the new pass is the program in force at the loop's start.
        std::map<uint8_t, int> sounding;
        uint32_t pass = 0;
        for (const TWalked& e : walk.events) {
            if (e.pass != pass) {
                for (const auto& [note, count] : sounding) EXPECT_EQ(count, 0) << int(note);
                EXPECT_EQ(e.status, 0xC0);
                EXPECT_EQ(e.data0, 5);
                EXPECT_EQ(e.tick, kLoopStart);
                pass = e.pass;
            }
            if ((e.status & 0xF0) == 0x90 && e.data1 > 0)
                ++sounding[e.data0];
            else if (((e.status & 0xF0) == 0x80 || (e.status & 0xF0) == 0x90) &&
                     sounding[e.data0] > 0)
                // The intro's note-off on the loop's start comes again with every pass.
                --sounding[e.data0];
        }
        EXPECT_EQ(pass, 3u);
        for (const auto& [note, count] : sounding) EXPECT_EQ(count, 0) << int(note);
    }
}

TEST(LoopWalk, TheFadePassesCarryAFallingLevel) {
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(cc111_song()), 0);
    producer.SetLoopSettings(loops(1, 1));
    TWalkRecorder walk;
    producer.WalkPlayed(walk);
    std::vector<int32_t> levels;
    for (const TWalked& e : walk.events) {
        if ((e.status & 0xF0) != 0x90 || e.data1 == 0) continue;
        if (e.pass <= 1) {
            EXPECT_EQ(e.fadeLevel, TLoopPlan::kFadeFull);
        } else {
            levels.push_back(e.fadeLevel);
        }
    }
    ASSERT_EQ(levels.size(), 20u) << "ten bodies of two notes each";
    EXPECT_EQ(levels.front(), TLoopPlan::kFadeFull);
    for (size_t i = 1; i < levels.size(); ++i) EXPECT_LT(levels[i], levels[i - 1]);
    EXPECT_LT(levels.back(), 100);
}

TEST(LoopWalk, OffTheSongWalksAsItAlwaysHas) {
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(marker_song()), 0);
    TWalkRecorder played;
    producer.WalkPlayed(played);
    EXPECT_FALSE(producer.LoopPlan().IsActive());
    EXPECT_EQ(count_note_ons(played.events, 62), 1);
    EXPECT_EQ(count_note_ons(played.events, 70), 1);
    for (const TWalked& e : played.events) {
        EXPECT_EQ(e.pass, 0u);
        EXPECT_EQ(e.fadeLevel, TLoopPlan::kFadeFull);
    }
}

TEST(LoopPlay, ThePlayThreadLoopsReleasesAtEveryJumpAndEndsAtTheLastLoopsEnd) {
    TChainFixture f;
    ASSERT_EQ(f.producer.SetTo(cc111_song()), 0);
    f.producer.SetLoopSettings(loops(2, 0));
    f.producer.Play();
    ASSERT_TRUE(wait_for([&] { return f.ended.load() == 1; }));
    f.Drain();
    EXPECT_EQ(f.producer.PlayedTick(), f.producer.CountPlayedTicks());
    const std::vector<std::string> lines = recorded(f.portA);
    const std::vector<int32_t> balance = running_balance(f.portA);
    int strikes62 = 0;
    int chasedPrograms = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i] == "90 3e 64") ++strikes62;
        // The program in force at the loop's start comes back at each jump, after every
        // note has been released.
        if (lines[i] == "c0 05" && i > 0) {
            ++chasedPrograms;
            EXPECT_EQ(balance[i], 0) << "at event " << i;
        }
    }
    EXPECT_EQ(strikes62, 3);
    EXPECT_EQ(chasedPrograms, 2);
    EXPECT_EQ(balance.back(), 0);
}

TEST(LoopPlay, TheFiltersFadeByVolumeNotByVelocity) {
    TChainFixture f;
    ASSERT_EQ(f.producer.SetTo(cc111_song()), 0);
    f.producer.SetLoopSettings(loops(1, 1));
    f.producer.Play();
    ASSERT_TRUE(wait_for([&] { return f.ended.load() == 1; }));
    f.Drain();
    std::vector<int> velocities;
    for (const TMidiRecorder::TEntry& entry : f.portA.Entries()) {
        const uint8_t* bytes = f.portA.BytesOf(entry);
        if (entry.length == 3 && bytes[0] == 0x90 && bytes[1] == 0x3E)
            velocities.push_back(bytes[2]);
    }
    // Two passes, then ten fading ones, all struck as the song strikes them: the channel
    // volume fades them.
    ASSERT_EQ(velocities.size(), 12u);
    for (int velocity : velocities) EXPECT_EQ(velocity, 100);
    const std::vector<int> volumes = volumes_of(f.portA, 0);
    ASSERT_FALSE(volumes.empty());
    EXPECT_EQ(volumes.back(), 0);
    EXPECT_EQ(running_balance(f.portA).back(), 0);
    EXPECT_EQ(f.producer.FadeLevel().load(), 0);
    // The next song starts at full level.
    f.producer.Stop();
    EXPECT_EQ(f.producer.FadeLevel().load(), TLoopPlan::kFadeFull);
}

// Plays song with settings through f's chain until it ends (the count-th end of f), and
// waits until the recorders have everything; false when it did not end in time.
bool play_to_end(TChainFixture& f, const std::vector<uint8_t>& song, const TLoopSettings& settings,
                 int count = 1) {
    if (f.producer.SetTo(song) != 0) return false;
    f.producer.SetLoopSettings(settings);
    f.producer.Play();
    if (!wait_for([&] { return f.ended.load() == count; })) return false;
    f.Drain();
    return true;
}

// A quarter of 200 ms: a body of 1.2 s, longer than the shortest fade of a second.
constexpr uint32_t kHeldTempo = 200000;

TEST(LoopPlay, AHeldNoteFadesWithItsChannelVolumeDownToSilenceOnBothPorts) {
    TChainFixture f;
    ASSERT_TRUE(play_to_end(f, held_song(kHeldTempo), loops(1, 1)));
    for (const auto& [recorder, channel] :
         {std::pair<const TMidiRecorder*, uint8_t>{&f.portA, 0}, {&f.portB, 1}}) {
        const std::vector<int> values = volumes_of(*recorder, channel);
        // A second of fade in steps of at most 50 ms: twenty steps, each a new value.
        ASSERT_GE(values.size(), 10u) << "channel " << int(channel);
        // Never sent, the volume is the default of 100: the fade starts below it.
        EXPECT_LE(values.front(), 100);
        for (size_t i = 1; i < values.size(); ++i)
            EXPECT_LE(values[i], values[i - 1]) << "channel " << int(channel) << " step " << i;
        EXPECT_EQ(values.back(), 0);
        // The note struck as the fade began is the one that fades.
        EXPECT_GE(volumes_while_last_note_sounds(*recorder, channel), 10)
            << "channel " << int(channel);
        EXPECT_EQ(running_balance(*recorder).back(), 0);
    }
}

TEST(LoopPlay, TheFadeScalesTheVolumeTheSongSet) {
    TChainFixture f;
    ASSERT_TRUE(play_to_end(f, held_song(kHeldTempo, 80), loops(1, 1)));
    for (const auto& [recorder, channel] :
         {std::pair<const TMidiRecorder*, uint8_t>{&f.portA, 0}, {&f.portB, 1}}) {
        const std::vector<int> values = volumes_of(*recorder, channel);
        ASSERT_FALSE(values.empty());
        // The song's 80 at the start of every pass, the last at the fade's start.
        const size_t last80 =
            size_t(std::find(values.rbegin(), values.rend(), 80) - values.rbegin());
        ASSERT_LT(last80, values.size()) << "channel " << int(channel);
        const std::vector<int> fade(values.end() - long(last80), values.end());
        ASSERT_GE(fade.size(), 10u) << "channel " << int(channel);
        EXPECT_GE(fade.front(), 70) << "the first step is a small one down from 80";
        for (size_t i = 1; i < fade.size(); ++i) EXPECT_LE(fade[i], fade[i - 1]) << i;
        EXPECT_EQ(fade.back(), 0);
        for (int value : values) EXPECT_LE(value, 80);
    }
}

TEST(LoopPlay, AfterAFadeTheNextSongIsNotPlayedQuiet) {
    TChainFixture f;
    ASSERT_TRUE(play_to_end(f, held_song(kHeldTempo), loops(1, 1)));
    // A song that never sets a volume, loops off.
    f.producer.Stop();
    TSmfBuilder next(1, 480);
    next.AddTrack().Tempo(0, kFastTempo).NoteOn(0, 0, 72, 90).NoteOff(480, 0, 72);
    next.AddTrack().Port(0, 1).NoteOn(0, 1, 74, 90).NoteOff(480, 1, 74);
    ASSERT_TRUE(play_to_end(f, next.Bytes(), TLoopSettings{}, 2));
    for (const auto& [recorder, channel, note] :
         {std::tuple<const TMidiRecorder*, uint8_t, uint8_t>{&f.portA, 0, 72}, {&f.portB, 1, 74}}) {
        // The volume in force when the next song's note is struck: the last controller 7
        // that reached the channel, or the default of 100 when none did.
        int volume = 100;
        bool struck = false;
        for (const TMidiRecorder::TEntry& entry : recorder->Entries()) {
            const uint8_t* bytes = recorder->BytesOf(entry);
            if (entry.length != 3) continue;
            if (bytes[0] == (0xB0 | channel) && bytes[1] == 7) volume = bytes[2];
            if (bytes[0] == (0x90 | channel) && bytes[1] == note && bytes[2] > 0) {
                struck = true;
                break;
            }
        }
        ASSERT_TRUE(struck) << "channel " << int(channel);
        EXPECT_EQ(volume, 100) << "channel " << int(channel);
    }
}

TEST(LoopPlay, OffNothingLoopsAndTheEndsNoteOffIsSent) {
    TChainFixture f;
    ASSERT_EQ(f.producer.SetTo(cc111_song()), 0);
    f.producer.Play();
    ASSERT_TRUE(wait_for([&] { return f.ended.load() == 1; }));
    f.Drain();
    const std::vector<std::string> expected = {"c0 05",    "90 3c 64", "80 3c 00",
                                               "b0 6f 00", "90 3e 64", "c0 09",
                                               "80 3e 00", "90 40 64", "80 40 00"};
    EXPECT_EQ(recorded(f.portA), expected);
    EXPECT_EQ(f.producer.PlayedTick(), f.producer.CountTicks());
}

TEST(LoopPlay, ASeekIntoALaterPassPlaysOnFromThere) {
    TChainFixture f;
    // Slow enough that the seek comes before the first pass ends.
    ASSERT_EQ(f.producer.SetTo(cc111_song(2000000)), 0);
    f.producer.SetLoopSettings(loops(3, 0));
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 2));
    f.chain.QuickAllNotesOff();
    // The last pass, a quarter before its end.
    ASSERT_EQ(f.producer.SetPlayedTick(f.producer.CountPlayedTicks() - 480), 0);
    const TLoopPlan::TPos pos = f.producer.LoopPlan().PosOfPlayed(f.producer.PlayedTick());
    EXPECT_EQ(pos.pass, 3u);
    EXPECT_GE(pos.tick, kLoopEnd - 480);
    // The last pass's note 64 comes a quarter (two seconds) later; nothing came between.
    ASSERT_TRUE(wait_for([&] { return recorded(f.portA).back() == "90 40 64"; }));
    EXPECT_EQ(f.ended.load(), 0);
    f.producer.Stop();
}

TEST(LoopRender, TheWaveIsLongerByTheLoopsItPlays) {
    TTempDir dir;
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(cc111_song(500000)), 0);
    TRenderOptions options;
    options.tailUs = 0;
    std::string error;
    const auto plain = dir.Path() / "plain.wav";
    ASSERT_EQ(render_song(producer, plain.string(), options, nullptr, &error), 0) << error;
    producer.SetLoopSettings(loops(2, 0));
    const auto looped = dir.Path() / "looped.wav";
    ASSERT_EQ(render_song(producer, looped.string(), options, nullptr, &error), 0) << error;
    const TWavFile a = read_wav(plain);
    const TWavFile b = read_wav(looped);
    ASSERT_TRUE(a.problem.empty()) << a.problem;
    ASSERT_TRUE(b.problem.empty()) << b.problem;
    // Two more bodies of two quarters at 500 ms each.
    EXPECT_EQ(b.Frames() - a.Frames(), size_t(2 * 44100));

    producer.SetLoopSettings(loops(1, 3));
    const auto faded = dir.Path() / "faded.wav";
    ASSERT_EQ(render_song(producer, faded.string(), options, nullptr, &error), 0) << error;
    const TWavFile c = read_wav(faded);
    ASSERT_TRUE(c.problem.empty()) << c.problem;
    // 1.5 s of intro, a second of loop and three of fade.
    EXPECT_EQ(c.Frames(), size_t(5.5 * 44100));
    // The fade's last second is quieter than the loop before it.
    EXPECT_LT(c.PeakOf(size_t(4.5 * 44100), c.Frames()), c.PeakOf(size_t(1.5 * 44100), 110250) / 2);
}

TEST(LoopRender, AHeldNoteFadesOutInTheWave) {
    TTempDir dir;
    TSMFProducer producer;
    // An organ (program 20) holds its sound: what falls in the wave is the fade alone.
    // A body of 3 s, and a fade of 2 s inside the third pass.
    ASSERT_EQ(producer.SetTo(held_song(500000, -1, 19)), 0);
    producer.SetLoopSettings(loops(1, 2));
    TRenderOptions options;
    options.tailUs = 0;
    std::string error;
    const auto path = dir.Path() / "held.wav";
    ASSERT_EQ(render_song(producer, path.string(), options, nullptr, &error), 0) << error;
    const TWavFile wav = read_wav(path);
    ASSERT_TRUE(wav.problem.empty()) << wav.problem;
    ASSERT_EQ(wav.Frames(), size_t(8 * 44100));
    const size_t fadeStart = 6 * 44100;
    const size_t fifth = 2 * 44100 / 5;
    const double first = wav.RmsOf(fadeStart, fadeStart + fifth);
    const double last = wav.RmsOf(wav.Frames() - fifth, wav.Frames());
    ASSERT_GT(first, 100.0) << "the held notes sound as the fade begins";
    EXPECT_LT(last, first / 4) << "first fifth " << first << ", last fifth " << last;
}

}  // namespace
