// Reads and writes raw PCM through pipes.
// SPDX-License-Identifier: MIT
#include "cli/raw_pcm.h"

#include "cli/error_advice.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string_view>

#include <poll.h>
#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::size_t kChannels = 2;

/// Whether a failed read or write can be retried.
bool isTransient(int error) noexcept
{
    return error == EINTR || error == EAGAIN || error == EWOULDBLOCK;
}

} // namespace

FileIdentity RawSource::identity() const noexcept
{
    return identityOf(STDIN_FILENO);
}

std::size_t RawSource::read(std::int32_t* stereo, std::size_t capacity)
{
    const std::uint32_t sampleBytes = streamFormat.bytesPerSample();
    const std::size_t frameBytes = kChannels * sampleBytes;
    bytes.resize(capacity * frameBytes);

    // A slow pipe delivers a few frames at a time; they are processed at once.
    while (partial < frameBytes) {
        waitUntilReady(STDIN_FILENO, POLLIN);
        const ssize_t got = ::read(STDIN_FILENO, bytes.data() + partial, bytes.size() - partial);
        if (got == 0) return 0;
        if (got > 0) {
            partial += static_cast<std::size_t>(got);
            if (position == 0) refuseFileFormats();
            if (receiver) receiver(&bytes[partial - static_cast<std::size_t>(got)], static_cast<std::size_t>(got));
        } else if (!isTransient(errno)) {
            throw Failure(EX_IOERR, "standard input: reading failed: " + systemError(errno));
        }
    }

    const std::size_t frames = partial / frameBytes;
    for (std::size_t i = 0; i < frames * kChannels; ++i)
        stereo[i] = loadLeftJustified(bytes.data() + i * sampleBytes, sampleBytes);
    const auto used = static_cast<std::ptrdiff_t>(frames * frameBytes);
    std::copy(bytes.begin() + used, bytes.begin() + static_cast<std::ptrdiff_t>(partial), bytes.begin());
    partial -= frames * frameBytes;
    position += frames;
    return frames;
}

void RawSource::refuseFileFormats() const
{
    for (const std::string_view mark : {"RIFF", "RF64", "FORM", "fLaC", "OggS", "caff"})
        if (partial >= mark.size() && std::equal(mark.begin(), mark.end(), bytes.begin()))
            throw Failure(EX_DATAERR, "standard input: begins with '" + std::string(mark) +
                                          "', so it is an audio file and not raw PCM; leave --raw out");
}

void RawSource::rewind()
{
    throw Failure(EX_USAGE, "standard input: cannot be read twice; name a file instead of '-'");
}

std::optional<Loss> RawSource::loss() const
{
    if (position == 0)
        throw Failure(EX_DATAERR, "standard input: contains no audio: 0 frames; check the command before the pipe");
    if (partial == 0) return std::nullopt;
    const auto frameBytes = static_cast<double>(kChannels * streamFormat.bytesPerSample());
    return Loss{.message = "ends inside a frame: " + std::to_string(partial) + (partial == 1 ? " byte" : " bytes") +
                           " after " + std::to_string(position) + " frames (" +
                           durationText(position, streamFormat.sampleRate) +
                           (partial == 1 ? ") is lost" : ") are lost"),
                .seconds = static_cast<double>(partial) / frameBytes / streamFormat.sampleRate,
                .advice = "check that --raw has the rate and the width of the stream, and that it is stereo"};
}

void refuseTerminalForAudio()
{
    if (isatty(STDOUT_FILENO) != 0)
        throw Failure(EX_USAGE, "standard output: is a terminal, which cannot show raw PCM; pipe it into a program, "
                                "or name a file");
}

RawSink::RawSink(std::size_t slotsPerFrame, StreamFormat streamFormat) : slots(slotsPerFrame), format(streamFormat)
{
    refuseTerminalForAudio();
}

void writeToStandardOutput(const std::uint8_t* bytes, std::size_t count)
{
    while (count > 0) {
        waitUntilReady(STDOUT_FILENO, POLLOUT);
        // A pipe that is ready accepts PIPE_BUF bytes without blocking.
        const ssize_t written = ::write(STDOUT_FILENO, bytes, std::min<std::size_t>(count, PIPE_BUF));
        if (written >= 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        } else if (const int error = errno; !isTransient(error)) {
            throwIfInterrupted();
            throw Failure(EX_IOERR, "standard output: writing failed: " + systemError(error) + "; " +
                                        adviceFor(error, "check the program or the disk that receives it"));
        }
    }
}

void RawSink::write(const std::int32_t* samples, std::size_t frames)
{
    const std::uint32_t sampleBytes = format.bytesPerSample();
    bytes.resize(frames * slots * sampleBytes);
    for (std::size_t i = 0; i < frames * slots; ++i)
        storePcm(&bytes[i * sampleBytes], samples[i] >> (32 - format.bits), sampleBytes);

    writeToStandardOutput(bytes.data(), bytes.size());
}

} // namespace tarn
