// Opens input files and stores piped input.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/descriptor.h"
#include "cli/file_identity.h"

#include <cstdint>
#include <string>

namespace tarn
{

/// An input file with random access.
struct InputFile
{
    std::string name; ///< for messages
    Descriptor descriptor;
    FileIdentity identity;   ///< of the file that the user named
    std::uint64_t bytes = 0; ///< size
    bool fromPipe = false;   ///< a stored copy of a pipe
};

/// Opens a file for reading; - is standard input.
///
/// Copies a pipe to an unnamed file in TMPDIR or /tmp first, because parsing the header of an audio file needs random
/// access.
///
/// Throws Failure: EX_NOINPUT if it cannot be opened or is a directory; EX_DATAERR if it is empty; EX_USAGE for a
/// terminal; EX_IOERR if a pipe cannot be read or stored. Throws Interrupted.
InputFile openInput(const std::string& path);

} // namespace tarn
