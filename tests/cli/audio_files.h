// Writes and reads audio files for the tests of the command.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sndfile.h>

namespace tarn_cli
{

/// Interleaved 32-bit samples, left-justified.
using Samples = std::vector<std::int32_t>;

/// An audio file in memory.
struct Audio
{
    SF_INFO info{};
    Samples samples;
};

/// Full-scale stereo noise, reproducible by seed. Both channels share half of their signal.
///
/// bits  sample width; lower bits are zero
Samples stereoNoise(std::size_t frames, unsigned bits, unsigned seed = 1);

/// Writes a file with libsndfile: format as in SF_FORMAT_WAV | SF_FORMAT_PCM_16.
void writeAudio(const std::string& path, int format, int sampleRate, int channels, const Samples& samples);

/// Writes a file of floating-point samples.
void writeFloats(const std::string& path, int format, int sampleRate, int channels, const std::vector<float>& samples);

/// Reads a whole file with libsndfile.
Audio readAudio(const std::string& path);

/// Reads a whole file with libsndfile as floating-point samples, which can exceed full scale.
std::vector<float> readFloats(const std::string& path);

/// Expects that every sample equals that of the complete file, or is silence in the middle third.
void expectSilenceInTheMiddle(const Samples& output, const Samples& whole);

/// Channel fields of the extensible format chunk of a WAV file.
struct WaveFormat
{
    std::uint16_t tag = 0;
    std::uint16_t channels = 0;
    std::uint32_t mask = 0;
};

/// Reads that chunk. All fields are zero if the file has none.
WaveFormat waveFormat(const std::string& path);

/// Converts samples to little-endian PCM of a width.
std::string pcmOf(const Samples& samples, unsigned bits);

} // namespace tarn_cli
