// The recursive filters of the bass crossover.
// SPDX-License-Identifier: MIT
#pragma once

#include "room/block.h"

#include <cstddef>

namespace zrk_tarn
{

/// Filters of 4th order side by side: each is a section of 2nd order twice, in the transposed direct form II.
struct BassFilters
{
    // Places of the filters of a crossover
    static constexpr std::size_t kFronts = 0; ///< left and right of the stereo, front left and front right
    static constexpr std::size_t kCentre = 4;
    static constexpr std::size_t kSurrounds = 5; ///< the surround channels
    static constexpr std::size_t kMaxFilters = 9;

    // Coefficients of each filter; b2 is b0
    double b0[kMaxFilters];
    double b1[kMaxFilters];
    double a1[kMaxFilters];
    double a2[kMaxFilters];

    // State of both sections of each filter
    double first[2][kMaxFilters];
    double second[2][kMaxFilters];
};

/// A block of the signals of the bass crossover.
struct CrossoverBlock
{
    const Row& left; ///< of the stereo, as late as the outputs
    const Row& right;
    UnroundedRow* fronts;      ///< front left, front right and centre
    UnroundedRow* surrounds;   ///< the surround channels
    std::size_t count;         ///< of the surround channels: 0, 2 or 4
    const UnroundedRow& share; ///< of the outputs with the crossover
    bool isFading;             ///< whether a share is not 1
};

namespace TARN_INSTRUCTION_SET
{

// A filter is a chain of dependent operations, but the filters do not depend on each other, so a processor computes
// those of a frame at the same time, and what comes before and after them meanwhile. States with a magnitude below
// 2^-60 become 0 at the end of a block.

/// Filters the outputs of a block in place, fades between them and the unfiltered outputs, and adds the bass of the
/// stereo to the fronts.
/// In/Out  filters of the stereo, the fronts, the centre and the surround channels; rows of the outputs
void moveBass(BassFilters& filters, const CrossoverBlock& block) noexcept;

/// Filters a row in place with the first filter.
void filterRow(BassFilters& filters, UnroundedRow& row) noexcept;

} // namespace TARN_INSTRUCTION_SET

} // namespace zrk_tarn
