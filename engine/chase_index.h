#pragma once
// TChaseIndex: what each channel was set to at any tick of a song, so that a seek can send
// the programs, banks, controllers, registered and non-registered parameters, pitch bends
// and channel pressures in force there ("chase") instead of playing on with whatever the
// synthesizer was left with.
//
// Built once per song from the reader's walk: the channel-state events in play order, and a
// full snapshot before every kSnapshotEvery of them. A look-up copies the nearest snapshot
// and applies at most kSnapshotEvery - 1 events, whatever the song's length; into a state
// made ready by Prepare() it allocates nothing, so the play thread may do it.
//
// Parameters (RPN and NRPN) are kept per parameter, not as controllers: data entry (6, 38)
// means nothing without the select (101/100 or 99/98) that was in force when it came, so
// each parameter a song writes is restored as its select, then its data, and the select in
// force at the target goes last. Data increment and decrement (96, 97) are acts, not
// settings, and are not replayed. Limit: Reset All Controllers (121) is an act here too;
// what it reset before the target is restored as it was before the reset.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

class TSMFProducer;
class TSMFEventSink;

class TChaseIndex {
  public:
    static constexpr int kPorts = 2;
    static constexpr int kChannels = 16;
    static constexpr int16_t kUnset = -1;
    static constexpr size_t kSnapshotEvery = 4096;
    static constexpr int16_t kRpn = 0;
    static constexpr int16_t kNrpn = 1;

    struct TChannel {
        // Raw controller values, the selects (98-101) and data entry (6, 38) among them.
        std::array<int16_t, 128> controllers;
        int16_t program;
        int16_t pitchBend;  // 14 bits, LSB first as sent: (msb << 7) | lsb
        int16_t pressure;
        int16_t selectKind;     // kRpn or kNrpn: the select written last, or kUnset
        int32_t lastParameter;  // the parameter data entry went to last, or -1
    };
    // The data entry one parameter was given last.
    struct TParameterValue {
        int16_t msb;           // data entry MSB (6)
        int16_t lsbBeforeMsb;  // the channel's data entry LSB when that MSB came
        int16_t lsb;           // data entry LSB (38) written after that MSB
    };
    struct TState {
        std::array<std::array<TChannel, kChannels>, kPorts> ports;
        std::vector<TParameterValue> parameters;  // by the index's parameter number
        void Clear();
    };

    // Walks the loaded song; the producer must have no play thread.
    explicit TChaseIndex(TSMFProducer& producer);

    // Gives state room for this index's parameters; allocates, so not on the play thread.
    void Prepare(TState* state) const;
    // The state every event before tick left.
    void StateAt(uint32_t tick, TState* state) const;
    // Sends state through sink as channel messages at tick, in an order that leaves a
    // synthesizer as the events that made it did.
    void Send(const TState& state, uint32_t tick, TSMFEventSink& sink) const;

    size_t CountEvents() const { return fEvents.size(); }
    size_t CountParameters() const { return fParameters.size(); }

  private:
    struct TEvent {
        uint32_t tick;
        uint8_t port;
        uint8_t status;
        uint8_t data0;
        uint8_t data1;
        int32_t parameter;  // data entry: the parameter it went to; else -1
    };
    // A parameter as selected: kind, select MSB and LSB (kUnset when never written).
    struct TParameter {
        uint8_t port;
        uint8_t channel;
        int16_t kind;
        int16_t msb;
        int16_t lsb;
    };
    class TCollector;
    static void Apply(const TEvent& event, TState* state);
    static void Copy(const TState& from, TState* to);
    void SendParameter(const TState& state, size_t parameter, uint32_t tick,
                       TSMFEventSink& sink) const;

    std::vector<TEvent> fEvents;
    // Sorted by port, channel, kind and number: each channel's parameters lie together,
    // from fFirstParameter[port][channel] up to that of the next channel.
    std::vector<TParameter> fParameters;
    std::array<std::array<uint32_t, kChannels + 1>, kPorts> fFirstParameter{};
    // fSnapshots[i]: the state before fEvents[i * kSnapshotEvery].
    std::vector<TState> fSnapshots;
};
