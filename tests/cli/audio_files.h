#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sndfile.h>

namespace tarn_cli
{

/// Left-justified 32-bit samples, interleaved.
using Samples = std::vector<std::int32_t>;

/// An audio file in memory.
struct Audio
{
    SF_INFO info{};
    Samples samples;
};

/// Stereo noise of full scale, the same for the same seed; the sides share half of their signal.
///
/// bits  width; the bits below it are zero
Samples stereoNoise(std::size_t frames, unsigned bits, unsigned seed = 1);

/// Writes a file with libsndfile: format as in SF_FORMAT_WAV | SF_FORMAT_PCM_16.
void writeAudio(const std::string& path, int format, int sampleRate, int channels, const Samples& samples);

/// Writes a file of floating-point samples.
void writeFloats(const std::string& path, int format, int sampleRate, int channels, const std::vector<float>& samples);

/// Reads a whole file with libsndfile.
Audio readAudio(const std::string& path);

/// Reads a whole file with libsndfile as floating-point samples, which may lie above full scale.
std::vector<float> readFloats(const std::string& path);

/// What a WAVE file says of its channels in its extensible format chunk.
struct WaveFormat
{
    std::uint16_t tag = 0;
    std::uint16_t channels = 0;
    std::uint32_t mask = 0;
};

/// Reads that chunk; all zero where the file has none.
WaveFormat waveFormat(const std::string& path);

/// Samples as little-endian PCM of a width.
std::string pcmOf(const Samples& samples, unsigned bits);

} // namespace tarn_cli
