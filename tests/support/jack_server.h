#pragma once
// A jackd of our own on the dummy driver, and a JACK client with one MIDI input port that
// writes down every event with its frame: for the JACK backend's tests and benchmark.

#include <fcntl.h>
#include <jack/jack.h>
#include <jack/midiport.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/wait.h"

extern char** environ;

constexpr const char* kJackd = "/usr/bin/jackd";
constexpr int kJackRate = 48000;
constexpr int kJackPeriod = 256;

// A jackd of our own, stopped and reaped in the destructor.
class TJackServer {
  public:
    // Tests run the server without real-time priority, as any user can; the benchmark asks
    // for it, as a musician's JACK setup runs.
    explicit TJackServer(bool realTime = false)
        : fSlot(TakeNameSlot()), fName("quill-test-" + std::to_string(fSlot.index)) {
        const std::string rate = std::to_string(kJackRate);
        const std::string period = std::to_string(kJackPeriod);
        const char* priority = realTime ? "--realtime" : "--no-realtime";
        const char* argv[] = {kJackd, "-n",         fName.c_str(), priority,       "-d",   "dummy",
                              "-r",   rate.c_str(), "-p",          period.c_str(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        if (posix_spawn(&fPid, kJackd, &actions, nullptr, const_cast<char**>(argv), environ) != 0)
            fPid = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~TJackServer() {
        Stop();
        close(fSlot.lockFd);
    }

    const std::string& Name() const { return fName; }

    // Waits until a client can open on the server; false after timeout.
    bool WaitUntilUp(std::chrono::milliseconds timeout = std::chrono::seconds(15)) {
        if (fPid < 0) return false;
        return wait_for(
            [&] {
                jack_status_t status;
                jack_client_t* probe =
                    jack_client_open("probe", jack_options_t(JackNoStartServer | JackServerName),
                                     &status, fName.c_str());
                if (!probe) return false;
                jack_client_close(probe);
                return true;
            },
            timeout);
    }

    // The server stops answering, as one on its way down or held by a debugger: its clients'
    // requests wait, and no process cycle runs. It runs again at Resume, or by itself after
    // limit, so that a caller that waits for it makes its test fail instead of hang.
    void Freeze(std::chrono::milliseconds limit = std::chrono::seconds(3)) {
        if (fPid < 0 || fThaw.joinable()) return;
        kill(fPid, SIGSTOP);
        fThawed = false;
        fThaw = std::thread([this, limit] {
            std::unique_lock lock(fThawLock);
            fThawWake.wait_for(lock, limit, [&] { return fThawed; });
            kill(fPid, SIGCONT);
        });
    }
    void Resume() {
        if (!fThaw.joinable()) return;
        {
            std::lock_guard lock(fThawLock);
            fThawed = true;
        }
        fThawWake.notify_one();
        fThaw.join();
    }

    // The server dies at once, as by a crash: nothing of it is cleaned up but what the test
    // cleans.
    void Kill() {
        Resume();
        if (fPid < 0) return;
        kill(fPid, SIGKILL);
        waitpid(fPid, nullptr, 0);
        fPid = -1;
        RemoveLeftovers();
    }

    void Stop() {
        Resume();
        if (fPid < 0) return;
        kill(fPid, SIGTERM);
        bool reaped = wait_for([&] { return waitpid(fPid, nullptr, WNOHANG) == fPid; });
        if (!reaped) {
            kill(fPid, SIGKILL);
            waitpid(fPid, nullptr, 0);
        }
        fPid = -1;
        RemoveLeftovers();
    }

  private:
    // A server killed in a test, and its clients, leave their shared memory and semaphores
    // behind ("jack_NAME_..." and "jack_sem.*_NAME_..."); hundreds of runs would fill /dev/shm.
    void RemoveLeftovers() const {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator("/dev/shm", error)) {
            const std::string leaf = entry.path().filename().string();
            if (leaf.starts_with("jack") && leaf.find("_" + fName + "_") != std::string::npos)
                std::filesystem::remove(entry.path(), error);
        }
    }

    // jackd keeps each running server in one of eight slots of a registry in /dev/shm, and
    // frees a slot at a clean exit, or when a server of the same name starts; a server killed
    // or left behind by a test that timed out would hold its slot for good, and after eight
    // no server could start on the machine. So test servers take their names from a small
    // pool, each name held by a lock on its file while its server runs: the next server of
    // that name frees whatever slot an earlier one left.
    struct TNameSlot {
        int index;
        int lockFd;
    };
    static constexpr int kNameSlots = 4;
    static TNameSlot TakeNameSlot() {
        for (;;) {
            for (int index = 0; index < kNameSlots; ++index) {
                const std::string lock = "/tmp/quill-test-jackd-" + std::to_string(index) + ".lock";
                const int fd = open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
                if (fd < 0) continue;
                if (flock(fd, LOCK_EX | LOCK_NB) == 0) return TNameSlot{index, fd};
                close(fd);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }

    const TNameSlot fSlot;
    const std::string fName;
    pid_t fPid = -1;
    std::thread fThaw;
    std::mutex fThawLock;
    std::condition_variable fThawWake;
    bool fThawed = true;
};

// A JACK client with one MIDI input port that writes down every event with its frame.
class TJackReader {
  public:
    struct TEvent {
        jack_nframes_t frame;
        uint32_t length;
        std::array<uint8_t, 16> bytes;
        // The cycle it came in, as the server timed it: when the cycle began (JACK's
        // microseconds) and how long a period lasts; offset is the frame within the cycle.
        int64_t cycleStartUs;
        int64_t periodUs;
        jack_nframes_t offset;
        jack_nframes_t cycleFrames;
    };
    TJackReader(const std::string& server, const char* name, size_t capacity = 4096)
        : fEvents(capacity) {
        jack_status_t status;
        fClient = jack_client_open(name, jack_options_t(JackNoStartServer | JackServerName),
                                   &status, server.c_str());
        if (!fClient) return;
        fPort = jack_port_register(fClient, "in", JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
        jack_set_process_callback(
            fClient,
            [](jack_nframes_t frames, void* arg) {
                static_cast<TJackReader*>(arg)->Process(frames);
                return 0;
            },
            this);
        jack_set_xrun_callback(
            fClient,
            [](void* arg) {
                static_cast<TJackReader*>(arg)->fXruns.fetch_add(1, std::memory_order_relaxed);
                return 0;
            },
            this);
        jack_activate(fClient);
    }
    ~TJackReader() { Close(); }

    void Close() {
        if (fClient) jack_client_close(fClient);
        fClient = nullptr;
    }
    bool IsOpen() const { return fClient && fPort; }
    jack_port_t* Port() const { return fPort; }
    std::string PortName() const { return jack_port_name(fPort); }
    // JACK makes a connection in its own time, some cycles after jack_connect returns.
    bool IsConnected() const { return jack_port_connected(fPort) > 0; }
    // Cycles the server reported as late (xruns): what arrives in them may be lost.
    size_t Xruns() const { return fXruns.load(std::memory_order_relaxed); }
    size_t Count() const { return fCount.load(std::memory_order_acquire); }
    const TEvent& Event(size_t index) const { return fEvents[index]; }
    std::vector<uint8_t> Bytes(size_t index) const {
        const TEvent& event = fEvents[index];
        return {event.bytes.begin(), event.bytes.begin() + event.length};
    }
    // JACK's clock (CLOCK_MONOTONIC microseconds) at a frame.
    int64_t FrameToUs(jack_nframes_t frame) const {
        return int64_t(jack_frames_to_time(fClient, frame));
    }
    bool WaitFor(size_t count) {
        return wait_for([&] { return Count() >= count; }, std::chrono::seconds(10));
    }

  private:
    void Process(jack_nframes_t frames) {
        void* buffer = jack_port_get_buffer(fPort, frames);
        const jack_nframes_t cycleStart = jack_last_frame_time(fClient);
        jack_nframes_t cycleFrame;
        jack_time_t cycleStartUs = 0;
        jack_time_t nextCycleUs;
        float periodUs = 0;
        jack_get_cycle_times(fClient, &cycleFrame, &cycleStartUs, &nextCycleUs, &periodUs);
        const uint32_t events = jack_midi_get_event_count(buffer);
        size_t count = fCount.load(std::memory_order_relaxed);
        for (uint32_t i = 0; i < events && count < fEvents.size(); ++i) {
            jack_midi_event_t event;
            if (jack_midi_event_get(&event, buffer, i) != 0) continue;
            TEvent& slot = fEvents[count++];
            slot.frame = cycleStart + event.time;
            slot.cycleStartUs = int64_t(cycleStartUs);
            slot.periodUs = int64_t(periodUs);
            slot.offset = event.time;
            slot.cycleFrames = frames;
            slot.length = uint32_t(std::min(event.size, slot.bytes.size()));
            std::memcpy(slot.bytes.data(), event.buffer, slot.length);
        }
        fCount.store(count, std::memory_order_release);
    }

    jack_client_t* fClient = nullptr;
    jack_port_t* fPort = nullptr;
    std::vector<TEvent> fEvents;
    std::atomic<size_t> fCount{0};
    std::atomic<size_t> fXruns{0};
};
