#include "cli/upmix_command.h"

#include "cli/failure.h"
#include "cli/file_sink.h"
#include "cli/file_source.h"
#include "cli/interrupt.h"
#include "cli/progress.h"
#include "cli/raw_pcm.h"
#include "cli/remap_file.h"
#include "cli/text.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

namespace tarn
{

namespace
{

constexpr std::size_t kReadFrames = 4096;

bool isStream(const std::string& name)
{
    return name == "-";
}

/// Refuses options that do not go together, before any file is opened.
void checkOptions(const UpmixOptions& options, const Layout& layout)
{
    if (options.input.empty() || options.output.empty())
        throw Failure(EX_USAGE, "an empty file name; name a file, or - for a stream");
    if (std::isnan(options.mixFraction)) throw Failure(EX_USAGE, "--mix-fraction: not a number; use 0 to 1");
    if (layout.remapped && options.remapFile.empty())
        throw Failure(EX_USAGE, "--layout slots8: needs a matrix; add --remap FILE (tarn upmix --help describes it)");
    if (!layout.remapped && !options.remapFile.empty())
        throw Failure(EX_USAGE, "--remap: only --layout slots8 takes a matrix; add --layout slots8, or leave --remap "
                                "out");
    if (options.raw && !isStream(options.input) && !isStream(options.output))
        throw Failure(EX_USAGE,
                      "--raw: describes the stream on '-', but INPUT and OUTPUT are both files; leave it out");
    if (isStream(options.input) && !options.raw)
        throw Failure(EX_USAGE, "standard input: raw PCM does not say what it is; add --raw RATE:BITS, for example "
                                "--raw 48000:16");
    if (isStream(options.output)) return;
    containerOf(options.output);
    std::error_code ignored;
    if (!options.remapFile.empty() && std::filesystem::equivalent(options.output, options.remapFile, ignored))
        throw Failure(EX_USAGE, options.output + ": is the remap file; choose another name for the output");
}

/// The format that the engine runs in, which is the output's.
StreamFormat engineFormat(const UpmixOptions& options, const std::optional<StreamFormat>& raw,
                          const AudioSource& source)
{
    StreamFormat format = source.format();
    if (raw && !isStream(options.input)) {
        if (raw->sampleRate != format.sampleRate)
            throw Failure(EX_USAGE, "--raw " + *options.raw + ": " + options.input + " runs at " +
                                        std::to_string(format.sampleRate) +
                                        " Hz, and rates are not converted; write "
                                        "--raw " +
                                        std::to_string(format.sampleRate) + ":" + std::to_string(raw->bits));
        if (options.bits && *options.bits != raw->bits)
            throw Failure(EX_USAGE, "--bits " + std::to_string(*options.bits) + ": contradicts --raw " + *options.raw +
                                        "; leave one of them out");
        format.bits = raw->bits;
    }
    if (options.bits) format.bits = *options.bits;
    return format;
}

EngineSettings engineSettings(const UpmixOptions& options)
{
    EngineSettings settings{.mode = options.mode, .mixFraction = options.mixFraction, .remap = {}};
    if (options.remapFile.empty()) return settings;

    const RemapFile remap = readRemapFile(options.remapFile);
    settings.remap = remap.matrix;
    if (!options.quiet)
        for (const std::string& note : remap.notes) printNote(note);
    return settings;
}

std::unique_ptr<AudioSource> openSource(const UpmixOptions& options, const std::optional<StreamFormat>& raw)
{
    if (isStream(options.input)) return std::make_unique<RawSource>(*raw);
    return std::make_unique<FileSource>(options.input);
}

std::unique_ptr<AudioSink> openSink(const UpmixOptions& options, const Layout& layout, StreamFormat format,
                                    FileIdentity input)
{
    if (isStream(options.output)) return std::make_unique<RawSink>(std::size_t{layout.slots} * format.bytesPerSample());
    return std::make_unique<FileSink>(options.output, options.force, input, layout, format);
}

std::string summary(const UpmixOptions& options, const Layout& layout, StreamFormat format, std::uint64_t frames,
                    double speed)
{
    return (isStream(options.input) ? "standard input" : options.input) + " -> " +
           (isStream(options.output) ? "standard output" : options.output) + ": " + std::string(layout.name) + " (" +
           std::string(layout.slotNames) + "), " + std::to_string(format.sampleRate) + " Hz, " +
           std::to_string(format.bits) + " bits, " + durationText(frames, format.sampleRate) +
           formatted(", %.0f x real time", speed);
}

} // namespace

void printNote(const std::string& note)
{
    std::fprintf(stderr, "tarn: %s\n", note.c_str());
}

void runUpmix(const UpmixOptions& options)
{
    const Layout& layout = layoutNamed(options.layout);
    checkOptions(options, layout);
    std::optional<StreamFormat> raw;
    if (options.raw) raw = parseRawFormat(*options.raw);
    const EngineSettings settings = engineSettings(options);

    const auto source = openSource(options, raw);
    const StreamFormat format = engineFormat(options, raw, *source);
    const auto sink = openSink(options, layout, format, source->identity());
    if (const std::string note = source->prepare(!options.quiet); !note.empty() && !options.quiet) printNote(note);

    Upmixer upmixer(layout, format, settings, !options.noAlign, *sink);
    double speed = 0.0;
    std::vector<std::int32_t> stereo(2 * kReadFrames);
    {
        Progress progress("upmixing", source->expectedFrames(), format.sampleRate, !options.quiet);
        while (const std::size_t frames = source->read(stereo.data(), kReadFrames)) {
            throwIfInterrupted();
            upmixer.push(stereo.data(), frames);
            progress.advance(frames);
        }
        upmixer.finish();
        speed = progress.speed();
    }
    // A stream keeps its whole frames even where the source turns out to be damaged; a file does not.
    source->verifyEnd();
    throwIfInterrupted();
    sink->finish();
    if (!options.quiet) printNote(summary(options, layout, format, upmixer.frames(), speed));
}

} // namespace tarn
