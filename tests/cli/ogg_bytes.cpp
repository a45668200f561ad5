// Splits and joins the pages of Ogg files.
// SPDX-License-Identifier: MIT
#include "tests/cli/ogg_bytes.h"

#include <algorithm>
#include <cstdint>

namespace tarn_cli
{

std::string withChecksum(std::string page)
{
    page.replace(22, 4, 4, '\0');
    std::uint32_t crc = 0;
    for (const char c : page) {
        crc ^= static_cast<std::uint32_t>(static_cast<unsigned char>(c)) << 24;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x7fffffff) << 1 ^ ((crc >> 31) != 0 ? 0x04c11db7u : 0u);
    }
    for (unsigned i = 0; i < 4; ++i) page[22 + i] = static_cast<char>(crc >> (8 * i));
    return page;
}

std::vector<std::string> pagesOf(const std::string& ogg)
{
    std::vector<std::string> pages;
    for (std::size_t begin = 0; begin < ogg.size(); begin += pages.back().size())
        pages.push_back(ogg.substr(begin, ogg.find("OggS", begin + 4) - begin));
    return pages;
}

std::string renumbered(const std::vector<std::string>& pages)
{
    std::string ogg;
    for (std::size_t i = 0; i < pages.size(); ++i) {
        std::string page = pages[i];
        for (unsigned k = 0; k < 4; ++k) page[18 + k] = static_cast<char>(i >> (8 * k));
        ogg += withChecksum(page);
    }
    return ogg;
}

std::size_t positionOf(const std::string& page)
{
    std::size_t position = 0;
    for (std::size_t i = 0; i < 8; ++i) position += std::size_t{static_cast<unsigned char>(page[6 + i])} << (8 * i);
    return position;
}

std::string withPosition(std::string page, std::size_t position)
{
    for (std::size_t i = 0; i < 8; ++i) page[6 + i] = static_cast<char>(position >> (8 * i));
    return page;
}

std::string withBitFlipped(std::string bytes, std::size_t position)
{
    bytes[position] = static_cast<char>(bytes[position] ^ 0x10);
    return bytes;
}

} // namespace tarn_cli
