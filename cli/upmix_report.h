// The result of one upmix, printed as notes or as JSON.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_source.h"
#include "cli/json_type.h"
#include "cli/layout.h"
#include "cli/level_sink.h"
#include "cli/loudness_match.h"
#include "cli/stream_format.h"
#include "cli/upmix_options.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <sysexits.h>

namespace tarn
{

/// The result of one upmix.
struct UpmixReport
{
    const Layout* layout = nullptr;
    StreamFormat format{};
    std::uint64_t frames = 0;
    std::uint32_t delayFrames = 0; ///< of the output against the input
    zrk_tarn::RoomSettings room{};
    bool bypass = false;
    double speed = 0.0;                       ///< times real time
    double inputScaleDb = 0.0;                ///< by which the input was scaled, because its peak is above full scale
    int inputHeadroomBits = 0;                ///< that the input had for samples beyond full scale
    std::uint64_t clippedInput = 0;           ///< samples of the input beyond full scale and headroom
    std::uint64_t clipped = 0;                ///< samples beyond full scale behind the gain
    std::uint64_t limitedBlocks = 0;          ///< blocks of 64 frames in which the limiter had an effect
    double limiterGain = 1.0;                 ///< smallest gain of the limiter
    std::optional<Loss> loss{};               ///< missing or damaged audio of the input
    std::uint64_t wrapped = 0;                ///< samples that wrapped around in the remap mix
    std::vector<ChannelLevel> levels{};       ///< by slot; only with --json
    std::optional<LoudnessReport> loudness{}; ///< only with --loudness-match
    bool skipped = false;                     ///< the output was complete already

    /// EX_OK, or kExitIncomplete.
    int exitCode() const noexcept { return loss && !loss->isNegligible() ? kExitIncomplete : EX_OK; }
};

/// Prints a warning if a part of the input is missing or damaged.
void printLoss(const UpmixOptions& options, const UpmixReport& report);

/// Prints a warning if samples of the input were clipped.
void printClippedInput(const UpmixOptions& options, const UpmixReport& report);

/// Prints the result as notes.
///
/// warnings  about the output
void printReport(const UpmixOptions& options, const UpmixReport& report, const std::vector<std::string>& warnings);

/// The exit code and the loss, as the report has them; an empty object without a loss.
Json lossOf(const UpmixReport& report);

/// The report that --json prints.
Json jsonOf(const UpmixOptions& options, const UpmixReport& report);

} // namespace tarn
