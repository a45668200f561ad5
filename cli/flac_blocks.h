// Converts the FLAC metadata blocks of the input for libFLAC's encoder.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/tags.h"

#include <memory>

#include <FLAC++/metadata.h>

namespace tarn
{

/// Converts a metadata block for libFLAC's encoder; null if the block is invalid.
std::unique_ptr<FLAC::Metadata::Prototype> flacMetadata(const FlacBlock& block);

} // namespace tarn
