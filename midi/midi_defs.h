#pragma once
// Status bytes and controller numbers shared by the chain.

#include <cstddef>
#include <cstdint>

namespace midi {

constexpr uint8_t kNoteOff = 0x80;
constexpr uint8_t kNoteOn = 0x90;
constexpr uint8_t kKeyPressure = 0xA0;
constexpr uint8_t kControlChange = 0xB0;
constexpr uint8_t kProgramChange = 0xC0;
constexpr uint8_t kChannelPressure = 0xD0;
constexpr uint8_t kPitchBend = 0xE0;
constexpr uint8_t kSysExStart = 0xF0;
constexpr uint8_t kSysExEnd = 0xF7;
constexpr uint8_t kSystemReset = 0xFF;
constexpr uint8_t kMetaEvent = 0xFF;
constexpr uint8_t kMetaTempo = 0x51;

constexpr uint8_t kCtrlAllSoundOff = 120;
constexpr uint8_t kCtrlResetAllControllers = 121;
constexpr uint8_t kCtrlAllNotesOff = 123;

// The chain passes meta events (tempo changes) as 0xFF plus data; a lone 0xFF is a system
// reset. Meta events have no form on a MIDI wire.
inline bool is_meta_event(const uint8_t* data, size_t length) {
    return length > 1 && data[0] == kMetaEvent;
}

constexpr int kChannels = 16;
constexpr uint8_t kPercussionChannel = 9;

}  // namespace midi
