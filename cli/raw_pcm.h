#pragma once

#include "cli/audio_sink.h"
#include "cli/audio_source.h"

#include <string>
#include <vector>

namespace tarn
{

/// Stereo from standard input: interleaved signed little-endian PCM without a header.
class RawSource final : public AudioSource
{
public:
    explicit RawSource(StreamFormat format) noexcept : streamFormat(format) {}

    StreamFormat format() const noexcept override { return streamFormat; }
    std::optional<std::uint64_t> expectedFrames() const noexcept override { return std::nullopt; }
    FileIdentity identity() const noexcept override;
    std::vector<std::string> prepare(bool /*showProgress*/) override { return {}; }
    std::size_t read(std::int32_t* stereo, std::size_t capacity) override;
    bool canRewind() const noexcept override { return false; }
    void rewind() override;

    /// The bytes of a last frame that is not complete.
    std::optional<Loss> loss() const override;

private:
    /// Throws Failure if the first bytes are those of an audio file, which would be heard as a burst of noise.
    void refuseFileFormats() const;

    StreamFormat streamFormat;
    std::vector<std::uint8_t> bytes; ///< of the frames being read
    std::size_t partial = 0;         ///< bytes at its start that do not make a frame yet
    std::uint64_t position = 0;
};

/// Interleaved signed little-endian PCM without a header, to standard output.
class RawSink final : public AudioSink
{
public:
    /// Throws Failure (EX_USAGE) if standard output is a terminal.
    ///
    /// frameBytes  bytes of a frame
    explicit RawSink(std::size_t frameBytes);

    void write(const std::uint8_t* slots, std::size_t frames) override;
    void finish() override {}

private:
    std::size_t frameBytes;
};

} // namespace tarn
