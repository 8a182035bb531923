// Chase against a real synthesizer: FluidSynth fed a full play up to a tick, and another
// fed what a chased seek to that tick sends, end in the same state on every channel:
// programs and banks, controllers, pitch bend and its range, and the tunings that
// registered and non-registered parameters set.

#include <fluidsynth.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/engine/chain_fixture.h"
#include "tests/support/smf_builder.h"

namespace {

constexpr uint16_t kDivision = 96;
constexpr uint32_t kTarget = kDivision * 8;
constexpr uint8_t kMarkerNote = 127;

// A synthesizer without sound: its channel state is all that is looked at.
class TSynthState {
  public:
    TSynthState() {
        for (int level : {FLUID_PANIC, FLUID_ERR, FLUID_WARN, FLUID_INFO, FLUID_DBG})
            fluid_set_log_function(level, nullptr, nullptr);
        fSettings = new_fluid_settings();
        fluid_settings_setint(fSettings, "synth.midi-channels", 32);
        fSynth = new_fluid_synth(fSettings);
    }
    ~TSynthState() {
        delete_fluid_synth(fSynth);
        delete_fluid_settings(fSettings);
    }

    // One channel message of lane port (0 or 1: channels 1-16 or 17-32).
    void Send(uint32_t port, const uint8_t* bytes, size_t length) {
        if (length < 2) return;
        const int channel = int(port) * 16 + (bytes[0] & 0x0F);
        const int data1 = length > 2 ? bytes[2] : 0;
        switch (bytes[0] & 0xF0) {
            case 0xB0:
                fluid_synth_cc(fSynth, channel, bytes[1], data1);
                break;
            case 0xC0:
                fluid_synth_program_change(fSynth, channel, bytes[1]);
                break;
            case 0xD0:
                fluid_synth_channel_pressure(fSynth, channel, bytes[1]);
                break;
            case 0xE0:
                fluid_synth_pitch_bend(fSynth, channel, bytes[1] | data1 << 7);
                break;
            default:
                break;  // notes leave no lasting state
        }
    }

    // What a channel is set to, one line per value that differs from a fresh synth.
    std::vector<std::string> Describe() const {
        TSynthState fresh;
        std::vector<std::string> lines;
        for (int channel = 0; channel < 32; ++channel) {
            const std::vector<std::pair<std::string, double>> mine = Values(channel);
            const std::vector<std::pair<std::string, double>> base = fresh.Values(channel);
            for (size_t i = 0; i < mine.size(); ++i)
                if (mine[i].second != base[i].second)
                    lines.push_back("channel " + std::to_string(channel + 1) + " " + mine[i].first +
                                    " " + std::to_string(mine[i].second));
        }
        return lines;
    }

  private:
    std::vector<std::pair<std::string, double>> Values(int channel) const {
        std::vector<std::pair<std::string, double>> values;
        int sfont = 0, bank = 0, program = 0;
        fluid_synth_get_program(fSynth, channel, &sfont, &bank, &program);
        values.push_back({"bank", bank});
        values.push_back({"program", program});
        for (int number = 0; number < 120; ++number) {
            // The data entry controllers and increment/decrement are not settings: what
            // they did shows in the parameters below.
            if (number == 6 || number == 38 || number == 96 || number == 97) continue;
            int value = 0;
            fluid_synth_get_cc(fSynth, channel, number, &value);
            values.push_back({"cc" + std::to_string(number), value});
        }
        int bend = 0, range = 0;
        fluid_synth_get_pitch_bend(fSynth, channel, &bend);
        fluid_synth_get_pitch_wheel_sens(fSynth, channel, &range);
        values.push_back({"bend", bend});
        values.push_back({"bend range", range});
        for (int gen = 0; gen < GEN_LAST; ++gen)
            values.push_back(
                {"gen" + std::to_string(gen), fluid_synth_get_gen(fSynth, channel, gen)});
        return values;
    }

    fluid_settings_t* fSettings;
    fluid_synth_t* fSynth;
};

// Registered and non-registered parameters as songs set them, on both lanes.
std::vector<uint8_t> parameter_song() {
    TSmfBuilder smf(1, kDivision);
    TTrackBuilder& a = smf.AddTrack();
    a.Control(0, 0, 0, 1).Program(0, 0, 5).Control(0, 0, 7, 100);
    // Channel 1: bend range 12, fine tune (MSB, then LSB), coarse tune; then the bend
    // range is selected again and left selected.
    a.Control(0, 0, 101, 0).Control(0, 0, 100, 0).Control(0, 0, 6, 12).Control(0, 0, 38, 0);
    a.Control(kDivision, 0, 101, 0)
        .Control(0, 0, 100, 1)
        .Control(0, 0, 6, 70)
        .Control(0, 0, 38, 21);
    a.Control(0, 0, 100, 2).Control(0, 0, 6, 66);
    a.Control(kDivision, 0, 100, 1).Control(0, 0, 6, 60).Control(0, 0, 38, 5);  // fine tune again
    a.Control(0, 0, 96, 0).Control(0, 0, 97, 0);  // increments: acts, not settings
    a.Control(0, 0, 100, 0);
    a.Event(0, {0xE0, 0x00, 0x50});
    // Channel 2: bend range 2, then the null parameter, so later data entry goes nowhere.
    a.Control(0, 1, 101, 0).Control(0, 1, 100, 0).Control(0, 1, 6, 2);
    a.Control(0, 1, 101, 127).Control(0, 1, 100, 127).Control(kDivision, 1, 6, 99);
    // Channel 3: a SoundFont generator through a non-registered parameter (filter cutoff).
    a.Control(0, 2, 99, 120).Control(0, 2, 98, 8).Control(0, 2, 38, 0).Control(0, 2, 6, 50);
    a.NoteOn(kTarget - 3 * kDivision, 15, kMarkerNote, 1);  // at the target
    a.Control(kDivision, 0, 100, 0).Control(0, 0, 6, 24);   // after it
    TTrackBuilder& b = smf.AddTrack().Port(0, 1);
    // Lane B, channel 1: bend range 24, then a non-registered parameter selected last.
    b.Control(kDivision, 0, 101, 0).Control(0, 0, 100, 0).Control(0, 0, 6, 24);
    b.Control(0, 0, 99, 1).Control(0, 0, 98, 8).Control(0, 0, 6, 40);
    b.Control(kDivision, 0, 10, 30).Event(0, {0xE0, 0x7F, 0x7F});
    b.NoteOn(kTarget - 2 * kDivision, 15, kMarkerNote, 1).Control(kDivision, 0, 6, 1);
    return smf.Bytes();
}

class TFullPlay : public TSMFEventSink {
  public:
    TFullPlay(uint32_t tick, TSynthState* synth) : fTick(tick), fSynth(synth) {}
    void Event(const TSMFEvent& e) override {
        if (e.tick >= fTick || e.status < 0x80 || e.status >= 0xF0) return;
        const uint8_t bytes[3] = {e.status, e.data[0], uint8_t(e.length > 1 ? e.data[1] : 0)};
        fSynth->Send(e.port, bytes, e.length + 1);
    }

  private:
    uint32_t fTick;
    TSynthState* fSynth;
};

bool is_marker(const TMidiRecorder& recorder, const TMidiRecorder::TEntry& entry) {
    const uint8_t* bytes = recorder.BytesOf(entry);
    return entry.length == 3 && bytes[0] == 0x9F && bytes[1] == kMarkerNote && bytes[2] > 0;
}

bool marker_in(const TMidiRecorder& recorder) {
    for (const auto& entry : recorder.Entries())
        if (is_marker(recorder, entry)) return true;
    return false;
}

void feed_until_marker(const TMidiRecorder& recorder, uint32_t port, TSynthState* synth) {
    for (const auto& entry : recorder.Entries()) {
        if (is_marker(recorder, entry)) return;
        synth->Send(port, recorder.BytesOf(entry), entry.length);
    }
}

}  // namespace

TEST(ChaseOnASynthesizer, ASeekLeavesEveryChannelAsAFullPlayWould) {
    TSynthState fullPlay;
    {
        TSMFProducer reader;
        ASSERT_EQ(reader.SetTo(parameter_song()), 0) << reader.LastError();
        TFullPlay play(kTarget, &fullPlay);
        reader.Walk(play);
    }
    const std::vector<std::string> expected = fullPlay.Describe();
    ASSERT_GE(expected.size(), 10u);

    TChainFixture f;
    f.producer.SetChase(true);
    ASSERT_EQ(f.producer.SetTo(parameter_song()), 0);
    // Tick 0 plays, then the seek jumps over the rest of the settings to the target.
    f.producer.Play();
    ASSERT_TRUE(f.WaitForEvents(f.portA, 1));
    f.producer.Pause();
    ASSERT_EQ(f.producer.SetCurrentTick(kTarget), 0);
    f.producer.Play();
    ASSERT_TRUE(wait_for([&] { return marker_in(f.portA) && marker_in(f.portB); }));
    f.producer.Pause();
    f.Drain();
    TSynthState chased;
    feed_until_marker(f.portA, 0, &chased);
    feed_until_marker(f.portB, 1, &chased);
    EXPECT_EQ(chased.Describe(), expected);
}
