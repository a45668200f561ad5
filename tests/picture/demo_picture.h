// The demo scene, upmixed and analysed.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/picture_sink.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace tarn_picture
{

/// Frames of the parts of the scene: 3 s each, 0.2 s apart.
inline constexpr std::uint32_t kSceneRate = 48000;
inline constexpr std::size_t kPartFrames = 144000;
inline constexpr std::size_t kPartDistance = 153600;

/// Upmixes the demo scene with the default preset and analyses the outputs.
std::unique_ptr<tarn::PictureSink> analysedScene(const std::string& layout);

} // namespace tarn_picture
