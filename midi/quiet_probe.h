#pragma once
// TQuietProbe: while alive, the system libraries we probe (ALSA, JACK, FluidSynth's audio
// drivers) keep their complaints about missing devices and servers to themselves; the
// program says what it found in one line of its own instead.

class TQuietProbe {
  public:
    TQuietProbe();
    ~TQuietProbe();
    TQuietProbe(const TQuietProbe&) = delete;
    TQuietProbe& operator=(const TQuietProbe&) = delete;
};
