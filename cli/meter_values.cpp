// The values that tarn meter shows, as a line of text and as JSON.
// SPDX-License-Identifier: MIT
#include "cli/meter_values.h"

#include "cli/decibels.h"
#include "cli/json.h"
#include "cli/text.h"

#include <algorithm>

namespace tarn
{

namespace
{

constexpr double kHoldSeconds = 2.0;

/// A number with digits after the point, and no sign if it is rounded to zero.
std::string rounded(double value, const char* format)
{
    const std::string text = formatted(format, value);
    return text.find_first_not_of("-0.") == std::string::npos && text.starts_with("-") ? text.substr(1) : text;
}

/// Seconds with as many digits as a frame needs: 4.0, or 4.005.
std::string secondsText(double seconds)
{
    std::string text = formatted("%.6f", seconds);
    text.resize(std::max(text.find_last_not_of('0') + 1, text.find('.') + 2));
    return text;
}

} // namespace

void PeakHold::apply(MeterValues& values)
{
    held.resize(values.outputs.size());
    for (std::size_t i = 0; i < held.size(); ++i) {
        OutputValue& output = values.outputs[i];
        if (output.peak >= held[i].level || values.seconds - held[i].seconds > kHoldSeconds)
            held[i] = {.level = output.peak, .seconds = values.seconds};
        output.held = held[i].level;
    }
}

std::string tenths(double value)
{
    return rounded(value, "%.1f");
}

std::string lineOf(const MeterValues& values)
{
    std::string line = "seconds=" + secondsText(values.seconds) + " momentary=" + tenths(values.momentary) +
                       " integrated=" + tenths(values.integrated) + " reduction=" + tenths(values.reductionDb) +
                       " clipped=" + std::to_string(values.clipped);
    for (const OutputValue& output : values.outputs)
        line += " " + output.name + "=" + tenths(decibels(output.held)) + "," + tenths(decibels(output.rms));
    for (const GroupValue& group : values.groups)
        line += formatted(" %.0f=", group.upperHz) + tenths(decibels(group.level)) + "," +
                rounded(group.place, "%.2f") + "," + rounded(group.centre, "%.2f");
    return line;
}

Json jsonOf(const MeterValues& values)
{
    Json outputs = Json::array();
    for (const OutputValue& output : values.outputs)
        outputs.push_back({{"name", output.name},
                           {"peak_dbfs", finiteOrNull(decibels(output.held))},
                           {"rms_dbfs", finiteOrNull(decibels(output.rms))}});
    Json groups = Json::array();
    for (const GroupValue& group : values.groups)
        groups.push_back({{"upper_hz", group.upperHz},
                          {"level_dbfs", finiteOrNull(decibels(group.level))},
                          {"place", group.place},
                          {"centre", group.centre},
                          {"surround_dbfs", finiteOrNull(decibels(group.surround))}});
    return {{"seconds", values.seconds},
            {"momentary_lufs", finiteOrNull(values.momentary)},
            {"integrated_lufs", finiteOrNull(values.integrated)},
            {"reduction_db", values.reductionDb},
            {"clipped", values.clipped},
            {"outputs", outputs},
            {"groups", groups}};
}

} // namespace tarn
