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

// Analysis and synthesis by the engine's own stages, without measuring, steering and mixing in between: what is left is
// the filterbank.

namespace
{

using namespace zrk_tarn::TARN_INSTRUCTION_SET;

constexpr std::size_t kBlock = 64;
constexpr std::size_t kDelayFrames = 960;

using Signal = std::vector<double>;

/// The signal through the chain, in as many whole blocks as it fills; engine scale, so that rounding does not show.
Signal throughTheChain(const Signal& signal)
{
    const auto engine = std::make_unique<ZRKTarn>();
    engine->Open();
    Signal output;
    for (std::size_t start = 0; start + kBlock <= signal.size(); start += kBlock) {
        for (std::size_t i = 0; i < kBlock; ++i)
            engine->inputHistory[0][960 + i] = static_cast<float>(0x1p30 * signal[start + i]);
        weightAndAdvance(engine->inputHistory[0], engine->polyphaseSum[0]);
        foldBranches(engine->polyphaseSum[0], engine->folded[0]);
        splitIntoPairSums(engine->folded[0], engine->dctEven[0], engine->dctOdd[0]);
        cosModDCT4_X1(engine->subband[0], engine->dctEven[0], engine->dctOdd[0]);

        splitIntoPairSums(engine->subband[0], engine->dctEven[0], engine->dctOdd[0]);
        cosModDCT4_X1(engine->synthHistory[0], engine->dctEven[0], engine->dctOdd[0]);
        overlapAddAndAdvance(engine->synthHistory[0], engine->overlapNow[0], engine->overlapNext[0]);
        for (const float sample : engine->overlapNow[0]) output.push_back(static_cast<double>(sample));
        advanceOverlap(engine->overlapNow[0], engine->overlapNext[0]);
    }
    return output;
}

/// Signal to reconstruction error in dB, after the delay and the one gain that fits best.
double reconstructionDb(Signal signal)
{
    const std::size_t length = signal.size();
    signal.resize((length + 2048) / kBlock * kBlock);
    const Signal output = throughTheChain(signal);
    double cross = 0.0;
    double energy = 0.0;
    for (std::size_t i = 0; i + kDelayFrames < output.size(); ++i) {
        cross += output[i + kDelayFrames] * signal[i];
        energy += signal[i] * signal[i];
    }
    const double gain = cross / energy;
    double error = 0.0;
    for (std::size_t i = 0; i < output.size(); ++i) {
        const double wanted = i < kDelayFrames ? 0.0 : signal[i - kDelayFrames];
        error += std::pow(output[i] / gain - wanted, 2.0);
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

TEST(Reconstruction, OfAnImpulseIs85DecibelsAtEveryPlaceInTheBlock)
{
    for (std::size_t place = 0; place < kBlock; ++place) {
        Signal signal(kBlock, 0.0);
        signal[place] = 1.0;
        EXPECT_GE(reconstructionDb(signal), 85.0) << "frame " << place << " of the block";
    }
}

TEST(Reconstruction, DelaysBy960Frames)
{
    Signal signal(64 * 40, 0.0);
    signal[100] = 1.0;
    const Signal output = throughTheChain(signal);
    const auto louder = [](double a, double b) { return std::fabs(a) < std::fabs(b); };
    EXPECT_EQ(std::max_element(output.begin(), output.end(), louder) - output.begin(), 100 + 960);
}
