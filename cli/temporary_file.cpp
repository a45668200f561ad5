// Creates temporary files, gives them their final names, and removes those of killed runs.
// SPDX-License-Identifier: MIT
#include "cli/temporary_file.h"

#include "cli/failure.h"
#include "cli/signal_blocker.h"
#include "cli/text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
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
constexpr std::size_t kRandomCharacters = 6;
constexpr int kMaxTries = 100; ///< of a random name that no file has

/// The part of a name behind that of the output: mark, process and random characters. Throws Failure.
std::string ending()
{
    constexpr std::string_view kCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::array<unsigned char, kRandomCharacters> random{};
    if (getentropy(random.data(), random.size()) != 0)
        throw Failure(EX_SOFTWARE, "the system has no random numbers for the name of a temporary file: " +
                                       systemError(errno) + "; allow the system call getrandom");
    std::string text = std::string(kMark) + std::to_string(getpid()) + "-";
    for (const unsigned char byte : random) text += kCharacters[byte % kCharacters.size()];
    return text;
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
    if (dash == 0 || dash == std::string_view::npos || rest.size() != dash + 1 + kRandomCharacters) return false;
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

/// Opens a file for a lock, as far as its mode allows. Network file systems lock only what is open for writing.
Descriptor openForLock(const std::filesystem::path& path) noexcept
{
    for (const int access : {O_RDWR, O_RDONLY, O_WRONLY})
        if (const int descriptor = open(path.c_str(), access | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); descriptor >= 0)
            return Descriptor(descriptor);
    return Descriptor();
}

/// Removes a regular file of this user if it is unlocked and the name still refers to it.
void removeIfStale(const std::filesystem::path& path) noexcept
{
    const Descriptor file = openForLock(path);
    struct stat opened = {};
    struct stat named = {};
    if (file.number() < 0 || fstat(file.number(), &opened) != 0) return;
    if (!S_ISREG(opened.st_mode) || opened.st_uid != geteuid()) return;
    if (flock(file.number(), LOCK_EX | LOCK_NB) != 0) return;
    if (lstat(path.c_str(), &named) != 0 || named.st_dev != opened.st_dev || named.st_ino != opened.st_ino) return;
    unlink(path.c_str());
}

[[noreturn]] void failToName(const std::filesystem::path& directory)
{
    throw Failure(EX_CANTCREAT, (directory.empty() ? "." : directory.string()) +
                                    ": has no free name for a temporary file; remove the files with \"" +
                                    std::string(kMark) + "\" in their names, or choose another directory");
}

/// A hidden path that no file has. Empty if even the shortest one is too long; then errno holds the reason. Throws
/// Failure if the random names are taken.
std::string freePath(const std::filesystem::path& directory, const std::string& name)
{
    // Some file systems count characters and report a larger limit in bytes.
    const std::size_t limit = std::min<std::size_t>(maxNameBytes(directory), NAME_MAX);
    const std::size_t others = ending().size() + 1;
    std::string begin = shortened(name, limit > others ? limit - others : 1);
    for (int i = 0; i < kMaxTries; ++i) {
        std::string path = directory / ("." + begin + ending());
        struct stat status = {};
        if (lstat(path.c_str(), &status) == 0) continue;
        if (errno != ENAMETOOLONG) return path;
        if (begin.size() == 1) return "";
        begin = shortened(begin, begin.size() / 2);
    }
    failToName(directory);
}

Descriptor openUnnamed(const std::filesystem::path& directory) noexcept
{
    return Descriptor(open(directory.empty() ? "." : directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
}

/// Gives a file without a name a name that does not exist. Returns 0 or an errno.
int linkUnnamed(int descriptor, const std::string& name)
{
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    return linkat(AT_FDCWD, path.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

/// Whether a file without a name can get one: not without /proc, and not where a security module refuses links. Tries
/// it with an empty file, because a file that has lost its name gets no other.
bool canLinkUnnamed(const std::filesystem::path& directory, const std::string& name)
{
    const Descriptor trial = openUnnamed(directory);
    if (trial.number() < 0) return false;
    // No signal ends the process while the name exists. Other threads block all signals.
    const SignalBlocker signals;
    if (linkUnnamed(trial.number(), name) != 0) return false;
    unlink(name.c_str());
    return true;
}

/// Renames without replacing. Returns 0 or an errno.
int renameNoReplace(const std::string& from, const std::string& to) noexcept
{
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    if (link(from.c_str(), to.c_str()) == 0) {
        unlink(from.c_str());
        return 0;
    }
    if (errno == EEXIST) return errno;
    // Some file systems have neither. An empty file takes the name, which fails if it exists, and is replaced at once.
    const Descriptor placeholder(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (placeholder.number() < 0) return errno;
    if (std::rename(from.c_str(), to.c_str()) == 0) return 0;
    const int error = errno;
    unlink(to.c_str());
    return error;
}

} // namespace

TemporaryFile createTemporary(const std::filesystem::path& directory, const std::string& name)
{
    TemporaryFile temporary{.path = freePath(directory, name)};
    if (temporary.path.empty()) return {};
    if (!canLinkUnnamed(directory, temporary.path)) return createNamedTemporary(directory, name);
    temporary.file = openUnnamed(directory);
    if (temporary.file.number() < 0) return {};
    // For the moment in which it has a hidden name; see giveName. The name is given through this descriptor.
    waitForLock(temporary.file.number());
    temporary.lock = Descriptor(fcntl(temporary.file.number(), F_DUPFD_CLOEXEC, 0));
    if (temporary.lock.number() < 0) return {};
    return temporary;
}

TemporaryFile createNamedTemporary(const std::filesystem::path& directory, const std::string& name)
{
    for (int i = 0; i < kMaxTries; ++i) {
        TemporaryFile temporary{.path = freePath(directory, name), .isNamed = true};
        if (temporary.path.empty()) return {};
        temporary.file = Descriptor(open(temporary.path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (temporary.file.number() < 0) return {};
        waitForLock(temporary.file.number());
        // Another process may have removed it before it was locked.
        if (!hasName(temporary.file.number())) continue;
        temporary.lock = Descriptor(fcntl(temporary.file.number(), F_DUPFD_CLOEXEC, 0));
        if (temporary.lock.number() >= 0) return temporary;
        const int error = errno;
        unlink(temporary.path.c_str());
        errno = error;
        return {};
    }
    failToName(directory);
}

Descriptor createUnnamed(const std::filesystem::path& directory)
{
    Descriptor unnamed = openUnnamed(directory);
    if (unnamed.number() >= 0) return unnamed;
    TemporaryFile named = createNamedTemporary(directory, "upmix");
    if (named.file.number() >= 0) unlink(named.path.c_str());
    return std::move(named.file);
}

int giveName(TemporaryFile& temporary, const std::string& name, bool replace)
{
    // No signal ends the process between two of these calls. Other threads block all signals.
    const SignalBlocker signals;
    if (!temporary.isNamed) {
        const int error = linkUnnamed(temporary.lock.number(), name);
        if (error != EEXIST || !replace) return error;
        // A link cannot replace a file, so a hidden name exists until the next system call renames it.
        if (const int hidden = linkUnnamed(temporary.lock.number(), temporary.path); hidden != 0) return hidden;
        temporary.isNamed = true;
    }
    int error = 0;
    if (!replace) {
        error = renameNoReplace(temporary.path, name);
    } else if (std::rename(temporary.path.c_str(), name.c_str()) != 0) {
        error = errno;
    }
    if (error == 0) temporary.isNamed = false;
    return error;
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
