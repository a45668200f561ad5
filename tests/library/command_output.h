// Runs a command and reads its output.
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace tests
{

/// The output lines of a command.
inline std::vector<std::string> linesOf(const std::string& command)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::vector<std::string> lines;
    for (std::array<char, 4096> line; std::fgets(line.data(), line.size(), pipe.get()) != nullptr;) {
        lines.emplace_back(line.data());
        lines.back().pop_back();
    }
    return lines;
}

} // namespace tests
