#pragma once
// The system reset messages the player sends before songs and recognises inside them:
// SysEx data without the leading 0xF0 and the closing 0xF7.

#include <cstddef>
#include <cstdint>
#include <cstring>

inline constexpr uint8_t MIDI_NRT_GM_SYSTEM_ON[] = {0x7E, 0x7F, 0x09, 0x01};
inline constexpr uint8_t MIDI_NRT_GS_SYSTEM_ON[] = {0x41, 0x10, 0x42, 0x12, 0x40,
                                                    0x00, 0x7F, 0x00, 0x41};
inline constexpr uint8_t MIDI_NRT_88_SYSTEM_ON[] = {0x41, 0x10, 0x42, 0x12, 0x00,
                                                    0x00, 0x7F, 0x00, 0x01};
inline constexpr uint8_t MIDI_NRT_XG_SYSTEM_ON[] = {0x43, 0x10, 0x4C, 0x00, 0x00, 0x7E, 0x00};

// Kind values, also the bits of the preference mask of resets to send.
enum : int32_t {
    kSysResetGM = 1,
    kSysResetGS = 2,
    kSysReset88 = 4,
    kSysResetXG = 8,
};

struct TSysReset {
    int32_t kind;
    const uint8_t* bytes;
    size_t length;
};

// In the order they are checked and sent: GM, GS, 88, XG.
inline constexpr TSysReset kSysResets[] = {
    {kSysResetGM, MIDI_NRT_GM_SYSTEM_ON, sizeof MIDI_NRT_GM_SYSTEM_ON},
    {kSysResetGS, MIDI_NRT_GS_SYSTEM_ON, sizeof MIDI_NRT_GS_SYSTEM_ON},
    {kSysReset88, MIDI_NRT_88_SYSTEM_ON, sizeof MIDI_NRT_88_SYSTEM_ON},
    {kSysResetXG, MIDI_NRT_XG_SYSTEM_ON, sizeof MIDI_NRT_XG_SYSTEM_ON},
};

// The kind of system reset that SysEx data (without its 0xF0) is, or 0. Only the prefix
// counts: a closing 0xF7 or further bytes do not matter. Unlike the original we never
// compare past the message's end; a shorter message is no reset.
inline int32_t sys_reset_kind(const uint8_t* data, size_t length) {
    for (const TSysReset& reset : kSysResets)
        if (length >= reset.length && std::memcmp(data, reset.bytes, reset.length) == 0)
            return reset.kind;
    return 0;
}
