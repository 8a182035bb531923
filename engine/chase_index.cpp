#include "engine/chase_index.h"

#include <algorithm>

#include "engine/smf_producer.h"
#include "midi/midi_defs.h"

namespace {

constexpr uint8_t kBankSelectMsb = 0;
constexpr uint8_t kDataEntryMsb = 6;
constexpr uint8_t kBankSelectLsb = 32;
constexpr uint8_t kDataEntryLsb = 38;
constexpr uint8_t kDataIncrement = 96;
constexpr uint8_t kDataDecrement = 97;
constexpr uint8_t kNrpnLsb = 98;
constexpr uint8_t kNrpnMsb = 99;
constexpr uint8_t kRpnLsb = 100;
constexpr uint8_t kRpnMsb = 101;
constexpr uint8_t kFirstModeMessage = 120;
constexpr int16_t kNull = 127;

bool is_select(uint8_t number) { return number >= kNrpnLsb && number <= kRpnMsb; }

// The select controllers of a kind: MSB, LSB.
uint8_t select_msb(int16_t kind) { return kind == TChaseIndex::kRpn ? kRpnMsb : kNrpnMsb; }
uint8_t select_lsb(int16_t kind) { return kind == TChaseIndex::kRpn ? kRpnLsb : kNrpnLsb; }

// A parameter as one number for sorting: port, channel, kind, then its select halves.
uint32_t parameter_key(uint32_t port, uint32_t channel, int16_t kind, int16_t msb, int16_t lsb) {
    return port << 24 | channel << 20 | uint32_t(kind) << 16 | uint32_t(msb & 0xFF) << 8 |
           uint32_t(lsb & 0xFF);
}

// One channel message for the sink, as the reader would have handed it over.
void send_channel_message(TSMFEventSink& sink, uint32_t tick, uint8_t port, uint8_t status,
                          uint8_t data0, uint8_t data1) {
    const uint8_t kind = status & 0xF0;
    const uint32_t length =
        (kind == midi::kProgramChange || kind == midi::kChannelPressure) ? 1 : 2;
    TSMFEvent event{};
    event.tick = tick;
    event.port = port;
    event.status = status;
    event.channelData[0] = data0;
    event.channelData[1] = data1;
    event.data = event.channelData;
    event.length = length;
    sink.Event(event);
}

}  // namespace

// Keeps the events that leave a lasting channel state, and which parameter each data
// entry went to.
class TChaseIndex::TCollector : public TSMFEventSink {
  public:
    explicit TCollector(TChaseIndex& index) : fIndex(index) { fState.Clear(); }

    void Event(const TSMFEvent& e) override {
        switch (e.status & 0xF0) {
            case midi::kControlChange:
                // Channel-mode messages (all sound off, reset, local, omni, poly) and
                // data increment and decrement are acts, not settings.
                if (e.data[0] >= kFirstModeMessage || e.data[0] == kDataIncrement ||
                    e.data[0] == kDataDecrement)
                    return;
                break;
            case midi::kProgramChange:
            case midi::kChannelPressure:
            case midi::kPitchBend:
                break;
            default:
                return;
        }
        TEvent event{e.tick,
                     uint8_t(e.port & 1),
                     e.status,
                     uint8_t(e.data[0] & 0x7F),
                     uint8_t(e.length > 1 ? e.data[1] : 0),
                     -1};
        uint32_t key = kNoKey;
        if ((e.status & 0xF0) == midi::kControlChange &&
            (event.data0 == kDataEntryMsb || event.data0 == kDataEntryLsb)) {
            const TChannel& channel = fState.ports[event.port][event.status & 0x0F];
            const int16_t kind = channel.selectKind;
            if (kind != kUnset) {
                const int16_t msb = channel.controllers[select_msb(kind)];
                const int16_t lsb = channel.controllers[select_lsb(kind)];
                // The null parameter takes no data.
                if (!(msb == kNull && lsb == kNull))
                    key = parameter_key(event.port, event.status & 0x0F, kind, msb, lsb);
            }
        }
        fIndex.fEvents.push_back(event);
        keys.push_back(key);
        // Only the selects matter while collecting; parameters are resolved afterwards.
        Apply(event, &fState);
    }

    static constexpr uint32_t kNoKey = 0xFFFFFFFF;
    std::vector<uint32_t> keys;  // per event: its parameter's key, or kNoKey

  private:
    TChaseIndex& fIndex;
    TState fState;
};

void TChaseIndex::TState::Clear() {
    for (auto& port : ports)
        for (TChannel& channel : port) {
            channel.controllers.fill(kUnset);
            channel.program = kUnset;
            channel.pitchBend = kUnset;
            channel.pressure = kUnset;
            channel.selectKind = kUnset;
            channel.lastParameter = -1;
        }
    std::fill(parameters.begin(), parameters.end(), TParameterValue{kUnset, kUnset, kUnset});
}

TChaseIndex::TChaseIndex(TSMFProducer& producer) {
    TCollector collector(*this);
    producer.Walk(collector);

    // Every parameter the song gives data to, each once, in key order.
    std::vector<uint32_t> keys;
    for (uint32_t key : collector.keys)
        if (key != TCollector::kNoKey) keys.push_back(key);
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    fParameters.reserve(keys.size());
    for (uint32_t key : keys) {
        auto half = [](uint32_t byte) { return byte == 0xFF ? kUnset : int16_t(byte); };
        fParameters.push_back({uint8_t(key >> 24), uint8_t((key >> 20) & 0x0F),
                               int16_t((key >> 16) & 0x0F), half((key >> 8) & 0xFF),
                               half(key & 0xFF)});
    }
    // Channel 16 of a port keys as channel 0 of the next: the end of the port's last range.
    for (int port = 0; port < kPorts; ++port)
        for (int channel = 0; channel <= kChannels; ++channel) {
            const uint32_t first = parameter_key(uint32_t(port), uint32_t(channel), 0, 0, 0);
            fFirstParameter[port][channel] =
                uint32_t(std::lower_bound(keys.begin(), keys.end(), first) - keys.begin());
        }
    for (size_t i = 0; i < fEvents.size(); ++i)
        if (collector.keys[i] != TCollector::kNoKey)
            fEvents[i].parameter = int32_t(
                std::lower_bound(keys.begin(), keys.end(), collector.keys[i]) - keys.begin());

    TState state;
    Prepare(&state);
    state.Clear();
    for (size_t i = 0; i < fEvents.size(); ++i) {
        if (i % kSnapshotEvery == 0) fSnapshots.push_back(state);
        Apply(fEvents[i], &state);
    }
}

void TChaseIndex::Prepare(TState* state) const {
    state->parameters.assign(fParameters.size(), TParameterValue{kUnset, kUnset, kUnset});
}

void TChaseIndex::Apply(const TEvent& event, TState* state) {
    TChannel& channel = state->ports[event.port][event.status & 0x0F];
    switch (event.status & 0xF0) {
        case midi::kControlChange: {
            const uint8_t number = event.data0;
            if (event.parameter >= 0 && size_t(event.parameter) < state->parameters.size()) {
                TParameterValue& value = state->parameters[size_t(event.parameter)];
                if (number == kDataEntryMsb) {
                    value.lsbBeforeMsb = channel.controllers[kDataEntryLsb];
                    value.msb = event.data1;
                    value.lsb = kUnset;  // an MSB starts a new value; its LSB may follow
                } else {
                    value.lsb = event.data1;
                }
                channel.lastParameter = event.parameter;
            }
            channel.controllers[number] = event.data1;
            if (number == kRpnMsb || number == kRpnLsb) channel.selectKind = kRpn;
            if (number == kNrpnMsb || number == kNrpnLsb) channel.selectKind = kNrpn;
            break;
        }
        case midi::kProgramChange:
            channel.program = event.data0;
            break;
        case midi::kChannelPressure:
            channel.pressure = event.data0;
            break;
        case midi::kPitchBend:
            channel.pitchBend = int16_t(event.data1 << 7 | event.data0);
            break;
        default:
            break;
    }
}

void TChaseIndex::Copy(const TState& from, TState* to) {
    to->ports = from.ports;
    if (to->parameters.size() == from.parameters.size())
        std::copy(from.parameters.begin(), from.parameters.end(), to->parameters.begin());
    else
        to->parameters = from.parameters;  // a state not made ready by Prepare()
}

void TChaseIndex::StateAt(uint32_t tick, TState* state) const {
    // The first event at or after tick stays out.
    const auto end = std::lower_bound(fEvents.begin(), fEvents.end(), tick,
                                      [](const TEvent& e, uint32_t t) { return e.tick < t; });
    const size_t count = size_t(end - fEvents.begin());
    if (fSnapshots.empty()) {
        if (state->parameters.size() != fParameters.size()) Prepare(state);
        state->Clear();
        return;
    }
    const size_t snapshot = std::min(count / kSnapshotEvery, fSnapshots.size() - 1);
    Copy(fSnapshots[snapshot], state);
    for (size_t i = snapshot * kSnapshotEvery; i < count; ++i) Apply(fEvents[i], state);
}

void TChaseIndex::SendParameter(const TState& state, size_t parameter, uint32_t tick,
                                TSMFEventSink& sink) const {
    const TParameter& p = fParameters[parameter];
    const TParameterValue& value = state.parameters[parameter];
    if (value.msb == kUnset && value.lsb == kUnset) return;  // not written before tick
    const uint8_t cc = uint8_t(midi::kControlChange | p.channel);
    if (p.msb != kUnset)
        send_channel_message(sink, tick, p.port, cc, select_msb(p.kind), uint8_t(p.msb));
    if (p.lsb != kUnset)
        send_channel_message(sink, tick, p.port, cc, select_lsb(p.kind), uint8_t(p.lsb));
    if (value.msb != kUnset) {
        // The LSB in force when the MSB came goes first: some synthesizers (FluidSynth)
        // read the value from both when the MSB arrives. Those that follow the MIDI rule
        // take the MSB as a new value and the LSB written after it.
        const int16_t before = value.lsbBeforeMsb == kUnset ? 0 : value.lsbBeforeMsb;
        send_channel_message(sink, tick, p.port, cc, kDataEntryLsb, uint8_t(before));
        send_channel_message(sink, tick, p.port, cc, kDataEntryMsb, uint8_t(value.msb));
    }
    if (value.lsb != kUnset)
        send_channel_message(sink, tick, p.port, cc, kDataEntryLsb, uint8_t(value.lsb));
}

void TChaseIndex::Send(const TState& state, uint32_t tick, TSMFEventSink& sink) const {
    const bool parametersReady = state.parameters.size() == fParameters.size();
    for (uint8_t port = 0; port < kPorts; ++port) {
        for (uint8_t number = 0; number < kChannels; ++number) {
            const TChannel& channel = state.ports[port][number];
            const uint8_t cc = uint8_t(midi::kControlChange | number);
            auto controller = [&](uint8_t n) {
                if (channel.controllers[n] != kUnset)
                    send_channel_message(sink, tick, port, cc, n, uint8_t(channel.controllers[n]));
            };
            // The bank goes before the program that it selects from.
            controller(kBankSelectMsb);
            controller(kBankSelectLsb);
            if (channel.program != kUnset)
                send_channel_message(sink, tick, port, uint8_t(midi::kProgramChange | number),
                                     uint8_t(channel.program), 0);
            for (uint8_t n = 0; n < kFirstModeMessage; ++n)
                if (n != kBankSelectMsb && n != kBankSelectLsb && n != kDataEntryMsb &&
                    n != kDataEntryLsb && !is_select(n))
                    controller(n);
            if (parametersReady) {
                // The parameter written last goes last, so the data entry controllers
                // end as the song left them.
                const uint32_t end = fFirstParameter[port][number + 1];
                for (uint32_t p = fFirstParameter[port][number]; p < end; ++p)
                    if (int32_t(p) != channel.lastParameter) SendParameter(state, p, tick, sink);
                if (channel.lastParameter >= 0)
                    SendParameter(state, size_t(channel.lastParameter), tick, sink);
            }
            // The select in force at tick goes last, after the other kind's.
            if (channel.selectKind != kUnset) {
                const int16_t other = channel.selectKind == kRpn ? kNrpn : kRpn;
                for (int16_t kind : {other, channel.selectKind}) {
                    controller(select_msb(kind));
                    controller(select_lsb(kind));
                }
            }
            if (channel.pitchBend != kUnset)
                send_channel_message(sink, tick, port, uint8_t(midi::kPitchBend | number),
                                     uint8_t(channel.pitchBend & 0x7F),
                                     uint8_t(channel.pitchBend >> 7));
            if (channel.pressure != kUnset)
                send_channel_message(sink, tick, port, uint8_t(midi::kChannelPressure | number),
                                     uint8_t(channel.pressure), 0);
        }
    }
}
