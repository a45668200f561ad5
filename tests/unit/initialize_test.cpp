#include "engine/threshold_rows.h"
#include "tests/support/engine.h"
#include "tests/support/record_compare.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <numeric>
#include <string_view>
#include <tuple>

using tests::engineAt;
using tests::parametersAt;

namespace
{

using Pair = float[2];

void expectPair(const Pair& pair, const Pair& expected)
{
    EXPECT_EQ(pair[0], expected[0]);
    EXPECT_EQ(pair[1], expected[1]);
}

void expectCounts(const std::int32_t (&counts)[16], const std::int32_t (&expected)[16])
{
    EXPECT_TRUE(std::equal(std::begin(counts), std::end(counts), std::begin(expected)));
}

std::uint32_t initialise(ZRKTarn& engine, Tarn_Parameters parameters)
{
    return engine.Initialize(parameters);
}

} // namespace

TEST(Constants, SmoothingPairsHaveTheirBits)
{
    const auto bits = [](const Pair& pair) {
        return std::pair{std::bit_cast<std::uint32_t>(pair[0]), std::bit_cast<std::uint32_t>(pair[1])};
    };
    EXPECT_EQ(bits(ZRKTarn::POWER), std::pair(0x3d4ccccdu, 0x3f733333u));
    EXPECT_EQ(bits(ZRKTarn::SLOWER), std::pair(0x3b03126fu, 0x3f7f7ceeu));
    EXPECT_EQ(bits(ZRKTarn::SLOW), std::pair(0x3c03126fu, 0x3f7df3b6u));
    EXPECT_EQ(bits(ZRKTarn::MID), std::pair(0x3ccccccdu, 0x3f79999au));
    EXPECT_EQ(bits(ZRKTarn::FAST), std::pair(0x3dcccccdu, 0x3f666666u));
}

TEST(Constants, EveryBandGroupingTilesThe64Bands)
{
    for (const auto& counts :
         {ZRKTarn::LOOP_COUNT48, ZRKTarn::LOOP_COUNT64, ZRKTarn::LOOP_COUNT96, ZRKTarn::LOOP_COUNT192})
        EXPECT_EQ(std::accumulate(counts, counts + 16, 0), 64);
}

TEST(Constants, MatricesHaveTheirValuesAndSignsOfZero)
{
    struct Row
    {
        const float* matrix;
        float values[12];
    };
    const Row rows[] = {
        {ZRKTarn::MATRIX15, {0.86f, -0.254f, 0.354f, 0.354f, -0.254f, 0.254f, 0.5f, -0.5f, 0.0f, 0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX25,
         {0.354f, -0.354f, 0.707f, 0.707f, -0.354f, 0.354f, 0.354f, -0.354f, 0.0f, 0.0f, 0.354f, -0.354f}},
        {ZRKTarn::MATRIX35, {0.254f, -0.254f, 0.354f, 0.354f, -0.254f, 0.86f, 0.0f, 0.0f, 0.0f, 0.0f, 0.5f, -0.5f}},
        {ZRKTarn::MATRIX45, {1.0f, 0.0f, 0.0f, 0.5f, 0.0f, 0.707f, 0.0f, -0.0f, 0.0f, 0.0f, 0.0f, -0.354f}},
        {ZRKTarn::MATRIX55, {0.707f, 0.0f, 0.5f, 0.5f, 0.0f, 0.707f, 0.354f, -0.354f, 0.0f, 0.0f, 0.354f, -0.354f}},
        {ZRKTarn::MATRIX65, {0.707f, 0.0f, 0.5f, 0.0f, 0.0f, 1.0f, 0.354f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX75, {0.077f, 0.154f, 0.077f, 0.154f, 0.154f, 0.308f, 1.0f, -0.414f, 0.0f, 0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX85, {0.154f, 0.154f, 0.25f, 0.25f, 0.154f, 0.154f, 0.5f, -0.5f, 0.0f, 0.0f, 0.5f, -0.5f}},
        {ZRKTarn::MATRIX95, {0.308f, 0.154f, 0.154f, 0.077f, 0.154f, 0.077f, 0.0f, 0.0f, 0.0f, 0.0f, 0.414f, -1.0f}},
        {ZRKTarn::MATRIX16, {0.86f, -0.254f, 0.354f, 0.354f, -0.254f, 0.254f, 0.5f, -0.5f, 0.0f, -0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX26,
         {0.354f, -0.354f, 0.707f, 0.707f, -0.354f, 0.354f, 0.25f, -0.25f, 0.354f, -0.354f, 0.25f, -0.25f}},
        {ZRKTarn::MATRIX36, {0.254f, -0.254f, 0.354f, 0.354f, -0.254f, 0.86f, 0.0f, 0.0f, 0.0f, -0.0f, 0.5f, -0.5f}},
        {ZRKTarn::MATRIX46, {1.0f, 0.0f, 0.0f, 0.5f, 0.0f, 0.707f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.354f}},
        {ZRKTarn::MATRIX56, {0.707f, 0.0f, 0.5f, 0.5f, 0.0f, 0.707f, 0.354f, -0.354f, 0.45f, -0.45f, 0.354f, -0.354f}},
        {ZRKTarn::MATRIX66, {0.707f, 0.0f, 0.5f, 0.0f, 0.0f, 1.0f, 0.354f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX76, {0.077f, 0.154f, 0.077f, 0.154f, 0.154f, 0.308f, 1.0f, -0.414f, 0.0f, 0.0f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX86, {0.154f, 0.154f, 0.25f, 0.25f, 0.154f, 0.154f, 0.0f, 0.0f, 0.707f, -0.707f, 0.0f, 0.0f}},
        {ZRKTarn::MATRIX96, {0.308f, 0.154f, 0.154f, 0.077f, 0.154f, 0.077f, 0.0f, 0.0f, 0.0f, 0.0f, 0.414f, -1.0f}},
    };
    for (const Row& row : rows) EXPECT_EQ(0, std::memcmp(row.matrix, row.values, sizeof row.values)) << &row - rows;
}

TEST(Constants, BandGroupingsHaveTheirValues)
{
    expectCounts(ZRKTarn::LOOP_COUNT48, {1, 1, 1, 1, 2, 2, 2, 2, 4, 4, 4, 4, 8, 8, 8, 12});
    expectCounts(ZRKTarn::LOOP_COUNT64, {1, 1, 1, 1, 1, 1, 2, 2, 2, 4, 4, 4, 4, 8, 8, 20});
    expectCounts(ZRKTarn::LOOP_COUNT96, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 4, 6, 10, 32});
    expectCounts(ZRKTarn::LOOP_COUNT192, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 48});
}

TEST(Constants, DescribeTheInternalFormat)
{
    EXPECT_EQ(ZRKTarn::INTERNAL_BIT_DEPTH, 32);
    EXPECT_EQ(ZRKTarn::INTERNAL_SAMPLE_CEILING, 0x7fffffff);
    EXPECT_EQ(ZRKTarn::INTERNAL_SAMPLE_FLOOR, std::numeric_limits<std::int32_t>::min());
}

TEST(Constants, RightRegionsMirrorTheLeftOnes)
{
    const auto expectMirror = [](const float* left, const float* right) {
        for (const auto& [a, b] : {std::pair{0, 5}, {1, 4}, {2, 3}, {3, 2}, {4, 1}, {5, 0}})
            EXPECT_EQ(left[a], right[b]) << "element " << a;
    };
    expectMirror(ZRKTarn::MATRIX15, ZRKTarn::MATRIX35);
    expectMirror(ZRKTarn::MATRIX25, ZRKTarn::MATRIX25);
    expectMirror(ZRKTarn::MATRIX45, ZRKTarn::MATRIX65);
    expectMirror(ZRKTarn::MATRIX55, ZRKTarn::MATRIX55);
    expectMirror(ZRKTarn::MATRIX75, ZRKTarn::MATRIX95);
    expectMirror(ZRKTarn::MATRIX85, ZRKTarn::MATRIX85);
    expectMirror(ZRKTarn::MATRIX16, ZRKTarn::MATRIX36);
    expectMirror(ZRKTarn::MATRIX26, ZRKTarn::MATRIX26);
    expectMirror(ZRKTarn::MATRIX46, ZRKTarn::MATRIX66);
    expectMirror(ZRKTarn::MATRIX56, ZRKTarn::MATRIX56);
    expectMirror(ZRKTarn::MATRIX76, ZRKTarn::MATRIX96);
    expectMirror(ZRKTarn::MATRIX86, ZRKTarn::MATRIX86);
}

TEST(Constructor, InstallsThe48kHzGroupingAndTheStaticPairs)
{
    const ZRKTarn engine;
    expectCounts(engine.bandCount, ZRKTarn::LOOP_COUNT48);
    expectPair(engine.power, ZRKTarn::POWER);
    expectPair(engine.mid, ZRKTarn::MID);
    expectPair(engine.slower, ZRKTarn::SLOWER);
    expectPair(engine.slow, ZRKTarn::SLOW);
    expectPair(engine.fast, ZRKTarn::FAST);
    expectPair(engine.broadbandPair, {0.1f, 0.9f});
    EXPECT_EQ(engine.mixFractionComplement, 1.0f);
}

TEST(Constructor, ZeroesEverythingElse)
{
    alignas(ZRKTarn) unsigned char memory[sizeof(ZRKTarn)];
    std::memset(memory, 0xff, sizeof memory);
    auto* const engine = new (memory) ZRKTarn();

    tests::forEachField(*engine, *engine, [](const char* name, const auto& field, const auto&) {
        for (const char* set : {"bandCount", "power", "mid", "slower", "slow", "fast", "broadbandPair",
                                "mixFractionComplement", "groupIndex", "bandIndex"})
            if (std::string_view(name) == set) return;
        const auto* const bytes = reinterpret_cast<const unsigned char*>(&field);
        EXPECT_TRUE(std::all_of(bytes, bytes + sizeof field, [](unsigned char byte) { return byte == 0; })) << name;
    });
    engine->~ZRKTarn();
}

TEST(Lifecycle, TrivialOperationsReturnZeroAndChangeNothing)
{
    const auto engine = engineAt(48000, 16);
    const ZRKTarn before = *engine;
    EXPECT_EQ(engine->Open(), 0u);
    EXPECT_EQ(engine->Close(), 0u);
    EXPECT_EQ(engine->Uninitialize(), 0u);
    EXPECT_EQ(engine->Process(nullptr, nullptr, 64), 0u);
    EXPECT_EQ(0, std::memcmp(&before, engine.get(), sizeof before));
}

TEST(Lifecycle, SettersStoreTheirArguments)
{
    ZRKTarn engine;
    std::uint8_t bytes[4];
    EXPECT_EQ(engine.SetChannelPtrs(&bytes[0], &bytes[1], &bytes[2], &bytes[3]), 0u);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(engine.channelPtr[i], &bytes[i]);
    EXPECT_EQ(engine.SetReserved(), 0u);
    EXPECT_EQ(engine.reservedA, 1);
    EXPECT_EQ(engine.reservedB, 2);
}

TEST(Initialize, ValidRecordAt48kHzKeepsPairsAndGroupingOfTheConstructor)
{
    ZRKTarn engine;
    EXPECT_EQ(initialise(engine, parametersAt(48000, 16)), 0u);
    expectCounts(engine.bandCount, ZRKTarn::LOOP_COUNT48);
    expectPair(engine.mid, ZRKTarn::MID);
    expectPair(engine.slower, ZRKTarn::SLOWER);
    expectPair(engine.slow, ZRKTarn::SLOW);
    expectPair(engine.fast, ZRKTarn::FAST);
    EXPECT_EQ(engine.rateCode, 48);
    EXPECT_EQ(engine.modeOneFlag, 1);
    EXPECT_EQ(engine.holdMidSmoothing, 0);
    EXPECT_EQ(engine.mixFraction, 1.0f);
    EXPECT_EQ(engine.mixFractionComplement, 0.0f);
}

TEST(Initialize, RefusedChannelCountsStillInstallAMatrixSet)
{
    for (const auto& [channels, code, region5] : {std::tuple{2, 1u, ZRKTarn::MATRIX25},
                                                  {3, 0u, ZRKTarn::MATRIX25},
                                                  {5, 0u, ZRKTarn::MATRIX25},
                                                  {6, 0u, ZRKTarn::MATRIX26},
                                                  {7, 0u, ZRKTarn::MATRIX26},
                                                  {8, 1u, ZRKTarn::MATRIX26},
                                                  {std::numeric_limits<std::int32_t>::min(), 1u, ZRKTarn::MATRIX25}}) {
        ZRKTarn engine;
        Tarn_Parameters parameters = parametersAt(48000, 16);
        parameters.outputChannels = channels;
        EXPECT_EQ(initialise(engine, parameters), code);
        EXPECT_TRUE(std::equal(region5, region5 + 12, engine.regionMatrix[1])) << channels << " output channels";
    }
}

TEST(Initialize, InstallsAllNineRegionsInOrder)
{
    const auto engine = engineAt(48000, 16);
    const float* regions[9] = {ZRKTarn::MATRIX15, ZRKTarn::MATRIX25, ZRKTarn::MATRIX35,
                               ZRKTarn::MATRIX45, ZRKTarn::MATRIX55, ZRKTarn::MATRIX65,
                               ZRKTarn::MATRIX75, ZRKTarn::MATRIX85, ZRKTarn::MATRIX95};
    for (int r = 0; r < 9; ++r) EXPECT_TRUE(std::equal(regions[r], regions[r] + 12, engine->regionMatrix[r]));
}

TEST(Initialize, Refuses176400HzAndKeepsWhatItHeld)
{
    ZRKTarn engine;
    EXPECT_EQ(initialise(engine, parametersAt(96000, 16)), 0u);
    const ZRKTarn before = engine;
    EXPECT_EQ(initialise(engine, parametersAt(176400, 24)), 3u);
    EXPECT_EQ(engine.rateCode, 0);
    expectCounts(engine.bandCount, before.bandCount);
    expectPair(engine.mid, before.mid);
    EXPECT_TRUE(tests::sameBits("thresBands", engine.thresBands, before.thresBands));
    EXPECT_EQ(engine.sampleCeiling, 8388607);
}

TEST(Initialize, FirstRefusedRateLeavesThresholdsZero)
{
    const auto engine = engineAt(11025, 16);
    for (const float threshold : engine->thresBands) EXPECT_EQ(threshold, 0.0f);
    expectCounts(engine->bandCount, ZRKTarn::LOOP_COUNT48);
}

TEST(Initialize, RefusedModeKeepsTheFlags)
{
    ZRKTarn engine;
    EXPECT_EQ(initialise(engine, parametersAt(48000, 16, 4)), 4u);
    EXPECT_EQ(engine.modeOneFlag, 0);
    EXPECT_EQ(engine.holdMidSmoothing, 0);
    EXPECT_EQ(initialise(engine, parametersAt(48000, 16, 2)), 0u);
    EXPECT_EQ(initialise(engine, parametersAt(48000, 16, 3)), 4u);
    EXPECT_EQ(engine.modeOneFlag, 0);
    EXPECT_EQ(engine.holdMidSmoothing, 1);
}

TEST(Initialize, LastFailedCheckNamesTheResult)
{
    ZRKTarn engine;
    Tarn_Parameters parameters = parametersAt(48000, 16);
    parameters.mixFraction = 1.5f;
    EXPECT_EQ(initialise(engine, parameters), 6u);
    EXPECT_EQ(engine.mixFraction, 1.5f);
    parameters.sampleRate = 22050;
    EXPECT_EQ(initialise(engine, parameters), 6u);
    parameters.mixFraction = -0.001f;
    EXPECT_EQ(initialise(engine, parameters), 6u);
    parameters.mixFraction = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(initialise(engine, parameters), 3u) << "NaN passes both bounds";
    parameters.outputChannels = 9;
    parameters.mode = 0;
    EXPECT_EQ(initialise(engine, parameters), 4u);
}

TEST(Initialize, RepeatedCallsCompoundInModeOneOnly)
{
    ZRKTarn engine;
    initialise(engine, parametersAt(96000, 16, 1));
    initialise(engine, parametersAt(96000, 16, 1));
    EXPECT_EQ(engine.mid[0], 0.025f * 0.25f);

    ZRKTarn calm;
    initialise(calm, parametersAt(96000, 16, 2));
    initialise(calm, parametersAt(96000, 16, 2));
    EXPECT_EQ(calm.mid[0], 0.025f * 0.5f);

    ZRKTarn cd;
    initialise(cd, parametersAt(44100, 16, 1));
    initialise(cd, parametersAt(44100, 24, 1));
    EXPECT_EQ(cd.slow[0], 0.008f * 1.088f * 1.088f);
    EXPECT_EQ(cd.slow[1], 1.0f - cd.slow[0]);
}

TEST(Initialize, ModeTwoGivesTheFastPairTheMidSpeed)
{
    const auto engine = engineAt(44100, 16, 2);
    expectPair(engine->fast, engine->mid);
    EXPECT_EQ(engine->mixFractionComplement, engine->mixFraction);
}

TEST(Initialize, FourOutputChannelsForceTheMixFractionToZero)
{
    for (const int mode : {1, 2}) {
        ZRKTarn engine;
        Tarn_Parameters parameters = parametersAt(48000, 16, mode);
        parameters.outputChannels = 4;
        initialise(engine, parameters);
        EXPECT_EQ(engine.mixFraction, 0.0f);
        EXPECT_EQ(engine.mixFractionComplement, mode == 1 ? 1.0f : 0.0f);
    }
}

TEST(Initialize, ScalesThePairsAndGroupsTheBandsByRate)
{
    struct Row
    {
        std::uint32_t rateHz;
        std::int32_t code;
        float alpha; ///< of the mid pair
        const std::int32_t* counts;
    };
    const Row rows[] = {
        {32000, 32, 0.025f * 1.5f, ZRKTarn::LOOP_COUNT48},    {44100, 44, 0.025f * 1.088f, ZRKTarn::LOOP_COUNT48},
        {48000, 48, 0.025f, ZRKTarn::LOOP_COUNT48},           {64000, 64, 0.025f / 1.3333f, ZRKTarn::LOOP_COUNT64},
        {88200, 88, 0.025f / 1.8375f, ZRKTarn::LOOP_COUNT96}, {96000, 96, 0.025f * 0.5f, ZRKTarn::LOOP_COUNT96},
        {192000, 192, 0.025f * 0.25f, ZRKTarn::LOOP_COUNT192}};
    for (const Row& row : rows) {
        const auto engine = engineAt(row.rateHz, 16);
        EXPECT_EQ(engine->rateCode, row.code);
        EXPECT_EQ(engine->mid[0], row.alpha);
        EXPECT_TRUE(std::equal(row.counts, row.counts + 16, engine->bandCount)) << row.rateHz;
        expectPair(engine->power, ZRKTarn::POWER);
    }
}

TEST(Initialize, At48kHzThePairsAreNotEvenRecomputed)
{
    ZRKTarn engine;
    engine.slow[0] = 0.25f;
    engine.slow[1] = 0.5f;
    initialise(engine, parametersAt(48000, 16));
    expectPair(engine.slow, {0.25f, 0.5f});
}

TEST(Initialize, GroupingStaysWhenTheRateFallsTo48kHz)
{
    const auto engine = engineAt(192000, 16);
    initialise(*engine, parametersAt(48000, 16));
    expectCounts(engine->bandCount, ZRKTarn::LOOP_COUNT192);
}

TEST(Initialize, DerivesTheThresholdRowsOfHigherRates)
{
    const auto expectRows = [](std::uint32_t rateHz, auto source) {
        const auto engine = engineAt(rateHz, 16);
        for (int g = 0; g < 16; ++g) {
            EXPECT_EQ(engine->thresBands[g], ZRKTarn::THRES_BANDS[source(g)]);
            EXPECT_EQ(engine->midThresBands[g], ZRKTarn::MIDTHRES_BANDS[source(g)]);
            EXPECT_EQ(engine->slowThresBands[g], ZRKTarn::SLOWTHRES_BANDS[source(g)]);
        }
    };
    for (const std::uint32_t rateHz : {32000u, 44100u, 48000u, 64000u}) expectRows(rateHz, [](int g) { return g; });
    for (const std::uint32_t rateHz : {88200u, 96000u}) expectRows(rateHz, [](int g) { return g < 8 ? 2 * g : 15; });
    expectRows(192000u, [](int g) { return g < 4 ? 4 * g : 15; });
}

TEST(ThresholdRows, TakeEveryStepOfTheTableAndThenItsLastEntry)
{
    float ramp[16];
    for (int g = 0; g < 16; ++g) ramp[g] = static_cast<float>(g);
    for (const int step : {1, 2, 4}) {
        float row[16];
        zrk_tarn::copyThresholds(ramp, step, row);
        for (int g = 0; g < 16; ++g)
            EXPECT_EQ(row[g], static_cast<float>(g < 16 / step ? g * step : 15)) << "step " << step;
    }
}

TEST(Initialize, ComputesTheSampleConversion)
{
    struct Row
    {
        std::int32_t bits;
        float inputScale;
        float outputScale;
        std::int32_t ceiling;
    };
    const float inf = std::numeric_limits<float>::infinity();
    const std::int32_t top = std::numeric_limits<std::int32_t>::max();
    const Row rows[] = {{0, 0.0f, 0.0f, 0},
                        {1, 2147483648.0f, 0.0f, 0},
                        {16, 32768.5f, 65535.0f * 0x1p-31f, 32767},
                        {20, 2048.001953125f, 1048575.0f * 0x1p-31f, 524287},
                        {24, std::bit_cast<float>(0x43000001u), std::bit_cast<float>(0x3bffffffu), 8388607},
                        {32, 0.5f, 2.0f, top},
                        {33, 0.25f, 4.0f, top},
                        {2000, 0.0f, inf, top}};
    for (const Row& row : rows) {
        const auto engine = engineAt(48000, row.bits);
        EXPECT_EQ(engine->inputScale, row.inputScale) << row.bits;
        EXPECT_EQ(engine->outputScale, row.outputScale) << row.bits;
        EXPECT_EQ(engine->sampleCeiling, row.ceiling) << row.bits;
        EXPECT_EQ(engine->sampleFloor, -row.ceiling - 1) << row.bits;
    }
    EXPECT_EQ(std::bit_cast<std::uint32_t>(engineAt(48000, 16)->outputScale), 0x37ffff00u);
}

TEST(Initialize, IsNotAReset)
{
    const auto engine = engineAt(48000, 16);
    engine->inputHistory[1][17] = 3.0f;
    engine->lrFast[4] = 0.5f;
    engine->power[0] = 0.25f;
    initialise(*engine, parametersAt(96000, 24));
    EXPECT_EQ(engine->inputHistory[1][17], 3.0f);
    EXPECT_EQ(engine->lrFast[4], 0.5f);
    EXPECT_EQ(engine->power[0], 0.25f);
}
