// Formats an entry of a report as an article of HTML.
// SPDX-License-Identifier: MIT
#include "cli/report_recording.h"

#include "cli/html.h"
#include "cli/json.h"
#include "cli/report_words.h"
#include "cli/text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <utility>

namespace tarn
{

namespace
{

/// The order of the lanes of a picture.
constexpr std::array kLaneOrder{"FL", "FC", "FR", "SL", "SR", "BL", "BR", "LFE"};

std::string textOf(const Json& json, const char* name)
{
    return json.at(name).get<std::string>();
}

double shareOf(const Json& channel)
{
    const Json& share = channel.at("energy_share");
    return share.is_null() ? 0.0 : share.get<double>();
}

std::string channelRow(const Json& channel)
{
    const double share = shareOf(channel);
    return element("tr", "",
                   element("td", "", escapedHtml(textOf(channel, "name"))) +
                       element("td", "", numberText(channel.at("peak_dbfs"), "%.1f")) +
                       element("td", "", numberText(channel.at("rms_dbfs"), "%.1f")) +
                       element("td", "",
                               R"(<span class="bar" style="--share: )" + formatted("%.1f", 100.0 * share) + "%\">" +
                                   percentText(share) + "</span>"));
}

std::string channelTable(const Json& entry)
{
    std::string rows;
    for (const char* const name : kLaneOrder)
        for (const Json& channel : entry.at("upmix").at("channels"))
            if (channel.at("name") == name) rows += channelRow(channel);
    std::string headings;
    for (const char* const text : {"Output", "Peak, dBFS", "RMS, dBFS", "Share of the energy"})
        headings += element("th", "scope=\"col\"", text);
    return block("table", "class=\"outputs\"",
                 block("thead", "", element("tr", "", headings)) + element("tbody", "", rows));
}

std::string levelList(const Json& entry)
{
    const Json& upmix = entry.at("upmix");
    std::string list;
    const auto add = [&list](const std::string& name, const std::string& value) {
        list += element("dt", "", name) + element("dd", "", value);
    };
    add("Loudness before", loudnessText(entry, "before", "%.1f LUFS"));
    add("Loudness after", loudnessAfterText(entry));
    if (const double gain = upmix.at("input_gain_db").get<double>(); gain != 0.0)
        add("Input", formatted("scaled down by %.1f dB, because it exceeds full scale", -gain));
    add("Gain", formatted("%+.1f dB", upmix.at("gain_db").get<double>()));
    if (!upmix.at("limiter").is_null()) add("Limiter", limiterText(entry));
    for (const auto& [name, member] : {std::pair{"Clipped in the input", "clipped_input_samples"},
                                       std::pair{"Clipped in the upmix", "clipped_samples"}})
        if (const auto count = upmix.at(member).get<std::uint64_t>(); count > 0)
            add(name, std::to_string(count) + (count == 1 ? " sample" : " samples"));
    std::string html = block("dl", "", list);
    if (const std::string advice = limiterAdvice(entry); !advice.empty())
        html += element("p", "class=\"advice\"", escapedHtml(advice));
    return block("div", "class=\"levels\"", html);
}

/// The file without the part that is the title.
std::string fileLine(const Json& entry)
{
    const std::filesystem::path path(textOf(entry.at("info"), "input"));
    if (printable(path.filename().string()) != textOf(entry, "title")) return escapedHtml(path.string()) + "<br>";
    const std::string folder = path.parent_path().string();
    return folder.empty() ? "" : "in " + escapedHtml(folder) + "<br>";
}

std::string formatLine(const Json& entry)
{
    const Json& info = entry.at("info");
    return lengthText(entry) + ", " + escapedHtml(textOf(info, "container")) + ", " +
           escapedHtml(textOf(info, "codec")) + formatted(", %g kHz", info.at("sample_rate").get<double>() / 1000.0);
}

/// The picture. On a narrow screen, a checkbox shows it at its full size; a tap on the picture changes the checkbox.
std::string figure(const Json& entry, std::size_t number)
{
    const std::string id = "full-size-" + std::to_string(number);
    const std::string image = "<img alt=\"Where the upmix of " + escapedHtml(textOf(entry, "title")) +
                              " plays which frequency\" src=\"data:image/png;base64," + textOf(entry, "picture") +
                              "\">";
    return block("figure", "",
                 R"(<input class="zoom" type="checkbox" id=")" + id + "\">\n" +
                     element("label", R"(class="zoom" for=")" + id + "\"", "Full size (or tap the picture)") +
                     element("div", R"(class="wide")", R"(<label for=")" + id + "\">" + image + "</label>"));
}

} // namespace

double energyShare(const Json& entry, const std::vector<std::string>& names)
{
    double sum = 0.0;
    for (const Json& channel : entry.at("upmix").at("channels"))
        if (std::find(names.begin(), names.end(), textOf(channel, "name")) != names.end()) sum += shareOf(channel);
    return sum;
}

std::string percentText(double share)
{
    return formatted("%.1f %%", 100.0 * share);
}

std::string lengthText(const Json& entry)
{
    const Json& upmix = entry.at("upmix");
    return shortDurationText(upmix.at("frames").get<std::uint64_t>(), upmix.at("sample_rate").get<std::uint32_t>());
}

std::string recordingHtml(const Json& entry, std::size_t number)
{
    const Json& info = entry.at("info");
    std::string html = element("h2", "", escapedHtml(textOf(entry, "title")));
    html += element("p", "class=\"soft\"", fileLine(entry) + formatLine(entry));
    html += element("p", "class=\"verdict\"", escapedHtml(verdictText(entry)));
    if (const std::string figures = verdictFigures(entry); !figures.empty())
        html += element("p", "class=\"soft\"", escapedHtml(figures));
    if (info.contains("loss"))
        html += element("p", "class=\"damage\"", escapedHtml(sentenceOf(textOf(info.at("loss"), "message"))));
    html += figure(entry, number);
    html += block("div", "class=\"figures\"", channelTable(entry) + levelList(entry));
    return block("article", "id=\"recording-" + std::to_string(number) + "\"", html);
}

} // namespace tarn
