// The reference engine: construction and configuration.
// SPDX-License-Identifier: MIT
#include "tests/reference/reference_engine.h"

#include <cmath>

#include "engine/zrk_tarn.h"

namespace reference
{

namespace
{

/// Copies a smoothing pair.
void copyPair(float (&to)[2], const float (&from)[2])
{
    to[0] = from[0];
    to[1] = from[1];
}

/// Copies a band grouping.
void copyGrouping(std::int32_t (&to)[16], const std::int32_t (&from)[16])
{
    for (int g = 0; g < 16; ++g) to[g] = from[g];
}

/// Multiplies the alpha of a smoothing pair and sets the second member to its complement.
void multiplyAlpha(float (&pair)[2], float factor)
{
    pair[0] = pair[0] * factor;
    pair[1] = 1.0f - pair[0];
}

/// Divides the alpha of a smoothing pair and sets the second member to its complement.
void divideAlpha(float (&pair)[2], float divisor)
{
    pair[0] = pair[0] / divisor;
    pair[1] = 1.0f - pair[0];
}

/// Sample rate in whole kHz for the supported rates, 0 for any other.
std::int32_t rateCodeOf(std::uint32_t sampleRateHz)
{
    switch (sampleRateHz) {
    case 32000:
        return 32;
    case 44100:
        return 44;
    case 48000:
        return 48;
    case 64000:
        return 64;
    case 88200:
        return 88;
    case 96000:
        return 96;
    case 192000:
        return 192;
    default:
        return 0;
    }
}

} // namespace

std::int32_t toInt32(double value)
{
    if (std::isnan(value)) return 0;
    if (value >= 2147483647.0) return INT32_MAX;
    if (value <= -2147483648.0) return INT32_MIN;
    return static_cast<std::int32_t>(value);
}

Engine::Engine()
{
    broadbandPair[0] = 0.1f;
    broadbandPair[1] = 0.9f;

    copyPair(power, ZRKTarn::POWER);
    copyPair(mid, ZRKTarn::MID);
    copyPair(slower, ZRKTarn::SLOWER);
    copyPair(slow, ZRKTarn::SLOW);
    copyPair(fast, ZRKTarn::FAST);

    mixFractionComplement = 1.0f;

    copyGrouping(bandCount, ZRKTarn::LOOP_COUNT48);

    avgLevelL = 0.0f;
    avgLevelR = 0.0f;
    avgLevelSum = 0.0f;
    avgLevelDiff = 0.0f;
    globalLR = 0.0f;
    globalFB = 0.0f;
    globalLRSlower = 0.0f;
    globalFBSlower = 0.0f;
    globalLRSlow = 0.0f;
    globalFBSlow = 0.0f;
    globalLRMid = 0.0f;
    globalFBMid = 0.0f;
    globalLRFast = 0.0f;
    globalFBFast = 0.0f;
    spectrumL = 0.0f;
    spectrumR = 0.0f;
    restL = 0.0f;
    restR = 0.0f;
    peakRegionL = 0.0f;
    peakRegionR = 0.0f;

    for (groupIndex = 0; groupIndex < 16; ++groupIndex) {
        steerLR[groupIndex] = 0.0f;
        steerFB[groupIndex] = 0.0f;
        lrSlower[groupIndex] = 0.0f;
        fbSlower[groupIndex] = 0.0f;
        lrSlow[groupIndex] = 0.0f;
        fbSlow[groupIndex] = 0.0f;
        lrMid[groupIndex] = 0.0f;
        fbMid[groupIndex] = 0.0f;
        lrFast[groupIndex] = 0.0f;
        fbFast[groupIndex] = 0.0f;
        powL[groupIndex] = 0.0f;
        powR[groupIndex] = 0.0f;
        powSum[groupIndex] = 0.0f;
        powDiff[groupIndex] = 0.0f;
        peakL[groupIndex] = 0.0f;
        peakR[groupIndex] = 0.0f;
        peakSum[groupIndex] = 0.0f;
        peakDiff[groupIndex] = 0.0f;
    }

    for (bandIndex = 0; bandIndex < 64; ++bandIndex) {
        subbandAvg[0][bandIndex] = 0.0f;
        subbandAvg[1][bandIndex] = 0.0f;
    }
}

std::uint32_t Engine::Open()
{
    cosModTablesInit();
    return 0;
}

std::uint32_t Engine::Close()
{
    return 0;
}

std::uint32_t Engine::Uninitialize()
{
    return 0;
}

std::uint32_t Engine::Process(int** /*inputs*/, int** /*outputs*/, std::uint32_t /*count*/)
{
    return 0;
}

std::uint32_t Engine::SetChannelPtrs(std::uint8_t* a, std::uint8_t* b, std::uint8_t* c, std::uint8_t* d)
{
    channelPtr[0] = a;
    channelPtr[1] = b;
    channelPtr[2] = c;
    channelPtr[3] = d;
    return 0;
}

std::uint32_t Engine::SetReserved()
{
    reservedA = 1;
    reservedB = 2;
    return 0;
}

std::uint32_t Engine::Initialize(Parameters parameters)
{
    std::uint32_t result = 0;

    // Width and output configuration.
    bitsPerSample = parameters.bitsPerSample;
    outputChannels = parameters.outputChannels;
    if (static_cast<std::uint32_t>(outputChannels) - 3u < 5u) {
        result = 0;
    } else {
        result = 1;
    }

    // Rate.
    rateCode = rateCodeOf(parameters.sampleRate);
    if (rateCode == 0) result = 3;

    // Mode.
    if (parameters.mode == 1) {
        modeOneFlag = 1;
        holdMidSmoothing = 0;
    } else if (parameters.mode == 2) {
        holdMidSmoothing = 1;
        modeOneFlag = 0;
    } else {
        result = 4;
    }

    // Mix fraction; NaN passes both tests.
    mixFraction = parameters.mixFraction;
    if (mixFraction < 0.0f) result = 6;
    if (mixFraction > 1.0f) result = 6;

    // Threshold rows; at the higher rates the lower groups take every second or fourth entry and the rest the last.
    // A code of 176 has its branches, although no rate maps to it.
    if (rateCode == 32 || rateCode == 44 || rateCode == 48 || rateCode == 64) {
        for (groupIndex = 0; groupIndex < 16; ++groupIndex) {
            thresBands[groupIndex] = ZRKTarn::THRES_BANDS[groupIndex];
            midThresBands[groupIndex] = ZRKTarn::MIDTHRES_BANDS[groupIndex];
            slowThresBands[groupIndex] = ZRKTarn::SLOWTHRES_BANDS[groupIndex];
        }
    } else if (rateCode == 88 || rateCode == 96) {
        for (groupIndex = 0; groupIndex < 8; ++groupIndex) {
            thresBands[groupIndex] = ZRKTarn::THRES_BANDS[2 * groupIndex];
            midThresBands[groupIndex] = ZRKTarn::MIDTHRES_BANDS[2 * groupIndex];
            slowThresBands[groupIndex] = ZRKTarn::SLOWTHRES_BANDS[2 * groupIndex];
        }
        for (groupIndex = 8; groupIndex < 16; ++groupIndex) {
            thresBands[groupIndex] = ZRKTarn::THRES_BANDS[15];
            midThresBands[groupIndex] = ZRKTarn::MIDTHRES_BANDS[15];
            slowThresBands[groupIndex] = ZRKTarn::SLOWTHRES_BANDS[15];
        }
    } else if (rateCode == 176 || rateCode == 192) {
        for (groupIndex = 0; groupIndex < 4; ++groupIndex) {
            thresBands[groupIndex] = ZRKTarn::THRES_BANDS[4 * groupIndex];
            midThresBands[groupIndex] = ZRKTarn::MIDTHRES_BANDS[4 * groupIndex];
            slowThresBands[groupIndex] = ZRKTarn::SLOWTHRES_BANDS[4 * groupIndex];
        }
        for (groupIndex = 4; groupIndex < 16; ++groupIndex) {
            thresBands[groupIndex] = ZRKTarn::THRES_BANDS[15];
            midThresBands[groupIndex] = ZRKTarn::MIDTHRES_BANDS[15];
            slowThresBands[groupIndex] = ZRKTarn::SLOWTHRES_BANDS[15];
        }
    }

    // Values that depend on the mode as it now stands.
    if (holdMidSmoothing == 1) {
        if (outputChannels == 4) mixFraction = 0.0f;
        copyPair(slower, ZRKTarn::SLOWER);
        copyPair(slow, ZRKTarn::SLOW);
        copyPair(mid, ZRKTarn::MID);
        copyPair(fast, ZRKTarn::MID);
        mixFractionComplement = mixFraction;
    } else {
        if (outputChannels == 4) mixFraction = 0.0f;
        mixFractionComplement = 1.0f - mixFraction;
    }

    // Smoothing for the rate, scaled from the values in force, and band grouping.
    if (rateCode == 32) {
        multiplyAlpha(mid, 1.5f);
        multiplyAlpha(slower, 1.5f);
        multiplyAlpha(slow, 1.5f);
        multiplyAlpha(fast, 1.5f);
    } else if (rateCode == 44) {
        multiplyAlpha(mid, 1.088f);
        multiplyAlpha(slower, 1.088f);
        multiplyAlpha(slow, 1.088f);
        multiplyAlpha(fast, 1.088f);
    } else if (rateCode == 64) {
        divideAlpha(mid, 1.3333f);
        divideAlpha(slower, 1.3333f);
        divideAlpha(slow, 1.3333f);
        divideAlpha(fast, 1.3333f);
        copyGrouping(bandCount, ZRKTarn::LOOP_COUNT64);
    } else if (rateCode == 88) {
        divideAlpha(mid, 1.8375f);
        divideAlpha(slower, 1.8375f);
        divideAlpha(slow, 1.8375f);
        divideAlpha(fast, 1.8375f);
        copyGrouping(bandCount, ZRKTarn::LOOP_COUNT96);
    } else if (rateCode == 96) {
        multiplyAlpha(mid, 0.5f);
        multiplyAlpha(slower, 0.5f);
        multiplyAlpha(slow, 0.5f);
        multiplyAlpha(fast, 0.5f);
        copyGrouping(bandCount, ZRKTarn::LOOP_COUNT96);
    } else if (rateCode == 176 || rateCode == 192) {
        multiplyAlpha(mid, 0.25f);
        multiplyAlpha(slower, 0.25f);
        multiplyAlpha(slow, 0.25f);
        multiplyAlpha(fast, 0.25f);
        copyGrouping(bandCount, ZRKTarn::LOOP_COUNT192);
    }

    // Matrix set.
    const float* const fiveChannelSet[9] = {ZRKTarn::MATRIX15, ZRKTarn::MATRIX25, ZRKTarn::MATRIX35,
                                            ZRKTarn::MATRIX45, ZRKTarn::MATRIX55, ZRKTarn::MATRIX65,
                                            ZRKTarn::MATRIX75, ZRKTarn::MATRIX85, ZRKTarn::MATRIX95};
    const float* const sixChannelSet[9] = {ZRKTarn::MATRIX16, ZRKTarn::MATRIX26, ZRKTarn::MATRIX36,
                                           ZRKTarn::MATRIX46, ZRKTarn::MATRIX56, ZRKTarn::MATRIX66,
                                           ZRKTarn::MATRIX76, ZRKTarn::MATRIX86, ZRKTarn::MATRIX96};
    for (int region = 0; region < 9; ++region) {
        for (int j = 0; j < 12; ++j) {
            if (outputChannels < 6) {
                regionMatrix[region][j] = fiveChannelSet[region][j];
            } else {
                regionMatrix[region][j] = sixChannelSet[region][j];
            }
        }
    }

    // Sample conversion, from powers of two in double precision.
    const double bits = static_cast<double>(bitsPerSample);
    if (bitsPerSample == 0) {
        inputScale = 0.0f;
    } else if (bitsPerSample == 1) {
        inputScale = 2147483648.0f;
    } else {
        inputScale = static_cast<float>(2147483648.0 / (std::pow(2.0, bits) - 1.0));
    }
    if (bitsPerSample == 0 || bitsPerSample == 1) {
        outputScale = 0.0f;
    } else {
        outputScale = static_cast<float>(std::pow(2.0, bits) - 1.0) * 0x1p-31f;
    }
    sampleCeiling = toInt32(std::pow(2.0, bits - 1.0) - 1.0);
    sampleFloor = ~sampleCeiling;

    return result;
}

} // namespace reference
