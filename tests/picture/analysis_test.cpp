// The analysis of a recording, in calls of any size and in constant memory.
// SPDX-License-Identifier: MIT
#include "picture/analysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

using tarn::ChannelPlace;
using tarn::PictureAnalysis;

namespace
{

tarn::PictureSource threeOutputs(std::uint32_t sampleRate)
{
    return {.sampleRate = sampleRate,
            .slots = 3,
            .channels = {{.name = "FL", .place = ChannelPlace::Left, .slot = 0},
                         {.name = "FC", .place = ChannelPlace::Centre, .slot = 2},
                         {.name = "FR", .place = ChannelPlace::Right, .slot = 1}}};
}

std::vector<std::int32_t> noise(std::size_t frames)
{
    std::vector<std::int32_t> samples(3 * frames);
    std::minstd_rand random(7);
    for (std::int32_t& sample : samples)
        sample = static_cast<std::int32_t>(static_cast<std::int64_t>(2 * random()) - INT32_MAX);
    return samples;
}

void expectSame(const tarn::TimeGrid& one, const tarn::TimeGrid& other)
{
    ASSERT_EQ(one.columns(), other.columns());
    ASSERT_EQ(one.framesPerColumn(), other.framesPerColumn());
    for (std::size_t column = 0; column < one.columns(); ++column)
        ASSERT_EQ(std::memcmp(one.column(column), other.column(column), one.values() * sizeof(float)), 0) << column;
}

} // namespace

TEST(Analysis, ResultDoesNotDependOnTheSizeOfCalls)
{
    // More than the columns hold at first, so that they merge.
    const std::size_t frames = 256 * tarn::TimeGrid::kMaxColumns + 10007;
    const std::vector<std::int32_t> samples = noise(frames);
    PictureAnalysis whole(threeOutputs(48000));
    whole.push(samples.data(), frames);
    whole.finish();
    PictureAnalysis parts(threeOutputs(48000));
    std::size_t done = 0;
    for (std::size_t size = 1; done < frames; size = size * 5 % 9973 + 1) {
        const std::size_t part = std::min(size, frames - done);
        parts.push(samples.data() + 3 * done, part);
        done += part;
    }
    parts.finish();
    EXPECT_EQ(whole.front().framesPerColumn(), 512u);
    expectSame(whole.front(), parts.front());
    expectSame(whole.places(), parts.places());
    expectSame(whole.envelope().peaks(), parts.envelope().peaks());
    expectSame(whole.envelope().squares(), parts.envelope().squares());
}

TEST(Analysis, EveryColumnHasASpectrumAndSilenceHasNoEnergy)
{
    for (const std::size_t frames : {std::size_t{1}, std::size_t{257}, std::size_t{100000}}) {
        PictureAnalysis analysis(threeOutputs(44100));
        const std::vector<std::int32_t> silence(3 * frames);
        analysis.push(silence.data(), frames);
        analysis.finish();
        ASSERT_EQ(analysis.front().columns(), (frames + 255) / 256);
        constexpr std::size_t kCount = tarn::kSpectrumRows * tarn::kFrontValues;
        for (std::size_t column = 0; column < analysis.front().columns(); ++column) {
            const float* const values = analysis.front().column(column);
            EXPECT_EQ(values[kCount], 1.0f);
            EXPECT_TRUE(std::all_of(values, values + kCount, [](float value) { return value == 0.0f; }));
        }
        EXPECT_EQ(analysis.shares().left, 0.0);
    }
}

TEST(Analysis, SineIsInItsRowAndOutput)
{
    constexpr double kHz = 1000.0;
    std::vector<std::int32_t> samples;
    for (int i = 0; i < 48000; ++i)
        for (const double level : {0.0, 0.0, 0.5})
            samples.push_back(static_cast<std::int32_t>(level * 0x1p31 * std::sin(i * kHz / 48000.0 * 6.283185307)));
    PictureAnalysis analysis(threeOutputs(48000));
    analysis.push(samples.data(), 48000);
    analysis.finish();
    const float* const values = analysis.front().column(analysis.front().columns() / 2);
    std::size_t loudest = 0;
    for (std::size_t row = 0; row < tarn::kSpectrumRows; ++row) {
        EXPECT_EQ(values[row * 3], 0.0f);
        EXPECT_EQ(values[row * 3 + 2], 0.0f);
        if (values[row * 3 + 1] > values[loudest * 3 + 1]) loudest = row;
    }
    EXPECT_NEAR(static_cast<double>(loudest) + 0.5, tarn::axisPosition(kHz) * tarn::kSpectrumRows, 1.0);
    EXPECT_EQ(analysis.shares().centre, 1.0);
}

TEST(Analysis, LongRecordingsHaveAsManyColumnsAsShortOnes)
{
    PictureAnalysis analysis(threeOutputs(32000));
    const std::vector<std::int32_t> second = noise(32000);
    for (int i = 0; i < 600; ++i) analysis.push(second.data(), 32000);
    analysis.finish();
    EXPECT_LE(analysis.front().columns(), tarn::TimeGrid::kMaxColumns);
    EXPECT_GT(analysis.front().columns(), tarn::TimeGrid::kMaxColumns / 2);
    // The hop does not exceed half a window, so a column has several spectra.
    EXPECT_EQ(analysis.front().column(analysis.front().columns() - 2)[tarn::kSpectrumRows * tarn::kFrontValues],
              static_cast<float>(analysis.front().framesPerColumn()) / 2048.0f);
}

TEST(Analysis, PercentagesHaveTheSumOf100)
{
    using Percentages = std::array<int, 4>;
    EXPECT_EQ(tarn::percentagesOf({.left = 0.246, .centre = 0.508, .right = 0.246}), (Percentages{25, 51, 24, 0}));
    EXPECT_EQ(tarn::percentagesOf({.left = 0.284, .centre = 0.426, .right = 0.286, .behind = 0.004}),
              (Percentages{28, 43, 29, 0}));
    EXPECT_EQ(tarn::percentagesOf({.left = 0.0, .centre = 1.0, .right = 0.0}), (Percentages{0, 100, 0, 0}));
    EXPECT_EQ(tarn::percentagesOf({.left = 0.333, .centre = 0.333, .right = 0.334}), (Percentages{33, 33, 34, 0}));
}
