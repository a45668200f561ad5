#pragma once

#include "stream/upmix_stream.h"

#include <string>
#include <vector>

namespace tarn
{

/// A remap matrix as it was read from a file.
struct RemapFile
{
    zrk_tarn::RemapGains matrix;
    std::vector<std::string> notes; ///< columns whose sums can wrap, for the user
};

/// Reads a matrix: 3 rows (front left, front right, centre) of 4 decimal gains, with # comments and blank lines.
///
/// Gains are rounded to 28 fraction bits. Throws Failure: EX_NOINPUT if the file cannot be read; EX_DATAERR, with the
/// line, for a wrong count of rows or gains and for what is not a number from -8 to just below 8.
RemapFile readRemapFile(const std::string& path);

} // namespace tarn
