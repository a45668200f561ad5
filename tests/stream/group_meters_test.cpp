// The meters of the band groups, and of the outputs of the room.
// SPDX-License-Identifier: MIT
#include "stream/upmix_stream.h"

#include "dispatch/instruction_sets.h"
#include "host/zrk_tarn_processor.h"
#include "room/surrounds.h"
#include "tests/support/random.h"
#include "tests/support/signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <numbers>
#include <span>
#include <vector>

namespace tests
{

namespace
{

using zrk_tarn::kBandGroups;
using zrk_tarn::SampleFormat;
using zrk_tarn::StreamConfiguration;
using zrk_tarn::StreamMeters;
using zrk_tarn::UpmixStream;

constexpr std::size_t kBlock = 64;
constexpr std::size_t kUpdateFrames = 8 * kBlock;

/// Bands per group, as the engine's record documents them.
std::vector<int> bandsPerGroup(std::uint32_t rateHz)
{
    if (rateHz == 64000) return {1, 1, 1, 1, 1, 1, 2, 2, 2, 4, 4, 4, 4, 8, 8, 20};
    if (rateHz == 88200 || rateHz == 96000) return {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 4, 6, 10, 32};
    if (rateHz == 192000) return {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 48};
    return {1, 1, 1, 1, 2, 2, 2, 2, 4, 4, 4, 4, 8, 8, 8, 12};
}

/// Calls an action for every group of every grouping: the rate in Hz, the group, and its middle in turns per frame.
void forEachGroup(const std::function<void(std::uint32_t, std::size_t, double)>& action)
{
    for (const std::uint32_t rateHz : {48000u, 64000u, 96000u, 192000u}) {
        const std::vector<int> bands = bandsPerGroup(rateHz);
        double first = 0.0;
        for (std::size_t group = 0; group < kBandGroups; ++group) {
            SCOPED_TRACE(testing::Message() << rateHz << " Hz, group " << group);
            action(rateHz, group, (first + 0.5 * bands[group]) / 128.0);
            first += bands[group];
        }
    }
}

/// Stereo floats from a function of the frame and the side.
std::vector<float> stereoOf(std::size_t frames, const std::function<double(std::size_t, std::size_t)>& sampleAt)
{
    std::vector<float> stereo(2 * frames);
    for (std::size_t i = 0; i < stereo.size(); ++i) stereo[i] = static_cast<float>(sampleAt(i / 2, i % 2));
    return stereo;
}

/// The outputs of the engine, followed by surround channels.
///
/// channels  0, 2 or 4
StreamConfiguration withSurrounds(std::uint32_t channels)
{
    using enum zrk_tarn::OutputSlot::Source;
    StreamConfiguration configuration{.outputSlots = 3 + channels};
    for (std::uint32_t channel = 0; channel < channels; ++channel)
        configuration.outputs[3 + channel] = {Surround, static_cast<std::uint8_t>(channel)};
    return configuration;
}

using Change = std::function<void(UpmixStream&)>;

StreamMeters metersAfter(
    const std::vector<float>& stereo, const StreamConfiguration& configuration,
    const Change& setUp = [](UpmixStream&) {})
{
    UpmixStream stream(configuration);
    setUp(stream);
    std::vector<float> output(stereo.size() / 2 * configuration.outputSlots);
    stream.process(stereo.data(), output.data(), stereo.size() / 2);
    return stream.meters();
}

/// The sum of the squares of values.
double energyOf(std::span<const float> values)
{
    double sum = 0.0;
    for (const float value : values) sum += std::pow(static_cast<double>(value), 2.0);
    return sum;
}

double decibels(double ratio)
{
    return 20.0 * std::log10(ratio);
}

/// The meters by their definition, from the subbands of an engine and of the difference.
class ExpectedGroups
{
public:
    void addBlock(const ZRKTarn& engine, const float* difference)
    {
        for (std::size_t output = 0; output < 3; ++output) add(engine.outSubband[output], sums[output]);
        if (difference != nullptr) add(difference, sums[3]);
        if (++blocks % 8 == 0) update();
    }

    void expectIn(const StreamMeters& meters) const
    {
        for (std::size_t g = 0; g < kBandGroups; ++g) {
            SCOPED_TRACE(g);
            const double left = static_cast<double>(means[0][g]);
            const double right = static_cast<double>(means[1][g]);
            const double centre = static_cast<double>(means[2][g]);
            const double sum = left + right + centre;
            // The widths are 32 bits: full scale is 2^31 in integers.
            const double scale =
                std::pow(static_cast<double>(4294967296.0f * 0x1p-31f) * 0x1p-31, 2.0) / (128.0 * 64.0);
            EXPECT_EQ(meters.groupLevel[g], static_cast<float>(std::sqrt(sum * scale)));
            EXPECT_EQ(meters.groupPlace[g], sum > 0.0 ? static_cast<float>((left - right) / sum) : 0.0f);
            EXPECT_EQ(meters.groupCentre[g], sum > 0.0 ? static_cast<float>(centre / sum) : 0.0f);
            const double difference = static_cast<double>(means[3][g]);
            EXPECT_EQ(meters.groupSurround[g], static_cast<float>(std::sqrt(2.0 * difference * scale)));
        }
    }

private:
    static void add(const float* subbands, float (&to)[64])
    {
        for (std::size_t band = 0; band < 64; ++band)
            if (std::abs(subbands[band]) >= 1.0f) to[band] += subbands[band] * subbands[band];
    }

    void update()
    {
        const auto decay = static_cast<float>(std::exp(-static_cast<double>(kUpdateFrames) / 48000.0 / 0.3));
        for (std::size_t row = 0; row < 4; ++row) {
            std::size_t band = 0;
            for (std::size_t g = 0; g < kBandGroups; ++g) {
                float sum = 0.0f;
                for (int i = 0; i < bandsPerGroup(48000)[g]; ++i) sum += sums[row][band++];
                const float mean = means[row][g] * decay + sum * ((1.0f - decay) / 8.0f);
                means[row][g] = mean > 1.0f ? mean : 0.0f;
            }
            std::fill_n(sums[row], 64, 0.0f);
        }
    }

    float sums[4][64]{}; ///< those of the difference last
    float means[4][kBandGroups]{};
    std::size_t blocks = 0;
};

/// 1.5 s of a sine. turns: periods per frame
auto sineOf(std::uint32_t rateHz, double turns, double left, double right)
{
    return stereoOf(rateHz + rateHz / 2, [=](std::size_t i, std::size_t side) {
        return (side == 0 ? left : right) * std::sin(2.0 * std::numbers::pi * turns * static_cast<double>(i));
    });
}

} // namespace

TEST(GroupMeters, EqualTheirDefinitionAfterEveryBlock)
{
    constexpr std::size_t kFrames = 48000;
    constexpr std::uint32_t kBits = 32;
    Random random(7);
    std::vector<std::int32_t> stereo;
    for (std::size_t i = 0; i < kFrames; ++i) {
        const Frame frame = frameOf(i < 36000 ? Signal::TravellingSource : Signal::Silence, i, random);
        stereo.push_back(sampleOf(0.7 * frame.left, kBits));
        stereo.push_back(sampleOf(0.7 * frame.right, kBits));
    }
    for (const std::uint32_t channels : {0u, 2u, 4u}) {
        SCOPED_TRACE(testing::Message() << channels << " surround channels");
        StreamConfiguration configuration = withSurrounds(channels);
        configuration.format = SampleFormat::S32;
        UpmixStream stream(configuration);
        zrk_tarn_processor_t processor;
        processor.setup(0, 0, 1.0f);
        audio_channel_assignment_t codes{{0x2000, 0x4000, 0x200}};
        const auto surrounds = std::make_unique<zrk_tarn::Surrounds>();
        configureSurrounds(*surrounds, 48000, 1);
        ExpectedGroups expected;
        std::int32_t output[7 * kBlock];
        for (std::size_t frame = 0; frame < kFrames; frame += kBlock) {
            SCOPED_TRACE(frame);
            stream.process(&stereo[2 * frame], output, kBlock);
            for (std::size_t i = 0; i < kBlock; ++i) {
                output[3 * i] = stereo[2 * (frame + i)];
                output[3 * i + 1] = stereo[2 * (frame + i) + 1];
            }
            processor.process(output, kBlock, 3, 48000, kBits, &codes);
            zrk_tarn::chosenOperations().renderSurrounds(*processor.engine, *surrounds);
            expected.addBlock(*processor.engine, channels > 0 ? surrounds->difference : nullptr);
            expected.expectIn(stream.meters());
            if (HasFailure()) return;
        }
        EXPECT_GT(std::ranges::max(stream.meters().groupLevel), 0.01f);
        EXPECT_EQ(std::ranges::max(stream.meters().groupSurround) > 0.01f, channels > 0);
    }
}

// A sine in the middle of a group, on the left only. The engine plays a source at a side 3 dB softer. The filters of
// the bands overlap, so a part of the sine lies in the bands beside it: the group has all of it but 0.1 dB.
TEST(GroupMeters, SineHasItsLevelInItsGroupInEveryGrouping)
{
    constexpr double kAmplitude = 0.5;
    forEachGroup([](std::uint32_t rateHz, std::size_t group, double turns) {
        const StreamMeters meters = metersAfter(sineOf(rateHz, turns, kAmplitude, 0.0), {.sampleRateHz = rateHz});
        const double expected = kAmplitude / 2.0; // sqrt(1/2) for rms, sqrt(1/2) for the side
        EXPECT_NEAR(decibels(static_cast<double>(meters.groupLevel[group]) / expected), 0.0, 0.1);
        EXPECT_GT(meters.groupPlace[group], 0.99f);
        EXPECT_LT(meters.groupCentre[group], 0.01f);
        for (std::size_t other = 0; other < kBandGroups; ++other)
            EXPECT_LT(other == group ? 0.0f : meters.groupLevel[other], 0.1f * meters.groupLevel[group]) << other;
    });
}

// A sine with opposite phases on the two sides, which is ambience. All surround channels together have the energy of
// the stereo. The filters of the bands overlap as above.
TEST(GroupMeters, AntiPhaseSineHasItsLevelInTheSurroundsOfItsGroup)
{
    constexpr double kAmplitude = 0.25;
    forEachGroup([](std::uint32_t rateHz, std::size_t group, double turns) {
        StreamConfiguration configuration = withSurrounds(group % 2 == 0 ? 2 : 4);
        configuration.sampleRateHz = rateHz;
        const StreamMeters meters = metersAfter(sineOf(rateHz, turns, kAmplitude, -kAmplitude), configuration,
                                                [](UpmixStream& stream) { stream.setSurroundGain(1.0f); });
        const auto level = static_cast<double>(meters.groupSurround[group]);
        EXPECT_NEAR(decibels(level / kAmplitude), 0.0, 0.1); // sqrt(1/2) for rms, sqrt(2) for two sides
        const double played = energyOf(std::span(meters.rms).subspan(3));
        EXPECT_NEAR(decibels(level / std::sqrt(played)), 0.0, 0.1);
        for (std::size_t other = 0; other < kBandGroups; ++other)
            EXPECT_LT(other == group ? 0.0f : meters.groupSurround[other], 0.1f * meters.groupSurround[group]) << other;
    });
}

TEST(GroupMeters, TellCentreWideLeftAndRightApart)
{
    const auto metersFor = [](double left, double right) {
        Random random(5);
        double value = 0.0;
        return metersAfter(stereoOf(48000,
                                    [&](std::size_t, std::size_t side) {
                                        if (side == 0) value = random.uniform() - 0.5;
                                        return value * (side == 0 ? left : right);
                                    }),
                           withSurrounds(2));
    };
    const StreamMeters left = metersFor(1.0, 0.0);
    const StreamMeters right = metersFor(0.0, 1.0);
    const StreamMeters centre = metersFor(1.0, 1.0);
    const StreamMeters wide = metersFor(1.0, -1.0);
    const StreamMeters nothing = metersFor(0.0, 0.0);
    for (std::size_t g = 0; g < kBandGroups; ++g) {
        SCOPED_TRACE(g);
        EXPECT_GT(left.groupPlace[g], 0.99f);
        EXPECT_LT(right.groupPlace[g], -0.99f);
        EXPECT_LT(left.groupCentre[g], 0.01f);
        EXPECT_EQ(centre.groupPlace[g], 0.0f);
        EXPECT_GT(centre.groupCentre[g], 0.99f);
        EXPECT_EQ(wide.groupPlace[g], 0.0f);
        EXPECT_LT(wide.groupCentre[g], 0.01f);
        EXPECT_EQ(nothing.groupLevel[g], 0.0f);
        EXPECT_EQ(nothing.groupPlace[g], 0.0f);
        EXPECT_EQ(nothing.groupCentre[g], 0.0f);
        EXPECT_LT(left.groupSurround[g], 0.01f * left.groupLevel[g]);
        EXPECT_LT(right.groupSurround[g], 0.01f * right.groupLevel[g]);
        EXPECT_EQ(centre.groupSurround[g], 0.0f);
        EXPECT_GT(wide.groupSurround[g], wide.groupLevel[g]);
        EXPECT_EQ(nothing.groupSurround[g], 0.0f);
    }
}

// The energy of all groups is that of the outputs: means of the same noise at times that differ by the delay. The
// chains of the surround channels spread it over more time.
TEST(GroupMeters, AddUpToTheLevelOfTheOutputs)
{
    for (const std::uint32_t channels : {0u, 2u, 4u}) {
        SCOPED_TRACE(testing::Message() << channels << " surround channels");
        Random random(6);
        const StreamMeters meters =
            metersAfter(stereoOf(96000, [&](std::size_t, std::size_t) { return 0.5 * (random.uniform() - 0.5); }),
                        withSurrounds(channels), [](UpmixStream& stream) { stream.setSurroundGain(1.0f); });
        const std::span<const float> outputs(meters.rms);
        EXPECT_NEAR(10.0 * std::log10(energyOf(meters.groupLevel) / energyOf(outputs.first(3))), 0.0, 0.1);
        const double surrounds = energyOf(outputs.subspan(3));
        EXPECT_EQ(surrounds > 0.0, channels > 0);
        if (channels == 0) {
            EXPECT_EQ(energyOf(meters.groupSurround), 0.0);
        } else {
            EXPECT_NEAR(10.0 * std::log10(energyOf(meters.groupSurround) / surrounds), 0.0, 0.1);
        }
    }
}

TEST(GroupMeters, ShowTheSurroundsBeforeGainsBassModeLimiterAndBypass)
{
    Random random(8);
    const std::vector<float> stereo =
        stereoOf(24000, [&](std::size_t, std::size_t) { return 1.8 * (random.uniform() - 0.5); });
    StreamConfiguration configuration = withSurrounds(2);
    const StreamMeters plain = metersAfter(stereo, configuration);
    const auto expectSame = [&](const Change& change) {
        const StreamMeters meters = metersAfter(stereo, configuration, change);
        EXPECT_TRUE(std::ranges::equal(meters.groupSurround, plain.groupSurround));
        EXPECT_FALSE(std::ranges::equal(meters.rms, plain.rms));
    };
    expectSame([](UpmixStream& stream) { stream.setSurroundGain(0.0f); });
    expectSame([](UpmixStream& stream) { stream.setMakeUpGain(0.5f); });
    expectSame([](UpmixStream& stream) { stream.setBass(zrk_tarn::BassMode::Fronts); });
    expectSame([](UpmixStream& stream) { stream.setBypass(true); });
    configuration.limiter = true;
    expectSame([](UpmixStream& stream) { stream.setMakeUpGain(4.0f); });
    EXPECT_GT(std::ranges::min(plain.groupSurround), 0.01f);
}

TEST(GroupMeters, HaveTheEdgesOfTheGroupsAtEveryRate)
{
    for (const std::uint32_t rateHz : zrk_tarn::kSampleRatesHz) {
        const StreamMeters meters = UpmixStream({.sampleRateHz = rateHz}).meters();
        double bands = 0.0;
        for (std::size_t g = 0; g < kBandGroups; ++g) {
            bands += bandsPerGroup(rateHz)[g];
            EXPECT_EQ(static_cast<double>(meters.groupUpperHz[g]), bands * rateHz / 128.0) << rateHz << ", " << g;
        }
        EXPECT_EQ(static_cast<double>(meters.groupUpperHz[kBandGroups - 1]), rateHz / 2.0);
    }
}

TEST(GroupMeters, AreUpdatedEveryEightBlocksAndClearedByReset)
{
    const std::vector<float> stereo = stereoOf(
        48000, [](std::size_t i, std::size_t side) { return (side == 0 ? 1.0 : -0.5) * (i % 48 < 24 ? 0.5 : -0.5); });
    std::vector<float> output(5 * 48000);
    UpmixStream stream(withSurrounds(2));
    const auto play = [&](std::size_t frames) { stream.process(stereo.data(), output.data(), frames); };
    play(16 * kUpdateFrames);
    const StreamMeters before = stream.meters();
    ASSERT_GT(before.groupLevel[2], 0.1f);
    ASSERT_GT(before.groupSurround[2], 0.1f);
    play(kUpdateFrames - 1);
    EXPECT_TRUE(std::ranges::equal(stream.meters().groupLevel, before.groupLevel));
    EXPECT_TRUE(std::ranges::equal(stream.meters().groupSurround, before.groupSurround));
    play(1);
    EXPECT_FALSE(std::ranges::equal(stream.meters().groupLevel, before.groupLevel));
    EXPECT_FALSE(std::ranges::equal(stream.meters().groupSurround, before.groupSurround));

    play(kBlock); // is in no update
    stream.reset();
    for (const float level : stream.meters().groupLevel) EXPECT_EQ(level, 0.0f);
    for (const float level : stream.meters().groupSurround) EXPECT_EQ(level, 0.0f);
    EXPECT_EQ(stream.meters().groupUpperHz[0], 375.0f);
    play(20 * kUpdateFrames);
    UpmixStream other(withSurrounds(2));
    other.process(stereo.data(), output.data(), 20 * kUpdateFrames);
    EXPECT_TRUE(std::ranges::equal(stream.meters().groupLevel, other.meters().groupLevel));
    EXPECT_TRUE(std::ranges::equal(stream.meters().groupSurround, other.meters().groupSurround));
}

// Peak and rms by their definition, from the samples that the stream returns.
TEST(OutputMeters, ShowSurroundsDialogueAndLfeToo)
{
    using enum zrk_tarn::OutputSlot::Source;
    StreamConfiguration configuration{.outputSlots = 8, .limiter = true};
    configuration.outputs = {
        {{Engine, 0}, {Engine, 2}, {Lfe, 0}, {Surround, 0}, {Surround, 3}, {Dialogue, 1}, {Input, 0}, {}}};
    constexpr std::size_t kFrames = 48000;
    Random random(9);
    const std::vector<float> stereo =
        stereoOf(kFrames + kBlock, [&](std::size_t, std::size_t) { return 0.8 * (random.uniform() - 0.5); });
    std::vector<float> output(8 * (kFrames + kBlock));
    UpmixStream stream(configuration);
    stream.setCentreGain(2.0f);
    stream.process(stereo.data(), output.data(), kFrames);
    const StreamMeters meters = stream.meters();
    // The meters include the block that the stream returns next.
    stream.process(&stereo[2 * kFrames], &output[8 * kFrames], kBlock);

    const auto peakDecay = static_cast<float>(std::pow(10.0, -20.0 / 20.0 * (kBlock / 48000.0) / 1.7));
    const auto rmsDecay = static_cast<float>(std::exp(-(kBlock / 48000.0) / 0.3));
    for (std::size_t slot = 0; slot < 8; ++slot) {
        SCOPED_TRACE(slot);
        float peak = 0.0f;
        float square = 0.0f;
        for (std::size_t begin = kBlock; begin < kFrames + kBlock; begin += kBlock) {
            double largest = 0.0;
            double sum = 0.0;
            for (std::size_t i = begin; i < begin + kBlock; ++i) {
                const auto sample = static_cast<double>(output[8 * i + slot]);
                largest = std::max(largest, std::abs(sample));
                sum += sample * sample;
            }
            peak = std::max(static_cast<float>(largest), peak * peakDecay);
            square = square * rmsDecay + (1.0f - rmsDecay) * static_cast<float>(sum / kBlock);
        }
        EXPECT_FLOAT_EQ(meters.peak[slot], peak) << "but for the rounding of samples to floats";
        EXPECT_FLOAT_EQ(meters.rms[slot], std::sqrt(square));
        EXPECT_EQ(peak > 0.001f, slot != 7) << "all but the silent slot have a signal";
    }
}

} // namespace tests
