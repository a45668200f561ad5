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
    name = std::filesystem::path(argument).filename() == "tarn" ? "tarn" : argument;
}

const std::string& commandName()
{
    return name;
}

} // namespace tarn
