#include "midi/synth.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "midi/local_producer.h"
#include "midi/roster.h"
#include "tests/midi/wav_reader.h"
#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"
#include "veldan/base/clock.h"

namespace {

constexpr int kRate = TSynthConsumer::kSampleRate;
// FluidSynth dithers its 16-bit output, so silence is not all zeros.
constexpr int kSilencePeak = 4;
constexpr int kSoundPeak = 300;
constexpr uint8_t kPiano = 0;
constexpr uint8_t kVolume = 7;
constexpr uint8_t kMiddleC = 60;

void sleep_ms(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

size_t frame_at(int64_t timeUs, int64_t startUs) {
    return timeUs <= startUs ? 0 : size_t((timeUs - startUs) * kRate / 1000000);
}

// A synthesizer that renders into a WAV file in a folder of its own, with a producer
// connected to it.
class TSynthInWav {
  public:
    TSynthInWav() {
        TSynthConsumer::TOptions options;
        options.wavPath = (fDir.Path() / "Quill Synth – test.wav").string();
        synth = TSynthConsumer::Create(options, &error);
        if (synth) producer.Connect(synth.get());
    }

    TWavFile Finish(int64_t tailUs) {
        finished = synth->Finish(tailUs);
        return read_wav(synth->WavPath());
    }

    std::string error;
    std::unique_ptr<TSynthConsumer> synth;
    TMidiLocalProducer producer{"synth test"};
    bool finished = false;

  private:
    TTempDir fDir;
};

TEST(SynthConsumer, RendersANoteIntoTheWavFileInRealTime) {
    TSynthInWav s;
    ASSERT_TRUE(s.synth) << s.error;
    EXPECT_EQ(s.synth->Name(), "Quill Synth");
    EXPECT_EQ(s.synth->DriverName(), "wav");
    int64_t startUs = s.synth->WavStartTime();
    ASSERT_GT(startUs, 0);

    constexpr int64_t kEarlyUs = 20000;
    sleep_ms(150);
    s.producer.SprayProgramChange(0, kPiano, veldan::system_time());
    int64_t onUs = veldan::system_time();
    s.producer.SprayNoteOn(0, kMiddleC, 100, onUs);
    sleep_ms(300);
    int64_t offUs = veldan::system_time();
    s.producer.SprayNoteOff(0, kMiddleC, 0, offUs);

    constexpr int64_t kTailUs = 400000;
    int64_t finishUs = veldan::system_time();
    TWavFile wav = s.Finish(kTailUs);
    int64_t returnedUs = veldan::system_time();
    ASSERT_TRUE(s.finished);
    ASSERT_EQ(wav.problem, "");
    EXPECT_EQ(wav.format, 1);
    EXPECT_EQ(wav.channels, 2);
    EXPECT_EQ(wav.sampleRate, 44100u);
    EXPECT_EQ(wav.byteRate, 44100u * 4);
    EXPECT_EQ(wav.blockAlign, 4);
    EXPECT_EQ(wav.bitsPerSample, 16);

    // The file ends tailUs after Finish() was called: elapsed time x rate, to the frame.
    EXPECT_GE(wav.Frames(), frame_at(finishUs + kTailUs, startUs));
    EXPECT_LE(wav.Frames(), frame_at(returnedUs, startUs) + 1);
    EXPECT_GE(returnedUs - finishUs, kTailUs);

    // An event lands at the frame rendered last before it arrived, which may be a
    // wake-up period (plus the wake-up's lateness) before its time.
    EXPECT_LE(wav.PeakOf(0, frame_at(onUs - kEarlyUs, startUs)), kSilencePeak)
        << "sound before the note";
    // Every 50 ms of the held note sounds; the hand-off to the synthesizer may take a
    // little while, so the span starts 50 ms after the note-on was sent.
    for (int64_t t = onUs + 50000; t + 50000 <= offUs; t += 50000)
        EXPECT_GT(wav.PeakOf(frame_at(t, startUs), frame_at(t + 50000, startUs)), kSoundPeak)
            << "silence " << (t - onUs) / 1000 << " ms into the note";
}

// Turns channel 1 down to nothing, sends sysex (if any), then plays a note for 300 ms;
// returns the peak of the whole file. A General MIDI reset puts the volume back.
std::optional<int> peak_of_note_after(const std::vector<uint8_t>* sysex) {
    TSynthInWav s;
    EXPECT_TRUE(s.synth) << s.error;
    if (!s.synth) return std::nullopt;
    s.producer.SprayControlChange(0, kVolume, 0, 0);
    if (sysex) s.producer.SpraySystemExclusive(sysex->data(), sysex->size(), 0);
    s.producer.SprayNoteOn(0, kMiddleC, 100, 0);
    sleep_ms(300);
    TWavFile wav = s.Finish(0);
    EXPECT_TRUE(s.finished);
    EXPECT_EQ(wav.problem, "");
    return wav.PeakOf(0, wav.Frames());
}

TEST(SynthConsumer, NoteAtVolumeZeroIsSilent) {
    std::optional<int> peak = peak_of_note_after(nullptr);
    ASSERT_TRUE(peak);
    EXPECT_LE(*peak, kSilencePeak);
}

TEST(SynthConsumer, GeneralMidiResetWithClosingByteRestoresTheVolume) {
    std::vector<uint8_t> gmOn{0x7E, 0x7F, 0x09, 0x01, 0xF7};
    std::optional<int> peak = peak_of_note_after(&gmOn);
    ASSERT_TRUE(peak);
    EXPECT_GT(*peak, kSoundPeak);
}

TEST(SynthConsumer, GeneralMidiResetWithoutClosingByteRestoresTheVolume) {
    std::vector<uint8_t> gmOn{0x7E, 0x7F, 0x09, 0x01};
    std::optional<int> peak = peak_of_note_after(&gmOn);
    ASSERT_TRUE(peak);
    EXPECT_GT(*peak, kSoundPeak);
}

// FluidSynth finds a GS message's checksum in its last byte: it takes this reset only when
// the closing 0xF7 has been taken off.
TEST(SynthConsumer, RolandGsResetWithClosingByteRestoresTheVolume) {
    std::vector<uint8_t> gsReset{0x41, 0x10, 0x42, 0x12, 0x40, 0x00, 0x7F, 0x00, 0x41, 0xF7};
    std::optional<int> peak = peak_of_note_after(&gsReset);
    ASSERT_TRUE(peak);
    EXPECT_GT(*peak, kSoundPeak);
}

// Port B's sixteen channels are channels of their own: channel 1 of port A turned down
// to nothing leaves channel 1 of port B sounding.
TEST(SynthConsumer, PortBPlaysOnChannelsOfItsOwn) {
    TSynthInWav s;
    ASSERT_TRUE(s.synth) << s.error;
    TMidiLocalProducer portB{"synth test B"};
    portB.SetPort(1);
    ASSERT_EQ(portB.Port(), 1);
    portB.Connect(s.synth.get());
    s.producer.SprayControlChange(0, kVolume, 0, 0);
    portB.SprayNoteOn(0, kMiddleC, 100, 0);
    sleep_ms(300);
    TWavFile wav = s.Finish(0);
    ASSERT_TRUE(s.finished);
    ASSERT_EQ(wav.problem, "");
    EXPECT_GT(wav.PeakOf(0, wav.Frames()), kSoundPeak);
}

// A SysEx many queue slots long, behind port B's tag, does not disturb the events behind
// it, which keep their port.
TEST(SynthConsumer, ALongSysExThroughPortBLeavesTheNextEventsOnPortB) {
    TSynthInWav s;
    ASSERT_TRUE(s.synth) << s.error;
    TMidiLocalProducer portB{"synth test B"};
    portB.SetPort(1);
    portB.Connect(s.synth.get());
    std::vector<uint8_t> longSysEx(3000, 0x01);
    longSysEx.front() = 0x7D;  // non-commercial: nobody acts on it
    longSysEx.back() = 0xF7;
    s.producer.SprayControlChange(0, kVolume, 0, 0);
    portB.SpraySystemExclusive(longSysEx.data(), longSysEx.size(), 0);
    portB.SprayNoteOn(0, kMiddleC, 100, 0);
    sleep_ms(300);
    TWavFile wav = s.Finish(0);
    ASSERT_TRUE(s.finished);
    EXPECT_GT(wav.PeakOf(0, wav.Frames()), kSoundPeak);
}

// A reset that reaches the synthesizer through port B resets port B only: port A's
// channel 1, turned down before it, stays silent.
TEST(SynthConsumer, ResetOnPortBLeavesPortAAlone) {
    for (const std::vector<uint8_t>& reset :
         {std::vector<uint8_t>{0x7E, 0x7F, 0x09, 0x01, 0xF7},
          std::vector<uint8_t>{0x41, 0x10, 0x42, 0x12, 0x40, 0x00, 0x7F, 0x00, 0x41, 0xF7},
          std::vector<uint8_t>{0x43, 0x10, 0x4C, 0x00, 0x00, 0x7E, 0x00, 0xF7}}) {
        TSynthInWav s;
        ASSERT_TRUE(s.synth) << s.error;
        TMidiLocalProducer portB{"synth test B"};
        portB.SetPort(1);
        portB.Connect(s.synth.get());
        s.producer.SprayControlChange(0, kVolume, 0, 0);
        ASSERT_TRUE(s.synth->WaitIdle(1000000));
        portB.SpraySystemExclusive(reset.data(), reset.size(), 0);
        ASSERT_TRUE(s.synth->WaitIdle(1000000));
        s.producer.SprayNoteOn(0, kMiddleC, 100, 0);
        sleep_ms(300);
        TWavFile wav = s.Finish(0);
        ASSERT_TRUE(s.finished);
        ASSERT_EQ(wav.problem, "");
        EXPECT_LE(wav.PeakOf(0, wav.Frames()), kSilencePeak)
            << "reset 0x" << std::hex << int(reset[0]);
    }
}

// The same reset through port B does reset port B's own channels.
TEST(SynthConsumer, ResetOnPortBRestoresPortBsVolume) {
    TSynthInWav s;
    ASSERT_TRUE(s.synth) << s.error;
    TMidiLocalProducer portB{"synth test B"};
    portB.SetPort(1);
    portB.Connect(s.synth.get());
    const std::vector<uint8_t> gmOn{0x7E, 0x7F, 0x09, 0x01, 0xF7};
    portB.SprayControlChange(0, kVolume, 0, 0);
    portB.SpraySystemExclusive(gmOn.data(), gmOn.size(), 0);
    portB.SprayNoteOn(0, kMiddleC, 100, 0);
    sleep_ms(300);
    TWavFile wav = s.Finish(0);
    ASSERT_TRUE(s.finished);
    EXPECT_GT(wav.PeakOf(0, wav.Frames()), kSoundPeak);
}

TEST(SynthConsumer, MissingSoundFontGivesNoSynthAndAnErrorNamingTheFile) {
    TTempDir dir;
    TSynthConsumer::TOptions options;
    options.soundFonts = {(dir.Path() / "missing.sf2").string()};
    options.wavPath = (dir.Path() / "out.wav").string();
    std::string error;
    EXPECT_EQ(TSynthConsumer::Create(options, &error), nullptr);
    EXPECT_EQ(error, "cannot load sound font " + options.soundFonts[0]);
}

TEST(SynthConsumer, WavFileThatCannotBeCreatedGivesNoSynthAndAnErrorNamingIt) {
    TTempDir dir;
    TSynthConsumer::TOptions options;
    options.wavPath = (dir.Path() / "no such folder" / "out.wav").string();
    std::string error;
    EXPECT_EQ(TSynthConsumer::Create(options, &error), nullptr);
    EXPECT_NE(error.find(options.wavPath), std::string::npos) << error;
}

// Every audio system pointed at nothing, as on a machine without sound: the probe gives
// up quickly and renders into a file in the temporary folder.
TEST(SynthConsumer, ProbeWithNoReachableAudioEndsInAWavFile) {
    TTempDir dir;
    std::string emptyAlsaConfig = dir.Write("alsa.conf", std::string()).string();
    TScopedEnv alsa("ALSA_CONFIG_PATH", emptyAlsaConfig.c_str());
    TScopedEnv pulse("PULSE_SERVER", "unix:/nonexistent/quill-test-pulse");
    TScopedEnv pipewire("PIPEWIRE_REMOTE", "quill-test-no-pipewire");
    TScopedEnv jack("JACK_DEFAULT_SERVER", "quill-test-no-jack");
    TScopedEnv temp("TMPDIR", dir.Path().c_str());
    TScopedEnv noJackStart("JACK_NO_START_SERVER", nullptr);

    std::string error;
    int64_t beforeUs = veldan::system_time();
    auto synth = TSynthConsumer::Create({}, &error);
    int64_t tookUs = veldan::system_time() - beforeUs;
    ASSERT_TRUE(synth) << error;
    EXPECT_EQ(synth->DriverName(), "wav");
    EXPECT_EQ(std::filesystem::path(synth->WavPath()).parent_path(), dir.Path());
    EXPECT_STREQ(std::getenv("JACK_NO_START_SERVER"), "1");
    // A guard against a hang (a JACK server being started), not a timing requirement.
    EXPECT_LT(tookUs, 3000000);
    RecordProperty("create_with_probe_us", std::to_string(tookUs));
    // The recording takes its name when it ends.
    EXPECT_TRUE(synth->Finish(0));
    EXPECT_TRUE(std::filesystem::exists(synth->WavPath()));
}

TEST(SynthConsumer, RegistersUnderItsNameInTheRoster) {
    TSynthInWav s;
    ASSERT_TRUE(s.synth) << s.error;
    ASSERT_EQ(s.synth->Register(), 0);
    EXPECT_EQ(TMidiRoster::Default().FindConsumerByName("Quill Synth"), s.synth.get());
    EXPECT_EQ(s.synth->Unregister(), 0);
}

}  // namespace
