// Block input and output for one instruction set.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// ZRKTarn::ReadInputChannels.
void readInputChannels(ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;

/// ReadInputChannels for a block of host integers in two rows.
void readRows(ZRKTarn& engine, const std::int32_t (&left)[64], const std::int32_t (&right)[64]) noexcept;

/// ZRKTarn::WriteOutput.
std::uint32_t writeOutput(const ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;

/// WriteOutput into three rows: front left, front right and centre as host integers.
void writeRows(const ZRKTarn& engine, std::int32_t (*rows)[64]) noexcept;

/// Converts the first frames samples of the three output rows from engine scale to host samples.
void convertOutput(ZRKTarn& engine, std::uint32_t frames) noexcept;

/// ZRKTarn::RemapOutput.
std::uint32_t remapOutput(const ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
