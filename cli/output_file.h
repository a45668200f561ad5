#pragma once

#include "cli/file_identity.h"
#include "cli/temporary_file.h"

#include <optional>
#include <string>

#include <sys/types.h>

namespace tarn
{

/// A file that comes into being under its name only when it is complete.
///
/// It is written under a temporary name in the same directory and renamed by commit; an object that goes away before
/// that leaves nothing behind, and what had the name before is as it was. A process that is killed leaves the temporary
/// file, which the next process that writes into the directory removes.
class OutputFile
{
public:
    /// Creates the temporary file, after removing those that killed processes have left in its directory.
    ///
    /// path   name of the file to be; where it is a symbolic link and force is set, the file that the link points at
    /// force  whether a regular file of that name may be replaced; its mode is kept
    /// input  a file that is never replaced, if there is one
    ///
    /// Throws Failure: EX_USAGE if path names the input, or exists and force is not set; EX_CANTCREAT if it exists and
    /// is not a regular file, or if the directory does not take a new file or one of such a long name.
    OutputFile(const std::string& path, bool force, std::optional<FileIdentity> input);

    /// Removes the temporary file unless it was committed.
    ~OutputFile();

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Open for reading and writing.
    int descriptor() const noexcept { return temporary.file.number(); }

    /// Completes the file and gives it its name.
    ///
    /// Throws Failure: EX_IOERR if the file could not be written out; EX_USAGE if another file has appeared under the
    /// name meanwhile and force is not set; EX_CANTCREAT if the name cannot be given.
    void commit();

    /// Throws Failure (EX_IOERR) about a write that failed: OutputFailure if the disk is full or broken.
    ///
    /// error   the system's error number; 0 if it gave none
    /// reason  in place of the system's words then
    [[noreturn]] void failToWrite(int error, const std::string& reason) const;

private:
    void checkExisting(std::optional<FileIdentity> input);
    void checkLength() const;
    void rename();

    std::string givenName;
    std::string target;
    mode_t mode;
    bool replace;
    TemporaryFile temporary;
};

} // namespace tarn
