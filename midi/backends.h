#pragma once
// TMidiBackends: the machine's MIDI systems behind the roster. Start() opens the ALSA
// sequencer and a running JACK server where they answer; their consumers join the roster
// and the registered local producers (the public MIDI OUT ports) get their ports there.
// With neither, the roster works in-process only, and Status() says so in one line for
// the caller to show once.
//
// Threads: Start, Stop and Status on the owner's thread. The problem handler is called on
// a backend's service thread, or on a thread that connects or disconnects a consumer.

#include <cstdint>
#include <memory>
#include <string>

#include "midi/system_backend.h"

class TAlsaBackend;
class TJackBackend;

class TMidiBackends {
  public:
    struct TOptions {
        bool useAlsa = true;
        bool useJack = true;
        std::string jackServer;  // empty: the default server ($JACK_DEFAULT_SERVER)
    };

    TMidiBackends();
    ~TMidiBackends();
    TMidiBackends(const TMidiBackends&) = delete;
    TMidiBackends& operator=(const TMidiBackends&) = delete;

    // Before Start. Each problem (a consumer gone while connected, events dropped, a
    // server that stopped) is told once.
    void SetProblemHandler(TMidiSystemBackend::TProblemHandler handler);
    // The number of systems now in use; 0 means in-process only. Once; again after Stop.
    int32_t Start(const TOptions& options);
    int32_t Start() { return Start(TOptions{}); }
    // Withdraws the ports and the systems' consumers. Idempotent.
    void Stop();

    // "ALSA sequencer: client 128 "Quill MIDI"; JACK: no server running"
    std::string Status() const;

    TAlsaBackend* Alsa() const { return fAlsa.get(); }
    TJackBackend* Jack() const { return fJack.get(); }

  private:
    void StartBackend(TMidiSystemBackend* backend, const char* prefix);

    TMidiSystemBackend::TProblemHandler fProblemHandler;
    std::unique_ptr<TAlsaBackend> fAlsa;
    std::unique_ptr<TJackBackend> fJack;
    std::string fAlsaError;
    std::string fJackError;
    bool fStarted = false;
};
