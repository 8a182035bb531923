#pragma once
// The other MIDI systems failing under a chaos run: a jackd of our own with two JACK
// clients that listen, port A connected to one and port B to the other through the MIDI
// OUT menu's message; then, from a thread of its own so the GUI thread never waits for it,
// the first client quits and later the server itself is stopped. Each loss must be told
// exactly once, and the music must go on to the consumers that are left.

#include <unistd.h>

#include <QCoreApplication>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "midi/backends.h"
#include "midi/jack_backend.h"
#include "midi/recorder.h"
#include "player/quill_view.h"
#include "tests/support/jack_server.h"
#include "tests/support/wait.h"
#include "veldan/core/handler.h"

class TChaosJack {
  public:
    static bool Available() { return access(kJackd, X_OK) == 0; }

    // Connects both ports of view to the JACK clients; false (with Error()) when the server
    // or a client did not come up.
    bool Start(quill::TQuillView& view) {
        fServer = std::make_unique<TJackServer>();
        if (!fServer->WaitUntilUp()) return Fail("jackd did not come up");
        fReaderA = std::make_unique<TJackReader>(fServer->Name(), "Chaos listener A");
        fReaderB = std::make_unique<TJackReader>(fServer->Name(), "Chaos listener B");
        if (!fReaderA->IsOpen() || !fReaderB->IsOpen()) return Fail("a JACK client did not open");
        fBackends.SetProblemHandler([this](const std::string& problem) {
            std::lock_guard lock(fLock);
            fProblems.push_back(problem);
        });
        TMidiBackends::TOptions options;
        options.useAlsa = false;
        options.jackServer = fServer->Name();
        if (fBackends.Start(options) != 1) return Fail(fBackends.Status());
        TMidiSystemConsumer* a = nullptr;
        TMidiSystemConsumer* b = nullptr;
        wait_for([&] {
            a = fBackends.Jack()->FindByAddress(fReaderA->PortName());
            b = fBackends.Jack()->FindByAddress(fReaderB->PortName());
            return a && b;
        });
        if (!a || !b) return Fail("the JACK clients are not in the roster");
        fAddressA = fReaderA->PortName();
        fIdA = a->ID();
        Toggle(view, 0, a->ID());
        Toggle(view, 1, b->ID());
        if (!view.Controller().Ports().IsPortConnected(0) ||
            !view.Controller().Ports().IsPortConnected(1))
            return Fail("the ports did not connect to the JACK clients");
        if (!wait_for([&] { return fReaderA->IsConnected() && fReaderB->IsConnected(); }))
            return Fail("JACK did not make the connections");
        return true;
    }

    // From now on: client A quits after firstUs, the server stops after secondUs.
    void KillLater(std::chrono::microseconds first, std::chrono::microseconds second,
                   const TMidiRecorder& witness) {
        fKiller = std::thread([this, first, second, &witness] {
            const auto start = std::chrono::steady_clock::now();
            std::this_thread::sleep_until(start + first);
            fHeardAtFirst = witness.Count() + witness.Dropped();
            fReceivedByA = fReaderA->Count();
            fReaderA->Close();
            std::this_thread::sleep_until(start + second);
            fHeardAtSecond = witness.Count() + witness.Dropped();
            fReceivedByB = fReaderB->Count();
            fServer->Stop();
        });
    }
    // The server stops answering until StopServer (or a few seconds have passed).
    void FreezeServer() { fServer->Freeze(); }
    void StopServer() { fServer->Stop(); }
    // Client A's roster id: port A is connected to it.
    int32_t ConsumerA() const { return fIdA; }
    // The MIDI OUT menu's item for a consumer of a port: connects, or lets go and silences.
    static void Toggle(quill::TQuillView& view, int32_t port, int32_t id) {
        veldan::TMessage item(quill::TQuillController::kMsgMidiOut);
        item.AddInt32(quill::TQuillController::kMidiPortField, port);
        item.AddInt32(quill::TQuillController::kConsumerIdField, id);
        veldan::post_message(&view, item);
        QCoreApplication::sendPostedEvents();
    }
    void Join() {
        if (fKiller.joinable()) fKiller.join();
    }
    ~TChaosJack() {
        Join();
        fBackends.Stop();
        fReaderA.reset();
        fReaderB.reset();
        fServer.reset();
    }

    std::vector<std::string> Problems() {
        std::lock_guard lock(fLock);
        return fProblems;
    }
    // What a report of each loss says.
    std::string ClientGoneReport() const {
        return "JACK: \"" + fAddressA + "\" went away while connected";
    }
    std::string ServerGoneReport() const {
        return "JACK: the server \"" + fServer->Name() + "\" stopped; its ports are gone";
    }
    const std::string& Error() const { return fError; }
    // Events the witness had heard at each kill, and what the JACK clients had received.
    size_t HeardAtFirst() const { return fHeardAtFirst; }
    size_t HeardAtSecond() const { return fHeardAtSecond; }
    size_t ReceivedByA() const { return fReceivedByA; }
    size_t ReceivedByB() const { return fReceivedByB; }

  private:
    bool Fail(const std::string& error) {
        fError = error;
        return false;
    }

    std::unique_ptr<TJackServer> fServer;
    std::unique_ptr<TJackReader> fReaderA;
    std::unique_ptr<TJackReader> fReaderB;
    TMidiBackends fBackends;
    std::mutex fLock;
    std::vector<std::string> fProblems;
    std::string fAddressA;
    int32_t fIdA = 0;
    std::string fError;
    std::thread fKiller;
    size_t fHeardAtFirst = 0, fHeardAtSecond = 0, fReceivedByA = 0, fReceivedByB = 0;
};
