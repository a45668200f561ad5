// Bytes as text.
// SPDX-License-Identifier: MIT
#include "cli/base64.h"

#include <cstddef>
#include <cstdint>

namespace tarn
{

std::string base64Of(const std::string& bytes)
{
    constexpr const char* kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto byte = [&](std::size_t at) {
            return at < bytes.size() ? std::uint32_t{static_cast<std::uint8_t>(bytes[at])} : 0u;
        };
        const std::uint32_t group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        for (std::size_t digit = 0; digit < 4; ++digit)
            text += i + digit <= bytes.size() ? kDigits[group >> (18 - 6 * digit) & 63] : '=';
    }
    return text;
}

} // namespace tarn
