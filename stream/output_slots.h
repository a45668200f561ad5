// Short names for the sources of output slots, for tables of layouts.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_types.h"

#include <cstdint>

namespace zrk_tarn
{

constexpr OutputSlot engine(std::uint8_t output) noexcept
{
    return {OutputSlot::Source::Engine, output};
}

constexpr OutputSlot surround(std::uint8_t channel) noexcept
{
    return {OutputSlot::Source::Surround, channel};
}

constexpr OutputSlot dialogue(std::uint8_t side) noexcept
{
    return {OutputSlot::Source::Dialogue, side};
}

inline constexpr OutputSlot kLfe{OutputSlot::Source::Lfe, 0};

} // namespace zrk_tarn
