// Size and time of a file, to recognise changes.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <sys/stat.h>

namespace tarn
{

/// Size of a file and time of its last change.
struct FileState
{
    std::int64_t bytes = 0;
    std::int64_t seconds = 0; ///< since 1970
    std::int64_t nanoseconds = 0;

    bool operator==(const FileState&) const = default;
};

inline FileState stateOf(const struct stat& status) noexcept
{
    return {.bytes = status.st_size, .seconds = status.st_mtim.tv_sec, .nanoseconds = status.st_mtim.tv_nsec};
}

/// The state of a regular file; none if there is no such file.
inline std::optional<FileState> stateOf(const std::string& path) noexcept
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return stateOf(status);
}

} // namespace tarn
