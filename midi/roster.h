#pragma once
// TMidiRoster: the program-wide list of registered endpoints, the one place a user-facing
// consumer is looked up by id or name. Safe to call from any thread; change watchers are
// called on the thread that made the change, outside the roster's lock.

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

class TMidiConsumer;
class TMidiEndpoint;
class TMidiLocalProducer;

// A system backend (ALSA sequencer, JACK) that mirrors registered local producers as ports
// other programs can see. Called on the registering thread, outside the roster's lock.
class TMidiRosterBackend {
  public:
    virtual ~TMidiRosterBackend() = default;
    virtual void ProducerRegistered(TMidiLocalProducer* producer) = 0;
    // Called while the producer is still whole (its destructor unregisters it first).
    virtual void ProducerUnregistered(TMidiLocalProducer* producer) = 0;
};

class TMidiRoster {
  public:
    static TMidiRoster& Default();

    // The first registered consumer whose id is greater than *id, which is updated;
    // nullptr at the end. Start with *id = 0.
    TMidiConsumer* NextConsumer(int32_t* id);
    TMidiConsumer* FindConsumer(int32_t id);
    // Exact name first, else the one consumer whose name contains name; nullptr when
    // none or several match.
    TMidiConsumer* FindConsumerByName(const std::string& name);
    std::vector<TMidiConsumer*> Consumers();

    using TWatcher = std::function<void()>;
    int32_t AddWatcher(TWatcher watcher);
    void RemoveWatcher(int32_t token);

    int32_t NewID();

    // Any thread but a real-time one. Adding a backend announces every local producer
    // registered so far to it; removing it withdraws them, so its ports go first.
    void AddBackend(TMidiRosterBackend* backend);
    void RemoveBackend(TMidiRosterBackend* backend);

  private:
    friend class TMidiEndpoint;
    void Register(TMidiEndpoint* endpoint);
    void Unregister(TMidiEndpoint* endpoint);
    bool IsRegistered(const TMidiEndpoint* endpoint);
    void Notify();
    std::vector<TMidiLocalProducer*> LocalProducers();

    // Held while a local producer is registered or unregistered and while backends are told
    // of it, so a backend hears of each producer exactly once, and never after
    // RemoveBackend returns. Taken before fLock.
    std::mutex fBackendLock;
    std::vector<TMidiRosterBackend*> fBackends;

    std::mutex fLock;
    std::vector<TMidiEndpoint*> fEndpoints;  // id order
    std::vector<std::pair<int32_t, TWatcher>> fWatchers;
    int32_t fNextID = 1;
    int32_t fNextWatcher = 1;
};
