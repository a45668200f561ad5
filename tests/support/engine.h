// Engines for tests.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

#include <cstdint>
#include <memory>

namespace tests
{

/// Valid parameters with three output channels, as the block driver sets them.
inline Tarn_Parameters parametersAt(std::uint32_t sampleRate, std::int32_t bitsPerSample, std::int32_t mode = 1)
{
    return {.spare = 0,
            .outputChannels = 3,
            .bitsPerSample = bitsPerSample,
            .sampleRate = sampleRate,
            .mode = mode,
            .option = 0,
            .mixFraction = 1.0f};
}

/// An opened and initialized engine.
inline std::unique_ptr<ZRKTarn> engineAt(std::uint32_t sampleRate, std::int32_t bitsPerSample, std::int32_t mode = 1)
{
    auto engine = std::make_unique<ZRKTarn>();
    engine->Open();
    engine->Initialize(parametersAt(sampleRate, bitsPerSample, mode));
    return engine;
}

} // namespace tests
