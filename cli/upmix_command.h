#pragma once

#include "cli/upmixer.h"

#include <optional>
#include <string>

namespace tarn
{

/// What `tarn upmix` was asked for.
struct UpmixOptions
{
    std::string input;                 ///< a file, or - for standard input
    std::string output;                ///< a file, or - for standard output
    std::string layout = "3.0";        ///< name of a layout
    std::string remapFile;             ///< empty: none
    std::optional<std::uint32_t> bits; ///< width of the output
    std::optional<std::string> raw;    ///< RATE:BITS of the stream on -
    int mode = 1;
    float mixFraction = 1.0f;
    bool noAlign = false;
    bool force = false;
    bool quiet = false;
};

/// Upmixes INPUT to OUTPUT. Throws Failure or Interrupted; then no output file is left.
void runUpmix(const UpmixOptions& options);

/// Prints a line about the work on standard error.
void printNote(const std::string& note);

} // namespace tarn
