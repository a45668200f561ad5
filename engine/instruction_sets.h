#pragma once

#include "engine/zrk_tarn.h"

#include <cstdint>
#include <span>

namespace zrk_tarn
{

/// What an instruction set has to offer: the work on a block, compiled for it. All give the same bits.
struct BlockOperations
{
    const char* instructionSet; ///< "sse2", "avx2", "avx512"; "neon"; "generic"

    void (*readInputChannels)(ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;
    void (*processCine3)(ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;
    std::uint32_t (*writeOutput)(const ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;
    void (*convertOutput)(ZRKTarn& engine, std::uint32_t frames) noexcept;
    std::uint32_t (*remapOutput)(const ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;
};

/// All that the library has, the slowest first.
std::span<const BlockOperations* const> allOperations() noexcept;

/// Those of them that this processor can run.
std::span<const BlockOperations* const> usableOperations() noexcept;

/// Those that engines work with: the fastest usable ones, chosen when the library is loaded.
const BlockOperations& chosenOperations() noexcept;

/// Makes engines work with others from here on, for tests and measurements. Not while a block is processed.
void chooseOperations(const BlockOperations& operations) noexcept;

} // namespace zrk_tarn
