// Raw PCM on standard input and standard output.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/audio_source.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tarn
{

/// Reads stereo from standard input: interleaved signed little-endian PCM without a header.
class RawSource final : public AudioSource
{
public:
    /// Gets all bytes of the stream as they arrive, those of an incomplete last frame too.
    using Receiver = std::function<void(const std::uint8_t* bytes, std::size_t count)>;

    /// receiver  can be empty
    explicit RawSource(StreamFormat format, Receiver bytesReceiver = {})
        : streamFormat(format), receiver(std::move(bytesReceiver))
    {}

    StreamFormat format() const noexcept override { return streamFormat; }
    std::optional<std::uint64_t> expectedFrames() const noexcept override { return std::nullopt; }
    FileIdentity identity() const noexcept override;
    std::vector<std::string> prepare(bool /*showProgress*/, PeakPlan /*plan*/) override { return {}; }
    std::size_t read(std::int32_t* stereo, std::size_t capacity) override;
    bool canRewind() const noexcept override { return false; }
    void rewind() override;

    /// Reports the bytes of an incomplete last frame.
    std::optional<Loss> loss() const override;

private:
    /// Throws Failure if the first bytes are those of an audio file, which would sound as noise.
    void refuseFileFormats() const;

    StreamFormat streamFormat;
    Receiver receiver;
    std::vector<std::uint8_t> bytes; ///< input buffer
    std::size_t partial = 0;         ///< buffered bytes of an incomplete frame
    std::uint64_t position = 0;
};

/// Throws Failure (EX_USAGE) if standard output is a terminal.
void refuseTerminalForAudio();

/// Writes all bytes. Throws Failure (EX_IOERR) and Interrupted.
void writeToStandardOutput(const std::uint8_t* bytes, std::size_t count);

/// Writes interleaved signed little-endian PCM without a header to standard output.
class RawSink final : public AudioSink
{
public:
    /// Throws Failure (EX_USAGE) if standard output is a terminal.
    RawSink(std::size_t slotsPerFrame, StreamFormat streamFormat);

    void write(const std::int32_t* samples, std::size_t frames) override;
    void finish() override {}

private:
    std::size_t slots;
    StreamFormat format;
    std::vector<std::uint8_t> bytes; ///< packed frames
};

} // namespace tarn
