// Upmixes the chosen part of an input and draws it.
// SPDX-License-Identifier: MIT
#include "cli/picture_command.h"

#include "cli/command_help.h"
#include "cli/failure.h"
#include "cli/help_texts.h"
#include "cli/interrupt.h"
#include "cli/open_source.h"
#include "cli/option_checks.h"
#include "cli/parse_number.h"
#include "cli/parse_time.h"
#include "cli/picture_sink.h"
#include "cli/progress.h"
#include "cli/shared_options.h"
#include "cli/upmix_passes.h"
#include "cli/upmix_report.h"
#include "cli/windowed_source.h"

#include <cmath>
#include <memory>
#include <utility>

namespace tarn
{

namespace
{

std::optional<PictureSize> parseSize(const std::string& text)
{
    const std::size_t cross = text.find('x');
    PictureSize size;
    if (cross == std::string::npos || !parseNumber(std::string_view(text).substr(0, cross), size.width) ||
        !parseNumber(std::string_view(text).substr(cross + 1), size.height))
        return std::nullopt;
    return size;
}

std::string sizeText(PictureSize size)
{
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

/// The message about a value that is no time or size.
std::string unreadable(const std::string& value, const std::string& kind, const std::string& example)
{
    return "'" + value + "' cannot be read as " + kind + "; write for example " + example;
}

CLI::Validator pictureSize()
{
    const auto check = [](const std::string& value) -> std::string {
        const auto size = parseSize(value);
        if (!size) return unreadable(value, "width and height", "--size 1600x1040");
        const bool fits = size->width >= kSmallestPicture.width && size->height >= kSmallestPicture.height &&
                          size->width <= kLargestPicture.width && size->height <= kLargestPicture.height;
        if (fits) return "";
        return value + " is out of range; use " + sizeText(kSmallestPicture) + " to " + sizeText(kLargestPicture) +
               ", for example --size 1600x1040";
    };
    return {check, ""};
}

/// Accepts times; with isLength not zero.
CLI::Validator timeCheck(bool isLength, const std::string& example)
{
    const auto check = [=](const std::string& value) -> std::string {
        const auto seconds = parseTime(value);
        if (!seconds) return unreadable(value, "a time", example);
        if (isLength && *seconds == 0.0) return value + " is out of range; use more than 0, for example " + example;
        return "";
    };
    return {check, ""};
}

std::uint64_t framesOf(const std::string& time, std::uint32_t sampleRate)
{
    return static_cast<std::uint64_t>(std::llround(parseTime(time).value() * sampleRate));
}

/// The options of the upmix that is drawn.
UpmixOptions upmixOptionsOf(const PictureOptions& options)
{
    UpmixOptions upmix;
    upmix.input = options.input;
    upmix.output = options.output;
    upmix.layout = options.layout;
    upmix.raw = options.raw;
    upmix.room = options.room;
    upmix.quiet = options.quiet;
    return upmix;
}

/// Refuses an empty window.
void checkLength(const PictureOptions& options, const std::string& name, const WindowedSource& source,
                 std::uint64_t frames)
{
    if (frames > 0) return;
    throw Failure(EX_USAGE, "--start " + options.start.value_or("0") + ": " + name + " ends at " +
                                shortDurationText(source.position(), source.format().sampleRate) +
                                "; give an earlier start");
}

} // namespace

CLI::App* addPicture(CLI::App& app, PictureOptions& options)
{
    CLI::App* const picture = app.add_subcommand("picture", "Draw where an upmix plays which frequency");
    picture->add_option("INPUT", options.input, "Audio file, or - for one on standard input")
        ->type_name("")
        ->required();
    picture->add_option("OUTPUT", options.output, "Picture to write (.png, .svg)")->type_name("")->required();
    addLayoutOption(*picture, options.layout, "Outputs to draw");
    picture->add_option("--start", options.start, "Begin at this time of INPUT: 90, or 1:30")
        ->type_name("TIME")
        ->check(timeCheck(false, "--start 1:30"));
    picture->add_option("--length", options.length, "Draw this much of INPUT; default: to its end")
        ->type_name("TIME")
        ->check(timeCheck(true, "--length 0:12"));
    picture
        ->add_option("--size", options.size,
                     "Width and height in pixels, 640x400 to 8192x8192;\n"
                     "default: 1600x1040, and higher with surround channels")
        ->type_name("WxH")
        ->check(pictureSize());
    addThemeOption(*picture, options.theme);
    picture->add_option("--title", options.title, "Title; default: artist and title, or the name of INPUT")
        ->type_name("TEXT");
    addRawOption(*picture, options.raw);
    addRoomOptions(*picture, options.room);
    picture->add_flag("--force", options.force, "Replace OUTPUT if it exists");
    picture->add_flag("--quiet", options.quiet, "Print only errors and warnings about lost audio");
    setHelp(*picture, kPictureHelp, "man tarn-picture describes what the picture shows.");
    return picture;
}

int runPicture(const PictureOptions& options)
{
    pictureFormatOf(options.output);
    const UpmixOptions upmix = upmixOptionsOf(options);
    if (options.input.empty()) throw Failure(EX_USAGE, "an empty file name; name a file, or - for a stream");
    if (options.raw && !isStream(options.input))
        throw Failure(EX_USAGE, "--raw: describes the stream on '-', but INPUT is a file; leave it out");
    std::optional<StreamFormat> raw;
    if (options.raw) raw = parseRawFormat(*options.raw);

    const Layout& layout = layoutNamed(options.layout);
    checkRoomOptions(options.room, layout, false);
    const EngineSettings settings{.remap = {}, .room = roomSettingsOf(upmix.room, layout)};
    auto opened = openSource(upmix, raw);
    const StreamFormat format = opened->format();
    const std::uint64_t start = options.start ? framesOf(*options.start, format.sampleRate) : 0;
    std::optional<std::uint64_t> length;
    if (options.length) length = std::max<std::uint64_t>(1, framesOf(*options.length, format.sampleRate));
    WindowedSource source(std::move(opened), start, length);

    PictureFile file(options.output, options.force, source.identity());
    PictureLook look{.theme = themeNamed(options.theme),
                     .title = options.title ? printable(*options.title) : titleOf(source, options.input),
                     .layout = options.layout,
                     .startSeconds = static_cast<double>(start) / format.sampleRate};
    if (options.size) look.size = parseSize(*options.size);
    const PeakPlan plan{.keep = headroomBitsOf(upmix, layout, settings.room, source) > 0};
    for (const std::string& note : source.prepare(!options.quiet, plan))
        if (!options.quiet) printNote(upmix.inputName() + ": " + note);

    PictureSink sink(layout, settings, format.sampleRate, nullptr);
    UpmixReport report{.layout = &layout, .format = format, .room = settings.room};
    upmixInto(sink, {upmix, layout, format, settings, source, nullptr, report});
    report.inputHeadroomBits = source.headroomBits();
    report.clippedInput = source.clippedSamples();
    report.loss = source.loss();
    throwIfInterrupted();
    checkLength(options, upmix.inputName(), source, sink.analysis().frames());
    sink.finishPicture();
    const PictureSize size = file.draw(sink.analysis(), look);
    throwIfInterrupted();
    file.commit();
    if (report.loss)
        printNote(upmix.inputName() + ": " + report.loss->message + "; the rest is drawn; " + report.loss->advice);
    printClippedInput(upmix, report);
    if (!options.quiet)
        printNote(upmix.inputName() + " -> " + options.output + ": " + options.layout + ", " +
                  shortDurationText(sink.analysis().frames(), format.sampleRate) + ", " + sizeText(size) + " pixels");
    return report.exitCode();
}

} // namespace tarn
