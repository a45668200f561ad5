#pragma once

#include <cstdint>
#include <optional>

namespace tarn
{

/// How much audio a file's header promises, and how much of it is there.
struct AudioBytes
{
    std::uint64_t promised;
    std::uint64_t present;
};

/// Reads the size of the audio data in WAVE, RF64, W64, AIFF and AU files, where the decoder takes a file that ends
/// early for a shorter one.
///
/// descriptor  open for reading; its position stays where it is
/// Returns nothing for other containers, for headers without audio data, and for the sizes that programs write which
/// stream to a pipe and cannot know the length.
std::optional<AudioBytes> promisedAudio(int descriptor);

/// Whether the MPEG audio stream at a position begins with an index frame, which holds the number of its frames.
///
/// Without one, a decoder can only estimate it.
bool hasMpegIndex(int descriptor, std::uint64_t position);

} // namespace tarn
