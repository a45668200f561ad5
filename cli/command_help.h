// The options --help and --help-all of a command.
// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace tarn
{

/// Makes --help print a text of one screen, and --help-all every option with a footer.
inline void setHelp(CLI::App& app, const char* text, const std::string& footer)
{
    app.set_help_flag("-h,--help", "Print the most important options");
    app.set_help_all_flag("--help-all", "Print every option");
    app.footer(footer);
    app.formatter_fn([text](const CLI::App* command, const std::string& name, CLI::AppFormatMode mode) {
        if (mode == CLI::AppFormatMode::Normal) return std::string(text);
        CLI::Formatter formatter;
        formatter.column_width(24);
        formatter.label("REQUIRED", "");
        return formatter.make_help(command, name, mode);
    });
}

} // namespace tarn
