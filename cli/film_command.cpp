// tarn film: starts tarn-film, a program of its own.
// SPDX-License-Identifier: MIT
#include "cli/film_command.h"

#include "cli/failure.h"
#include "cli/text.h"

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

#include <unistd.h>

namespace tarn
{

void startFilm(const std::string& command, char** arguments)
{
    const std::string name = "tarn-film";
    std::string shownName = command + " film";
    arguments[0] = shownName.data();
    // In a build folder, it is in the folder next to that of tarn.
    std::error_code ignored;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ignored);
    for (const std::filesystem::path& folder : {self.parent_path(), self.parent_path().parent_path() / "film"})
        if (!self.empty() && std::filesystem::is_regular_file(folder / name, ignored))
            execv((folder / name).c_str(), arguments);
    execvp(name.c_str(), arguments);
    if (errno == ENOENT)
        throw Failure(EX_SOFTWARE, command + " film: the program tarn-film is not installed; install the package "
                                             "tarn-film, or build it with ./run film");
    throw Failure(EX_SOFTWARE, command + " film: tarn-film cannot be started: " + systemError(errno));
}

} // namespace tarn
