// Options that several commands have.
// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace tarn
{

/// Adds --layout, for the layouts without a matrix.
///
/// what  the outputs do with it: "Outputs to draw"
void addLayoutOption(CLI::App& command, std::string& layout, const std::string& what);

/// Adds --preset.
void addPresetOption(CLI::App& command, std::optional<std::string>& preset, const std::string& description);

/// Adds --raw, the format of standard input.
void addRawOption(CLI::App& command, std::optional<std::string>& raw);

/// Adds --theme, the background of pictures.
void addThemeOption(CLI::App& command, std::string& theme);

} // namespace tarn
