#pragma once

namespace tests
{

/// Calls visit(name, fieldOfA, fieldOfB) for every field of two engine records, in the order of declaration.
///
/// The records may be of different types that share the names and shapes of their fields.
template <typename A, typename B, typename Visit>
void forEachField(A& a, B& b, Visit visit)
{
    visit("outputBlock", a.outputBlock, b.outputBlock);
    visit("subbandAvg", a.subbandAvg, b.subbandAvg);
    visit("dctEven", a.dctEven, b.dctEven);
    visit("dctOdd", a.dctOdd, b.dctOdd);
    visit("inputHistory", a.inputHistory, b.inputHistory);
    visit("polyphaseSum", a.polyphaseSum, b.polyphaseSum);
    visit("folded", a.folded, b.folded);
    visit("subband", a.subband, b.subband);
    visit("outSubband", a.outSubband, b.outSubband);
    visit("overlapNow", a.overlapNow, b.overlapNow);
    visit("overlapNext", a.overlapNext, b.overlapNext);
    visit("synthHistory", a.synthHistory, b.synthHistory);
    visit("regionMatrix", a.regionMatrix, b.regionMatrix);
    visit("mixCoeff", a.mixCoeff, b.mixCoeff);
    visit("groupMatrix", a.groupMatrix, b.groupMatrix);
    visit("bandCount", a.bandCount, b.bandCount);
    visit("thresBands", a.thresBands, b.thresBands);
    visit("midThresBands", a.midThresBands, b.midThresBands);
    visit("slowThresBands", a.slowThresBands, b.slowThresBands);
    visit("thres", a.thres, b.thres);
    visit("midThres", a.midThres, b.midThres);
    visit("slowThres", a.slowThres, b.slowThres);
    visit("broadbandPair", a.broadbandPair, b.broadbandPair);
    visit("groupIndex", a.groupIndex, b.groupIndex);
    visit("bandIndex", a.bandIndex, b.bandIndex);
    visit("inputScale", a.inputScale, b.inputScale);
    visit("outputScale", a.outputScale, b.outputScale);
    visit("sampleCeiling", a.sampleCeiling, b.sampleCeiling);
    visit("sampleFloor", a.sampleFloor, b.sampleFloor);
    visit("powL", a.powL, b.powL);
    visit("powR", a.powR, b.powR);
    visit("powSum", a.powSum, b.powSum);
    visit("powDiff", a.powDiff, b.powDiff);
    visit("peakL", a.peakL, b.peakL);
    visit("peakR", a.peakR, b.peakR);
    visit("peakSum", a.peakSum, b.peakSum);
    visit("peakDiff", a.peakDiff, b.peakDiff);
    visit("prevPeakL", a.prevPeakL, b.prevPeakL);
    visit("prevPeakR", a.prevPeakR, b.prevPeakR);
    visit("prevPeakSum", a.prevPeakSum, b.prevPeakSum);
    visit("prevPeakDiff", a.prevPeakDiff, b.prevPeakDiff);
    visit("peakTotal", a.peakTotal, b.peakTotal);
    visit("peakBand", a.peakBand, b.peakBand);
    visit("power", a.power, b.power);
    visit("mid", a.mid, b.mid);
    visit("slower", a.slower, b.slower);
    visit("slow", a.slow, b.slow);
    visit("fast", a.fast, b.fast);
    visit("steerLR", a.steerLR, b.steerLR);
    visit("steerFB", a.steerFB, b.steerFB);
    visit("lrSlower", a.lrSlower, b.lrSlower);
    visit("fbSlower", a.fbSlower, b.fbSlower);
    visit("lrSlow", a.lrSlow, b.lrSlow);
    visit("fbSlow", a.fbSlow, b.fbSlow);
    visit("lrMid", a.lrMid, b.lrMid);
    visit("fbMid", a.fbMid, b.fbMid);
    visit("lrFast", a.lrFast, b.lrFast);
    visit("fbFast", a.fbFast, b.fbFast);
    visit("globalLRSlower", a.globalLRSlower, b.globalLRSlower);
    visit("globalFBSlower", a.globalFBSlower, b.globalFBSlower);
    visit("globalLRSlow", a.globalLRSlow, b.globalLRSlow);
    visit("globalFBSlow", a.globalFBSlow, b.globalFBSlow);
    visit("globalLRMid", a.globalLRMid, b.globalLRMid);
    visit("globalFBMid", a.globalFBMid, b.globalFBMid);
    visit("globalLRFast", a.globalLRFast, b.globalLRFast);
    visit("globalFBFast", a.globalFBFast, b.globalFBFast);
    visit("avgLevelL", a.avgLevelL, b.avgLevelL);
    visit("avgLevelR", a.avgLevelR, b.avgLevelR);
    visit("avgLevelSum", a.avgLevelSum, b.avgLevelSum);
    visit("avgLevelDiff", a.avgLevelDiff, b.avgLevelDiff);
    visit("levelL", a.levelL, b.levelL);
    visit("levelR", a.levelR, b.levelR);
    visit("levelSum", a.levelSum, b.levelSum);
    visit("levelDiff", a.levelDiff, b.levelDiff);
    visit("globalLR", a.globalLR, b.globalLR);
    visit("globalFB", a.globalFB, b.globalFB);
    visit("meanLRFast", a.meanLRFast, b.meanLRFast);
    visit("mixFraction", a.mixFraction, b.mixFraction);
    visit("mixFractionComplement", a.mixFractionComplement, b.mixFractionComplement);
    visit("rateCode", a.rateCode, b.rateCode);
    visit("holdMidSmoothing", a.holdMidSmoothing, b.holdMidSmoothing);
    visit("modeOneFlag", a.modeOneFlag, b.modeOneFlag);
    visit("outputChannels", a.outputChannels, b.outputChannels);
    visit("bitsPerSample", a.bitsPerSample, b.bitsPerSample);
    visit("usedFast", a.usedFast, b.usedFast);
    visit("usedMid", a.usedMid, b.usedMid);
    visit("usedSlow", a.usedSlow, b.usedSlow);
    visit("dominantGroup", a.dominantGroup, b.dominantGroup);
    visit("spectrumL", a.spectrumL, b.spectrumL);
    visit("spectrumR", a.spectrumR, b.spectrumR);
    visit("restL", a.restL, b.restL);
    visit("restR", a.restR, b.restR);
    visit("peakRegionL", a.peakRegionL, b.peakRegionL);
    visit("peakRegionR", a.peakRegionR, b.peakRegionR);
    visit("stationaryTolerance", a.stationaryTolerance, b.stationaryTolerance);
    visit("tonalBlock", a.tonalBlock, b.tonalBlock);
    visit("outputPtr", a.outputPtr, b.outputPtr);
    visit("channelPtr", a.channelPtr, b.channelPtr);
    visit("remapCoeff", a.remapCoeff, b.remapCoeff);
    visit("remapTermCount", a.remapTermCount, b.remapTermCount);
    visit("remapTermGain", a.remapTermGain, b.remapTermGain);
    visit("remapTermSource", a.remapTermSource, b.remapTermSource);
    visit("reservedA", a.reservedA, b.reservedA);
    visit("reservedB", a.reservedB, b.reservedB);
}

} // namespace tests
