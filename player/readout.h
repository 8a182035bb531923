#pragma once
// The texts of the read-outs beside the sliders: the language's prefix ("Vol:"), then the
// value, then "%" for percentages; a key above 0 carries "+" (below 0 its own minus).
// And the song's time as the title display and the terminal show it.

#include <cstdint>
#include <string>

namespace quill {

enum class TReadoutKind {
    kPercent,
    kSigned,
};

std::string readout_text(const std::string& prefix, int32_t value, TReadoutKind kind);

// A song's elapsed and total time, "1:23 / 3:45"; both with hours ("0:01:23 / 1:02:03")
// once the total reaches an hour, so the two halves keep one shape. Whole seconds, cut
// down; empty when totalUs is below 0 (no song).
std::string elapsed_total_text(int64_t elapsedUs, int64_t totalUs);

}  // namespace quill
