// Analyses audio files and prints lines, tables or JSON.
// SPDX-License-Identifier: MIT
#include "cli/info_command.h"

#include "cli/decibels.h"
#include "cli/failure.h"
#include "cli/file_source.h"
#include "cli/interrupt.h"
#include "cli/json.h"
#include "cli/progress.h"
#include "cli/stereo_analysis.h"
#include "cli/stream_format.h"
#include "cli/text.h"
#include "cli/worker_processes.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <utility>

namespace tarn
{

namespace
{

constexpr std::size_t kReadFrames = 4096;

/// The result for one input.
struct Finding
{
    FileFacts facts;
    std::optional<StereoAnalysis> analysis{}; ///< only for stereo
    std::optional<Loss> loss{};               ///< only for stereo

    bool isIncomplete() const noexcept { return loss && !loss->isNegligible(); }
};

Finding examine(const std::string& input, bool quiet, bool showProgress)
{
    std::error_code ignored;
    if (std::filesystem::is_directory(input, ignored))
        throw Failure(EX_NOINPUT, input + ": is a folder; to examine the files in it, type: tarn info " +
                                      shellQuoted(std::filesystem::path(input) / "") + "*");
    FileSource source(input, FileSource::Accept::AnyAudio);
    Finding finding{.facts = source.facts()};
    if (finding.facts.channels != 2) return finding;

    if (!quiet)
        for (const std::string& note : source.readingNotes()) printNote(input + ": " + note);
    StereoAnalysis& analysis = finding.analysis.emplace(finding.facts.sampleRate);
    Progress progress("examining", source.expectedFrames(), finding.facts.sampleRate, showProgress);
    std::vector<double> stereo(2 * kReadFrames);
    while (const std::size_t frames = source.readFullScale(stereo.data(), kReadFrames)) {
        throwIfInterrupted();
        analysis.push(stereo.data(), frames);
        progress.advance(frames);
    }
    finding.loss = source.loss();
    if (finding.loss) printNote(input + ": " + finding.loss->message + "; " + finding.loss->advice);
    finding.facts.frames = analysis.frames();
    return finding;
}

/// The reason why an input cannot be upmixed; empty if it can.
std::string obstacle(const FileFacts& facts)
{
    if (facts.channels > 2) return "multichannel already: only mono and stereo can be upmixed";
    if (!isConvertibleRate(facts.sampleRate))
        return "unsupported sample rate: " + convertibleRates() + " can be upmixed";
    return {};
}

/// Mean level of both sides, dBFS.
double levelDb(const StereoMeasure& measure, std::uint64_t frames)
{
    return energyDecibels(measure.energy() / 2.0 / static_cast<double>(frames));
}

Json jsonOf(const StereoMeasure& measure, std::uint64_t frames)
{
    const std::optional<double> correlation = measure.correlation();
    return {{"correlation", correlation ? Json(*correlation) : Json()},
            {"side_to_mid_db", finiteOrNull(measure.sideToMidDb())},
            {"left_to_right_db", finiteOrNull(measure.leftToRightDb())},
            {"level_dbfs", finiteOrNull(levelDb(measure, frames))}};
}

Json jsonOf(const std::string& input, const Finding& finding)
{
    const FileFacts& facts = finding.facts;
    Json json = {{"input", input},
                 {"container", facts.container},
                 {"codec", facts.codec},
                 {"sample_rate", facts.sampleRate},
                 {"bits", facts.bits != 0 ? Json(facts.bits) : Json()},
                 {"channels", facts.channels},
                 {"frames", facts.frames ? Json(*facts.frames) : Json()},
                 {"seconds", facts.frames ? Json(static_cast<double>(*facts.frames) / facts.sampleRate) : Json()}};
    const std::string blocked = obstacle(facts);
    json["can_be_upmixed"] = blocked.empty();
    if (!blocked.empty()) json["obstacle"] = blocked;
    if (finding.loss) json["loss"] = finding.loss->json();
    if (!finding.analysis) return json;

    const StereoAnalysis& analysis = *finding.analysis;
    json["peak_dbfs"] = finiteOrNull(decibels(analysis.peak()));
    json["identical"] = analysis.identical();
    json["overall"] = jsonOf(analysis.overall(), analysis.frames());
    for (const BandMeasure& band : analysis.bands()) {
        Json one = jsonOf(band.measure, analysis.frames());
        one["centre_hz"] = band.centreHz;
        one["opposite_phase"] = isOppositeBand(band, analysis.overall());
        json["bands"].push_back(one);
    }
    const KindText& text = textOf(kindOf(analysis));
    json["kind"] = text.name;
    json["gains"] = text.gain;
    json["verdict"] = text.sentence;
    return json;
}

/// A number in a column of nine characters, or a word for infinity or NaN.
std::string column(const char* format, double value)
{
    return std::isfinite(value) ? formatted(format, value)
           : std::isnan(value)  ? "     none"
           : value < 0          ? "     -inf"
                                : "     +inf";
}

std::string measureLine(const std::string& name, const StereoMeasure& measure, std::uint64_t frames)
{
    const bool silent = measure.energy() == 0.0;
    return "  " + padded(name, 10) + column("%9.3f", measure.correlation().value_or(std::nan(""))) + "  " +
           column("%9.1f", silent ? std::nan("") : measure.sideToMidDb()) + "     " +
           column("%9.1f", silent ? std::nan("") : measure.leftToRightDb()) + "      " +
           column("%9.1f", levelDb(measure, frames)) + "\n";
}

std::string verdictOf(const StereoAnalysis& analysis)
{
    std::string verdict = textOf(kindOf(analysis)).sentence;
    std::string opposite;
    for (const BandMeasure& band : analysis.bands())
        if (isOppositeBand(band, analysis.overall()))
            opposite += (opposite.empty() ? "" : ", ") + formatted("%g", band.centreHz);
    if (!opposite.empty()) verdict += " (opposite in the octaves around " + opposite + " Hz)";
    return verdict;
}

/// Width of the column for names.
std::size_t nameWidth(const std::vector<std::string>& inputs)
{
    constexpr std::size_t kMaxWidth = 28;
    std::size_t longest = 0;
    for (const std::string& input : inputs) longest = std::max(longest, characters(printable(input)));
    return std::min(longest, kMaxWidth);
}

/// Short name of container and codec: WAV 16, WAV float, FLAC 24, OGG Vorbis, OGG FLAC 16, MP3.
std::string formatName(const FileFacts& facts)
{
    if (facts.codec == "MPEG Layer III") return "MP3";
    if (facts.codec == "MPEG Layer II") return "MP2";
    if (facts.codec == "MPEG Layer I") return "MP1";
    const std::string container = facts.container.substr(0, facts.container.find(' '));
    if (facts.codec == "FLAC") return container + " FLAC " + std::to_string(facts.bits);
    if (facts.bits != 0) return container + " " + std::to_string(facts.bits);
    if (facts.codec == "32 bit float") return container + " float";
    if (facts.codec == "64 bit float") return container + " double";
    return container + " " + facts.codec;
}

/// The verdict in a few words.
std::string briefVerdict(const Finding& finding)
{
    const FileFacts& facts = finding.facts;
    if (facts.channels == 1) return "mono, goes to the centre";
    if (facts.channels != 2) return "multichannel already";
    const StereoAnalysis& analysis = *finding.analysis;
    const StereoKind kind = kindOf(analysis);
    std::string verdict = textOf(kind).brief;
    const std::vector<BandMeasure> bands = analysis.bands();
    if (kind == StereoKind::Stereo && std::any_of(bands.begin(), bands.end(), [&analysis](const BandMeasure& band) {
            return isOppositeBand(band, analysis.overall());
        }))
        verdict += ", partly opposite";
    if (!isConvertibleRate(facts.sampleRate)) return "unsupported sample rate";
    return finding.isIncomplete() ? verdict + "; damaged" : verdict;
}

/// The result as a line.
std::string lineOf(const std::string& input, std::size_t width, const Finding& finding)
{
    const FileFacts& facts = finding.facts;
    return padded(lastCharacters(printable(input), width), width) +
           rightAligned(facts.frames ? shortDurationText(*facts.frames, facts.sampleRate) : "?", 9) + "  " +
           padded(formatName(facts), 10) + formatted("%7g kHz", facts.sampleRate / 1000.0) +
           formatted("%4.0f ch  ", facts.channels) + briefVerdict(finding) + "\n";
}

/// The result as a table.
std::string tableOf(const std::string& input, const Finding& finding)
{
    const FileFacts& facts = finding.facts;
    std::string text = printable(input) + "\n  " + facts.container + ", " + facts.codec + ", " +
                       std::to_string(facts.sampleRate) + " Hz, " + std::to_string(facts.channels) + " channel" +
                       (facts.channels == 1 ? "" : "s");
    if (facts.frames)
        text +=
            ", " + durationText(*facts.frames, facts.sampleRate) + " (" + std::to_string(*facts.frames) + " frames)";
    text += "\n";
    if (const std::string blocked = obstacle(facts); !blocked.empty()) text += "  " + blocked + "\n";
    if (!finding.analysis) return text;

    const StereoAnalysis& analysis = *finding.analysis;
    text += "  " + verdictOf(analysis) + "\n";
    text += "  " + padded("", 10) + "correlation  side/mid, dB  left/right, dB  level, dBFS\n";
    text += measureLine("overall", analysis.overall(), analysis.frames());
    for (const auto& [centreHz, measure] : analysis.bands())
        text += measureLine(formatted("%g Hz", centreHz), measure, analysis.frames());
    return text;
}

} // namespace

int runInfo(const InfoOptions& options)
{
    int failure = EX_OK;
    bool incomplete = false;
    Json files = Json::array();
    const std::size_t width = nameWidth(options.inputs);
    const auto work = [&](std::size_t i) {
        const std::string& input = options.inputs[i];
        const Finding finding = examine(input, options.quiet, !options.quiet && options.inputs.size() == 1);
        Json shown = options.json      ? jsonOf(input, finding)
                     : options.verbose ? Json(tableOf(input, finding))
                                       : Json(lineOf(input, width, finding));
        return Json{{"shown", std::move(shown)}, {"incomplete", finding.isIncomplete()}};
    };
    const auto done = [&](std::size_t i, WorkerOutcome&& outcome) {
        if (outcome.exitCode != EX_OK) {
            printNote(outcome.error);
            if (failure == EX_OK) failure = outcome.exitCode;
            files.push_back({{"input", options.inputs[i]}, {"error", outcome.error}, {"exit_code", outcome.exitCode}});
            return;
        }
        incomplete = incomplete || outcome.result.at("incomplete").get<bool>();
        Json& shown = outcome.result.at("shown");
        if (options.json) {
            files.push_back(std::move(shown));
        } else {
            std::fputs(shown.get_ref<const std::string&>().c_str(), stdout);
            std::fflush(stdout);
        }
    };
    runInProcesses(options.inputs, options.jobs, work, done);
    if (options.json) printJson({{"files", files}}, stdout);
    if (failure != EX_OK) return failure;
    return incomplete ? kExitIncomplete : EX_OK;
}

} // namespace tarn
