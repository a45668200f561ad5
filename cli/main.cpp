// The tarn command: subcommands and exit codes.
// SPDX-License-Identifier: MIT
#include "cli/command_help.h"
#include "cli/command_name.h"
#include "cli/demo_command.h"
#include "cli/failure.h"
#include "cli/film_command.h"
#include "cli/help_texts.h"
#include "cli/info_command.h"
#include "cli/interrupt.h"
#include "cli/meter_arguments.h"
#include "cli/option_checks.h"
#include "cli/picture_command.h"
#include "cli/program.h"
#include "cli/report_command.h"
#include "cli/shared_options.h"
#include "cli/upmix_arguments.h"
#include "cli/usage_failure.h"

#include <CLI/CLI.hpp>

#include <cstring>
#include <string>
#include <vector>

namespace
{

/// The options of `tarn demo`.
CLI::App* addDemo(CLI::App& app, tarn::DemoOptions& options)
{
    CLI::App* const demo = app.add_subcommand("demo", "Upmix a built-in scene and print measurements");
    demo->add_option("OUTPUT", options.output,
                     "Also write the upmixed scene to this file (.wav, .flac),\n"
                     "and its stereo next to it: scene-stereo.wav")
        ->type_name("");
    tarn::addLayoutOption(*demo, options.layout, "Slots of that file");
    tarn::addPresetOption(*demo, options.preset,
                          "Settings of that file: film (default), music, voice or\nplain; see tarn upmix --help-all");
    demo->add_flag("--force", options.force, "Replace the files if they exist");
    tarn::setHelp(*demo, tarn::kDemoHelp, "");
    return demo;
}

/// The options of `tarn info`.
CLI::App* addInfo(CLI::App& app, tarn::InfoOptions& options)
{
    CLI::App* const info = app.add_subcommand("info", "Describe files and rate whether upmixing gains anything");
    info->add_option("INPUT", options.inputs, "Audio files, and folders with --recursive")->type_name("")->required();
    info->add_flag("-r,--recursive", options.recursive, "Examine every audio file below an INPUT that is a folder");
    info->add_flag("--verbose", options.verbose, "Print figures for every octave too");
    info->add_option("-j,--jobs", options.jobs, "Parallel jobs, 1 (default) to 64")
        ->type_name("N")
        ->check(tarn::numberFrom(1, 64, "--jobs 4"));
    info->add_flag("--json", options.json, "Print JSON instead of text");
    info->add_flag("--quiet", options.quiet, "No progress bar");
    tarn::setHelp(*info, tarn::kInfoHelp, "man tarn-info describes the verdicts, the figures and the JSON.");
    return info;
}

/// The command line that prints the options of the chosen command.
std::string helpLineOf(const CLI::App& app)
{
    const std::vector<CLI::App*> commands = app.get_subcommands();
    return tarn::commandName() + (commands.empty() ? "" : " " + commands.front()->get_name()) + " --help";
}

/// Parses the arguments and runs the command. Returns the exit code.
int run(int argc, char** argv)
{
    if (argc > 1 && std::strcmp(argv[1], "film") == 0) tarn::startFilm(tarn::commandName(), argv + 1);
    CLI::App app("Tarn upmixes stereo to left, right, centre and surround channels in real time or faster, with the "
                 "same bits on every machine.",
                 "tarn");
    app.option_defaults()->disable_flag_override(); // no --force=0
    app.set_version_flag("--version", "tarn " TARN_VERSION);
    app.require_subcommand(0, 1);
    tarn::setHelp(app, tarn::kHelp, "");
    tarn::UpmixArguments upmixArguments;
    tarn::InfoOptions infoOptions;
    tarn::PictureOptions pictureOptions;
    tarn::ReportOptions reportOptions;
    tarn::MeterOptions meterOptions;
    tarn::DemoOptions demoOptions;
    CLI::App* const upmix = tarn::addUpmix(app, upmixArguments);
    const CLI::App* const info = addInfo(app, infoOptions);
    const CLI::App* const picture = tarn::addPicture(app, pictureOptions);
    const CLI::App* const report = tarn::addReport(app, reportOptions);
    const CLI::App* const meter = tarn::addMeter(app, meterOptions);
    const CLI::App* const demo = addDemo(app, demoOptions);

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        throw tarn::usageFailure(app, error, helpLineOf(app));
    }

    if (app.get_subcommands().empty())
        throw tarn::Failure(EX_USAGE,
                            "no command; use " + tarn::commandList(app) + "; see " + tarn::commandName() + " --help");
    tarn::refuseStrayNumbers(*app.get_subcommands().front(), helpLineOf(app));
    tarn::catchInterrupts();
    if (info->parsed()) return tarn::runInfo(infoOptions);
    if (picture->parsed()) return tarn::runPicture(pictureOptions);
    if (report->parsed()) return tarn::runReport(reportOptions);
    if (upmix->parsed()) return tarn::runUpmix(upmixArguments, *upmix);
    if (meter->parsed()) return tarn::runMeter(meterOptions);
    for (const char* const option : {"--layout", "--preset", "--force"})
        if (demoOptions.output.empty() && demo->count(option) > 0)
            throw tarn::Failure(EX_USAGE, std::string(option) +
                                              ": is about the file that is written; name an OUTPUT, " +
                                              "such as scene.wav");
    tarn::runDemo(demoOptions);
    return EX_OK;
}

} // namespace

int main(int argc, char** argv)
{
    return tarn::runProgram(argc, argv, run);
}
