#include "midi/roster.h"

#include <algorithm>

#include "midi/endpoint.h"
#include "midi/local_producer.h"

namespace {
// No virtual calls here: an endpoint may be unregistered from its base destructor.
TMidiLocalProducer* as_local_producer(TMidiEndpoint* endpoint) {
    return dynamic_cast<TMidiLocalProducer*>(endpoint);
}
}  // namespace

TMidiRoster& TMidiRoster::Default() {
    static TMidiRoster roster;
    return roster;
}

int32_t TMidiRoster::NewID() {
    std::lock_guard lock(fLock);
    return fNextID++;
}

void TMidiRoster::Register(TMidiEndpoint* endpoint) {
    {
        std::lock_guard backendLock(fBackendLock);
        {
            std::lock_guard lock(fLock);
            auto at = std::lower_bound(
                fEndpoints.begin(), fEndpoints.end(), endpoint,
                [](const TMidiEndpoint* a, const TMidiEndpoint* b) { return a->ID() < b->ID(); });
            fEndpoints.insert(at, endpoint);
        }
        if (TMidiLocalProducer* producer = as_local_producer(endpoint))
            for (TMidiRosterBackend* backend : fBackends) backend->ProducerRegistered(producer);
    }
    Notify();
}

void TMidiRoster::Unregister(TMidiEndpoint* endpoint) {
    {
        std::lock_guard backendLock(fBackendLock);
        if (TMidiLocalProducer* producer = as_local_producer(endpoint))
            for (TMidiRosterBackend* backend : fBackends) backend->ProducerUnregistered(producer);
        std::lock_guard lock(fLock);
        std::erase(fEndpoints, endpoint);
    }
    Notify();
}

void TMidiRoster::AddBackend(TMidiRosterBackend* backend) {
    std::lock_guard backendLock(fBackendLock);
    fBackends.push_back(backend);
    for (TMidiLocalProducer* producer : LocalProducers()) backend->ProducerRegistered(producer);
}

void TMidiRoster::RemoveBackend(TMidiRosterBackend* backend) {
    std::lock_guard backendLock(fBackendLock);
    if (std::erase(fBackends, backend) == 0) return;
    for (TMidiLocalProducer* producer : LocalProducers()) backend->ProducerUnregistered(producer);
}

std::vector<TMidiLocalProducer*> TMidiRoster::LocalProducers() {
    std::vector<TMidiLocalProducer*> producers;
    std::lock_guard lock(fLock);
    for (TMidiEndpoint* endpoint : fEndpoints)
        if (TMidiLocalProducer* producer = as_local_producer(endpoint))
            producers.push_back(producer);
    return producers;
}

bool TMidiRoster::IsRegistered(const TMidiEndpoint* endpoint) {
    std::lock_guard lock(fLock);
    return std::find(fEndpoints.begin(), fEndpoints.end(), endpoint) != fEndpoints.end();
}

TMidiConsumer* TMidiRoster::NextConsumer(int32_t* id) {
    std::lock_guard lock(fLock);
    for (TMidiEndpoint* endpoint : fEndpoints) {
        if (endpoint->ID() > *id && endpoint->IsConsumer()) {
            *id = endpoint->ID();
            return static_cast<TMidiConsumer*>(endpoint);
        }
    }
    return nullptr;
}

TMidiConsumer* TMidiRoster::FindConsumer(int32_t id) {
    std::lock_guard lock(fLock);
    for (TMidiEndpoint* endpoint : fEndpoints)
        if (endpoint->ID() == id && endpoint->IsConsumer())
            return static_cast<TMidiConsumer*>(endpoint);
    return nullptr;
}

TMidiConsumer* TMidiRoster::FindConsumerByName(const std::string& name) {
    std::vector<TMidiConsumer*> consumers = Consumers();
    for (TMidiConsumer* consumer : consumers)
        if (consumer->Name() == name) return consumer;
    TMidiConsumer* found = nullptr;
    for (TMidiConsumer* consumer : consumers) {
        if (consumer->Name().find(name) == std::string::npos) continue;
        if (found) return nullptr;
        found = consumer;
    }
    return found;
}

std::vector<TMidiConsumer*> TMidiRoster::Consumers() {
    std::vector<TMidiConsumer*> consumers;
    int32_t id = 0;
    while (TMidiConsumer* consumer = NextConsumer(&id)) consumers.push_back(consumer);
    return consumers;
}

int32_t TMidiRoster::AddWatcher(TWatcher watcher) {
    std::lock_guard lock(fLock);
    fWatchers.emplace_back(fNextWatcher, std::move(watcher));
    return fNextWatcher++;
}

void TMidiRoster::RemoveWatcher(int32_t token) {
    std::lock_guard lock(fLock);
    std::erase_if(fWatchers, [token](const auto& w) { return w.first == token; });
}

void TMidiRoster::Notify() {
    std::vector<std::pair<int32_t, TWatcher>> watchers;
    {
        std::lock_guard lock(fLock);
        watchers = fWatchers;
    }
    for (auto& [token, watcher] : watchers) watcher();
}
