#include "cli/output_file.h"

#include "cli/failure.h"
#include "cli/text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarn
{

namespace
{

// Leaves room for the dot and the suffix within the 255 bytes that file systems allow.
constexpr std::size_t kMaxStemBytes = 240;

/// The mode that open would give a new file. Asked for once: the mask can be read only by changing it, for all threads.
mode_t defaultMode() noexcept
{
    static const mode_t mode = [] {
        const mode_t mask = umask(0);
        umask(mask);
        return 0666 & ~mask;
    }();
    return mode;
}

/// Renames without replacing; with a hard link where the file system knows no such renaming. Returns 0 or an errno.
int renameNoReplace(const std::string& from, const std::string& to) noexcept
{
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    if (link(from.c_str(), to.c_str()) != 0) return errno;
    unlink(from.c_str());
    return 0;
}

} // namespace

OutputFile::OutputFile(const std::string& path, bool force, std::optional<FileIdentity> input)
    : givenName(path), target(path), mode(defaultMode()), replace(force)
{
    checkExisting(input);

    const std::filesystem::path full(target);
    const std::string stem = full.filename().string().substr(0, kMaxStemBytes);
    temporary = (full.parent_path() / ("." + stem + ".XXXXXX")).string();
    file = Descriptor(mkostemp(temporary.data(), O_CLOEXEC));
    if (file.number() < 0) {
        const std::string directory = full.has_parent_path() ? full.parent_path().string() : ".";
        throw Failure(EX_CANTCREAT, givenName + ": cannot create a file in " + directory + ": " + systemError(errno) +
                                        "; choose a directory that exists and that you may write to");
    }
    fchmod(file.number(), mode);
}

OutputFile::~OutputFile()
{
    if (!temporary.empty()) unlink(temporary.c_str());
}

void OutputFile::checkExisting(std::optional<FileIdentity> input)
{
    struct stat status = {};
    if (lstat(target.c_str(), &status) != 0) return;
    const bool isLink = S_ISLNK(status.st_mode);
    if (isLink && stat(target.c_str(), &status) != 0)
        throw Failure(EX_CANTCREAT, givenName + ": is a symbolic link that points at nothing; remove it, or choose "
                                                "another name");

    if (FileIdentity{.device = status.st_dev, .inode = status.st_ino} == input)
        throw Failure(EX_USAGE, givenName + ": is the input file; choose another name for the output");
    if (!S_ISREG(status.st_mode))
        throw Failure(EX_CANTCREAT, givenName + ": exists and is not a regular file; choose another name");
    if (!replace)
        throw Failure(EX_USAGE, givenName + ": exists already; choose another name, or add --force to replace it");

    mode = status.st_mode & 07777;
    if (isLink) target = std::filesystem::canonical(target).string();
}

void OutputFile::complete()
{
    if (file.number() < 0) return;
    const int syncError = fsync(file.number()) != 0 ? errno : 0;
    const int closeError = !file.close() ? errno : 0;
    if (const int error = syncError != 0 ? syncError : closeError; error != 0)
        throw Failure(EX_IOERR, givenName + ": writing failed: " + systemError(error) + "; no output was left");
}

void OutputFile::commit()
{
    complete();
    rename();
    temporary.clear();
}

void OutputFile::rename()
{
    int error = 0;
    if (!replace) {
        error = renameNoReplace(temporary, target);
    } else if (std::rename(temporary.c_str(), target.c_str()) != 0) {
        error = errno;
    }

    if (error == EEXIST)
        throw Failure(EX_USAGE, givenName + ": has appeared meanwhile and was left alone; choose another name, or add "
                                            "--force to replace it");
    if (error != 0)
        throw Failure(EX_CANTCREAT, givenName + ": the finished file cannot be given this name: " + systemError(error) +
                                        "; choose another name");
}

} // namespace tarn
