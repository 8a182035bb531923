#pragma once
// TVolumeFade: the channel volume (controller 7) of one port's sixteen channels under the
// fade of a song's marked loop. Scaling note-on velocities alone leaves the notes already
// sounding (pads, strings, organ) at full loudness until they end; scaling the channel
// volume fades them too, and the notes struck during the fade with them.
//
// It remembers the last volume the song gave each channel (100, the General MIDI default,
// until it gives one or a system reset sets it back) and hands that volume on scaled by
// the fade level. When the level steps, it sends the scaled volume to each channel whose
// 7-bit value changed, so a step that changes nothing costs nothing on the wire.
//
// The faded volumes are given back when the level returns to kFadeFull, which is when
// the next song starts to play, not when the faded one ends: notes released at its end
// ring on, and restoring the volume under them would swell them back up. A song that
// never sends controller 7 therefore starts at the volumes in force before the fade.
//
// Plain state for one thread (a filter's receive thread, the offline render); nothing
// allocates, locks or blocks.

#include <array>
#include <cstddef>
#include <cstdint>

#include "engine/loop_plan.h"

class TVolumeFade {
  public:
    static constexpr uint8_t kVolumeController = 7;
    static constexpr uint8_t kDefaultVolume = 100;

    int32_t Level() const { return fLevel; }
    // A controller of the song: the value to send on, a volume remembered and scaled.
    uint8_t ControlChange(uint8_t channel, uint8_t controller, uint8_t value) {
        if (controller != kVolumeController) return value;
        channel &= 0x0F;
        fSong[channel] = value & 0x7F;
        fSent[channel] = Scale(fSong[channel], fLevel);
        return fSent[channel];
    }
    // A SysEx of the song (without its 0xF0): a system reset puts every channel of the
    // synthesizer back to the default volume.
    void SystemExclusive(const uint8_t* data, size_t length);
    // The fade level (per mille) from now on: send(channel, value) for every channel whose
    // volume changes with it.
    template <typename Send>
    void SetLevel(int32_t level, Send&& send) {
        if (level == fLevel) return;
        fLevel = level;
        for (uint8_t channel = 0; channel < 16; ++channel) {
            const uint8_t value = Scale(fSong[channel], level);
            if (value == fSent[channel]) continue;
            fSent[channel] = value;
            send(channel, value);
        }
    }

    static uint8_t Scale(uint8_t value, int32_t level) {
        if (level >= TLoopPlan::kFadeFull) return value;
        if (level <= 0) return 0;
        return uint8_t(int32_t(value) * level / TLoopPlan::kFadeFull);
    }

  private:
    int32_t fLevel = TLoopPlan::kFadeFull;
    std::array<uint8_t, 16> fSong = filled(kDefaultVolume);
    std::array<uint8_t, 16> fSent = filled(kDefaultVolume);

    static constexpr std::array<uint8_t, 16> filled(uint8_t value) {
        std::array<uint8_t, 16> values{};
        values.fill(value);
        return values;
    }
};
