#include "cinema/analysis.h"
#include "cinema/group_peaks.h"
#include "cinema/histories.h"
#include "cinema/interpolation.h"
#include "cinema/levels.h"
#include "cinema/mixing.h"
#include "cinema/spectrum.h"
#include "cinema/speed_selection.h"
#include "cinema/steering.h"
#include "cinema/synthesis.h"
#include "cinema/tonality.h"
#include "engine/zrk_tarn.h"
#include "filterbank/cos_mod.h"

using namespace zrk_tarn;

std::uint32_t ZRKTarn::ProcessCine3(std::uint32_t frames, std::uint32_t channels) noexcept
{
    for (int r = 0; r < 3; ++r) outputPtr[r] = outputBlock[r];
    startMeasures(*this);
    ReadInputChannels(frames, channels);

    for (int c = 0; c < 2; ++c) {
        weightHistory(inputHistory[c], polyphaseSum[c]);
        averageSubbands(subband[c], subbandAvg[c]);
        foldBranches(polyphaseSum[c], folded[c]);
        splitIntoPairSums(folded[c], dctEven[c], dctOdd[c]);
        cosModDCT4_X1(subband[c], dctEven[c], dctOdd[c]);
    }

    trackSpectrum(subband[0], spectrumL, peakRegionL, restL);
    trackSpectrum(subband[1], spectrumR, peakRegionR, restR);
    measureLevels(*this);
    findGroupPeaks(*this);
    findDominantGroup(*this);
    detectTonalBlock(*this);
    holdStationaryGroups(*this);
    spreadDominantGroup(*this);
    smoothGroupPowers(*this);

    steerBroadband(*this);
    steerGroups(*this);
    selectSpeeds(*this);
    interpolateMatrices(*this);
    mixSubbands(*this);

    for (int r = 0; r < 3; ++r) {
        splitIntoPairSums(outSubband[r], dctEven[r], dctOdd[r]);
        cosModDCT4_X1(synthHistory[r], dctEven[r], dctOdd[r]);
        overlapAdd(synthHistory[r], overlapNow[r], overlapNext[r]);
        roundOutput(overlapNow[r], outputBlock[r]);
    }
    moveHistories(*this);
    return 0;
}
