#pragma once
// The MIDI endpoint model: producers send, consumers receive, the roster lists what is
// visible to the user. Endpoints are owned by whoever made them; the roster and the
// connections hold plain pointers that endpoints clear when they die.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class TMidiLocalProducer;

class TMidiEndpoint {
  public:
    virtual ~TMidiEndpoint();
    TMidiEndpoint(const TMidiEndpoint&) = delete;
    TMidiEndpoint& operator=(const TMidiEndpoint&) = delete;

    // Stable while the endpoint exists; never reused within one run.
    int32_t ID() const { return fID; }
    const std::string& Name() const { return fName; }
    void SetName(std::string name) { fName = std::move(name); }
    virtual bool IsLocal() const = 0;
    virtual bool IsConsumer() const = 0;
    bool IsProducer() const { return !IsConsumer(); }
    bool IsRegistered() const;

    // Makes the endpoint visible in the roster (and, through a system backend, to other
    // programs). 0 on success, -1 when already registered.
    int32_t Register();
    int32_t Unregister();

  protected:
    explicit TMidiEndpoint(std::string name);

  private:
    int32_t fID;
    std::string fName;
};

// One event's pieces (head, then body) joined into one run of bytes for a receiver that
// takes a single buffer: on the stack up to kJoinStackBytes, on the heap beyond.
class TJoinedPieces {
  public:
    static constexpr size_t kJoinStackBytes = 1024;

    TJoinedPieces(const uint8_t* head, size_t headLength, const uint8_t* body, size_t bodyLength);
    TJoinedPieces(const TJoinedPieces&) = delete;
    TJoinedPieces& operator=(const TJoinedPieces&) = delete;

    const uint8_t* Data() const { return fData; }
    size_t Length() const { return fLength; }

  private:
    uint8_t fStack[kJoinStackBytes];
    std::unique_ptr<uint8_t[]> fHeap;
    size_t fLength;
    uint8_t* fData = fStack;
};

// Something events can be sent to: a local consumer of this program, or a port of another
// program reached through a system backend.
class TMidiConsumer : public TMidiEndpoint {
  public:
    ~TMidiConsumer() override;
    bool IsConsumer() const final { return true; }

    // Called on the sending thread for every event sprayed by a connected producer.
    // Must not block beyond a documented bound (a local consumer's full queue holds the
    // sender at most TMidiLocalConsumer::kSendWaitUs); allocation is allowed only for
    // system exclusive data larger than a consumer's documented inline size.
    virtual void Receive(const uint8_t* data, size_t length, bool atomic, int64_t time) = 0;
    // Called instead of Receive when the sending producer speaks for port 1 or above of a
    // two-port output (TMidiLocalProducer::SetPort). A consumer with one set of sixteen
    // channels takes every port alike; one with more (the built-in synthesizer) plays
    // each port on channels of its own. Same contract as Receive.
    virtual void ReceiveOnPort(int port, const uint8_t* data, size_t length, bool atomic,
                               int64_t time) {
        (void)port;
        Receive(data, length, atomic, time);
    }

    // Called instead of either of the above when the sender has the event in two pieces,
    // head then body (a SysEx's 0xF0, then its data), so that it need not copy a long
    // SysEx to put one byte in front of it. port as for ReceiveOnPort. This default puts
    // the pieces together (TJoinedPieces: on the stack, on the heap beyond its size: the
    // documented exception above) and calls Receive (port 0) or ReceiveOnPort;
    // local consumers take the pieces into their queue as they are.
    virtual void ReceivePieces(int port, const uint8_t* head, size_t headLength,
                               const uint8_t* body, size_t bodyLength, bool atomic, int64_t time);

    // Told on the connecting thread when a producer starts or stops sending here, so a
    // system backend can mirror the connection (an ALSA subscription, a JACK connection).
    virtual void ProducerConnected(TMidiLocalProducer*) {}
    virtual void ProducerDisconnected(TMidiLocalProducer*) {}

  protected:
    explicit TMidiConsumer(std::string name) : TMidiEndpoint(std::move(name)) {}
    // Disconnects every producer that still sends here; a consumer whose receiving side
    // must not see more events calls this first thing in its destructor.
    void DisconnectAllProducers();

  private:
    friend class TMidiLocalProducer;
    std::mutex fProducersLock;
    std::vector<TMidiLocalProducer*> fProducers;
};

class TMidiProducer : public TMidiEndpoint {
  public:
    bool IsConsumer() const final { return false; }

  protected:
    explicit TMidiProducer(std::string name) : TMidiEndpoint(std::move(name)) {}
};
