// The settings of the surround channels for every sample rate.
// SPDX-License-Identifier: MIT
#include "room/surrounds.h"

#include <memory>

namespace zrk_tarn
{

namespace
{

/// The sections of a chain have gains of opposite sign in every second chain, so that two channels of a pair have a
/// phase difference that averages about 90 degrees.
constexpr float kGain[2][2] = {{0.6f, -0.6f}, {0.6f, 0.6f}};

/// Times of a rate in its blocks and frames: a mean over 44 ms, 8 ms of look-ahead, and the delays of 48 kHz scaled to
/// the rate. The delays are odd and without a common divisor. Among neighbouring values, those are chosen whose
/// channels correlate least in every third of an octave (tools/design_chains.py).
struct RateSettings
{
    std::uint32_t sampleRateHz;
    float alpha;
    std::int32_t lookAhead;
    std::int32_t delay[Surrounds::kChains][2];
};

constexpr RateSettings kRateSettings[] = {
    {32000, 0.04466f, 4, {{89, 401}, {83, 407}, {119, 257}, {129, 247}}},
    {44100, 0.03261f, 6, {{125, 563}, {119, 569}, {163, 347}, {169, 341}}},
    {48000, 0.03f, 6, {{139, 607}, {125, 621}, {187, 379}, {191, 371}}},
    {64000, 0.02259f, 8, {{177, 811}, {167, 821}, {239, 511}, {257, 493}}},
    {88200, 0.01644f, 11, {{247, 1109}, {227, 1129}, {337, 695}, {353, 679}}},
    {96000, 0.01511f, 12, {{275, 1207}, {251, 1231}, {359, 767}, {387, 739}}},
    {192000, 0.00759f, 24, {{533, 2441}, {503, 2471}, {733, 1503}, {755, 1481}}},
};

} // namespace

void configureSurrounds(Surrounds& surrounds, std::uint32_t sampleRateHz, std::int32_t pairs) noexcept
{
    std::construct_at(&surrounds); // in place: the state is larger than the stack of an audio thread may be
    surrounds.chainsInUse = 2 * pairs;
    for (const RateSettings& settings : kRateSettings) {
        if (settings.sampleRateHz != sampleRateHz) continue;
        surrounds.smoothing[0] = settings.alpha;
        surrounds.smoothing[1] = 1.0f - settings.alpha;
        surrounds.lookAhead = settings.lookAhead;
        for (int chain = 0; chain < Surrounds::kChains; ++chain)
            for (int section = 0; section < 2; ++section)
                surrounds.chain[chain][section].configure(settings.delay[chain][section], kGain[chain % 2][section]);
    }
}

} // namespace zrk_tarn
