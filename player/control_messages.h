#pragma once
// The requests the control bar sends to its target: the transport buttons, the list button
// and the sliders. The player's controller takes them too, without a bar.

#include <cstdint>

namespace quill {

// Transport buttons; each carries int32 "be:value".
constexpr uint32_t kMsgPlay = 'play';
constexpr uint32_t kMsgPause = 'puse';
constexpr uint32_t kMsgStop = 'stop';
constexpr uint32_t kMsgNext = 'next';
constexpr uint32_t kMsgPrev = 'prev';
// The list button: shows or hides the playlist part of the window.
constexpr uint32_t kMsgListToggled = 'tlst';
// Sliders, with int32 "be:value": "changed" when released, "changing" while dragged.
constexpr uint32_t kMsgVolumeChanged = 'svlc';
constexpr uint32_t kMsgKeyChanged = 'skyc';
constexpr uint32_t kMsgKeyChanging = 'skyg';
constexpr uint32_t kMsgTempoChanged = 'stpc';
constexpr uint32_t kMsgTempoChanging = 'stpg';
constexpr uint32_t kMsgPosChanged = 'spoc';
constexpr uint32_t kMsgPosChanging = 'spog';

}  // namespace quill
