// Checks sample rates and parses --raw.
// SPDX-License-Identifier: MIT
#include "cli/stream_format.h"

#include "cli/failure.h"
#include "cli/parse_number.h"
#include "stream/stream_types.h"

#include <algorithm>
#include <string_view>

namespace tarn
{

namespace
{

/// Parses a text as an unsigned number; 0 if it is not one.
std::uint32_t wholeNumber(std::string_view text)
{
    std::uint32_t value = 0;
    return parseNumber(text, value) ? value : 0;
}

// Rates outside this range come from damaged headers.
constexpr std::uint32_t kMinRateHz = 4000;
constexpr std::uint32_t kMaxRateHz = 768000;

} // namespace

bool isConvertibleRate(std::uint32_t sampleRate) noexcept
{
    return sampleRate >= kMinRateHz && sampleRate <= kMaxRateHz;
}

std::string convertibleRates()
{
    return std::to_string(kMinRateHz) + " to " + std::to_string(kMaxRateHz) + " Hz";
}

std::uint32_t engineRateFor(std::uint32_t sampleRate) noexcept
{
    const auto found = std::lower_bound(zrk_tarn::kSampleRatesHz.begin(), zrk_tarn::kSampleRatesHz.end(), sampleRate);
    return found == zrk_tarn::kSampleRatesHz.end() ? zrk_tarn::kSampleRatesHz.back() : *found;
}

std::uint64_t framesAtRate(std::uint64_t frames, std::uint32_t rate, std::uint32_t newRate) noexcept
{
    // Whole seconds and the rest separately, so that nothing overflows.
    const std::uint64_t seconds = frames / rate;
    const std::uint64_t rest = frames % rate;
    const std::uint64_t rounded = seconds * newRate + (2 * rest * newRate + rate) / (2 * std::uint64_t{rate});
    return frames > 0 ? std::max<std::uint64_t>(rounded, 1) : 0;
}

StreamFormat parseRawFormat(const std::string& text)
{
    const std::size_t colon = text.find(':');
    StreamFormat format;
    if (colon != std::string::npos) {
        format.sampleRate = wholeNumber(std::string_view(text).substr(0, colon));
        format.bits = wholeNumber(std::string_view(text).substr(colon + 1));
    }

    if (format.sampleRate == 0 || format.bits == 0)
        throw Failure(EX_USAGE, "--raw " + text + ": not RATE:BITS; write for example --raw 48000:16");
    if (!isConvertibleRate(format.sampleRate))
        throw Failure(EX_USAGE, "--raw " + text + ": unsupported sample rate; use " + convertibleRates());
    if (std::find(kWidths.begin(), kWidths.end(), format.bits) == kWidths.end())
        throw Failure(EX_USAGE, "--raw " + text + ": samples of this width are not supported; use 16, 24 or 32 bits");
    return format;
}

} // namespace tarn
