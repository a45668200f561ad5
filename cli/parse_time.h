// Times on the command line.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tarn
{

/// Reads a time in seconds, 90 or 1.5, or with minutes and hours, 1:30 or 1:02:03.5. None for other texts.
std::optional<double> parseTime(const std::string& text);

/// The number of frames in a time that parseTime reads.
std::uint64_t framesOf(const std::string& time, std::uint32_t sampleRate);

} // namespace tarn
