#pragma once
// TThread: the base of this program's own threads (the play thread).
//
// Created suspended: nothing runs until the first Resume(), so a derived object is
// complete before its Execute() starts. Stop() is synchronous: it raises the stop
// request, wakes the thread wherever it sleeps or suspends, and joins it. A derived
// class calls Stop() in its own destructor, before its members die.

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace veldan {

// Priorities follow the original scale. 100 and above ask for real-time scheduling
// (SCHED_FIFO); kMusicPriority and above also share the music core (see thread.cpp).
constexpr int32_t kRealTimePriority = 100;
constexpr int32_t kMusicPriority = 110;

// For the calling thread: a small timer slack, and real-time scheduling when the system
// allows it. True when real-time was granted. Placement: a thread at kMusicPriority or
// above with real-time granted runs on the music core alone; every other thread keeps off
// that core when the process has another.
bool apply_thread_priority(int32_t priority);

// The core the music threads share: the last one the process was allowed at its first
// thread's start.
int music_cpu();

class TThread {
  public:
    // Without the right to real-time scheduling the thread keeps normal priority.
    TThread(const char* name, int32_t priority);
    virtual ~TThread();

    TThread(const TThread&) = delete;
    TThread& operator=(const TThread&) = delete;

    // Starts the thread on the first call; later calls release a thread that suspended
    // itself. A Resume() that comes before the matching Suspend() is not lost.
    // Called from the owner's thread.
    bool Resume();
    // Stops the thread at once and joins it; idempotent. Not from the thread itself.
    void Stop();
    // Joins the thread without asking it to stop.
    bool Wait();

    bool IsTerminated() const { return fTerminated.load(std::memory_order_acquire); }
    bool IsSuspended() const { return fSuspended.load(std::memory_order_acquire); }
    bool IsStarted() const { return fThread.joinable(); }
    // Whether the system granted real-time scheduling; known once the thread runs.
    bool IsRealTime() const { return fRealTime.load(std::memory_order_acquire); }

  protected:
    virtual int32_t Execute() = 0;

    // From the thread itself: blocks until Resume() or Stop(); false when stopping.
    bool Suspend();
    // From the thread itself: sleeps to an absolute CLOCK_MONOTONIC deadline. Returns
    // early when Interrupt() or Stop() is called; false when stopping.
    bool SleepUntil(int64_t deadlineUs) { return SleepUntil(deadlineUs, ArmSleep()); }
    // From the thread itself, for a sleep that must not miss a request: take the token,
    // then look at the requests, then sleep with the token. An Interrupt() or Stop()
    // that comes after the token was taken ends that sleep at once, so a request raised
    // between the look and the sleep is never slept through.
    uint32_t ArmSleep() const { return fSignal.load(std::memory_order_acquire); }
    bool SleepUntil(int64_t deadlineUs, uint32_t token);
    // Wakes a SleepUntil() at once; any thread, wait-free.
    void Interrupt();
    // A thread about to suspend itself calls this before it tells its owner so: Resume()
    // calls that came while it ran are dropped, and IsSuspended() is already true.
    void PrepareSuspend() {
        fResumePending.store(0, std::memory_order_release);
        fSuspended.store(true, std::memory_order_release);
    }
    bool StopRequested() const { return fStop.load(std::memory_order_acquire); }

  private:
    void Run();
    void Signal();

    std::string fName;
    int32_t fPriority;
    std::thread fThread;
    // Bumped on every Resume, Interrupt and Stop; the thread sleeps on it.
    std::atomic<uint32_t> fSignal{0};
    std::atomic<uint32_t> fResumePending{0};
    std::atomic<bool> fStop{false};
    std::atomic<bool> fSuspended{false};
    std::atomic<bool> fTerminated{false};
    std::atomic<bool> fRealTime{false};
};

}  // namespace veldan
