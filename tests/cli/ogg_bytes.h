// Splits and joins the pages of Ogg files.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tarn_cli
{

/// Sets the checksum of an Ogg page: a 32-bit CRC with initial value 0 over the page with a zero checksum field.
std::string withChecksum(std::string page);

/// Splits an Ogg file into pages.
std::vector<std::string> pagesOf(const std::string& ogg);

/// Joins pages into an Ogg file, with page numbers from 0 and new checksums.
std::string renumbered(const std::vector<std::string>& pages);

/// Granule position of a page.
std::size_t positionOf(const std::string& page);

/// Replaces the granule position of a page. The checksum becomes invalid.
std::string withPosition(std::string page, std::size_t position);

/// Flips one bit.
std::string withBitFlipped(std::string bytes, std::size_t position);

} // namespace tarn_cli
