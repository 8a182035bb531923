#pragma once
// TChaseIndex: what each channel was set to at any tick of a song, so that a seek can send
// the programs, banks, controllers, pitch bends and channel pressures in force there
// ("chase") instead of playing on with whatever the synthesizer was left with.
//
// Built once per song from the reader's walk: the channel-state events in play order, and a
// full snapshot before every kSnapshotEvery of them. A look-up copies the nearest snapshot
// and applies at most kSnapshotEvery - 1 events, whatever the song's length; it allocates
// nothing, so the play thread may do it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

class TSMFProducer;

class TChaseIndex {
  public:
    static constexpr int kPorts = 2;
    static constexpr int kChannels = 16;
    static constexpr int16_t kUnset = -1;
    static constexpr size_t kSnapshotEvery = 4096;

    struct TChannel {
        std::array<int16_t, 128> controllers;
        int16_t program;
        int16_t pitchBend;  // 14 bits, LSB first as sent: (msb << 7) | lsb
        int16_t pressure;
    };
    struct TState {
        std::array<std::array<TChannel, kChannels>, kPorts> ports;
        void Clear();
    };

    // Walks the loaded song; the producer must have no play thread.
    explicit TChaseIndex(TSMFProducer& producer);

    // The state every event before tick left.
    void StateAt(uint32_t tick, TState* state) const;

    size_t CountEvents() const { return fEvents.size(); }

  private:
    struct TEvent {
        uint32_t tick;
        uint8_t port;
        uint8_t status;
        uint8_t data0;
        uint8_t data1;
    };
    class TCollector;
    static void Apply(const TEvent& event, TState* state);

    std::vector<TEvent> fEvents;
    // fSnapshots[i]: the state before fEvents[i * kSnapshotEvery].
    std::vector<TState> fSnapshots;
};
