// Decodes UTF-8 or Windows-1252.
// SPDX-License-Identifier: MIT
#include "cli/utf8.h"

#include "cli/text.h"

#include <array>

#include <tstring.h>

namespace tarn
{

namespace
{

/// Code points of Windows-1252 for 0x80 to 0x9f; its five undefined bytes are those of ISO 8859-1. All other bytes
/// equal their code points.
constexpr std::array<wchar_t, 32> kWindows1252{
    0x20ac, 0x0081, 0x201a, 0x0192, 0x201e, 0x2026, 0x2020, 0x2021, 0x02c6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008d, 0x017d, 0x008f, 0x0090, 0x2018, 0x2019, 0x201c, 0x201d, 0x2022,
    0x2013, 0x2014, 0x02dc, 0x2122, 0x0161, 0x203a, 0x0153, 0x009d, 0x017e, 0x0178,
};

} // namespace

std::string toUtf8(const std::string& bytes)
{
    if (isUtf8(bytes)) return bytes;
    std::wstring text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += byte >= 0x80 && byte < 0xa0 ? kWindows1252[byte - 0x80u] : static_cast<wchar_t>(byte);
    }
    return TagLib::String(text).to8Bit(true);
}

} // namespace tarn
