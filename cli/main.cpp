// The tarn command: options, subcommands, exit codes.
// SPDX-License-Identifier: MIT
#include "cli/batch_command.h"
#include "cli/demo_command.h"
#include "cli/failure.h"
#include "cli/help_texts.h"
#include "cli/info_command.h"
#include "cli/interrupt.h"
#include "cli/layout.h"
#include "cli/option_checks.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "cli/upmix_command.h"
#include "stream/gain.h"
#include "stream/steering_mode_names.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{

/// Makes --help print a text of one screen, and --help-all every option with a footer.
void setHelp(CLI::App& app, const char* text, const std::string& footer)
{
    app.set_help_flag("-h,--help", "Print the most important options");
    app.set_help_all_flag("--help-all", "Print every option");
    app.footer(footer);
    app.formatter_fn([text](const CLI::App* command, const std::string& name, CLI::AppFormatMode mode) {
        if (mode == CLI::AppFormatMode::Normal) return std::string(text);
        CLI::Formatter formatter;
        formatter.column_width(24);
        formatter.label("REQUIRED", "");
        return formatter.make_help(command, name, mode);
    });
}

/// Arguments of `tarn upmix`: one file to one file, or many files to a directory.
struct UpmixArguments
{
    tarn::UpmixOptions options;
    tarn::BatchOptions batch;
    std::vector<std::string> moreNames; ///< after the second
};

std::vector<std::string> modeNames()
{
    std::vector<std::string> names;
    for (const auto& [mode, name] : zrk_tarn::kSteeringModeNames) names.emplace_back(name);
    return names;
}

/// The options of `tarn upmix` that name files.
void addFileOptions(CLI::App* upmix, UpmixArguments& arguments)
{
    tarn::UpmixOptions& options = arguments.options;
    upmix->add_option("INPUT", options.input, "Audio file, or - for one on standard input")->type_name("")->required();
    upmix
        ->add_option("OUTPUT", options.output,
                     "File to write (.wav, .flac), or - for raw PCM on\n"
                     "standard output")
        ->type_name("");
    upmix->add_option("MORE", arguments.moreNames, "With --output-dir, all names are INPUTs")->type_name("");
    upmix->add_option("--output-dir", arguments.batch.directory, "Upmix every INPUT into this directory")
        ->type_name("DIR");
    upmix
        ->add_flag("-r,--recursive", arguments.batch.recursive,
                   "Upmix every audio file below an INPUT that is a folder,\n"
                   "and create its subfolders in --output-dir")
        ->disable_flag_override()
        ->needs("--output-dir");
    upmix->add_option("--format", arguments.batch.format, "Format of the files in --output-dir: wav (default) or\nflac")
        ->type_name("NAME")
        ->check(tarn::oneOf({"wav", "flac"}, "--format flac"))
        ->needs("--output-dir");
    upmix->add_option("-j,--jobs", arguments.batch.jobs, "Parallel jobs with --output-dir, 1 (default) to 64")
        ->type_name("N")
        ->check(tarn::numberFrom(1, 64, "--jobs 4"))
        ->needs("--output-dir");
}

/// The options of `tarn upmix` that change the sound.
void addSoundOptions(CLI::App* upmix, tarn::UpmixOptions& options)
{
    upmix->add_option("--layout", options.layout, "Slots of the output: 3.0 (default), 5.1, 7.1 or\n7.1-remap")
        ->type_name("NAME")
        ->transform(CLI::Transformer({{"slots8", std::string(tarn::kRemapLayout)}}).description("")) // former name
        ->check(tarn::oneOf(tarn::layoutNames(), "--layout 5.1"));
    upmix->add_option("--remap", options.remapFile, "Matrix for --layout 7.1-remap")->type_name("FILE");
    upmix
        ->add_option("--bits", options.bits,
                     "Sample width of the output: 16, 24 or 32; default: that\n"
                     "of INPUT, 24 for floating point, lossy and converted\n"
                     "files, at most 24 in FLAC")
        ->type_name("N")
        ->check(tarn::oneOf(tarn::kWidths, "--bits 24"));
    upmix
        ->add_option("--mode", options.mode,
                     "How fast strong steering is followed: fast (default),\n"
                     "or calm (at medium speed)")
        ->type_name("NAME")
        ->transform(CLI::Transformer({{"1", "fast"}, {"2", "calm"}}).description("")) // former names
        ->check(tarn::oneOf(modeNames(), "--mode calm"));
    upmix->add_option("--gain", options.gainDb, "Gain of the output in dB, -60 to 18")
        ->type_name("DB")
        ->check(tarn::numberFrom(zrk_tarn::kMinGainDb, zrk_tarn::kMaxGainDb, "--gain -6.5"));
    upmix->add_flag("--loudness-match", options.loudnessMatch, "Make the output as loud as INPUT")
        ->disable_flag_override();
    upmix->add_flag("--bypass", options.bypass, "Pass the stereo unchanged to FL and FR of the layout")
        ->disable_flag_override();
}

/// The options of `tarn upmix` about formats, existing files and messages.
void addProcessingOptions(CLI::App* upmix, tarn::UpmixOptions& options)
{
    upmix->add_flag("--json", options.json, "Print a report in JSON")->disable_flag_override();
    upmix
        ->add_flag("--no-align", options.noAlign,
                   "Keep the delay of a live host: the output is 960 frames\n"
                   "late and as long as INPUT, so its last 960 frames are\n"
                   "cut off")
        ->disable_flag_override();
    upmix
        ->add_option("--raw", options.raw,
                     "The stream on - is raw PCM of this rate and width, for\n"
                     "example 48000:16")
        ->type_name("RATE:BITS");
    upmix
        ->add_option("--rate", options.rate,
                     "Sample rate of the output: 32000, 44100, 48000, 64000,\n"
                     "88200, 96000 or 192000; default: that of INPUT, or the\n"
                     "next higher of these")
        ->type_name("HZ")
        ->check(tarn::oneOf(zrk_tarn::kSampleRatesHz, "--rate 48000"));
    upmix
        ->add_flag("--strict", options.strict,
                   "Refuse INPUT if it is cut short or damaged; default:\n"
                   "upmix all that can be decoded")
        ->disable_flag_override();
    upmix->add_flag("--force", options.force, "Replace OUTPUT if it exists")->disable_flag_override();
    upmix
        ->add_flag("--skip-existing", options.skipExisting,
                   "Skip an INPUT whose OUTPUT exists and is complete; an\n"
                   "incomplete OUTPUT is an error without --force")
        ->disable_flag_override();
    upmix
        ->add_flag("--quiet", options.quiet,
                   "Print only errors and warnings about lost, clipped or\n"
                   "wrapped audio")
        ->disable_flag_override();
}

CLI::App* addUpmix(CLI::App& app, UpmixArguments& arguments)
{
    CLI::App* const upmix = app.add_subcommand("upmix", "Upmix a stereo file or stream");
    addFileOptions(upmix, arguments);
    addSoundOptions(upmix, arguments.options);
    addProcessingOptions(upmix, arguments.options);
    setHelp(*upmix, tarn::kUpmixHelp, "man tarn-upmix describes layouts, matrices, tags, reports and streams.");
    return upmix;
}

/// The options of `tarn demo`.
CLI::App* addDemo(CLI::App& app, tarn::DemoOptions& options)
{
    CLI::App* const demo = app.add_subcommand("demo", "Upmix a built-in scene and print measurements");
    demo->add_option("OUTPUT", options.output,
                     "Also write the upmixed scene to this file (.wav, .flac),\n"
                     "and its stereo next to it: scene-stereo.wav")
        ->type_name("");
    demo->add_option("--layout", options.layout, "Slots of that file: 3.0 (default) or 5.1")
        ->type_name("NAME")
        ->check(tarn::oneOf({"3.0", "5.1"}, "--layout 5.1"));
    demo->add_flag("--force", options.force, "Replace the files if they exist")->disable_flag_override();
    setHelp(*demo, tarn::kDemoHelp, "");
    return demo;
}

/// The options of `tarn info`.
CLI::App* addInfo(CLI::App& app, tarn::InfoOptions& options)
{
    CLI::App* const info = app.add_subcommand("info", "Describe files and rate whether upmixing gains anything");
    info->add_option("INPUT", options.inputs, "Audio files")->type_name("")->required();
    info->add_flag("--verbose", options.verbose, "Print figures for every octave too")->disable_flag_override();
    info->add_option("-j,--jobs", options.jobs, "Parallel jobs, 1 (default) to 64")
        ->type_name("N")
        ->check(tarn::numberFrom(1, 64, "--jobs 4"));
    info->add_flag("--json", options.json, "Print JSON instead of text")->disable_flag_override();
    info->add_flag("--quiet", options.quiet, "No progress bar")->disable_flag_override();
    setHelp(*info, tarn::kInfoHelp, "man tarn-info describes the verdicts, the figures and the JSON.");
    return info;
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
    throw tarn::Failure(hasInput ? EX_NOINPUT : EX_USAGE,
                        *folder + ": is a folder; type: tarn upmix " + (hasInput ? "--recursive " : "") +
                            "--output-dir " + (hasTarget ? tarn::shellQuoted(names.back()) : "upmixed") + " " +
                            tarn::shellQuoted(hasInput ? *folder : names.front()) + (names.size() > 2 ? " ..." : ""));
}

/// Runs `tarn upmix`. Returns the exit code.
int runUpmix(UpmixArguments& arguments, const CLI::App& upmix)
{
    tarn::UpmixOptions& options = arguments.options;
    const bool hasOutput = upmix.get_option("OUTPUT")->count() > 0;
    std::vector<std::string> names{options.input};
    if (hasOutput) names.push_back(options.output);
    names.insert(names.end(), arguments.moreNames.begin(), arguments.moreNames.end());
    if (upmix.get_option("--output-dir")->count() == 0) {
        refuseFolders(names);
        if (!hasOutput) throw tarn::Failure(EX_USAGE, "OUTPUT is required; see tarn upmix --help");
        if (!arguments.moreNames.empty())
            throw tarn::Failure(EX_USAGE, arguments.moreNames.front() +
                                              ": is a third name; add --output-dir DIR to upmix several files");
        return tarn::runUpmix(options);
    }
    if (arguments.batch.directory.empty()) throw tarn::Failure(EX_USAGE, "--output-dir: an empty name");
    arguments.batch.inputs = std::move(names);
    return tarn::runBatch(arguments.batch, options);
}

/// The failure for an error of the option parser.
tarn::Failure usageFailure(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<CLI::App*> commands = app.get_subcommands();
    const std::string help = commands.empty() ? "tarn --help" : "tarn " + commands.front()->get_name() + " --help";
    const std::vector<std::string> leftOver = app.remaining(true);
    std::string problem = error.what();
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError) && !leftOver.empty()) {
        problem = leftOver.front();
        if (problem.starts_with('-')) {
            problem += ": no such option (a file of that name is ./" + leftOver.front() + ")";
        } else {
            problem += commands.empty() ? ": no such command; use upmix, info or demo" : ": one name too many";
        }
    }
    return {EX_USAGE, problem + "; see " + help};
}

/// Opens placeholders for standard streams that the parent closed, so that no output file gets descriptor 0, 1 or 2 and
/// receives messages. Using a placeholder fails.
void occupyStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        // cppcheck-suppress leakReturnValNotUsed ; open for as long as the program runs
        if (fcntl(stream, F_GETFD) == -1) open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

/// Parses the arguments and runs the command. Returns the exit code.
int run(int argc, char** argv)
{
    CLI::App app("Tarn upmixes stereo to left, right and centre in real time or faster, bit for bit reproducibly.",
                 "tarn");
    app.set_version_flag("--version", "tarn " TARN_VERSION);
    app.require_subcommand(0, 1);
    setHelp(app, tarn::kHelp, "");
    UpmixArguments upmixArguments;
    tarn::InfoOptions infoOptions;
    tarn::DemoOptions demoOptions;
    demoOptions.program = argv[0];
    CLI::App* const upmix = addUpmix(app, upmixArguments);
    const CLI::App* const info = addInfo(app, infoOptions);
    addDemo(app, demoOptions);

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        throw usageFailure(app, error);
    }

    if (app.get_subcommands().empty())
        throw tarn::Failure(EX_USAGE, "no command; use upmix, info or demo; see tarn --help");
    tarn::catchInterrupts();
    if (info->parsed()) return tarn::runInfo(infoOptions);
    if (upmix->parsed()) return runUpmix(upmixArguments, *upmix);
    tarn::runDemo(demoOptions);
    return EX_OK;
}

} // namespace

int main(int argc, char** argv)
{
    occupyStandardStreams();
    try {
        const int exitCode = run(argc, argv);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
            throw tarn::Failure(EX_IOERR, "standard output: writing failed; free some space, or choose another place");
        return exitCode;
    } catch (const tarn::Failure& failure) {
        tarn::printNote(failure.what());
        return failure.exitCode();
    } catch (const tarn::Interrupted& interrupted) {
        tarn::dieBySignal(interrupted.signalNumber);
    } catch (const std::exception& error) {
        tarn::printNote(std::string("internal error: ") + error.what());
        return EX_SOFTWARE;
    }
}
