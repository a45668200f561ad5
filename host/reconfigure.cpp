// Applies the stored configuration of a processor to its engine.
// SPDX-License-Identifier: MIT
#include "host/reconfigure.h"

#include <algorithm>
#include <new>

namespace
{

constexpr std::int32_t kOutputChannels = 3;

/// Maps mode 2 to 4, which the engine rejects.
std::int32_t engineMode(std::int32_t processorMode) noexcept
{
    switch (processorMode) {
    case 0:
        return 1;
    case 2:
        return 4;
    default:
        return 2;
    }
}

} // namespace

void zrk_tarn::initializeEngine(zrk_tarn_processor_t& processor) noexcept
{
    processor.engine->Initialize({.spare = 0,
                                  .outputChannels = kOutputChannels,
                                  .bitsPerSample = static_cast<std::int32_t>(processor.bitsPerSample),
                                  .sampleRate = processor.sampleRate,
                                  .mode = engineMode(processor.mode),
                                  .option = processor.option,
                                  .mixFraction = processor.mixFraction});
}

void zrk_tarn::reconfigure(zrk_tarn_processor_t& processor) noexcept
{
    if (processor.engine == nullptr) return;
    ZRKTarn& engine = *processor.engine;
    std::copy_n(ZRKTarn::SLOWER, 2, engine.slower);
    std::copy_n(ZRKTarn::SLOW, 2, engine.slow);
    std::copy_n(ZRKTarn::MID, 2, engine.mid);
    std::copy_n(ZRKTarn::FAST, 2, engine.fast);
    initializeEngine(processor);
}

void zrk_tarn::restart(zrk_tarn_processor_t& processor) noexcept
{
    if (processor.engine == nullptr) return;
    // In place: a temporary engine would need 30 KB of the stack.
    processor.engine->~ZRKTarn();
    new (processor.engine) ZRKTarn();
    initializeEngine(processor);
}
