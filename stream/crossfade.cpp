// Mixes the upmix with the bypassed input and applies the make-up gain.
// SPDX-License-Identifier: MIT
#include "stream/crossfade.h"

#include <algorithm>

namespace zrk_tarn
{

void Crossfade::mix(const Row& wet, const Row* dry, Row& out, SampleFaults& faults) const noexcept
{
    if (wetShare.isSteadyAt(1.0f) && gain.isSteadyAt(1.0f)) {
        std::copy_n(wet, kBlockFrames, out);
    } else {
        mixSamples([&](std::size_t i) { return wetShare.at(i) * gain.at(i) * static_cast<double>(wet[i]); }, dry, out,
                   faults);
    }
}

void Crossfade::mix(const UnroundedRow& wet, const Row* dry, Row& out, SampleFaults& faults) const noexcept
{
    mixSamples([&](std::size_t i) { return wetShare.at(i) * gain.at(i) * wet[i]; }, dry, out, faults);
}

template <typename WetRow>
void Crossfade::amplify(const WetRow& wet, UnroundedRow& amplified) const noexcept
{
    for (std::size_t i = 0; i < kBlockFrames; ++i) amplified[i] = static_cast<double>(wet[i]) * gain.at(i);
}

template void Crossfade::amplify(const Row& wet, UnroundedRow& amplified) const noexcept;
template void Crossfade::amplify(const UnroundedRow& wet, UnroundedRow& amplified) const noexcept;

void Crossfade::fade(const UnroundedRow& amplified, const Row* dry, Row& out, SampleFaults& faults) const noexcept
{
    if (wetShare.isSteadyAt(1.0f)) {
        round(amplified, out, faults);
    } else {
        mixSamples([&](std::size_t i) { return wetShare.at(i) * amplified[i]; }, dry, out, faults);
    }
}

/// valueAt(i)  the sample's part of the upmix
template <typename ValueAt>
void Crossfade::mixSamples(ValueAt valueAt, const Row* dry, Row& out, SampleFaults& faults) const noexcept
{
    if (wetShare.isSteadyAt(0.0f)) {
        for (std::size_t i = 0; i < kBlockFrames; ++i) out[i] = dry != nullptr ? (*dry)[i] : 0;
        return;
    }
    UnroundedRow mixed;
    for (std::size_t i = 0; i < kBlockFrames; ++i) mixed[i] = valueAt(i);
    if (dry != nullptr && !wetShare.isSteadyAt(1.0f))
        for (std::size_t i = 0; i < kBlockFrames; ++i)
            mixed[i] += (1.0 - wetShare.at(i)) * static_cast<double>((*dry)[i]);
    round(mixed, out, faults);
}

/// Rounds half away from zero and saturates. Its first loop has no branches, so that compilers vectorise it.
void Crossfade::round(const UnroundedRow& values, Row& out, SampleFaults& faults) const noexcept
{
    const double lowest = -limit;
    const double highest = limit - 1.0;
    UnroundedRow rounded;
    for (std::size_t i = 0; i < kBlockFrames; ++i) {
        rounded[i] = values[i] + (values[i] < 0.0 ? -0.5 : 0.5);
        const double bounded = rounded[i] < highest ? rounded[i] : highest;
        out[i] = static_cast<std::int32_t>(bounded < lowest ? lowest : bounded);
    }
    if (reachesFullScale(out))
        faults.saturated += static_cast<std::uint64_t>(std::count_if(
            rounded, rounded + kBlockFrames, [&](double value) { return value >= limit || value <= lowest - 1.0; }));
}

bool Crossfade::reachesFullScale(const Row& row) const noexcept
{
    const auto lowest = static_cast<std::int32_t>(-limit);
    const auto highest = static_cast<std::int32_t>(limit - 1.0);
    int found = 0; // a loop without an exit, so that compilers vectorise it
    for (const std::int32_t sample : row)
        found |= static_cast<int>(sample == lowest) | static_cast<int>(sample == highest);
    return found != 0;
}

} // namespace zrk_tarn
