// The definitions of the transforms in double, and test vectors.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/random.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <vector>

namespace tests
{

using Vector = std::vector<float>;

/// Output k of a DCT-III.
inline double definedDct3(const Vector& x, std::size_t k)
{
    double sum = 0.0;
    const auto n = static_cast<double>(x.size());
    const auto odd = static_cast<double>(2 * k + 1);
    for (std::size_t m = 0; m < x.size(); ++m)
        sum += static_cast<double>(x[m]) * std::cos(std::numbers::pi * static_cast<double>(m) * odd / (2.0 * n));
    return sum;
}

/// Output k of a DCT-IV.
inline double definedDct4(const Vector& x, std::size_t k)
{
    double sum = 0.0;
    const auto n = static_cast<double>(x.size());
    const auto odd = static_cast<double>(2 * k + 1);
    for (std::size_t m = 0; m < x.size(); ++m)
        sum +=
            static_cast<double>(x[m]) * std::cos(std::numbers::pi * static_cast<double>(2 * m + 1) * odd / (4.0 * n));
    return sum;
}

inline Vector noise(std::size_t n, std::uint64_t seed)
{
    tests::Random random(seed);
    Vector x(n);
    for (float& value : x) value = static_cast<float>(random.uniform());
    return x;
}

inline Vector impulse(std::size_t n)
{
    Vector x(n, 0.0f);
    x[0] = 1.0f;
    return x;
}

inline bool sameBits(const Vector& a, const Vector& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

/// Bounds rounding errors of single-precision sums of 32 products with scales of up to 41.
inline constexpr double kRounding = 2e-5;

} // namespace tests
