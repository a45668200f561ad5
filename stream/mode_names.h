// The names of the steering modes and of the bass modes, for user interfaces.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_types.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace zrk_tarn
{

template <typename Mode>
struct ModeName
{
    Mode mode;
    const char* name;
};

inline constexpr ModeName<SteeringMode> kSteeringModeNames[] = {{SteeringMode::Fast, "fast"},
                                                                {SteeringMode::Calm, "calm"}};
inline constexpr ModeName<BassMode> kBassModeNames[] = {{BassMode::Steered, "steered"}, {BassMode::Fronts, "fronts"}};

constexpr const char* nameOf(SteeringMode mode) noexcept
{
    return kSteeringModeNames[static_cast<std::size_t>(mode)].name;
}

constexpr const char* nameOf(BassMode mode) noexcept
{
    return kBassModeNames[static_cast<std::size_t>(mode)].name;
}

/// The mode of a name; none for another text.
template <typename Mode, std::size_t kCount>
constexpr std::optional<Mode> modeNamed(const ModeName<Mode> (&names)[kCount], std::string_view name) noexcept
{
    for (const auto& [mode, modeName] : names)
        if (name == modeName) return mode;
    return std::nullopt;
}

} // namespace zrk_tarn
