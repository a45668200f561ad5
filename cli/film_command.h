// tarn film: starts tarn-film, a program of its own.
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace tarn
{

/// Replaces this process by tarn-film, which is beside the program or in the search path of programs.
///
/// command    name of this one in messages
/// arguments  of tarn-film, with a place for its name in front; ends with null
///
/// Throws Failure (EX_SOFTWARE) if it is not installed or cannot be started.
[[noreturn]] void startFilm(const std::string& command, char** arguments);

} // namespace tarn
