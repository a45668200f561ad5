#include "tests/reference/engine_twins.h"
#include "tests/support/engine.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>
#include <type_traits>

// The engine against the literal one: after every block, every byte of the host buffer and every bit of the record.

namespace tests
{

namespace
{

constexpr std::uint32_t kRatesHz[] = {32000, 44100, 48000, 64000, 88200, 96000, 192000};
constexpr std::uint64_t kSeed = 20261121; ///< of every sequence; a rate's own is offset by the rate

/// Random gains: unity, small, absurd and none.
void randomGains(Random& random, int (&coeff)[3][4])
{
    for (auto& row : coeff) {
        for (int& gain : row) {
            const int choices[] = {0, 1 << 28, -(1 << 27), static_cast<int>(random.bits())};
            gain = random.oneOf(choices);
        }
    }
}

/// Runs blocks of a signal until a mismatch, whole ones and now and then a short one.
void runBlocks(EngineTwins& twins, Path path, Signal signal, int blocks, Random& random)
{
    for (int i = 0; i < blocks && !testing::Test::HasFailure(); ++i) {
        const std::uint32_t frames = random.chance(6) ? random.below(65) : 64;
        SCOPED_TRACE(testing::Message() << signal << ", block " << i << " of " << frames << " frames");
        twins.runBlock(path, signal, frames, path == Path::Plain ? 4 : 8, random);
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

TEST_P(EveryFormat, GivesTheReferencesBitsOnEverySignal)
{
    const auto [rate, path] = GetParam();
    Random random(kSeed + rate);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed + rate);
    for (const int mode : {1, 2}) {
        for (const int outputChannels : {3, 4, 5, 6, 7}) {
            for (const int bits : {12, 16, 20, 24, 32}) {
                EngineTwins twins;
                Tarn_Parameters parameters = parametersAt(rate, bits, mode);
                parameters.outputChannels = outputChannels;
                SCOPED_TRACE(testing::Message() << rate << " Hz, " << bits << " bits, mode " << mode << ", "
                                                << outputChannels << " output channels");
                twins.initialise(parameters);
                int coeff[3][4];
                randomGains(random, coeff);
                twins.setRemapCoeff(coeff);
                for (const Signal signal : kAllSignals) runBlocks(twins, path, signal, 3, random);
                if (HasFailure()) return;
            }
        }
    }
}

TEST_P(EveryFormat, GivesTheReferencesBitsInEveryWidth)
{
    const auto [rate, path] = GetParam();
    Random random(kSeed - rate);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed - rate);
    for (int bits = 9; bits <= 32; ++bits) {
        EngineTwins twins;
        SCOPED_TRACE(testing::Message() << rate << " Hz, " << bits << " bits");
        twins.initialise(parametersAt(rate, bits, 1 + bits % 2));
        int coeff[3][4];
        randomGains(random, coeff);
        twins.setRemapCoeff(coeff);
        for (const Signal signal : {Signal::TravellingSource, Signal::FullScaleSquare, Signal::QuietNoise})
            runBlocks(twins, path, signal, 8, random);
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(, EveryFormat,
                         testing::Combine(testing::ValuesIn(kRatesHz), testing::Values(Path::Plain, Path::Remap)),
                         formatName);

class EverySignal : public testing::TestWithParam<Signal>
{};

TEST_P(EverySignal, GivesTheReferencesBitsForTwoSecondsAndTheSilenceAfterThem)
{
    Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    EngineTwins twins;
    twins.initialise(parametersAt(48000, 16));
    runBlocks(twins, Path::Plain, GetParam(), 1500, random);
    runBlocks(twins, Path::Plain, Signal::Silence, 300, random);
}

INSTANTIATE_TEST_SUITE_P(, EverySignal, testing::ValuesIn(kAllSignals), testing::PrintToStringParamName());

TEST(LongSilence, GivesTheReferencesBitsDownToSubnormalState)
{
    Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    EngineTwins twins;
    twins.initialise(parametersAt(48000, 16));
    runBlocks(twins, Path::Plain, Signal::DiffuseNoise, 40, random);
    runBlocks(twins, Path::Plain, Signal::Silence, 4000, random);
    EXPECT_LT(twins.engine().avgLevelL, 1.2e-38f);
}

/// How many values of a field are subnormal.
template <std::size_t kRows, std::size_t kCount>
int subnormalsIn(const float (&rows)[kRows][kCount])
{
    int found = 0;
    for (const auto& row : rows)
        found += static_cast<int>(std::count_if(std::begin(row), std::end(row),
                                                [](float value) { return std::fpclassify(value) == FP_SUBNORMAL; }));
    return found;
}

// What is left of a place that no sound has come from for minutes, met by loud sound: coefficients, subbands and
// synthesis histories about the smallest normal number.
TEST(TinyWeights, GiveTheReferencesBitsThroughMixingAndSynthesis)
{
    Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    int mixed = 0;
    int synthesised = 0;
    for (const std::uint32_t rate : kRatesHz) {
        for (const int exponent : {-58, -62, -110, -126, -140, -144, -147}) {
            SCOPED_TRACE(testing::Message() << rate << " Hz, weights of 2^" << exponent);
            EngineTwins twins;
            twins.initialise(parametersAt(rate, 24));
            for (const Signal signal : {Signal::LeftNoise, Signal::QuietNoise, Signal::HighTone, Signal::Silence}) {
                ZRKTarn& a = twins.engine();
                reference::Engine& b = twins.reference();
                for (int g = 0; g < 16; ++g) {
                    const auto lr = std::ldexp(static_cast<float>(random.uniform()), exponent);
                    const auto fb = std::ldexp(static_cast<float>(random.uniform()), exponent);
                    a.lrSlower[g] = a.lrSlow[g] = a.lrMid[g] = a.lrFast[g] = lr;
                    b.lrSlower[g] = b.lrSlow[g] = b.lrMid[g] = b.lrFast[g] = lr;
                    a.fbSlower[g] = a.fbSlow[g] = a.fbMid[g] = a.fbFast[g] = fb;
                    b.fbSlower[g] = b.fbSlow[g] = b.fbMid[g] = b.fbFast[g] = fb;
                }
                // Alpha as after many changes of the format, so that the weights stay tiny.
                const auto alpha = std::ldexp(1.0f, exponent);
                for (float(*pair)[2] : {&a.slower, &a.slow, &a.mid, &a.fast, &b.slower, &b.slow, &b.mid, &b.fast})
                    (*pair)[0] = alpha;
                for (int block = 0; block < 20 && !HasFailure(); ++block) {
                    runBlocks(twins, Path::Plain, signal, 1, random);
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

/// A number that a caller might leave in a field: of any magnitude down to the smallest subnormal one, of either sign.
float writtenValue(Random& random)
{
    const auto mantissa = static_cast<float>(random.uniform());
    const int exponents[] = {0, 20, 31, 40, -20, -100, -126, -140, -148};
    return random.chance(8) ? std::copysign(0.0f, mantissa) : std::ldexp(mantissa, random.oneOf(exponents));
}

/// Writes the same numbers into the same places of a field of both engines.
template <typename Field>
void writeInto(Field& a, Field& b, Random& random)
{
    using Element = std::remove_all_extents_t<Field>;
    auto* const first = reinterpret_cast<Element*>(&a);
    auto* const second = reinterpret_cast<Element*>(&b);
    for (std::size_t i = 0; i < sizeof(Field) / sizeof(Element); ++i)
        if (random.chance(2)) first[i] = second[i] = writtenValue(random);
}

TEST(WrittenFields, GiveTheReferencesBits)
{
    Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    for (int life = 0; life < 300 && !HasFailure(); ++life) {
        constexpr std::int32_t kBits[] = {16, 24, 32, 20};
        EngineTwins twins;
        twins.initialise(parametersAt(random.oneOf(kRatesHz), random.oneOf(kBits)));
        const Signal signal = kAllSignals[random.below(kAllSignals.size())];
        runBlocks(twins, Path::Plain, signal, 3, random);
        for (int change = 0; change < 12 && !HasFailure(); ++change) {
            std::string written;
            forEachField(twins.engine(), twins.reference(), [&](const char* name, auto& a, auto& b) {
                using Element = std::remove_all_extents_t<std::remove_cvref_t<decltype(a)>>;
                if constexpr (std::is_same_v<Element, float>) {
                    if (!random.chance(12)) return;
                    writeInto(a, b, random);
                    written += std::string(" ") + name;
                }
            });
            if (random.chance(3)) {
                // Any tiling of at most 64 bands, with empty groups and negative counts.
                std::int32_t left = 64;
                for (int g = 0; g < 16; ++g) {
                    const auto count = static_cast<std::int32_t>(random.below(8)) - 1;
                    twins.engine().bandCount[g] = twins.reference().bandCount[g] = std::min(count, left);
                    left -= std::max(twins.engine().bandCount[g], 0);
                }
                written += " bandCount";
            }
            if (random.chance(4)) {
                const auto ceiling = static_cast<std::int32_t>(random.bits());
                const auto floor = static_cast<std::int32_t>(random.bits());
                twins.engine().sampleCeiling = twins.reference().sampleCeiling = ceiling;
                twins.engine().sampleFloor = twins.reference().sampleFloor = floor;
                written += " sampleCeiling sampleFloor";
            }
            SCOPED_TRACE(testing::Message() << "life " << life << ", change " << change << ", written:" << written);
            runBlocks(twins, random.chance(2) ? Path::Plain : Path::Remap, signal, 2, random);
        }
    }
}

TEST(Reconfiguration, CarriesTheSameStateThroughEveryChange)
{
    Random random(kSeed);
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    EngineTwins twins;
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
        twins.initialise(parameters);
        const Path path = random.chance(2) ? Path::Plain : Path::Remap;
        runBlocks(twins, path, kAllSignals[random.below(kAllSignals.size())], 8, random);
    }
}

} // namespace tests
