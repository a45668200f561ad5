// Finds the gain that makes a stored upmix as loud as its source.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/gain_stage.h"
#include "cli/json_type.h"
#include "cli/layout.h"
#include "cli/row_store.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace tarn
{

/// Integrated loudness, LUFS.
struct LoudnessReport
{
    double input;
    double atUnityGain; ///< of the output before gain and limiter
    double output;

    /// LU by which the output is softer than the input; 0 if it is not, or if one is silent.
    double shortfall() const noexcept
    {
        const double difference = input - output;
        return std::isfinite(difference) ? std::max(difference, 0.0) : 0.0;
    }
};

/// An upmix at unity gain that gets the loudness of its source.
struct StoredUpmix
{
    std::string name; ///< of the source, in notes
    const RowStore& rows;
    const Layout& layout;
    StreamFormat format; ///< of the output
    OutputLevel level;   ///< its gain is not used
    bool isQuiet = false;
    bool showsProgress = false;
};

/// Loudness and peaks of an upmix at a gain.
struct ReplayedUpmix
{
    double loudness; ///< LUFS
    PeakCounts peaks;
};

/// Throws Failure (EX_DATAERR) if a gain that matches the loudness is larger than the maximum.
void checkMatchingGain(const std::string& name, double gainDb);

/// Writes the upmix at a gain.
///
/// label   of the progress bar
/// output  null to measure only
ReplayedUpmix replay(const StoredUpmix& upmix, const char* label, double gainDb, AudioSink* output);

/// The gain in dB that makes the upmix as loud as its source, behind the limiter too. Prints a note and returns 0 if
/// one of them is too quiet to be measured.
///
/// loudness  its output is not used
/// Throws as checkMatchingGain does.
double matchingGainDb(const StoredUpmix& upmix, const LoudnessReport& loudness);

/// Prints the loudness of an output and of its source.
void printLoudness(const std::string& output, const LoudnessReport& loudness, double gainDb);

/// Prints a note if the limiter keeps an output audibly softer than its source.
void printShortfall(const std::string& output, const LoudnessReport& loudness);

/// The entry of --json.
Json jsonOf(const LoudnessReport& loudness);

} // namespace tarn
