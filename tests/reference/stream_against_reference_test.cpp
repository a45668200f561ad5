// Compares streams with those of the reference: all samples of all slots, while every setting changes.
// SPDX-License-Identifier: MIT
#include "tests/reference/stream_pair.h"
#include "tests/support/random.h"
#include "tests/support/signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
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

constexpr OutputSlot kColumns[] = {{Engine, 0}, {Engine, 1}, {Engine, 2}, {Engine, 3}};
constexpr OutputSlot kAnyWithRemap[] = {{Engine, 1}, {Engine, 2}, {Engine, 3}, {Input, 0}, {Input, 2}, {Silence, 0}};

/// Gains of up to 8, at which columns wrap, or of up to 0.25.
zrk_tarn::RemapGains randomGains(Random& random)
{
    zrk_tarn::RemapGains gains{};
    const std::uint32_t shift = random.chance(2) ? 5 : 0;
    for (auto& row : gains.gain)
        for (std::uint32_t& gain : row)
            if (!random.chance(4)) gain = static_cast<std::uint32_t>(static_cast<std::int32_t>(random.bits()) >> shift);
    return gains;
}

/// Left and right in slots 2 and 0 of 3, and random outputs after the fronts or the columns of a remap matrix.
StreamConfiguration configurationWith(std::uint32_t rateHz, bool limiter, bool remap, Random& random)
{
    constexpr SampleFormat kFormats[] = {SampleFormat::S16, SampleFormat::S24, SampleFormat::S24In32, SampleFormat::S32,
                                         SampleFormat::F32};
    StreamConfiguration configuration{.sampleRateHz = rateHz,
                                      .format = random.oneOf(kFormats),
                                      .inputSlots = 3,
                                      .leftSlot = 2,
                                      .rightSlot = 0,
                                      .outputSlots = 8};
    configuration.mode = random.chance(2) ? zrk_tarn::SteeringMode::Fast : zrk_tarn::SteeringMode::Calm;
    configuration.bass = random.chance(2) ? zrk_tarn::BassMode::Fronts : zrk_tarn::BassMode::Steered;
    configuration.limiter = limiter;
    if (remap) {
        configuration.remap = randomGains(random);
        configuration.bass = zrk_tarn::BassMode::Steered;
        std::copy(std::begin(kColumns), std::end(kColumns), configuration.outputs.begin());
        for (std::size_t slot = 4; slot < 8; ++slot) configuration.outputs[slot] = random.oneOf(kAnyWithRemap);
        return configuration;
    }
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
    if (random.chance(4)) settings.remap = randomGains(random);
}

/// The bits of a float: of a signal of up to twice full scale, or rarely of a special value.
std::int32_t floatWord(double value, Random& random)
{
    using Limits = std::numeric_limits<float>;
    constexpr float kSpecial[] = {
        Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(), Limits::denorm_min(), -0.0f, 1.0f, -1.0f};
    const float sample = random.chance(500) ? random.oneOf(kSpecial) : static_cast<float>(2.0 * value);
    return std::bit_cast<std::int32_t>(sample);
}

StreamPair::Rows blockOf(Signal signal, std::uint64_t time, const StreamPair& pair, Random& random)
{
    StreamPair::Rows rows(3);
    const auto wordOf = [&](double value) {
        return pair.isFloat() ? floatWord(value, random) : sampleOf(value, static_cast<std::uint32_t>(pair.bits));
    };
    for (std::size_t i = 0; i < 64; ++i) {
        const Frame frame = frameOf(signal, time + i, random);
        rows[2][i] = wordOf(frame.left);
        rows[0][i] = wordOf(frame.right);
        rows[1][i] = static_cast<std::int32_t>(i);
    }
    return rows;
}

/// Rate, limiter and remap matrix.
using Kind = std::tuple<std::uint32_t, bool, bool>;

class StreamAgainstReference : public testing::TestWithParam<Kind>
{};

} // namespace

TEST_P(StreamAgainstReference, HasEqualSamples)
{
    const auto [rateHz, limiter, remap] = GetParam();
    Random random(rateHz + (limiter ? 1 : 0) + (remap ? 2 : 0));
    for (int session = 0; session < 4; ++session) {
        StreamPair pair(configurationWith(rateHz, limiter, remap, random));
        std::uint64_t time = 0;
        for (int step = 0; step < 25; ++step) {
            change(pair.settings, random);
            if (random.chance(12)) pair.reset();
            const Signal signal = kAllSignals[random.below(kAllSignals.size())];
            // Shorter and longer than a fade of 16 blocks.
            for (std::uint32_t blocks = 1 + random.below(30); blocks > 0; --blocks, time += 64) {
                const auto difference = pair.runBlock(blockOf(signal, time, pair, random));
                ASSERT_FALSE(difference) << signal << ", slot " << difference->slot << ", frame " << difference->frame
                                         << " of block " << time / 64 << ": " << difference->own << " instead of "
                                         << difference->expected;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, StreamAgainstReference,
                         testing::Combine(testing::ValuesIn(zrk_tarn::kSampleRatesHz), testing::Bool(),
                                          testing::Bool()));

} // namespace tests
