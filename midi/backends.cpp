#include "midi/backends.h"

#include "midi/alsa_backend.h"
#include "midi/jack_backend.h"
#include "midi/quiet_probe.h"

TMidiBackends::TMidiBackends() = default;

TMidiBackends::~TMidiBackends() { Stop(); }

void TMidiBackends::SetProblemHandler(TMidiSystemBackend::TProblemHandler handler) {
    fProblemHandler = std::move(handler);
}

int32_t TMidiBackends::Start(const TOptions& options) {
    if (fStarted) return int32_t(fAlsa != nullptr) + int32_t(fJack != nullptr);
    fStarted = true;
    {
        TQuietProbe quiet;
        if (options.useAlsa) fAlsa = TAlsaBackend::Open(&fAlsaError);
        if (options.useJack) fJack = TJackBackend::Open(options.jackServer, &fJackError);
    }
    // Names say which system a consumer belongs to only where both are present.
    const bool both = fAlsa && fJack;
    StartBackend(fAlsa.get(), both ? "ALSA: " : "");
    StartBackend(fJack.get(), both ? "JACK: " : "");
    return int32_t(fAlsa != nullptr) + int32_t(fJack != nullptr);
}

void TMidiBackends::StartBackend(TMidiSystemBackend* backend, const char* prefix) {
    if (!backend) return;
    backend->SetNamePrefix(prefix);
    backend->SetProblemHandler(fProblemHandler);
    backend->Start();
}

void TMidiBackends::Stop() {
    fStarted = false;
    fJack.reset();
    fAlsa.reset();
}

std::string TMidiBackends::Status() const {
    std::string alsa = fAlsa ? fAlsa->Status() : fAlsaError;
    std::string jack = fJack ? fJack->Status() : fJackError;
    if (!alsa.empty() && !jack.empty()) return alsa + "; " + jack;
    return alsa + jack;
}
