// Computes the remap sums exactly and counts wraps.
// SPDX-License-Identifier: MIT
#include "cli/wrap_counter.h"

#include "cli/text.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace tarn
{

namespace
{

constexpr std::size_t kRows = 3;
constexpr int kGainFractionBits = 28;

using Terms = std::array<std::int32_t, kRows>;

Terms gainsOf(const zrk_tarn::RemapGains& matrix, std::size_t column) noexcept
{
    Terms gains;
    for (std::size_t row = 0; row < kRows; ++row) gains[row] = std::bit_cast<std::int32_t>(matrix.gain[row][column]);
    return gains;
}

/// The sum of the products, rounded towards minus infinity. Adds integer and fractional parts separately, because the
/// sum of three products needs up to 65 bits.
std::int64_t exactSum(const Terms& gains, const Terms& samples) noexcept
{
    constexpr std::int64_t kFraction = (std::int64_t{1} << kGainFractionBits) - 1;
    std::int64_t whole = 0;
    std::int64_t fraction = 0;
    for (std::size_t row = 0; row < kRows; ++row) {
        const std::int64_t product = std::int64_t{gains[row]} * samples[row];
        whole += product >> kGainFractionBits;
        fraction += product & kFraction;
    }
    return whole + (fraction >> kGainFractionBits);
}

std::int64_t fullScaleOf(std::uint32_t bits) noexcept
{
    return std::int64_t{1} << (bits - 1);
}

bool wraps(std::int64_t sum, std::uint32_t bits) noexcept
{
    return sum < -fullScaleOf(bits) || sum >= fullScaleOf(bits);
}

/// The largest factor with two decimals that keeps the sums of a column within full scale.
double factorFor(const RemapSums::Column& column, double fullScale) noexcept
{
    // The margin exceeds the rounding of the sums and of the gains.
    constexpr double kMargin = 0x1p-26;
    const double magnitude = std::max(static_cast<double>(column.largest) + 1.0, -static_cast<double>(column.smallest));
    return std::floor(100.0 * (1.0 - kMargin) * fullScale / magnitude) / 100.0;
}

} // namespace

RemapSums::RemapSums(const zrk_tarn::RemapGains& matrix, StreamFormat format) noexcept
    : gains(matrix), bits(format.bits)
{}

void RemapSums::write(const std::int32_t* samples, std::size_t frames)
{
    for (std::size_t c = 0; c < kRemapColumns; ++c) {
        const Terms columnGains = gainsOf(gains, c);
        Column& column = sums[c];
        for (std::size_t i = 0; i < frames; ++i) {
            Terms frame;
            for (std::size_t row = 0; row < kRows; ++row) frame[row] = samples[i * kRows + row] >> (32 - bits);
            const std::int64_t sum = exactSum(columnGains, frame);
            column.smallest = std::min(column.smallest, sum);
            column.largest = std::max(column.largest, sum);
            if (wraps(sum, bits)) ++column.wrapped;
        }
    }
}

bool WrapCounter::canWrap(const zrk_tarn::RemapGains& matrix, std::uint32_t bits) noexcept
{
    const auto smallest = static_cast<std::int32_t>(-fullScaleOf(bits));
    const auto largest = static_cast<std::int32_t>(fullScaleOf(bits) - 1);
    for (std::size_t c = 0; c < kRemapColumns; ++c) {
        const Terms gains = gainsOf(matrix, c);
        Terms lowest;
        Terms highest;
        for (std::size_t row = 0; row < kRows; ++row) {
            lowest[row] = gains[row] > 0 ? smallest : largest;
            highest[row] = gains[row] > 0 ? largest : smallest;
        }
        if (wraps(exactSum(gains, lowest), bits) || wraps(exactSum(gains, highest), bits)) return true;
    }
    return false;
}

WrapCounter::WrapCounter(StreamFormat format, const EngineSettings& settings, bool align)
    : fullScale(static_cast<double>(fullScaleOf(format.bits))),
      sums(settings.remap, format),
      plain(layoutNamed("3.0"), format, {.mode = settings.mode, .room = {}}, align, sums)
{}

std::uint64_t WrapCounter::wrapped() const noexcept
{
    std::uint64_t samples = 0;
    for (const RemapSums::Column& column : sums.columns()) samples += column.wrapped;
    return samples;
}

std::string WrapCounter::note(const RemapSlots& slots) const
{
    double largest = 0.0;
    std::string advice;
    for (std::size_t c = 0; c < kRemapColumns; ++c) {
        const RemapSums::Column& column = sums.columns()[c];
        largest = std::max({largest, static_cast<double>(column.largest), -static_cast<double>(column.smallest)});
        if (column.wrapped > 0)
            advice += (advice.empty() ? ": multiply the gains of column " : ", of column ") + std::to_string(c + 1) +
                      " (" + slots[c] + ") by " + formatted("%.2f", factorFor(column, fullScale));
    }
    if (!advice.empty()) advice += " or less";
    const std::uint64_t samples = wrapped();
    return (samples == 0 ? "no" : std::to_string(samples)) + (samples > 1 ? " samples" : " sample") +
           " wrapped around; the loudest sample of the mix is " + formatted("%.4g", largest / fullScale) +
           " times full scale" + advice;
}

} // namespace tarn
