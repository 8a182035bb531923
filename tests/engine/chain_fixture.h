#pragma once
// A producer wired through the output chain to recording consumers on both public ports.

#include <atomic>
#include <string>
#include <vector>

#include "engine/output_chain.h"
#include "engine/smf_producer.h"
#include "midi/recorder.h"
#include "tests/support/wait.h"

// What a recorder received, one event per line as hex bytes.
inline std::vector<std::string> recorded(const TMidiRecorder& recorder) {
    std::vector<std::string> lines;
    for (const auto& entry : recorder.Entries())
        lines.push_back(hex_bytes(recorder.BytesOf(entry), entry.length));
    return lines;
}

struct TChainFixture {
    TSMFProducer producer;
    TOutputChain chain{producer};
    TMidiRecorder portA{"recorder A", 1 << 20};
    TMidiRecorder portB{"recorder B", 1 << 20};
    std::atomic<int> ended{0};

    TChainFixture() {
        chain.PublicOut(0)->Connect(&portA);
        chain.PublicOut(1)->Connect(&portB);
        producer.SetEndOfSongHandler([this] { ended.fetch_add(1); });
    }
    ~TChainFixture() { producer.Stop(); }

    // Waits until the chain and both recorders have handled everything sent so far.
    void Drain() {
        chain.WaitIdle(2000000);
        portA.WaitIdle(2000000);
        portB.WaitIdle(2000000);
    }
    bool WaitForEvents(const TMidiRecorder& recorder, size_t count) {
        return wait_for([&] { return recorder.Entries().size() >= count; });
    }
};
