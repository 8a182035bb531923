#include "player/readout.h"

namespace quill {

std::string readout_text(const std::string& prefix, int32_t value, TReadoutKind kind) {
    switch (kind) {
        case TReadoutKind::kPercent:
            return prefix + std::to_string(value) + "%";
        case TReadoutKind::kSigned:
            return prefix + (value > 0 ? "+" : "") + std::to_string(value);
    }
    return prefix;
}

}  // namespace quill
