// Measures and draws one recording for a report.
// SPDX-License-Identifier: MIT
#include "cli/report_entry.h"

#include "cli/base64.h"
#include "cli/decibels.h"
#include "cli/failure.h"
#include "cli/file_source.h"
#include "cli/info_report.h"
#include "cli/interrupt.h"
#include "cli/json.h"
#include "cli/layout.h"
#include "cli/level_sink.h"
#include "cli/load_drawing.h"
#include "cli/loudness.h"
#include "cli/open_source.h"
#include "cli/picture_file.h"
#include "cli/picture_sink.h"
#include "cli/progress.h"
#include "cli/upmix_passes.h"
#include "cli/upmix_report.h"

#include <chrono>
#include <cmath>
#include <memory>
#include <vector>

namespace tarn
{

namespace
{

/// Pixels of the width of a picture; its text is legible on a page that is half as wide.
constexpr int kPictureWidth = 1200;

/// Measures the source of an upmix.
class SourceMeasure
{
public:
    explicit SourceMeasure(std::uint32_t sampleRate) : analysis(sampleRate), loudness(sampleRate) {}

    /// Adds frames as an upmix inspects them.
    void push(const std::int32_t* stereo, std::size_t frames, int headroomBits)
    {
        loudness.push(stereo, frames, headroomBits);
        fullScale.resize(2 * frames);
        for (std::size_t i = 0; i < 2 * frames; ++i) fullScale[i] = std::ldexp(stereo[i], headroomBits - 31);
        analysis.push(fullScale.data(), frames);
    }

    StereoAnalysis analysis;
    LoudnessMeter loudness;

private:
    std::vector<double> fullScale;
};

PictureStyle pictureStyleOf(const ReportStyle& style, const std::string& title, const PictureAnalysis& analysis)
{
    PictureSize size = defaultSize(analysis.source().channels.size(), analysis.hasBehind());
    size.height = size.height * kPictureWidth / size.width;
    size.width = kPictureWidth;
    return {.format = PictureFormat::Png,
            .size = size,
            .theme = themeNamed(style.theme),
            .title = title,
            .layout = style.layout};
}

} // namespace

Json measureEntry(const std::string& input, const ReportStyle& style, bool showsProgress, bool isQuiet)
{
    UpmixOptions options;
    options.input = input;
    options.layout = style.layout;
    options.room = style.room;
    options.quiet = isQuiet;
    options.inBatch = !showsProgress;
    const Layout& layout = layoutNamed(options.layout);
    const EngineSettings settings{.remap = {}, .room = roomSettingsOf(options.room, layout)};

    const std::unique_ptr<AudioSource> source = openSource(options, std::nullopt);
    const StreamFormat format = source->format();
    const std::string title = titleOf(*source, input);
    const PeakPlan plan{.keep = headroomBitsOf(options, layout, settings.room, *source) > 0};
    for (const std::string& note : source->prepare(showsProgress && !isQuiet, plan))
        if (!isQuiet) printNote(input + ": " + note);

    SourceMeasure measure(format.sampleRate);
    PictureSink picture(layout, settings, format.sampleRate, nullptr);
    LoudnessSink loudness(layout, format.sampleRate, &picture);
    LevelSink levels(layout.slots, format.bits, loudness);
    UpmixReport report{.layout = &layout, .format = format, .room = settings.room};
    report.inputScaleDb = decibels(source->scale());
    report.inputHeadroomBits = source->headroomBits();
    const auto start = std::chrono::steady_clock::now();
    upmixInto(levels, {options, layout, format, settings, *source, nullptr, report,
                       [&measure](const std::int32_t* stereo, std::size_t frames, int headroomBits) {
                           measure.push(stereo, frames, headroomBits);
                       }});
    picture.finishPicture();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    report.speed = static_cast<double>(report.frames) / format.sampleRate / time.count();
    report.clippedInput = source->clippedSamples();
    report.loss = source->loss();
    report.levels = levels.levels();
    throwIfInterrupted();
    printClippedInput(options, report);
    if (picture.analysis().frames() == 0) throw Failure(EX_DATAERR, input + ": contains no audio; get another copy");

    Finding finding{.facts = FileSource(input, FileSource::Accept::AnyAudio).facts(),
                    .analysis = measure.analysis,
                    .loss = report.loss};
    finding.facts.frames = framesAtRate(report.frames, format.sampleRate, finding.facts.sampleRate);
    Json upmix = jsonOf(options, report);
    upmix.erase("output");
    const std::string png = loadDrawing()(picture.analysis(), pictureStyleOf(style, title, picture.analysis()));
    return {{"title", title},
            {"info", jsonOf(input, finding)},
            {"upmix", upmix},
            {"before", finiteOrNull(measure.loudness.integrated() - report.inputScaleDb)},
            {"after", finiteOrNull(loudness.meter().integrated())},
            {"picture", base64Of(png)}};
}

} // namespace tarn
