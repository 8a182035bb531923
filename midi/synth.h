#pragma once
// TSynthConsumer: "Quill Synth", the built-in synthesizer. A local consumer that plays
// what it receives through FluidSynth with a General MIDI sound font, so music sounds
// with no set-up.
//
// Output: the system's audio through the first FluidSynth audio driver that opens, in
// the order pipewire (when this FluidSynth has it), pulseaudio, alsa, jack; a JACK
// server is never started for us. When none opens, or when the owner asks for a WAV
// file, the synthesizer is rendered in real time into a 16-bit stereo 44100 Hz WAV file
// instead (without a path of the owner's, "quill-synth-<pid>.wav" in the temporary
// folder).
//
// The sound font is loaded once, in Create(), with samples loaded as they are first
// needed, so creation takes a fraction of a second and the first note is not delayed.
// Limit: the price is paid later, on the receive thread: the first program change to a
// preset not heard before loads its samples there (5 to 40 ms for FluidR3_GM), and the
// events behind it wait that long.
//
// Two ports: the synthesizer has 32 channels, like a two-port sound module. What a
// producer speaks for port A (TMidiLocalProducer::Port() 0) plays on channels 1-16, port B
// on 17-32, so "Quill Synth" is one consumer that both public ports connect to. Each port
// has its own drum channel (10 and 26), programs and controllers, and a GM, GS, SC-88 or
// XG reset resets the sixteen channels of the port it came through and sets how that
// port reads bank selects (GM ignores them, XG takes bank 120 and above as drums).
//
// Threads: the hooks run on the consumer's receive thread and call FluidSynth, whose API
// is thread-safe; Create, Finish and the destructor belong to the owner's thread. Port B's
// events cross the same queue as port A's, each led by a port tag, so both ports keep the
// order they were sent in.

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "midi/local_consumer.h"

class TSynthConsumer : public TMidiLocalConsumer {
  public:
    static constexpr const char* kName = "Quill Synth";
    // Installed by Debian's fluid-soundfont-gm.
    static constexpr const char* kDefaultSoundFont = "/usr/share/sounds/sf2/FluidR3_GM.sf2";
    // The DriverName() of WAV rendering.
    static constexpr const char* kWavDriver = "wav";
    static constexpr int32_t kSampleRate = 44100;
    static constexpr int kPorts = 2;
    // Real-time, but below the chain and off its core: loading a preset's samples on the
    // first program change takes up to tens of milliseconds, and must hold up only us.
    static constexpr int32_t kReceivePriority = veldan::kRealTimePriority;

    struct TOptions {
        // .sf2 or .sf3 files; a program is taken from the first that has its preset.
        std::vector<std::string> soundFonts = {kDefaultSoundFont};
        // Non-empty: render into this file and leave the audio system alone; a name ending
        // in ".flac" gives a FLAC file (see TAudioFileWriter), any other a WAV file.
        std::string wavPath;
        // A FluidSynth driver name ("pulseaudio", "alsa", ...) tried alone instead of the
        // probe; empty probes. Either way a WAV file takes over when nothing opens.
        std::string audioDriver;
        float gain = 0.2f;  // FluidSynth's master gain, 0 to 10
        bool reverb = true;
        bool chorus = true;
        int32_t polyphony = 256;  // voices at once, 1 to 65535
        // With wavPath: nothing plays by itself; the owner calls the hooks and
        // RenderUntilUs, and the file fills as fast as the synthesizer renders.
        bool offline = false;
    };

    // Owner's thread, never a real-time one: loads the sound font and opens the output.
    // Sets JACK_NO_START_SERVER=1 in the process environment. nullptr with *error set
    // ("cannot load sound font /x/y.sf2") when the synthesizer cannot be made.
    static std::unique_ptr<TSynthConsumer> Create(const TOptions& options, std::string* error);
    ~TSynthConsumer() override;

    // These three: any thread; fixed at creation.
    // "pipewire", "pulseaudio", "alsa", "jack" or kWavDriver.
    const std::string& DriverName() const;
    // The file rendered into; empty when playing through an audio driver.
    const std::string& WavPath() const;
    // system_time() of the WAV file's first frame, to line the file up with the song;
    // 0 without a file.
    int64_t WavStartTime() const;
    // Any thread: system_time() at which the receive thread took the first note-on with a
    // velocity, the start-up's end for a user; 0 before.
    int64_t FirstNoteOnUs() const { return fFirstNoteOnUs.load(std::memory_order_relaxed); }

    // Owner's thread. Lets the output run on for tailUs, so release tails are heard or
    // reach the file, then ends it: the WAV file is complete and closed, the audio
    // driver is shut. Events that arrive later change nothing. Blocks for about tailUs;
    // idempotent. False when writing the WAV file failed.
    bool Finish(int64_t tailUs);
    // Owner's thread: ends a WAV file unfinished and drops it (a cancelled export), so that
    // its path stays as it was. Nothing without a file.
    void DiscardWav();
    // Offline only, owner's thread: renders the file up to songUs after its first frame.
    void RenderUntilUs(int64_t songUs);
    // Offline only, owner's thread: the port (0 A, 1 B) that the hooks called directly
    // from now on come from.
    void SelectPort(int port);

    // Sending side, any thread: port B's events join the queue behind a two-byte port
    // tag, put together in the queue itself, so no length of SysEx allocates.
    void ReceiveOnPort(int port, const uint8_t* data, size_t length, bool atomic,
                       int64_t time) override;
    void ReceivePieces(int port, const uint8_t* head, size_t headLength, const uint8_t* body,
                       size_t bodyLength, bool atomic, int64_t time) override;

    // Receive thread: takes the port tag off and plays the event on that port's channels.
    void Data(const uint8_t* data, size_t length, bool atomic, int64_t time) override;

    // Receive thread.
    void NoteOff(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override;
    void NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override;
    void KeyPressure(uint8_t channel, uint8_t note, uint8_t pressure, int64_t time) override;
    void ControlChange(uint8_t channel, uint8_t controller, uint8_t value, int64_t time) override;
    void ProgramChange(uint8_t channel, uint8_t program, int64_t time) override;
    void ChannelPressure(uint8_t channel, uint8_t pressure, int64_t time) override;
    void PitchBend(uint8_t channel, uint8_t lsb, uint8_t msb, int64_t time) override;
    // data without the leading 0xF0; a closing 0xF7 is optional. GS and XG messages are
    // taken at device id 0x10, the factory setting of the modules songs were made for.
    void SystemExclusive(const uint8_t* data, size_t length, int64_t time) override;

  private:
    struct TEngine;
    explicit TSynthConsumer(std::unique_ptr<TEngine> engine);
    // The synthesizer's channel for a channel of the current port.
    int Channel(uint8_t channel) const;

    std::unique_ptr<TEngine> fEngine;
    // The port of the event being handled: the receive thread's while it plays a tagged
    // event, the owner's in offline rendering (when nothing is sprayed here).
    int fPort = 0;
    std::atomic<int64_t> fFirstNoteOnUs{0};
};
