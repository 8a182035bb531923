#pragma once
// TOutputChain: the two lanes between the producer and the outside world,
//   producer output i -> TNoteOnManager i -> TMidiFilter i -> "Quill MIDI OUT A"/"B".
// Made once and kept for the program's life; only the two public endpoints are
// registered, so only they are visible to other programs. Each lane's filter rides on its
// manager's receive thread, so a lane costs the music one thread hand-off, not two.

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/midi_filter.h"
#include "engine/note_on_manager.h"
#include "engine/smf_producer.h"

class TOutputChain final : public TFadeListener {
  public:
    static constexpr int kPorts = 2;

    // The producer must outlive the chain: the chain hears of its fade's steps.
    explicit TOutputChain(TSMFProducer& producer);
    ~TOutputChain();

    // Play thread: both lanes take the new fade level, in order with what was sent before.
    void FadeStepped(int32_t level) override;

    // "Quill MIDI OUT A" for port 0, "Quill MIDI OUT B" for port 1.
    static std::string PublicName(int port);

    TNoteOnManager& NoteOnManager(int port) { return *fManagers[port & 1]; }
    TMidiFilter& Filter(int port) { return *fFilters[port & 1]; }
    TMidiLocalProducer* PublicOut(int port) { return fFilters[port & 1]->Producer(); }

    // Owner's thread: silences every sounding note on both lanes, after what was sent to
    // them before; returns once both have done it (false if one had not in time).
    bool QuickAllNotesOff();
    // Owner's thread: the channels of port whose note-ons are dropped from now on (bit 0 is
    // channel 1); the notes that sound on a channel just muted are released at once.
    void SetMutedChannels(int port, uint16_t channels);
    void SetKey(int32_t semitones);
    void SetVolume(int32_t percent);
    // Waits until both lanes have passed on everything they were sent; false on timeout.
    bool WaitIdle(int64_t timeoutUs);

  private:
    TSMFProducer& fProducer;
    // Riders go before their hosts: the filters are destroyed first.
    std::array<std::unique_ptr<TNoteOnManager>, kPorts> fManagers;
    std::array<std::unique_ptr<TMidiFilter>, kPorts> fFilters;
};
