// Mixes the upmix with the bypassed input and applies the make-up gain.
// SPDX-License-Identifier: MIT
#include "stream/crossfade.h"

#include "dispatch/instruction_sets.h"

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

void Crossfade::amplify(const UnroundedRow& wet, UnroundedRow& amplified) const noexcept
{
    chosenOperations().rows.multiply(wet, gain.row(), amplified);
}

void Crossfade::amplify(const Row& wet, UnroundedRow& amplified) const noexcept
{
    chosenOperations().rows.widen(wet, limit, amplified);
    amplify(amplified, amplified);
}

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

void Crossfade::round(const UnroundedRow& values, Row& out, SampleFaults& faults) const noexcept
{
    faults.saturated += chosenOperations().rows.round(values, limit, out);
}

} // namespace zrk_tarn
