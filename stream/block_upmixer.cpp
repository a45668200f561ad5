// Runs blocks through the engine.
// SPDX-License-Identifier: MIT
#include "stream/block_upmixer.h"

#include "dispatch/instruction_sets.h"
#include "host/reconfigure.h"

#include <algorithm>
#include <cstring>

namespace zrk_tarn
{

namespace
{

using Codes = audio_channel_assignment_t;

constexpr Codes kPlain{{Codes::kLeft, Codes::kRight, Codes::kCentre}};
constexpr Codes kRemapped{{Codes::kLeft, Codes::kRight, Codes::kRemapColumn2, Codes::kRemapColumn3}};

void setUp(zrk_tarn_processor_t& processor, SteeringMode mode) noexcept
{
    processor.setup(mode == SteeringMode::Fast ? 0 : 1, 0, 1.0f);
}

} // namespace

BlockUpmixer::BlockUpmixer(const StreamConfiguration& configuration, std::uint32_t sampleBits)
    : assignment(configuration.remap ? kRemapped : kPlain),
      sampleRateHz(configuration.sampleRateHz),
      slots(configuration.remap ? 8 : 3),
      bits(sampleBits),
      packed(chosenOperations().interleavingOf(bits == 16   ? SampleType::Int16
                                               : bits == 24 ? SampleType::Int24
                                                            : SampleType::Int32,
                                               slots))
{
    if (configuration.remap) setRemap(*configuration.remap);
    setUp(processor, configuration.mode);
    callProcessor(0); // creates the engine
}

void BlockUpmixer::process(const Row& left, const Row& right, Row (&outputRows)[4]) noexcept
{
    if (slots == kMaxSlots) {
        processRemapped(left, right, outputRows);
        return;
    }
    const BlockOperations& operations = chosenOperations();
    operations.readRows(*processor.engine, left, right);
    operations.processCine3(*processor.engine);
    operations.writeRows(*processor.engine, outputRows);
}

/// The matrix works on the samples of a host's buffer: its sums wrap to their width.
void BlockUpmixer::processRemapped(const Row& left, const Row& right, Row (&outputRows)[4]) noexcept
{
    std::copy_n(left, kBlockFrames, rows[0]);
    std::copy_n(right, kBlockFrames, rows[1]);
    packed.store(rows, 0, kBlockFrames, buffer);
    callProcessor(kBlockFrames);
    SampleFaults none; // integers have no faults
    packed.load(buffer, kBlockFrames, rows, 0, none);
    for (std::size_t row = 0; row < 4; ++row) std::copy_n(rows[row], kBlockFrames, outputRows[row]);
}

void BlockUpmixer::setRemap(const RemapGains& gains) noexcept
{
    unsigned words[3][4];
    std::memcpy(words, gains.gain, sizeof words);
    processor.set_remap_coeff(words);
}

void BlockUpmixer::setMode(SteeringMode mode) noexcept
{
    setUp(processor, mode);
    reconfigure(processor);
}

void BlockUpmixer::restart(SteeringMode mode) noexcept
{
    setUp(processor, mode);
    zrk_tarn::restart(processor);
}

void BlockUpmixer::callProcessor(std::uint32_t frames)
{
    processor.process(buffer, frames, slots, sampleRateHz, bits, &assignment);
}

} // namespace zrk_tarn
