// The passes of one upmix: with and without headroom, and with matched loudness.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/audio_source.h"
#include "cli/layout.h"
#include "cli/stream_format.h"
#include "cli/upmix_options.h"
#include "cli/upmix_report.h"
#include "cli/upmixer.h"
#include "cli/wrap_counter.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace tarn
{

/// What the passes of one upmix work on.
struct UpmixJob
{
    const UpmixOptions& options;
    const Layout& layout;
    StreamFormat format; ///< of the output
    const EngineSettings& settings;
    AudioSource& source;
    WrapCounter* wraps;  ///< null if no sample can wrap
    UpmixReport& report; ///< gets gain, peaks, loudness and length

    /// Gets all frames of the source, stereo with this headroom; can be empty.
    std::function<void(const std::int32_t* stereo, std::size_t frames, int headroomBits)> inspect{};
};

/// Headroom of the samples between source and gain: kHeadroomBits if the loudness is matched, or if a limiter follows a
/// source with samples beyond full scale; else 0. Never in bypass and in layouts that keep samples as they are.
int headroomBitsOf(const UpmixOptions& options, const Layout& layout, const zrk_tarn::RoomSettings& room,
                   const AudioSource& source);

/// Whether a gain depends on the file, unless a common level replaces it: with --loudness-match, and where samples
/// above full scale scale a file down.
bool hasGainPerFile(const UpmixOptions& options);

/// Upmixes the whole prepared source into a sink, which the caller finishes.
///
/// Throws Failure: EX_DATAERR if the loudness cannot be matched or the source has samples that are not numbers;
/// EX_IOERR if a temporary file cannot be written or read.
void upmixInto(AudioSink& output, const UpmixJob& job);

/// Measures the loudness of source and upmix at unity gain, as if the source was not scaled down. output is 0.
LoudnessReport measureLoudness(const UpmixJob& job);

} // namespace tarn
