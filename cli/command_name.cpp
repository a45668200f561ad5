// Keeps the name of the command.
// SPDX-License-Identifier: MIT
#include "cli/command_name.h"

#include "cli/text.h"

#include <filesystem>

namespace tarn
{

namespace
{

std::string name = "tarn";

} // namespace

void setCommandName(const std::string& argument)
{
    const std::filesystem::path program = std::filesystem::path(argument).filename();
    // The name that tarn gives to tarn-film has been quoted already, and has a blank.
    const std::string quoted = printable(argument) == argument ? argument : shellQuoted(argument);
    name = program == "tarn" ? "tarn" : program == "tarn-film" ? "tarn film" : quoted;
}

const std::string& commandName()
{
    return name;
}

} // namespace tarn
