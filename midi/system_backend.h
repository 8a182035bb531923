#pragma once
// TMidiSystemBackend: what the ALSA sequencer and JACK backends of the roster share.
//
// Ports. A registered local producer gets a public port of its name for as long as it is
// registered; an unregistered one (the silencing producer) gets a private port while it
// is connected to consumers of this system. The port is one of the producer's
// TMidiPortSinks, so an event leaves once per port however many consumers listen, and a
// connection to a consumer of this system is a link from that port (an ALSA subscription,
// a jack_connect). Ports are made and dropped on the connecting or registering thread,
// never on the sending path.
//
// Consumers. Every port of another program that accepts MIDI is a registered
// TMidiSystemConsumer whose roster id lasts as long as the port. The list is kept in step
// by listing the system's ports again whenever it announces a change. A consumer that
// vanishes is unregistered and disconnected, but its object lives until the backend dies:
// another thread may have looked it up a moment before.
//
// Threads. A service thread sleeps in poll() on the system's descriptors and an eventfd;
// Stop() writes the eventfd and joins it. Announcements and problems noticed on other
// threads (real-time senders, the system's own threads) are handed to it, so roster
// watchers and the problem handler run on the service thread, or on the thread that calls
// Start, Stop, Connect or Disconnect (or a thread of the backend's own that asks the system
// on their behalf, as JACK's does). Each problem is reported once.

#include <poll.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "midi/endpoint.h"
#include "midi/local_producer.h"
#include "midi/roster.h"

class TMidiSystemBackend;

// A port of another program, reached through a system backend.
class TMidiSystemConsumer : public TMidiConsumer {
  public:
    TMidiSystemConsumer(TMidiSystemBackend& backend, std::string address, std::string name);
    ~TMidiSystemConsumer() override;

    bool IsLocal() const override { return false; }
    // Any thread. The sending producer's own port carries the event to this consumer,
    // so there is nothing to do per consumer.
    void Receive(const uint8_t*, size_t, bool, int64_t) override {}
    // On the connecting thread: links or unlinks the producer's port.
    void ProducerConnected(TMidiLocalProducer* producer) override;
    void ProducerDisconnected(TMidiLocalProducer* producer) override;

    // The system's own name of the port: "14:0" (ALSA), "fluidsynth:midi_00" (JACK).
    const std::string& Address() const { return fAddress; }
    // Any thread: true once the port has vanished from the system.
    bool IsGone() const { return fGone.load(); }

  private:
    friend class TMidiSystemBackend;
    // Service thread: unregisters the consumer and disconnects whatever still sends here.
    void Retire();

    TMidiSystemBackend& fBackend;
    const std::string fAddress;
    std::atomic<bool> fGone{false};
};

class TMidiSystemBackend : public TMidiRosterBackend {
  public:
    using TProblemHandler = std::function<void(const std::string& problem)>;

    ~TMidiSystemBackend() override;

    // Before Start: a prefix for consumer names ("ALSA: ", "JACK: ") when both systems are
    // present, and the handler told of problems (on the threads named above).
    void SetNamePrefix(std::string prefix) { fNamePrefix = std::move(prefix); }
    void SetProblemHandler(TProblemHandler handler) { fProblemHandler = std::move(handler); }

    // Lists the consumers, starts the service thread and joins the roster, which gives
    // every registered local producer its port. 0, or -1 when the thread cannot start.
    int32_t Start();
    // Takes the ports back, stops the service thread and retires every consumer; a
    // subclass calls it first thing in its destructor (it needs the subclass whole).
    // Idempotent.
    void Stop();

    // One line for the status bar: which system, and whether it is usable.
    virtual std::string Status() const = 0;
    // Problems reported so far, oldest first.
    std::vector<std::string> Problems() const;

    // Any thread. This backend's consumer at a system address, or nullptr.
    TMidiSystemConsumer* FindByAddress(const std::string& address);

    // TMidiRosterBackend, called by the roster on the registering thread.
    void ProducerRegistered(TMidiLocalProducer* producer) override;
    void ProducerUnregistered(TMidiLocalProducer* producer) override;

  protected:
    struct TPeer {
        std::string address;
        std::string name;
    };

    // A port of ours. Send runs on the spraying threads; a drop there (full output, dead
    // peer) is counted with NoteDrop, which is real-time safe, and reported once by the
    // service thread.
    class TPort : public TMidiPortSink {
      public:
        TPort(TMidiSystemBackend& backend, std::string name)
            : fBackend(backend), fName(std::move(name)) {}
        const std::string& Name() const { return fName; }

      protected:
        void NoteDrop();

      private:
        friend class TMidiSystemBackend;
        TMidiSystemBackend& fBackend;
        const std::string fName;
        std::atomic<uint64_t> fDrops{0};
        bool fDropsReported = false;  // service thread only
    };

    TMidiSystemBackend();

    // The system's side, called on the connecting or registering thread under the port
    // lock (OpenPort, Link, Unlink, Flush) or on the service thread (ListPeers,
    // ServiceReadable, ServiceWoken).
    // The system name of the program: "ALSA", "JACK".
    virtual const char* SystemName() const = 0;
    // nullptr when the system refuses the port.
    virtual std::unique_ptr<TPort> OpenPort(const std::string& name, bool isPublic) = 0;
    virtual bool Link(TPort& port, const TMidiSystemConsumer& consumer) = 0;
    virtual void Unlink(TPort& port, const TMidiSystemConsumer& consumer) = 0;
    // Returns (within a bounded wait) once what the port was sent has left it.
    virtual void Flush(TPort& port) = 0;
    // false when the system cannot be asked (then the list stays as it is).
    virtual bool ListPeers(std::vector<TPeer>* peers) = 0;
    // Descriptors the service thread polls for input besides its own eventfd.
    virtual std::vector<pollfd> ServiceDescriptors() { return {}; }
    virtual void ServiceReadable() {}
    // After every wake-up of the service thread.
    virtual void ServiceWoken() {}

    // Any thread, real-time ones included: wakes the service thread.
    void Wake();
    // A descriptor of its own (the caller closes it) that wakes the service thread when
    // written, for threads that may outlive the backend: once the backend is gone,
    // writing it wakes no one and harms nothing. -1 when there is none.
    int DuplicateWakeFd() const;
    // Any thread, real-time ones included: the service thread lists the peers again.
    void RequestRescan();
    // Service thread: lists the peers and brings the consumers in step.
    void Rescan();
    // Service thread, or Stop: every consumer goes, as when the system itself has gone;
    // that is not reported consumer by consumer.
    void RetireAllConsumers();
    // Not on a real-time thread: reports problem unless it was reported before.
    void Report(const std::string& problem);
    // What is reported when the system refuses a link, or a port (port: the producer's name).
    std::string ConnectFailure(const std::string& port, const TMidiSystemConsumer& consumer) const;
    std::string PortFailure(const std::string& port) const;

  private:
    friend class TMidiSystemConsumer;
    struct TPortEntry {
        TMidiLocalProducer* producer;
        std::unique_ptr<TPort> port;
        bool isPublic;
        std::vector<const TMidiSystemConsumer*> links;
    };

    void Connect(TMidiLocalProducer* producer, TMidiSystemConsumer* consumer);
    void Disconnect(TMidiLocalProducer* producer, TMidiSystemConsumer* consumer);
    TPortEntry* FindPort(const TMidiLocalProducer* producer);
    TPortEntry* OpenPortFor(TMidiLocalProducer* producer, bool isPublic);
    void ClosePort(TPortEntry* entry);
    bool IsLinked(const TMidiSystemConsumer* consumer);
    // reportLinked: a consumer that goes while connected is a problem worth telling,
    // unless the whole system is going (the owner stops us, the server stopped).
    void SyncConsumers(const std::vector<TPeer>& peers, bool reportLinked);
    void ReportDrops();
    void ServiceLoop();

    std::string fNamePrefix;
    TProblemHandler fProblemHandler;

    std::mutex fPortsLock;  // the port table; held while the system is asked about ports
    std::vector<TPortEntry> fPorts;

    std::mutex fConsumersLock;
    std::map<std::string, std::unique_ptr<TMidiSystemConsumer>> fConsumers;  // by address
    std::vector<std::unique_ptr<TMidiSystemConsumer>> fRetired;

    mutable std::mutex fProblemsLock;
    std::vector<std::string> fProblems;

    const int fWakeFd;
    std::atomic<bool> fQuit{false};
    std::atomic<bool> fRescanRequested{false};
    std::atomic<bool> fStarted{false};
    std::thread fService;
};
