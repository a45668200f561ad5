// The surround channels of the reference.
// SPDX-License-Identifier: MIT
#include "tests/reference/reference_surrounds.h"

#include "filterbank/cos_mod.h"
#include "tests/reference/reference_filterbank.h"

#include <cmath>

namespace reference
{

namespace
{

struct Settings
{
    std::uint32_t rateHz;
    float alpha;
    int lookAhead;
    int delays[8]; ///< of both sections of chain 0, 1, 2 and 3
};

constexpr Settings kSettings[] = {
    {32000, 0.04466f, 4, {89, 401, 83, 407, 119, 257, 129, 247}},
    {44100, 0.03261f, 6, {125, 563, 119, 569, 163, 347, 169, 341}},
    {48000, 0.03f, 6, {139, 607, 125, 621, 187, 379, 191, 371}},
    {64000, 0.02259f, 8, {177, 811, 167, 821, 239, 511, 257, 493}},
    {88200, 0.01644f, 11, {247, 1109, 227, 1129, 337, 695, 353, 679}},
    {96000, 0.01511f, 12, {275, 1207, 251, 1231, 359, 767, 387, 739}},
    {192000, 0.00759f, 24, {533, 2441, 503, 2471, 733, 1503, 755, 1481}},
};

const Settings& settingsOf(std::uint32_t rateHz)
{
    for (const Settings& settings : kSettings)
        if (settings.rateHz == rateHz) return settings;
    return kSettings[2];
}

float withoutTrace(float value)
{
    return std::fabs(value) < 0x1p-60f ? 0.0f : value;
}

} // namespace

Surrounds::Surrounds(std::uint32_t sampleRateHz, int chainCount)
{
    cosModTablesInit();
    const Settings& settings = settingsOf(sampleRateHz);
    alpha = settings.alpha;
    past.resize(static_cast<std::size_t>(settings.lookAhead));
    for (int chain = 0; chain < chainCount; ++chain) {
        const auto silence = [&](int delay) { return std::deque<float>(static_cast<std::size_t>(delay), 0.0f); };
        chains.push_back({Section{silence(settings.delays[2 * chain]), 0.6f},
                          Section{silence(settings.delays[2 * chain + 1]), chain % 2 == 0 ? -0.6f : 0.6f}});
    }
}

float Surrounds::Section::filter(float x)
{
    const float before = w.front();
    w.pop_front();
    const float now = withoutTrace(x + gain * before);
    w.push_back(now);
    return before - gain * now;
}

void Surrounds::smoothCovariances(const float (&subband)[2][64], const std::int32_t (&bandCount)[16])
{
    int band = 0;
    for (int g = 0; g < 16; ++g) {
        float ll[4] = {};
        float rr[4] = {};
        float lr[4] = {};
        for (int n = 0; n < bandCount[g]; ++n) {
            const float l = subband[0][band] * 0x1p-31f;
            const float r = subband[1][band] * 0x1p-31f;
            ll[n % 4] += l * l;
            rr[n % 4] += r * r;
            lr[n % 4] += l * r;
            ++band;
        }
        const float keep = 1.0f - alpha;
        leftLeft[g] = withoutTrace(keep * leftLeft[g] + alpha * ((ll[0] + ll[1]) + (ll[2] + ll[3])));
        rightRight[g] = withoutTrace(keep * rightRight[g] + alpha * ((rr[0] + rr[1]) + (rr[2] + rr[3])));
        leftRight[g] = withoutTrace(keep * leftRight[g] + alpha * ((lr[0] + lr[1]) + (lr[2] + lr[3])));
    }
}

void Surrounds::findWeights(int group)
{
    const float lr = leftRight[group];
    const float m = 0.5f * (leftLeft[group] + rightRight[group]) + 0x1p-46f;
    const float d = withoutTrace(0.5f * (leftLeft[group] - rightRight[group]));
    const float residue = m - std::sqrt(d * d + lr * lr);
    const float q = residue > 0.0f ? residue : 0.0f;
    const float e = lr + 0.625f * q;
    const float excess = e - 2.0f * std::fabs(d);
    const float nearness = (excess > 0.0f ? excess : 0.0f) / (std::fabs(e) + std::fabs(d) + 0x1p-100f);
    const float s = e + 3.0f * q * nearness;
    const float c = d / (std::sqrt(d * d + s * s) + 0x1p-100f);
    const float left = 0.5f - 0.5f * c;
    const float right = 0.5f + 0.5f * c;
    leftWeight[group] = std::sqrt(left > 0.0f ? left : 0.0f);
    rightWeight[group] = std::sqrt(right > 0.0f ? right : 0.0f);
}

void Surrounds::synthesise(float (&samples)[64])
{
    cosModDCT4(synthHistory, difference);
    const float* y = synthHistory;
    for (int n = 0; n < 64; ++n) {
        float now = 0.0f;
        float next = 0.0f;
        for (int m = 0; m < 1024; m += 128) {
            now += (y[n + m] - y[63 - n + m]) * lpf[n + m];
            next += (-y[n + m] - y[63 - n + m]) * lpf[n + m + 64];
        }
        samples[n] = overlapNow[n] + now;
        overlapNext[n] += next;
    }
    for (int n = 0; n < 64; ++n) {
        overlapNow[n] = overlapNext[n];
        overlapNext[n] = 0.0f;
    }
    for (int n = 1023; n >= 64; --n) synthHistory[n] = synthHistory[n - 64];
}

void Surrounds::render(const float (&subband)[2][64], const std::int32_t (&bandCount)[16])
{
    smoothCovariances(subband, bandCount);
    int band = 0;
    for (int g = 0; g < 16; ++g) {
        findWeights(g);
        for (int n = 0; n < bandCount[g]; ++n, ++band) {
            const auto b = static_cast<std::size_t>(band);
            difference[band] = leftWeight[g] * past.front()[b] - rightWeight[g] * past.front()[64 + b];
        }
    }
    past.pop_front();
    past.emplace_back();
    for (std::size_t b = 0; b < 64; ++b) {
        past.back()[b] = subband[0][b];
        past.back()[64 + b] = subband[1][b];
    }

    float samples[64];
    synthesise(samples);
    for (std::size_t chain = 0; chain < chains.size(); ++chain)
        for (int n = 0; n < 64; ++n) output[chain][n] = chains[chain][1].filter(chains[chain][0].filter(samples[n]));
}

} // namespace reference
