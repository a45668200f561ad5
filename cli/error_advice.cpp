// Names the limit that causes an error.
// SPDX-License-Identifier: MIT
#include "cli/error_advice.h"

#include <cerrno>

#include <sys/resource.h>

namespace tarn
{

std::string adviceFor(int error, const std::string& usual)
{
    if (error == EMFILE) return "raise the limit of open files (ulimit -n)";
    if (error != EFBIG) return usual;
    rlimit limit = {};
    const bool isLimited = getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
    return isLimited ? "raise the limit of the file size (ulimit -f)" : "choose a file system for larger files";
}

} // namespace tarn
