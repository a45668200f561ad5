#pragma once

#include "cli/file_identity.h"
#include "cli/json.h"
#include "cli/metadata.h"
#include "cli/stream_format.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

constexpr int kExitIncomplete = 1;             ///< exit code: a second or more of an input is missing
constexpr double kNegligibleLossSeconds = 1.0; ///< less is a warning

/// Audio that a source should have had and has not.
struct Loss
{
    std::string message;           ///< what is missing, with the numbers, as the end of a sentence: "is cut short: ..."
    std::optional<double> seconds; ///< nothing if it is not known
    const char* advice;            ///< what to do: "get ..."

    bool isNegligible() const noexcept { return seconds && *seconds < kNegligibleLossSeconds; }
    Json json() const { return {{"message", message}, {"seconds", seconds ? Json(*seconds) : Json()}}; }
};

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
    virtual Metadata metadata() { return {}; }

    /// Does what has to be done with the whole source before its first frame can be read.
    ///
    /// Returns notes for the user.
    virtual std::vector<std::string> prepare(bool showProgress) = 0;

    /// Reads frames as pairs of left-justified 32-bit samples.
    ///
    /// stereo  [2 * capacity]  interleaved
    /// Returns how many, 1 to capacity; 0 at the end.
    virtual std::size_t read(std::int32_t* stereo, std::size_t capacity) = 0;

    /// Whether rewind works.
    virtual bool canRewind() const noexcept = 0;

    /// Begins again with the first frame. Throws Failure (EX_USAGE) where that cannot be.
    virtual void rewind() = 0;

    /// Samples of those read so far that were beyond full scale and are clipped.
    virtual std::uint64_t clippedSamples() const noexcept { return 0; }

    /// What is missing, after the last frame was read. Throws Failure (EX_DATAERR) if there was no audio at all.
    virtual std::optional<Loss> loss() const = 0;
};

} // namespace tarn
