// Refuses options of tarn upmix that contradict each other.
// SPDX-License-Identifier: MIT
#include "cli/upmix_options.h"

#include "cli/command_name.h"
#include "cli/failure.h"
#include "cli/file_sink.h"
#include "cli/layout.h"
#include "cli/picture_file.h"
#include "cli/text.h"

#include <filesystem>
#include <system_error>

namespace tarn
{

namespace
{

/// Checks that --raw has a raw stream to describe.
void checkRaw(const UpmixOptions& options)
{
    if (!options.raw) return;
    if (!isStream(options.input) && !isStream(options.output))
        throw Failure(EX_USAGE,
                      "--raw: describes the stream on '-', but INPUT and OUTPUT are both files; leave it out");
}

void checkRemap(const UpmixOptions& options)
{
    const std::string layout = "--layout " + std::string(kRemapLayout);
    const bool isRemapped = layoutNamed(options.layout).remapped;
    if (isRemapped && options.remapFile.empty())
        throw Failure(EX_USAGE, layout + ": needs a matrix; add --remap FILE (man tarn-upmix describes it)");
    if (!isRemapped && !options.remapFile.empty())
        throw Failure(EX_USAGE,
                      "--remap: only " + layout + " accepts a matrix; add " + layout + ", or leave --remap out");
}

/// Checks that --picture names a picture of its own, which is drawn.
void checkPicture(const UpmixOptions& options)
{
    if (options.picture.empty()) return;
    pictureFormatOf(options.picture);
    if (options.skipExisting)
        throw Failure(EX_USAGE, "--picture: --skip-existing leaves complete outputs alone, so they have no picture; "
                                "leave one of them out, or draw INPUT with " +
                                    commandName() + " picture");
}

/// Refuses devices and pipes, which cannot hold a WAV or FLAC file.
void checkOutput(const UpmixOptions& options)
{
    namespace fs = std::filesystem;
    std::error_code missing;
    const fs::file_status status = fs::status(options.output, missing);
    if (fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status))
        throw Failure(EX_CANTCREAT, options.output + ": is a device or a pipe, which can only receive raw PCM; type: " +
                                        commandName() + " upmix " + shellQuoted(options.input) + " - > " +
                                        shellQuoted(options.output));
    containerOf(options.output);
}

} // namespace

void checkOptions(const UpmixOptions& options)
{
    if (options.input.empty() || options.output.empty())
        throw Failure(EX_USAGE, "an empty file name; name a file, or - for a stream");
    if (options.bypass && (options.room.gainDb || options.loudnessMatch))
        throw Failure(EX_USAGE, "--bypass: leaves the samples as they are; leave out --gain and --loudness-match");
    if (options.room.gainDb && options.loudnessMatch)
        throw Failure(EX_USAGE, "--gain: --loudness-match chooses the gain itself; leave one of them out");
    checkRemap(options);
    const Layout& layout = layoutNamed(options.layout);
    checkRoomOptions(options.room, layout, options.bypass);
    if (options.loudnessMatch && keepsStereo(layout, roomSettingsOf(options.room, layout)))
        throw Failure(EX_USAGE, "--loudness-match: has no effect on --layout " + options.layout +
                                    " with a centre of 0 dB, which is the stereo as it is; leave it out, or add for "
                                    "example --centre 6");
    checkRaw(options);
    checkPicture(options);
    if (isStream(options.output)) return;
    checkOutput(options);
    std::error_code ignored;
    if (!options.remapFile.empty() && std::filesystem::equivalent(options.output, options.remapFile, ignored))
        throw Failure(EX_USAGE, options.output + ": is the remap file; choose another name for the output");
}

} // namespace tarn
