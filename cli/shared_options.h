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

/// The message about a value that cannot be read.
///
/// kind  what it should be: "a time"
std::string unreadable(const std::string& value, const std::string& kind, const std::string& example);

/// Accepts times; with isLength not zero.
CLI::Validator timeOption(bool isLength, const std::string& example);

/// Adds --start, a time of INPUT.
void addStartOption(CLI::App& command, std::optional<std::string>& start);

/// Adds --theme, the background of pictures.
void addThemeOption(CLI::App& command, std::string& theme);

} // namespace tarn
