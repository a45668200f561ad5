#pragma once

#include "cli/audio_sink.h"
#include "cli/file_identity.h"
#include "cli/layout.h"
#include "cli/metadata.h"
#include "cli/stream_format.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarn
{

/// A kind of file that the command writes, chosen by its extension.
struct Container
{
    std::string_view extension; ///< with its dot, lower case
    std::uint32_t maxBits;      ///< widest samples that it holds
};

/// The container of an output's name; throws Failure (EX_USAGE) if there is none.
const Container& containerOf(const std::string& path);

/// What an output file is to hold.
struct FileContents
{
    const Layout& layout;
    StreamFormat format;
    Metadata metadata{};
};

/// Creates an audio file whose header names the layout.
///
/// force  whether an existing file may be replaced
/// input  a file that is never replaced, if there is one
///
/// Throws Failure: EX_USAGE if the container does not hold samples of this width; what OutputFile throws.
std::unique_ptr<AudioSink> openFileSink(const std::string& path, bool force, std::optional<FileIdentity> input,
                                        const FileContents& contents);

} // namespace tarn
