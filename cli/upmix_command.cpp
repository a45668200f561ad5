#include "cli/upmix_command.h"

#include "cli/existing_output.h"
#include "cli/failure.h"
#include "cli/file_sink.h"
#include "cli/file_source.h"
#include "cli/interrupt.h"
#include "cli/loudness.h"
#include "cli/progress.h"
#include "cli/raw_pcm.h"
#include "cli/remap_file.h"
#include "cli/resampled_source.h"
#include "cli/text.h"
#include "cli/wrap_counter.h"
#include "host/zrk_tarn_processor.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <vector>

namespace tarn
{

namespace
{

constexpr std::size_t kReadFrames = 4096;
constexpr double kMostGain = 8.0; ///< that the stream can give

bool isStream(const std::string& name)
{
    return name == "-";
}

/// A file or stream as messages name it.
std::string nameOf(const std::string& file, const char* stream)
{
    return isStream(file) ? stream : file;
}

/// The format that the engine runs in, which is the output's.
StreamFormat engineFormat(const UpmixOptions& options, const std::optional<StreamFormat>& raw,
                          const AudioSource& source)
{
    StreamFormat format = source.format();
    if (raw && !isStream(options.input)) {
        if (raw->sampleRate != format.sampleRate)
            throw Failure(EX_USAGE, "--raw " + *options.raw + ": " + options.input + " runs at " +
                                        std::to_string(format.sampleRate) + " Hz; write --raw " +
                                        std::to_string(format.sampleRate) + ":" + std::to_string(raw->bits) +
                                        ", or add --rate " + std::to_string(raw->sampleRate));
        if (options.bits && *options.bits != raw->bits)
            throw Failure(EX_USAGE, "--bits " + std::to_string(*options.bits) + ": contradicts --raw " + *options.raw +
                                        "; leave one of them out");
        format.bits = raw->bits;
    }
    if (options.bits) {
        format.bits = *options.bits;
    } else if (!isStream(options.output) && format.bits > containerOf(options.output).maxBits) {
        format.bits = containerOf(options.output).maxBits;
        printNote(options.output + ": is written with " + std::to_string(format.bits) +
                  " bits, the most that its format holds; the input has " + std::to_string(source.format().bits));
    }
    return format;
}

EngineSettings engineSettings(const UpmixOptions& options)
{
    return {.mode = options.mode,
            .mixFraction = options.mixFraction,
            .gain = static_cast<float>(std::pow(10.0, options.gainDb.value_or(0.0) / 20.0)),
            .bypass = options.bypass};
}

/// Puts the matrix of a remapped layout in its place. Bypassed, it is not used, and the stereo is in FL and FR.
///
/// Returns the names of its columns.
RemapSlots applyRemap(const UpmixOptions& options, Layout& layout, EngineSettings& settings)
{
    if (!layout.remapped) return {};
    const RemapFile remap = readRemapFile(options.remapFile);
    settings.remap = remap.matrix;
    if (options.bypass) return remap.slots;
    placeColumns(layout, remap.slots);
    if (!options.quiet)
        for (const std::string& note : remap.notes) printNote(note);
    return remap.slots;
}

std::unique_ptr<AudioSource> openSource(const UpmixOptions& options, const std::optional<StreamFormat>& raw)
{
    std::unique_ptr<AudioSource> source;
    if (isStream(options.input) && raw) {
        source = std::make_unique<RawSource>(*raw);
    } else {
        source = std::make_unique<FileSource>(options.input);
    }
    const std::uint32_t rate = options.rate.value_or(engineRateFor(source->format().sampleRate));
    if (rate == source->format().sampleRate) return source;
    return std::make_unique<ResampledSource>(std::move(source), rate);
}

std::unique_ptr<AudioSink> openSink(const UpmixOptions& options, const Layout& layout, StreamFormat format,
                                    AudioSource& source)
{
    if (isStream(options.output)) return std::make_unique<RawSink>(std::size_t{layout.slots} * format.bytesPerSample());
    const FileContents contents{.layout = layout, .format = format, .metadata = source.metadata()};
    auto sink = openFileSink(options.output, options.force, source.identity(), contents);
    if (contents.metadata.tags.converted && !options.quiet)
        printNote(nameOf(options.input, "standard input") + ": its tags are not UTF-8 and are taken for Windows-1252");
    for (const std::string& note : contents.metadata.tags.leftOut)
        printNote(nameOf(options.input, "standard input") + ": " + note);
    return sink;
}

/// Prepares the source and prints what it has to say.
void prepare(const UpmixOptions& options, AudioSource& source)
{
    for (const std::string& note : source.prepare(!options.quiet && !options.inBatch))
        if (!options.quiet) printNote(nameOf(options.input, "standard input") + ": " + note);
}

std::string summary(const UpmixOptions& options, const Layout& layout, StreamFormat format, std::uint64_t frames,
                    double speed)
{
    return nameOf(options.input, "standard input") + " -> " + nameOf(options.output, "standard output") + ": " +
           std::string(layout.name) + " (" + std::string(layout.slotNames) + "), " + std::to_string(format.sampleRate) +
           " Hz, " + std::to_string(format.bits) + " bits, " + durationText(frames, format.sampleRate) +
           formatted(", %.0f x real time", speed);
}

/// Counts what wraps around in the matrix; null where nothing can.
std::unique_ptr<WrapCounter> wrapCounter(const UpmixOptions& options, StreamFormat format,
                                         const EngineSettings& settings)
{
    if (options.bypass || !WrapCounter::canWrap(settings.remap, format.bits)) return nullptr;
    return std::make_unique<WrapCounter>(format, settings, !options.noAlign);
}

/// Sends the whole source through the engine. Returns how many times faster than real time that went.
double pump(const UpmixOptions& options, const char* label, AudioSource& source, Upmixer& upmixer, LoudnessMeter* meter,
            WrapCounter* wraps)
{
    std::vector<std::int32_t> stereo(2 * kReadFrames);
    Progress progress(label, source.expectedFrames(), source.format().sampleRate, !options.quiet && !options.inBatch);
    while (const std::size_t frames = source.read(stereo.data(), kReadFrames)) {
        throwIfInterrupted();
        if (meter != nullptr) meter->push(stereo.data(), frames);
        if (wraps != nullptr) wraps->push(stereo.data(), frames);
        upmixer.push(stereo.data(), frames);
        progress.advance(frames);
    }
    if (wraps != nullptr) wraps->finish();
    upmixer.finish();
    return progress.speed();
}

/// Measures input and output at unity gain, and begins again with the source.
LoudnessReport measureLoudness(const UpmixOptions& options, const Layout& layout, StreamFormat format,
                               const EngineSettings& settings, AudioSource& source)
{
    LoudnessMeter input(format.sampleRate);
    LoudnessSink output(layout, format, nullptr);
    Upmixer upmixer(layout, format, settings, true, output);
    pump(options, "measuring loudness", source, upmixer, &input, nullptr);
    source.rewind();
    return {.input = input.integrated(), .atUnityGain = output.meter().integrated(), .output = 0.0};
}

/// The gain in dB that makes the output as loud as the input.
double matchingGainDb(const UpmixOptions& options, const LoudnessReport& loudness)
{
    if (!std::isfinite(loudness.input) || !std::isfinite(loudness.atUnityGain)) {
        if (!options.quiet) printNote(options.input + ": too quiet for a loudness, so the gain stays 0 dB");
        return 0.0;
    }
    const double gainDb = loudness.input - loudness.atUnityGain;
    if (gainDb > decibels(kMostGain))
        throw Failure(EX_DATAERR, options.input + ": matching its loudness takes a gain of " +
                                      formatted("%.1f dB", gainDb) + ", and " + formatted("%.0f", decibels(kMostGain)) +
                                      " dB is the most; leave --loudness-match out");
    return gainDb;
}

/// Refuses --raw where no stream is raw, or where a raw stream does not allow what is asked for.
void checkRaw(const UpmixOptions& options)
{
    if (!options.raw) return;
    if (options.loudnessMatch && isStream(options.input))
        throw Failure(EX_USAGE,
                      "--loudness-match: reads INPUT twice, which a raw stream does not allow; name a file, or "
                      "give --gain");
    if (!isStream(options.input) && !isStream(options.output))
        throw Failure(EX_USAGE,
                      "--raw: describes the stream on '-', but INPUT and OUTPUT are both files; leave it out");
}

/// Tells what came of the work.
///
/// warnings  about the output
void printResults(const UpmixOptions& options, const Layout& layout, const UpmixReport& report,
                  const std::vector<std::string>& warnings)
{
    const std::string output = nameOf(options.output, "standard output");
    if (report.loss)
        printNote(nameOf(options.input, "standard input") + ": " + report.loss->message + "; the rest is upmixed; " +
                  report.loss->advice);
    if (!options.quiet) {
        printNote(summary(options, layout, report.format, report.frames, report.speed));
        if (report.loudness)
            printNote(output + ": loudness of the input " + formatted("%.1f", report.loudness->input) +
                      " LUFS, of the output " + formatted("%.1f", report.loudness->output) + " LUFS with " +
                      formatted("%+.2f", report.gainDb) + " dB");
    }
    for (const std::string& warning : warnings) printNote(output + ": " + warning);
    if (report.clipped > 0)
        printNote(output + ": " + std::to_string(report.clipped) +
                  " samples were beyond full scale and are clipped; give a smaller --gain" +
                  (options.loudnessMatch ? " in place of --loudness-match" : ""));
}

} // namespace

void checkOptions(const UpmixOptions& options)
{
    const Layout& layout = layoutNamed(options.layout);
    if (options.input.empty() || options.output.empty())
        throw Failure(EX_USAGE, "an empty file name; name a file, or - for a stream");
    if (options.bypass && (options.gainDb || options.loudnessMatch))
        throw Failure(EX_USAGE, "--bypass: leaves the samples as they are; leave out --gain and --loudness-match");
    if (options.gainDb && options.loudnessMatch)
        throw Failure(EX_USAGE, "--gain: --loudness-match chooses the gain itself; leave one of them out");
    if (layout.remapped && options.remapFile.empty())
        throw Failure(EX_USAGE, "--layout slots8: needs a matrix; add --remap FILE (man tarn-upmix describes it)");
    if (!layout.remapped && !options.remapFile.empty())
        throw Failure(EX_USAGE, "--remap: only --layout slots8 takes a matrix; add --layout slots8, or leave --remap "
                                "out");
    checkRaw(options);
    if (isStream(options.output)) return;
    containerOf(options.output);
    std::error_code ignored;
    if (!options.remapFile.empty() && std::filesystem::equivalent(options.output, options.remapFile, ignored))
        throw Failure(EX_USAGE, options.output + ": is the remap file; choose another name for the output");
}

UpmixReport upmix(const UpmixOptions& options)
{
    checkOptions(options);
    if (options.skipExisting && hasCompleteOutput(options)) {
        if (!options.quiet && !options.inBatch)
            printNote(options.output + ": is complete already, so " + options.input + " is skipped");
        return {.skipped = true};
    }
    Layout layout = layoutNamed(options.layout);
    std::optional<StreamFormat> raw;
    if (options.raw) raw = parseRawFormat(*options.raw);
    EngineSettings settings = engineSettings(options);
    const RemapSlots columns = applyRemap(options, layout, settings);

    const auto source = openSource(options, raw);
    const StreamFormat format = engineFormat(options, raw, *source);
    const auto sink = openSink(options, layout, format, *source);
    prepare(options, *source);

    UpmixReport report{.layout = &layoutNamed(options.layout),
                       .format = format,
                       .delayFrames = options.noAlign ? zrk_tarn_processor_t::kDelayFrames : 0,
                       .gainDb = options.gainDb.value_or(0.0),
                       .bypass = options.bypass};
    AudioSink* into = sink.get();
    std::optional<LoudnessSink> loudness;
    if (options.loudnessMatch) {
        report.loudness = measureLoudness(options, layout, format, settings, *source);
        report.gainDb = matchingGainDb(options, *report.loudness);
        settings.gain = static_cast<float>(std::pow(10.0, report.gainDb / 20.0));
        into = &loudness.emplace(layout, format, into);
    }
    std::optional<LevelSink> levels;
    if (options.json) into = &levels.emplace(layout.slots, format, *into);

    Upmixer upmixer(layout, format, settings, !options.noAlign, *into);
    const auto wraps = wrapCounter(options, format, settings);
    report.speed = pump(options, "upmixing", *source, upmixer, nullptr, wraps.get());
    report.loss = source->loss();
    if (report.loss && options.strict)
        throw Failure(EX_DATAERR, nameOf(options.input, "standard input") + ": " + report.loss->message + "; " +
                                      report.loss->advice + ", or leave out --strict");
    throwIfInterrupted();
    sink->finish();

    report.frames = upmixer.frames();
    report.clipped = upmixer.clipped();
    if (wraps) report.wrapped = wraps->wrapped();
    if (levels) report.levels = levels->levels();
    if (loudness) report.loudness->output = loudness->meter().integrated();
    report.clipped += source->clippedSamples();
    std::vector<std::string> warnings = sink->notes();
    if (wraps && (report.wrapped > 0 || !options.quiet)) warnings.push_back(wraps->note(columns));
    printResults(options, layout, report, warnings);
    return report;
}

Json jsonOf(const UpmixOptions& options, const UpmixReport& report)
{
    if (report.skipped) return {{"input", options.input}, {"output", options.output}, {"skipped", true}};
    Json json = {{"input", options.input},
                 {"output", options.output},
                 {"layout", report.layout->name},
                 {"sample_rate", report.format.sampleRate},
                 {"bits", report.format.bits},
                 {"frames", report.frames},
                 {"seconds", static_cast<double>(report.frames) / report.format.sampleRate},
                 {"delay_frames", report.delayFrames},
                 {"bypass", report.bypass},
                 {"gain_db", report.gainDb},
                 {"clipped_samples", report.clipped},
                 {"speed", report.speed}};
    if (report.loss) {
        json["exit_code"] = report.exitCode();
        json["loss"] = report.loss->json();
    }
    if (report.layout->remapped) json["wrapped_samples"] = report.wrapped;
    if (report.loudness)
        json["loudness_lufs"] = {{"input", finiteOrNull(report.loudness->input)},
                                 {"output_without_gain", finiteOrNull(report.loudness->atUnityGain)},
                                 {"output", finiteOrNull(report.loudness->output)}};

    double total = 0.0;
    for (const ChannelLevel& level : report.levels) total += level.energy;
    std::istringstream names{std::string(report.layout->slotNames)};
    for (const ChannelLevel& level : report.levels) {
        std::string name;
        names >> name;
        const double meanSquare = level.energy / static_cast<double>(report.frames);
        json["channels"].push_back({{"name", name},
                                    {"peak_dbfs", finiteOrNull(decibels(level.peak))},
                                    {"rms_dbfs", finiteOrNull(decibels(std::sqrt(meanSquare)))},
                                    {"energy_share", total > 0.0 ? Json(level.energy / total) : Json()},
                                    {"full_scale_samples", level.fullScaleSamples}});
    }
    return json;
}

int runUpmix(const UpmixOptions& options)
{
    const UpmixReport report = upmix(options);
    if (options.json) printJson(jsonOf(options, report), isStream(options.output) ? stderr : stdout);
    return report.exitCode();
}

} // namespace tarn
