#pragma once
// TMidiOutPorts: connecting the two public ports to consumers of the roster, and
// silencing a consumer when it is let go, so no note hangs there whatever the note
// tables hold. All calls from the owner's thread.
//
// The public ports carry no icons: neither the ALSA sequencer nor JACK ports have a place
// for an endpoint's picture, so there is nothing to set where the original system drew
// the program's icon beside its ports.

#include <cstdint>

#include "engine/output_chain.h"
#include "midi/local_producer.h"

class TMidiOutPorts {
  public:
    explicit TMidiOutPorts(TOutputChain& chain) : fChain(chain) {}

    // 0, or -1 when the roster has no consumer with that id.
    int32_t ConnectMidiOut(int port, int32_t id);
    // A port's menu item: connects when not connected, else disconnects and silences the
    // consumer. False when the consumer has gone from the roster (nothing happens then).
    bool ToggleMidiOut(int port, int32_t id);
    // Controllers 123, 120 and 121 on all 16 channels, from a producer of its own that is
    // connected for just that and speaks for port (so a consumer with channels per port
    // silences that port's).
    void MuteMidiOut(int32_t id, int port = 0);
    // Every consumer of both ports, once per connection, as the port it is connected to.
    void MuteAllMidiOut();
    // The port indicator: lit while the port has at least one connection.
    bool IsPortConnected(int port) const;

  private:
    TOutputChain& fChain;
    TMidiLocalProducer fSilencer{"DisconnectProducer"};
};
