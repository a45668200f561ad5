// Formats the entries of a report as one HTML page.
// SPDX-License-Identifier: MIT
#include "cli/report_page.h"

#include "cli/html.h"
#include "cli/json.h"
#include "cli/report_recording.h"
#include "cli/report_style.h"
#include "cli/report_words.h"
#include "cli/text.h"

#include <algorithm>

namespace tarn
{

namespace
{

const std::vector<std::string> kSurround{"SL", "SR", "BL", "BR"};

/// The columns of the table that only some pages have.
struct Columns
{
    bool limiter = false; ///< else the peak
    bool surround = false;
};

std::string textOf(const Json& json, const char* name)
{
    return json.at(name).get<std::string>();
}

/// A cell of the table of all recordings.
///
/// key  by which the table is sorted
std::string cell(const std::string& key, const std::string& text, const std::string& attributes = "")
{
    return element("td", (attributes.empty() ? "" : attributes + " ") + "data-key=\"" + key + "\"", text);
}

std::string numberCell(const Json& number, const std::string& text)
{
    constexpr const char* kBelowAllNumbers = "-1000";
    return cell(number.is_null() ? kBelowAllNumbers : formatted("%.6f", number.get<double>()), text);
}

std::string shareCell(double share, const char* format)
{
    return cell(formatted("%.6f", share), formatted(format, 100.0 * share));
}

std::string rowOf(const Json& entry, std::size_t number, const Columns& columns)
{
    const std::string title = escapedHtml(textOf(entry, "title"));
    const std::string gains = escapedHtml(textOf(entry.at("info"), "gains"));
    std::string row =
        cell(title, "<a href=\"#recording-" + std::to_string(number) + "\">" + title + "</a>", "class=\"words\"");
    row += cell(formatted("%.3f", entry.at("upmix").at("seconds").get<double>()), lengthText(entry));
    row += cell(gains, gains, "class=\"words\"");
    for (const char* const name : {"before", "after"})
        row += numberCell(entry.at(name), loudnessText(entry, name, "%.1f"));
    const Json peak = highestPeak(entry);
    row += columns.limiter ? shareCell(limitedShare(entry), "%.0f %%") : numberCell(peak, numberText(peak, "%.1f"));
    for (const char* const name : {"FL", "FC", "FR"}) row += shareCell(energyShare(entry, {name}), "%.1f %%");
    if (columns.surround) row += shareCell(energyShare(entry, kSurround), "%.1f %%");
    return block("tr", "", row);
}

std::string tableOf(const ReportPage& page)
{
    const Columns columns{
        .limiter = std::any_of(page.entries.begin(), page.entries.end(),
                               [](const Json& entry) { return !entry.at("upmix").at("limiter").is_null(); }),
        .surround = std::any_of(page.entries.begin(), page.entries.end(),
                                [](const Json& entry) { return energyShare(entry, kSurround) > 0.0; })};
    std::string headings;
    const auto add = [&headings](const std::string& text, bool isWords = false) {
        headings += element("th", std::string("scope=\"col\"") + (isWords ? " class=\"words\"" : ""),
                            "<button type=\"button\">" + text + "</button>");
    };
    add("Recording", true);
    add("Length");
    add("Worth it?", true);
    for (const char* const text :
         {"Before, LUFS", "After, LUFS", columns.limiter ? "Limited" : "Peak, dBFS", "Left", "Centre", "Right"})
        add(text);
    if (columns.surround) add("Surround");
    std::string rows;
    for (std::size_t i = 0; i < page.entries.size(); ++i) rows += rowOf(page.entries[i], i + 1, columns);
    return element("p", "class=\"more soft\"", "Swipe the table sideways: it has more columns.") +
           block(
               "div", "class=\"wide\"",
               block("table", "id=\"all\"", block("thead", "", block("tr", "", headings)) + block("tbody", "", rows)));
}

std::string failuresOf(const ReportPage& page)
{
    if (page.failures.empty()) return "";
    std::string list;
    for (const std::string& failure : page.failures) list += element("li", "", escapedHtml(failure));
    return block("section", "id=\"failures\"", element("h2", "", "Not upmixed") + block("ul", "", list));
}

std::string summaryOf(const ReportPage& page)
{
    const std::size_t count = page.entries.size();
    std::string text = count == 1 ? "One recording" : std::to_string(count) + " recordings";
    if (!page.failures.empty())
        text += ", <a href=\"#failures\">" + std::to_string(page.failures.size()) + " not upmixed</a>";
    return element("p", "class=\"soft\"",
                   text + ". Upmixed to " + escapedHtml(page.layout) + " with " + escapedHtml(page.settings) +
                       ". Made with tarn " + TARN_VERSION + ".");
}

std::string headOf(const ReportPage& page)
{
    return "<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; "
           "style-src 'unsafe-inline'; script-src 'unsafe-inline'\">\n"
           "<link rel=\"icon\" href=\"data:,\">\n" +
           element("title", "", escapedHtml(page.title)) + element("style", "", kReportStyle);
}

/// The page up to the first recording.
std::string beginOf(const ReportPage& page)
{
    return "<!DOCTYPE html>\n<html lang=\"en\" class=\"" + page.theme + "\">\n" + block("head", "", headOf(page)) +
           "<body>\n" + element("h1", "", escapedHtml(page.title)) + summaryOf(page) +
           (page.entries.size() > 1 ? tableOf(page) : "");
}

} // namespace

void writePage(const ReportPage& page, const PageWriter& write)
{
    write(beginOf(page));
    const std::size_t count = page.entries.size();
    for (std::size_t i = 0; i < count; ++i) write(recordingHtml(page.entries[i], i + 1));
    write(failuresOf(page) + (count > 1 ? element("script", "", kReportScript) : "") + "</body>\n</html>\n");
}

} // namespace tarn
