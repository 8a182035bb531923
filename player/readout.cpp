#include "player/readout.h"

#include <algorithm>
#include <cstdio>

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

namespace {

constexpr int64_t kUsPerSecond = 1000000;
constexpr int64_t kSecondsPerHour = 3600;

std::string clock_text(int64_t us, bool withHours) {
    const long long seconds = std::max<int64_t>(us, 0) / kUsPerSecond;
    char text[32];
    if (withHours)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", seconds / kSecondsPerHour,
                      seconds / 60 % 60, seconds % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", seconds / 60, seconds % 60);
    return text;
}

}  // namespace

std::string elapsed_total_text(int64_t elapsedUs, int64_t totalUs) {
    if (totalUs < 0) return {};
    const bool hours = totalUs / kUsPerSecond >= kSecondsPerHour;
    return clock_text(elapsedUs, hours) + " / " + clock_text(totalUs, hours);
}

}  // namespace quill
