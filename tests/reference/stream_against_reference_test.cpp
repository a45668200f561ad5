// Compares streams with those of the reference: all samples of all slots, while every setting changes.
// SPDX-License-Identifier: MIT
#include "tests/reference/stream_pair.h"
#include "tests/support/random.h"
#include "tests/support/signals.h"

#include <gtest/gtest.h>

#include <array>
#include <tuple>

namespace tests
{

namespace
{

using reference::StreamPair;
using reference::StreamSettings;
using zrk_tarn::OutputSlot;
using zrk_tarn::SampleFormat;
using zrk_tarn::StreamConfiguration;
using enum OutputSlot::Source;

constexpr OutputSlot kFronts[] = {{Engine, 0}, {Engine, 1}, {Engine, 2}};
constexpr OutputSlot kAny[] = {{Engine, 0},   {Engine, 1},   {Engine, 2},   {Surround, 0}, {Surround, 1},
                               {Surround, 2}, {Surround, 3}, {Dialogue, 0}, {Dialogue, 1}, {Lfe, 0},
                               {Input, 0},    {Input, 2},    {Silence, 0}};

/// Left and right in slots 2 and 0 of 3, and random outputs after the fronts.
StreamConfiguration configurationWith(std::uint32_t rateHz, bool limiter, Random& random)
{
    constexpr SampleFormat kFormats[] = {SampleFormat::S16, SampleFormat::S24, SampleFormat::S32};
    StreamConfiguration configuration{.sampleRateHz = rateHz,
                                      .format = random.oneOf(kFormats),
                                      .inputSlots = 3,
                                      .leftSlot = 2,
                                      .rightSlot = 0,
                                      .outputSlots = 8};
    configuration.mode = random.chance(2) ? zrk_tarn::SteeringMode::Fast : zrk_tarn::SteeringMode::Calm;
    configuration.bass = random.chance(2) ? zrk_tarn::BassMode::Fronts : zrk_tarn::BassMode::Steered;
    configuration.limiter = limiter;
    std::copy(std::begin(kFronts), std::end(kFronts), configuration.outputs.begin());
    for (std::size_t slot = 3; slot < 8; ++slot) configuration.outputs[slot] = random.oneOf(kAny);
    return configuration;
}

/// Changes some settings.
void change(StreamSettings& settings, Random& random)
{
    const auto factor = [&random] {
        return random.chance(3) ? 1.0f : static_cast<float>(2.0 + 1.9 * random.uniform());
    };
    if (random.chance(4)) settings.bypass = !settings.bypass;
    if (random.chance(2)) settings.gain = factor();
    if (random.chance(2)) settings.centre = factor();
    if (random.chance(2)) settings.width = random.chance(3) ? 1.0f : static_cast<float>(0.5 + 0.5 * random.uniform());
    if (random.chance(2)) settings.surround = factor();
    if (random.chance(2)) settings.lfe = factor();
    if (random.chance(3)) settings.bassInFronts = !settings.bassInFronts;
    if (random.chance(4)) settings.limiting = !settings.limiting;
}

StreamPair::Rows blockOf(Signal signal, std::uint64_t time, int bits, Random& random)
{
    StreamPair::Rows rows(3);
    for (std::size_t i = 0; i < 64; ++i) {
        const Frame frame = frameOf(signal, time + i, random);
        rows[2][i] = sampleOf(frame.left, static_cast<std::uint32_t>(bits));
        rows[0][i] = sampleOf(frame.right, static_cast<std::uint32_t>(bits));
        rows[1][i] = static_cast<std::int32_t>(i);
    }
    return rows;
}

using RateAndLimiter = std::tuple<std::uint32_t, bool>;

class StreamAgainstReference : public testing::TestWithParam<RateAndLimiter>
{};

} // namespace

TEST_P(StreamAgainstReference, HasEqualSamples)
{
    const auto [rateHz, limiter] = GetParam();
    Random random(rateHz + (limiter ? 1 : 0));
    for (int session = 0; session < 4; ++session) {
        StreamPair pair(configurationWith(rateHz, limiter, random));
        std::uint64_t time = 0;
        for (int step = 0; step < 25; ++step) {
            change(pair.settings, random);
            if (random.chance(12)) pair.reset();
            const Signal signal = kAllSignals[random.below(kAllSignals.size())];
            // Shorter and longer than a fade of 16 blocks.
            for (std::uint32_t blocks = 1 + random.below(30); blocks > 0; --blocks, time += 64) {
                const auto difference = pair.runBlock(blockOf(signal, time, pair.bits, random));
                ASSERT_FALSE(difference) << signal << ", slot " << difference->slot << ", frame " << difference->frame
                                         << " of block " << time / 64 << ": " << difference->own << " instead of "
                                         << difference->expected;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, StreamAgainstReference,
                         testing::Combine(testing::ValuesIn(zrk_tarn::kSampleRatesHz), testing::Bool()));

} // namespace tests
