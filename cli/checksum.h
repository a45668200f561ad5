// A checksum of a text that is the same on every machine.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

namespace tarn
{

/// FNV-1a, 32 bits.
constexpr std::uint32_t checksumOf(std::string_view text) noexcept
{
    std::uint64_t hash = 2166136261u;
    for (const char c : text) hash = ((hash ^ static_cast<unsigned char>(c)) * 16777619u) & 0xffffffffu;
    return static_cast<std::uint32_t>(hash);
}

} // namespace tarn
