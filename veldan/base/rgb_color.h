#pragma once
// A colour as settings files and views exchange it: 8 bits per channel, alpha last.

#include <cstdint>

namespace veldan {

struct rgb_color {
    uint8_t red = 0;
    uint8_t green = 0;
    uint8_t blue = 0;
    uint8_t alpha = 255;

    bool operator==(const rgb_color&) const = default;
};

}  // namespace veldan
