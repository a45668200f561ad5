// Compares the surround channels with those of the reference: all bits of the state, block by block.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"
#include "tests/reference/reference_surrounds.h"
#include "tests/support/engine.h"
#include "tests/support/record_compare.h"
#include "tests/support/signals.h"

#include <cmath>
#include <memory>
#include <tuple>

namespace tests
{

namespace
{

constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000};
constexpr std::uint64_t kSeed = 20261122;

/// An engine and the surround channels of the library and of the reference behind it.
class SurroundsPair
{
public:
    SurroundsPair(std::uint32_t rateHz, int pairs) : reference(rateHz, 2 * pairs)
    {
        engine->Open();
        engine->Initialize(parametersAt(rateHz, 16, 1));
        zrk_tarn::configureSurrounds(*library, rateHz, pairs);
    }

    void runBlock(Signal signal, Random& random)
    {
        std::int16_t block[64 * 3]{};
        for (int i = 0; i < 64; ++i, ++time) {
            const Frame frame = frameOf(signal, time, random);
            block[3 * i] = static_cast<std::int16_t>(sampleOf(frame.left, 16));
            block[3 * i + 1] = static_cast<std::int16_t>(sampleOf(frame.right, 16));
        }
        auto* const bytes = reinterpret_cast<std::uint8_t*>(block);
        engine->SetChannelPtrs(bytes, bytes + 2, bytes + 4, nullptr);
        engine->ProcessCine3InterLeave(64, 3);
        zrk_tarn::chosenOperations().renderSurrounds(*engine, *library);
        reference.render(engine->subband, engine->bandCount);
        forEachCommonField(*library, reference, [](const char* name, const auto& own, const auto& expected) {
            ASSERT_TRUE(sameBits(name, own, expected));
        });
    }

    const zrk_tarn::Surrounds& surrounds() const { return *library; }

private:
    std::unique_ptr<ZRKTarn> engine = std::make_unique<ZRKTarn>();
    std::unique_ptr<zrk_tarn::Surrounds> library = std::make_unique<zrk_tarn::Surrounds>();
    reference::Surrounds reference;
    std::uint64_t time = 0;
};

using RateAndPairs = std::tuple<std::uint32_t, int>;

} // namespace

class SurroundsOf : public testing::TestWithParam<RateAndPairs>
{};

TEST_P(SurroundsOf, EverySignalMatchTheReference)
{
    const auto [rateHz, pairs] = GetParam();
    Random random(kSeed + rateHz);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed + rateHz);
    SurroundsPair both(rateHz, pairs);
    for (const Signal signal : kAllSignals) {
        SCOPED_TRACE(testing::Message() << signal);
        for (int block = 0; block < 60 && !HasFatalFailure(); ++block) both.runBlock(signal, random);
    }
}

INSTANTIATE_TEST_SUITE_P(, SurroundsOf, testing::Combine(testing::ValuesIn(kRatesHz), testing::Values(1, 2)),
                         [](const testing::TestParamInfo<RateAndPairs>& tested) {
                             return std::to_string(std::get<0>(tested.param)) + "With" +
                                    std::to_string(std::get<1>(tested.param)) + "Pairs";
                         });

// Without the bound on traces, the chains would decay to subnormal numbers and stay slow for minutes.
TEST(SurroundsInSilence, MatchTheReferenceAndBecomeZero)
{
    Random random(kSeed);
    SurroundsPair both(48000, 2);
    for (int block = 0; block < 100; ++block) both.runBlock(Signal::DiffuseNoise, random);
    for (int block = 0; block < 4000 && !HasFatalFailure(); ++block) {
        both.runBlock(Signal::Silence, random);
        for (const zrk_tarn::AllPass(&chain)[2] : both.surrounds().chain)
            for (const zrk_tarn::AllPass& section : chain)
                for (const float w : section.ring) ASSERT_NE(std::fpclassify(w), FP_SUBNORMAL);
    }
    for (const float(&channel)[64] : both.surrounds().output)
        for (const float sample : channel) EXPECT_EQ(sample, 0.0f);
    for (const float power : both.surrounds().leftLeft) EXPECT_EQ(power, 0.0f);
}

} // namespace tests
