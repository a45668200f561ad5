// The common level of all files of a run.
// SPDX-License-Identifier: MIT
#include "cli/album_level.h"

#include "cli/decibels.h"
#include "cli/json.h"

#include <algorithm>
#include <cmath>

namespace tarn
{

namespace
{

std::optional<double> numberOf(const Json& json)
{
    return json.is_null() ? std::nullopt : std::optional(json.get<double>());
}

Json jsonOf(std::optional<double> number)
{
    return number ? Json(*number) : Json();
}

} // namespace

Json AlbumPart::json() const
{
    return {{"seconds", seconds}, {"peak", peak}, {"input", jsonOf(input)}, {"upmixed", jsonOf(upmixed)}};
}

AlbumPart AlbumPart::from(const Json& json)
{
    return {.seconds = json["seconds"],
            .peak = json["peak"],
            .input = numberOf(json["input"]),
            .upmixed = numberOf(json["upmixed"])};
}

AlbumLevel albumLevelOf(const std::vector<AlbumPart>& parts)
{
    AlbumLevel level;
    double seconds = 0.0;
    double input = 0.0;
    double upmixed = 0.0;
    for (const AlbumPart& part : parts) {
        level.peak = std::max(level.peak, part.peak);
        if (!part.input || !part.upmixed) continue;
        seconds += part.seconds;
        input += part.seconds * std::pow(10.0, *part.input / 10.0);
        upmixed += part.seconds * std::pow(10.0, *part.upmixed / 10.0);
    }
    if (seconds == 0.0) return level;
    level.input = energyDecibels(input / seconds);
    level.gainDb = energyDecibels(input / upmixed);
    return level;
}

} // namespace tarn
