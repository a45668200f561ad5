#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tarn_cli
{

/// A page of Ogg with its checksum: a CRC of 32 bits that begins with zero, over the page without it.
std::string withChecksum(std::string page);

/// The pages of an Ogg file.
std::vector<std::string> pagesOf(const std::string& ogg);

/// An Ogg file of pages, numbered from 0 and with their checksums.
std::string renumbered(const std::vector<std::string>& pages);

/// The position that a page states.
std::size_t positionOf(const std::string& page);

/// A page that states another position; its checksum is wrong then.
std::string withPosition(std::string page, std::size_t position);

/// The same bytes with one bit changed.
std::string withBitFlipped(std::string bytes, std::size_t position);

} // namespace tarn_cli
