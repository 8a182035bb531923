#pragma once
// TJackBackend: the roster on a running JACK server. The program is the JACK client
// "Quill MIDI"; registered local producers are its MIDI output ports; every other client's
// MIDI input port is a consumer; connecting is jack_connect. A server is never started
// for us (JackNoStartServer, and JACK_NO_START_SERVER=1 for anything else in the process).
//
// Events cross from the spraying threads to the process callback through one TByteRing
// per port, each record stamped with jack_get_time() when it was sent and published whole.
// Writers of one port are serialised by a short lock of the port (only spraying threads
// take it); the process callback reads without locks. The events sent during one period
// are written in the next, at frame offsets that keep their spacing (FrameOffset). A full
// ring or a full port buffer loses the event, reported once per port; the sender never
// waits. JACK's registration callbacks only wake the service thread, which lists the
// ports again; a server that stops is reported once and its consumers go.
//
// Requests to the server that make, link, unlink and drop ports run in order on a request
// thread of the backend. The asking thread (often the window's, letting a consumer go and
// silencing it) waits for each while the server answers, and goes on without the answer
// once the server has run no process cycle for a while: a server that is on its way down,
// or held, keeps a request waiting for seconds or for ever. Then the port or link counts as
// made, what is sent waits in the port's ring, and a request the server refuses later is
// reported if the server answers again. What was sent through a port that is dropped
// before the server answered again is lost with it.
//
// Closing the client is the request thread's last request, waited for the same way: at
// quit, a server that does not answer is not waited for, and the client is left behind
// with the process that is ending.

#include <jack/jack.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "midi/system_backend.h"

class TJackBackend final : public TMidiSystemBackend {
  public:
    static constexpr const char* kClientName = "Quill MIDI";
    static constexpr size_t kRingBytes = 64 * 1024;

    // The client, activated but not yet started, on serverName (empty: the default server,
    // or $JACK_DEFAULT_SERVER); nullptr and *error set when no server answers.
    static std::unique_ptr<TJackBackend> Open(const std::string& serverName, std::string* error);
    ~TJackBackend() override;

    std::string Status() const override;
    // Any thread: true once the server has shut the client down.
    bool ServerGone() const;
    const std::string& ClientName() const { return fClientName; }

    // The frame of the current cycle (which started at cycleStartUs and lasts periodUs,
    // frames long) for an event sent at sentUs: sends of the previous period map onto this
    // one, keeping their spacing; later sends wait (frames is returned); late ones go to
    // frame 0, never dropped.
    static uint32_t FrameOffset(int64_t sentUs, int64_t cycleStartUs, int64_t periodUs,
                                uint32_t frames);

  protected:
    const char* SystemName() const override { return "JACK"; }
    std::unique_ptr<TPort> OpenPort(const std::string& name, bool isPublic) override;
    bool Link(TPort& port, const TMidiSystemConsumer& consumer) override;
    void Unlink(TPort& port, const TMidiSystemConsumer& consumer) override;
    void Flush(TPort& port) override;
    bool ListPeers(std::vector<TPeer>* peers) override;
    void ServiceWoken() override;

  private:
    class TJackPort;
    struct TPortHandle;
    struct TRequest;
    struct TClient;
    using TPortList = std::vector<TJackPort*>;

    TJackBackend(jack_client_t* client, std::string serverName);
    // Any thread: false once the server is gone or has run no process cycle for a while.
    bool Answering() const;
    // Runs request on the request thread and waits for it while the server answers. False
    // only when the request ran and failed; a request that fails after the asker went on
    // is reported as lateFailure, if the server answers by then.
    bool Ask(std::function<bool()> request, std::string lateFailure = {});
    std::shared_ptr<TRequest> Queue(std::function<bool()> run, std::string lateFailure);
    // Waits for request while the server answers (or, once it is gone, until graceUs
    // from now); false when the asker goes on without it.
    bool Await(const std::shared_ptr<TRequest>& request, int64_t graceUs);
    // Closes the client on the request thread and ends the thread, or leaves both behind.
    void CloseClient();
    void Publish(TPortList* next);
    void AddPort(TJackPort* port);
    void RemovePort(TJackPort* port);
    // Waits (bounded) until the process callback has run `cycles` more times.
    void WaitCycles(uint64_t cycles);

    // Shared with the request thread and libjack's threads; it outlives the backend when
    // the client is left behind.
    const std::shared_ptr<TClient> fClient;
    const std::string fServerName;
    const std::string fClientName;
    std::mutex fPortListLock;         // writers of the port list
    bool fServerGoneHandled = false;  // service thread only
    std::thread fRequestThread;
};
