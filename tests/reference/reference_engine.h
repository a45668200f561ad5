// The reference engine: a literal implementation to compare the optimised one with.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "tests/reference/reference_filterbank.h"

namespace reference
{

/// Configuration of an engine, passed by value to Engine::Initialize.
struct Parameters
{
    std::uint32_t spare = 0;         ///< not read
    std::int32_t outputChannels = 0; ///< 3 to 7
    std::int32_t bitsPerSample = 0;  ///< width of the host's samples
    std::uint32_t sampleRate = 0;    ///< in Hz
    std::int32_t mode = 0;           ///< 1 or 2
    std::int32_t option = 0;         ///< not read
    float mixFraction = 0.0f;        ///< 0.0 to 1.0
};

/// The upmix engine with one scalar operation at a time.
///
/// The members have the names, shapes and values of the optimised engine's record, so that tests can compare both
/// records field by field. All members start at zero; the constructor then sets the defaults.
struct Engine
{
    // Output of the block, integers, engine scale: front left, front right, centre.
    std::int32_t outputBlock[3][64] = {};

    // Slow average of past subband values, left and right.
    float subbandAvg[2][64] = {};

    // Inputs of the 64-point transform in pair-sum form; scratch.
    float dctEven[3][32] = {};
    float dctOdd[3][32] = {};

    // Analysis, left and right: input oldest first, polyphase sums, folded sums, subbands lowest first.
    float inputHistory[2][1024] = {};
    float polyphaseSum[2][128] = {};
    float folded[2][64] = {};
    float subband[2][64] = {};

    // Synthesis, three outputs: subbands, overlap of this and of the next block, transform outputs newest block first.
    float outSubband[3][64] = {};
    float overlapNow[3][64] = {};
    float overlapNext[3][64] = {};
    float synthHistory[3][1024] = {};

    // Mixing matrices: the nine grid regions, the coefficients in use, the interpolated matrix of every group.
    float regionMatrix[9][12] = {};
    float mixCoeff[6] = {};
    float groupMatrix[16][12] = {};

    // Subbands per band group.
    std::int32_t bandCount[16] = {};

    // Thresholds per band group: as configured, and of the current block.
    float thresBands[16] = {};
    float midThresBands[16] = {};
    float slowThresBands[16] = {};
    float thres[16] = {};
    float midThres[16] = {};
    float slowThres[16] = {};

    // Smoothing pair of the broadband levels: alpha, 1 - alpha.
    float broadbandPair[2] = {};

    // Loop counters over the 16 groups and over the subbands.
    std::int32_t groupIndex = 0;
    std::int32_t bandIndex = 0;

    // Sample conversion.
    float inputScale = 0.0f;
    float outputScale = 0.0f;
    std::int32_t sampleCeiling = 0;
    std::int32_t sampleFloor = 0;

    // Measures per band group: smoothed, of this block's dominant band, of the previous block's.
    float powL[16] = {};
    float powR[16] = {};
    float powSum[16] = {};
    float powDiff[16] = {};
    float peakL[16] = {};
    float peakR[16] = {};
    float peakSum[16] = {};
    float peakDiff[16] = {};
    float prevPeakL[16] = {};
    float prevPeakR[16] = {};
    float prevPeakSum[16] = {};
    float prevPeakDiff[16] = {};
    float peakTotal[16] = {};
    std::int32_t peakBand[16] = {};

    // Smoothing pairs in use: alpha, 1 - alpha.
    float power[2] = {};
    float mid[2] = {};
    float slower[2] = {};
    float slow[2] = {};
    float fast[2] = {};

    // Steering per band group, left/right and front/back: of this block, and smoothed at four speeds.
    float steerLR[16] = {};
    float steerFB[16] = {};
    float lrSlower[16] = {};
    float fbSlower[16] = {};
    float lrSlow[16] = {};
    float fbSlow[16] = {};
    float lrMid[16] = {};
    float fbMid[16] = {};
    float lrFast[16] = {};
    float fbFast[16] = {};

    // Broadband steering smoothed at four speeds.
    float globalLRSlower = 0.0f;
    float globalFBSlower = 0.0f;
    float globalLRSlow = 0.0f;
    float globalFBSlow = 0.0f;
    float globalLRMid = 0.0f;
    float globalFBMid = 0.0f;
    float globalLRFast = 0.0f;
    float globalFBFast = 0.0f;

    // Broadband levels, smoothed and of this block; broadband steering of this block.
    float avgLevelL = 0.0f;
    float avgLevelR = 0.0f;
    float avgLevelSum = 0.0f;
    float avgLevelDiff = 0.0f;
    float levelL = 0.0f;
    float levelR = 0.0f;
    float levelSum = 0.0f;
    float levelDiff = 0.0f;
    float globalLR = 0.0f;
    float globalFB = 0.0f;
    float meanLRFast = 0.0f;

    // Configuration.
    float mixFraction = 0.0f;
    float mixFractionComplement = 0.0f;
    std::int32_t rateCode = 0;
    std::int32_t holdMidSmoothing = 0;
    std::int32_t modeOneFlag = 0;
    std::int32_t outputChannels = 0;
    std::int32_t bitsPerSample = 0;

    // Speed of the last group, and the broadband trackers.
    std::int32_t usedFast = 0;
    std::int32_t usedMid = 0;
    std::int32_t usedSlow = 0;
    std::int32_t dominantGroup = 0;
    float spectrumL = 0.0f;
    float spectrumR = 0.0f;
    float restL = 0.0f;
    float restR = 0.0f;
    float peakRegionL = 0.0f;
    float peakRegionR = 0.0f;
    float stationaryTolerance = 0.0f;
    std::int32_t tonalBlock = 0;

    // Rows of outputBlock, and the positions of the current block in the host buffer.
    std::int32_t* outputPtr[3] = {};
    std::uint8_t* channelPtr[4] = {};

    // Remap matrix and the non-zero terms of each of its columns.
    std::int32_t remapCoeff[3][4] = {};
    std::uint32_t remapTermCount[4] = {};
    std::int32_t remapTermGain[4][3] = {};
    std::uint32_t remapTermSource[4][3] = {};

    std::int32_t reservedA = 0;
    std::int32_t reservedB = 0;

    /// Sets the smoothing pairs, the 48 kHz grouping and the cleared measures.
    Engine();

    /// Refills the cosine tables; always 0.
    std::uint32_t Open();

    /// Does nothing; always 0.
    std::uint32_t Close();

    /// Does nothing; always 0.
    std::uint32_t Uninitialize();

    /// Does nothing; always 0.
    std::uint32_t Process(int** inputs, int** outputs, std::uint32_t count);

    /// Configures the engine; runs every step and returns the code of the last check that failed, or 0.
    std::uint32_t Initialize(Parameters parameters);

    /// Stores the positions of the block's first left, right, third and fourth sample; always 0.
    std::uint32_t SetChannelPtrs(std::uint8_t* a, std::uint8_t* b, std::uint8_t* c, std::uint8_t* d);

    /// Sets the two reserved fields to 1 and 2; always 0.
    std::uint32_t SetReserved();

    /// Converts up to 64 frames of left and right into the newest 64 input entries, zero-padded; always 0.
    std::uint32_t ReadInputChannels(std::uint32_t frames, std::uint32_t channels);

    /// Converts the three output rows and stores them at their positions; 1 when written, 0 at other widths.
    std::uint32_t WriteOutput(std::uint32_t frames, std::uint32_t channels);

    /// Mixes the converted output rows into four positions; 1 when written, 0 at other widths.
    std::uint32_t RemapOutput(std::uint32_t frames, std::uint32_t channels);

    /// Stores the 3 x 4 gains and lists the non-zero ones of each column; always 0.
    std::uint32_t SetRemapCoeff(int (*coeff)[4]);

    /// Turns one block of the host buffer into the three rows of outputBlock; always 0.
    std::uint32_t ProcessCine3(std::uint32_t frames, std::uint32_t channels);

    /// Processes one block and writes the three outputs one to one; always 0.
    std::uint32_t ProcessCine3InterLeave(std::uint32_t frames, std::uint32_t channels);

    /// Processes one block and writes the outputs through the remap matrix; always 0.
    std::uint32_t ProcessCine3InterLeaveRemap(std::uint32_t frames, std::uint32_t channels);
};

/// Integer part of a number, saturated to the signed 32-bit range; 0 for NaN.
std::int32_t toInt32(double value);

} // namespace reference
