// Levels of outputs against a plain loop.
// SPDX-License-Identifier: MIT
#include "cli/level_sink.h"

#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace tarn_cli
{

namespace
{

/// Keeps the samples.
class Keeper final : public tarn::AudioSink
{
public:
    explicit Keeper(std::size_t slotsPerFrame) : slots(slotsPerFrame) {}

    void write(const std::int32_t* next, std::size_t frames) override
    {
        samples.insert(samples.end(), next, next + frames * slots);
    }

    void finish() override { ++finished; }

    std::vector<std::int32_t> samples{};
    int finished = 0;

private:
    std::size_t slots;
};

/// A sample of a width, which gets louder with time and is often at full scale in some slots.
std::int32_t randomSample(tests::Random& random, std::uint32_t bits, double level)
{
    const double fullScale = std::ldexp(1.0, static_cast<int>(bits) - 1);
    const double sample = std::clamp(std::round(level * random.uniform() * fullScale), -fullScale, fullScale - 1.0);
    return static_cast<std::int32_t>(sample * std::ldexp(1.0, 32 - static_cast<int>(bits)));
}

std::vector<tarn::ChannelLevel> levelsByDefinition(const std::vector<std::int32_t>& samples, std::size_t slots,
                                                   std::uint32_t bits)
{
    std::vector<tarn::ChannelLevel> levels(slots);
    const std::int64_t step = std::int64_t{1} << (32 - bits);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        tarn::ChannelLevel& level = levels[i % slots];
        const double value = samples[i] * 0x1p-31;
        level.peak = std::max(level.peak, std::abs(value));
        level.energy += value * value;
        if (samples[i] == INT32_MIN || samples[i] + step > INT32_MAX) ++level.fullScaleSamples;
    }
    return levels;
}

} // namespace

TEST(LevelSink, EqualsThePlainLoop)
{
    for (const std::uint32_t bits : {16u, 24u, 32u}) {
        for (std::size_t slots = 2; slots <= 8; ++slots) {
            tests::Random random(slots);
            Keeper keeper(slots);
            tarn::LevelSink sink(slots, bits, keeper);
            std::vector<std::int32_t> all;
            for (int i = 0; i < 40; ++i) {
                std::vector<std::int32_t> samples(slots * random.below(600));
                // The second slot is silent, others differ in level, and the first peak of full scale can be negative.
                for (std::size_t k = 0; k < samples.size(); ++k)
                    samples[k] = k % slots == 1 ? 0 : randomSample(random, bits, i * 0.002 * std::pow(3.0, k % slots));
                sink.write(samples.data(), samples.size() / slots);
                all.insert(all.end(), samples.begin(), samples.end());
            }
            sink.finish();
            EXPECT_EQ(keeper.samples, all);
            EXPECT_EQ(keeper.finished, 1);
            const auto expected = levelsByDefinition(all, slots, bits);
            std::uint64_t fullScale = 0;
            for (std::size_t slot = 0; slot < slots; ++slot) {
                EXPECT_EQ(sink.levels()[slot].peak, expected[slot].peak) << bits << " bits, slot " << slot;
                EXPECT_EQ(sink.levels()[slot].energy, expected[slot].energy) << bits << " bits, slot " << slot;
                EXPECT_EQ(sink.levels()[slot].fullScaleSamples, expected[slot].fullScaleSamples) << bits << " bits";
                fullScale += expected[slot].fullScaleSamples;
            }
            EXPECT_EQ(fullScale > 0, slots > 3) << "slots at full scale";
        }
    }
}

// The largest sample has a smaller magnitude than the smallest one.
TEST(LevelSink, CountsPositiveFullScaleAfterANegativeOne)
{
    for (const std::uint32_t bits : {16u, 24u, 32u}) {
        const std::int32_t largest = INT32_MAX >> (32 - bits) << (32 - bits);
        Keeper keeper(2);
        tarn::LevelSink sink(2, bits, keeper);
        std::vector<std::int32_t> samples(2 * 1000);
        samples[0] = INT32_MIN;
        samples[2 * 900] = samples[2 * 900 + 1] = largest;
        sink.write(samples.data(), 1000);
        EXPECT_EQ(sink.levels()[0].fullScaleSamples, 2u);
        EXPECT_EQ(sink.levels()[0].peak, 1.0);
        EXPECT_EQ(sink.levels()[1].fullScaleSamples, 1u);
        EXPECT_EQ(sink.levels()[1].peak, largest * 0x1p-31);
    }
}

} // namespace tarn_cli
