// The names of the bass modes, for user interfaces.
// SPDX-License-Identifier: MIT
#pragma once

#include "stream/stream_types.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace zrk_tarn
{

struct BassModeName
{
    BassMode mode;
    const char* name;
};

inline constexpr BassModeName kBassModeNames[] = {{BassMode::Steered, "steered"}, {BassMode::Fronts, "fronts"}};

constexpr const char* nameOf(BassMode mode) noexcept
{
    return kBassModeNames[static_cast<std::size_t>(mode)].name;
}

/// The mode of a name; none for another text.
constexpr std::optional<BassMode> bassModeNamed(std::string_view name) noexcept
{
    for (const auto& [mode, modeName] : kBassModeNames)
        if (name == modeName) return mode;
    return std::nullopt;
}

} // namespace zrk_tarn
