// What to do about errors of the system.
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace tarn
{

/// Advice for an error of the system.
///
/// usual  for all errors that no limit of the process or of the file system causes
std::string adviceFor(int error, const std::string& usual);

} // namespace tarn
