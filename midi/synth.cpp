#include "midi/synth.h"

#include <fluidsynth.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

#include "midi/midi_defs.h"
#include "midi/quiet_probe.h"
#include "midi/wav_renderer.h"
#include "veldan/base/clock.h"

namespace {

// Whichever of these opens first carries the sound; PipeWire and PulseAudio share the
// desktop's audio with other programs, plain ALSA may find the device taken.
constexpr const char* kProbeOrder[] = {"pipewire", "pulseaudio", "alsa", "jack"};

constexpr int kGsXgDeviceId = 0x10;
constexpr int kChannelsPerPort = 16;
constexpr int kDrumChannelOfPort = 9;
constexpr int kDrumBank = 128;
// XG bank select MSBs from here up choose a drum kit.
constexpr int kXgFirstDrumBankMsb = 120;
// Leads port B's events in the receive queue. Undefined in MIDI 1.0, so no event of
// port A starts with it.
constexpr uint8_t kPortTag = 0xF5;

// How a port reads bank selects: FluidSynth's own reading (GS: controller 0 is the bank)
// serves GS; the others are kept per port here, since FluidSynth's is one for all.
enum class TBankStyle { kGs, kGm, kXg };

enum class TReset { kNone, kGm, kGs, kXg };

bool is_device(uint8_t id) { return id == kGsXgDeviceId || id == 0x7F; }

// data without 0xF0 and 0xF7.
TReset reset_kind(const uint8_t* data, size_t length) {
    // Universal non-real-time: General MIDI 1 or 2 on.
    if (length == 4 && data[0] == 0x7E && data[2] == 0x09 && (data[3] == 0x01 || data[3] == 0x03))
        return TReset::kGm;
    // Roland: GS reset (40 00 7F) or SC-88 system mode set (00 00 7F), device 10.
    if (length == 9 && data[0] == 0x41 && is_device(data[1]) && data[2] == 0x42 &&
        data[3] == 0x12 && (data[4] == 0x40 || data[4] == 0x00) && data[5] == 0x00 &&
        data[6] == 0x7F)
        return TReset::kGs;
    // Yamaha: XG system on, device 1n.
    if (length == 7 && data[0] == 0x43 && (data[1] & 0xF0) == 0x10 && data[2] == 0x4C &&
        data[3] == 0x00 && data[4] == 0x00 && data[5] == 0x7E && data[6] == 0x00)
        return TReset::kXg;
    return TReset::kNone;
}

// A Roland DT1 message addressed to a part (address 40 1p xx): such messages name one of
// sixteen parts, so FluidSynth would apply port B's to port A's channels.
bool is_gs_part_message(const uint8_t* data, size_t length) {
    return length >= 8 && data[0] == 0x41 && data[2] == 0x42 && data[3] == 0x12 &&
           data[4] == 0x40 && (data[5] & 0xF0) == 0x10;
}

struct TFluidDelete {
    void operator()(fluid_settings_t* settings) const { delete_fluid_settings(settings); }
    void operator()(fluid_synth_t* synth) const { delete_fluid_synth(synth); }
    void operator()(fluid_audio_driver_t* driver) const { delete_fluid_audio_driver(driver); }
};
template <typename T>
using TFluidPtr = std::unique_ptr<T, TFluidDelete>;

std::string default_wav_path() {
    std::error_code error;
    std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    if (error) folder = "/tmp";
    return (folder / ("quill-synth-" + std::to_string(getpid()) + ".wav")).string();
}

}  // namespace

// Members die in reverse order: the render thread stops before the synthesizer it
// renders, the audio driver goes before the synthesizer, the settings last.
struct TSynthConsumer::TEngine {
    TFluidPtr<fluid_settings_t> settings;
    TFluidPtr<fluid_synth_t> synth;
    TFluidPtr<fluid_audio_driver_t> driver;
    std::unique_ptr<TWavRenderer> renderer;
    std::string driverName;
    std::string wavPath;
    // Receive thread (the owner's before it starts and offline).
    std::array<TBankStyle, kPorts> bankStyles{};
    std::array<bool, kPorts * kChannelsPerPort> xgDrums{};

    void ResetPort(int port, TBankStyle style);
    void ControlChange(int channel, uint8_t controller, uint8_t value);
    void GsRhythmPart(int port, const uint8_t* data, size_t length);

    bool MakeSynth(const TOptions& options, std::string* error);
    bool OpenOutput(const TOptions& options, std::string* error);
    void OpenFirstDriver(const std::vector<std::string>& names);
    std::vector<std::string> AvailableDrivers() const;
    bool OpenWav(const std::string& path, std::string* error);
};

bool TSynthConsumer::TEngine::MakeSynth(const TOptions& options, std::string* error) {
    settings.reset(new_fluid_settings());
    if (!settings) {
        *error = "cannot create the synthesizer's settings";
        return false;
    }
    fluid_settings_setnum(settings.get(), "synth.sample-rate", kSampleRate);
    fluid_settings_setnum(settings.get(), "synth.gain", options.gain);
    fluid_settings_setint(settings.get(), "synth.reverb.active", options.reverb ? 1 : 0);
    fluid_settings_setint(settings.get(), "synth.chorus.active", options.chorus ? 1 : 0);
    fluid_settings_setint(settings.get(), "synth.polyphony", options.polyphony);
    // Only the presets' headers are read now; samples follow when a program first needs
    // them (0.15 s instead of 0.6 s for FluidR3_GM).
    fluid_settings_setint(settings.get(), "synth.dynamic-sample-loading", 1);
    // Songs address Roland and Yamaha modules at their factory device id; FluidSynth's
    // default (0) would ignore their GS and XG resets.
    fluid_settings_setint(settings.get(), "synth.device-id", kGsXgDeviceId);
    fluid_settings_setint(settings.get(), "synth.midi-channels", kPorts * kChannelsPerPort);
    fluid_settings_setint(settings.get(), "audio.jack.autoconnect", 1);
    fluid_settings_setstr(settings.get(), "audio.jack.id", kName);
    synth.reset(new_fluid_synth(settings.get()));
    if (!synth) {
        *error = "cannot create the synthesizer";
        return false;
    }
    if (options.soundFonts.empty()) {
        *error = "no sound font";
        return false;
    }
    // FluidSynth looks for a preset from the sound font loaded last: the first goes last.
    for (auto font = options.soundFonts.rbegin(); font != options.soundFonts.rend(); ++font) {
        if (fluid_synth_sfload(synth.get(), font->c_str(), 1) == FLUID_FAILED) {
            *error = "cannot load sound font " + *font;
            return false;
        }
    }
    // FluidSynth makes channel 10 alone a drum channel; port B's channel 10 is one too.
    for (int port = 0; port < kPorts; ++port) ResetPort(port, TBankStyle::kGs);
    return true;
}

void TSynthConsumer::TEngine::ResetPort(int port, TBankStyle style) {
    fluid_synth_t* s = synth.get();
    bankStyles[size_t(port)] = style;
    for (int part = 0; part < kChannelsPerPort; ++part) {
        const int channel = port * kChannelsPerPort + part;
        const bool drum = part == kDrumChannelOfPort;
        fluid_synth_all_sounds_off(s, channel);
        // Modulation, expression, pedals, pitch bend and pressures, as a reset leaves them.
        fluid_synth_cc(s, channel, midi::kCtrlResetAllControllers, 0);
        fluid_synth_cc(s, channel, 7, 100);  // volume
        fluid_synth_cc(s, channel, 10, 64);  // pan
        fluid_synth_cc(s, channel, 91, 40);  // reverb send
        fluid_synth_cc(s, channel, 93, 0);   // chorus send
        fluid_synth_pitch_wheel_sens(s, channel, 2);
        fluid_synth_set_channel_type(s, channel, drum ? CHANNEL_TYPE_DRUM : CHANNEL_TYPE_MELODIC);
        fluid_synth_bank_select(s, channel, drum ? kDrumBank : 0);
        fluid_synth_program_change(s, channel, 0);
        xgDrums[size_t(channel)] = false;
    }
}

void TSynthConsumer::TEngine::ControlChange(int channel, uint8_t controller, uint8_t value) {
    constexpr uint8_t kBankMsb = 0, kBankLsb = 32;
    fluid_synth_t* s = synth.get();
    if (controller != kBankMsb && controller != kBankLsb) {
        fluid_synth_cc(s, channel, controller, value);
        return;
    }
    switch (bankStyles[size_t(channel / kChannelsPerPort)]) {
        case TBankStyle::kGs:
            fluid_synth_cc(s, channel, controller, value);
            return;
        case TBankStyle::kGm:
            return;
        case TBankStyle::kXg:
            if (controller == kBankMsb) {
                const bool drum = value >= kXgFirstDrumBankMsb;
                xgDrums[size_t(channel)] = drum;
                fluid_synth_set_channel_type(s, channel,
                                             drum ? CHANNEL_TYPE_DRUM : CHANNEL_TYPE_MELODIC);
                fluid_synth_bank_select(s, channel, drum ? kDrumBank : 0);
            } else if (!xgDrums[size_t(channel)]) {
                fluid_synth_bank_select(s, channel, value);
            }
            return;
    }
}

// "Use for rhythm part" (40 1p 15 vv): part p of the port becomes a drum part (vv 1 or 2)
// or a melodic one (vv 0). Parts are numbered 1-9, 0 (the tenth), A-F.
void TSynthConsumer::TEngine::GsRhythmPart(int port, const uint8_t* data, size_t length) {
    if (length < 9 || data[6] != 0x15) return;
    const int block = data[5] & 0x0F;
    const int part = block == 0 ? 9 : block <= 9 ? block - 1 : block;
    const int channel = port * kChannelsPerPort + part;
    const bool drum = data[7] != 0;
    fluid_synth_set_channel_type(synth.get(), channel,
                                 drum ? CHANNEL_TYPE_DRUM : CHANNEL_TYPE_MELODIC);
    fluid_synth_bank_select(synth.get(), channel, drum ? kDrumBank : 0);
    fluid_synth_program_change(synth.get(), channel, 0);
}

bool TSynthConsumer::TEngine::OpenOutput(const TOptions& options, std::string* error) {
    if (options.wavPath.empty()) {
        // Probing JACK without a server would otherwise start one, which takes seconds.
        setenv("JACK_NO_START_SERVER", "1", 1);
        TQuietProbe quiet;
        if (options.audioDriver.empty()) {
            OpenFirstDriver({std::begin(kProbeOrder), std::end(kProbeOrder)});
        } else {
            OpenFirstDriver({options.audioDriver});
        }
        if (driver) return true;
    }
    return OpenWav(options.wavPath.empty() ? default_wav_path() : options.wavPath, error);
}

void TSynthConsumer::TEngine::OpenFirstDriver(const std::vector<std::string>& names) {
    std::vector<std::string> available = AvailableDrivers();
    for (const std::string& name : names) {
        // Asking for a driver this FluidSynth was built without only logs an error.
        if (std::find(available.begin(), available.end(), name) == available.end()) continue;
        fluid_settings_setstr(settings.get(), "audio.driver", name.c_str());
        driver.reset(new_fluid_audio_driver(settings.get(), synth.get()));
        if (driver) {
            driverName = name;
            return;
        }
    }
}

std::vector<std::string> TSynthConsumer::TEngine::AvailableDrivers() const {
    std::vector<std::string> names;
    fluid_settings_foreach_option(
        settings.get(), "audio.driver", &names, [](void* data, const char*, const char* option) {
            static_cast<std::vector<std::string>*>(data)->push_back(option);
        });
    return names;
}

bool TSynthConsumer::TEngine::OpenWav(const std::string& path, std::string* error) {
    renderer = std::make_unique<TWavRenderer>(synth.get(), kSampleRate);
    if (!renderer->Open(path, error)) return false;
    driverName = kWavDriver;
    wavPath = path;
    return true;
}

std::unique_ptr<TSynthConsumer> TSynthConsumer::Create(const TOptions& options,
                                                       std::string* error) {
    auto engine = std::make_unique<TEngine>();
    std::string failure;
    if (!engine->MakeSynth(options, &failure) || !engine->OpenOutput(options, &failure)) {
        if (error) *error = failure;
        return nullptr;
    }
    std::unique_ptr<TSynthConsumer> consumer(new TSynthConsumer(std::move(engine)));
    if (consumer->fEngine->renderer && !options.offline) consumer->fEngine->renderer->Start();
    return consumer;
}

TSynthConsumer::TSynthConsumer(std::unique_ptr<TEngine> engine)
    : TMidiLocalConsumer(kName, kDefaultQueueCapacity, kReceivePriority),
      fEngine(std::move(engine)) {}

TSynthConsumer::~TSynthConsumer() { StopReceiving(); }

const std::string& TSynthConsumer::DriverName() const { return fEngine->driverName; }

const std::string& TSynthConsumer::WavPath() const { return fEngine->wavPath; }

int64_t TSynthConsumer::WavStartTime() const {
    return fEngine->renderer ? fEngine->renderer->StartTime() : 0;
}

void TSynthConsumer::RenderUntilUs(int64_t songUs) {
    if (fEngine->renderer) fEngine->renderer->RenderUntilUs(songUs);
}

bool TSynthConsumer::Finish(int64_t tailUs) {
    if (fEngine->renderer) return fEngine->renderer->Finish(tailUs);
    if (fEngine->driver) {
        std::this_thread::sleep_for(std::chrono::microseconds(std::max<int64_t>(tailUs, 0)));
        fEngine->driver.reset();
    }
    return true;
}

void TSynthConsumer::SelectPort(int port) { fPort = port == 1 ? 1 : 0; }

void TSynthConsumer::ReceiveOnPort(int port, const uint8_t* data, size_t length, bool atomic,
                                   int64_t time) {
    ReceivePieces(port, nullptr, 0, data, length, atomic, time);
}

void TSynthConsumer::ReceivePieces(int port, const uint8_t* head, size_t headLength,
                                   const uint8_t* body, size_t bodyLength, bool atomic,
                                   int64_t time) {
    if (port != 1 || headLength + bodyLength == 0) {
        TMidiLocalConsumer::ReceivePieces(0, head, headLength, body, bodyLength, atomic, time);
        return;
    }
    const uint8_t tag[2] = {kPortTag, uint8_t(port)};
    Enqueue({{tag, sizeof tag}, {head, headLength}, {body, bodyLength}}, atomic, time);
}

void TSynthConsumer::Data(const uint8_t* data, size_t length, bool atomic, int64_t time) {
    if (length >= 3 && data[0] == kPortTag && data[1] < kPorts) {
        fPort = data[1];
        TMidiLocalConsumer::Data(data + 2, length - 2, atomic, time);
        fPort = 0;
        return;
    }
    TMidiLocalConsumer::Data(data, length, atomic, time);
}

int TSynthConsumer::Channel(uint8_t channel) const {
    return fPort * kChannelsPerPort + (channel & 0x0F);
}

void TSynthConsumer::DiscardWav() {
    if (fEngine->renderer) fEngine->renderer->Discard();
}

void TSynthConsumer::NoteOff(uint8_t channel, uint8_t note, uint8_t /*velocity*/,
                             int64_t /*time*/) {
    fluid_synth_noteoff(fEngine->synth.get(), Channel(channel), note);
}

void TSynthConsumer::NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t /*time*/) {
    if (velocity != 0 && fFirstNoteOnUs.load(std::memory_order_relaxed) == 0)
        fFirstNoteOnUs.store(veldan::system_time(), std::memory_order_relaxed);
    fluid_synth_noteon(fEngine->synth.get(), Channel(channel), note, velocity);
}

void TSynthConsumer::KeyPressure(uint8_t channel, uint8_t note, uint8_t pressure,
                                 int64_t /*time*/) {
    fluid_synth_key_pressure(fEngine->synth.get(), Channel(channel), note, pressure);
}

void TSynthConsumer::ControlChange(uint8_t channel, uint8_t controller, uint8_t value,
                                   int64_t /*time*/) {
    fEngine->ControlChange(Channel(channel), controller, value);
}

void TSynthConsumer::ProgramChange(uint8_t channel, uint8_t program, int64_t /*time*/) {
    fluid_synth_program_change(fEngine->synth.get(), Channel(channel), program);
}

void TSynthConsumer::ChannelPressure(uint8_t channel, uint8_t pressure, int64_t /*time*/) {
    fluid_synth_channel_pressure(fEngine->synth.get(), Channel(channel), pressure);
}

void TSynthConsumer::PitchBend(uint8_t channel, uint8_t lsb, uint8_t msb, int64_t /*time*/) {
    fluid_synth_pitch_bend(fEngine->synth.get(), Channel(channel),
                           (msb & 0x7F) << 7 | (lsb & 0x7F));
}

void TSynthConsumer::SystemExclusive(const uint8_t* data, size_t length, int64_t /*time*/) {
    if (length > 0 && data[length - 1] == midi::kSysExEnd) --length;
    if (length == 0) return;
    switch (reset_kind(data, length)) {
        case TReset::kGm:
            fEngine->ResetPort(fPort, TBankStyle::kGm);
            return;
        case TReset::kGs:
            fEngine->ResetPort(fPort, TBankStyle::kGs);
            return;
        case TReset::kXg:
            fEngine->ResetPort(fPort, TBankStyle::kXg);
            return;
        case TReset::kNone:
            break;
    }
    if (is_gs_part_message(data, length)) {
        if (is_device(data[1])) fEngine->GsRhythmPart(fPort, data, length);
        return;
    }
    fluid_synth_sysex(fEngine->synth.get(), reinterpret_cast<const char*>(data), int(length),
                      nullptr, nullptr, nullptr, 0);
}
