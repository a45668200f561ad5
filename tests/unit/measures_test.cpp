#include "cinema/band_layouts.h"
#include "cinema/dominant_bands.h"
#include "cinema/group_peaks.h"
#include "cinema/group_powers.h"
#include "cinema/levels.h"
#include "cinema/spectrum.h"
#include "cinema/tonality.h"
#include "tests/support/engine.h"
#include "tests/support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <memory>
#include <tuple>

using namespace zrk_tarn::TARN_INSTRUCTION_SET;
using tests::engineAt;
using tests::Random;

namespace
{

constexpr float kRoot2 = 1.4142135f;

/// Adds a tenth of a magnitude in double and rounds the sum to single.
float plusATenth(float total, float value)
{
    return static_cast<float>(static_cast<double>(total) +
                              static_cast<double>(0.1f) * static_cast<double>(std::fabs(value)));
}

/// Gives every measure and threshold of group g a value of its own.
void numberGroups(ZRKTarn& engine)
{
    for (int g = 0; g < 16; ++g) {
        const auto value = static_cast<float>(g + 1);
        float* fields[] = {engine.peakL,  engine.peakR,   engine.peakSum, engine.peakDiff, engine.powL,     engine.powR,
                           engine.powSum, engine.powDiff, engine.thres,   engine.midThres, engine.slowThres};
        float offset = 0.0f;
        for (float* field : fields) field[g] = value + (offset += 100.0f);
    }
}

/// Whether group `to` holds all eleven values that numberGroups gave to group `from`.
bool holdsGroup(const ZRKTarn& engine, int to, int from)
{
    const auto value = static_cast<float>(from + 1);
    const float* fields[] = {engine.peakL, engine.peakR,    engine.peakSum,  engine.peakDiff,
                             engine.powL,  engine.powR,     engine.powSum,   engine.powDiff,
                             engine.thres, engine.midThres, engine.slowThres};
    float offset = 0.0f;
    return std::all_of(std::begin(fields), std::end(fields),
                       [&](const float* field) { return field[to] == value + (offset += 100.0f); });
}

} // namespace

// --- Spectrum and peak region
// ------------------------------------------------------------------------------------------

TEST(Spectrum, AddsATenthOfEachMagnitudeRoundedToSingleAtOnce)
{
    float subband[64];
    for (int b = 0; b < 64; ++b) subband[b] = (b % 2 == 0 ? 1.0f : -1.0f) * (1e6f / static_cast<float>(b + 3));
    float spectrum = 123456.7f;
    float peakRegion = 0.0f;
    float rest = 0.0f;
    float expected = 123456.7f * 0.9f;
    for (const float value : subband) expected = plusATenth(expected, value);
    trackSpectrum(subband, spectrum, peakRegion, rest);
    EXPECT_EQ(spectrum, expected);
    EXPECT_EQ(rest, spectrum - peakRegion);
}

TEST(Spectrum, TenthsInTheMiddleBetweenTwoTotalsGoToTheEvenOne)
{
    // A tenth of 1 is an odd number of halves of the last place of totals from 1/8 to 1/4: where it goes depends on
    // the total that it meets, and so on all bands below.
    Random random(1);
    int odd = 0;
    for (int turn = 0; turn < 2000; ++turn) {
        float subband[64] = {};
        const int middle = turn % 64;
        subband[middle] = turn % 3 == 0 ? -1.0f : 1.0f;
        for (int b = 0; b < 64 && turn % 2 == 0; ++b)
            if (b != middle) subband[b] = static_cast<float>(random.uniform()) * 0x1p-12f;

        const float before = (0.1251f + 0.01f * static_cast<float>(random.below(1000)) / 1000.0f) / 0.9f;
        float expected = before * 0.9f;
        for (int b = 0; b < 64; ++b) {
            if (b == middle) odd += static_cast<int>(std::bit_cast<std::uint32_t>(expected) % 2);
            expected = plusATenth(expected, std::fabs(subband[b]));
        }

        float spectrum = before;
        float peakRegion = 0.0f;
        float rest = 0.0f;
        trackSpectrum(subband, spectrum, peakRegion, rest);
        ASSERT_EQ(spectrum, expected) << "turn " << turn;
    }
    EXPECT_GT(odd, 500);
}

TEST(Spectrum, NoNumberAmongZerosIsNotTakenForSilence)
{
    for (int b = 0; b < 64; ++b) {
        float subband[64] = {};
        subband[b] = std::numeric_limits<float>::quiet_NaN();
        float spectrum = 1.0f;
        float peakRegion = 0.0f;
        float rest = 0.0f;
        trackSpectrum(subband, spectrum, peakRegion, rest);
        EXPECT_TRUE(std::isnan(spectrum)) << "band " << b;
    }
}

TEST(Spectrum, PeakRegionIsTheStrongestBandThenItsUpperThenItsLowerNeighbour)
{
    const auto regionOf = [](int strongest) {
        float subband[64];
        for (int b = 0; b < 64; ++b) subband[b] = 1.1f * static_cast<float>(b + 1);
        subband[strongest] = -1000.3f;
        float spectrum = 0.0f;
        float peakRegion = 77.7f;
        float rest = 0.0f;
        trackSpectrum(subband, spectrum, peakRegion, rest);
        return peakRegion;
    };
    const float peak = plusATenth(77.7f * 0.9f, 1000.3f);
    EXPECT_EQ(regionOf(20), plusATenth(plusATenth(peak, 1.1f * 22.0f), 1.1f * 20.0f));
    EXPECT_EQ(regionOf(0), plusATenth(peak, 1.1f * 2.0f));
    EXPECT_EQ(regionOf(63), plusATenth(peak, 1.1f * 63.0f));
}

TEST(Spectrum, TiesKeepTheLowestBand)
{
    float subband[64] = {};
    subband[10] = 8.0f;
    subband[11] = 1.0f;
    subband[40] = -8.0f;
    subband[41] = 4.0f;
    float spectrum = 0.0f;
    float peakRegion = 0.0f;
    float rest = 0.0f;
    trackSpectrum(subband, spectrum, peakRegion, rest);
    EXPECT_EQ(peakRegion, plusATenth(plusATenth(0.0f, 8.0f), 1.0f));
}

TEST(Spectrum, DecaysByATenthPerSilentBlock)
{
    const float silence[64] = {};
    float spectrum = 1000.0f;
    float peakRegion = 10.0f;
    float rest = 0.0f;
    trackSpectrum(silence, spectrum, peakRegion, rest);
    EXPECT_EQ(spectrum, 1000.0f * 0.9f);
    EXPECT_EQ(peakRegion, 10.0f * 0.9f);
}

// --- Broadband levels
// ----------------------------------------------------------------------------------------------------

TEST(Levels, AreMeansOfTheNewestBlockOnly)
{
    const auto engine = engineAt(48000, 16);
    for (int i = 0; i < 1024; ++i) {
        const float sign = i % 2 == 0 ? 1.0f : -1.0f;
        engine->inputHistory[0][i] = i < 960 ? 1e9f : 300.0f * sign;
        engine->inputHistory[1][i] = i < 960 ? 1e9f : 100.0f * sign;
    }
    engine->avgLevelL = 50.0f;
    measureLevels(*engine);
    EXPECT_EQ(engine->levelL, 300.0f);
    EXPECT_EQ(engine->levelR, 100.0f);
    EXPECT_EQ(engine->levelSum, 400.0f * 64.0f / 90.50967f);
    EXPECT_EQ(engine->levelDiff, 200.0f * 64.0f / 90.50967f);
    EXPECT_EQ(engine->avgLevelL, 0.9f * 50.0f + 0.1f * 300.0f);
    EXPECT_EQ(engine->avgLevelSum, 0.1f * engine->levelSum);
}

// --- Group peaks
// -----------------------------------------------------------------------------------------------------------

/// Whether the stages know the layout at compile time.
bool isKnown(const std::int32_t (&bandCount)[16])
{
    return dispatchLayout(bandCount, [](auto /*layout*/) {});
}

TEST(BandLayouts, ThoseOfEveryRateAreKnownAndNoOther)
{
    EXPECT_TRUE(isLayout<BandLayout48>(ZRKTarn::LOOP_COUNT48));
    EXPECT_TRUE(isLayout<BandLayout64>(ZRKTarn::LOOP_COUNT64));
    EXPECT_TRUE(isLayout<BandLayout96>(ZRKTarn::LOOP_COUNT96));
    EXPECT_TRUE(isLayout<BandLayout192>(ZRKTarn::LOOP_COUNT192));
    for (const std::uint32_t rate : {32000u, 44100u, 48000u, 64000u, 88200u, 96000u, 176400u, 192000u})
        EXPECT_TRUE(isKnown(engineAt(rate, 16)->bandCount)) << rate;

    std::int32_t own[16];
    std::copy_n(ZRKTarn::LOOP_COUNT48, 16, own);
    ++own[15];
    EXPECT_FALSE(isKnown(own));
}

TEST(GroupPeaks, MeasuresTheDominantBandOfEveryGroup)
{
    const auto engine = engineAt(48000, 16);
    // Group 8 covers bands 12 to 15.
    engine->subband[0][13] = -3.0f;
    engine->subband[1][13] = 1.0f;
    engine->subband[0][14] = 1.0f;
    engine->subband[1][14] = 2.0f;
    findDominantBands(*engine);
    measureGroupPeaks(*engine);
    EXPECT_EQ(engine->peakBand[8], 13);
    EXPECT_EQ(engine->peakTotal[8], 4.0f);
    EXPECT_EQ(engine->peakL[8], 3.0f);
    EXPECT_EQ(engine->peakR[8], 1.0f);
    EXPECT_EQ(engine->peakSum[8], 2.0f / kRoot2);
    EXPECT_EQ(engine->peakDiff[8], 4.0f / kRoot2);
}

TEST(GroupPeaks, GroupOfZerosKeepsItsMeasuresAndReportsItsFirstBand)
{
    const auto engine = engineAt(48000, 16);
    numberGroups(*engine);
    const ZRKTarn before = *engine;
    findDominantBands(*engine);
    measureGroupPeaks(*engine);
    const int firstBands[16] = {0, 1, 2, 3, 4, 6, 8, 10, 12, 16, 20, 24, 28, 36, 44, 52};
    for (int g = 0; g < 16; ++g) {
        EXPECT_EQ(engine->peakL[g], before.peakL[g]);
        EXPECT_EQ(engine->peakR[g], before.peakR[g]);
        EXPECT_EQ(engine->peakSum[g], before.peakSum[g]);
        EXPECT_EQ(engine->peakDiff[g], before.peakDiff[g]);
        EXPECT_EQ(engine->peakTotal[g], 0.0f);
        EXPECT_EQ(engine->peakBand[g], firstBands[g]);
    }
}

TEST(GroupPeaks, TiesKeepTheLowestBand)
{
    const auto engine = engineAt(48000, 16);
    engine->subband[0][52] = 5.0f;
    engine->subband[1][60] = -5.0f;
    findDominantBands(*engine);
    measureGroupPeaks(*engine);
    EXPECT_EQ(engine->peakBand[15], 52);
}

TEST(GroupPeaks, StartOfABlockKeepsThePreviousPeaksAndRestoresTheThresholds)
{
    const auto engine = engineAt(48000, 16);
    numberGroups(*engine);
    startMeasures(*engine);
    for (int g = 0; g < 16; ++g) {
        EXPECT_EQ(engine->prevPeakL[g], engine->peakL[g]);
        EXPECT_EQ(engine->prevPeakR[g], engine->peakR[g]);
        EXPECT_EQ(engine->prevPeakSum[g], engine->peakSum[g]);
        EXPECT_EQ(engine->prevPeakDiff[g], engine->peakDiff[g]);
        EXPECT_EQ(engine->thres[g], ZRKTarn::THRES_BANDS[g]);
        EXPECT_EQ(engine->midThres[g], ZRKTarn::MIDTHRES_BANDS[g]);
        EXPECT_EQ(engine->slowThres[g], ZRKTarn::SLOWTHRES_BANDS[g]);
    }
}

TEST(GroupPeaks, DominantGroupIsTheLoudersAndTheRightsOnATie)
{
    const auto engine = engineAt(48000, 16);
    engine->peakL[3] = 5.0f;
    engine->peakL[9] = 5.0f;
    engine->peakR[7] = 4.0f;
    findDominantGroup(*engine);
    EXPECT_EQ(engine->dominantGroup, 3);
    engine->peakR[7] = 5.0f;
    findDominantGroup(*engine);
    EXPECT_EQ(engine->dominantGroup, 7);
}

TEST(GroupPeaks, PowersFollowThePeaksByThePowerPair)
{
    const auto engine = engineAt(48000, 16);
    engine->peakL[5] = 100.0f;
    engine->powL[5] = 10.0f;
    engine->peakDiff[15] = 1.0f;
    smoothGroupPowers(*engine);
    EXPECT_EQ(engine->powL[5], 0.95f * 10.0f + 0.05f * 100.0f);
    EXPECT_EQ(engine->powDiff[15], 0.05f);
}

// --- Tonal blocks, hold and spreading
// ----------------------------------------------------------------------------------

namespace
{

/// An engine whose strongest region and rest are given, with the dominant group's levels known.
std::unique_ptr<ZRKTarn> balanced(float peak, float rest, int dominant)
{
    auto engine = engineAt(48000, 16);
    engine->peakRegionL = peak;
    engine->restR = rest;
    engine->dominantGroup = dominant;
    engine->levelL = 2.0f;
    engine->levelR = 4.0f;
    engine->levelSum = 6.0f;
    engine->levelDiff = 8.0f;
    numberGroups(*engine);
    return engine;
}

} // namespace

TEST(Tonality, NeedsEightTimesTheRestAnd32TimesInGroupZero)
{
    const auto isTonal = [](float peak, int dominant) {
        const auto engine = balanced(peak, 1.0f, dominant);
        detectTonalBlock(*engine);
        return engine->tonalBlock;
    };
    EXPECT_EQ(isTonal(8.0f, 5), 0);
    EXPECT_EQ(isTonal(8.001f, 5), 1);
    EXPECT_EQ(isTonal(8.001f, 0), 0);
    EXPECT_EQ(isTonal(32.0f, 0), 0);
    EXPECT_EQ(isTonal(32.01f, 0), 1);
}

TEST(Tonality, TonalBlockMeasuresItsGroupByHalfTheBroadbandLevels)
{
    const auto engine = balanced(100.0f, 1.0f, 5);
    detectTonalBlock(*engine);
    EXPECT_EQ(engine->peakL[5], 1.0f);
    EXPECT_EQ(engine->peakR[5], 2.0f);
    EXPECT_EQ(engine->peakSum[5], 3.0f);
    EXPECT_EQ(engine->peakDiff[5], 4.0f);
    EXPECT_TRUE(holdsGroup(*engine, 4, 4));
    EXPECT_TRUE(holdsGroup(*engine, 6, 6));
}

TEST(Tonality, SilenceIsNotTonalAndKeepsTheTightTolerance)
{
    const auto engine = balanced(0.0f, 0.0f, 0);
    detectTonalBlock(*engine);
    holdStationaryGroups(*engine);
    EXPECT_EQ(engine->tonalBlock, 0);
    EXPECT_EQ(engine->stationaryTolerance, 0.0001f);
}

TEST(Hold, PutsAStationaryGroupBackToThePreviousBlock)
{
    const auto heldBy = [](float average, float value, float peak, int tonal) {
        const auto engine = balanced(peak, 1.0f, 3);
        engine->tonalBlock = tonal;
        engine->peakBand[9] = 17;
        engine->subband[1][17] = value; // numberGroups makes the right the louder one
        engine->subbandAvg[1][17] = average;
        engine->prevPeakL[9] = -1.0f;
        engine->prevPeakR[9] = -2.0f;
        engine->prevPeakSum[9] = -3.0f;
        engine->prevPeakDiff[9] = -4.0f;
        holdStationaryGroups(*engine);
        return engine->peakL[9] == -1.0f && engine->peakR[9] == -2.0f && engine->peakSum[9] == -3.0f &&
               engine->peakDiff[9] == -4.0f;
    };
    EXPECT_TRUE(heldBy(1000.05f, 1000.0f, 1.0f, 0));
    EXPECT_FALSE(heldBy(1000.5f, 1000.0f, 1.0f, 0)) << "outside 0.0001";
    EXPECT_TRUE(heldBy(1000.5f, 1000.0f, 4.1f, 0)) << "0.001 when the strongest region is above 4 times the rest";
    EXPECT_FALSE(heldBy(1000.5f, 1000.0f, 4.0f, 0));
    EXPECT_TRUE(heldBy(-1000.05f, -1000.0f, 1.0f, 0));
    EXPECT_FALSE(heldBy(1000.05f, 1000.0f, 1.0f, 1)) << "never in a tonal block";
    EXPECT_FALSE(heldBy(1.0f, 0.0f, 1.0f, 0)) << "infinite ratio";
    EXPECT_FALSE(heldBy(0.0f, 0.0f, 1.0f, 0)) << "undefined ratio";
}

TEST(Hold, LooksAtTheLouderChannelAndAtTheRightOnATie)
{
    for (const auto& [left, right, louder] : {std::tuple{2.0f, 1.0f, 0}, {1.0f, 2.0f, 1}, {1.0f, 1.0f, 1}}) {
        const auto engine = balanced(1.0f, 1.0f, 3);
        engine->peakL[9] = left;
        engine->peakR[9] = right;
        engine->peakBand[9] = 17;
        engine->subband[louder][17] = 10.0f;
        engine->subbandAvg[louder][17] = 10.0f;
        engine->subband[1 - louder][17] = 10.0f;
        engine->subbandAvg[1 - louder][17] = 20.0f;
        engine->prevPeakSum[9] = -3.0f;
        holdStationaryGroups(*engine);
        EXPECT_EQ(engine->peakSum[9], -3.0f);
    }
}

TEST(Spreading, StrongDominantGroupTakesBothNeighbours)
{
    const auto engine = balanced(8.1f, 1.0f, 7);
    spreadDominantGroup(*engine);
    for (int g = 0; g < 16; ++g) EXPECT_TRUE(holdsGroup(*engine, g, g == 6 || g == 8 ? 7 : g)) << g;
}

TEST(Spreading, DominantGroup15SpreadsDownOnlyAnd0UpOnly)
{
    const auto top = balanced(9.0f, 1.0f, 15);
    spreadDominantGroup(*top);
    EXPECT_TRUE(holdsGroup(*top, 14, 15));
    EXPECT_TRUE(holdsGroup(*top, 0, 0));

    const auto lastButOne = balanced(9.0f, 1.0f, 14);
    spreadDominantGroup(*lastButOne);
    EXPECT_TRUE(holdsGroup(*lastButOne, 15, 14));

    const auto bottom = balanced(9.0f, 1.0f, 0);
    spreadDominantGroup(*bottom);
    EXPECT_TRUE(holdsGroup(*bottom, 1, 0));
    EXPECT_TRUE(holdsGroup(*bottom, 15, 15));
}

TEST(Spreading, OtherwiseGroupZeroTakesGroupOne)
{
    const auto engine = balanced(8.0f, 1.0f, 7);
    spreadDominantGroup(*engine);
    for (int g = 0; g < 16; ++g) EXPECT_TRUE(holdsGroup(*engine, g, g == 0 ? 1 : g)) << g;
}
