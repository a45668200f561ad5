#pragma once

#include "cli/file_identity.h"
#include "cli/metadata.h"
#include "cli/stream_format.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// Where stereo comes from, frame after frame.
class AudioSource
{
public:
    virtual ~AudioSource() = default;

    /// Rate, and the width that an output has unless another is asked for.
    virtual StreamFormat format() const noexcept = 0;

    /// Frames to come, if that is known or can be guessed well enough for a progress bar.
    virtual std::optional<std::uint64_t> expectedFrames() const noexcept = 0;

    /// Which file the source reads.
    virtual FileIdentity identity() const noexcept = 0;

    /// What it says about the recording.
    virtual Metadata metadata() const { return {}; }

    /// What has to be done with the whole source before its first frame can be read.
    ///
    /// Returns a note for the user, or nothing.
    virtual std::string prepare(bool showProgress) = 0;

    /// Reads frames as pairs of left-justified 32-bit samples.
    ///
    /// stereo  [2 * capacity]  interleaved
    /// Returns how many, 1 to capacity; 0 at the end.
    virtual std::size_t read(std::int32_t* stereo, std::size_t capacity) = 0;

    /// Begins again with the first frame. Throws Failure (EX_USAGE) where that cannot be.
    virtual void rewind() = 0;

    /// Throws Failure (EX_DATAERR) if what was read up to the end is less than all that should have been there.
    virtual void verifyEnd() const = 0;
};

} // namespace tarn
