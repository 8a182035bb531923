#include "midi/alsa_backend.h"

#include <cerrno>
#include <cstdio>

#include "midi/alsa_encoder.h"

class TAlsaBackend::TAlsaPort final : public TMidiSystemBackend::TPort {
  public:
    TAlsaPort(TAlsaBackend& backend, std::string name, int port)
        : TPort(backend, std::move(name)), fAlsa(backend), fPort(port) {}
    ~TAlsaPort() override { snd_seq_delete_simple_port(fAlsa.fSeq, fPort); }

    int Number() const { return fPort; }

    // Spraying threads; never waits on a receiver (non-blocking handle, direct delivery).
    void Send(const uint8_t* data, size_t length, int64_t) override {
        std::lock_guard lock(fAlsa.fWriteLock);
        fEncoder.Encode(data, length, [this](snd_seq_event_t* event) {
            snd_seq_ev_set_source(event, fPort);
            snd_seq_ev_set_subs(event);
            snd_seq_ev_set_direct(event);
            // -ENOENT: a subscriber that has just died. The sequencer has not yet dropped its
            // subscription; the roster tells of its loss, and it is no slow receiver.
            const int result = snd_seq_event_output_direct(fAlsa.fSeq, event);
            if (result < 0 && result != -ENOENT) NoteDrop();
        });
    }

  private:
    TAlsaBackend& fAlsa;
    const int fPort;
    TAlsaEncoder fEncoder;
};

namespace {
void quiet(const char*, int, const char*, int, const char*, ...) {}
}  // namespace

std::unique_ptr<TAlsaBackend> TAlsaBackend::Open(std::string* error) {
    snd_seq_t* seq = nullptr;
    // alsa-lib would print the failure; the status line says it once instead.
    snd_lib_error_set_handler(quiet);
    int opened = snd_seq_open(&seq, "default", SND_SEQ_OPEN_DUPLEX, SND_SEQ_NONBLOCK);
    snd_lib_error_set_handler(nullptr);
    if (opened < 0) {
        *error = kNotAvailable;
        return nullptr;
    }
    snd_seq_set_client_name(seq, kClientName);
    std::unique_ptr<TAlsaBackend> backend(new TAlsaBackend(seq));
    // Our own ear for announcements; no one else may subscribe to it.
    backend->fAnnouncePort = snd_seq_create_simple_port(
        seq, "Announcements", SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_NO_EXPORT,
        SND_SEQ_PORT_TYPE_APPLICATION);
    if (backend->fAnnouncePort < 0 ||
        snd_seq_connect_from(seq, backend->fAnnouncePort, SND_SEQ_CLIENT_SYSTEM,
                             SND_SEQ_PORT_SYSTEM_ANNOUNCE) < 0) {
        *error = "ALSA sequencer: not available (cannot follow its announcements)";
        return nullptr;
    }
    return backend;
}

TAlsaBackend::TAlsaBackend(snd_seq_t* seq) : fSeq(seq), fClient(snd_seq_client_id(seq)) {}

TAlsaBackend::~TAlsaBackend() {
    Stop();
    snd_seq_close(fSeq);
}

std::string TAlsaBackend::Status() const {
    return "ALSA sequencer: client " + std::to_string(fClient) + " \"" + kClientName + "\"";
}

std::string TAlsaBackend::Address(int client, int port) {
    return std::to_string(client) + ":" + std::to_string(port);
}

std::string TAlsaBackend::PeerName(const std::string& client, const std::string& port, int clientID,
                                   int portID) {
    return client + ":" + port + " " + Address(clientID, portID);
}

bool TAlsaBackend::IsConsumerPort(unsigned int capabilities) {
    const unsigned int wanted = SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE;
    return (capabilities & wanted) == wanted && !(capabilities & SND_SEQ_PORT_CAP_NO_EXPORT);
}

std::unique_ptr<TMidiSystemBackend::TPort> TAlsaBackend::OpenPort(const std::string& name,
                                                                  bool isPublic) {
    // A private port (the silencing producer's) sends only where we subscribe it.
    const unsigned int capabilities = isPublic ? SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ
                                               : SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_NO_EXPORT;
    int port =
        snd_seq_create_simple_port(fSeq, name.empty() ? kClientName : name.c_str(), capabilities,
                                   SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
    if (port < 0) return nullptr;
    return std::make_unique<TAlsaPort>(*this, name, port);
}

bool TAlsaBackend::Subscribe(int port, const std::string& address, bool subscribe) {
    int client = 0;
    int destination = 0;
    if (std::sscanf(address.c_str(), "%d:%d", &client, &destination) != 2) return false;
    int result = subscribe ? snd_seq_connect_to(fSeq, port, client, destination)
                           : snd_seq_disconnect_to(fSeq, port, client, destination);
    return result >= 0;
}

bool TAlsaBackend::Link(TPort& port, const TMidiSystemConsumer& consumer) {
    return Subscribe(static_cast<TAlsaPort&>(port).Number(), consumer.Address(), true);
}

void TAlsaBackend::Unlink(TPort& port, const TMidiSystemConsumer& consumer) {
    Subscribe(static_cast<TAlsaPort&>(port).Number(), consumer.Address(), false);
}

bool TAlsaBackend::ListPeers(std::vector<TPeer>* peers) {
    snd_seq_client_info_t* client;
    snd_seq_port_info_t* port;
    snd_seq_client_info_alloca(&client);
    snd_seq_port_info_alloca(&port);
    snd_seq_client_info_set_client(client, -1);
    while (snd_seq_query_next_client(fSeq, client) >= 0) {
        const int clientID = snd_seq_client_info_get_client(client);
        if (clientID == fClient || clientID == SND_SEQ_CLIENT_SYSTEM) continue;
        snd_seq_port_info_set_client(port, clientID);
        snd_seq_port_info_set_port(port, -1);
        while (snd_seq_query_next_port(fSeq, port) >= 0) {
            if (!IsConsumerPort(snd_seq_port_info_get_capability(port))) continue;
            const int portID = snd_seq_port_info_get_port(port);
            peers->push_back({Address(clientID, portID),
                              PeerName(snd_seq_client_info_get_name(client),
                                       snd_seq_port_info_get_name(port), clientID, portID)});
        }
    }
    return true;
}

std::vector<pollfd> TAlsaBackend::ServiceDescriptors() {
    std::vector<pollfd> fds(snd_seq_poll_descriptors_count(fSeq, POLLIN));
    fds.resize(snd_seq_poll_descriptors(fSeq, fds.data(), fds.size(), POLLIN));
    return fds;
}

void TAlsaBackend::ServiceReadable() {
    bool changed = false;
    for (;;) {
        snd_seq_event_t* event = nullptr;
        int result = snd_seq_event_input(fSeq, &event);
        if (result == -ENOSPC) {
            changed = true;  // announcements were lost: read the whole list again
            continue;
        }
        if (result < 0 || !event) break;
        changed |=
            event->type >= SND_SEQ_EVENT_CLIENT_START && event->type <= SND_SEQ_EVENT_PORT_CHANGE;
    }
    if (changed) RequestRescan();
}
