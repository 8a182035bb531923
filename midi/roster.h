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

private:
    friend class TMidiEndpoint;
    void Register(TMidiEndpoint* endpoint);
    void Unregister(TMidiEndpoint* endpoint);
    bool IsRegistered(const TMidiEndpoint* endpoint);
    void Notify();

    std::mutex fLock;
    std::vector<TMidiEndpoint*> fEndpoints;  // id order
    std::vector<std::pair<int32_t, TWatcher>> fWatchers;
    int32_t fNextID = 1;
    int32_t fNextWatcher = 1;
};
