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

/// Adds a tenth of a band's magnitude: in double with the widened single-precision 0.1, then rounded to single.
float plusTenthOf(float total, float value) noexcept
{
    const double tenth = static_cast<double>(kAdded) * static_cast<double>(__builtin_fabsf(value));
    return static_cast<float>(static_cast<double>(total) + tenth);
}

constexpr int kSegment = 8; ///< bands that are added together or not at all
constexpr int kSegments = 64 / kSegment;

/// Terms rounded to multiples of a unit, added lane by lane, and how far the rounding took any of them.
struct RoundedTenths
{
    Doubles<kSegment> multiples;
    Doubles<kSegment> farthest;
};

[[gnu::always_inline]] inline RoundedTenths roundedTenths(const float* values, double unit) noexcept
{
    // Added and taken away again, this rounds a double to multiples of the unit.
    const Doubles<kSegment> rounder = broadcast<kSegment>(unit * 0x1.8p52);
    const Doubles<kSegment> tenths =
        abs(toDouble(load<kSegment>(values))) * broadcast<kSegment>(static_cast<double>(kAdded));
    const Doubles<kSegment> multiples = (tenths + rounder) - rounder;
    return {multiples, abs(tenths - multiples)};
}

[[gnu::always_inline]] inline RoundedTenths operator+(const RoundedTenths& a, const RoundedTenths& b) noexcept
{
    return {a.multiples + b.multiples, select(a.farthest < b.farthest, b.farthest, a.farthest)};
}

/// Adds a tenth of the magnitudes of whole segments all at once, as many from the first as give the same bits as one
/// addition after the other. Returns how many those are.
///
/// As long as the total stays in one binade, its last place has one weight, the unit, and every addition rounds its
/// term to a multiple of the unit: the term's own nearest multiple, unless it lies so close to the middle between two
/// that the total decides. Sums of multiples of the unit are exact in any order.
int addSegments(const float* values, int segments, float& total) noexcept
{
    constexpr std::uint32_t kExponentBits = 0x7f800000;
    const std::uint32_t exponent = __builtin_bit_cast(std::uint32_t, total) & kExponentBits;
    if (exponent == 0 || !(total > 0.0f)) return 0;
    const auto binade = static_cast<double>(__builtin_bit_cast(float, exponent));
    const double unit = binade * 0x1p-23;

    // The double in which a term is added is off by 2^-30 units at most.
    const double clear = unit * (0.5 - 0x1p-28);

    RoundedTenths all = roundedTenths(values, unit);
    for (int k = 1; k < segments; ++k) all = all + roundedTenths(values + k * kSegment, unit);
    const double end = static_cast<double>(total) + anyOrderSum(all.multiples);
    if (end < 2.0 * binade && !any(broadcast<kSegment>(clear) < all.farthest)) {
        total = static_cast<float>(end);
        return segments;
    }

    int k = 0;
    for (; k < segments; ++k) {
        const RoundedTenths one = roundedTenths(values + k * kSegment, unit);
        const double next = static_cast<double>(total) + anyOrderSum(one.multiples);
        if (!(next < 2.0 * binade) || any(broadcast<kSegment>(clear) < one.farthest)) break;
        total = static_cast<float>(next);
    }
    return k;
}

/// Adds a tenth of all magnitudes in their order, rounding after each.
float plusTenthsOf(float total, const float (&values)[64]) noexcept
{
    int k = addSegments(values, kSegments, total);
    while (k < kSegments) {
        for (int b = k * kSegment; b < (k + 1) * kSegment; ++b) total = plusTenthOf(total, values[b]);
        ++k;
        if (k < kSegments) k += addSegments(values + k * kSegment, kSegments - k, total);
    }
    return total;
}

} // namespace

void trackSpectrum(const float (&subband)[64], float& spectrum, float& peakRegion, float& rest) noexcept
{
    const Largest strongest = largestOf(abs(load<64>(subband)));
    const std::int32_t b = strongest.index;

    spectrum = gradualProduct(spectrum, kKept);
    peakRegion = gradualProduct(peakRegion, kKept);
    // One zero adds what all of them do; NaN is no zero.
    const bool silent = strongest.value == 0.0f && !any(~(load<64>(subband) == broadcast<64>(0.0f)));
    spectrum = silent ? plusTenthOf(spectrum, 0.0f) : plusTenthsOf(spectrum, subband);

    peakRegion = plusTenthOf(peakRegion, subband[b]);
    if (b < 63) peakRegion = plusTenthOf(peakRegion, subband[b + 1]);
    if (b > 0) peakRegion = plusTenthOf(peakRegion, subband[b - 1]);
    rest = spectrum - peakRegion;
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
