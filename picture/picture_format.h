// The file formats of pictures.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace tarn
{

/// The file format of a picture.
enum class PictureFormat : std::uint8_t
{
    Png,
    Svg
};

} // namespace tarn
