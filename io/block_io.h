// Block input and output for one instruction set.
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/zrk_tarn.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// ZRKTarn::ReadInputChannels.
void readInputChannels(ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;

/// ZRKTarn::WriteOutput.
std::uint32_t writeOutput(const ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;

/// Converts the first frames samples of the three output rows from engine scale to host samples.
void convertOutput(ZRKTarn& engine, std::uint32_t frames) noexcept;

/// ZRKTarn::RemapOutput.
std::uint32_t remapOutput(const ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
