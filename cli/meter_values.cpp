// The values that tarn meter shows, as a line of text and as JSON.
// SPDX-License-Identifier: MIT
#include "cli/meter_values.h"

#include "cli/decibels.h"
#include "cli/json.h"
#include "cli/text.h"

namespace tarn
{

namespace
{

constexpr double kHoldSeconds = 2.0;

std::string number(double value)
{
    return formatted("%.1f", value);
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

std::string lineOf(const MeterValues& values)
{
    std::string line = "seconds=" + number(values.seconds) + " momentary=" + number(values.momentary) +
                       " integrated=" + number(values.integrated) + " reduction=" + number(values.reductionDb) +
                       " clipped=" + std::to_string(values.clipped);
    for (const OutputValue& output : values.outputs)
        line += " " + output.name + "=" + number(decibels(output.held)) + "," + number(decibels(output.rms));
    for (const GroupValue& group : values.groups)
        line += formatted(" %.0f=", group.upperHz) + number(decibels(group.level)) + formatted(",%.2f", group.place) +
                formatted(",%.2f", group.centre);
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
