#include "engine/volume_fade.h"

#include "engine/sys_reset.h"

void TVolumeFade::SystemExclusive(const uint8_t* data, size_t length) {
    if (sys_reset_kind(data, length) == 0) return;
    fSong.fill(kDefaultVolume);
    fSent.fill(kDefaultVolume);
}
