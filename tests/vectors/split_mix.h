// The random generator of the vectors.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace tests
{

/// The generator SplitMix64, which is easy to port.
class SplitMix
{
public:
    explicit SplitMix(std::uint64_t seed) : state(seed) {}

    /// The next 32 random bits: the upper half of the next number.
    std::uint32_t bits()
    {
        state += 0x9e3779b97f4a7c15u;
        std::uint64_t mixed = state;
        mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9u;
        mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebu;
        return static_cast<std::uint32_t>((mixed ^ (mixed >> 31)) >> 32);
    }

private:
    std::uint64_t state;
};

} // namespace tests
