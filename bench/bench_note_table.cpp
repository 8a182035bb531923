// What the window's "all notes off" costs the note-on manager's receive thread.
//   bench_note_table [SECONDS]
// A sender sprays a dense stream (about 1,000 notes sounding at any moment across 16
// channels) into a note-on manager while this thread asks for all notes off in a loop, as
// a user hammering pause or the key slider would. For every note event the receive thread
// writes down how late the hook began (time since the event was sprayed) and how long the
// manager's own handling of it took (where any wait for the note table shows).

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "engine/note_on_manager.h"
#include "midi/local_consumer.h"
#include "midi/local_producer.h"
#include "veldan/base/clock.h"

namespace {

constexpr size_t kMaxSamples = 1 << 22;

// Times every note event, into storage reserved up front.
class TTimedManager : public TNoteOnManager {
  public:
    TTimedManager() {
        fLate.reserve(kMaxSamples);
        fHeld.reserve(kMaxSamples);
    }
    ~TTimedManager() override { StopReceiving(); }

    void NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override {
        const int64_t start = veldan::system_time();
        TNoteOnManager::NoteOn(channel, note, velocity, time);
        Note(start, time);
    }
    void NoteOff(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override {
        const int64_t start = veldan::system_time();
        TNoteOnManager::NoteOff(channel, note, velocity, time);
        Note(start, time);
    }

    std::vector<int64_t> fLate;
    std::vector<int64_t> fHeld;

  private:
    void Note(int64_t start, int64_t time) {
        if (time <= 0 || fLate.size() == fLate.capacity()) return;  // the owner's note-offs
        fLate.push_back(start - time);
        fHeld.push_back(veldan::system_time() - start);
    }
};

void print(const char* what, std::vector<int64_t> values) {
    if (values.empty()) return;
    std::sort(values.begin(), values.end());
    auto at = [&](double share) { return values[size_t(share * double(values.size() - 1))]; };
    std::printf("%-34s median %6lld us   p99 %6lld us   p99.9 %6lld us   max %7lld us\n", what,
                static_cast<long long>(at(0.5)), static_cast<long long>(at(0.99)),
                static_cast<long long>(at(0.999)), static_cast<long long>(values.back()));
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    TMidiLocalProducer sender("sender");
    TTimedManager manager;
    TMidiLocalConsumer sink("sink", 1 << 14);
    manager.Connect(&sink);
    sender.Connect(&manager);

    std::atomic<bool> done{false};
    std::thread stream([&] {
        constexpr int kSounding = 1024;
        constexpr int64_t kPeriodUs = 100;
        int64_t next = veldan::system_time();
        uint32_t step = 0;
        while (!done.load(std::memory_order_relaxed)) {
            // Eight notes start and eight of those struck kSounding steps ago end.
            for (int i = 0; i < 8; ++i, ++step) {
                const uint8_t channel = uint8_t(step % 16);
                const uint8_t note = uint8_t(step / 16 % 128);
                sender.SprayNoteOn(channel, note, 100, veldan::system_time());
                if (step >= kSounding) {
                    const uint32_t old = step - kSounding;
                    sender.SprayNoteOff(uint8_t(old % 16), uint8_t(old / 16 % 128), 0,
                                        veldan::system_time());
                }
            }
            next += kPeriodUs;
            const int64_t now = veldan::system_time();
            if (next > now) std::this_thread::sleep_for(std::chrono::microseconds(next - now));
        }
    });

    std::vector<int64_t> calls;
    const int64_t end = veldan::system_time() + int64_t(seconds * 1e6);
    while (veldan::system_time() < end) {
        const int64_t start = veldan::system_time();
        manager.QuickAllNotesOff(0);
        calls.push_back(veldan::system_time() - start);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    done.store(true);
    stream.join();
    manager.WaitIdle(2000000);

    std::printf("%zu note events, %zu all-notes-off\n", manager.fLate.size(), calls.size());
    print("receive thread: hook late by", manager.fLate);
    print("receive thread: manager's handling", manager.fHeld);
    print("owner: QuickAllNotesOff took", calls);
    return 0;
}
