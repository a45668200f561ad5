// Checks for --skip-existing whether an output is complete.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_source.h"
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

/// What --skip-existing finds out about OUTPUT.
struct ExistingOutput
{
    bool isComplete = false;    ///< it has the channels, rate and length of an upmix of INPUT
    std::optional<Loss> loss{}; ///< missing or damaged audio of INPUT, as far as it was looked for
};

/// Compares OUTPUT with INPUT. Does not compare samples.
///
/// If the length of OUTPUT is the one that INPUT declares, INPUT is only read with --strict. Otherwise INPUT is read to
/// its end, which also finds its losses.
///
/// Throws Failure: EX_USAGE if one of them is a stream, or OUTPUT exists, is incomplete, and --force is not given; also
/// what FileSource throws about INPUT. OutputFile checks the rest.
ExistingOutput findExistingOutput(const UpmixOptions& options);

} // namespace tarn
