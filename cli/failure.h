#pragma once

#include <stdexcept>
#include <string>

#include <sysexits.h>

namespace tarn
{

/// Why the command gives up: what is wrong and what to do about it, and the exit code that says so to scripts.
class Failure : public std::runtime_error
{
public:
    /// exitCode  one of sysexits.h: EX_USAGE, EX_DATAERR, EX_NOINPUT, EX_SOFTWARE, EX_CANTCREAT, EX_IOERR
    /// message   one or two lines that begin with the name of the file or option concerned
    Failure(int exitCode, const std::string& message) : std::runtime_error(message), code(exitCode) {}

    int exitCode() const noexcept { return code; }

private:
    int code;
};

/// A failure that every further output would meet: a full disk, or a folder that cannot be written to.
class OutputFailure : public Failure
{
public:
    using Failure::Failure;
};

} // namespace tarn
