#include "midi/endpoint.h"

#include "midi/local_producer.h"
#include "midi/roster.h"

TMidiEndpoint::TMidiEndpoint(std::string name)
    : fID(TMidiRoster::Default().NewID()), fName(std::move(name)) {}

TMidiEndpoint::~TMidiEndpoint() { Unregister(); }

bool TMidiEndpoint::IsRegistered() const { return TMidiRoster::Default().IsRegistered(this); }

int32_t TMidiEndpoint::Register() {
    if (IsRegistered()) return -1;
    TMidiRoster::Default().Register(this);
    return 0;
}

int32_t TMidiEndpoint::Unregister() {
    if (!IsRegistered()) return -1;
    TMidiRoster::Default().Unregister(this);
    return 0;
}

TMidiConsumer::~TMidiConsumer() { DisconnectAllProducers(); }

void TMidiConsumer::DisconnectAllProducers() {
    for (;;) {
        TMidiLocalProducer* producer;
        {
            std::lock_guard lock(fProducersLock);
            if (fProducers.empty()) return;
            producer = fProducers.back();
        }
        producer->Disconnect(this);
    }
}
