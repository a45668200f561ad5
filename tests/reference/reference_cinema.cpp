// Stages of the reference engine.
// SPDX-License-Identifier: MIT
#include "tests/reference/reference_cinema.h"

#include <algorithm>
#include <cmath>

#include "filterbank/cos_mod.h"

namespace reference
{

namespace
{

// Single-precision square roots: 2, and 64 times the square root of 2.
const float kRootTwo = 1.4142135f;
const float kSixtyFourRootTwo = 90.50967f;

/// Left/right and front/back value of a sound.
struct Steering
{
    float lr;
    float fb;
};

/// Smooths x into s with a pair (alpha, 1 - alpha).
///
/// Order  (1 - alpha) * s first, then alpha * x is added
void smooth(float& s, const float (&pair)[2], float x)
{
    s = pair[1] * s + pair[0] * x;
}

/// Adds a tenth of a magnitude to a tracker: in double precision with the single-precision 0.1, rounded to single.
void addTenth(float& tracker, float magnitude)
{
    const double tenth = static_cast<double>(0.1f);
    tracker = static_cast<float>(static_cast<double>(tracker) + tenth * static_cast<double>(magnitude));
}

} // namespace

void beginMeasures(Engine& e)
{
    for (int r = 0; r < 3; ++r) e.outputPtr[r] = e.outputBlock[r];
    for (e.groupIndex = 0; e.groupIndex < 16; ++e.groupIndex) {
        const int g = e.groupIndex;
        e.thres[g] = e.thresBands[g];
        e.midThres[g] = e.midThresBands[g];
        e.slowThres[g] = e.slowThresBands[g];
        e.prevPeakL[g] = e.peakL[g];
        e.prevPeakR[g] = e.peakR[g];
        e.prevPeakSum[g] = e.peakSum[g];
        e.prevPeakDiff[g] = e.peakDiff[g];
    }
}

void sumPolyphases(Engine& e)
{
    for (int c = 0; c < 2; ++c) {
        for (int k = 0; k < 128; ++k) {
            e.polyphaseSum[c][k] = 0.0f;
            for (int m = 0; m < 8; ++m) e.polyphaseSum[c][k] += lpf[k + 128 * m] * e.inputHistory[c][k + 128 * m];
        }
    }
}

void averageSubbands(Engine& e)
{
    for (int c = 0; c < 2; ++c) {
        for (int n = 0; n < 64; ++n) e.subbandAvg[c][n] = 0.9f * e.subbandAvg[c][n] + 0.1f * e.subband[c][n];
    }
}

void foldPolyphases(Engine& e)
{
    for (int c = 0; c < 2; ++c) {
        const float* p = e.polyphaseSum[c];
        for (int n = 0; n < 64; ++n) e.folded[c][n] = (p[n] - p[63 - n]) + (-p[64 + n] - p[127 - n]);
    }
}

void buildPairSums(const float (&x)[64], float (&even)[32], float (&odd)[32])
{
    for (int k = 0; k < 32; ++k) even[k] = x[2 * k] + x[2 * k + 1];
    odd[0] = x[0];
    for (int k = 1; k < 32; ++k) odd[k] = x[2 * k - 1] + x[2 * k];
}

void trackSpectrum(Engine& e)
{
    e.spectrumL = e.spectrumL * 0.9f;
    e.spectrumR = e.spectrumR * 0.9f;
    e.peakRegionL = e.peakRegionL * 0.9f;
    e.peakRegionR = e.peakRegionR * 0.9f;

    float maximumL = 0.0f;
    float maximumR = 0.0f;
    int bandL = 0;
    int bandR = 0;
    for (e.bandIndex = 0; e.bandIndex < 64; ++e.bandIndex) {
        const float magnitudeL = std::fabs(e.subband[0][e.bandIndex]);
        const float magnitudeR = std::fabs(e.subband[1][e.bandIndex]);
        addTenth(e.spectrumL, magnitudeL);
        addTenth(e.spectrumR, magnitudeR);
        if (magnitudeL > maximumL) {
            maximumL = magnitudeL;
            bandL = e.bandIndex;
        }
        if (magnitudeR > maximumR) {
            maximumR = magnitudeR;
            bandR = e.bandIndex;
        }
    }

    addTenth(e.peakRegionL, std::fabs(e.subband[0][bandL]));
    if (bandL < 63) addTenth(e.peakRegionL, std::fabs(e.subband[0][bandL + 1]));
    if (bandL > 0) addTenth(e.peakRegionL, std::fabs(e.subband[0][bandL - 1]));
    addTenth(e.peakRegionR, std::fabs(e.subband[1][bandR]));
    if (bandR < 63) addTenth(e.peakRegionR, std::fabs(e.subband[1][bandR + 1]));
    if (bandR > 0) addTenth(e.peakRegionR, std::fabs(e.subband[1][bandR - 1]));

    e.restL = e.spectrumL - e.peakRegionL;
    e.restR = e.spectrumR - e.peakRegionR;
}

void measureLevels(Engine& e)
{
    float sumL = 0.0f;
    float sumR = 0.0f;
    float sumSum = 0.0f;
    float sumDiff = 0.0f;
    for (int t = 0; t < 64; ++t) {
        const float l = e.inputHistory[0][960 + t];
        const float r = e.inputHistory[1][960 + t];
        sumL += std::fabs(l);
        sumR += std::fabs(r);
        sumSum += std::fabs(l + r);
        sumDiff += std::fabs(l - r);
    }
    e.levelL = sumL * 0.015625f;
    e.levelR = sumR * 0.015625f;
    e.levelSum = sumSum / kSixtyFourRootTwo;
    e.levelDiff = sumDiff / kSixtyFourRootTwo;

    smooth(e.avgLevelL, e.broadbandPair, e.levelL);
    smooth(e.avgLevelR, e.broadbandPair, e.levelR);
    smooth(e.avgLevelSum, e.broadbandPair, e.levelSum);
    smooth(e.avgLevelDiff, e.broadbandPair, e.levelDiff);
}

void findGroupPeaks(Engine& e)
{
    e.bandIndex = 0;
    for (e.groupIndex = 0; e.groupIndex < 16; ++e.groupIndex) {
        const int g = e.groupIndex;
        e.peakTotal[g] = 0.0f;
        e.peakBand[g] = e.bandIndex;
        for (int n = 0; n < e.bandCount[g]; ++n) {
            const float l = e.subband[0][e.bandIndex];
            const float r = e.subband[1][e.bandIndex];
            const float a = std::fabs(l);
            const float c = std::fabs(r);
            if (a + c > e.peakTotal[g]) {
                e.peakL[g] = a;
                e.peakR[g] = c;
                e.peakTotal[g] = a + c;
                e.peakBand[g] = e.bandIndex;
                e.peakSum[g] = std::fabs(l + r) / kRootTwo;
                e.peakDiff[g] = std::fabs(l - r) / kRootTwo;
            }
            ++e.bandIndex;
        }
    }
}

namespace
{

/// Finds the group whose dominant band is the strongest on either side; the right side wins a tie.
void findDominantGroup(Engine& e)
{
    float maximumL = 0.0f;
    float maximumR = 0.0f;
    int groupL = 0;
    int groupR = 0;
    for (e.groupIndex = 0; e.groupIndex < 16; ++e.groupIndex) {
        const int g = e.groupIndex;
        if (e.peakL[g] > maximumL) {
            maximumL = e.peakL[g];
            groupL = g;
        }
        if (e.peakR[g] > maximumR) {
            maximumR = e.peakR[g];
            groupR = g;
        }
    }
    if (maximumL > maximumR) {
        e.dominantGroup = groupL;
    } else {
        e.dominantGroup = groupR;
    }
}

/// Decides whether the block is tonal; in a tonal block the dominant group takes half the broadband levels.
void testTonality(Engine& e, float rest, float peak)
{
    const int d = e.dominantGroup;
    if ((peak > 8.0f * rest && d != 0) || (peak > 32.0f * rest && d == 0)) {
        e.tonalBlock = 1;
        e.peakL[d] = 0.5f * e.levelL;
        e.peakR[d] = 0.5f * e.levelR;
        e.peakSum[d] = 0.5f * e.levelSum;
        e.peakDiff[d] = 0.5f * e.levelDiff;
    } else {
        e.tonalBlock = 0;
    }
}

/// Whether a subband is within a relative tolerance of its average; never for a band that is zero.
bool isStationary(float average, float current, float tolerance)
{
    if (current == 0.0f) return false;
    return std::fabs((average - current) / current) < tolerance;
}

/// Puts the measures of stationary groups back to the previous block's, except in a tonal block.
void holdStationaryGroups(Engine& e, float rest, float peak)
{
    if (4.0f * rest < peak) {
        e.stationaryTolerance = 0.001f;
    } else {
        e.stationaryTolerance = 0.0001f;
    }
    if (e.tonalBlock == 1) return;

    for (e.groupIndex = 0; e.groupIndex < 16; ++e.groupIndex) {
        const int g = e.groupIndex;
        // 64 for an empty group after the last band, whose measures are those of the previous block in any case.
        const int i = std::min(e.peakBand[g], 63);
        bool held;
        if (e.peakL[g] <= e.peakR[g]) {
            held = isStationary(e.subbandAvg[1][i], e.subband[1][i], e.stationaryTolerance);
        } else {
            held = isStationary(e.subbandAvg[0][i], e.subband[0][i], e.stationaryTolerance);
        }
        if (held) {
            e.peakL[g] = e.prevPeakL[g];
            e.peakR[g] = e.prevPeakR[g];
            e.peakSum[g] = e.prevPeakSum[g];
            e.peakDiff[g] = e.prevPeakDiff[g];
        }
    }
}

/// Copies the measures, their smoothed values and the working thresholds of one group into another.
void copyGroup(Engine& e, int to, int from)
{
    e.peakL[to] = e.peakL[from];
    e.peakR[to] = e.peakR[from];
    e.peakSum[to] = e.peakSum[from];
    e.peakDiff[to] = e.peakDiff[from];
    e.powL[to] = e.powL[from];
    e.powR[to] = e.powR[from];
    e.powSum[to] = e.powSum[from];
    e.powDiff[to] = e.powDiff[from];
    e.thres[to] = e.thres[from];
    e.midThres[to] = e.midThres[from];
    e.slowThres[to] = e.slowThres[from];
}

/// Spreads an outstanding dominant group into its lower, then its upper neighbour; else group 1 into group 0.
void spreadToNeighbours(Engine& e, float rest, float peak)
{
    const int d = e.dominantGroup;
    if (peak > 8.0f * rest) {
        if (d > 0) copyGroup(e, d - 1, d);
        if (d < 15) copyGroup(e, d + 1, d);
    } else {
        copyGroup(e, 0, 1);
    }
}

} // namespace

void judgeTonality(Engine& e)
{
    findDominantGroup(e);
    const float rest = e.restL + e.restR;
    const float peak = e.peakRegionL + e.peakRegionR;
    testTonality(e, rest, peak);
    holdStationaryGroups(e, rest, peak);
    spreadToNeighbours(e, rest, peak);
}

void smoothPowers(Engine& e)
{
    for (e.groupIndex = 0; e.groupIndex < 16; ++e.groupIndex) {
        const int g = e.groupIndex;
        smooth(e.powL[g], e.power, e.peakL[g]);
        smooth(e.powR[g], e.power, e.peakR[g]);
        smooth(e.powSum[g], e.power, e.peakSum[g]);
        smooth(e.powDiff[g], e.power, e.peakDiff[g]);
    }
}

namespace
{

/// Steering of a level pair (l, r) and a sum/difference pair (s, d), all non-negative.
///
/// The 4 is a floor that keeps quiet sounds near the middle.
Steering steer(float l, float r, float s, float d)
{
    float lr;
    if (l >= r) {
        lr = 1.0f - (r + 4.0f) / (l + 4.0f);
    } else {
        lr = (l + 4.0f) / (r + 4.0f) - 1.0f;
    }

    float fb;
    if (s >= d) {
        fb = 1.0f - (d + 4.0f) / (s + 4.0f);
    } else {
        fb = (s + 4.0f) / (d + 4.0f) - 1.0f;
    }

    if (fb < 0.0f) fb = fb * 1.5f;

    if (fb > 1.0f) {
        fb = 1.0f;
    } else if (fb < -1.0f) {
        fb = -1.0f;
        lr = lr * 2.0f;
    } else if (fb < 0.0f) {
        lr = lr * (1.0f - fb);
    }

    if (lr > 1.0f) {
        lr = 1.0f;
    } else if (lr < -1.0f) {
        lr = -1.0f;
    }
    return {lr, fb};
}

} // namespace

void steerBroadband(Engine& e)
{
    const Steering steering = steer(e.avgLevelL, e.avgLevelR, e.avgLevelSum, e.avgLevelDiff);
    e.globalLR = steering.lr;
    e.globalFB = steering.fb;
    smooth(e.globalLRSlower, e.slower, e.globalLR);
    smooth(e.globalFBSlower, e.slower, e.globalFB);
    smooth(e.globalLRSlow, e.slow, e.globalLR);
    smooth(e.globalFBSlow, e.slow, e.globalFB);
    smooth(e.globalLRMid, e.mid, e.globalLR);
    smooth(e.globalFBMid, e.mid, e.globalFB);
    smooth(e.globalLRFast, e.fast, e.globalLR);
    smooth(e.globalFBFast, e.fast, e.globalFB);
}

namespace
{

/// Smooths the steering of a group at four speeds; with three outputs there is no rear steering at the upper three.
void smoothSteering(Engine& e, int g)
{
    const float x = e.steerLR[g];
    const float y = e.steerFB[g];
    smooth(e.lrSlower[g], e.slower, x);
    smooth(e.lrSlow[g], e.slow, x);
    smooth(e.lrMid[g], e.mid, x);
    smooth(e.lrFast[g], e.fast, x);
    smooth(e.fbSlower[g], e.slower, y);
    smooth(e.fbSlow[g], e.slow, y);
    smooth(e.fbMid[g], e.mid, y);
    smooth(e.fbFast[g], e.fast, y);

    if (e.outputChannels == 3) {
        if (e.fbSlow[g] < 0.0f) e.fbSlow[g] = 0.0f;
        if (e.fbMid[g] < 0.0f) e.fbMid[g] = 0.0f;
        if (e.fbFast[g] < 0.0f) e.fbFast[g] = 0.0f;
    }
}

/// Chooses the speed that a group follows and continues all four speeds from the chosen state.
void selectSpeed(Engine& e, int g)
{
    const float a = std::fabs(e.steerLR[g]);
    const float f = std::fabs(e.steerFB[g]);
    float chosenLR;
    float chosenFB;
    if (a < e.thres[g] && f < e.thres[g] && e.tonalBlock == 0) {
        if (e.midThres[g] <= a || e.midThres[g] <= f) {
            e.usedFast = 0;
            e.usedMid = 1;
            e.usedSlow = 0;
            chosenLR = e.lrMid[g];
            chosenFB = e.fbMid[g];
        } else if (e.slowThres[g] <= a || e.slowThres[g] <= f) {
            e.usedFast = 0;
            e.usedMid = 0;
            e.usedSlow = 1;
            chosenLR = e.lrSlow[g];
            chosenFB = e.fbSlow[g];
        } else {
            e.usedFast = 0;
            e.usedMid = 0;
            e.usedSlow = 0;
            chosenLR = e.lrSlower[g];
            chosenFB = e.fbSlower[g];
        }
    } else {
        e.usedFast = 1;
        e.usedMid = 0;
        e.usedSlow = 0;
        chosenLR = e.lrFast[g];
        chosenFB = e.fbFast[g];
    }

    e.lrSlower[g] = chosenLR;
    e.lrSlow[g] = chosenLR;
    e.lrMid[g] = chosenLR;
    e.lrFast[g] = chosenLR;
    e.fbSlower[g] = chosenFB;
    e.fbSlow[g] = chosenFB;
    e.fbMid[g] = chosenFB;
    e.fbFast[g] = chosenFB;
}

/// Interpolates the matrix of a group between the four grid regions around (x, y).
///
/// Each quadrant keeps its own form of the bilinear interpolation; zero belongs to the non-negative side.
void interpolateMatrix(Engine& e, int g, float x, float y)
{
    const float* m1 = e.regionMatrix[0];
    const float* m2 = e.regionMatrix[1];
    const float* m3 = e.regionMatrix[2];
    const float* m4 = e.regionMatrix[3];
    const float* m5 = e.regionMatrix[4];
    const float* m6 = e.regionMatrix[5];
    const float* m7 = e.regionMatrix[6];
    const float* m8 = e.regionMatrix[7];
    const float* m9 = e.regionMatrix[8];
    for (int j = 0; j < 6; ++j) {
        if (x >= 0.0f && y >= 0.0f) {
            const float p = m2[j] - (m2[j] - m1[j]) * x;
            const float q = m5[j] - (m5[j] - m4[j]) * x;
            e.groupMatrix[g][j] = q + (p - q) * y;
        } else if (x < 0.0f && y >= 0.0f) {
            const float p = m3[j] - (1.0f + x) * (m3[j] - m2[j]);
            const float q = m6[j] - (1.0f + x) * (m6[j] - m5[j]);
            e.groupMatrix[g][j] = q + (p - q) * y;
        } else if (x >= 0.0f && y < 0.0f) {
            const float p = m5[j] - (m5[j] - m4[j]) * x;
            const float q = m8[j] - (m8[j] - m7[j]) * x;
            e.groupMatrix[g][j] = q + (1.0f + y) * (p - q);
        } else {
            const float p = m6[j] - (1.0f + x) * (m6[j] - m5[j]);
            const float q = m9[j] - (1.0f + x) * (m9[j] - m8[j]);
            e.groupMatrix[g][j] = q + (1.0f + y) * (p - q);
        }
    }
}

} // namespace

void steerGroups(Engine& e)
{
    for (e.groupIndex = 0; e.groupIndex < 16; ++e.groupIndex) {
        const int g = e.groupIndex;
        const Steering steering = steer(e.powL[g], e.powR[g], e.powSum[g], e.powDiff[g]);
        e.steerLR[g] = steering.lr;
        e.steerFB[g] = steering.fb;
    }
}

void selectSpeeds(Engine& e)
{
    float sumLRFast = 0.0f;
    for (e.groupIndex = 0; e.groupIndex < 16; ++e.groupIndex) {
        smoothSteering(e, e.groupIndex);
        sumLRFast += e.lrFast[e.groupIndex];
        selectSpeed(e, e.groupIndex);
    }
    e.meanLRFast = sumLRFast * 0.0625f;
}

void interpolateMatrices(Engine& e)
{
    for (e.groupIndex = 0; e.groupIndex < 16; ++e.groupIndex)
        interpolateMatrix(e, e.groupIndex, e.lrSlower[e.groupIndex], e.fbSlower[e.groupIndex]);
}

void mixSubbands(Engine& e)
{
    e.bandIndex = 0;
    for (e.groupIndex = 0; e.groupIndex < 16; ++e.groupIndex) {
        const int g = e.groupIndex;
        for (int j = 0; j < 6; ++j) e.mixCoeff[j] = e.groupMatrix[g][j];
        const double panning = static_cast<double>(std::fabs(e.lrSlower[g]));
        const float gain = static_cast<float>((1.0 - panning) * 0.5 + 1.0);
        for (int n = 0; n < e.bandCount[g]; ++n) {
            const float l = e.subband[0][e.bandIndex];
            const float r = e.subband[1][e.bandIndex];
            e.outSubband[0][e.bandIndex] = (e.mixCoeff[0] * gain) * l + (gain * e.mixCoeff[1]) * r;
            e.outSubband[2][e.bandIndex] = e.mixCoeff[2] * l + e.mixCoeff[3] * r;
            e.outSubband[1][e.bandIndex] = (e.mixCoeff[4] * gain) * l + (e.mixCoeff[5] * gain) * r;
            ++e.bandIndex;
        }
    }
}

void overlapAdd(Engine& e)
{
    for (int r = 0; r < 3; ++r) {
        const float* y = e.synthHistory[r];
        for (int n = 0; n < 64; ++n) {
            const int j = 63 - n;
            float sum = 0.0f;
            for (int m = 0; m <= 896; m += 128) sum += (y[n + m] - y[j + m]) * lpf[n + m];
            e.overlapNow[r][n] += sum;
        }
        for (int n = 0; n < 64; ++n) {
            const int j = 63 - n;
            float sum = 0.0f;
            for (int m = 0; m <= 896; m += 128) sum += (-y[n + m] - y[j + m]) * lpf[n + m + 64];
            e.overlapNext[r][n] += sum;
        }
    }
}

void roundOutput(Engine& e)
{
    for (int r = 0; r < 3; ++r) {
        for (int n = 0; n < 64; ++n) {
            const float v = e.overlapNow[r][n];
            if (v < 0.0f) {
                e.outputBlock[r][n] = toInt32(static_cast<double>(v - 0.5f));
            } else {
                e.outputBlock[r][n] = toInt32(static_cast<double>(v + 0.5f));
            }
        }
    }
}

void moveInputHistory(Engine& e)
{
    for (int c = 0; c < 2; ++c) {
        for (int n = 0; n < 960; ++n) e.inputHistory[c][n] = e.inputHistory[c][n + 64];
    }
}

void moveSynthHistory(Engine& e)
{
    for (int r = 0; r < 3; ++r) {
        for (int n = 1023; n >= 64; --n) e.synthHistory[r][n] = e.synthHistory[r][n - 64];
    }
}

void moveOverlap(Engine& e)
{
    for (int r = 0; r < 3; ++r) {
        for (int n = 0; n < 64; ++n) e.overlapNow[r][n] = e.overlapNext[r][n];
    }
    for (int r = 0; r < 3; ++r) {
        for (int n = 0; n < 64; ++n) e.overlapNext[r][n] = 0.0f;
    }
}

std::uint32_t Engine::ProcessCine3(std::uint32_t frames, std::uint32_t channels)
{
    beginMeasures(*this);

    ReadInputChannels(frames, channels);
    sumPolyphases(*this);
    averageSubbands(*this);
    foldPolyphases(*this);
    for (int c = 0; c < 2; ++c) buildPairSums(folded[c], dctEven[c], dctOdd[c]);
    for (int c = 0; c < 2; ++c) cosModDCT4_X1(subband[c], dctEven[c], dctOdd[c]);

    trackSpectrum(*this);
    measureLevels(*this);
    findGroupPeaks(*this);
    judgeTonality(*this);
    smoothPowers(*this);

    steerBroadband(*this);
    steerGroups(*this);
    selectSpeeds(*this);
    interpolateMatrices(*this);
    mixSubbands(*this);

    for (int r = 0; r < 3; ++r) buildPairSums(outSubband[r], dctEven[r], dctOdd[r]);
    for (int r = 0; r < 3; ++r) cosModDCT4_X1(synthHistory[r], dctEven[r], dctOdd[r]);
    overlapAdd(*this);
    roundOutput(*this);
    moveSynthHistory(*this);
    moveInputHistory(*this);
    moveOverlap(*this);
    return 0;
}

} // namespace reference
