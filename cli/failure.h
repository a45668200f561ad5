// The exceptions that end the command with an exit code and a message.
// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

#include <sysexits.h>

namespace tarn
{

/// An error that ends the command: a message with the problem and advice, and an exit code for scripts.
class Failure : public std::runtime_error
{
public:
    /// exitCode  one of sysexits.h: EX_USAGE, EX_DATAERR, EX_NOINPUT, EX_SOFTWARE, EX_CANTCREAT, EX_IOERR
    /// message   one or two lines that begin with the name of the file or option
    Failure(int exitCode, const std::string& message) : std::runtime_error(message), code(exitCode) {}

    int exitCode() const noexcept { return code; }

private:
    int code;
};

/// A failure that would affect every further output: a full disk, or a folder without write permission.
class OutputFailure : public Failure
{
public:
    using Failure::Failure;
};

} // namespace tarn
