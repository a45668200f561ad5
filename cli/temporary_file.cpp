// Creates temporary files and removes those of killed runs.
// SPDX-License-Identifier: MIT
#include "cli/temporary_file.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarn
{

namespace
{

constexpr std::string_view kMark = ".tarn-temporary-";
constexpr std::string_view kRandom = "-XXXXXX"; ///< placeholder of mkostemp

/// The part of a name behind that of the output: mark, process and placeholder.
std::string ending()
{
    return std::string(kMark) + std::to_string(getpid()) + std::string(kRandom);
}

bool isAlphanumeric(char c) noexcept
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

bool isDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

/// Whether a name has the form of a temporary file. Names that users choose do not have it by accident.
bool isTemporaryName(std::string_view name)
{
    const std::size_t mark = name.rfind(kMark);
    if (mark == std::string_view::npos || mark < 2 || name.front() != '.') return false;
    const std::string_view rest = name.substr(mark + kMark.size());
    const std::size_t dash = rest.find('-');
    if (dash == 0 || dash == std::string_view::npos || rest.size() != dash + kRandom.size()) return false;
    return std::all_of(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(dash), isDigit) &&
           std::all_of(rest.begin() + static_cast<std::ptrdiff_t>(dash) + 1, rest.end(), isAlphanumeric);
}

/// The first bytes of a name; does not split a UTF-8 character.
std::string shortened(const std::string& name, std::size_t bytes)
{
    if (name.size() <= bytes) return name;
    while (bytes > 1 && (static_cast<unsigned char>(name[bytes]) & 0xc0) == 0x80) --bytes;
    return name.substr(0, bytes);
}

/// Waits for the lock. Other processes hold it only briefly, while they check the file.
void waitForLock(int descriptor) noexcept
{
    while (flock(descriptor, LOCK_EX) != 0 && errno == EINTR) {
    }
}

bool hasName(int descriptor) noexcept
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && status.st_nlink > 0;
}

/// Removes a regular file of this user if it is unlocked and the name still refers to it.
void removeIfStale(const std::filesystem::path& path) noexcept
{
    const Descriptor file(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat opened = {};
    struct stat named = {};
    if (file.number() < 0 || fstat(file.number(), &opened) != 0) return;
    if (!S_ISREG(opened.st_mode) || opened.st_uid != geteuid()) return;
    if (flock(file.number(), LOCK_EX | LOCK_NB) != 0) return;
    if (lstat(path.c_str(), &named) != 0 || named.st_dev != opened.st_dev || named.st_ino != opened.st_ino) return;
    unlink(path.c_str());
}

} // namespace

TemporaryFile createTemporary(const std::filesystem::path& directory, const std::string& name)
{
    const std::size_t limit = maxNameBytes(directory);
    const std::string end = ending();
    const std::string begin = shortened(name, limit > end.size() + 1 ? limit - end.size() - 1 : 1);
    while (true) {
        std::string path = directory / ("." + begin + end);
        Descriptor file(mkostemp(path.data(), O_CLOEXEC));
        if (file.number() < 0) return {.path = {}, .file = Descriptor(), .lock = Descriptor()};
        waitForLock(file.number());
        // Another process may have removed it before it was locked.
        if (!hasName(file.number())) continue;
        Descriptor lock(fcntl(file.number(), F_DUPFD_CLOEXEC, 0));
        return {.path = std::move(path), .file = std::move(file), .lock = std::move(lock)};
    }
}

void removeStaleTemporaries(const std::filesystem::path& directory)
{
    std::error_code error;
    std::filesystem::directory_iterator entry(directory.empty() ? "." : directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
        if (isTemporaryName(entry->path().filename().native())) removeIfStale(entry->path());
}

void removeStaleTemporariesOnce(const std::filesystem::path& directory)
{
    static std::set<std::pair<dev_t, ino_t>> seen;
    struct stat status = {};
    if (stat(directory.empty() ? "." : directory.c_str(), &status) != 0) return;
    if (seen.emplace(status.st_dev, status.st_ino).second) removeStaleTemporaries(directory);
}

std::size_t maxNameBytes(const std::filesystem::path& directory)
{
    constexpr std::size_t kDefault = 255;
    const long limit = pathconf(directory.empty() ? "." : directory.c_str(), _PC_NAME_MAX);
    return limit > 0 ? static_cast<std::size_t>(limit) : kDefault;
}

} // namespace tarn
