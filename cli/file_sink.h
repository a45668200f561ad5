// Creates the output file for a file name.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/file_identity.h"
#include "cli/layout.h"
#include "cli/metadata.h"
#include "cli/output_file.h"
#include "cli/stream_format.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarn
{

/// A file format that the command writes, chosen by its extension.
struct Container
{
    std::string_view extension; ///< with the dot, lower case
    std::uint32_t maxBits;      ///< maximum sample width
};

/// The container for the name of an output. Throws Failure (EX_USAGE) if the extension is unknown.
const Container& containerOf(const std::string& path);

/// What an output file holds.
struct FileContents
{
    const Layout& layout;
    StreamFormat format;
    Metadata metadata{};
    NamingHook beforeNaming{}; ///< can be empty
};

/// Creates an audio file whose header declares the layout.
///
/// force  whether an existing file may be replaced
/// input  a file that must not be replaced, if any
///
/// Throws Failure: EX_USAGE if the container does not support samples of this width; also what OutputFile throws.
std::unique_ptr<AudioSink> openFileSink(const std::string& path, bool force, std::optional<FileIdentity> input,
                                        const FileContents& contents);

} // namespace tarn
