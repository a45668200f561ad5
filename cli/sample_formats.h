// Properties of libsndfile's format codes.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include <sndfile.h>

namespace tarn
{

/// Sample width of an integer format; 0 for floating-point and lossy formats.
std::uint32_t integerBits(int format) noexcept;

/// Bytes of a sample in the file; 0 for compressed formats.
std::uint64_t storedBytes(int format) noexcept;

/// libsndfile's name of a container or codec; "unknown" if it has none.
std::string formatName(int format);

inline bool isMpeg(const SF_INFO& info) noexcept
{
    return (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
}

inline bool isOgg(const SF_INFO& info) noexcept
{
    return (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG;
}

} // namespace tarn
