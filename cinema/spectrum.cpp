// The sum of subband magnitudes and the share of the strongest bands.
// SPDX-License-Identifier: MIT
#include "cinema/spectrum.h"

#include "cinema/largest.h"
#include "cinema/smoothing.h"
#include "lanes/lanes.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

constexpr float kKept = 0.9f;
constexpr float kAdded = 0.1f;

/// Adds a tenth of a magnitude: in double, with 0.1 in single precision, rounded to single.
float addTenth(float total, float value) noexcept
{
    const double tenth = static_cast<double>(kAdded) * static_cast<double>(__builtin_fabsf(value));
    return static_cast<float>(static_cast<double>(total) + tenth);
}

constexpr int kSegment = 8; ///< bands that are added together
constexpr int kSegments = 64 / kSegment;

/// Sums of terms that were rounded to multiples of a unit, and the largest rounding errors.
struct RoundedTenths
{
    Doubles<kSegment> multiples;
    Doubles<kSegment> largestError;
};

[[gnu::always_inline]] inline RoundedTenths roundedTenths(const float* values, double unit) noexcept
{
    // Adding and subtracting this number rounds a double to a multiple of the unit.
    const Doubles<kSegment> rounder = broadcast<kSegment>(unit * 0x1.8p52);
    const Doubles<kSegment> tenths =
        abs(toDouble(load<kSegment>(values))) * broadcast<kSegment>(static_cast<double>(kAdded));
    const Doubles<kSegment> multiples = (tenths + rounder) - rounder;
    return {multiples, abs(tenths - multiples)};
}

[[gnu::always_inline]] inline RoundedTenths operator+(const RoundedTenths& a, const RoundedTenths& b) noexcept
{
    return {a.multiples + b.multiples, larger(a.largestError, b.largestError)};
}

/// Adds a tenth of the magnitudes of some segments to the total if adding them together gives the same bits as one
/// addition after the other; returns whether it did.
///
/// While the total stays in one binade, its last digit has a constant weight, the unit, and every addition rounds its
/// term to a multiple of the unit: to the nearest one, unless the term is so close to the middle between two multiples
/// that the total decides. Sums of multiples of the unit are exact in any order.
[[gnu::always_inline]] inline bool addTogether(const float* values, int segments, float& total) noexcept
{
    constexpr std::uint32_t kExponentBits = 0x7f800000;
    const std::uint32_t exponent = __builtin_bit_cast(std::uint32_t, total) & kExponentBits;
    if (exponent == 0 || !(total > 0.0f)) return false;
    const auto binade = static_cast<double>(__builtin_bit_cast(float, exponent));
    const double unit = binade * 0x1p-23;

    // Rounding errors up to this one are clear of the middle: the error of a term in double is at most 2^-30 units.
    const double clear = unit * (0.5 - 0x1p-28);

    RoundedTenths all = roundedTenths(values, unit);
#pragma GCC unroll 1
    for (int k = 1; k < segments; ++k) all = all + roundedTenths(values + k * kSegment, unit);
    const double end = static_cast<double>(total) + anyOrderSum(all.multiples);
    if (!(end < 2.0 * binade) || any(broadcast<kSegment>(clear) < all.largestError)) return false;
    total = static_cast<float>(end);
    return true;
}

/// Adds a tenth of all magnitudes in ascending order, segment by segment as far as that is exact, then the next segment
/// band by band, then all others together or in the same way.
[[gnu::noinline]] float addSegments(float total, const float (&values)[64]) noexcept
{
    int k = 0;
    do {
        while (k < kSegments && addTogether(values + k * kSegment, 1, total)) ++k;
        if (k == kSegments) break;
        for (int b = k * kSegment; b < (k + 1) * kSegment; ++b) total = addTenth(total, values[b]);
        ++k;
    } while (k < kSegments && !addTogether(values + k * kSegment, kSegments - k, total));
    return total;
}

/// Adds a tenth of all magnitudes in ascending order, rounding after each addition.
float addTenths(float total, const float (&values)[64]) noexcept
{
    return addTogether(values, kSegments, total) ? total : addSegments(total, values);
}

} // namespace

void trackSpectrum(const float (&subband)[64], float& spectrum, float& peakRegion, float& rest) noexcept
{
    const Largest strongest = largestOf(abs(load<64>(subband)));
    const std::int32_t b = strongest.index;

    spectrum = subnormalSafeProduct(spectrum, kKept);
    peakRegion = subnormalSafeProduct(peakRegion, kKept);
    // Adding one zero gives the same as adding 64. NaN is not zero.
    const bool silent = strongest.value == 0.0f && !any(~(load<64>(subband) == broadcast<64>(0.0f)));
    spectrum = silent ? addTenth(spectrum, 0.0f) : addTenths(spectrum, subband);

    peakRegion = addTenth(peakRegion, subband[b]);
    if (b < 63) peakRegion = addTenth(peakRegion, subband[b + 1]);
    if (b > 0) peakRegion = addTenth(peakRegion, subband[b - 1]);
    rest = spectrum - peakRegion;
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
