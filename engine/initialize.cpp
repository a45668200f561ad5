// Configures an engine for a stream format.
// SPDX-License-Identifier: MIT
#include "engine/sample_rates.h"
#include "engine/threshold_rows.h"
#include "engine/zrk_tarn.h"
#include "lanes/float_environment.h"

#include <algorithm>
#include <cmath>

namespace zrk_tarn
{

void copyThresholds(const float (&table)[16], std::int32_t step, float (&row)[16]) noexcept
{
    for (std::int32_t g = 0; g < 16; ++g) row[g] = table[std::min(g * step, 15)];
}

} // namespace zrk_tarn

using namespace zrk_tarn;

namespace
{

/// Truncates towards zero and saturates to 32 bits.
std::int32_t saturatedToInt32(double value) noexcept
{
    return static_cast<std::int32_t>(std::clamp(value, -2147483648.0, 2147483647.0));
}

/// The settings of a sample rate. Alpha becomes alpha * alphaFactor / alphaDivisor; one of both is 1.
struct RateSetting
{
    std::int32_t rateCode;
    float alphaFactor;
    float alphaDivisor;
    std::int32_t thresholdStep;    ///< groups of the tables per group of the engine
    const std::int32_t* bandCount; ///< null: the grouping stays
};

/// Code 176 has settings although kSupportedRatesHz does not contain 176400 Hz.
constexpr RateSetting kRateSettings[] = {
    {32, 1.5f, 1.0f, 1, nullptr},
    {44, 1.088f, 1.0f, 1, nullptr},
    {48, 1.0f, 1.0f, 1, nullptr},
    {64, 1.0f, 1.3333f, 1, ZRKTarn::LOOP_COUNT64},
    {88, 1.0f, 1.8375f, 2, ZRKTarn::LOOP_COUNT96},
    {96, 0.5f, 1.0f, 2, ZRKTarn::LOOP_COUNT96},
    {176, 0.25f, 1.0f, 4, ZRKTarn::LOOP_COUNT192},
    {192, 0.25f, 1.0f, 4, ZRKTarn::LOOP_COUNT192},
};

/// The rate in kHz, rounded down; 0 for an unsupported rate.
std::int32_t rateCodeOf(std::uint32_t sampleRateHz) noexcept
{
    return isSupportedRate(sampleRateHz) ? static_cast<std::int32_t>(sampleRateHz / 1000) : 0;
}

/// The settings of a rate code; null for code 0.
const RateSetting* settingOf(std::int32_t rateCode) noexcept
{
    for (const RateSetting& setting : kRateSettings)
        if (setting.rateCode == rateCode) return &setting;
    return nullptr;
}

void copyPair(const float (&from)[2], float (&to)[2]) noexcept
{
    to[0] = from[0];
    to[1] = from[1];
}

/// Scales a smoothing pair, which applies per block, so that its time constant in seconds stays.
void rescalePair(const RateSetting& setting, float (&pair)[2]) noexcept
{
    pair[0] = pair[0] * setting.alphaFactor / setting.alphaDivisor;
    pair[1] = 1.0f - pair[0];
}

/// Host integer to engine scale: 2^31 / (2^B - 1), in double, rounded once.
float inputScaleOf(std::int32_t bitsPerSample) noexcept
{
    if (bitsPerSample == 0) return 0.0f;
    if (bitsPerSample == 1) return 2147483648.0f;
    return static_cast<float>(2147483648.0 / (std::pow(2.0, bitsPerSample) - 1.0));
}

/// Engine scale to host integer: (2^B - 1) rounded to single, times 2^-31 in single.
float outputScaleOf(std::int32_t bitsPerSample) noexcept
{
    if (bitsPerSample == 0 || bitsPerSample == 1) return 0.0f;
    return static_cast<float>(std::pow(2.0, bitsPerSample) - 1.0) * 0x1p-31f;
}

/// Mode 2 loads the four steering pairs, with the mid pair as the fast pair. Then scales the pairs for the rate.
///
/// Mode 1 scales the current pairs, so repeated calls scale repeatedly.
void setSteeringPairs(ZRKTarn& engine, const RateSetting* setting) noexcept
{
    if (engine.holdMidSmoothing == 1) {
        copyPair(ZRKTarn::SLOWER, engine.slower);
        copyPair(ZRKTarn::SLOW, engine.slow);
        copyPair(ZRKTarn::MID, engine.mid);
        copyPair(ZRKTarn::MID, engine.fast);
    }
    if (setting == nullptr || setting->rateCode == 48) return;
    rescalePair(*setting, engine.mid);
    rescalePair(*setting, engine.slower);
    rescalePair(*setting, engine.slow);
    rescalePair(*setting, engine.fast);
}

/// Copies the k6 matrices for six and more output channels, else the k5 matrices.
void installMatrices(ZRKTarn& engine) noexcept
{
    const float* const sets[2][9] = {
        {ZRKTarn::MATRIX15, ZRKTarn::MATRIX25, ZRKTarn::MATRIX35, ZRKTarn::MATRIX45, ZRKTarn::MATRIX55,
         ZRKTarn::MATRIX65, ZRKTarn::MATRIX75, ZRKTarn::MATRIX85, ZRKTarn::MATRIX95},
        {ZRKTarn::MATRIX16, ZRKTarn::MATRIX26, ZRKTarn::MATRIX36, ZRKTarn::MATRIX46, ZRKTarn::MATRIX56,
         ZRKTarn::MATRIX66, ZRKTarn::MATRIX76, ZRKTarn::MATRIX86, ZRKTarn::MATRIX96}};
    const auto& set = sets[engine.outputChannels >= 6 ? 1 : 0];
    for (int region = 0; region < 9; ++region) std::copy_n(set[region], 12, engine.regionMatrix[region]);
}

/// Initialize without the change of the floating-point environment.
[[gnu::noinline]] std::uint32_t configure(ZRKTarn& engine, const Tarn_Parameters& parameters) noexcept
{
    std::uint32_t result = 0;

    engine.bitsPerSample = parameters.bitsPerSample;
    engine.outputChannels = parameters.outputChannels;
    if (engine.outputChannels < 3 || engine.outputChannels > 7) result = 1;

    engine.rateCode = rateCodeOf(parameters.sampleRate);
    if (engine.rateCode == 0) result = 3;

    if (parameters.mode == 1 || parameters.mode == 2) {
        engine.modeOneFlag = parameters.mode == 1 ? 1 : 0;
        engine.holdMidSmoothing = parameters.mode == 2 ? 1 : 0;
    } else {
        result = 4;
    }

    engine.mixFraction = parameters.mixFraction;
    if (engine.mixFraction < 0.0f || engine.mixFraction > 1.0f) result = 6;
    if (engine.outputChannels == 4) engine.mixFraction = 0.0f;
    engine.mixFractionComplement = engine.holdMidSmoothing == 1 ? engine.mixFraction : 1.0f - engine.mixFraction;

    const RateSetting* const setting = settingOf(engine.rateCode);
    if (setting != nullptr) {
        copyThresholds(ZRKTarn::THRES_BANDS, setting->thresholdStep, engine.thresBands);
        copyThresholds(ZRKTarn::MIDTHRES_BANDS, setting->thresholdStep, engine.midThresBands);
        copyThresholds(ZRKTarn::SLOWTHRES_BANDS, setting->thresholdStep, engine.slowThresBands);
        if (setting->bandCount != nullptr) std::copy_n(setting->bandCount, 16, engine.bandCount);
    }
    setSteeringPairs(engine, setting);
    installMatrices(engine);

    engine.inputScale = inputScaleOf(engine.bitsPerSample);
    engine.outputScale = outputScaleOf(engine.bitsPerSample);
    engine.sampleCeiling = saturatedToInt32(std::pow(2.0, static_cast<double>(engine.bitsPerSample) - 1.0) - 1.0);
    engine.sampleFloor = ~engine.sampleCeiling;
    return result;
}

} // namespace

std::uint32_t ZRKTarn::Initialize(Tarn_Parameters parameters) noexcept
{
    const DefaultFloatEnvironment environment;
    return configure(*this, parameters);
}
