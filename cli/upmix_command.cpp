// Connects source, engine and sink for one upmix.
// SPDX-License-Identifier: MIT
#include "cli/upmix_command.h"

#include "cli/decibels.h"
#include "cli/existing_output.h"
#include "cli/failure.h"
#include "cli/file_sink.h"
#include "cli/interrupt.h"
#include "cli/json.h"
#include "cli/layout.h"
#include "cli/level_sink.h"
#include "cli/open_source.h"
#include "cli/picture_file.h"
#include "cli/picture_sink.h"
#include "cli/progress.h"
#include "cli/raw_pcm.h"
#include "cli/remap_file.h"
#include "cli/text.h"
#include "cli/upmix_passes.h"
#include "cli/upmixer.h"
#include "cli/wrap_counter.h"
#include "host/zrk_tarn_processor.h"
#include "stream/mode_names.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace tarn
{

namespace
{

/// The format of the engine and of the output.
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
                  " bits, the maximum of its format; the input has " + std::to_string(source.format().bits));
    }
    return format;
}

EngineSettings engineSettings(const UpmixOptions& options, const Layout& layout)
{
    return {.mode = zrk_tarn::modeNamed(zrk_tarn::kSteeringModeNames, options.mode).value(),
            .room = options.bypass ? zrk_tarn::RoomSettings{} : roomSettingsOf(options.room, layout),
            .bypass = options.bypass};
}

/// Reads the matrix of a remapped layout and assigns its columns to slots. Bypass does not use it: the stereo goes to
/// FL and FR.
///
/// Returns the slot names of the columns.
RemapSlots applyRemap(const UpmixOptions& options, Layout& layout, EngineSettings& settings)
{
    if (!layout.remapped) return {};
    const RemapFile remap = readRemapFile(options.remapFile);
    settings.remap = remap.matrix;
    if (options.bypass) return remap.slots;
    placeColumns(layout, remap.slots);
    if (!options.quiet && !options.inBatch)
        for (const std::string& note : remap.notes) printNote(note);
    return remap.slots;
}

FileContents contentsOf(const UpmixOptions& options, const Layout& layout, StreamFormat format, AudioSource& source,
                        NamingHook beforeNaming)
{
    FileContents contents{
        .layout = layout, .format = format, .metadata = source.metadata(), .beforeNaming = std::move(beforeNaming)};
    if (options.noAlign) contents.metadata = delayed(std::move(contents.metadata), zrk_tarn_processor_t::kDelayFrames);
    return contents;
}

std::unique_ptr<AudioSink> openSink(const UpmixOptions& options, const FileContents& contents,
                                    const AudioSource& source)
{
    if (isStream(options.output)) return std::make_unique<RawSink>(contents.layout.slots, contents.format);
    return openFileSink(options.output, options.force, source.identity(), contents);
}

/// Prints what was changed or left out in the tags of the input.
void noteTags(const UpmixOptions& options, const Tags& tags)
{
    if (isStream(options.output)) return;
    if (tags.converted && !options.quiet)
        printNote(options.inputName() + ": its tags are not UTF-8 and are read as Windows-1252");
    for (const std::string& note : tags.leftOut) printNote(options.inputName() + ": " + note);
}

/// Adds the output to the ledger when it is complete. The report is read then.
NamingHook recordingHook(const UpmixOptions& options, const UpmixReport& report)
{
    if (!options.record) return {};
    return [&options, &report](const FileState& state) { options.record(state, lossOf(report)); };
}

/// Runs an upmix. Returns whether it is complete: no sample ended it by being above full scale.
bool staysInFullScale(const std::function<void()>& upmixToSink)
{
    try {
        upmixToSink();
        return true;
    } catch (const AboveFullScale&) {
        return false;
    }
}

/// Says so if the output for two loudspeakers is the stereo as it is.
void noteUnchangedStereo(const UpmixOptions& options, const Layout& layout, const EngineSettings& settings)
{
    if (keepsStereo(layout, settings.room) && !options.bypass && !options.quiet && !options.inBatch)
        printNote(options.outputName() + ": " + kUnchangedStereo);
}

/// Whether the source keeps samples above full scale, or is scaled down.
PeakPlan peakPlanOf(const UpmixOptions& options, const Layout& layout, const EngineSettings& settings,
                    const AudioSource& source)
{
    PeakPlan plan{.keep = headroomBitsOf(options, layout, settings.room, source) > 0};
    if (options.album) plan.sharedPeak = options.album->peak;
    return plan;
}

/// Prepares the source and prints its notes, but not those that are printed already. Returns all of its notes.
std::vector<std::string> prepare(const UpmixOptions& options, AudioSource& source, PeakPlan plan,
                                 const std::vector<std::string>& printed = {})
{
    std::vector<std::string> notes = source.prepare(!options.quiet && !options.inBatch, plan);
    for (const std::string& note : notes)
        if (!options.quiet && std::find(printed.begin(), printed.end(), note) == printed.end())
            printNote(options.inputName() + ": " + note);
    return notes;
}

/// Counts the samples that wrap around in the matrix; null if none can wrap.
std::unique_ptr<WrapCounter> wrapCounter(const UpmixOptions& options, StreamFormat format,
                                         const EngineSettings& settings)
{
    if (options.bypass || !WrapCounter::canWrap(settings.remap, format.bits)) return nullptr;
    return std::make_unique<WrapCounter>(format, settings, !options.noAlign);
}

/// Refuses a damaged input with --strict.
void checkLoss(const UpmixOptions& options, const std::optional<Loss>& loss)
{
    if (loss && options.strict)
        throw Failure(EX_DATAERR,
                      options.inputName() + ": " + loss->message + "; " + loss->advice + ", or leave out --strict");
}

/// The report of --skip-existing; none if the input must be upmixed.
std::optional<UpmixReport> reportOfSkipped(const UpmixOptions& options)
{
    const ExistingOutput existing = findExistingOutput(options);
    if (!existing.isComplete) return std::nullopt;
    checkLoss(options, existing.loss);
    if (!options.quiet && !options.inBatch)
        printNote(options.output + ": is complete already, so " + options.input + " is skipped");
    UpmixReport report{.loss = existing.loss, .skipped = true};
    printLoss(options, report);
    return report;
}

/// Refuses an existing output of a batch, with advice for all its files.
void refuseExistingInBatch(const UpmixOptions& options)
{
    std::error_code ignored;
    if (options.inBatch && !options.skipExisting && !options.force &&
        std::filesystem::is_regular_file(options.output, ignored))
        throw Failure(EX_USAGE, options.output +
                                    ": exists already; add --skip-existing to keep complete outputs, or --force to "
                                    "replace them");
}

/// Draws the picture of --picture. It has the colours of the dark theme, like that of `tarn picture`.
void drawInto(PictureFile& picture, PictureSink& sink, const UpmixOptions& options, AudioSource& source)
{
    sink.finishPicture();
    picture.draw(sink.analysis(), {.title = titleOf(source, options.input), .layout = options.layout});
}

} // namespace

UpmixReport upmix(const UpmixOptions& options)
{
    checkOptions(options);
    refuseExistingInBatch(options);
    if (options.skipExisting)
        if (auto skipped = reportOfSkipped(options)) return *skipped;
    Layout layout = layoutNamed(options.layout);
    std::optional<StreamFormat> raw;
    if (options.raw) raw = parseRawFormat(*options.raw);
    EngineSettings settings = engineSettings(options, layout);
    const RemapSlots columns = applyRemap(options, layout, settings);

    const auto source = openSource(options, raw);
    const StreamFormat format = engineFormat(options, raw, *source);
    UpmixReport report{.layout = &layoutNamed(options.layout),
                       .format = format,
                       .delayFrames = options.noAlign ? zrk_tarn_processor_t::kDelayFrames : 0,
                       .room = settings.room,
                       .bypass = options.bypass};
    const FileContents contents = isStream(options.output)
                                      ? FileContents{.layout = layout, .format = format}
                                      : contentsOf(options, layout, format, *source, recordingHook(options, report));
    auto sink = openSink(options, contents, *source);
    noteTags(options, contents.metadata.tags);
    std::optional<PictureFile> picture;
    if (!options.picture.empty()) picture.emplace(options.picture, options.force, source->identity());
    PeakPlan plan = peakPlanOf(options, layout, settings, *source);
    plan.canStartOver = !plan.keep && !plan.sharedPeak && source->canExceedFullScale() && !isStream(options.output);
    const std::vector<std::string> notes = prepare(options, *source, plan);
    noteUnchangedStereo(options, layout, settings);

    std::optional<PictureSink> drawn;
    std::optional<LevelSink> levels;
    std::unique_ptr<WrapCounter> wraps;
    std::chrono::steady_clock::time_point start;
    const auto upmixToSink = [&] {
        AudioSink* output = sink.get();
        if (picture) output = &drawn.emplace(layout, settings, format.sampleRate, output);
        if (options.json) output = &levels.emplace(layout.slots, format.bits, *output);
        wraps = wrapCounter(options, format, settings);
        start = std::chrono::steady_clock::now();
        upmixInto(*output, {options, layout, format, settings, *source, wraps.get(), report});
    };
    if (!staysInFullScale(upmixToSink)) {
        plan.canStartOver = false;
        prepare(options, *source, plan, notes);
        sink.reset(); // two temporary files would need twice the space
        sink = openSink(options, contents, *source);
        upmixToSink();
    }
    report.loss = source->loss();
    checkLoss(options, report.loss);
    throwIfInterrupted();
    if (picture) drawInto(*picture, *drawn, options, *source);
    sink->finish();
    if (picture) picture->commit();

    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    report.speed = static_cast<double>(report.frames) / format.sampleRate / elapsed.count();
    report.inputScaleDb = decibels(source->scale());
    report.inputHeadroomBits = source->headroomBits();
    report.clippedInput = source->clippedSamples();
    if (wraps) report.wrapped = wraps->wrapped();
    if (levels) report.levels = levels->levels();
    std::vector<std::string> warnings = sink->notes();
    if (wraps && (report.wrapped > 0 || !options.quiet)) warnings.push_back(wraps->note(columns));
    printReport(options, report, warnings);
    return report;
}

AlbumPart measureForAlbum(const UpmixOptions& options)
{
    Layout layout = layoutNamed(options.layout);
    EngineSettings settings = engineSettings(options, layout);
    if (layout.remapped) settings.remap = readRemapFile(options.remapFile).matrix;
    const auto source = openSource(options, std::nullopt);
    source->prepare(false, peakPlanOf(options, layout, settings, *source));
    AlbumPart part{.peak = 1.0 / source->scale()};
    if (!options.loudnessMatch) return part;

    UpmixReport report;
    const StreamFormat format{.sampleRate = source->format().sampleRate, .bits = 24};
    const LoudnessReport loudness = measureLoudness({options, layout, format, settings, *source, nullptr, report});
    part.seconds = static_cast<double>(report.frames) / format.sampleRate;
    if (!std::isfinite(loudness.input) || !std::isfinite(loudness.atUnityGain)) return part;
    part.input = loudness.input;
    part.upmixed = loudness.atUnityGain;
    return part;
}

int runUpmix(const UpmixOptions& options)
{
    const UpmixReport report = upmix(options);
    if (options.json) printJson(jsonOf(options, report), isStream(options.output) ? stderr : stdout);
    return report.exitCode();
}

} // namespace tarn
