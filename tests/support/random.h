// Random numbers for tests.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <random>

namespace tests
{

/// Random numbers that are the same on every platform: the standard defines the generator but not its distributions.
class Random
{
public:
    explicit Random(std::uint64_t seed) : generator(seed) {}

    std::uint32_t bits() { return static_cast<std::uint32_t>(generator() >> 32); }

    /// 0 to count - 1.
    std::uint32_t below(std::uint32_t count) { return bits() % count; }

    bool chance(std::uint32_t outOf) { return below(outOf) == 0; }

    /// -1 to 1.
    double uniform() { return static_cast<double>(bits()) / 2147483648.0 - 1.0; }

    template <typename T, std::size_t kCount>
    const T& oneOf(const T (&choices)[kCount])
    {
        return choices[below(static_cast<std::uint32_t>(kCount))];
    }

private:
    std::mt19937_64 generator;
};

} // namespace tests
