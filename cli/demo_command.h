// tarn demo: upmixes a built-in scene and prints measurements.
// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

namespace tarn
{

/// The options of `tarn demo`.
struct DemoOptions
{
    std::string output;                ///< file for the upmixed scene; empty: none
    std::string layout = "3.0";        ///< of the output
    std::optional<std::string> preset; ///< of the output; none: the first one
    bool force = false;
};

/// Upmixes the built-in scene, prints levels and delay, and writes the upmix and its stereo if an output is named.
///
/// Throws Failure or Interrupted.
void runDemo(const DemoOptions& options);

} // namespace tarn
