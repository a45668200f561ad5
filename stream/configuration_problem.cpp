// Checks a stream configuration.
// SPDX-License-Identifier: MIT
#include "stream/upmix_stream.h"

#include <algorithm>

namespace zrk_tarn
{

namespace
{

bool isSlotCount(std::uint32_t slots) noexcept
{
    return slots >= 1 && slots <= kMaxSlots;
}

const char* problemOf(const OutputSlot& slot, const StreamConfiguration& configuration) noexcept
{
    switch (slot.source) {
    case OutputSlot::Source::Engine:
        if (configuration.remap) return slot.index < 4 ? nullptr : "a remapped engine has outputs 0 to 3";
        return slot.index < 3 ? nullptr : "the engine has outputs 0 to 2, or 0 to 3 with a remap matrix";
    case OutputSlot::Source::Input:
        return slot.index < configuration.inputSlots ? nullptr
                                                     : "an output slot copies an input slot that does not exist";
    case OutputSlot::Source::Silence:
        return nullptr;
    case OutputSlot::Source::Surround:
        if (configuration.remap) return "a remapped engine has no surround channels";
        return slot.index < 4 ? nullptr : "there are surround channels 0 to 3";
    case OutputSlot::Source::Dialogue:
        if (configuration.remap) return "a remapped engine has no dialogue outputs";
        return slot.index < 2 ? nullptr : "the dialogue outputs are 0, left, and 1, right";
    case OutputSlot::Source::Lfe:
        if (configuration.remap) return "a remapped engine has no LFE channel";
        return slot.index == 0 ? nullptr : "there is one LFE channel, 0";
    }
    return "an output slot has an unknown source";
}

} // namespace

const char* UpmixStream::problemOf(const StreamConfiguration& configuration) noexcept
{
    if (std::find(kSampleRatesHz.begin(), kSampleRatesHz.end(), configuration.sampleRateHz) == kSampleRatesHz.end())
        return "the sample rate has to be 32000, 44100, 48000, 64000, 88200, 96000 or 192000 Hz";
    if (configuration.format > SampleFormat::F32) return "the sample format is unknown";
    if (!isSlotCount(configuration.inputSlots)) return "there have to be 1 to 8 input slots";
    if (configuration.leftSlot >= configuration.inputSlots || configuration.rightSlot >= configuration.inputSlots)
        return "left and right have to be among the input slots";
    if (!isSlotCount(configuration.outputSlots)) return "there have to be 1 to 8 output slots";
    for (std::size_t slot = 0; slot < configuration.outputSlots; ++slot)
        if (const char* const problem = zrk_tarn::problemOf(configuration.outputs[slot], configuration)) return problem;
    if (configuration.mode > SteeringMode::Calm) return "the steering mode is unknown";
    if (configuration.bass > BassMode::Fronts) return "the bass mode is unknown";
    if (configuration.bass == BassMode::Fronts && configuration.remap)
        return "a remapped engine has no fronts to play the bass";
    return nullptr;
}

} // namespace zrk_tarn
