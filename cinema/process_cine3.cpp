// The signal path of a block: analysis, measures, steering, mixing, synthesis.
// SPDX-License-Identifier: MIT
#include "cinema/process_cine3.h"

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

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

void processCine3(ZRKTarn& engine) noexcept
{
    for (int r = 0; r < 3; ++r) engine.outputPtr[r] = engine.outputBlock[r];
    startMeasures(engine);

    // Analysis. Until the transform, the subbands are those of the previous block.
    alignas(64) float magnitudes[2][32][4];
    float levelSums[4] = {};
    computeMagnitudes(engine, magnitudes);
    for (int c = 0; c < 2; ++c) {
        weightAndAdvance(magnitudes[c], engine.inputHistory[c], engine.polyphaseSum[c], levelSums);
        averageSubbands(engine.subband[c], engine.subbandAvg[c]);
        foldBranches(engine.polyphaseSum[c], engine.folded[c]);
        splitIntoPairSums(engine.folded[c], engine.dctEven[c], engine.dctOdd[c]);
    }
    setLevels(levelSums, engine);
    transformPairSums(2, engine.dctEven, engine.dctOdd, engine.subband[0], 64);

    // Measures
    trackSpectrum(engine.subband[0], engine.spectrumL, engine.peakRegionL, engine.restL);
    trackSpectrum(engine.subband[1], engine.spectrumR, engine.peakRegionR, engine.restR);
    findDominantBands(engine);
    measureGroupPeaks(engine);
    findDominantGroup(engine);
    detectTonalBlock(engine);
    holdStationaryGroups(engine);
    spreadDominantGroup(engine);
    smoothGroupPowers(engine);

    // Steering and mixing
    steerBroadband(engine);
    steerGroups(engine);
    selectSpeeds(engine);
    float elements[6][16];
    const bool weightsMayBeSubnormal = interpolateMatrices(engine, elements);
    const std::uint32_t slow = mixSubbands(engine, elements, weightsMayBeSubnormal);

    // Synthesis. The transform writes the newest 64 values of every history.
    for (int r = 0; r < 3; ++r)
        splitIntoPairSums(engine.outSubband[r], engine.dctEven[r], engine.dctOdd[r], (slow >> r & 1) != 0);
    transformPairSums(3, engine.dctEven, engine.dctOdd, engine.synthHistory[0], 1024, slow);
    for (int r = 0; r < 3; ++r) {
        float sums[64];
        overlapAddAndAdvance(engine.synthHistory[r], engine.overlapNow[r], engine.overlapNext[r], sums);
        roundOutput(sums, engine.outputBlock[r]);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
