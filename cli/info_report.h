// What is known about a file, as a line, a table or JSON.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_source.h"
#include "cli/file_source.h"
#include "cli/json_type.h"
#include "cli/stereo_analysis.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// The result for one input.
struct Finding
{
    FileFacts facts;
    std::optional<StereoAnalysis> analysis{}; ///< only for stereo
    std::optional<Loss> loss{};               ///< only for mono and stereo

    bool isIncomplete() const noexcept { return loss && !loss->isNegligible(); }
};

/// The object of --json.
Json jsonOf(const std::string& input, const Finding& finding);

/// Width of the column for names, in characters.
std::size_t nameWidth(const std::vector<std::string>& inputs);

/// The result as a line.
///
/// width  of the column for names
std::string lineOf(const std::string& input, std::size_t width, const Finding& finding);

/// The result as a table.
std::string tableOf(const std::string& input, const Finding& finding);

} // namespace tarn
