#pragma once

#include "cli/tags.h"

#include <memory>

#include <FLAC++/metadata.h>

namespace tarn
{

/// A metadata block for libFLAC's encoder; null if it is not valid.
std::unique_ptr<FLAC::Metadata::Prototype> flacMetadata(const FlacBlock& block);

} // namespace tarn
