// A preloaded library with a file system that lacks features, which records what happens to files.
// SPDX-License-Identifier: MIT
#include "tests/cli/hidden_by.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

// TARN_LACKS lists what the system lacks: tmpfile (files without names), linkat (names for them), noreplace (renaming
// without replacing), links, entropy (random numbers), randomness (they are all 0). TARN_CALLS names a file that gets a
// line for every call that succeeds. TARN_SIGNAL is the number of a signal, and the number of the linkat that it
// follows.

namespace
{

bool lacks(std::string_view feature)
{
    const char* const list = std::getenv("TARN_LACKS");
    return list != nullptr && std::string_view(list).find(feature) != std::string_view::npos;
}

int fail(int error)
{
    errno = error;
    return -1;
}

/// Records a call if it succeeded. Returns its result.
int recorded(const char* call, int result)
{
    const char* const file = std::getenv("TARN_CALLS");
    if (result != 0 || file == nullptr) return result;
    const auto log = static_cast<int>(syscall(SYS_openat, AT_FDCWD, file, O_WRONLY | O_CREAT | O_APPEND, 0600));
    dprintf(log, "%s\n", call);
    close(log);
    return result;
}

} // namespace

extern "C" int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t); // the caller passes it only with certain flags
    va_end(arguments);
    if ((flags & O_TMPFILE) == O_TMPFILE && lacks("tmpfile")) return fail(EOPNOTSUPP);
    return tests::hiddenBy(open, "open")(path, flags, mode);
}

extern "C" int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept
{
    if (lacks("noreplace")) return fail(EINVAL);
    return recorded("rename", tests::hiddenBy(renameat2, "renameat2")(fromFolder, from, toFolder, to, flags));
}

extern "C" int rename(const char* from, const char* to) noexcept
{
    return recorded("rename", tests::hiddenBy(rename, "rename")(from, to));
}

extern "C" int link(const char* from, const char* to) noexcept
{
    if (lacks("links")) return fail(EPERM);
    return recorded("link", tests::hiddenBy(link, "link")(from, to));
}

extern "C" int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags) noexcept
{
    if (lacks("linkat")) return fail(EPERM);
    const int result = recorded("link", tests::hiddenBy(linkat, "linkat")(fromFolder, from, toFolder, to, flags));
    static int links = 0;
    int signalNumber = 0;
    int place = 0;
    const char* const text = std::getenv("TARN_SIGNAL");
    if (text != nullptr) std::sscanf(text, "%d %d", &signalNumber, &place);
    if (result == 0 && ++links == place) kill(getpid(), signalNumber);
    return result;
}

extern "C" int getentropy(void* bytes, std::size_t count)
{
    if (lacks("entropy")) return fail(ENOSYS);
    if (!lacks("randomness")) return tests::hiddenBy(getentropy, "getentropy")(bytes, count);
    std::memset(bytes, 0, count);
    return 0;
}

extern "C" int fsync(int descriptor)
{
    struct stat status = {};
    const bool isFolder = fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
    return recorded(isFolder ? "sync folder" : "sync file", tests::hiddenBy(fsync, "fsync")(descriptor));
}
