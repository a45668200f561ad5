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
    static constexpr std::size_t kMaxFilters = 5;

    // Coefficients of each filter; b2 is b0
    double b0[kMaxFilters];
    double b1[kMaxFilters];
    double a1[kMaxFilters];
    double a2[kMaxFilters];

    // State of both sections of each filter
    double first[2][kMaxFilters];
    double second[2][kMaxFilters];
};

namespace TARN_INSTRUCTION_SET
{

/// Filters a block of rows in place. States with a magnitude below 2^-60 become 0 at its end.
///
/// A filter is a chain of dependent operations, but the filters do not depend on each other, so a processor computes
/// those of a frame at the same time.
///
/// In/Out  filters, rows [count], one per filter
/// count   1, 2, 4 or 5
void filterRows(BassFilters& filters, UnroundedRow* const* rows, std::size_t count) noexcept;

} // namespace TARN_INSTRUCTION_SET

} // namespace zrk_tarn
