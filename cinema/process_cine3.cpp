#include "cinema/process_cine3.h"

#include "cinema/analysis.h"
#include "cinema/group_peaks.h"
#include "cinema/interpolation.h"
#include "cinema/levels.h"
#include "cinema/mixing.h"
#include "cinema/spectrum.h"
#include "cinema/speed_selection.h"
#include "cinema/steering.h"
#include "cinema/synthesis.h"
#include "cinema/tonality.h"
#include "filterbank/transform.h"

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

void processCine3(ZRKTarn& engine) noexcept
{
    for (int r = 0; r < 3; ++r) engine.outputPtr[r] = engine.outputBlock[r];
    startMeasures(engine);

    // Analysis. The subbands are still those of the block before until the transform.
    for (int c = 0; c < 2; ++c) {
        weightAndAdvance(engine.inputHistory[c], engine.polyphaseSum[c]);
        averageSubbands(engine.subband[c], engine.subbandAvg[c]);
        foldBranches(engine.polyphaseSum[c], engine.folded[c]);
        splitIntoPairSums(engine.folded[c], engine.dctEven[c], engine.dctOdd[c]);
    }
    transformPairSums<2, 64>(engine.dctEven, engine.dctOdd, engine.subband[0]);

    // Measures
    trackSpectrum(engine.subband[0], engine.spectrumL, engine.peakRegionL, engine.restL);
    trackSpectrum(engine.subband[1], engine.spectrumR, engine.peakRegionR, engine.restR);
    measureLevels(engine);
    findGroupPeaks(engine);
    findDominantGroup(engine);
    detectTonalBlock(engine);
    holdStationaryGroups(engine);
    spreadDominantGroup(engine);
    smoothGroupPowers(engine);

    // Steering and mixing
    steerBroadband(engine);
    steerGroups(engine);
    selectSpeeds(engine);
    interpolateMatrices(engine);
    const bool tiny = mixSubbands(engine);

    // Synthesis. The transform writes the newest slot of every history.
    for (int r = 0; r < 3; ++r) splitIntoPairSums(engine.outSubband[r], engine.dctEven[r], engine.dctOdd[r], tiny);
    transformPairSums<3, 1024>(engine.dctEven, engine.dctOdd, engine.synthHistory[0], tiny);
    for (int r = 0; r < 3; ++r) {
        overlapAddAndAdvance(engine.synthHistory[r], engine.overlapNow[r], engine.overlapNext[r]);
        roundOutput(engine.overlapNow[r], engine.outputBlock[r]);
        advanceOverlap(engine.overlapNow[r], engine.overlapNext[r]);
    }
}

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
