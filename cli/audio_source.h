// The interface of all audio inputs.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/file_identity.h"
#include "cli/loss.h"
#include "cli/metadata.h"
#include "cli/stream_format.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// Bits of headroom of samples that keep their peaks: full scale is 2^(31 - kHeadroomBits), and samples up to 24 dB
/// above it fit. Their precision is still 27 bits.
constexpr int kHeadroomBits = 4;

/// What a source does with samples beyond full scale, which lossy and floating-point formats and rate conversion have.
struct PeakPlan
{
    bool keep = false; ///< use kHeadroomBits; otherwise one gain scales the whole source down
    std::optional<double> sharedPeak =
        {};                    ///< without keep: peak of all files of the run; none: find that of the source
    bool canStartOver = false; ///< do not look for that peak before a sample is above full scale; see AboveFullScale
};

/// Thrown by read for a sample above full scale, if the plan says canStartOver. Then prepare without canStartOver finds
/// the peak of the rest and returns to the first frame.
struct AboveFullScale
{};

/// Provides stereo frame by frame.
class AudioSource
{
public:
    virtual ~AudioSource() = default;

    /// Rate, and the default width of the output.
    virtual StreamFormat format() const noexcept = 0;

    /// Number of frames, if known or estimated; for the progress bar.
    virtual std::optional<std::uint64_t> expectedFrames() const noexcept = 0;

    /// Identity of the file that the source reads.
    virtual FileIdentity identity() const noexcept = 0;

    /// Tags and other descriptions of the recording.
    virtual Metadata metadata() { return {}; }

    /// Whether reading takes much of the time of an upmix, as decoding of compressed formats and rate conversion do,
    /// and never waits for a program that sends the samples. Such a source is read on a thread of its own.
    virtual bool isSlow() const noexcept { return false; }

    /// Whether samples can be beyond full scale, so that the plan of prepare has an effect.
    virtual bool canExceedFullScale() const noexcept { return false; }

    /// Analyses the whole source where needed. Call it before the first read, and after AboveFullScale.
    ///
    /// Returns notes for the user.
    virtual std::vector<std::string> prepare(bool showProgress, PeakPlan plan) = 0;

    /// Headroom of the samples that read returns: 0 or, if prepare says so, kHeadroomBits.
    virtual int headroomBits() const noexcept { return 0; }

    /// The factor by which prepare scales the source down; 1: not at all.
    virtual double scale() const noexcept { return 1.0; }

    /// Reads frames as pairs of left-justified 32-bit samples.
    ///
    /// stereo  [2 * capacity]  interleaved
    /// Returns the number of frames, 1 to capacity; 0 at the end. Throws AboveFullScale.
    virtual std::size_t read(std::int32_t* stereo, std::size_t capacity) = 0;

    /// Whether rewind works.
    virtual bool canRewind() const noexcept = 0;

    /// Returns to the first frame. Throws Failure (EX_USAGE) if the source cannot be read twice.
    virtual void rewind() = 0;

    /// Samples read so far that were beyond full scale and the headroom, and are clipped.
    virtual std::uint64_t clippedSamples() const noexcept { return 0; }

    /// Missing audio; valid after the last frame was read. Throws Failure (EX_DATAERR) if the source has no audio.
    virtual std::optional<Loss> loss() const = 0;
};

} // namespace tarn
