#include "cli/batch_command.h"
#include "cli/demo_command.h"
#include "cli/failure.h"
#include "cli/info_command.h"
#include "cli/interrupt.h"
#include "cli/upmix_command.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr const char* kMainFooter = R"(Examples:
  tarn demo                                      upmix a built-in scene and see what went where
  tarn upmix song.flac song-3.0.wav              left, right and centre from a stereo file
  tarn upmix --layout 5.1 song.ogg song-5.1.flac the same in the slots of a 5.1 file
  tarn info song.flac                            what a file is, and whether upmixing gains anything
  tarn upmix --help                              all options

Exit codes:
  0   done
  64  wrong usage, or OUTPUT exists already (add --force) or is INPUT
  65  INPUT cannot be upmixed: not stereo, another sample rate, cut short, empty, damaged;
      or the remap file holds no matrix
  66  INPUT or the remap file is missing or cannot be read
  70  internal error, or a decoder or encoder has crashed
  73  OUTPUT cannot be created
  74  reading or writing failed, for example on a full disk
  Of several files, that of the first that failed, in the order given; the others are done all the same.
  An interrupted run (Ctrl-C, or a pipe whose reader goes away) dies by the signal. Whatever goes wrong, no
  half-written file has the name of an output. A run that is killed outright (SIGKILL, power) leaves a hidden
  file, .NAME.tarn-XXXXXX, which the next run that writes into the directory removes.
)";

constexpr const char* kUpmixFooter =
    R"(INPUT is stereo in any format that libsndfile reads (WAV, FLAC, Ogg Vorbis, Opus, MP3, AIFF, CAF, ...) at 32000,
44100, 48000, 64000, 88200, 96000 or 192000 Hz. OUTPUT is .wav or .flac by its extension, with the same rate and the
same number of frames as INPUT. Floating-point and lossy files that peak above full scale are scaled down by one gain
for the whole file, which is reported.

Layouts:
  3.0     FL FR FC
  5.1     FL FR FC LFE BL BR; the last three are silent
  7.1     FL FR FC LFE BL BR SL SR; the last five are silent
  slots8  FL FR FC LFE BL BR SL SR; the engine's outputs, mixed through a matrix, in FL, FR, SL and SR; needs --remap

A remap file has three rows, one for each output of the engine (front left, front right, centre), of four gains, one
for each of FL, FR, SL and SR, from -8 to just below 8. Text after # is a comment. Where the gains of a column sum to
more than 1 in magnitude, loud passages can wrap around.
  1.0  0    0    0      # front left
  0    1.0  0    0      # front right
  0    0    0.5  0.5    # centre

Many files: with --output-dir DIR, every name is an INPUT, and song.flac becomes DIR/song-3.0.wav, by the name of the
layout and --format. DIR is created if it is missing. With --recursive, an INPUT may be a folder: music/x/song.flac of
the folder music becomes DIR/x/song-3.0.wav. The files in it that count end in .wav .wave .bwf .rf64 .w64 .aif .aiff
.aifc .au .snd .flac .ogg .oga .opus .mp1 .mp2 .mp3 .caf .iff .svx .8svx .16svx .voc .avr .ircam .sf .nist .sph .paf
.pvf .sds or .sd2, in letters of any case; hidden ones, links to folders and DIR itself are left out. If outputs would
meet, all go below the folders that their inputs have beneath their deepest common folder: x/song.flac and y/song.flac
become DIR/x/song-3.0.wav and DIR/y/song-3.0.wav. Outputs that still meet, as those of song.flac and song.mp3, and
outputs that are inputs are refused before anything is written; one that exists is left alone without --force. One file that fails, or
makes a decoder crash, does not stop the rest: a summary at the end says which did, and the exit code is that of the
first of them.

Loudness: single sources lose up to 3 dB in the room. --gain changes the level of the output; --loudness-match chooses
the gain so that the integrated loudness of BS.1770 of the output is that of INPUT (after the scaling down above), for
which it goes through INPUT twice. Samples that a gain drives beyond full scale are clipped and counted.

Tags: title, artist, album, date, track number, genre, comment, copyright and licence go from INPUT to OUTPUT where both
formats have a place for them (WAV has none for licences).

JSON: --json prints one object: input, output, layout, sample_rate, bits, frames, seconds, delay_frames (of the output
against INPUT), bypass, gain_db, clipped_samples (by the gain), speed (times real time), loudness_lufs with
--loudness-match, and channels with name, peak_dbfs, rms_dbfs (a sine of full scale has -3), energy_share (0 to 1) and
full_scale_samples. With --output-dir it is {"files": [...], "failed": N, "skipped": N}, and a file that failed has
input, error and exit_code. A file that was skipped has input, output and "skipped": true. Bytes of a file name that are
not UTF-8 are shown as U+FFFD; input_percent or output_percent then has the exact name, percent-encoded. What has no
number, as the level of silence, is null. It goes to standard output, and to standard error where the audio is on
standard output; add --quiet there, so that it stands alone.

Streams: '-' is standard input or output, raw interleaved signed little-endian PCM without a header. --raw RATE:BITS
describes it, and is required for standard input. Any length takes the same small amount of memory.

Examples:
  tarn upmix song.flac song-3.0.wav
  tarn upmix --layout 5.1 --bits 24 song.mp3 song-5.1.flac
  tarn upmix --output-dir upmixed --format flac -j 2 album/*.flac
  tarn upmix --output-dir upmixed --recursive --skip-existing music
  tarn upmix --loudness-match --json song.wav song-3.0.wav
  tarn upmix --layout slots8 --remap matrix.txt song.wav slots.wav
  ffmpeg -i film.mkv -ac 2 -ar 48000 -f s16le - | tarn upmix --raw 48000:16 - film-3.0.wav
)";

/// What `tarn upmix` was given: one file to one file, or many to a directory.
struct UpmixArguments
{
    tarn::UpmixOptions options;
    tarn::BatchOptions batch;
    std::vector<std::string> more; ///< names after the second
};

/// The options of `tarn upmix`.
CLI::App* addUpmix(CLI::App& app, UpmixArguments& arguments)
{
    tarn::UpmixOptions& options = arguments.options;
    CLI::App* const upmix = app.add_subcommand("upmix", "Upmix a stereo file or stream");
    upmix->add_option("INPUT", options.input, "Stereo file, or - for raw PCM on standard input")
        ->type_name("")
        ->required();
    upmix->add_option("OUTPUT", options.output, "File to write (.wav, .flac), or - for raw PCM on standard output")
        ->type_name("");
    upmix->add_option("MORE", arguments.more, "With --output-dir, all names are INPUTs")->type_name("");
    upmix->add_option("--output-dir", arguments.batch.directory, "Upmix every INPUT into this directory, see below")
        ->type_name("DIR");
    upmix
        ->add_flag("-r,--recursive", arguments.batch.recursive,
                   "An INPUT may be a folder: every audio file below it is\n"
                   "upmixed, and its folders are made in --output-dir")
        ->disable_flag_override()
        ->needs("--output-dir");
    upmix->add_option("--format", arguments.batch.format, "Of the files in --output-dir: wav (default) or flac")
        ->type_name("NAME")
        ->check(CLI::IsMember({"wav", "flac"}).description(""))
        ->needs("--output-dir");
    upmix->add_option("-j,--jobs", arguments.batch.jobs, "Files at a time with --output-dir, 1 (default) to 64")
        ->type_name("N")
        ->check(CLI::Range(1, 64).description(""))
        ->needs("--output-dir");
    upmix->add_option("--layout", options.layout, "Slots of the output: 3.0 (default), 5.1, 7.1 or slots8")
        ->type_name("NAME")
        ->check(CLI::IsMember({"3.0", "5.1", "7.1", "slots8"}).description(""));
    upmix->add_option("--remap", options.remapFile, "Matrix for --layout slots8, see below")->type_name("FILE");
    upmix
        ->add_option("--bits", options.bits,
                     "Sample width of the output: 16, 24 or 32; by default\n"
                     "that of INPUT, and 24 for floating point and lossy files")
        ->type_name("N")
        ->check(CLI::IsMember({16, 24, 32}).description(""));
    upmix
        ->add_option("--mode", options.mode,
                     "1: strong steering is followed fast (default);\n"
                     "2: calmer, fast changes are followed at medium speed")
        ->type_name("N")
        ->check(CLI::IsMember({1, 2}).description(""));
    upmix
        ->add_option("--mix-fraction", options.mixFraction,
                     "0 to 1, default 1. Handed to the engine, which\n"
                     "keeps it; it does not change the output")
        ->type_name("F")
        ->check(CLI::Range(0.0, 1.0).description(""));
    upmix->add_option("--gain", options.gainDb, "Gain of the output in dB, -60 to 18")
        ->type_name("DB")
        ->check(CLI::Range(-60.0, 18.0).description(""));
    upmix->add_flag("--loudness-match", options.loudnessMatch, "Make the output as loud as INPUT, see below")
        ->disable_flag_override();
    upmix->add_flag("--bypass", options.bypass, "Plain stereo in FL and FR of the layout, as late as the upmix")
        ->disable_flag_override();
    upmix->add_flag("--json", options.json, "Print a report in JSON, see below")->disable_flag_override();
    upmix
        ->add_flag("--no-align", options.noAlign,
                   "Leave the output 960 frames late, as a live host\n"
                   "hears it; it has the length of INPUT all the same, so\n"
                   "the last 960 frames stay in the engine")
        ->disable_flag_override();
    upmix->add_option("--raw", options.raw, "Rate and width of the stream on -, for example 48000:16")
        ->type_name("RATE:BITS");
    upmix->add_flag("--force", options.force, "Replace OUTPUT if it exists")->disable_flag_override();
    upmix
        ->add_flag("--skip-existing", options.skipExisting,
                   "Leave out an INPUT whose OUTPUT exists and is complete;\n"
                   "one that is not complete is an error without --force")
        ->disable_flag_override();
    upmix->add_flag("--quiet", options.quiet, "No progress bar, notes and summary; errors are still reported")
        ->disable_flag_override();
    upmix->footer(kUpmixFooter);
    return upmix;
}

/// The options of `tarn demo`.
CLI::App* addDemo(CLI::App& app, tarn::DemoOptions& options)
{
    CLI::App* const demo = app.add_subcommand("demo", "Upmix a built-in scene and show what went where");
    demo->add_option("OUTPUT", options.output, "Also write the upmixed scene to this file (.wav, .flac)")
        ->type_name("");
    demo->add_option("--layout", options.layout, "Slots of that file: 3.0 (default) or 5.1")
        ->type_name("NAME")
        ->check(CLI::IsMember({"3.0", "5.1"}).description(""));
    demo->add_flag("--force", options.force, "Replace OUTPUT if it exists")->disable_flag_override();
    demo->footer("Examples:\n  tarn demo\n  tarn demo scene.wav\n  tarn demo --layout 5.1 scene.flac\n");
    return demo;
}

constexpr const char* kInfoFooter =
    R"(Prints a line for every INPUT: name, length, container and width or codec, rate, channels, verdict. Every INPUT is
read once, in constant memory. What is not stereo is described, but not examined.

--verbose prints how left and right are related, overall and in octave bands. Correlation is that of left and right
without delay, from -1 (opposite) to 1 (alike); mid is (L + R) / sqrt 2, side (L - R) / sqrt 2; levels are the mean of
both sides, and a sine of full scale on both has -3 dBFS.

Verdicts, the first that holds, by name in --json:
  silence         no sample above -90 dBFS                               gains: no
  one-sided       one side is louder than the other by 40 dB or more     gains: no
  dual-mono       side is 40 dB or more below mid, or correlation of
                  0.99 or more with sides that differ by less than 1 dB  gains: no
  opposite-phase  correlation of -0.5 or less                            gains: no
  panned-mono     correlation of 0.99 or more, one side is louder        gains: little
  stereo          correlation of 0.2 or more, overall or in a band that
                  holds 5 % of the energy                                gains: yes
  independent     all else                                               gains: little
Bands that hold 5 % of the energy at a correlation of -0.5 or less are named as opposite ("partly opposite").

--json prints one object {"files": [...]} with an object for every INPUT in the order given; what has no number (the
level of silence) is null, and an INPUT that failed has "error" and "exit_code". Bytes of a file name that are not
UTF-8 are shown as U+FFFD; "input_percent" then has the exact name, percent-encoded.

The exit code is 0, or that of the first INPUT that failed; the rest are examined all the same.

Examples:
  tarn info -j 4 album/*.flac
  tarn info --verbose song.flac
  tarn info --json *.flac | jq -r '.files[] | .input + ": " + .kind'
)";

/// The options of `tarn info`.
CLI::App* addInfo(CLI::App& app, tarn::InfoOptions& options)
{
    CLI::App* const info = app.add_subcommand("info", "Say what files are and whether upmixing gains anything");
    info->add_option("INPUT", options.inputs, "Audio files")->type_name("")->required();
    info->add_flag("--verbose", options.verbose, "Print figures for every octave as well, see below")
        ->disable_flag_override();
    info->add_option("-j,--jobs", options.jobs, "Files at a time, 1 (default) to 64")
        ->type_name("N")
        ->check(CLI::Range(1, 64).description(""));
    info->add_flag("--json", options.json, "Print JSON instead of text")->disable_flag_override();
    info->add_flag("--quiet", options.quiet, "No progress bar")->disable_flag_override();
    info->footer(kInfoFooter);
    return info;
}

/// Upmixes what was named. Returns the exit code.
int runUpmix(UpmixArguments& arguments, const CLI::App& upmix)
{
    tarn::UpmixOptions& options = arguments.options;
    const bool hasOutput = upmix.get_option("OUTPUT")->count() > 0;
    if (upmix.get_option("--output-dir")->count() == 0) {
        if (!hasOutput) throw tarn::Failure(EX_USAGE, "OUTPUT is required; see tarn upmix --help");
        if (!arguments.more.empty())
            throw tarn::Failure(EX_USAGE,
                                arguments.more.front() + ": a third name; add --output-dir DIR to upmix several files");
        tarn::runUpmix(options);
        return EX_OK;
    }
    if (arguments.batch.directory.empty()) throw tarn::Failure(EX_USAGE, "--output-dir: an empty name");
    arguments.batch.inputs = {options.input};
    if (hasOutput) arguments.batch.inputs.push_back(options.output);
    arguments.batch.inputs.insert(arguments.batch.inputs.end(), arguments.more.begin(), arguments.more.end());
    return tarn::runBatch(arguments.batch, options);
}

/// What is wrong with the arguments, and what to do.
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
            problem += commands.empty() ? ": no such command; say upmix, info or demo" : ": one name too many";
        }
    }
    return {EX_USAGE, problem + "; see " + help};
}

/// Fills the places of standard streams that the parent has closed, so that no file of ours gets one of them and takes
/// in messages. What is put there fails when it is used.
void occupyStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        // cppcheck-suppress leakReturnValNotUsed ; open for as long as the program runs
        if (fcntl(stream, F_GETFD) == -1) open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

/// Parses the arguments and runs the command that they name. Returns the exit code.
int run(int argc, char** argv)
{
    CLI::App app("Tarn upmixes stereo to left, right and centre in real time or faster, bit for bit reproducibly.",
                 "tarn");
    app.set_version_flag("--version", "tarn " TARN_VERSION);
    app.require_subcommand(0, 1);
    app.get_formatter()->column_width(24);
    app.get_formatter()->label("REQUIRED", "");
    app.footer(kMainFooter);
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
        throw tarn::Failure(EX_USAGE, "no command: say upmix, info or demo; see tarn --help");
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
            throw tarn::Failure(EX_IOERR, "standard output: writing failed; make room, or choose another place");
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
