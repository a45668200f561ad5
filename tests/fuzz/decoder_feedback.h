// Feedback to libFuzzer about decoders that are not instrumented.
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace fuzz
{

/// Gives libFuzzer feedback about the decoders, which are not instrumented. Each combination of format and exit code,
/// each one of container and mark, and each message count as a branch.
///
/// words  the messages of the command; numbers and file names are ignored
void noteDecoding(const std::string& path, std::string_view file, int exitCode, std::string_view words);

} // namespace fuzz
