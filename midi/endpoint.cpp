#include "midi/endpoint.h"

#include <cstring>
#include <memory>

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

void TMidiConsumer::ReceivePieces(int port, const uint8_t* head, size_t headLength,
                                  const uint8_t* body, size_t bodyLength, bool atomic,
                                  int64_t time) {
    const TJoinedPieces joined(head, headLength, body, bodyLength);
    if (port == 0)
        Receive(joined.Data(), joined.Length(), atomic, time);
    else
        ReceiveOnPort(port, joined.Data(), joined.Length(), atomic, time);
}

TJoinedPieces::TJoinedPieces(const uint8_t* head, size_t headLength, const uint8_t* body,
                             size_t bodyLength)
    : fLength(headLength + bodyLength) {
    if (fLength > kJoinStackBytes) {
        fHeap.reset(new uint8_t[fLength]);
        fData = fHeap.get();
    }
    if (headLength) std::memcpy(fData, head, headLength);
    if (bodyLength) std::memcpy(fData + headLength, body, bodyLength);
}
