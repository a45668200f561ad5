// The report about missing audio.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json_type.h"

#include <optional>
#include <string>

namespace tarn
{

constexpr int kExitIncomplete = 1;             ///< exit code: a second or more of an input is missing
constexpr double kNegligibleLossSeconds = 1.0; ///< a shorter loss is only a warning

/// Audio that is missing from a source.
struct Loss
{
    std::string message;           ///< predicate of a sentence, with figures: "is cut short: ..."
    std::optional<double> seconds; ///< none if unknown
    std::string advice;            ///< advice: "get ..."

    bool isNegligible() const noexcept { return seconds && *seconds < kNegligibleLossSeconds; }
    Json json() const;
};

} // namespace tarn
