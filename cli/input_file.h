#pragma once

#include "cli/descriptor.h"
#include "cli/file_identity.h"

#include <cstdint>
#include <string>

namespace tarn
{

/// An INPUT whose bytes can be read at any position, in any order.
struct InputFile
{
    std::string name; ///< for messages
    Descriptor descriptor;
    FileIdentity identity;   ///< of what the user named
    std::uint64_t bytes = 0; ///< size
    bool fromPipe = false;   ///< the bytes came through a pipe and were stored
};

/// Opens a file for reading; - is standard input.
///
/// What comes through a pipe is stored to its end in a file without a name, in TMPDIR or /tmp, before anything else
/// happens: headers of audio files are read by going back and forth.
///
/// Throws Failure: EX_NOINPUT if it cannot be opened or is a directory; EX_DATAERR if it is empty; EX_USAGE for a
/// terminal; EX_IOERR if a pipe cannot be read or stored. Throws Interrupted.
InputFile openInput(const std::string& path);

} // namespace tarn
