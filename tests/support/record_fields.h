// Iteration over the fields of the public records.
// SPDX-License-Identifier: MIT
#pragma once

#include <type_traits>

// The members of the public records in the order of declaration. A structured binding needs all members, so an
// incomplete list does not compile.

// clang-format off
#define TARN_ENGINE_FIELDS(FIELD) \
    FIELD(outputBlock), FIELD(subbandAvg), FIELD(dctEven), FIELD(dctOdd), FIELD(inputHistory), \
    FIELD(polyphaseSum), FIELD(folded), FIELD(subband), FIELD(outSubband), FIELD(overlapNow), FIELD(overlapNext), \
    FIELD(synthHistory), FIELD(regionMatrix), FIELD(mixCoeff), FIELD(groupMatrix), FIELD(bandCount), \
    FIELD(thresBands), FIELD(midThresBands), FIELD(slowThresBands), FIELD(thres), FIELD(midThres), \
    FIELD(slowThres), FIELD(broadbandPair), FIELD(groupIndex), FIELD(bandIndex), FIELD(inputScale), \
    FIELD(outputScale), FIELD(sampleCeiling), FIELD(sampleFloor), FIELD(powL), FIELD(powR), FIELD(powSum), \
    FIELD(powDiff), FIELD(peakL), FIELD(peakR), FIELD(peakSum), FIELD(peakDiff), FIELD(prevPeakL), \
    FIELD(prevPeakR), FIELD(prevPeakSum), FIELD(prevPeakDiff), FIELD(peakTotal), FIELD(peakBand), FIELD(power), \
    FIELD(mid), FIELD(slower), FIELD(slow), FIELD(fast), FIELD(steerLR), FIELD(steerFB), FIELD(lrSlower), \
    FIELD(fbSlower), FIELD(lrSlow), FIELD(fbSlow), FIELD(lrMid), FIELD(fbMid), FIELD(lrFast), FIELD(fbFast), \
    FIELD(globalLRSlower), FIELD(globalFBSlower), FIELD(globalLRSlow), FIELD(globalFBSlow), FIELD(globalLRMid), \
    FIELD(globalFBMid), FIELD(globalLRFast), FIELD(globalFBFast), FIELD(avgLevelL), FIELD(avgLevelR), \
    FIELD(avgLevelSum), FIELD(avgLevelDiff), FIELD(levelL), FIELD(levelR), FIELD(levelSum), FIELD(levelDiff), \
    FIELD(globalLR), FIELD(globalFB), FIELD(meanLRFast), FIELD(mixFraction), FIELD(mixFractionComplement), \
    FIELD(rateCode), FIELD(holdMidSmoothing), FIELD(modeOneFlag), FIELD(outputChannels), FIELD(bitsPerSample), \
    FIELD(usedFast), FIELD(usedMid), FIELD(usedSlow), FIELD(dominantGroup), FIELD(spectrumL), FIELD(spectrumR), \
    FIELD(restL), FIELD(restR), FIELD(peakRegionL), FIELD(peakRegionR), FIELD(stationaryTolerance), \
    FIELD(tonalBlock), FIELD(outputPtr), FIELD(channelPtr), FIELD(remapCoeff), FIELD(remapTermCount), \
    FIELD(remapTermGain), FIELD(remapTermSource), FIELD(reservedA), FIELD(reservedB)

#define TARN_PROCESSOR_FIELDS(FIELD) \
    FIELD(engine), FIELD(mode), FIELD(option), FIELD(mixFraction), FIELD(sampleRate), FIELD(bitsPerSample), \
    FIELD(channelCount), FIELD(assignment), FIELD(leftSlot), FIELD(rightSlot), FIELD(centreSlot), FIELD(auxSlotA), \
    FIELD(auxSlotB), FIELD(remapCoeff)

#define TARN_PARAMETER_FIELDS(FIELD) \
    FIELD(spare), FIELD(outputChannels), FIELD(bitsPerSample), FIELD(sampleRate), FIELD(mode), FIELD(option), \
    FIELD(mixFraction)
// clang-format on

#define TARN_NAME(field) field
#define TARN_VISIT(field) visit(#field, a.field, b.field)

namespace tests
{

/// Calls visit(name, fieldOfA, fieldOfB) for every field of two engine records, in the order of declaration.
///
/// The records may have different types with the same names and shapes of fields. Visits all fields of A.
template <typename A, typename B, typename Visit>
void forEachField(A& a, B& b, Visit visit)
{
    [[maybe_unused]] auto& [TARN_ENGINE_FIELDS(TARN_NAME)] = a;
    TARN_ENGINE_FIELDS(TARN_VISIT);
}

/// The same for two host objects.
template <typename A, typename B, typename Visit>
void forEachProcessorField(A& a, B& b, Visit visit)
{
    [[maybe_unused]] auto& [TARN_PROCESSOR_FIELDS(TARN_NAME)] = a;
    TARN_PROCESSOR_FIELDS(TARN_VISIT);
}

/// The same for two records of parameters.
template <typename A, typename B, typename Visit>
void forEachParameter(A& a, B& b, Visit visit)
{
    [[maybe_unused]] auto& [TARN_PARAMETER_FIELDS(TARN_NAME)] = a;
    TARN_PARAMETER_FIELDS(TARN_VISIT);
}

/// Calls visit(name, fieldOfA, fieldOfB) for every field of two host objects except the engine pointers.
template <typename A, typename B, typename Visit>
void forEachHostField(A& a, B& b, Visit visit)
{
    forEachProcessorField(a, b, [&](const char* name, auto& fieldA, auto& fieldB) {
        if constexpr (!std::is_pointer_v<std::remove_cvref_t<decltype(fieldA)>>) visit(name, fieldA, fieldB);
    });
}

} // namespace tests

#undef TARN_VISIT
#undef TARN_NAME
#undef TARN_PARAMETER_FIELDS
#undef TARN_PROCESSOR_FIELDS
#undef TARN_ENGINE_FIELDS
