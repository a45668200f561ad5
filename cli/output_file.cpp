// Writes to a temporary file and gives it the name of the output.
// SPDX-License-Identifier: MIT
#include "cli/output_file.h"

#include "cli/error_advice.h"
#include "cli/extension.h"
#include "cli/failure.h"
#include "cli/text.h"

#include <cerrno>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarn
{

namespace
{

/// The default mode of a new file. Computed once, because reading the mask changes it for all threads.
mode_t defaultMode() noexcept
{
    static const mode_t mode = [] {
        const mode_t mask = umask(0);
        umask(mask);
        return 0666 & ~mask;
    }();
    return mode;
}

/// The directory of a file, for messages.
std::string directoryOf(const std::filesystem::path& file)
{
    return file.has_parent_path() ? file.parent_path().string() : ".";
}

/// Writes the names of a directory to the disk. Not every file system can; the files are complete in any case.
void syncDirectory(const std::filesystem::path& directory) noexcept
{
    const Descriptor opened(open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.number() >= 0) fsync(opened.number());
}

[[noreturn]] void failAsExisting(const std::string& name)
{
    throw Failure(EX_USAGE, name + ": appeared in the meantime and was not replaced; choose another name, or add "
                                   "--force to replace it");
}

[[noreturn]] void failToCreate(const std::string& name, const std::string& directory, int error)
{
    throw OutputFailure(EX_CANTCREAT, name + ": cannot create a file in " + directory + ": " + systemError(error) +
                                          "; " +
                                          adviceFor(error, "choose a directory that exists and that you may write to"));
}

/// What to do about a failed write.
std::string writeAdvice(int error, const std::string& name)
{
    const bool isFull = error == ENOSPC || error == EDQUOT;
    std::string advice = adviceFor(error, isFull ? "free some space, or choose another place" : "choose another place");
    if (error == EFBIG && extensionOf(name) == ".wav") advice += ", or write a .flac file";
    return advice;
}

} // namespace

OutputFile::OutputFile(const std::string& path, bool force, std::optional<FileIdentity> input, NamingHook hook)
    : givenName(path), target(path), mode(defaultMode()), replace(force), beforeNaming(std::move(hook))
{
    checkExisting(input);
    checkLength();

    const std::filesystem::path full(target);
    removeStaleTemporariesOnce(full.parent_path());
    temporary = createTemporary(full.parent_path(), full.filename().string());
    if (temporary.file.number() >= 0) return;
    if (errno == ENAMETOOLONG)
        throw Failure(EX_CANTCREAT, givenName + ": the path is too long for a temporary file beside it; choose a "
                                                "shorter path");
    failToCreate(givenName, directoryOf(full), errno);
}

OutputFile::~OutputFile()
{
    if (temporary.isNamed) unlink(temporary.path.c_str());
}

void OutputFile::checkExisting(std::optional<FileIdentity> input)
{
    struct stat status = {};
    if (lstat(target.c_str(), &status) != 0) return;
    const bool isLink = S_ISLNK(status.st_mode);
    if (isLink && stat(target.c_str(), &status) != 0)
        throw Failure(EX_CANTCREAT, givenName + ": is a broken symbolic link; remove it, or choose another name");

    if (FileIdentity{.device = status.st_dev, .inode = status.st_ino} == input)
        throw Failure(EX_USAGE, givenName + ": is the input file; choose another name for the output");
    if (!S_ISREG(status.st_mode))
        throw Failure(EX_CANTCREAT, givenName + ": exists and is not a regular file; choose another name");
    if (!replace)
        throw Failure(EX_USAGE, givenName + ": exists already; choose another name, or add --force to replace it");

    // Not the set-ID bits: the new file can have another owner.
    mode = status.st_mode & 0777;
    if (isLink) target = std::filesystem::canonical(target).string();
}

/// Refuses a name that is too long for the directory, before any work is done.
void OutputFile::checkLength() const
{
    const std::filesystem::path full(target);
    const std::size_t length = full.filename().native().size();
    const std::size_t limit = maxNameBytes(full.parent_path());
    if (length > limit)
        throw Failure(EX_CANTCREAT, givenName + ": the name has " + std::to_string(length) + " bytes, and " +
                                        directoryOf(full) + " allows names of " + std::to_string(limit) +
                                        " at most; choose a shorter name");
    struct stat status = {};
    if (lstat(target.c_str(), &status) != 0 && errno == ENAMETOOLONG)
        throw Failure(EX_CANTCREAT,
                      givenName + ": the name is too long for " + directoryOf(full) + "; choose a shorter name");
}

void OutputFile::commit()
{
    const FileState state = complete();
    if (beforeNaming) {
        refuseNewcomer();
        beforeNaming(state);
    }
    name();
    temporary.lock.close();
}

/// Writes everything to the disk and closes the file. Returns its state.
FileState OutputFile::complete()
{
    const int descriptor = temporary.file.number();
    fchmod(descriptor, mode); // not every file system has permissions
    // Without it, a network file system may change the time once more.
    const timespec times[2] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, {.tv_sec = 0, .tv_nsec = UTIME_NOW}};
    if (beforeNaming) futimens(descriptor, times);
    struct stat status = {};
    const bool isSynced = fsync(descriptor) == 0 && fstat(descriptor, &status) == 0;
    const int syncError = isSynced ? 0 : errno;
    const int closeError = !temporary.file.close() ? errno : 0;
    if (const int error = syncError != 0 ? syncError : closeError; error != 0) failToWrite(error, "");
    return stateOf(status);
}

/// Refuses a file of this name that appeared in the meantime.
void OutputFile::refuseNewcomer() const
{
    struct stat status = {};
    if (!replace && lstat(target.c_str(), &status) == 0) failAsExisting(givenName);
}

void OutputFile::failToWrite(int error, const std::string& reason) const
{
    struct stat status = {};
    const bool exists = lstat(target.c_str(), &status) == 0;
    const std::string message = givenName + ": writing failed: " + (error != 0 ? systemError(error) : reason) +
                                (exists ? "; the existing file is unchanged; " : "; no output was left; ") +
                                writeAdvice(error, givenName);
    if (error == ENOSPC || error == EDQUOT || error == EROFS || error == EIO) throw OutputFailure(EX_IOERR, message);
    throw Failure(EX_IOERR, message);
}

void OutputFile::name()
{
    const int error = giveName(temporary, target, replace);
    if (error == EEXIST) failAsExisting(givenName);
    if (error != 0)
        throw Failure(EX_CANTCREAT, givenName + ": the finished file cannot get this name: " + systemError(error) +
                                        "; choose another name");
    syncDirectory(std::filesystem::path(target).parent_path());
}

} // namespace tarn
