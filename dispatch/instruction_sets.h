// The work on a block as a table of functions, one table per instruction set, and the choice between them.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"
#include "io/interleave.h"
#include "io/row_level.h"
#include "room/peak_window.h"
#include "room/row_operations.h"
#include "room/surrounds.h"

#include <cstdint>
#include <span>

namespace zrk_tarn
{

/// The operations on a block, compiled for one instruction set. All sets give the same bits.
struct BlockOperations
{
    const char* instructionSet; ///< its name: "sse2", "avx2", "avx512"; "neon"; "generic"

    const Interleaving& (*interleavingOf)(SampleType type, std::size_t slots) noexcept; ///< see io/interleave.h
    void (*readInputChannels)(ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;
    void (*readRows)(ZRKTarn& engine, const std::int32_t (&left)[64], const std::int32_t (&right)[64]) noexcept;
    void (*processCine3)(ZRKTarn& engine) noexcept;                                ///< without reading the input
    void (*readSpeeds)(const ZRKTarn& engine, std::int32_t (&speed)[16]) noexcept; ///< see cinema/speed_selection.h
    std::uint32_t (*writeOutput)(const ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;
    void (*writeRows)(const ZRKTarn& engine, std::int32_t (*rows)[64]) noexcept;
    void (*convertOutput)(ZRKTarn& engine, std::uint32_t frames) noexcept;
    std::uint32_t (*remapOutput)(const ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;
    RowLevel (*measureRow)(const std::int32_t (&row)[64]) noexcept;
    void (*renderSurrounds)(const ZRKTarn& engine, Surrounds& surrounds) noexcept; ///< see room/render_surrounds.h
    void (*advancePeakWindow)(PeakWindow& window, const UnroundedRow* rows, std::size_t count,
                              double scale) noexcept;                                         ///< see room/true_peak.h
    float (*findTruePeak)(const PeakWindow& window, std::int32_t rows, float floor) noexcept; ///< see room/true_peak.h
    const RowOperations& rows; ///< see room/row_operations.h
    void (*addSquares)(const float (&subbands)[64], float trace,
                       float (&sums)[64]) noexcept; ///< see cinema/band_squares.h
};

/// All instruction sets of the build, slowest first.
std::span<const BlockOperations* const> allOperations() noexcept;

/// The instruction sets that this processor can run, slowest first.
std::span<const BlockOperations* const> usableOperations() noexcept;

/// The instruction set that engines work with: the fastest usable one, chosen when the library is loaded.
const BlockOperations& chosenOperations() noexcept;

/// Changes the instruction set that engines work with, for tests and measurements. Not while a block is processed.
void chooseOperations(const BlockOperations& operations) noexcept;

} // namespace zrk_tarn
