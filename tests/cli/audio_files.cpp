// Writes and reads audio files for the tests of the command.
// SPDX-License-Identifier: MIT
#include "tests/cli/audio_files.h"

#include "tests/cli/command.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <stdexcept>

namespace tarn_cli
{

namespace
{

SNDFILE* openForWriting(const std::string& path, int format, int sampleRate, int channels)
{
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = format;
    SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) throw std::runtime_error("cannot write " + path + ": " + sf_strerror(nullptr));
    return file;
}

} // namespace

Samples stereoNoise(std::size_t frames, unsigned bits, unsigned seed)
{
    std::mt19937 engine(seed);
    const auto half = [&engine] { return static_cast<std::int32_t>(engine()) / 2; };
    const auto mask = ~((std::uint32_t{1} << (32 - bits)) - 1);
    Samples samples;
    for (std::size_t i = 0; i < frames; ++i) {
        const std::int32_t common = half();
        for (int side = 0; side < 2; ++side)
            samples.push_back(static_cast<std::int32_t>(static_cast<std::uint32_t>(common + half()) & mask));
    }
    return samples;
}

void writeAudio(const std::string& path, int format, int sampleRate, int channels, const Samples& samples)
{
    SNDFILE* const file = openForWriting(path, format, sampleRate, channels);
    const auto count = static_cast<sf_count_t>(samples.size());
    const bool written = sf_write_int(file, samples.data(), count) == count;
    if (sf_close(file) != 0 || !written) throw std::runtime_error("cannot write " + path);
}

void writeFloats(const std::string& path, int format, int sampleRate, int channels, const std::vector<float>& samples)
{
    SNDFILE* const file = openForWriting(path, format, sampleRate, channels);
    const auto count = static_cast<sf_count_t>(samples.size());
    const bool written = sf_write_float(file, samples.data(), count) == count;
    if (sf_close(file) != 0 || !written) throw std::runtime_error("cannot write " + path);
}

std::vector<float> readFloats(const std::string& path)
{
    SF_INFO info{};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) throw std::runtime_error("cannot read " + path + ": " + sf_strerror(nullptr));
    std::vector<float> samples(static_cast<std::size_t>(info.frames * info.channels));
    const auto count = static_cast<sf_count_t>(samples.size());
    const bool read = sf_read_float(file, samples.data(), count) == count;
    sf_close(file);
    if (!read) throw std::runtime_error("cannot read all of " + path);
    return samples;
}

Audio readAudio(const std::string& path)
{
    Audio audio;
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &audio.info);
    if (file == nullptr) throw std::runtime_error("cannot read " + path + ": " + sf_strerror(nullptr));
    audio.samples.resize(static_cast<std::size_t>(audio.info.frames * audio.info.channels));
    const auto count = static_cast<sf_count_t>(audio.samples.size());
    const bool read = sf_read_int(file, audio.samples.data(), count) == count;
    sf_close(file);
    if (!read) throw std::runtime_error("cannot read all of " + path);
    return audio;
}

void expectSilenceInTheMiddle(const Samples& output, const Samples& whole)
{
    ASSERT_EQ(output.size(), whole.size());
    std::size_t silent = 0;
    for (std::size_t i = 0; i < output.size(); ++i) {
        if (output[i] == whole[i]) continue;
        ASSERT_EQ(output[i], 0) << i;
        EXPECT_TRUE(i > output.size() / 3 && i < output.size() * 2 / 3) << i;
        ++silent;
    }
    EXPECT_GT(silent, 0u);
}

WaveFormat waveFormat(const std::string& path)
{
    WaveFormat format;
    const std::string bytes = bytesOf(path);
    const std::size_t chunk = bytes.find("fmt ");
    if (bytes.substr(0, 4) != "RIFF" || chunk == std::string::npos || bytes.size() < chunk + 32) return format;
    std::memcpy(&format.tag, bytes.data() + chunk + 8, 2);
    std::memcpy(&format.channels, bytes.data() + chunk + 10, 2);
    std::memcpy(&format.mask, bytes.data() + chunk + 28, 4);
    return format;
}

std::string pcmOf(const Samples& samples, unsigned bits)
{
    std::string bytes;
    for (const std::int32_t sample : samples)
        for (unsigned shift = 32 - bits; shift < 32; shift += 8)
            bytes.push_back(static_cast<char>(static_cast<std::uint32_t>(sample) >> shift));
    return bytes;
}

} // namespace tarn_cli
