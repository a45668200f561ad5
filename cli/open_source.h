// Opens the input of an upmix.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_source.h"
#include "cli/upmix_options.h"

#include <memory>
#include <optional>

namespace tarn
{

/// Opens the input at a rate of the engine.
///
/// raw  format of a raw stream on standard input, if it is one
std::unique_ptr<AudioSource> openSource(const UpmixOptions& options, const std::optional<StreamFormat>& raw);

} // namespace tarn
