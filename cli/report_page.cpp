// Formats the entries of a report as one HTML page.
// SPDX-License-Identifier: MIT
#include "cli/report_page.h"

#include "cli/decibels.h"
#include "cli/text.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace tarn
{

namespace
{

constexpr const char* kStyle = R"(
:root { --paper: #0d0f12; --panel: #14171b; --line: #2b3036; --ink: #f1f2f4; --soft: #a3a9b1; --bar: #6b86c9; }
:root.light { --paper: #ffffff; --panel: #f4f5f7; --line: #c9cdd2; --ink: #14171b; --soft: #50565e; --bar: #6b86c9; }
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 76rem; padding: 1rem; background: var(--paper); color: var(--ink);
       font: 1rem/1.5 "DejaVu Sans", Verdana, sans-serif; overflow-wrap: anywhere; }
h1 { font-size: 1.5rem; margin: 0.5rem 0; }
h2 { font-size: 1.2rem; margin: 0; }
a { color: inherit; }
p { margin: 0.3rem 0; }
.soft, th, dt { color: var(--soft); font-weight: normal; }
.wide { overflow-x: auto; margin: 1rem 0; }
table { border-collapse: collapse; font-size: 0.9rem; font-variant-numeric: tabular-nums; }
th, td { padding: 0.3rem 0.7rem; text-align: right; border-bottom: 1px solid var(--line); white-space: nowrap; }
th:first-child, td:first-child, .words { text-align: left; }
td.words { white-space: normal; }
td.words:first-child { min-width: 12rem; }
button { all: unset; cursor: pointer; }
button:focus-visible, a:focus-visible { outline: 2px solid var(--bar); outline-offset: 2px; }
th[aria-sort=ascending] button::after { content: " \25b2"; }
th[aria-sort=descending] button::after { content: " \25bc"; }
article { border-top: 1px solid var(--line); margin-top: 2rem; padding-top: 1.5rem; break-inside: avoid; }
figure { margin: 1rem 0; overflow-x: auto; }
img { display: block; width: 100%; min-width: 40rem; height: auto; }
.figures { display: flex; flex-wrap: wrap; gap: 1rem 3rem; }
dl { display: grid; grid-template-columns: auto 1fr; gap: 0.2rem 1rem; margin: 0.3rem 0; font-size: 0.9rem;
     align-self: start; }
dd { margin: 0; }
.bar::before { content: ""; display: inline-block; width: 7rem; height: 0.5rem; margin-right: 0.7rem;
  background: linear-gradient(to right, var(--bar) var(--share), var(--panel) 0); }
@media (max-width: 40rem) { .bar::before { display: none; } .outputs th { white-space: normal; } }
.damage { border-left: 4px solid #d97a2b; padding-left: 0.7rem; }
)";

/// Sorts the table when a heading is clicked, first in descending order where the column has numbers.
constexpr const char* kScript = R"(
for (const button of document.querySelectorAll("#all button")) {
  button.addEventListener("click", () => {
    const heading = button.parentElement;
    const body = document.querySelector("#all tbody");
    const isNumber = !heading.classList.contains("words");
    const before = heading.getAttribute("aria-sort");
    const ascending = before ? before === "descending" : !isNumber;
    for (const other of heading.parentElement.children) other.removeAttribute("aria-sort");
    heading.setAttribute("aria-sort", ascending ? "ascending" : "descending");
    const keyOf = (row) => row.cells[heading.cellIndex].dataset.key;
    const compare = (a, b) => isNumber ? a - b : a.localeCompare(b, undefined, { numeric: true });
    const rows = [...body.rows].sort((a, b) => compare(keyOf(a), keyOf(b)) * (ascending ? 1 : -1));
    body.append(...rows);
  });
}
)";

std::string escaped(const std::string& text)
{
    std::string html;
    for (const char c : printable(text)) {
        switch (c) {
        case '&':
            html += "&amp;";
            break;
        case '<':
            html += "&lt;";
            break;
        case '>':
            html += "&gt;";
            break;
        case '"':
            html += "&quot;";
            break;
        default:
            html += c;
        }
    }
    return html;
}

/// <tag attributes>content</tag>, on a line.
std::string element(const std::string& tag, const std::string& attributes, const std::string& content)
{
    std::string html = "<";
    html += tag;
    if (!attributes.empty()) html.append(" ").append(attributes);
    return html.append(">").append(content).append("</").append(tag).append(">\n");
}

/// An element whose content begins on a line of its own.
std::string block(const std::string& tag, const std::string& attributes, const std::string& content)
{
    return element(tag, attributes, std::string(1, '\n').append(content));
}

std::string textOf(const Json& json, const char* name)
{
    return json.at(name).get<std::string>();
}

/// A number in a text; "silent" for the null of minus infinity.
std::string numberText(const Json& number, const char* format)
{
    return number.is_null() ? "silent" : formatted(format, number.get<double>());
}

std::string percent(double share)
{
    return formatted("%.1f %%", 100.0 * share);
}

double shareOf(const Json& channel)
{
    const Json& share = channel.at("energy_share");
    return share.is_null() ? 0.0 : share.get<double>();
}

/// Share of the energy of the channels with these names.
double shareOf(const Json& entry, const std::vector<std::string>& names)
{
    double sum = 0.0;
    for (const Json& channel : entry.at("upmix").at("channels"))
        if (std::find(names.begin(), names.end(), textOf(channel, "name")) != names.end()) sum += shareOf(channel);
    return sum;
}

/// The highest peak of all channels, dBFS; null for silence.
Json peakOf(const Json& entry)
{
    Json peak;
    for (const Json& channel : entry.at("upmix").at("channels")) {
        const Json& own = channel.at("peak_dbfs");
        if (!own.is_null() && (peak.is_null() || own.get<double>() > peak.get<double>())) peak = own;
    }
    return peak;
}

std::string lengthOf(const Json& entry)
{
    const Json& upmix = entry.at("upmix");
    return shortDurationText(upmix.at("frames").get<std::uint64_t>(), upmix.at("sample_rate").get<std::uint32_t>());
}

/// A sentence with a full stop.
std::string sentence(std::string text)
{
    if (!text.empty() && text.front() >= 'a' && text.front() <= 'z')
        text.front() = static_cast<char>(text.front() - 32);
    return text + ".";
}

/// A cell of the table of all recordings.
///
/// key  by which the table is sorted
std::string cell(const std::string& key, const std::string& text, const std::string& attributes = "")
{
    return element("td", (attributes.empty() ? "" : attributes + " ") + "data-key=\"" + key + "\"", text);
}

std::string numberCell(const Json& number, const char* format)
{
    constexpr const char* kBelowAllNumbers = "-1000";
    return cell(number.is_null() ? kBelowAllNumbers : formatted("%.6f", number.get<double>()),
                numberText(number, format));
}

std::string rowOf(const Json& entry, std::size_t number, bool hasBehind)
{
    const std::string title = escaped(textOf(entry, "title"));
    const std::string verdict = escaped(textOf(entry.at("info"), "gains"));
    std::string row =
        cell(title, "<a href=\"#recording-" + std::to_string(number) + "\">" + title + "</a>", "class=\"words\"");
    row += cell(formatted("%.3f", entry.at("upmix").at("seconds").get<double>()), lengthOf(entry));
    row += cell(verdict, verdict, "class=\"words\"");
    row += numberCell(entry.at("before"), "%.1f") + numberCell(entry.at("after"), "%.1f");
    row += numberCell(peakOf(entry), "%.1f");
    std::vector<std::vector<std::string>> places{{"FL"}, {"FC"}, {"FR"}};
    if (hasBehind) places.push_back({"SL", "SR", "BL", "BR"});
    for (const std::vector<std::string>& place : places) {
        const double share = shareOf(entry, place);
        row += cell(formatted("%.6f", share), percent(share));
    }
    return block("tr", "", row);
}

std::string tableOfAll(const ReportPage& page, bool hasBehind)
{
    std::string headings;
    const auto add = [&headings](const std::string& text, bool isWords = false) {
        headings += element("th", std::string("scope=\"col\"") + (isWords ? " class=\"words\"" : ""),
                            "<button type=\"button\">" + text + "</button>");
    };
    add("Recording", true);
    add("Length");
    add("Gains", true);
    for (const char* const text : {"Before, LUFS", "After, LUFS", "Peak, dBFS", "Left", "Centre", "Right"}) add(text);
    if (hasBehind) add("Behind");
    std::string rows;
    for (std::size_t i = 0; i < page.entries.size(); ++i) rows += rowOf(page.entries[i], i + 1, hasBehind);
    return block(
        "div", "class=\"wide\"",
        block("table", "id=\"all\"", block("thead", "", block("tr", "", headings)) + block("tbody", "", rows)));
}

std::string channelsOf(const Json& entry)
{
    std::string rows;
    for (const Json& channel : entry.at("upmix").at("channels")) {
        const double share = shareOf(channel);
        rows += element("tr", "",
                        element("td", "", escaped(textOf(channel, "name"))) +
                            element("td", "", numberText(channel.at("peak_dbfs"), "%.1f")) +
                            element("td", "", numberText(channel.at("rms_dbfs"), "%.1f")) +
                            element("td", "",
                                    R"(<span class="bar" style="--share: )" + formatted("%.1f", 100.0 * share) +
                                        "%\">" + percent(share) + "</span>"));
    }
    std::string headings;
    for (const char* const text : {"Output", "Peak, dBFS", "RMS, dBFS", "Share of the energy"})
        headings += element("th", "scope=\"col\"", text);
    return block("table", "class=\"outputs\"",
                 block("thead", "", element("tr", "", headings)) + element("tbody", "", rows));
}

std::string loudnessText(const Json& loudness)
{
    return loudness.is_null() ? "silent" : formatted("%.1f LUFS", loudness.get<double>());
}

std::string levelsOf(const Json& entry)
{
    const Json& upmix = entry.at("upmix");
    const Json& limiter = upmix.at("limiter");
    std::string list;
    const auto add = [&list](const std::string& name, const std::string& value) {
        list += element("dt", "", name) + element("dd", "", value);
    };
    add("Loudness before", loudnessText(entry.at("before")));
    std::string after = loudnessText(entry.at("after"));
    if (!entry.at("before").is_null() && !entry.at("after").is_null())
        after += formatted(" (%+.1f LU)", entry.at("after").get<double>() - entry.at("before").get<double>());
    add("Loudness after", after);
    add("Gain", formatted("%+.1f dB", upmix.at("gain_db").get<double>()));
    if (!limiter.is_null()) {
        const double seconds = limiter.at("seconds").get<double>();
        add("Limiter", seconds == 0.0 ? "not needed"
                                      : formatted("up to %.1f dB", limiter.at("largest_reduction_db").get<double>()) +
                                            formatted(", for %.1f s", seconds));
    }
    return block("dl", "", list);
}

std::string articleOf(const Json& entry, std::size_t number)
{
    const Json& info = entry.at("info");
    const std::string title = escaped(textOf(entry, "title"));
    std::string article = element("h2", "", title);
    article += element("p", "class=\"soft\"",
                       escaped(textOf(info, "input")) + "<br>" + lengthOf(entry) + ", " +
                           escaped(textOf(info, "container")) + ", " + escaped(textOf(info, "codec")) +
                           formatted(", %g kHz", info.at("sample_rate").get<double>() / 1000.0));
    article += element("p", "class=\"verdict\"", escaped(sentence(textOf(info, "verdict"))));
    if (info.contains("loss"))
        article += element("p", "class=\"damage\"", escaped(sentence(textOf(info.at("loss"), "message"))));
    article += element("figure", "",
                       "<img alt=\"Where the upmix of " + title +
                           " plays which frequency\" src=\"data:image/png;base64," + textOf(entry, "picture") + "\">");
    article += block("div", "class=\"figures\"", channelsOf(entry) + levelsOf(entry));
    return block("article", "id=\"recording-" + std::to_string(number) + "\"", article);
}

std::string failuresOf(const ReportPage& page)
{
    if (page.failures.empty()) return "";
    std::string list;
    for (const std::string& failure : page.failures) list += element("li", "", escaped(failure));
    return block("section", "id=\"failures\"", element("h2", "", "Not upmixed") + block("ul", "", list));
}

} // namespace

std::string htmlOf(const ReportPage& page)
{
    const bool hasBehind = std::any_of(page.entries.begin(), page.entries.end(), [](const Json& entry) {
        return shareOf(entry, {"SL", "SR", "BL", "BR"}) > 0.0;
    });
    const std::size_t count = page.entries.size();
    std::string html = "<!DOCTYPE html>\n<html lang=\"en\" class=\"" + page.theme +
                       "\">\n<head>\n"
                       "<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                       "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; "
                       "style-src 'unsafe-inline'; script-src 'unsafe-inline'\">\n"
                       "<link rel=\"icon\" href=\"data:,\">\n" +
                       element("title", "", escaped(page.title)) + element("style", "", kStyle) + "</head>\n<body>\n";
    html += element("h1", "", escaped(page.title));
    html += element("p", "class=\"soft\"",
                    (count == 1 ? "One recording" : std::to_string(count) + " recordings") + ", upmixed to " +
                        escaped(page.layout) + " with " + escaped(page.settings) + ". Made with tarn " + TARN_VERSION +
                        ".");
    if (count > 1) html += tableOfAll(page, hasBehind);
    for (std::size_t i = 0; i < count; ++i) html += articleOf(page.entries[i], i + 1);
    html += failuresOf(page);
    if (count > 1) html += element("script", "", kScript);
    return html + "</body>\n</html>\n";
}

} // namespace tarn
