// Checks for --skip-existing whether an output is complete.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/file_source.h"
#include "cli/upmix_options.h"

#include <cstdint>
#include <optional>

namespace tarn
{

/// The format of an output, as far as the header of the input declares it.
struct ExpectedOutput
{
    std::uint32_t sampleRate;            ///< Hz
    std::optional<std::uint64_t> frames; ///< none if the header does not declare the length
};

/// The format that an upmix of the input will have.
ExpectedOutput expectedOutput(const UpmixOptions& options, const FileSource& input);

/// Whether OUTPUT exists and has the channels, rate and length of an upmix of INPUT. Does not compare samples.
///
/// Throws Failure: EX_USAGE if one of them is a stream, or OUTPUT exists, is incomplete, and --force is not given; also
/// what FileSource throws about INPUT. OutputFile checks the rest.
bool hasCompleteOutput(const UpmixOptions& options);

} // namespace tarn
