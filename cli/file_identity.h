#pragma once

#include <sys/stat.h>

namespace tarn
{

/// What tells whether two names mean one file.
struct FileIdentity
{
    dev_t device;
    ino_t inode;

    bool operator==(const FileIdentity&) const = default;
};

/// Which file a descriptor has open.
inline FileIdentity identityOf(int descriptor) noexcept
{
    struct stat status = {};
    fstat(descriptor, &status);
    return {.device = status.st_dev, .inode = status.st_ino};
}

} // namespace tarn
