// Rendering a song to a file: progress reaches the end, and a cancel or a full disk leaves
// no half-file under the user's name.

#include "engine/offline_render.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/smf_producer.h"
#include "tests/midi/wav_reader.h"
#include "tests/support/fault_child.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"

namespace {

std::vector<std::string> folder_names(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

// Ten seconds of one long note at 120 beats a minute.
std::vector<uint8_t> long_song() {
    TSmfBuilder smf(1, 480);
    smf.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(480 * 20, 0, 60);
    return smf.Bytes();
}

TEST(OfflineRender, ProgressClimbsToTheSongsLengthAndACancelLeavesNoHalfFile) {
    TTempDir dir;
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(long_song()), 0);
    const auto wav = dir.Path() / "out.wav";
    std::vector<int64_t> done;
    int64_t total = 0;
    std::string error;
    ASSERT_EQ(render_song(
                  producer, wav.string(), {},
                  [&](int64_t doneUs, int64_t totalUs) {
                      done.push_back(doneUs);
                      total = totalUs;
                      return true;
                  },
                  &error),
              0)
        << error;
    EXPECT_EQ(total, 10000000);
    ASSERT_FALSE(done.empty());
    EXPECT_EQ(done.back(), total);
    EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));

    TRenderOptions twiceAsFast;
    twiceAsFast.tempoPercent = 200;
    twiceAsFast.tailUs = 0;
    ASSERT_EQ(render_song(producer, wav.string(), twiceAsFast, nullptr, &error), 0) << error;
    EXPECT_EQ((std::filesystem::file_size(wav) - 44) / 4, 5u * 44100) << "5 s, no tail";

    // A cancel leaves the export made before as it was, and nothing else.
    const std::vector<uint8_t> before = read_file_bytes(wav);
    EXPECT_EQ(render_song(
                  producer, wav.string(), {}, [](int64_t, int64_t) { return false; }, &error),
              -1);
    EXPECT_EQ(error, "cancelled");
    EXPECT_EQ(read_file_bytes(wav), before);
    EXPECT_EQ(folder_names(dir.Path()), std::vector<std::string>{"out.wav"});
    const auto fresh = dir.Path() / "fresh.wav";
    EXPECT_EQ(render_song(
                  producer, fresh.string(), {}, [](int64_t, int64_t) { return false; }, &error),
              -1);
    EXPECT_FALSE(std::filesystem::exists(fresh));
}

// A disk that fills up during an export: the earlier export of that name stays whole, the
// error is told, and no half-file or temporary is left.
class OfflineRenderFullDisk : public ::testing::TestWithParam<const char*> {};

TEST_P(OfflineRenderFullDisk, LeavesTheEarlierExportAndNoHalfFile) {
    TTempDir dir;
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(long_song()), 0);
    const auto target = dir.Path() / (std::string("song.") + GetParam());
    TRenderOptions shortRender;
    shortRender.tempoPercent = 1000;  // one second
    shortRender.tailUs = 0;
    std::string error;
    ASSERT_EQ(render_song(producer, target.string(), shortRender, nullptr, &error), 0) << error;
    const std::vector<uint8_t> before = read_file_bytes(target);

    const int result = run_in_child(
        [&] {
            std::string failure;
            if (render_song(producer, target.string(), {}, nullptr, &failure) == 0) return 0;
            return failure.find(target.filename().string()) != std::string::npos ? 1 : 2;
        },
        TChildFaults{.fileSizeLimit = int64_t(before.size()) + 1000}, 60000);

    EXPECT_EQ(result, 1) << "0: the export claimed success; 2: the error names no file";
    EXPECT_EQ(read_file_bytes(target), before);
    EXPECT_EQ(folder_names(dir.Path()), std::vector<std::string>{target.filename().string()});
}

INSTANTIATE_TEST_SUITE_P(WavAndFlac, OfflineRenderFullDisk, ::testing::Values("wav", "flac"));

}  // namespace

namespace {

constexpr char kFluid[] = "/usr/share/sounds/sf2/FluidR3_GM.sf2";
constexpr char kTimGM[] = "/usr/share/sounds/sf2/TimGM6mb.sf2";

std::vector<uint8_t> rendered(const TRenderOptions& options, const TTempDir& dir) {
    TSmfBuilder smf(1, 480);
    smf.AddTrack().Program(0, 0, 0).NoteOn(0, 0, 60, 100).NoteOff(480, 0, 60);
    TSMFProducer producer;
    EXPECT_EQ(producer.SetTo(smf.Bytes()), 0);
    const auto wav = dir.Path() / "note.wav";
    std::string error;
    EXPECT_EQ(render_song(producer, wav.string(), options, nullptr, &error), 0) << error;
    return read_file_bytes(wav);
}

}  // namespace

TEST(OfflineRender, AFlacNameGivesAFlacFileOfTheSameFrames) {
    TTempDir dir;
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(long_song()), 0);
    TRenderOptions noTail;
    noTail.tailUs = 0;
    const auto flac = dir.Path() / "out.FLAC";
    std::string error;
    ASSERT_EQ(render_song(producer, flac.string(), noTail, nullptr, &error), 0) << error;
    const std::vector<uint8_t> bytes = read_file_bytes(flac);
    ASSERT_GT(bytes.size(), 26u);
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "fLaC");
    // STREAMINFO: sample rate (20 bits), channels - 1 (3), bits - 1 (5), frames (36).
    uint64_t info = 0;
    for (size_t i = 18; i < 26; ++i) info = info << 8 | bytes[i];
    EXPECT_EQ(info >> 44, 44100u);
    EXPECT_EQ((info >> 41 & 7) + 1, 2u);
    EXPECT_EQ((info >> 36 & 31) + 1, 16u);
    EXPECT_EQ(info & ((uint64_t(1) << 36) - 1), 10u * 44100) << "the ten seconds of the song";
    EXPECT_LT(bytes.size(), 10u * 44100 * 4 / 4) << "compressed";
    EXPECT_FALSE(std::filesystem::exists(flac.string() + ".wav.part"));
}

TEST(OfflineRender, TheFirstSoundFontWithThePresetIsTheOneHeard) {
    if (!std::filesystem::exists(kTimGM))
        GTEST_SKIP() << "scripts/install-deps --test installs TimGM6mb";
    TTempDir dir;
    TRenderOptions fluidOnly, fluidFirst, timFirst;
    fluidOnly.soundFonts = {kFluid};
    fluidFirst.soundFonts = {kFluid, kTimGM};
    timFirst.soundFonts = {kTimGM, kFluid};
    const std::vector<uint8_t> alone = rendered(fluidOnly, dir);
    ASSERT_GT(alone.size(), 44u);
    EXPECT_EQ(rendered(fluidFirst, dir), alone) << "the piano of the first sound font";
    EXPECT_NE(rendered(timFirst, dir), alone);
}

TEST(OfflineRender, ReverbAndChorusCanBeTurnedOff) {
    TTempDir dir;
    TRenderOptions dry;
    dry.reverb = false;
    dry.chorus = false;
    EXPECT_NE(rendered(dry, dir), rendered(TRenderOptions(), dir));
    EXPECT_EQ(rendered(dry, dir), rendered(dry, dir)) << "rendering is repeatable";
}

// Two-port songs: port B plays on channels 17 to 32 of the synthesizer, beside port A.
namespace {

constexpr uint8_t kPianoProgram = 0;
constexpr uint8_t kFluteProgram = 73;
constexpr uint8_t kSnare = 38;
constexpr uint8_t kDrumChannel = 9;
constexpr uint32_t kBeat = 480;  // 0.5 s at the default 120 beats a minute
constexpr int kNoisePeak = 4;
constexpr int kSoundPeak = 300;

// Magnitudes at 48 frequencies spaced evenly in pitch from 100 Hz to 8 kHz, of the left
// channel over [fromS, fromS + 0.3 s), scaled to sum to 1: enough to tell a flute from a
// piano or a drum, and free of where in the file the note lies.
std::vector<double> spectrum(const TWavFile& wav, double fromS) {
    constexpr int kBands = 48;
    const size_t first = size_t(fromS * wav.sampleRate);
    const size_t end = std::min(wav.Frames(), first + size_t(0.3 * wav.sampleRate));
    std::vector<double> bands(kBands);
    double sum = 0;
    for (int b = 0; b < kBands; ++b) {
        const double hz = 100.0 * std::pow(80.0, double(b) / (kBands - 1));
        const double w = 2 * M_PI * hz / wav.sampleRate;
        double re = 0, im = 0;
        for (size_t i = first; i < end; ++i) {
            const double x = wav.samples[i * wav.channels];
            re += x * std::cos(w * double(i - first));
            im -= x * std::sin(w * double(i - first));
        }
        bands[size_t(b)] = std::hypot(re, im);
        sum += bands[size_t(b)];
    }
    for (double& band : bands) band = sum > 0 ? band / sum : 0;
    return bands;
}

double distance(const std::vector<double>& a, const std::vector<double>& b) {
    double d = 0;
    for (size_t i = 0; i < a.size(); ++i) d += std::abs(a[i] - b[i]);
    return d;
}

TWavFile render_dry(const std::vector<uint8_t>& song, const TTempDir& dir) {
    TSMFProducer producer;
    EXPECT_EQ(producer.SetTo(song), 0);
    TRenderOptions dry;
    dry.reverb = false;
    dry.chorus = false;
    const auto wav = dir.Path() / "two-port.wav";
    std::string error;
    EXPECT_EQ(render_song(producer, wav.string(), dry, nullptr, &error), 0) << error;
    return read_wav(wav);
}

// One note of a program on port A's channel, alone: what that program sounds like.
std::vector<double> reference(uint8_t channel, uint8_t program, uint8_t note, const TTempDir& dir) {
    TSmfBuilder smf(1, kBeat);
    smf.AddTrack()
        .Program(0, channel, program)
        .NoteOn(0, channel, note, 100)
        .NoteOff(kBeat, channel, note);
    return spectrum(render_dry(smf.Bytes(), dir), 0.05);
}

// A song whose port B strikes at 0.5 s and port A at 2.0 s, rendered dry: the spectra of
// the two strikes, once both are heard.
struct TTwoSnares {
    bool heard = false;
    std::vector<double> portB;
    std::vector<double> portA;
};
TTwoSnares two_snares(const std::vector<uint8_t>& song, const TTempDir& dir) {
    const TWavFile wav = render_dry(song, dir);
    TTwoSnares snares;
    snares.heard = wav.PeakOf(size_t(0.5 * 44100), size_t(1.0 * 44100)) > kSoundPeak &&
                   wav.PeakOf(size_t(2.0 * 44100), size_t(2.5 * 44100)) > kSoundPeak;
    snares.portB = spectrum(wav, 0.55);
    snares.portA = spectrum(wav, 2.05);
    return snares;
}

TEST(OfflineRender, ANoteOnPortBAloneIsHeard) {
    TTempDir dir;
    TSmfBuilder smf(1, kBeat);
    smf.AddTrack()
        .Port(0, 1)
        .Program(0, 0, kPianoProgram)
        .NoteOn(0, 0, 60, 100)
        .NoteOff(kBeat, 0, 60);
    const TWavFile wav = render_dry(smf.Bytes(), dir);
    ASSERT_EQ(wav.problem, "");
    EXPECT_GT(wav.PeakOf(0, wav.Frames()), kSoundPeak);
}

// A flute on port A's channel 1 and a piano on port B's channel 1, both chosen at the
// start before either note: each port keeps its own program, so each note sounds like
// its own instrument.
TEST(OfflineRender, TheSameChannelOnBothPortsKeepsTwoPrograms) {
    TTempDir dir;
    const std::vector<double> flute = reference(0, kFluteProgram, 60, dir);
    const std::vector<double> piano = reference(0, kPianoProgram, 60, dir);
    ASSERT_GT(distance(flute, piano), 0.2) << "the two references must differ to tell anything";

    TSmfBuilder smf(1, kBeat);
    smf.AddTrack()
        .Port(0, 0)
        .Program(0, 0, kFluteProgram)
        .NoteOn(2 * kBeat, 0, 60, 100)
        .NoteOff(kBeat, 0, 60);
    smf.AddTrack()
        .Port(0, 1)
        .Program(0, 0, kPianoProgram)
        .NoteOn(6 * kBeat, 0, 60, 100)
        .NoteOff(kBeat, 0, 60);
    const TWavFile wav = render_dry(smf.Bytes(), dir);
    ASSERT_EQ(wav.problem, "");
    ASSERT_GT(wav.PeakOf(size_t(3.0 * 44100), size_t(3.5 * 44100)), kSoundPeak)
        << "port B's note is heard";
    const std::vector<double> portA = spectrum(wav, 1.05);
    const std::vector<double> portB = spectrum(wav, 3.05);
    EXPECT_LT(distance(portA, flute), distance(portA, piano)) << "port A plays the flute";
    EXPECT_LT(distance(portB, piano), distance(portB, flute)) << "port B plays the piano";
    EXPECT_GT(distance(portA, portB), 0.2);
}

// Channel 10 of port B (the synthesizer's channel 26) is a drum channel like port A's.
TEST(OfflineRender, PortBHasItsOwnDrumChannel) {
    TTempDir dir;
    const std::vector<double> drum = reference(kDrumChannel, 0, kSnare, dir);
    const std::vector<double> piano = reference(0, kPianoProgram, kSnare, dir);
    ASSERT_GT(distance(drum, piano), 0.2);

    TSmfBuilder smf(1, kBeat);
    smf.AddTrack()
        .Port(0, 1)
        .NoteOn(0, kDrumChannel, kSnare, 100)
        .NoteOff(kBeat, kDrumChannel, kSnare);
    const TWavFile wav = render_dry(smf.Bytes(), dir);
    ASSERT_GT(wav.PeakOf(0, wav.Frames()), kSoundPeak) << "port B's drum is heard";
    const std::vector<double> portB = spectrum(wav, 0.05);
    EXPECT_LT(distance(portB, drum), distance(portB, piano));
}

// A GS "use for rhythm part" message through port B makes port B's part 1 a drum part;
// port A's channel 1 stays a melodic one.
TEST(OfflineRender, AGsRhythmPartOnPortBTurnsPortBsChannelIntoDrums) {
    TTempDir dir;
    const std::vector<double> drum = reference(kDrumChannel, 0, kSnare, dir);
    const std::vector<double> piano = reference(0, kPianoProgram, kSnare, dir);
    // Address 40 11 15 (part 1), value 2 (drum map 2), Roland checksum 18.
    const std::vector<uint8_t> rhythmPart{0x41, 0x10, 0x42, 0x12, 0x40,
                                          0x11, 0x15, 0x02, 0x18, 0xF7};

    TSmfBuilder smf(1, kBeat);
    smf.AddTrack().Port(0, 0).NoteOn(4 * kBeat, 0, kSnare, 100).NoteOff(kBeat, 0, kSnare);
    smf.AddTrack()
        .Port(0, 1)
        .SysEx(0, rhythmPart)
        .NoteOn(kBeat, 0, kSnare, 100)
        .NoteOff(kBeat, 0, kSnare);
    const TTwoSnares snares = two_snares(smf.Bytes(), dir);
    ASSERT_TRUE(snares.heard);
    const std::vector<double>& portB = snares.portB;
    const std::vector<double>& portA = snares.portA;
    EXPECT_LT(distance(portB, drum), distance(portB, piano)) << "port B's part 1 plays drums";
    EXPECT_LT(distance(portA, piano), distance(portA, drum)) << "port A's channel 1 does not";
}

// After an XG reset on port B, a bank select of 127 there chooses a drum kit, as an XG
// module reads it; port A, reset to GM, keeps reading bank selects its own way.
TEST(OfflineRender, AfterAnXgResetOnPortBBank127ChoosesDrums) {
    TTempDir dir;
    const std::vector<double> drum = reference(kDrumChannel, 0, kSnare, dir);
    const std::vector<double> piano = reference(0, kPianoProgram, kSnare, dir);
    const std::vector<uint8_t> xgOn{0x43, 0x10, 0x4C, 0x00, 0x00, 0x7E, 0x00, 0xF7};
    const std::vector<uint8_t> gmOn{0x7E, 0x7F, 0x09, 0x01, 0xF7};

    TSmfBuilder smf(1, kBeat);
    smf.AddTrack()
        .Port(0, 0)
        .SysEx(0, gmOn)
        .Control(kBeat / 2, 0, 0, 127)
        .Program(0, 0, kPianoProgram)
        .NoteOn(kBeat * 7 / 2, 0, kSnare, 100)
        .NoteOff(kBeat, 0, kSnare);
    smf.AddTrack()
        .Port(0, 1)
        .SysEx(0, xgOn)
        .Control(kBeat / 2, 0, 0, 127)
        .Program(0, 0, 0)
        .NoteOn(kBeat / 2, 0, kSnare, 100)
        .NoteOff(kBeat, 0, kSnare);
    const TTwoSnares snares = two_snares(smf.Bytes(), dir);
    ASSERT_TRUE(snares.heard);
    const std::vector<double>& portB = snares.portB;
    const std::vector<double>& portA = snares.portA;
    EXPECT_LT(distance(portB, drum), distance(portB, piano)) << "port B: an XG drum kit";
    EXPECT_LT(distance(portA, piano), distance(portA, drum)) << "port A: GM ignores the bank";
}

// A GS reset in port B's part of the song puts port B's channel 1 back to the piano and
// leaves the flute of port A's channel 1 alone.
TEST(OfflineRender, AResetOnPortBResetsPortBOnly) {
    TTempDir dir;
    const std::vector<double> flute = reference(0, kFluteProgram, 60, dir);
    const std::vector<double> piano = reference(0, kPianoProgram, 60, dir);
    const std::vector<uint8_t> gsReset{0x41, 0x10, 0x42, 0x12, 0x40, 0x00, 0x7F, 0x00, 0x41, 0xF7};

    TSmfBuilder smf(1, kBeat);
    smf.AddTrack()
        .Port(0, 0)
        .Program(0, 0, kFluteProgram)
        .NoteOn(kBeat, 0, 60, 100)
        .NoteOff(kBeat, 0, 60);
    smf.AddTrack()
        .Port(0, 1)
        .Program(0, 0, kFluteProgram)
        .SysEx(kBeat / 2, gsReset)
        .NoteOn(kBeat * 9 / 2, 0, 60, 100)
        .NoteOff(kBeat, 0, 60);
    const TWavFile wav = render_dry(smf.Bytes(), dir);
    ASSERT_EQ(wav.problem, "");
    const std::vector<double> portA = spectrum(wav, 0.55);
    const std::vector<double> portB = spectrum(wav, 2.55);
    ASSERT_GT(wav.PeakOf(size_t(2.5 * 44100), size_t(3.0 * 44100)), kSoundPeak)
        << "port B's note is heard";
    EXPECT_LT(distance(portA, flute), distance(portA, piano)) << "port A keeps the flute";
    EXPECT_LT(distance(portB, piano), distance(portB, flute)) << "port B is reset to the piano";
    EXPECT_LE(wav.PeakOf(0, size_t(0.45 * 44100)), kNoisePeak) << "nothing before the first note";
}

}  // namespace
