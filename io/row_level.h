// The level of a row, for one instruction set.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/exact_floats.h"

#include <cstdint>

namespace zrk_tarn
{

/// What a row contributes to the meters.
struct RowLevel
{
    std::int32_t highest;
    std::int32_t lowest;
    double squares; ///< sum; exact for samples of up to 24 bits
};

namespace TARN_INSTRUCTION_SET
{

RowLevel measureRow(const std::int32_t (&row)[64]) noexcept;

} // namespace TARN_INSTRUCTION_SET

} // namespace zrk_tarn
