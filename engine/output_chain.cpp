#include "engine/output_chain.h"

#include "engine/smf_producer.h"
#include "veldan/base/clock.h"

namespace {
constexpr const char* kPublicNamePattern = "Quill MIDI OUT *";
}

std::string TOutputChain::PublicName(int port) {
    std::string name = kPublicNamePattern;
    name[name.find('*')] = char('A' + port);
    return name;
}

TOutputChain::TOutputChain(TSMFProducer& producer) : fProducer(producer) {
    for (int port = 0; port < kPorts; ++port) {
        fManagers[port] = std::make_unique<TNoteOnManager>();
        // Every event the manager passes on goes to the filter: one thread carries both.
        fFilters[port] = std::make_unique<TMidiFilter>(*fManagers[port], PublicName(port));
        // A consumer with a set of channels per port (the built-in synthesizer) plays
        // lane B on its port-B channels.
        fFilters[port]->Producer()->SetPort(port);
        fFilters[port]->Producer()->Register();
        fManagers[port]->Connect(fFilters[port].get());
        producer.Producer(port)->Connect(fManagers[port].get());
    }
    producer.SetFadeListener(this);
}

TOutputChain::~TOutputChain() { fProducer.SetFadeListener(nullptr); }

void TOutputChain::FadeStepped(int32_t level) {
    for (auto& filter : fFilters) filter->PostFadeLevel(level);
}

bool TOutputChain::QuickAllNotesOff() {
    // Both lanes are asked before either is waited for, so that they work at once.
    std::array<uint32_t, kPorts> tickets{};
    for (int port = 0; port < kPorts; ++port)
        tickets[size_t(port)] = NoteOnManager(port).PostNotesOff(0xFFFF, 0);
    const int64_t deadline = veldan::system_time() + TNoteOnManager::kCommandWaitUs;
    bool done = true;
    for (int port = 0; port < kPorts; ++port)
        if (!NoteOnManager(port).WaitDone(tickets[size_t(port)], deadline - veldan::system_time()))
            done = false;
    return done;
}

void TOutputChain::SetMutedChannels(int port, uint16_t channels) {
    const uint16_t newlyMuted = uint16_t(channels & ~Filter(port).MutedChannels());
    // The filter first: what the table is emptied of cannot come back behind it.
    Filter(port).SetMutedChannels(channels);
    if (newlyMuted) NoteOnManager(port).QuickNotesOff(newlyMuted, 0);
}

void TOutputChain::SetKey(int32_t semitones) {
    for (auto& filter : fFilters) filter->SetKey(semitones);
}

void TOutputChain::SetVolume(int32_t percent) {
    for (auto& filter : fFilters) filter->SetVolume(percent);
}

bool TOutputChain::WaitIdle(int64_t timeoutUs) {
    int64_t deadline = veldan::system_time() + timeoutUs;
    // Managers first: what they pass on must reach the filters before those are asked.
    for (auto& manager : fManagers)
        if (!manager->WaitIdle(deadline - veldan::system_time())) return false;
    for (auto& filter : fFilters)
        if (!filter->WaitIdle(deadline - veldan::system_time())) return false;
    return true;
}
