// Tests of the filterbank alone: analysis and synthesis without steering and mixing.
// SPDX-License-Identifier: MIT
#include "cinema/analysis.h"
#include "cinema/synthesis.h"
#include "engine/zrk_tarn.h"
#include "filterbank/cos_mod.h"
#include "filterbank/vector_pair_sums.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

namespace
{

using namespace zrk_tarn::TARN_INSTRUCTION_SET;

constexpr std::size_t kBlock = 64;
constexpr std::size_t kDelayFrames = 960;

using Signal = std::vector<double>;

/// Analyses and synthesizes whole blocks of a signal, at engine scale.
Signal analyseAndSynthesize(const Signal& signal)
{
    const auto engine = std::make_unique<ZRKTarn>();
    engine->Open();
    const float noMagnitudes[32][4] = {};
    float levelSums[4] = {};
    Signal output;
    for (std::size_t start = 0; start + kBlock <= signal.size(); start += kBlock) {
        for (std::size_t i = 0; i < kBlock; ++i)
            engine->inputHistory[0][960 + i] = static_cast<float>(0x1p30 * signal[start + i]);
        weightAndAdvance(noMagnitudes, engine->inputHistory[0], engine->polyphaseSum[0], levelSums);
        foldBranches(engine->polyphaseSum[0], engine->folded[0]);
        splitIntoPairSums(engine->folded[0], engine->dctEven[0], engine->dctOdd[0]);
        cosModDCT4_X1(engine->subband[0], engine->dctEven[0], engine->dctOdd[0]);

        splitIntoPairSums(engine->subband[0], engine->dctEven[0], engine->dctOdd[0]);
        cosModDCT4_X1(engine->synthHistory[0], engine->dctEven[0], engine->dctOdd[0]);
        float sums[64];
        overlapAddAndAdvance(engine->synthHistory[0], engine->overlapNow[0], engine->overlapNext[0], sums);
        for (const float sample : sums) output.push_back(static_cast<double>(sample));
    }
    return output;
}

/// Ratio of signal to reconstruction error in dB, after the delay and with the best gain.
double reconstructionDb(Signal signal)
{
    const std::size_t length = signal.size();
    signal.resize((length + 2048) / kBlock * kBlock);
    const Signal output = analyseAndSynthesize(signal);
    double cross = 0.0;
    double energy = 0.0;
    for (std::size_t i = 0; i + kDelayFrames < output.size(); ++i) {
        cross += output[i + kDelayFrames] * signal[i];
        energy += signal[i] * signal[i];
    }
    const double gain = cross / energy;
    double error = 0.0;
    for (std::size_t i = 0; i < output.size(); ++i) {
        const double expected = i < kDelayFrames ? 0.0 : signal[i - kDelayFrames];
        error += std::pow(output[i] / gain - expected, 2.0);
    }
    return 10.0 * std::log10(energy / error);
}

} // namespace

TEST(Reconstruction, OfWhiteNoiseIs85Decibels)
{
    tests::Random random(1);
    Signal signal(64 * 800);
    for (double& sample : signal) sample = random.uniform();
    EXPECT_GE(reconstructionDb(signal), 85.0);
}

TEST(Reconstruction, OfASweepIs85Decibels)
{
    constexpr std::size_t kFrames = 64 * 800;
    Signal signal;
    for (std::size_t i = 0; i < kFrames; ++i) {
        const auto time = static_cast<double>(i);
        signal.push_back(std::sin(std::numbers::pi * time * time / (2.0 * kFrames)));
    }
    EXPECT_GE(reconstructionDb(signal), 85.0);
}

TEST(Reconstruction, OfAnImpulseIs85DecibelsAtEveryFrameOfABlock)
{
    for (std::size_t frame = 0; frame < kBlock; ++frame) {
        Signal signal(kBlock, 0.0);
        signal[frame] = 1.0;
        EXPECT_GE(reconstructionDb(signal), 85.0) << "frame " << frame << " of the block";
    }
}

TEST(Reconstruction, DelaysBy960Frames)
{
    Signal signal(64 * 40, 0.0);
    signal[100] = 1.0;
    const Signal output = analyseAndSynthesize(signal);
    const auto louder = [](double a, double b) { return std::fabs(a) < std::fabs(b); };
    EXPECT_EQ(std::max_element(output.begin(), output.end(), louder) - output.begin(), 100 + 960);
}
