// tarn upmix: upmixes one file or stream.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/album_level.h"
#include "cli/upmix_options.h"
#include "cli/upmix_report.h"

namespace tarn
{

/// Upmixes INPUT to OUTPUT, as much of it as can be decoded. Throws Failure or Interrupted; then no output file is
/// left.
UpmixReport upmix(const UpmixOptions& options);

/// Upmixes INPUT to OUTPUT and prints the report of --json if requested. Returns the exit code.
int runUpmix(const UpmixOptions& options);

/// Measures what INPUT contributes to the common level of a run, without writing anything. Throws Failure or
/// Interrupted.
AlbumPart measureForAlbum(const UpmixOptions& options);

} // namespace tarn
