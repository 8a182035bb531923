#pragma once
// The program's random numbers: one Mersenne Twister seeded from the system's entropy
// source, so that every run draws anew. Whoever needs random choices takes a source and
// hands it on, so that one engine serves them all and a test can put its own in its place.

#include <cstdint>
#include <functional>
#include <memory>
#include <random>

namespace veldan {

// Returns a random number from 0 to 2^32 - 1.
using TRandomFn = std::function<uint32_t()>;

inline TRandomFn seeded_random() {
    std::random_device entropy;
    std::seed_seq seed{entropy(), entropy(), entropy(), entropy()};
    auto engine = std::make_shared<std::mt19937>(seed);
    return [engine] { return uint32_t((*engine)()); };
}

}  // namespace veldan
