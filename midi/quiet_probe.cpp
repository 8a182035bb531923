#include "midi/quiet_probe.h"

#include <alsa/asoundlib.h>
#include <fluidsynth.h>
#include <jack/jack.h>

#include <cstdio>

namespace {

void quiet_alsa(const char*, int, const char*, int, const char*, ...) {}
void quiet_text(const char*) {}
void quiet_fluid(int, const char*, void*) {}
void jack_to_stderr(const char* text) { std::fprintf(stderr, "JACK: %s\n", text); }

constexpr int kFluidLevels[] = {FLUID_PANIC, FLUID_ERR, FLUID_WARN};

}  // namespace

TQuietProbe::TQuietProbe() {
    snd_lib_error_set_handler(quiet_alsa);
    jack_set_error_function(quiet_text);
    jack_set_info_function(quiet_text);
    for (int level : kFluidLevels) fluid_set_log_function(level, quiet_fluid, nullptr);
}

TQuietProbe::~TQuietProbe() {
    snd_lib_error_set_handler(nullptr);  // ALSA's own default again
    // JACK offers no way back to its default; errors of a running client still show.
    jack_set_error_function(jack_to_stderr);
    jack_set_info_function(quiet_text);
    for (int level : kFluidLevels)
        fluid_set_log_function(level, fluid_default_log_function, nullptr);
}
