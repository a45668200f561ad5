#pragma once

#include "cli/audio_source.h"
#include "cli/json.h"
#include "cli/layout.h"
#include "cli/level_sink.h"
#include "cli/upmixer.h"

#include <optional>
#include <string>
#include <vector>

#include <sysexits.h>

namespace tarn
{

/// What `tarn upmix` was asked for.
struct UpmixOptions
{
    std::string input;                 ///< a file, or - for standard input
    std::string output;                ///< a file, or - for standard output
    std::string layout = "3.0";        ///< name of a layout
    std::string remapFile;             ///< empty: none
    std::optional<std::uint32_t> bits; ///< width of the output
    std::optional<std::string> raw;    ///< RATE:BITS of the stream on -
    std::optional<std::uint32_t> rate; ///< of the output, Hz; by default the input's, or the next that the engine has
    bool strict = false;               ///< a damaged input is refused
    int mode = 1;
    float mixFraction = 1.0f;
    std::optional<double> gainDb;
    bool loudnessMatch = false;
    bool bypass = false;
    bool noAlign = false;
    bool force = false;
    bool skipExisting = false; ///< an output that is complete counts as done
    bool quiet = false;
    bool inBatch = false; ///< one of many: no progress bar, and no note that it is skipped
    bool json = false;
};

/// How loud things were, LUFS.
struct LoudnessReport
{
    double input;
    double atUnityGain; ///< the output before the gain
    double output;
};

/// What was done.
struct UpmixReport
{
    const Layout* layout = nullptr;
    StreamFormat format{};
    std::uint64_t frames = 0;
    std::uint32_t delayFrames = 0; ///< of the output against the input
    double gainDb = 0.0;
    bool bypass = false;
    double speed = 0.0;                       ///< times real time
    std::uint64_t clipped = 0;                ///< samples that the gain drove beyond full scale
    std::optional<Loss> loss{};               ///< audio that the input should have had
    std::uint64_t wrapped = 0;                ///< samples that wrapped around in the remap mix
    std::vector<ChannelLevel> levels{};       ///< by slot; empty unless JSON was asked for
    std::optional<LoudnessReport> loudness{}; ///< where it was matched
    bool skipped = false;                     ///< the output was complete, and nothing was done

    /// EX_OK, or kExitIncomplete.
    int exitCode() const noexcept { return loss && !loss->isNegligible() ? kExitIncomplete : EX_OK; }
};

/// Refuses options that do not go together, before any file is opened. Throws Failure.
void checkOptions(const UpmixOptions& options);

/// Upmixes INPUT to OUTPUT, as much of it as can be decoded. Throws Failure or Interrupted; then no output file is
/// left.
UpmixReport upmix(const UpmixOptions& options);

/// Upmixes INPUT to OUTPUT and prints the report if it was asked for. Returns the exit code.
int runUpmix(const UpmixOptions& options);

/// The report as --json prints it.
Json jsonOf(const UpmixOptions& options, const UpmixReport& report);

} // namespace tarn
