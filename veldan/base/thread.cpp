#include "veldan/base/thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>

#include <algorithm>

#include "veldan/base/clock.h"

namespace veldan {

int music_cpu() {
    static const int cpu = [] {
        cpu_set_t allowed;
        CPU_ZERO(&allowed);
        sched_getaffinity(0, sizeof allowed, &allowed);
        int last = -1;
        for (int candidate = 0; candidate < CPU_SETSIZE; ++candidate)
            if (CPU_ISSET(candidate, &allowed)) last = candidate;
        return last;
    }();
    return cpu;
}

namespace {

// A synthesizer rendering on the music core, even preempted at once, leaves the chain's
// threads cold caches and a run queue to share; on another core it costs them nothing.
void keep_off_music_core() {
    const int musicCpu = music_cpu();
    cpu_set_t others;
    CPU_ZERO(&others);
    sched_getaffinity(0, sizeof others, &others);
    if (musicCpu < 0 || !CPU_ISSET(musicCpu, &others)) return;
    CPU_CLR(musicCpu, &others);
    if (CPU_COUNT(&others) > 0) pthread_setaffinity_np(pthread_self(), sizeof others, &others);
}

}  // namespace

bool apply_thread_priority(int32_t priority) {
    // The default timer slack (50 us) lets the kernel coalesce our wake-ups; a small
    // slack halves the wake-up lateness of the play thread.
    prctl(PR_SET_TIMERSLACK, 1UL, 0, 0, 0);
    if (priority < kMusicPriority) keep_off_music_core();
    if (priority < kRealTimePriority) return false;
    sched_param param{};
    // Low in the SCHED_FIFO range: above every normal process, which is all our short
    // bursts of work need, and below audio servers (JACK's default is 10, PipeWire's
    // higher), whose cycles must never wait for us.
    param.sched_priority = std::clamp(priority - 105, 1, 9);
    if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &param) != 0) return false;
    // All real-time threads share one core: a hand-off from the play thread down the
    // chain is then a context switch on that core instead of a cross-core wake-up, which
    // costs several times more (measured: median 91 us instead of 283 us at the end of
    // the chain). Only with real-time priority, which keeps others off our core's time.
    const int musicCpu = music_cpu();
    if (priority >= kMusicPriority && musicCpu >= 0) {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(musicCpu, &one);
        pthread_setaffinity_np(pthread_self(), sizeof one, &one);
    }
    return true;
}

TThread::TThread(const char* name, int32_t priority) : fName(name), fPriority(priority) {}

TThread::~TThread() { Stop(); }

bool TThread::Resume() {
    if (!fThread.joinable()) {
        fThread = std::thread([this] { Run(); });
        return true;
    }
    fResumePending.store(1, std::memory_order_release);
    Signal();
    return true;
}

void TThread::Stop() {
    fStop.store(true, std::memory_order_release);
    Signal();
    if (fThread.joinable() && fThread.get_id() != std::this_thread::get_id()) fThread.join();
}

bool TThread::Wait() {
    if (fThread.joinable() && fThread.get_id() != std::this_thread::get_id()) fThread.join();
    return true;
}

void TThread::Run() {
    pthread_setname_np(pthread_self(), fName.substr(0, 15).c_str());
    fRealTime.store(apply_thread_priority(fPriority), std::memory_order_release);
    Execute();
    fTerminated.store(true, std::memory_order_release);
}

void TThread::Signal() {
    fSignal.fetch_add(1, std::memory_order_acq_rel);
    futex_wake(&fSignal, 1);
}

void TThread::Interrupt() { Signal(); }

bool TThread::Suspend() {
    fSuspended.store(true, std::memory_order_release);
    for (;;) {
        uint32_t seen = fSignal.load(std::memory_order_acquire);
        if (StopRequested()) break;
        if (fResumePending.exchange(0, std::memory_order_acq_rel) != 0) break;
        futex_wait_until(&fSignal, seen, -1);
    }
    fSuspended.store(false, std::memory_order_release);
    return !StopRequested();
}

bool TThread::SleepUntil(int64_t deadlineUs, uint32_t token) {
    if (StopRequested()) return false;
    if (system_time() < deadlineUs) futex_wait_until(&fSignal, token, deadlineUs);
    return !StopRequested();
}

}  // namespace veldan
