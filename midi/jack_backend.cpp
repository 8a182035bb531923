#include "midi/jack_backend.h"

#include <jack/midiport.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <thread>

#include "midi/byte_ring.h"
#include "midi/midi_defs.h"
#include "veldan/base/clock.h"

namespace {

// How long a disconnecting or closing thread waits for the process callback to pass on
// what a port was sent; a stalled server must not hang the caller.
constexpr int64_t kFlushLimitUs = 500000;
// A server that has run no process cycle for this long (or four periods, if longer) is
// not waited for: it is on its way down or held.
constexpr int64_t kAnswerLimitUs = 200000;
// How long a request refused after its asker went on waits to see whether the server is
// going down before the refusal is reported.
constexpr int64_t kLateFailureWaitUs = 1000000;

struct TRecord {
    int64_t sentUs;  // jack_get_time() when sent
    uint32_t length;
};

void wait_briefly() { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }

}  // namespace

// What a port's requests share with it: they may run after the port has gone.
struct TJackBackend::TPortHandle {
    std::atomic<jack_port_t*> port{nullptr};  // once registered
    // The process callback passes on the port's events once it is registered (public) or
    // linked (private): before, they would go to no one.
    std::atomic<bool> draining{false};
};

struct TJackBackend::TRequest {
    std::function<bool()> run;
    std::string lateFailure;
    bool done = false;  // these under the request lock
    bool succeeded = false;
    bool abandoned = false;
};

// The client and everything libjack's threads (process, notifications) and the request
// thread touch, so that they never need the backend: when the server stops answering at
// quit, the backend goes while the request thread may still be blocked in libjack and
// libjack's threads may wake up later. The request thread owns a share of this and drops
// it only after its last request, jack_client_close, has returned, after which libjack
// calls nothing of ours; if the server never answers again, it is never freed.
struct TJackBackend::TClient {
    TClient(jack_client_t* client, int wake) : handle(client), wakeFd(wake) {}
    ~TClient() {
        delete portList.load();
        if (wakeFd >= 0) close(wakeFd);
    }

    bool Answering() const;
    // Any thread, the real-time ones included.
    void Wake() const;
    // Process callback: real-time, lock-free.
    int Process(jack_nframes_t frames);
    void RequestLoop();

    jack_client_t* const handle;
    const int wakeFd;  // wakes the backend's service thread while there is one
    std::atomic<TPortList*> portList{new TPortList};
    std::atomic<int32_t> processing{0};
    std::atomic<uint64_t> cycles{0};
    std::atomic<int64_t> lastCycleUs{veldan::system_time()};  // of the last process cycle
    std::atomic<int64_t> periodUs{0};
    std::atomic<bool> serverGone{false};
    std::atomic<bool> rescanRequested{false};

    std::mutex requestLock;  // the queue, each request's outcome, the late failures
    std::condition_variable requestQueued;
    std::condition_variable requestDone;
    std::deque<std::shared_ptr<TRequest>> requests;
    bool requestsEnd = false;
    std::vector<std::string> lateFailures;  // reported by the service thread
};

class TJackBackend::TJackPort final : public TMidiSystemBackend::TPort {
  public:
    TJackPort(TJackBackend& backend, std::string name, std::shared_ptr<TPortHandle> handle)
        : TPort(backend, std::move(name)),
          fJack(backend),
          fHandle(std::move(handle)),
          fRing(kRingBytes) {
        fJack.AddPort(this);
    }

    ~TJackPort() override {
        fJack.RemovePort(this);
        if (fJack.ServerGone()) return;
        fJack.Ask([client = fJack.fClient->handle, handle = fHandle] {
            if (jack_port_t* port = handle->port.load()) jack_port_unregister(client, port);
            return true;
        });
    }

    const std::shared_ptr<TPortHandle>& Handle() const { return fHandle; }
    bool Empty() const { return fRing.ReadSpace() == 0; }

    // Spraying threads; the lock is held only by other senders of this port, briefly.
    void Send(const uint8_t* data, size_t length, int64_t) override {
        if (length == 0 || midi::is_meta_event(data, length) || fJack.ServerGone()) return;
        const bool close = data[0] == midi::kSysExStart && data[length - 1] != midi::kSysExEnd;
        std::lock_guard lock(fWriteLock);
        // Stamped under the lock, so the ring's stamps never go back in time.
        const TRecord record{int64_t(jack_get_time()), uint32_t(length + close)};
        if (!fRing.Write(
                {{&record, sizeof record}, {data, length}, {&midi::kSysExEnd, close ? 1u : 0u}}))
            NoteDrop();
    }

    // Process callback: moves every event sent before this cycle into the port's buffer.
    void Drain(jack_nframes_t frames, int64_t cycleStartUs, int64_t periodUs) {
        jack_port_t* port = fHandle->port.load(std::memory_order_acquire);
        if (!port) return;
        void* buffer = jack_port_get_buffer(port, frames);
        jack_midi_clear_buffer(buffer);
        if (!fHandle->draining.load(std::memory_order_acquire)) return;
        const size_t capacity = jack_midi_max_event_size(buffer);
        uint32_t last = 0;
        TRecord record;
        while (fRing.Peek(&record, sizeof record)) {
            uint32_t frame = FrameOffset(record.sentUs, cycleStartUs, periodUs, frames);
            if (frame >= frames) break;
            last = std::max(last, frame);
            jack_midi_data_t* room = jack_midi_event_reserve(buffer, last, record.length);
            if (!room) {
                // The port's buffer is full (a late cycle brought a crowd): the rest waits
                // for the next cycle; a late event is better than a lost note-off.
                if (record.length > capacity) {
                    fRing.Skip(sizeof record + record.length);  // could never fit
                    NoteDrop();
                    continue;
                }
                break;
            }
            fRing.Skip(sizeof record);
            fRing.Read(room, record.length);
        }
    }

  private:
    TJackBackend& fJack;
    const std::shared_ptr<TPortHandle> fHandle;
    TByteRing fRing;
    std::mutex fWriteLock;
};

std::unique_ptr<TJackBackend> TJackBackend::Open(const std::string& serverName,
                                                 std::string* error) {
    // Nothing in this process may start a server by surprise.
    setenv("JACK_NO_START_SERVER", "1", 1);
    // libjack prints its failures to stderr; ours are reported through the status line.
    jack_set_error_function([](const char*) {});
    jack_set_info_function([](const char*) {});
    int options = JackNoStartServer;
    if (!serverName.empty()) options |= JackServerName;
    jack_status_t status;
    jack_client_t* client =
        jack_client_open(kClientName, jack_options_t(options), &status, serverName.c_str());
    if (!client) {
        *error = "JACK: no server running";
        return nullptr;
    }
    std::unique_ptr<TJackBackend> backend(new TJackBackend(client, serverName));
    TClient* shared = backend->fClient.get();
    jack_set_process_callback(
        client,
        [](jack_nframes_t frames, void* arg) {
            return static_cast<TClient*>(arg)->Process(frames);
        },
        shared);
    // JACK's notification thread only wakes the service thread, which asks JACK itself.
    static constexpr auto rescan = [](void* arg) {
        auto* jack = static_cast<TClient*>(arg);
        jack->rescanRequested.store(true);
        jack->Wake();
    };
    jack_set_port_registration_callback(
        client, [](jack_port_id_t, int, void* arg) { rescan(arg); }, shared);
    jack_set_client_registration_callback(
        client, [](const char*, int, void* arg) { rescan(arg); }, shared);
    jack_set_port_rename_callback(
        client, [](jack_port_id_t, const char*, const char*, void* arg) { rescan(arg); }, shared);
    jack_on_info_shutdown(
        client,
        [](jack_status_t, const char*, void* arg) {
            auto* jack = static_cast<TClient*>(arg);
            jack->serverGone.store(true);
            jack->Wake();
        },
        shared);
    if (jack_activate(client) != 0) {
        *error = "JACK: the server refused to activate the client";
        return nullptr;
    }
    return backend;
}

TJackBackend::TJackBackend(jack_client_t* client, std::string serverName)
    : fClient(std::make_shared<TClient>(client, DuplicateWakeFd())),
      fServerName(serverName.empty() ? "default" : std::move(serverName)),
      fClientName(jack_get_client_name(client)),
      fRequestThread([shared = fClient] { shared->RequestLoop(); }) {}

TJackBackend::~TJackBackend() {
    Stop();
    CloseClient();
}

void TJackBackend::CloseClient() {
    // A server that is gone no longer holds the close, but is given a moment to let go.
    auto request = Queue(
        [client = fClient->handle] {
            jack_client_close(client);
            return true;
        },
        {});
    const bool closed = Await(request, kFlushLimitUs);
    {
        std::lock_guard lock(fClient->requestLock);
        fClient->requestsEnd = true;
    }
    fClient->requestQueued.notify_one();
    if (closed)
        fRequestThread.join();
    else
        fRequestThread.detach();  // with its share of fClient (see TClient)
}

bool TJackBackend::ServerGone() const { return fClient->serverGone.load(); }

std::string TJackBackend::Status() const {
    if (ServerGone()) return "JACK: the server \"" + fServerName + "\" stopped";
    return "JACK: client \"" + fClientName + "\" on server \"" + fServerName + "\"";
}

uint32_t TJackBackend::FrameOffset(int64_t sentUs, int64_t cycleStartUs, int64_t periodUs,
                                   uint32_t frames) {
    if (sentUs >= cycleStartUs) return frames;
    if (periodUs <= 0) return 0;
    const int64_t sinceLastCycle = sentUs - (cycleStartUs - periodUs);
    if (sinceLastCycle <= 0) return 0;
    return uint32_t(std::min<int64_t>(sinceLastCycle * frames / periodUs, frames - 1));
}

int TJackBackend::TClient::Process(jack_nframes_t frames) {
    processing.fetch_add(1);
    jack_nframes_t cycleStartFrame;
    jack_time_t cycleStartUs;
    jack_time_t nextCycleUs;
    float cyclePeriodUs;
    if (jack_get_cycle_times(handle, &cycleStartFrame, &cycleStartUs, &nextCycleUs,
                             &cyclePeriodUs) != 0) {
        cycleStartUs = jack_get_time();
        cyclePeriodUs = float(frames) * 1e6f / float(jack_get_sample_rate(handle));
    }
    for (TJackPort* port : *portList.load())
        port->Drain(frames, int64_t(cycleStartUs), int64_t(cyclePeriodUs));
    periodUs.store(int64_t(cyclePeriodUs));
    lastCycleUs.store(veldan::system_time());
    cycles.fetch_add(1);
    processing.fetch_sub(1);
    return 0;
}

void TJackBackend::TClient::Wake() const {
    const uint64_t one = 1;
    if (wakeFd >= 0) [[maybe_unused]]
        ssize_t written = write(wakeFd, &one, sizeof one);
}

void TJackBackend::Publish(TPortList* next) {
    std::unique_ptr<TPortList> old(fClient->portList.exchange(next));
    // A process callback that loaded the old list is still counted in processing.
    while (fClient->processing.load() != 0) std::this_thread::yield();
}

void TJackBackend::AddPort(TJackPort* port) {
    std::lock_guard lock(fPortListLock);
    auto* next = new TPortList(*fClient->portList.load());
    next->push_back(port);
    Publish(next);
}

void TJackBackend::RemovePort(TJackPort* port) {
    std::lock_guard lock(fPortListLock);
    auto* next = new TPortList(*fClient->portList.load());
    std::erase(*next, port);
    Publish(next);
}

bool TJackBackend::TClient::Answering() const {
    if (serverGone.load()) return false;
    const int64_t limitUs = std::max(kAnswerLimitUs, 4 * periodUs.load());
    return veldan::system_time() - lastCycleUs.load() < limitUs;
}

bool TJackBackend::Answering() const { return fClient->Answering(); }

std::shared_ptr<TJackBackend::TRequest> TJackBackend::Queue(std::function<bool()> run,
                                                            std::string lateFailure) {
    auto request = std::make_shared<TRequest>();
    request->run = std::move(run);
    request->lateFailure = std::move(lateFailure);
    std::lock_guard lock(fClient->requestLock);
    fClient->requests.push_back(request);
    fClient->requestQueued.notify_one();
    return request;
}

bool TJackBackend::Await(const std::shared_ptr<TRequest>& request, int64_t graceUs) {
    const int64_t graceEnd = veldan::system_time() + graceUs;
    std::unique_lock lock(fClient->requestLock);
    while (!request->done) {
        if (!Answering() && !(ServerGone() && veldan::system_time() < graceEnd)) {
            request->abandoned = true;
            return false;
        }
        fClient->requestDone.wait_for(lock, std::chrono::milliseconds(5));
    }
    return true;
}

bool TJackBackend::Ask(std::function<bool()> run, std::string lateFailure) {
    auto request = Queue(std::move(run), std::move(lateFailure));
    if (!Await(request, 0)) return true;
    std::lock_guard lock(fClient->requestLock);
    return request->succeeded;
}

void TJackBackend::TClient::RequestLoop() {
    std::unique_lock lock(requestLock);
    for (;;) {
        requestQueued.wait(lock, [this] { return requestsEnd || !requests.empty(); });
        // What was asked before the end is still carried out: ports go, links are undone.
        if (requests.empty()) return;
        std::shared_ptr<TRequest> request = std::move(requests.front());
        requests.pop_front();
        lock.unlock();
        const bool succeeded = request->run();
        lock.lock();
        request->done = true;
        request->succeeded = succeeded;
        requestDone.notify_all();
        if (succeeded || !request->abandoned || request->lateFailure.empty()) continue;
        // A server on its way down refuses what it was asked before it goes, and may run a
        // last cycle or two; its loss is told once, elsewhere.
        lock.unlock();
        const int64_t deadline = veldan::system_time() + kLateFailureWaitUs;
        while (!serverGone.load() && veldan::system_time() < deadline) wait_briefly();
        lock.lock();
        if (!Answering()) continue;
        lateFailures.push_back(request->lateFailure);
        Wake();
    }
}

void TJackBackend::WaitCycles(uint64_t cycles) {
    const uint64_t target = fClient->cycles.load() + cycles;
    const int64_t deadline = veldan::system_time() + kFlushLimitUs;
    while (fClient->cycles.load() < target && Answering() && veldan::system_time() < deadline)
        wait_briefly();
}

std::unique_ptr<TMidiSystemBackend::TPort> TJackBackend::OpenPort(const std::string& name,
                                                                  bool isPublic) {
    if (ServerGone()) return nullptr;
    auto handle = std::make_shared<TPortHandle>();
    const bool made = Ask(
        [client = fClient->handle, handle, portName = name.empty() ? std::string("out") : name,
         isPublic] {
            jack_port_t* port = jack_port_register(client, portName.c_str(), JACK_DEFAULT_MIDI_TYPE,
                                                   JackPortIsOutput, 0);
            handle->port.store(port);
            if (isPublic) handle->draining.store(port != nullptr, std::memory_order_release);
            return port != nullptr;
        },
        PortFailure(name));
    if (!made) return nullptr;
    return std::make_unique<TJackPort>(*this, name, handle);
}

bool TJackBackend::Link(TPort& port, const TMidiSystemConsumer& consumer) {
    if (ServerGone()) return false;
    return Ask(
        [client = fClient->handle, handle = static_cast<TJackPort&>(port).Handle(),
         address = consumer.Address()] {
            jack_port_t* source = handle->port.load();
            if (!source) return false;
            int result = jack_connect(client, jack_port_name(source), address.c_str());
            if (result != 0 && result != EEXIST) return false;
            handle->draining.store(true, std::memory_order_release);
            return true;
        },
        ConnectFailure(port.Name(), consumer));
}

void TJackBackend::Unlink(TPort& port, const TMidiSystemConsumer& consumer) {
    if (ServerGone()) return;
    Ask([client = fClient->handle, handle = static_cast<TJackPort&>(port).Handle(),
         address = consumer.Address()] {
        if (jack_port_t* source = handle->port.load())
            jack_disconnect(client, jack_port_name(source), address.c_str());
        return true;
    });
}

void TJackBackend::Flush(TPort& port) {
    const auto& jackPort = static_cast<const TJackPort&>(port);
    const int64_t deadline = veldan::system_time() + kFlushLimitUs;
    while (!jackPort.Empty() && Answering() && veldan::system_time() < deadline) wait_briefly();
    // The cycle that took the last events has ended once two more have begun.
    WaitCycles(2);
}

bool TJackBackend::ListPeers(std::vector<TPeer>* peers) {
    if (ServerGone()) return false;
    jack_client_t* client = fClient->handle;
    const char** names = jack_get_ports(client, nullptr, JACK_DEFAULT_MIDI_TYPE, JackPortIsInput);
    for (const char** name = names; name && *name; ++name) {
        jack_port_t* port = jack_port_by_name(client, *name);
        if (port && jack_port_is_mine(client, port)) continue;
        peers->push_back({*name, *name});
    }
    jack_free(names);
    return true;
}

void TJackBackend::ServiceWoken() {
    if (fClient->rescanRequested.exchange(false)) Rescan();
    std::vector<std::string> lateFailures;
    {
        std::lock_guard lock(fClient->requestLock);
        lateFailures.swap(fClient->lateFailures);
    }
    for (const std::string& failure : lateFailures) Report(failure);
    if (!ServerGone() || fServerGoneHandled) return;
    fServerGoneHandled = true;
    RetireAllConsumers();
    Report("JACK: the server \"" + fServerName + "\" stopped; its ports are gone");
}
