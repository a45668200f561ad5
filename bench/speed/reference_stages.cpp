// The stages of the reference engine.
// SPDX-License-Identifier: MIT
#include "bench/speed/stages.h"

#include "tests/reference/reference_cinema.h"
#include "tests/reference/reference_filterbank.h"

namespace speed
{

namespace
{

using reference::Engine;

constexpr std::uint32_t kFrames = 64;

void transformTwo(Engine& engine, std::uint32_t /*channels*/)
{
    for (int c = 0; c < 2; ++c) reference::cosModDCT4_X1(engine.subband[c], engine.dctEven[c], engine.dctOdd[c]);
}

void transformThree(Engine& engine, std::uint32_t /*channels*/)
{
    for (int r = 0; r < 3; ++r) reference::cosModDCT4_X1(engine.synthHistory[r], engine.dctEven[r], engine.dctOdd[r]);
}

constexpr Stage<Engine> kStageList[] = {
    {"startMeasures", [](Engine& engine, std::uint32_t /*channels*/) { beginMeasures(engine); }},
    {"readInputChannels", [](Engine& engine, std::uint32_t channels) { engine.ReadInputChannels(kFrames, channels); }},
    {"weightAndAdvance, levels",
     [](Engine& engine, std::uint32_t /*channels*/) {
         sumPolyphases(engine);
         moveInputHistory(engine);
         measureLevels(engine);
     }},
    {"averageSubbands", [](Engine& engine, std::uint32_t /*channels*/) { averageSubbands(engine); }},
    {"foldBranches", [](Engine& engine, std::uint32_t /*channels*/) { foldPolyphases(engine); }},
    {"splitIntoPairSums, two",
     [](Engine& engine, std::uint32_t /*channels*/) {
         for (int c = 0; c < 2; ++c) reference::buildPairSums(engine.folded[c], engine.dctEven[c], engine.dctOdd[c]);
     }},
    {"transformPairSums, two", transformTwo},
    {"trackSpectrum", [](Engine& engine, std::uint32_t /*channels*/) { trackSpectrum(engine); }},
    {"group peaks", [](Engine& engine, std::uint32_t /*channels*/) { findGroupPeaks(engine); }},
    {"dominant group, tonality", [](Engine& engine, std::uint32_t /*channels*/) { judgeTonality(engine); }},
    {"smoothGroupPowers", [](Engine& engine, std::uint32_t /*channels*/) { smoothPowers(engine); }},
    {"steerBroadband", [](Engine& engine, std::uint32_t /*channels*/) { steerBroadband(engine); }},
    {"steerGroups", [](Engine& engine, std::uint32_t /*channels*/) { steerGroups(engine); }},
    {"selectSpeeds", [](Engine& engine, std::uint32_t /*channels*/) { selectSpeeds(engine); }},
    {"interpolateMatrices", [](Engine& engine, std::uint32_t /*channels*/) { interpolateMatrices(engine); }},
    {"mixSubbands", [](Engine& engine, std::uint32_t /*channels*/) { mixSubbands(engine); }},
    {"splitIntoPairSums, three",
     [](Engine& engine, std::uint32_t /*channels*/) {
         for (int r = 0; r < 3; ++r)
             reference::buildPairSums(engine.outSubband[r], engine.dctEven[r], engine.dctOdd[r]);
     }},
    {"transformPairSums, three", transformThree},
    {"overlapAddAndAdvance",
     [](Engine& engine, std::uint32_t /*channels*/) {
         overlapAdd(engine);
         moveSynthHistory(engine);
     }},
    {"roundOutput",
     [](Engine& engine, std::uint32_t /*channels*/) {
         roundOutput(engine);
         moveOverlap(engine);
     }},
    {"writeOutput", [](Engine& engine, std::uint32_t channels) { engine.WriteOutput(kFrames, channels); }},
};

} // namespace

StageFlow<Engine> referenceStages()
{
    return kStageList;
}

} // namespace speed
