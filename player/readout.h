#pragma once
// The texts of the read-outs beside the sliders: the language's prefix ("Vol:"), then the
// value, then "%" for percentages; a key above 0 carries "+" (below 0 its own minus).

#include <cstdint>
#include <string>

namespace quill {

enum class TReadoutKind {
    kPercent,
    kSigned,
};

std::string readout_text(const std::string& prefix, int32_t value, TReadoutKind kind);

}  // namespace quill
