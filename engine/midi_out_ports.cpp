#include "engine/midi_out_ports.h"

#include "midi/midi_defs.h"
#include "midi/roster.h"

int32_t TMidiOutPorts::ConnectMidiOut(int port, int32_t id) {
    TMidiConsumer* consumer = TMidiRoster::Default().FindConsumer(id);
    if (!consumer) return -1;
    fChain.PublicOut(port)->Connect(consumer);
    return 0;
}

bool TMidiOutPorts::ToggleMidiOut(int port, int32_t id) {
    TMidiConsumer* consumer = TMidiRoster::Default().FindConsumer(id);
    if (!consumer) return false;
    TMidiLocalProducer* out = fChain.PublicOut(port);
    if (!out->IsConnected(consumer)) {
        out->Connect(consumer);
    } else {
        out->Disconnect(consumer);
        MuteMidiOut(id, port);
    }
    return true;
}

void TMidiOutPorts::MuteMidiOut(int32_t id, int port) {
    TMidiConsumer* consumer = TMidiRoster::Default().FindConsumer(id);
    if (!consumer) return;
    fSilencer.SetPort(port);
    fSilencer.Connect(consumer);
    for (uint8_t channel = 0; channel < midi::kChannels; ++channel) {
        fSilencer.SprayControlChange(channel, midi::kCtrlAllNotesOff, 0, 0);
        fSilencer.SprayControlChange(channel, midi::kCtrlAllSoundOff, 0, 0);
        fSilencer.SprayControlChange(channel, midi::kCtrlResetAllControllers, 0, 0);
    }
    fSilencer.Disconnect(consumer);
}

void TMidiOutPorts::MuteAllMidiOut() {
    for (int port = 0; port < TOutputChain::kPorts; ++port)
        for (TMidiConsumer* consumer : fChain.PublicOut(port)->Connections())
            MuteMidiOut(consumer->ID(), port);
}

bool TMidiOutPorts::IsPortConnected(int port) const {
    return !fChain.PublicOut(port)->Connections().empty();
}
