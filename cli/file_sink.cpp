// Chooses WAV or FLAC by the extension of the output.
// SPDX-License-Identifier: MIT
#include "cli/file_sink.h"

#include "cli/extension.h"
#include "cli/failure.h"
#include "cli/flac_sink.h"
#include "cli/threaded_sink.h"
#include "cli/wave_sink.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tarn
{

namespace
{

constexpr Container kWave{.extension = ".wav", .maxBits = 32};
constexpr Container kFlac{.extension = ".flac", .maxBits = 24};

} // namespace

const Container& containerOf(const std::string& path)
{
    const std::string extension = extensionOf(path);
    for (const Container* const container : {&kWave, &kFlac})
        if (container->extension == extension) return *container;
    throw Failure(EX_USAGE, path + ": has no extension of a supported output format; end the name in .wav or "
                                   ".flac");
}

std::unique_ptr<AudioSink> openFileSink(const std::string& path, bool force, std::optional<FileIdentity> input,
                                        const FileContents& contents)
{
    const Container& container = containerOf(path);
    if (contents.format.bits > container.maxBits)
        throw Failure(EX_USAGE, path + ": FLAC cannot hold samples of " + std::to_string(contents.format.bits) +
                                    " bits; add --bits 24, or write a .wav file");
    if (&container == &kWave) return std::make_unique<WaveSink>(path, force, input, contents);
    auto encoder = std::make_unique<FlacSink>(path, force, input, contents);
    return std::make_unique<ThreadedSink>(std::move(encoder), contents.layout.slots);
}

} // namespace tarn
