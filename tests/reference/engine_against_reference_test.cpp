// Compares the engine with the reference engine: all bytes of the buffer and all bits of the record, block by block.
// SPDX-License-Identifier: MIT
#include "tests/reference/engine_pair.h"
#include "tests/support/engine.h"
#include "tests/support/subnormal_speed_test.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <string>
#include <tuple>
#include <type_traits>

namespace tests
{

namespace
{

constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000};
constexpr std::uint64_t kSeed = 20261121; ///< tests with a rate add or subtract it

/// Random gains: zero, unity, small and arbitrary.
void randomGains(Random& random, int (&coeff)[3][4])
{
    for (auto& row : coeff) {
        for (int& gain : row) {
            const int choices[] = {0, 1 << 28, -(1 << 27), static_cast<int>(random.bits())};
            gain = random.oneOf(choices);
        }
    }
}

/// Runs blocks of a signal until a mismatch; some are short.
void runBlocks(EnginePair& engines, Path path, Signal signal, int blocks, Random& random)
{
    for (int i = 0; i < blocks && !testing::Test::HasFailure(); ++i) {
        const std::uint32_t frames = random.chance(6) ? random.below(65) : 64;
        SCOPED_TRACE(testing::Message() << signal << ", block " << i << " of " << frames << " frames");
        engines.runBlock(path, signal, frames, path == Path::Plain ? 4 : 8, random);
    }
}

using Format = std::tuple<std::uint32_t, Path>;

std::string formatName(const testing::TestParamInfo<Format>& format)
{
    const auto [rate, path] = format.param;
    return std::to_string(rate) + (path == Path::Plain ? "Plain" : "Remap");
}

} // namespace

class EveryFormat : public testing::TestWithParam<Format>
{};

TEST_P(EveryFormat, MatchesTheReferenceForEverySignal)
{
    const auto [rate, path] = GetParam();
    Random random(kSeed + rate);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed + rate);
    for (const int mode : {1, 2}) {
        for (const int outputChannels : {3, 4, 5, 6, 7}) {
            for (const int bits : {12, 16, 20, 24, 32}) {
                EnginePair engines;
                Tarn_Parameters parameters = parametersAt(rate, bits, mode);
                parameters.outputChannels = outputChannels;
                SCOPED_TRACE(testing::Message() << rate << " Hz, " << bits << " bits, mode " << mode << ", "
                                                << outputChannels << " output channels");
                engines.initialize(parameters);
                int coeff[3][4];
                randomGains(random, coeff);
                engines.setRemapCoeff(coeff);
                for (const Signal signal : kAllSignals) runBlocks(engines, path, signal, 3, random);
                if (HasFailure()) return;
            }
        }
    }
}

TEST_P(EveryFormat, MatchesTheReferenceInEveryWidth)
{
    const auto [rate, path] = GetParam();
    Random random(kSeed - rate);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed - rate);
    for (int bits = 9; bits <= 32; ++bits) {
        EnginePair engines;
        SCOPED_TRACE(testing::Message() << rate << " Hz, " << bits << " bits");
        engines.initialize(parametersAt(rate, bits, 1 + bits % 2));
        int coeff[3][4];
        randomGains(random, coeff);
        engines.setRemapCoeff(coeff);
        for (const Signal signal : {Signal::TravellingSource, Signal::FullScaleSquare, Signal::QuietNoise})
            runBlocks(engines, path, signal, 8, random);
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(, EveryFormat,
                         testing::Combine(testing::ValuesIn(kRatesHz), testing::Values(Path::Plain, Path::Remap)),
                         formatName);

class EverySignal : public testing::TestWithParam<Signal>
{};

TEST_P(EverySignal, MatchesTheReferenceForTwoSecondsAndSilence)
{
    Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    EnginePair engines;
    engines.initialize(parametersAt(48000, 16));
    runBlocks(engines, Path::Plain, GetParam(), 1500, random);
    runBlocks(engines, Path::Plain, Signal::Silence, 300, random);
}

INSTANTIATE_TEST_SUITE_P(, EverySignal, testing::ValuesIn(kAllSignals), testing::PrintToStringParamName());

using LongSilence = tests::SubnormalSpeedTest;
using WeightsNearUnderflow = tests::SubnormalSpeedTest;
using WrittenFields = tests::SubnormalSpeedTest;

INSTANTIATE_TEST_SUITE_P(, LongSilence, testing::Bool(), tests::nameOfSpeed);
INSTANTIATE_TEST_SUITE_P(, WeightsNearUnderflow, testing::Bool(), tests::nameOfSpeed);
INSTANTIATE_TEST_SUITE_P(, WrittenFields, testing::Bool(), tests::nameOfSpeed);

TEST_P(LongSilence, MatchesTheReferenceUntilStateIsSubnormal)
{
    Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    EnginePair engines;
    engines.initialize(parametersAt(48000, 16));
    runBlocks(engines, Path::Plain, Signal::DiffuseNoise, 40, random);
    runBlocks(engines, Path::Plain, Signal::Silence, 4000, random);
    EXPECT_LT(engines.engine().avgLevelL, 1.2e-38f);
}

/// The number of subnormal values in a field.
template <std::size_t kRows, std::size_t kCount>
int subnormalsIn(const float (&rows)[kRows][kCount])
{
    int found = 0;
    for (const auto& row : rows)
        found += static_cast<int>(std::count_if(std::begin(row), std::end(row),
                                                [](float value) { return std::fpclassify(value) == FP_SUBNORMAL; }));
    return found;
}

// Weights that have decayed for minutes, and then loud sound: coefficients, subbands and synthesis histories near the
// smallest normal number.
TEST_P(WeightsNearUnderflow, MatchTheReferenceThroughMixingAndSynthesis)
{
    Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    int mixed = 0;
    int synthesised = 0;
    for (const std::uint32_t rate : kRatesHz) {
        for (const int exponent : {-58, -62, -110, -126, -140, -144, -147}) {
            SCOPED_TRACE(testing::Message() << rate << " Hz, weights of 2^" << exponent);
            EnginePair engines;
            engines.initialize(parametersAt(rate, 24));
            for (const Signal signal : {Signal::LeftNoise, Signal::QuietNoise, Signal::HighTone, Signal::Silence}) {
                ZRKTarn& a = engines.engine();
                reference::Engine& b = engines.reference();
                for (int g = 0; g < 16; ++g) {
                    const auto lr = std::ldexp(static_cast<float>(random.uniform()), exponent);
                    const auto fb = std::ldexp(static_cast<float>(random.uniform()), exponent);
                    a.lrSlower[g] = a.lrSlow[g] = a.lrMid[g] = a.lrFast[g] = lr;
                    b.lrSlower[g] = b.lrSlow[g] = b.lrMid[g] = b.lrFast[g] = lr;
                    a.fbSlower[g] = a.fbSlow[g] = a.fbMid[g] = a.fbFast[g] = fb;
                    b.fbSlower[g] = b.fbSlow[g] = b.fbMid[g] = b.fbFast[g] = fb;
                }
                // An alpha as after many changes of the format keeps the weights near underflow.
                const auto alpha = std::ldexp(1.0f, exponent);
                for (float(*pair)[2] : {&a.slower, &a.slow, &a.mid, &a.fast, &b.slower, &b.slow, &b.mid, &b.fast})
                    (*pair)[0] = alpha;
                for (int block = 0; block < 20 && !HasFailure(); ++block) {
                    runBlocks(engines, Path::Plain, signal, 1, random);
                    mixed += subnormalsIn(a.outSubband);
                    synthesised += subnormalsIn(a.synthHistory);
                }
                if (HasFailure()) return;
            }
        }
    }
    EXPECT_GT(mixed, 1000);
    EXPECT_GT(synthesised, 1000);
}

/// A number that a caller may write to a field: of any sign and magnitude, also subnormal, rarely infinite or NaN.
float writtenValue(Random& random)
{
    if (random.chance(50)) {
        const std::uint32_t payload = random.chance(2) ? 0 : random.bits();
        return std::bit_cast<float>((random.bits() & 0x80000000) | 0x7f800000 | payload);
    }
    const auto mantissa = static_cast<float>(random.uniform());
    const int exponents[] = {0, 20, 31, 40, -20, -100, -126, -140, -148};
    return random.chance(8) ? std::copysign(0.0f, mantissa) : std::ldexp(mantissa, random.oneOf(exponents));
}

/// Writes the same numbers to the same elements of a field of both engines.
template <typename Field>
void writeInto(Field& a, Field& b, Random& random)
{
    using Element = std::remove_all_extents_t<Field>;
    auto* const first = reinterpret_cast<Element*>(&a);
    auto* const second = reinterpret_cast<Element*>(&b);
    for (std::size_t i = 0; i < sizeof(Field) / sizeof(Element); ++i)
        if (random.chance(2)) first[i] = second[i] = writtenValue(random);
}

TEST_P(WrittenFields, MatchTheReference)
{
    Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    for (int run = 0; run < 300 && !HasFailure(); ++run) {
        constexpr std::int32_t kBits[] = {16, 24, 32, 20};
        EnginePair engines;
        engines.initialize(parametersAt(random.oneOf(kRatesHz), random.oneOf(kBits)));
        const Signal signal = kAllSignals[random.below(kAllSignals.size())];
        runBlocks(engines, Path::Plain, signal, 3, random);
        for (int change = 0; change < 12 && !HasFailure(); ++change) {
            std::string written;
            forEachField(engines.engine(), engines.reference(), [&](const char* name, auto& a, auto& b) {
                using Element = std::remove_all_extents_t<std::remove_cvref_t<decltype(a)>>;
                if constexpr (std::is_same_v<Element, float>) {
                    if (!random.chance(12)) return;
                    writeInto(a, b, random);
                    written += std::string(" ") + name;
                }
            });
            if (random.chance(3)) {
                // Counts of at most 64 bands in all, with empty groups and negative counts.
                std::int32_t left = 64;
                for (int g = 0; g < 16; ++g) {
                    const auto count = static_cast<std::int32_t>(random.below(8)) - 1;
                    engines.engine().bandCount[g] = engines.reference().bandCount[g] = std::min(count, left);
                    left -= std::max(engines.engine().bandCount[g], 0);
                }
                written += " bandCount";
            }
            if (random.chance(4)) {
                const auto ceiling = static_cast<std::int32_t>(random.bits());
                const auto floor = static_cast<std::int32_t>(random.bits());
                engines.engine().sampleCeiling = engines.reference().sampleCeiling = ceiling;
                engines.engine().sampleFloor = engines.reference().sampleFloor = floor;
                written += " sampleCeiling sampleFloor";
            }
            SCOPED_TRACE(testing::Message() << "run " << run << ", change " << change << ", written:" << written);
            runBlocks(engines, random.chance(2) ? Path::Plain : Path::Remap, signal, 2, random);
        }
    }
}

TEST(Reconfiguration, MatchesTheReferenceAfterEveryChange)
{
    Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    EnginePair engines;
    for (int change = 0; change < 400 && !HasFailure(); ++change) {
        constexpr std::uint32_t kOddRates[] = {0, 22050, 176400, 48001};
        constexpr std::int32_t kBits[] = {16, 24, 32, 9, 17, 8, 40, 0, 1};
        constexpr float kFractions[] = {0.0f, 0.25f, 1.0f, 1.5f, -0.1f};

        Tarn_Parameters parameters = parametersAt(random.oneOf(kRatesHz), random.oneOf(kBits));
        if (random.chance(8)) parameters.sampleRate = random.oneOf(kOddRates);
        parameters.outputChannels = static_cast<std::int32_t>(2 + random.below(7));
        parameters.mode = static_cast<std::int32_t>(random.below(5));
        parameters.mixFraction = random.oneOf(kFractions);
        SCOPED_TRACE(testing::Message() << "change " << change << ", " << parameters.sampleRate << " Hz, "
                                        << parameters.bitsPerSample << " bits, mode " << parameters.mode << ", "
                                        << parameters.outputChannels << " output channels");
        engines.initialize(parameters);
        const Path path = random.chance(2) ? Path::Plain : Path::Remap;
        runBlocks(engines, path, kAllSignals[random.below(kAllSignals.size())], 8, random);
    }
}

} // namespace tests
