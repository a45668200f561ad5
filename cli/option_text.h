// The options that change the samples of an output, as a text to compare.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/upmix_options.h"
#include "stream/presets.h"

#include <optional>
#include <string>

namespace tarn
{

/// A number without loss, as short as possible.
std::string exactText(double value);

/// A number, or "auto" without one.
template <typename Number>
std::string textOrAuto(const std::optional<Number>& value)
{
    return value ? std::to_string(*value) : "auto";
}

/// The settings behind the options for centre, surround channels and level: "gain=3 limiter=on ...".
std::string textOf(const zrk_tarn::RoomSettings& settings);

/// All options of an upmix that change its samples, with the matrix of a remap file: "layout=3.0 mode=fast ...".
///
/// Different options with the same effect, such as a preset and its settings, have the same text. Throws what
/// readRemapFile throws.
std::string optionText(const UpmixOptions& options);

} // namespace tarn
