// An output file that appears under its name only when it is complete.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/file_identity.h"
#include "cli/file_state.h"
#include "cli/temporary_file.h"

#include <functional>
#include <optional>
#include <string>

#include <sys/types.h>

namespace tarn
{

/// Called with the state of a complete file right before it gets its name. What it throws keeps the file from its name.
using NamingHook = std::function<void(const FileState&)>;

/// A file that appears under its name only when it is complete.
///
/// Writes to a temporary file in the same directory; commit gives it the name. Destruction without commit removes the
/// temporary file and keeps an existing file unchanged. If the process is killed and the temporary file has a name, the
/// next process that writes to the directory removes it.
class OutputFile
{
public:
    /// Removes temporary files of killed processes from the directory, then creates the temporary file.
    ///
    /// path   name of the file; with force, a symbolic link stands for its target
    /// force  replaces a regular file of that name and keeps its permissions
    /// input  a file that must not be replaced, if any
    /// hook   can be empty
    ///
    /// Throws Failure: EX_USAGE if path names the input, or exists and force is not set; EX_CANTCREAT if it exists and
    /// is not a regular file, or if the directory refuses a new file or a name of this length.
    OutputFile(const std::string& path, bool force, std::optional<FileIdentity> input, NamingHook hook = {});

    /// Removes the temporary file unless commit succeeded.
    ~OutputFile();

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Open for reading and writing.
    int descriptor() const noexcept { return temporary.file.number(); }

    /// Completes the file, writes it to the disk and gives it its name.
    ///
    /// Throws Failure: EX_IOERR if the file could not be written; EX_USAGE if another file of this name appeared in the
    /// meantime and force is not set; EX_CANTCREAT if naming fails. Also what the hook throws.
    void commit();

    /// Throws Failure (EX_IOERR) for a failed write; OutputFailure if the disk is full or defective.
    ///
    /// error   errno; 0 if unknown
    /// reason  message for error 0
    [[noreturn]] void failToWrite(int error, const std::string& reason) const;

private:
    void checkExisting(std::optional<FileIdentity> input);
    void checkLength() const;
    FileState complete();
    void refuseNewcomer() const;
    void name();

    std::string givenName;
    std::string target;
    mode_t mode;
    bool replace;
    NamingHook beforeNaming;
    TemporaryFile temporary;
};

} // namespace tarn
