// Prints the result of one upmix as notes or as JSON.
// SPDX-License-Identifier: MIT
#include "cli/upmix_report.h"

#include "cli/decibels.h"
#include "cli/json.h"
#include "cli/progress.h"
#include "cli/text.h"
#include "stream/mode_names.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace tarn
{

namespace
{

double limitedSecondsOf(const UpmixReport& report)
{
    // Blocks can begin before the input and end after it.
    return static_cast<double>(std::min(64 * report.limitedBlocks, report.frames)) / report.format.sampleRate;
}

/// The work of the limiter; empty if it did nothing. Small figures are rounded up to 0.1.
std::string limiterText(const UpmixReport& report)
{
    if (!report.room.limiter || report.limitedBlocks == 0) return "";
    constexpr double kSmallest = 0.1;
    return formatted(", limited by up to %.1f dB", std::max(decibels(1.0 / report.limiterGain), kSmallest)) +
           formatted(" for %.1f s", std::max(limitedSecondsOf(report), kSmallest));
}

std::string summary(const UpmixOptions& options, const UpmixReport& report)
{
    return options.inputName() + " -> " + options.outputName() + ": " + std::string(report.layout->name) + " (" +
           std::string(report.layout->slotNames) + "), " + std::to_string(report.format.sampleRate) + " Hz, " +
           std::to_string(report.format.bits) + " bits, " + durationText(report.frames, report.format.sampleRate) +
           limiterText(report) + formatted(", %.0f x real time", report.speed);
}

std::string clippingNote(const UpmixOptions& options, const UpmixReport& report)
{
    const std::string gain = formatted("%+.2f dB", report.room.gainDb);
    const std::string limiter = report.layout->remapped || report.bypass ? ""
                                : options.room.noLimiter                 ? "leave out --no-limiter, or "
                                                                         : "add --limiter, or ";
    return std::to_string(report.clipped) + " samples were beyond full scale" +
           (report.room.gainDb != 0.0 ? " at a gain of " + gain : "") + " and are clipped; " + limiter +
           (options.loudnessMatch ? "give --gain with less than " + gain + " instead of --loudness-match"
                                  : "give a smaller --gain");
}

std::string inputClippingNote(const UpmixReport& report)
{
    const std::string count = std::to_string(report.clippedInput);
    const bool isOne = report.clippedInput == 1;
    if (report.inputHeadroomBits == 0)
        return count + (isOne ? " sample was" : " samples were") +
               " beyond full scale after the conversion, and clipped; use a preset with a limiter, or a softer stream";
    return count + (isOne ? " sample is" : " samples are") + " more than " +
           formatted("%.0f dB", decibels(std::exp2(report.inputHeadroomBits))) + " above full scale and " +
           (isOne ? "is" : "are") + " clipped; the file is probably damaged: check where it comes from";
}

Json channelsOf(const UpmixReport& report)
{
    double total = 0.0;
    for (const ChannelLevel& level : report.levels) total += level.energy;
    std::istringstream names{std::string(report.layout->slotNames)};
    Json channels = Json::array();
    for (const ChannelLevel& level : report.levels) {
        std::string name;
        names >> name;
        const double meanSquare = level.energy / static_cast<double>(report.frames);
        channels.push_back({{"name", name},
                            {"peak_dbfs", finiteOrNull(decibels(level.peak))},
                            {"rms_dbfs", finiteOrNull(decibels(std::sqrt(meanSquare)))},
                            {"energy_share", total > 0.0 ? Json(level.energy / total) : Json()},
                            {"full_scale_samples", level.fullScaleSamples}});
    }
    return channels;
}

/// The settings that have an effect on the layout.
void addRoom(Json& json, const UpmixReport& report)
{
    using enum zrk_tarn::OutputSlot::Source;
    if (report.layout->remapped || report.bypass) return;
    json["centre_db"] = report.room.centreDb;
    if (report.layout->hasSource(Engine)) {
        json["width"] = report.room.width;
        json["bass"] = zrk_tarn::nameOf(report.room.bass);
    }
    if (report.layout->hasSource(Surround))
        json["surrounds_db"] = report.room.surroundDb ? Json(*report.room.surroundDb) : Json();
    if (report.layout->hasSource(Lfe)) json["lfe_db"] = report.room.lfeDb ? Json(*report.room.lfeDb) : Json();
}

/// Null without the limiter.
Json limiterOf(const UpmixReport& report)
{
    if (!report.room.limiter) return {};
    return {{"seconds", limitedSecondsOf(report)}, {"largest_reduction_db", decibels(1.0 / report.limiterGain)}};
}

} // namespace

Json lossOf(const UpmixReport& report)
{
    if (!report.loss) return Json::object();
    return {{"exit_code", report.exitCode()}, {"loss", report.loss->json()}};
}

void printLoss(const UpmixOptions& options, const UpmixReport& report)
{
    if (report.loss)
        printNote(options.inputName() + ": " + report.loss->message +
                  (report.skipped ? "; " : "; the rest is upmixed; ") + report.loss->advice);
}

void printClippedInput(const UpmixOptions& options, const UpmixReport& report)
{
    if (report.clippedInput > 0) printNote(options.inputName() + ": " + inputClippingNote(report));
}

void printReport(const UpmixOptions& options, const UpmixReport& report, const std::vector<std::string>& warnings)
{
    const std::string output = options.outputName();
    printLoss(options, report);
    if (!options.quiet) {
        printNote(summary(options, report));
        if (!options.picture.empty()) printNote(options.inputName() + " -> " + options.picture + ": picture");
        if (report.loudness) printLoudness(output, *report.loudness, report.room.gainDb);
        // With the gain of an album, files are louder or softer than before.
        if (report.loudness && !options.album) printShortfall(output, *report.loudness);
    }
    for (const std::string& warning : warnings) printNote(output + ": " + warning);
    printClippedInput(options, report);
    if (report.clipped > 0) printNote(output + ": " + clippingNote(options, report));
}

Json jsonOf(const UpmixOptions& options, const UpmixReport& report)
{
    if (report.skipped) {
        Json json = {{"input", options.input}, {"output", options.output}, {"skipped", true}};
        json.update(lossOf(report));
        return json;
    }
    Json json = {{"input", options.input},
                 {"output", options.output},
                 {"layout", report.layout->name},
                 {"sample_rate", report.format.sampleRate},
                 {"bits", report.format.bits},
                 {"frames", report.frames},
                 {"seconds", static_cast<double>(report.frames) / report.format.sampleRate},
                 {"delay_frames", report.delayFrames},
                 {"bypass", report.bypass},
                 {"input_gain_db", report.inputScaleDb},
                 {"clipped_input_samples", report.clippedInput},
                 {"gain_db", report.room.gainDb},
                 {"limiter", limiterOf(report)},
                 {"clipped_samples", report.clipped},
                 {"speed", report.speed}};
    addRoom(json, report);
    json.update(lossOf(report));
    if (report.layout->remapped) json["wrapped_samples"] = report.wrapped;
    if (report.loudness) json["loudness_lufs"] = jsonOf(*report.loudness);
    if (!report.levels.empty()) json["channels"] = channelsOf(report);
    return json;
}

} // namespace tarn
