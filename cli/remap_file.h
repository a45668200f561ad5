// Parser for remap matrix files.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/layout.h"
#include "stream/upmix_stream.h"

#include <string>
#include <vector>

namespace tarn
{

/// A remap matrix from a file.
struct RemapFile
{
    zrk_tarn::RemapGains matrix{};
    RemapSlots slots{"FL", "FR", "SL", "SR"}; ///< by column
    std::vector<std::string> notes{};         ///< warnings about columns whose sums can wrap
};

/// Reads a matrix: 3 rows (front left, front right, centre) of 4 decimal gains, with # comments and blank lines. An
/// optional first line names the 4 slots of the layout 7.1-remap that the columns are mixed into.
///
/// Gains are rounded to 28 fraction bits. Throws Failure: EX_NOINPUT if the file cannot be read; EX_DATAERR, with the
/// line, for a wrong count of rows, gains or slots, for gains that are not numbers from -8 to just below 8 and for
/// slots that the layout does not have or that are named twice. Throws Interrupted while it waits for a pipe.
RemapFile readRemapFile(const std::string& path);

} // namespace tarn
