#pragma once

#include "engine/zrk_tarn.h"

#include <cstdint>

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

/// ZRKTarn::ProcessCine3 for one instruction set.
void processCine3(ZRKTarn& engine, std::uint32_t frames, std::uint32_t channels) noexcept;

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
