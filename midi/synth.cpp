#include "midi/synth.h"

#include <fluidsynth.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "midi/midi_defs.h"
#include "midi/quiet_probe.h"
#include "midi/wav_renderer.h"

namespace {

// Whichever of these opens first carries the sound; PipeWire and PulseAudio share the
// desktop's audio with other programs, plain ALSA may find the device taken.
constexpr const char* kProbeOrder[] = {"pipewire", "pulseaudio", "alsa", "jack"};

constexpr int kGsXgDeviceId = 0x10;

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
    return true;
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

void TSynthConsumer::DiscardWav() {
    if (fEngine->renderer) fEngine->renderer->Discard();
}

void TSynthConsumer::NoteOff(uint8_t channel, uint8_t note, uint8_t /*velocity*/,
                             int64_t /*time*/) {
    fluid_synth_noteoff(fEngine->synth.get(), channel, note);
}

void TSynthConsumer::NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t /*time*/) {
    fluid_synth_noteon(fEngine->synth.get(), channel, note, velocity);
}

void TSynthConsumer::KeyPressure(uint8_t channel, uint8_t note, uint8_t pressure,
                                 int64_t /*time*/) {
    fluid_synth_key_pressure(fEngine->synth.get(), channel, note, pressure);
}

void TSynthConsumer::ControlChange(uint8_t channel, uint8_t controller, uint8_t value,
                                   int64_t /*time*/) {
    fluid_synth_cc(fEngine->synth.get(), channel, controller, value);
}

void TSynthConsumer::ProgramChange(uint8_t channel, uint8_t program, int64_t /*time*/) {
    fluid_synth_program_change(fEngine->synth.get(), channel, program);
}

void TSynthConsumer::ChannelPressure(uint8_t channel, uint8_t pressure, int64_t /*time*/) {
    fluid_synth_channel_pressure(fEngine->synth.get(), channel, pressure);
}

void TSynthConsumer::PitchBend(uint8_t channel, uint8_t lsb, uint8_t msb, int64_t /*time*/) {
    fluid_synth_pitch_bend(fEngine->synth.get(), channel, (msb & 0x7F) << 7 | (lsb & 0x7F));
}

void TSynthConsumer::SystemExclusive(const uint8_t* data, size_t length, int64_t /*time*/) {
    if (length > 0 && data[length - 1] == midi::kSysExEnd) --length;
    if (length == 0) return;
    fluid_synth_sysex(fEngine->synth.get(), reinterpret_cast<const char*>(data), int(length),
                      nullptr, nullptr, nullptr, 0);
}
