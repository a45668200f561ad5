// Keeps the name of the command.
// SPDX-License-Identifier: MIT
#include "cli/command_name.h"

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
    name = program == "tarn" ? "tarn" : program == "tarn-film" ? "tarn film" : argument;
}

const std::string& commandName()
{
    return name;
}

} // namespace tarn
