// Arithmetic on rows of a block as a table of functions, one table per instruction set.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/bass_filters.h"
#include "room/block.h"

#include <cstddef>
#include <cstdint>

namespace zrk_tarn
{

/// Operations on rows, compiled for one instruction set. All sets give the same bits.
struct RowOperations
{
    /// Converts integers. Returns whether one of them is the lowest or the highest of a range: -limit or limit - 1.
    bool (*widen)(const Row& samples, double limit, UnroundedRow& values) noexcept;

    /// Multiplies samples by gains times a factor.
    void (*amplify)(const UnroundedRow& gains, double factor, const float (&samples)[kBlockFrames],
                    UnroundedRow& values) noexcept;

    /// Multiplies two rows sample by sample. products can be one of them.
    void (*multiply)(const UnroundedRow& a, const UnroundedRow& b, UnroundedRow& products) noexcept;

    /// Rounds half away from zero and saturates to the range from -limit to limit - 1. Returns the number of samples
    /// that saturate.
    std::uint64_t (*round)(const UnroundedRow& values, double limit, Row& samples) noexcept;

    void (*moveBass)(BassFilters& filters, const CrossoverBlock& block) noexcept; ///< see room/bass_filters.h
    void (*filter)(BassFilters& filters, UnroundedRow& row) noexcept;             ///< filterRow, see there
};

namespace TARN_INSTRUCTION_SET
{

extern const RowOperations kRowOperations;

} // namespace TARN_INSTRUCTION_SET

} // namespace zrk_tarn
