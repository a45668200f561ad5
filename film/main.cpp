// The tarn-film program: options and exit codes.
// SPDX-License-Identifier: MIT
#include "cli/command_name.h"
#include "cli/failure.h"
#include "cli/interrupt.h"
#include "cli/json.h"
#include "cli/option_checks.h"
#include "cli/program.h"
#include "cli/room_options.h"
#include "cli/usage_failure.h"
#include "film/encoding.h"
#include "film/film_batch.h"
#include "film/upmix_film.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace
{

void addOptions(CLI::App& app, tarn::FilmOptions& options, tarn::BatchOptions& batch)
{
    app.add_option("FILES", batch.inputs,
                   "INPUT, a film or a recording that FFmpeg reads, and\n"
                   "OUTPUT, the film to write: .mkv, .mp4, .mka, .m4a or\n"
                   ".flac; with --output-dir, many INPUTs")
        ->type_name("");
    app.add_option("--output-dir", batch.directory,
                   "Folder for the outputs of many INPUTs: film.mp4 becomes\nfilm.mp4-5.1.mkv in it")
        ->type_name("DIR");
    app.add_flag("-r,--recursive", batch.recursive,
                 "Upmix every film below an INPUT that is a folder, and\ncreate its subfolders in --output-dir");
    app.add_option("--format", batch.format, "Extension of these outputs: mkv (default), mp4, mka, m4a\nor flac")
        ->type_name("NAME")
        ->check(tarn::oneOf({"mkv", "mp4", "mka", "m4a", "flac"}, "--format mp4"));
    app.add_option("-j,--jobs", batch.jobs, "Parallel jobs, 1 (default) to 64")
        ->type_name("N")
        ->check(tarn::numberFrom(1, 64, "--jobs 4"));
    app.add_flag("--skip-existing", options.skipExisting, "Skip INPUTs whose output exists in --output-dir");
    app.add_flag("--resume", batch.resume,
                 "Skip INPUTs that were upmixed into --output-dir with the\n"
                 "same options and have not changed since");
    app.add_option("--part", batch.part, "Of all INPUTs, upmix the share K of N that no other part\nhas: --part 3/100")
        ->type_name("K/N");
    app.add_option("--layout", options.layout, "Layout of the new track: 5.1 (default) or 3.0")
        ->type_name("NAME")
        ->check(tarn::oneOf({"5.1", "3.0"}, "--layout 3.0"));
    app.add_option("--codec", options.codec,
                   "Codec of the new track: flac (default in .mkv), ac3, eac3,\naac (default in .mp4), opus or pcm")
        ->type_name("NAME")
        ->check(tarn::oneOf(tarn::encodingNames(), "--codec ac3"));
    app.add_option("--bitrate", options.bitRate, "Bit rate of the new track in kb/s")
        ->type_name("KBPS")
        ->check(tarn::numberFrom(32, 6000, "--bitrate 640"));
    app.add_option("--stream", options.stream, "Number of the track to upmix, as ffprobe counts")
        ->type_name("N")
        ->check(tarn::numberFrom(0, 9999, "--stream 2"));
    app.add_option("--language", options.language, "Language of the track to upmix, such as deu")->type_name("LANG");
    app.add_option("--dialnorm", options.dialnorm, "Dialogue level of AC-3: auto (default), or -31 to -1")
        ->type_name("DB")
        ->check(tarn::wordOrNumberFrom("auto", -31, -1, "--dialnorm -27"));
    app.add_flag("--replace", options.replace, "Leave the stereo track out");
    app.add_flag("--force-track", options.forceTrack, "Also if the default track has more channels already");
    app.add_option("--mode", options.mode, "Steering: fast (default) or calm")
        ->type_name("NAME")
        ->check(tarn::oneOf({"fast", "calm"}, "--mode calm"));
    tarn::addRoomOptions(app, options.room);
    app.add_flag("--loudness-match", options.loudnessMatch, "As loud as the stereo track");
    app.add_flag("--force", options.force, "Replace OUTPUT if it exists");
    app.add_flag("--quiet", options.quiet, "No progress bar and no notes");
    app.add_flag("--json", options.json, "Print a report as JSON");
}

int run(int argc, char** argv)
{
    CLI::App app("Adds a surround track, upmixed from a stereo track, to a film.", tarn::commandName());
    app.option_defaults()->disable_flag_override(); // no --force=0
    app.get_formatter()->column_width(22);
    app.set_version_flag("--version", "tarn-film " TARN_VERSION);
    tarn::FilmOptions options;
    tarn::BatchOptions batch{.format = "mkv"};
    addOptions(app, options, batch);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        throw tarn::usageFailure(app, error, tarn::commandName() + " --help");
    }
    tarn::refuseStrayNumbers(app, tarn::commandName() + " --help");
    if (options.room.gainDb && options.loudnessMatch)
        throw tarn::Failure(EX_USAGE, "--gain: --loudness-match chooses the gain itself; leave one of them out");
    tarn::catchInterrupts();
    av_log_set_level(AV_LOG_FATAL);
    if (options.stream && app.get_option("--language")->count() > 0)
        throw tarn::Failure(EX_USAGE, "--stream and --language: both choose the track; leave one of them out");
    if (app.get_option("--output-dir")->count() > 0) {
        if (batch.inputs.empty())
            throw tarn::Failure(EX_USAGE, "name at least one INPUT; see " + tarn::commandName() + " --help");
        if (batch.directory.empty()) throw tarn::Failure(EX_USAGE, "--output-dir: an empty name");
        return tarn::runFilmBatch(batch, options);
    }
    for (const char* const option : {"--recursive", "--format", "--jobs", "--skip-existing", "--resume", "--part"})
        if (app.get_option(option)->count() > 0)
            throw tarn::Failure(EX_USAGE, std::string(option) + ": needs --output-dir; add --output-dir DIR");
    if (batch.inputs.size() != 2)
        throw tarn::Failure(EX_USAGE, "name one INPUT and one OUTPUT, or add --output-dir; see " + tarn::commandName() +
                                          " --help");
    options.input = batch.inputs[0];
    options.output = batch.inputs[1];
    const tarn::Json report = tarn::upmixFilm(options);
    if (options.json) tarn::printJson(report, stdout);
    return report.value("exit_code", EX_OK);
}

} // namespace

int main(int argc, char** argv)
{
    return tarn::runProgram(argc, argv, run);
}
