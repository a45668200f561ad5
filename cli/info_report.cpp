// Formats what is known about a file as a line, a table or JSON.
// SPDX-License-Identifier: MIT
#include "cli/info_report.h"

#include "cli/decibels.h"
#include "cli/json.h"
#include "cli/stream_format.h"
#include "cli/text.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace tarn
{

namespace
{

/// The reason why an input cannot be upmixed; empty if it can.
std::string obstacle(const FileFacts& facts)
{
    if (facts.channels > 2)
        return "has " + std::to_string(facts.channels) + " channels: only mono and stereo can be upmixed";
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

/// Short name of a codec that is not PCM: Vorbis, ALAC, float, MS ADPCM, G721 ADPCM.
std::string codecName(const std::string& codec)
{
    if (codec == "32 bit float") return "float";
    if (codec == "64 bit float") return "double";
    if (codec == "Microsoft ADPCM") return "MS ADPCM";
    if (codec.ends_with("ALAC")) return "ALAC";
    const std::string firstWord = codec.substr(0, codec.find(' '));
    return firstWord.ends_with("kbs") ? codec.substr(firstWord.size() + 1) : codec;
}

/// Short name of container, codec and width, at most 16 characters: WAV 16 bit, WAV float, OGG FLAC 16 bit, MP3.
std::string formatName(const FileFacts& facts)
{
    if (facts.codec == "MPEG Layer III") return "MP3";
    if (facts.codec == "MPEG Layer II") return "MP2";
    if (facts.codec == "MPEG Layer I") return "MP1";
    const std::string firstWord = facts.container.substr(0, facts.container.find(' '));
    std::string name = firstWord == "WAVEX" ? "WAV" : firstWord;
    if (!facts.codec.ends_with("PCM") || facts.codec.ends_with("DPCM")) name += ' ' + codecName(facts.codec);
    return facts.bits != 0 ? name + " " + std::to_string(facts.bits) + " bit" : name;
}

/// The verdict in a few words.
std::string briefVerdict(const Finding& finding)
{
    const FileFacts& facts = finding.facts;
    const std::string damage = finding.isIncomplete() ? "; damaged" : "";
    if (facts.channels == 1) return "mono, goes to the centre" + damage;
    if (facts.channels != 2) return "more than two channels, cannot be upmixed";
    const StereoAnalysis& analysis = *finding.analysis;
    const StereoKind kind = kindOf(analysis);
    std::string verdict = textOf(kind).brief;
    const std::vector<BandMeasure> bands = analysis.bands();
    if (kind == StereoKind::Stereo && std::any_of(bands.begin(), bands.end(), [&analysis](const BandMeasure& band) {
            return isOppositeBand(band, analysis.overall());
        }))
        verdict += ", partly opposite";
    if (!isConvertibleRate(facts.sampleRate)) return "unsupported sample rate, cannot be upmixed";
    return verdict + damage;
}

} // namespace

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

std::size_t nameWidth(const std::vector<std::string>& inputs)
{
    constexpr std::size_t kMaxWidth = 28;
    std::size_t longest = 0;
    for (const std::string& input : inputs) longest = std::max(longest, characters(printable(input)));
    return std::min(longest, kMaxWidth);
}

std::string lineOf(const std::string& input, std::size_t width, const Finding& finding)
{
    const FileFacts& facts = finding.facts;
    return padded(lastCharacters(printable(input), width), width) +
           rightAligned(facts.frames ? shortDurationText(*facts.frames, facts.sampleRate) : "?", 9) + "  " +
           padded(formatName(facts), 16) + formatted("%7g kHz", facts.sampleRate / 1000.0) +
           formatted("%4.0f ch  ", facts.channels) + briefVerdict(finding) + "\n";
}

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

} // namespace tarn
