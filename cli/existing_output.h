#pragma once

#include "cli/file_source.h"
#include "cli/upmix_command.h"

#include <cstdint>
#include <optional>

namespace tarn
{

/// What the output of an upmix will be, as far as the input's header tells.
struct ExpectedOutput
{
    std::uint32_t sampleRate;            ///< Hz
    std::optional<std::uint64_t> frames; ///< nothing where only reading the input tells
};

/// What an upmix of the input with the options will be.
ExpectedOutput expectedOutput(const UpmixOptions& options, const FileSource& input);

/// Whether OUTPUT exists and is a complete upmix of INPUT by its channels, rate and length. Samples are not compared.
///
/// Throws Failure: EX_USAGE if one of them is a stream, or OUTPUT exists, is not complete, and --force is not given;
/// what FileSource throws about INPUT. What OutputFile refuses for other reasons is left to it.
bool hasCompleteOutput(const UpmixOptions& options);

} // namespace tarn
