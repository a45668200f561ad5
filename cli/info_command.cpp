#include "cli/info_command.h"

#include "cli/failure.h"
#include "cli/file_source.h"
#include "cli/interrupt.h"
#include "cli/json.h"
#include "cli/progress.h"
#include "cli/stereo_analysis.h"
#include "cli/stream_format.h"
#include "cli/text.h"

#include <cmath>
#include <cstdio>
#include <optional>

namespace tarn
{

namespace
{

constexpr std::size_t kReadFrames = 4096;

/// What was found out about an input.
struct Finding
{
    FileFacts facts;
    std::optional<StereoAnalysis> analysis; ///< of stereo only
};

Finding examine(const std::string& input, bool showProgress)
{
    FileSource source(input, FileSource::Demand::Anything);
    Finding finding{.facts = source.facts(), .analysis = {}};
    if (finding.facts.channels != 2) return finding;

    StereoAnalysis& analysis = finding.analysis.emplace(finding.facts.sampleRate);
    Progress progress("examining", source.expectedFrames(), finding.facts.sampleRate, showProgress);
    std::vector<double> stereo(2 * kReadFrames);
    while (const std::size_t frames = source.readFullScale(stereo.data(), kReadFrames)) {
        throwIfInterrupted();
        analysis.push(stereo.data(), frames);
        progress.advance(frames);
    }
    if (const auto loss = source.loss()) std::fprintf(stderr, "tarn: %s: %s\n", input.c_str(), loss->message.c_str());
    finding.facts.frames = analysis.frames();
    return finding;
}

/// What keeps an input from being upmixed as it is; empty if nothing does.
std::string obstacle(const FileFacts& facts)
{
    if (facts.channels == 1) return "mono: only stereo can be upmixed";
    if (facts.channels != 2) return "multichannel already: only stereo can be upmixed";
    if (!isEngineRate(facts.sampleRate)) return "to be resampled first: the engine runs at " + rateList();
    return {};
}

/// Level of a measure: mean of both sides, full scale 1.
double levelDb(const StereoMeasure& measure, std::uint64_t frames)
{
    return 10.0 * std::log10(measure.energy() / 2.0 / static_cast<double>(frames));
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

/// A number in a column of nine, or the word for none.
std::string column(const char* format, double value)
{
    return std::isfinite(value) ? formatted(format, value)
           : std::isnan(value)  ? "     none"
           : value < 0          ? "     -inf"
                                : "     +inf";
}

void printMeasure(const std::string& name, const StereoMeasure& measure, std::uint64_t frames)
{
    std::printf("  %-10s%s  %s     %s      %s\n", name.c_str(),
                column("%9.3f", measure.correlation().value_or(std::nan(""))).c_str(),
                column("%9.1f", measure.energy() == 0.0 ? std::nan("") : measure.sideToMidDb()).c_str(),
                column("%9.1f", measure.energy() == 0.0 ? std::nan("") : measure.leftToRightDb()).c_str(),
                column("%9.1f", levelDb(measure, frames)).c_str());
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

void print(const std::string& input, const Finding& finding)
{
    const FileFacts& facts = finding.facts;
    std::printf("%s\n  %s, %s, %u Hz, %u channel%s", input.c_str(), facts.container.c_str(), facts.codec.c_str(),
                facts.sampleRate, facts.channels, facts.channels == 1 ? "" : "s");
    if (facts.frames)
        std::printf(", %s (%llu frames)", durationText(*facts.frames, facts.sampleRate).c_str(),
                    static_cast<unsigned long long>(*facts.frames));
    std::printf("\n");
    if (const std::string blocked = obstacle(facts); !blocked.empty()) std::printf("  %s\n", blocked.c_str());
    if (!finding.analysis) return;

    const StereoAnalysis& analysis = *finding.analysis;
    std::printf("  %s\n", verdictOf(analysis).c_str());
    std::printf("  %-10scorrelation  side/mid, dB  left/right, dB  level, dBFS\n", "");
    printMeasure("overall", analysis.overall(), analysis.frames());
    for (const auto& [centreHz, measure] : analysis.bands())
        printMeasure(formatted("%g Hz", centreHz), measure, analysis.frames());
}

} // namespace

int runInfo(const InfoOptions& options)
{
    int exitCode = EX_OK;
    Json files = Json::array();
    for (const std::string& input : options.inputs) {
        try {
            const Finding finding = examine(input, !options.quiet);
            if (options.json) {
                files.push_back(jsonOf(input, finding));
            } else {
                print(input, finding);
            }
        } catch (const Failure& failure) {
            std::fprintf(stderr, "tarn: %s\n", failure.what());
            if (exitCode == EX_OK) exitCode = failure.exitCode();
            files.push_back({{"input", input}, {"error", failure.what()}, {"exit_code", failure.exitCode()}});
        }
    }
    if (options.json) printJson({{"files", files}}, stdout);
    return exitCode;
}

} // namespace tarn
