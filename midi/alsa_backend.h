#pragma once
// TAlsaBackend: the roster on the ALSA sequencer. The program is the sequencer client
// "Quill MIDI"; registered local producers are its readable, subscribable ports; every
// other client's writable, subscribable port is a consumer; connecting subscribes.
//
// Events leave direct (no queue: the play thread is the clock) to the port's subscribers,
// one write per event through the shared handle under fWriteLock. The handle is
// non-blocking, so a receiver whose input pool is full loses the event (the others still
// get it) and the sender goes on; the loss is reported once per port.
// Announcements of the System client's announce port, read by the service thread, make
// the consumer list be read again.

#include <alsa/asoundlib.h>

#include <memory>
#include <mutex>
#include <string>

#include "midi/system_backend.h"

class TAlsaBackend final : public TMidiSystemBackend {
  public:
    static constexpr const char* kClientName = "Quill MIDI";
    static constexpr const char* kNotAvailable =
        "ALSA sequencer: not available (cannot open /dev/snd/seq)";

    // The sequencer client, not yet started; nullptr and *error set when there is no
    // sequencer to open.
    static std::unique_ptr<TAlsaBackend> Open(std::string* error);
    ~TAlsaBackend() override;

    int ClientID() const { return fClient; }
    std::string Status() const override;

    // "14:0" for client 14, port 0.
    static std::string Address(int client, int port);
    // "Midi Through:Midi Through Port-0 14:0": the client's and the port's names and the
    // address, so two clients of the same name stay apart.
    static std::string PeerName(const std::string& client, const std::string& port, int clientID,
                                int portID);
    // false unless the capabilities make a port someone can send to by subscription.
    static bool IsConsumerPort(unsigned int capabilities);

  protected:
    const char* SystemName() const override { return "ALSA"; }
    std::unique_ptr<TPort> OpenPort(const std::string& name, bool isPublic) override;
    bool Link(TPort& port, const TMidiSystemConsumer& consumer) override;
    void Unlink(TPort& port, const TMidiSystemConsumer& consumer) override;
    // Nothing to wait for: every event was written to the kernel when it was sent.
    void Flush(TPort&) override {}
    bool ListPeers(std::vector<TPeer>* peers) override;
    std::vector<pollfd> ServiceDescriptors() override;
    void ServiceReadable() override;

  private:
    class TAlsaPort;
    explicit TAlsaBackend(snd_seq_t* seq);
    bool Subscribe(int port, const std::string& address, bool subscribe);

    snd_seq_t* fSeq;
    int fClient;
    int fAnnouncePort = -1;
    std::mutex fWriteLock;
};
