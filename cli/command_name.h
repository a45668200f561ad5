// The name of the command in suggestions.
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace tarn
{

/// Sets the name from the first argument of the program: tarn for every path of a file with this name, "tarn film" for
/// tarn-film, else the argument itself, such as "./run tarn" of the script that builds and starts the command.
void setCommandName(const std::string& argument);

/// The words with which a suggestion begins.
const std::string& commandName();

} // namespace tarn
