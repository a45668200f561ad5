// The stages of one instruction set; compiled once for each.
// SPDX-License-Identifier: MIT
#include "bench/speed/stages.h"

#include "cinema/analysis.h"
#include "cinema/dominant_bands.h"
#include "cinema/group_peaks.h"
#include "cinema/group_powers.h"
#include "cinema/interpolation.h"
#include "cinema/levels.h"
#include "cinema/mixing.h"
#include "cinema/spectrum.h"
#include "cinema/speed_selection.h"
#include "cinema/steering.h"
#include "cinema/synthesis.h"
#include "cinema/tonality.h"
#include "filterbank/transform.h"
#include "filterbank/vector_pair_sums.h"
#include "io/block_io.h"

// The same order as in cinema/process_cine3.cpp; sameAsReference fails if they differ.

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

namespace
{

constexpr std::uint32_t kFrames = 64;

// From interpolateMatrices to mixSubbands.
float matrixElements[6][16];
bool weightsMayBeSubnormal;

float sums[3][64]; ///< from overlapAddAndAdvance to roundOutput

constexpr speed::Stage<ZRKTarn> kStageList[] = {
    {"startMeasures",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         for (int r = 0; r < 3; ++r) engine.outputPtr[r] = engine.outputBlock[r];
         startMeasures(engine);
     }},
    {"readInputChannels",
     [](ZRKTarn& engine, std::uint32_t channels) { readInputChannels(engine, kFrames, channels); }},
    {"weightAndAdvance, levels",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         alignas(64) float magnitudes[2][32][4];
         float levelSums[4] = {};
         computeMagnitudes(engine, magnitudes);
         for (int c = 0; c < 2; ++c)
             weightAndAdvance(magnitudes[c], engine.inputHistory[c], engine.polyphaseSum[c], levelSums);
         setLevels(levelSums, engine);
     }},
    {"averageSubbands",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         for (int c = 0; c < 2; ++c) averageSubbands(engine.subband[c], engine.subbandAvg[c]);
     }},
    {"foldBranches",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         for (int c = 0; c < 2; ++c) foldBranches(engine.polyphaseSum[c], engine.folded[c]);
     }},
    {"splitIntoPairSums, two",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         for (int c = 0; c < 2; ++c) splitIntoPairSums(engine.folded[c], engine.dctEven[c], engine.dctOdd[c]);
     }},
    {"transformPairSums, two",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         transformPairSums(2, engine.dctEven, engine.dctOdd, engine.subband[0], 64);
     }},
    {"trackSpectrum",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         trackSpectrum(engine.subband[0], engine.spectrumL, engine.peakRegionL, engine.restL);
         trackSpectrum(engine.subband[1], engine.spectrumR, engine.peakRegionR, engine.restR);
     }},
    {"group peaks",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         findDominantBands(engine);
         measureGroupPeaks(engine);
     }},
    {"dominant group, tonality",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         findDominantGroup(engine);
         detectTonalBlock(engine);
         holdStationaryGroups(engine);
         spreadDominantGroup(engine);
     }},
    {"smoothGroupPowers", [](ZRKTarn& engine, std::uint32_t /*channels*/) { smoothGroupPowers(engine); }},
    {"steerBroadband", [](ZRKTarn& engine, std::uint32_t /*channels*/) { steerBroadband(engine); }},
    {"steerGroups", [](ZRKTarn& engine, std::uint32_t /*channels*/) { steerGroups(engine); }},
    {"selectSpeeds", [](ZRKTarn& engine, std::uint32_t /*channels*/) { selectSpeeds(engine); }},
    {"interpolateMatrices",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         weightsMayBeSubnormal = interpolateMatrices(engine, matrixElements);
     }},
    {"mixSubbands",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) { mixSubbands(engine, matrixElements, weightsMayBeSubnormal); }},
    {"splitIntoPairSums, three",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         for (int r = 0; r < 3; ++r) splitIntoPairSums(engine.outSubband[r], engine.dctEven[r], engine.dctOdd[r]);
     }},
    {"transformPairSums, three",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         transformPairSums(3, engine.dctEven, engine.dctOdd, engine.synthHistory[0], 1024);
     }},
    {"overlapAddAndAdvance",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         for (int r = 0; r < 3; ++r)
             overlapAddAndAdvance(engine.synthHistory[r], engine.overlapNow[r], engine.overlapNext[r], sums[r]);
     }},
    {"roundOutput",
     [](ZRKTarn& engine, std::uint32_t /*channels*/) {
         for (int r = 0; r < 3; ++r) roundOutput(sums[r], engine.outputBlock[r]);
     }},
    {"writeOutput", [](ZRKTarn& engine, std::uint32_t channels) { writeOutput(engine, kFrames, channels); }},
};

} // namespace

extern const speed::StageFlow<ZRKTarn> kStages{kStageList};

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
