// Device and inode of a file, to recognise the same file under two names.
// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

namespace tarn
{

/// Identifies a file under any of its names.
struct FileIdentity
{
    dev_t device;
    ino_t inode;

    bool operator==(const FileIdentity&) const = default;
};

/// Identity of the file that a descriptor refers to.
inline FileIdentity identityOf(int descriptor) noexcept
{
    struct stat status = {};
    fstat(descriptor, &status);
    return {.device = status.st_dev, .inode = status.st_ino};
}

} // namespace tarn
