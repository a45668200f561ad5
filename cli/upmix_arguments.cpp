// The options of tarn upmix, and the choice between one file and many.
// SPDX-License-Identifier: MIT
#include "cli/upmix_arguments.h"

#include "cli/command_help.h"
#include "cli/command_name.h"
#include "cli/failure.h"
#include "cli/help_texts.h"
#include "cli/layout.h"
#include "cli/option_checks.h"
#include "cli/shared_options.h"
#include "cli/text.h"
#include "cli/upmix_command.h"
#include "stream/mode_names.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

namespace tarn
{

namespace
{

/// The options of `tarn upmix` that name files.
void addFileOptions(CLI::App* upmix, UpmixArguments& arguments)
{
    UpmixOptions& options = arguments.options;
    upmix->add_option("INPUT", options.input, "Audio file, or - for one on standard input")->type_name("")->required();
    upmix
        ->add_option("OUTPUT", options.output,
                     "File to write (.wav, .flac), or - for raw PCM on\n"
                     "standard output")
        ->type_name("");
    upmix->add_option("MORE", arguments.moreNames, "With --output-dir, all names are INPUTs")->type_name("");
    upmix
        ->add_option("--output-dir", arguments.batch.directory,
                     "Upmix every INPUT into this directory: song.mp3 becomes\nDIR/song.mp3-3.0.wav")
        ->type_name("DIR");
    upmix
        ->add_flag("-r,--recursive", arguments.batch.recursive,
                   "Upmix every audio file below an INPUT that is a folder,\n"
                   "and create its subfolders in --output-dir")
        ->needs("--output-dir");
    upmix
        ->add_flag("--album", arguments.album,
                   "The same gain for all files of --output-dir, with\n"
                   "--loudness-match and without limiter")
        ->needs("--output-dir");
    upmix->add_option("--format", arguments.batch.format, "Format of the files in --output-dir: wav (default) or\nflac")
        ->type_name("NAME")
        ->check(oneOf({"wav", "flac"}, "--format flac"))
        ->needs("--output-dir");
    upmix->add_option("-j,--jobs", arguments.batch.jobs, "Parallel jobs with --output-dir, 1 (default) to 64")
        ->type_name("N")
        ->check(numberFrom(1, 64, "--jobs 4"))
        ->needs("--output-dir");
    upmix
        ->add_flag("--resume", arguments.batch.resume,
                   "Skip an INPUT that was upmixed into --output-dir with\n"
                   "the same options and has not changed since, as\n"
                   "DIR/tarn-ledger.txt says")
        ->needs("--output-dir");
    upmix
        ->add_option("--part", arguments.batch.part,
                     "Of all INPUTs, upmix the share K of N that no other part\n"
                     "has, for several machines: --part 3/100")
        ->type_name("K/N")
        ->excludes("--album")
        ->needs("--output-dir");
}

/// The options of `tarn upmix` that change the sound.
void addSoundOptions(CLI::App* upmix, UpmixOptions& options)
{
    upmix->add_option("--layout", options.layout, "Slots of the output, default 3.0:\n" + listOf(layoutNames()))
        ->type_name("NAME")
        ->transform(CLI::Transformer({{"slots8", std::string(kRemapLayout)}}).description("")) // former name
        ->check(oneOf(layoutNames(), "--layout 5.1"));
    upmix->add_option("--remap", options.remapFile, "Matrix for --layout 7.1-remap")->type_name("FILE");
    upmix
        ->add_option("--bits", options.bits,
                     "Sample width of the output: 16, 24 or 32; default: that\n"
                     "of INPUT, 24 for floating point, lossy and converted\n"
                     "files, at most 24 in FLAC")
        ->type_name("N")
        ->check(oneOf(kWidths, "--bits 24"));
    upmix
        ->add_option("--mode", options.mode,
                     "How fast strong steering is followed: fast (default),\n"
                     "or calm (at medium speed)")
        ->type_name("NAME")
        ->transform(CLI::Transformer({{"1", "fast"}, {"2", "calm"}}).description("")) // former names
        ->check(oneOfNames(zrk_tarn::kSteeringModeNames, "--mode calm"));
    addRoomOptions(*upmix, options.room);
    upmix->add_flag("--loudness-match", options.loudnessMatch, "Make the output as loud as INPUT");
    upmix->add_flag("--bypass", options.bypass, "Pass the stereo unchanged to FL and FR of the layout");
}

/// The options of `tarn upmix` about formats, existing files and messages.
void addProcessingOptions(CLI::App* upmix, UpmixOptions& options)
{
    upmix->add_flag("--json", options.json, "Print a report in JSON");
    upmix
        ->add_option("--picture", options.picture,
                     "Also draw OUTPUT into this file (.png, .svg); see\n"
                     "tarn picture")
        ->type_name("FILE");
    upmix->add_flag("--no-align", options.noAlign,
                    "Keep the delay of a live host: the output is 960 frames\n"
                    "late and as long as INPUT, so its last 960 frames are\n"
                    "cut off");
    addRawOption(*upmix, options.raw);
    upmix
        ->add_option("--rate", options.rate,
                     "Sample rate of the output: 32000, 44100, 48000, 64000,\n"
                     "88200, 96000 or 192000; default: that of INPUT, or the\n"
                     "next higher of these")
        ->type_name("HZ")
        ->check(oneOf(zrk_tarn::kSampleRatesHz, "--rate 48000"));
    upmix->add_flag("--strict", options.strict,
                    "Refuse INPUT if it is cut short or damaged; default:\n"
                    "upmix all that can be decoded");
    upmix->add_flag("--force", options.force, "Replace OUTPUT if it exists");
    upmix->add_flag("--skip-existing", options.skipExisting,
                    "Skip an INPUT whose OUTPUT exists and is complete; an\n"
                    "incomplete OUTPUT is an error without --force");
    upmix->add_flag("--quiet", options.quiet,
                    "Print only errors and warnings about lost, clipped or\n"
                    "wrapped audio");
}

/// Refuses folders where files are required, and prints the command to type instead.
///
/// names  all names of the command line
void refuseFolders(const std::vector<std::string>& names)
{
    std::error_code ignored;
    const auto isFolder = [&ignored](const std::string& name) { return std::filesystem::is_directory(name, ignored); };
    const auto folder = std::find_if(names.begin(), names.end(), isFolder);
    if (folder == names.end()) return;
    const bool hasTarget = names.size() > 1 && isFolder(names.back());
    const bool hasInput = !hasTarget || &*folder != &names.back();
    throw Failure(hasInput ? EX_NOINPUT : EX_USAGE,
                  *folder + ": is a folder; type: " + commandName() + " upmix " + (hasInput ? "--recursive " : "") +
                      "--output-dir " + (hasTarget ? shellQuoted(names.back()) : "upmixed") + " " +
                      shellQuoted(hasInput ? *folder : names.front()) + (names.size() > 2 ? " ..." : ""));
}

} // namespace

CLI::App* addUpmix(CLI::App& app, UpmixArguments& arguments)
{
    CLI::App* const command = app.add_subcommand("upmix", "Upmix a stereo file or stream");
    addFileOptions(command, arguments);
    addSoundOptions(command, arguments.options);
    addProcessingOptions(command, arguments.options);
    setHelp(*command, kUpmixHelp, "man tarn-upmix describes layouts, matrices, tags, reports and streams.");
    return command;
}

int runUpmix(UpmixArguments& arguments, const CLI::App& command)
{
    UpmixOptions& options = arguments.options;
    const bool hasOutput = command.get_option("OUTPUT")->count() > 0;
    std::vector<std::string> names{options.input};
    if (hasOutput) names.push_back(options.output);
    names.insert(names.end(), arguments.moreNames.begin(), arguments.moreNames.end());
    if (command.get_option("--output-dir")->count() == 0) {
        refuseFolders(names);
        if (!hasOutput) throw Failure(EX_USAGE, "OUTPUT is required; see " + commandName() + " upmix --help");
        if (!arguments.moreNames.empty())
            throw Failure(EX_USAGE, arguments.moreNames.front() +
                                        ": is a third name; add --output-dir DIR to upmix several files");
        return runUpmix(options);
    }
    if (!options.picture.empty())
        throw Failure(EX_USAGE, "--picture: is the picture of one output; leave it out, or draw each INPUT with " +
                                    commandName() + " picture");
    if (arguments.batch.directory.empty()) throw Failure(EX_USAGE, "--output-dir: an empty name");
    arguments.batch.inputs = std::move(names);
    return runBatch(arguments.batch, arguments.album, options);
}

} // namespace tarn
