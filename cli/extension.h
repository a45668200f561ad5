// The extension of a file name.
// SPDX-License-Identifier: MIT
#pragma once

#include <cctype>
#include <filesystem>
#include <string>

namespace tarn
{

/// The extension in lower case, with its dot: ".flac"; empty if there is none.
inline std::string extensionOf(const std::filesystem::path& path)
{
    std::string extension = path.extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

} // namespace tarn
