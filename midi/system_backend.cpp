#include "midi/system_backend.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

TMidiSystemConsumer::TMidiSystemConsumer(TMidiSystemBackend& backend, std::string address,
                                         std::string name)
    : TMidiConsumer(std::move(name)), fBackend(backend), fAddress(std::move(address)) {}

TMidiSystemConsumer::~TMidiSystemConsumer() {
    Unregister();
    DisconnectAllProducers();
}

void TMidiSystemConsumer::ProducerConnected(TMidiLocalProducer* producer) {
    fBackend.Connect(producer, this);
}

void TMidiSystemConsumer::ProducerDisconnected(TMidiLocalProducer* producer) {
    fBackend.Disconnect(producer, this);
}

void TMidiSystemConsumer::Retire() {
    fGone.store(true);
    Unregister();
    DisconnectAllProducers();
}

void TMidiSystemBackend::TPort::NoteDrop() {
    if (fDrops.fetch_add(1, std::memory_order_relaxed) == 0) fBackend.Wake();
}

TMidiSystemBackend::TMidiSystemBackend() : fWakeFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

TMidiSystemBackend::~TMidiSystemBackend() {
    if (fWakeFd >= 0) close(fWakeFd);
}

int32_t TMidiSystemBackend::Start() {
    if (fStarted.load()) return 0;
    if (fWakeFd < 0) return -1;
    fQuit.store(false);
    Rescan();
    fService = std::thread([this] { ServiceLoop(); });
    fStarted.store(true);
    TMidiRoster::Default().AddBackend(this);
    return 0;
}

void TMidiSystemBackend::Stop() {
    if (!fStarted.exchange(false)) return;
    TMidiRoster::Default().RemoveBackend(this);
    fQuit.store(true);
    Wake();
    fService.join();
    // Disconnecting the consumers also closes the private ports.
    RetireAllConsumers();
}

void TMidiSystemBackend::Wake() {
    const uint64_t one = 1;
    // A full counter (never in practice) still leaves the thread woken.
    [[maybe_unused]] ssize_t written = write(fWakeFd, &one, sizeof one);
}

int TMidiSystemBackend::DuplicateWakeFd() const {
    return fWakeFd < 0 ? -1 : fcntl(fWakeFd, F_DUPFD_CLOEXEC, 0);
}

void TMidiSystemBackend::RequestRescan() {
    fRescanRequested.store(true);
    Wake();
}

void TMidiSystemBackend::ServiceLoop() {
    std::vector<pollfd> fds = ServiceDescriptors();
    const size_t wakeIndex = fds.size();
    fds.push_back({fWakeFd, POLLIN, 0});
    while (!fQuit.load()) {
        if (poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR) break;
        if (fds[wakeIndex].revents) {
            uint64_t count;
            [[maybe_unused]] ssize_t got = read(fWakeFd, &count, sizeof count);
        }
        if (fQuit.load()) break;
        bool readable = std::any_of(fds.begin(), fds.begin() + long(wakeIndex),
                                    [](const pollfd& fd) { return fd.revents != 0; });
        if (readable) ServiceReadable();
        if (fRescanRequested.exchange(false)) Rescan();
        ReportDrops();
        ServiceWoken();
    }
}

void TMidiSystemBackend::Rescan() {
    std::vector<TPeer> peers;
    if (ListPeers(&peers)) SyncConsumers(peers, true);
}

void TMidiSystemBackend::SyncConsumers(const std::vector<TPeer>& peers, bool reportLinked) {
    std::vector<TMidiSystemConsumer*> gone;
    std::vector<TMidiSystemConsumer*> added;
    {
        std::lock_guard lock(fConsumersLock);
        for (auto it = fConsumers.begin(); it != fConsumers.end();) {
            const TMidiSystemConsumer& consumer = *it->second;
            // A renamed port is a new consumer: names must not change under a reader.
            bool present = std::any_of(peers.begin(), peers.end(), [&](const TPeer& peer) {
                return peer.address == consumer.Address() &&
                       fNamePrefix + peer.name == consumer.Name();
            });
            if (present) {
                ++it;
                continue;
            }
            gone.push_back(it->second.get());
            fRetired.push_back(std::move(it->second));
            it = fConsumers.erase(it);
        }
        for (const TPeer& peer : peers) {
            if (fConsumers.count(peer.address)) continue;
            auto consumer =
                std::make_unique<TMidiSystemConsumer>(*this, peer.address, fNamePrefix + peer.name);
            added.push_back(consumer.get());
            fConsumers.emplace(peer.address, std::move(consumer));
        }
    }
    for (TMidiSystemConsumer* consumer : gone) {
        bool wasLinked = reportLinked && IsLinked(consumer);
        consumer->Retire();
        if (wasLinked)
            Report(std::string(SystemName()) + ": \"" + consumer->Name() +
                   "\" went away while connected");
    }
    for (TMidiSystemConsumer* consumer : added) consumer->Register();
}

void TMidiSystemBackend::RetireAllConsumers() { SyncConsumers({}, false); }

TMidiSystemConsumer* TMidiSystemBackend::FindByAddress(const std::string& address) {
    std::lock_guard lock(fConsumersLock);
    auto it = fConsumers.find(address);
    return it == fConsumers.end() ? nullptr : it->second.get();
}

void TMidiSystemBackend::ProducerRegistered(TMidiLocalProducer* producer) {
    std::lock_guard lock(fPortsLock);
    if (FindPort(producer)) return;
    if (!OpenPortFor(producer, true)) Report(PortFailure(producer->Name()));
}

void TMidiSystemBackend::ProducerUnregistered(TMidiLocalProducer* producer) {
    std::lock_guard lock(fPortsLock);
    if (TPortEntry* entry = FindPort(producer)) ClosePort(entry);
}

std::string TMidiSystemBackend::ConnectFailure(const std::string& port,
                                               const TMidiSystemConsumer& consumer) const {
    return std::string(SystemName()) + ": cannot connect \"" + port + "\" to \"" + consumer.Name() +
           "\"";
}

std::string TMidiSystemBackend::PortFailure(const std::string& port) const {
    return std::string(SystemName()) + ": cannot make the port \"" + port + "\"";
}

void TMidiSystemBackend::Connect(TMidiLocalProducer* producer, TMidiSystemConsumer* consumer) {
    const std::string what = ConnectFailure(producer->Name(), *consumer);
    if (consumer->IsGone()) {
        Report(what + " (it has gone)");
        return;
    }
    std::lock_guard lock(fPortsLock);
    TPortEntry* entry = FindPort(producer);
    if (!entry) entry = OpenPortFor(producer, false);
    if (entry && Link(*entry->port, *consumer)) {
        entry->links.push_back(consumer);
        return;
    }
    if (entry && !entry->isPublic && entry->links.empty()) ClosePort(entry);
    Report(what);
}

void TMidiSystemBackend::Disconnect(TMidiLocalProducer* producer, TMidiSystemConsumer* consumer) {
    std::lock_guard lock(fPortsLock);
    TPortEntry* entry = FindPort(producer);
    if (!entry || std::erase(entry->links, consumer) == 0) return;
    // What was sent before the disconnection still reaches the consumer.
    Flush(*entry->port);
    if (!consumer->IsGone()) Unlink(*entry->port, *consumer);
    if (!entry->isPublic && entry->links.empty()) ClosePort(entry);
}

TMidiSystemBackend::TPortEntry* TMidiSystemBackend::FindPort(const TMidiLocalProducer* producer) {
    for (TPortEntry& entry : fPorts)
        if (entry.producer == producer) return &entry;
    return nullptr;
}

TMidiSystemBackend::TPortEntry* TMidiSystemBackend::OpenPortFor(TMidiLocalProducer* producer,
                                                                bool isPublic) {
    std::unique_ptr<TPort> port = OpenPort(producer->Name(), isPublic);
    if (!port) return nullptr;
    producer->AttachSink(port.get());
    fPorts.push_back({producer, std::move(port), isPublic, {}});
    return &fPorts.back();
}

void TMidiSystemBackend::ClosePort(TPortEntry* entry) {
    entry->producer->DetachSink(entry->port.get());
    Flush(*entry->port);
    fPorts.erase(fPorts.begin() + (entry - fPorts.data()));
}

bool TMidiSystemBackend::IsLinked(const TMidiSystemConsumer* consumer) {
    std::lock_guard lock(fPortsLock);
    for (const TPortEntry& entry : fPorts)
        if (std::find(entry.links.begin(), entry.links.end(), consumer) != entry.links.end())
            return true;
    return false;
}

void TMidiSystemBackend::ReportDrops() {
    std::vector<std::string> names;
    {
        std::lock_guard lock(fPortsLock);
        for (TPortEntry& entry : fPorts) {
            TPort& port = *entry.port;
            if (port.fDropsReported || port.fDrops.load(std::memory_order_relaxed) == 0) continue;
            port.fDropsReported = true;
            names.push_back(port.Name());
        }
    }
    for (const std::string& name : names)
        Report(std::string(SystemName()) + ": events dropped on \"" + name +
               "\" (a receiver is not keeping up)");
}

void TMidiSystemBackend::Report(const std::string& problem) {
    {
        std::lock_guard lock(fProblemsLock);
        if (std::find(fProblems.begin(), fProblems.end(), problem) != fProblems.end()) return;
        fProblems.push_back(problem);
    }
    if (fProblemHandler) fProblemHandler(problem);
}

std::vector<std::string> TMidiSystemBackend::Problems() const {
    std::lock_guard lock(fProblemsLock);
    return fProblems;
}
