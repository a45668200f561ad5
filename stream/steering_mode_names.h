// The names of the steering modes, for user interfaces.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_types.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace zrk_tarn
{

struct SteeringModeName
{
    SteeringMode mode;
    const char* name;
};

inline constexpr SteeringModeName kSteeringModeNames[] = {{SteeringMode::Fast, "fast"}, {SteeringMode::Calm, "calm"}};

constexpr const char* nameOf(SteeringMode mode) noexcept
{
    return kSteeringModeNames[static_cast<std::size_t>(mode)].name;
}

/// The mode of a name; none for another text.
constexpr std::optional<SteeringMode> steeringModeNamed(std::string_view name) noexcept
{
    for (const auto& [mode, modeName] : kSteeringModeNames)
        if (name == modeName) return mode;
    return std::nullopt;
}

} // namespace zrk_tarn
