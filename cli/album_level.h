// The common level of all files of a run.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/json_type.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace tarn
{

/// What a file contributes to the common level of a run.
struct AlbumPart
{
    double seconds = 0.0;
    double peak = 1.0;               ///< full scale 1; at least 1
    std::optional<double> input{};   ///< LUFS; none if it is silent or was not measured
    std::optional<double> upmixed{}; ///< LUFS of the upmix at unity gain

    /// For the pipe between two processes.
    Json json() const;
    static AlbumPart from(const Json& json);
};

/// The common level of all files of a run.
struct AlbumLevel
{
    double peak = 1.0;             ///< of all files, full scale 1; at least 1
    double gainDb = 0.0;           ///< that makes the upmix of all files as loud as their inputs
    std::optional<double> input{}; ///< LUFS; none if no file has a loudness
};

/// Computes the common level. The loudness of all files is the mean of their powers, weighted by their lengths: that of
/// the files one after another, except that BS.1770 would gate them together.
AlbumLevel albumLevelOf(const std::vector<AlbumPart>& parts);

} // namespace tarn
